#include "ll.h"

#include "diag.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

// A null block of no bytes is reported like any other null block, but nothing needs to be read from
// it, so the insertion can go on.
bool can_insert(const LL_TYPE *list, const void *data, size_t sd) {
    const bool list_given = ZEB_CHECK(list != nullptr);
    const bool data_given = ZEB_CHECK(data != nullptr);
    return list_given && (data_given || sd == 0);
}

LL_NODE *new_node(const void *data, size_t sd) {
    LL_NODE *node = static_cast<LL_NODE *>(calloc(1, sizeof *node));
    if (!ZEB_CHECK_ERRNO(node != nullptr))
        return nullptr;
    node->data = calloc(sd, 1);
    if (!ZEB_CHECK_ERRNO(node->data != nullptr)) {
        free(node);
        return nullptr;
    }
    if (sd != 0)
        memcpy(node->data, data, sd);
    return node;
}

void free_node(LL_NODE *node) {
    free(node->data);
    free(node);
}

bool counts_as_empty(const LL_TYPE *list) {
    return list->head == nullptr || list->tail == nullptr;
}

void link_first(LL_TYPE *list, LL_NODE *node) {
    list->head = list->tail = node;
    list->count = 1;
}

// Sets the links between two neighbours; a null neighbour stands for the end of the list.
void join(LL_TYPE *list, LL_NODE *front, LL_NODE *back) {
    (front != nullptr ? front->next : list->head) = back;
    (back != nullptr ? back->prev : list->tail) = front;
}

LL_NODE *link_between(LL_TYPE *list, LL_NODE *front, LL_NODE *node, LL_NODE *back) {
    join(list, front, node);
    join(list, node, back);
    ++list->count;
    return node;
}

void unlink(LL_TYPE *list, LL_NODE *node) {
    join(list, node->prev, node->next);
    --list->count;
}

void exchange_with_next(LL_TYPE *list, LL_NODE *node) {
    LL_NODE *next = node->next;
    LL_NODE *before = node->prev;
    LL_NODE *behind = next->next;
    join(list, before, next);
    join(list, next, node);
    join(list, node, behind);
}

bool can_walk(const LL_TYPE *list, bool callback_given) {
    const bool list_given = ZEB_CHECK(list != nullptr);
    return ZEB_CHECK(callback_given) && list_given;
}

// Calls back from `node` up to but not including `end`.
void walk_forwards(LL_NODE *node, const LL_NODE *end, LL_func_single cb, void *param) {
    for (; node != nullptr && node != end; node = node->next)
        cb(node->data, param);
}

void walk_backwards(LL_NODE *node, const LL_NODE *end, LL_func_single cb, void *param) {
    for (; node != nullptr && node != end; node = node->prev)
        cb(node->data, param);
}

} // namespace

void LL_init(LL_TYPE *list) {
    if (ZEB_CHECK(list != nullptr))
        *list = LL_TYPE{};
}

void LL_clear(LL_TYPE *list) {
    if (!ZEB_CHECK(list != nullptr))
        return;
    for (LL_NODE *node = list->head, *next; node != nullptr; node = next) {
        next = node->next;
        free_node(node);
    }
    *list = LL_TYPE{};
}

LL_NODE *LL_insert_tail(LL_TYPE *list, const void *data, size_t sd) {
    if (!can_insert(list, data, sd))
        return nullptr;
    LL_NODE *node = new_node(data, sd);
    if (node == nullptr)
        return nullptr;
    if (!counts_as_empty(list))
        return link_between(list, list->tail, node, nullptr);
    link_first(list, node);
    return node;
}

LL_NODE *LL_insert_head(LL_TYPE *list, const void *data, size_t sd) {
    if (!can_insert(list, data, sd))
        return nullptr;
    LL_NODE *node = new_node(data, sd);
    if (node == nullptr)
        return nullptr;
    if (!counts_as_empty(list))
        return link_between(list, nullptr, node, list->head);
    link_first(list, node);
    return node;
}

LL_NODE *LL_insert_after(LL_TYPE *list, LL_NODE *cur, const void *data, size_t sd) {
    if (cur == nullptr)
        return LL_insert_tail(list, data, sd);
    if (!can_insert(list, data, sd))
        return nullptr;
    LL_NODE *node = new_node(data, sd);
    return node == nullptr ? nullptr : link_between(list, cur, node, cur->next);
}

LL_NODE *LL_insert_before(LL_TYPE *list, LL_NODE *cur, const void *data, size_t sd) {
    if (cur == nullptr)
        return LL_insert_head(list, data, sd);
    if (!can_insert(list, data, sd))
        return nullptr;
    LL_NODE *node = new_node(data, sd);
    return node == nullptr ? nullptr : link_between(list, cur->prev, node, cur);
}

void LL_move_forward(LL_TYPE *list, LL_NODE *cur) {
    if (ZEB_CHECK(list != nullptr) && ZEB_CHECK(cur != nullptr) && cur->next != nullptr)
        exchange_with_next(list, cur);
}

void LL_move_backward(LL_TYPE *list, LL_NODE *cur) {
    if (ZEB_CHECK(list != nullptr) && ZEB_CHECK(cur != nullptr) && cur->prev != nullptr)
        exchange_with_next(list, cur->prev);
}

void LL_delete_specfic(LL_TYPE *list, LL_NODE *nd) {
    if (!ZEB_CHECK(list != nullptr) || !ZEB_CHECK(nd != nullptr))
        return;
    unlink(list, nd);
    free_node(nd);
}

void LL_delete_head(LL_TYPE *list) {
    if (ZEB_CHECK(list != nullptr) && list->head != nullptr)
        LL_delete_specfic(list, list->head);
}

void LL_delete_tail(LL_TYPE *list) {
    if (ZEB_CHECK(list != nullptr) && list->tail != nullptr)
        LL_delete_specfic(list, list->tail);
}

void LL_selective_delete(LL_TYPE *list, LL_func_bool_single cb, void *param) {
    if (!can_walk(list, cb != nullptr))
        return;
    for (LL_NODE *node = list->head, *next; node != nullptr; node = next) {
        const bool goes = cb(node->data, param) != FALSE;
        // Read only now: the callback may have appended behind the last node.
        next = node->next;
        if (goes)
            LL_delete_specfic(list, node);
    }
}

void LL_merge_list_back(LL_TYPE *dest, LL_TYPE *source) {
    if (!ZEB_CHECK(dest != nullptr) || !ZEB_CHECK(source != nullptr) || source->head == nullptr)
        return;
    if (dest->head == nullptr) {
        *dest = *source;
        return;
    }
    dest->tail->next = source->head;
    source->head->prev = dest->tail;
    dest->tail = source->tail;
    dest->count += source->count;
}

void LL_merge_list_front(LL_TYPE *dest, LL_TYPE *source) {
    if (!ZEB_CHECK(dest != nullptr) || !ZEB_CHECK(source != nullptr) || source->tail == nullptr)
        return;
    if (dest->tail == nullptr) {
        *dest = *source;
        return;
    }
    source->tail->next = dest->head;
    dest->head->prev = source->tail;
    dest->head = source->head;
    dest->count += source->count;
}

void LL_transverse_forwards(LL_TYPE *list, LL_func_single cb, void *param) {
    if (can_walk(list, cb != nullptr))
        walk_forwards(list->head, nullptr, cb, param);
}

void LL_transverse_backwards(LL_TYPE *list, LL_func_single cb, void *param) {
    if (can_walk(list, cb != nullptr))
        walk_backwards(list->tail, nullptr, cb, param);
}

void LL_transverse_forwards_loop(LL_TYPE *list, LL_NODE *start, LL_func_single cb, void *param) {
    if (!can_walk(list, cb != nullptr))
        return;
    walk_forwards(start != nullptr ? start : list->head, nullptr, cb, param);
    if (start != nullptr)
        walk_forwards(list->head, start, cb, param);
}

void LL_transverse_backwards_loop(LL_TYPE *list, LL_NODE *start, LL_func_single cb, void *param) {
    if (!can_walk(list, cb != nullptr))
        return;
    walk_backwards(start != nullptr ? start : list->tail, nullptr, cb, param);
    if (start != nullptr)
        walk_backwards(list->tail, start, cb, param);
}

LL_NODE *LL_transverse_until_forwards(LL_TYPE *list, LL_func_bool_single cb, void *param) {
    if (!can_walk(list, cb != nullptr))
        return nullptr;
    LL_NODE *node = list->head;
    while (node != nullptr && cb(node->data, param))
        node = node->next;
    return node;
}

LL_NODE *LL_transverse_until_backwards(LL_TYPE *list, LL_func_bool_single cb, void *param) {
    if (!can_walk(list, cb != nullptr))
        return nullptr;
    LL_NODE *node = list->tail;
    while (node != nullptr && cb(node->data, param))
        node = node->prev;
    return node;
}

/* ll.h - the doubly linked list that holds every collection of the library.
 *
 * A node owns a private copy of the caller's block; callbacks receive that copy. Node pointers stay
 * valid until the node is deleted, so they serve as handles. The block's size is not kept: one list
 * may hold blocks of different sizes.
 *
 *   LL_TYPE list;
 *   LL_init(&list);
 *   LL_insert_tail(&list, &record, sizeof record);
 *   LL_transverse_forwards(&list, print_record, stdout);
 *   LL_clear(&list);
 *
 * Arguments: a null pointer where "not null" is said is reported as a failed assertion and the
 * operation does nothing (and returns null). A node must belong to the list given; this is not
 * checked.
 * Threads: lists hold no lock. Whoever shares one between threads guards it with a mutex. */
#ifndef ZEB2_LL_H
#define ZEB2_LL_H

#include "port.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct LL_NODEs {
    void *data;            /* the node's own copy, on the heap; freed with the node */
    struct LL_NODEs *next; /* towards the tail; null at the tail */
    struct LL_NODEs *prev; /* towards the head; null at the head */
} LL_NODE;

/* The caller owns this record; the list owns its nodes. Empty: null, null, 0. */
typedef struct LL_TYPE {
    LL_NODE *head;
    LL_NODE *tail;
    int32_t count;
} LL_TYPE;

/* Called with a node's data and the caller's `param`. May change the data, may append to the list,
 * must not delete its own node. */
typedef void (*LL_func_single)(void *data, void *param);
/* The same with a verdict, whose meaning (go on, delete) the operation states. */
typedef BOOL (*LL_func_bool_single)(void *data, void *param);

/* Makes a list empty without freeing anything: for fresh storage, and for a list that was merged
 * into another.
 * list: not null.
 * Threads: the list's owner. */
ZEB_API void LL_init(LL_TYPE *list);

/* Frees every node with its data, from the head on, and leaves an empty list ready for use.
 * list: not null.
 * Threads: the list's owner. */
ZEB_API void LL_clear(LL_TYPE *list);

/* Appends a copy of a block.
 * list: not null. data: `sd` bytes, not null, stays the caller's. sd: bytes to copy, 0 allowed.
 * Returns the new node, owned by the list; null when memory runs out (reported; list unchanged).
 * Threads: the list's owner. */
ZEB_API LL_NODE *LL_insert_tail(LL_TYPE *list, const void *data, size_t sd);

/* Puts a copy of a block in front of all others; otherwise as LL_insert_tail.
 * Threads: the list's owner. */
ZEB_API LL_NODE *LL_insert_head(LL_TYPE *list, const void *data, size_t sd);

/* Inserts a copy of a block behind a node.
 * cur: node of this list; null appends to the list. Otherwise as LL_insert_tail.
 * Threads: the list's owner. */
ZEB_API LL_NODE *LL_insert_after(LL_TYPE *list, LL_NODE *cur, const void *data, size_t sd);

/* Inserts a copy of a block in front of a node.
 * cur: node of this list; null puts it at the head. Otherwise as LL_insert_tail.
 * Threads: the list's owner. */
ZEB_API LL_NODE *LL_insert_before(LL_TYPE *list, LL_NODE *cur, const void *data, size_t sd);

/* Exchanges a node with its successor (one place towards the tail) by relinking; handles and data
 * stay valid. Nothing at the tail.
 * list, cur: not null.
 * Threads: the list's owner. */
ZEB_API void LL_move_forward(LL_TYPE *list, LL_NODE *cur);

/* Exchanges a node with its predecessor (one place towards the head). Nothing at the head.
 * list, cur: not null.
 * Threads: the list's owner. */
ZEB_API void LL_move_backward(LL_TYPE *list, LL_NODE *cur);

/* Unlinks a node and frees it with its data; the handle is then dead.
 * list, nd: not null.
 * Threads: the list's owner. */
ZEB_API void LL_delete_specfic(LL_TYPE *list, LL_NODE *nd);

/* Deletes the first node; nothing on an empty list.
 * list: not null.
 * Threads: the list's owner. */
ZEB_API void LL_delete_head(LL_TYPE *list);

/* Deletes the last node; nothing on an empty list.
 * list: not null.
 * Threads: the list's owner. */
ZEB_API void LL_delete_tail(LL_TYPE *list);

/* Asks `cb` about every node from the head and deletes those for which it returns true. What `cb`
 * holds inside the data (further allocations) is its own to free before it says true. Nodes that
 * `cb` appends are reached in the same walk.
 * list, cb: not null. param: handed through, null allowed.
 * Threads: the list's owner. */
ZEB_API void LL_selective_delete(LL_TYPE *list, LL_func_bool_single cb, void *param);

/* Moves all nodes of `source` behind the tail of `dest`, without copying. `source` keeps its old
 * ends and count, which now point into `dest`: call LL_init on it, never LL_clear.
 * dest, source: not null, not the same list. An empty source changes nothing.
 * Threads: the owner of both lists. */
ZEB_API void LL_merge_list_back(LL_TYPE *dest, LL_TYPE *source);

/* Moves all nodes of `source` in front of the head of `dest`; otherwise as LL_merge_list_back.
 * Threads: the owner of both lists. */
ZEB_API void LL_merge_list_front(LL_TYPE *dest, LL_TYPE *source);

/* Calls `cb` for every node from head to tail.
 * list, cb: not null. param: handed through, null allowed.
 * Threads: the list's owner; `cb` runs in the calling thread. */
ZEB_API void LL_transverse_forwards(LL_TYPE *list, LL_func_single cb, void *param);

/* Calls `cb` for every node from tail to head; otherwise as LL_transverse_forwards.
 * Threads: the list's owner. */
ZEB_API void LL_transverse_backwards(LL_TYPE *list, LL_func_single cb, void *param);

/* Calls `cb` for every node once, beginning at `start`, going on to the tail, then from the head up
 * to the node before `start`.
 * list, cb: not null. start: node of this list; null: from the head. param: handed through.
 * Threads: the list's owner. */
ZEB_API void LL_transverse_forwards_loop(LL_TYPE *list, LL_NODE *start, LL_func_single cb,
                                         void *param);

/* The mirror image: from `start` to the head, then from the tail down to the node after `start`.
 * start: node of this list; null: from the tail. Otherwise as LL_transverse_forwards_loop.
 * Threads: the list's owner. */
ZEB_API void LL_transverse_backwards_loop(LL_TYPE *list, LL_NODE *start, LL_func_single cb,
                                          void *param);

/* Walks from the head for as long as `cb` returns true.
 * list, cb: not null. param: handed through, null allowed.
 * Returns the node at which `cb` returned false; null when it never did (or the list is empty).
 * Threads: the list's owner. */
ZEB_API LL_NODE *LL_transverse_until_forwards(LL_TYPE *list, LL_func_bool_single cb, void *param);

/* The same from the tail towards the head.
 * Threads: the list's owner. */
ZEB_API LL_NODE *LL_transverse_until_backwards(LL_TYPE *list, LL_func_bool_single cb, void *param);

#ifdef __cplusplus
}
#endif
#endif

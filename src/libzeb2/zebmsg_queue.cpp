#include "zebmsg_int.h"

#include "diag.h"
#include "util.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

// A list node, its entry and the allocator's overhead, so that a flood of empty messages counts
// too.
constexpr size_t k_entry_cost = 256;
// Once refused, outgoing messages are taken again below this load, not at the first gap.
constexpr size_t k_resume_load = zeb::k_queue_limit / 2;

ZEBMSG_msgqueue_data *entry_of(const LL_NODE *node) {
    return static_cast<ZEBMSG_msgqueue_data *>(node->data);
}

size_t length_of(const char *text) {
    return text != nullptr ? strlen(text) : 0;
}

size_t cost_of(const NETPACK_message *msg) {
    return k_entry_cost + msg->sz_ds + length_of(msg->dest_name) + length_of(msg->src_name) +
           length_of(msg->ds_name);
}

void free_entries(LL_TYPE *queue) {
    for (LL_NODE *node = queue->head; node != nullptr; node = node->next)
        NETPACK_msg_free(&entry_of(node)->msg);
    LL_clear(queue);
}

// ---- Keeping account of a queue ----

// Whoever empties a list by other means leaves the account behind.
void settle(const LL_TYPE *queue, ZEBMSG_queue_load *load) {
    if (queue->head == nullptr)
        load->bytes = 0;
}

void remove_head(LL_TYPE *queue, ZEBMSG_queue_load *load) {
    const size_t cost = cost_of(&entry_of(queue->head)->msg);
    load->bytes -= cost < load->bytes ? cost : load->bytes;
    NETPACK_msg_free(&entry_of(queue->head)->msg);
    LL_delete_head(queue);
}

// Takes the message over, also when it cannot be queued.
void append(LL_TYPE *queue, ZEBMSG_queue_load *load, NETPACK_message *msg, BOOL internal) {
    ZEBMSG_msgqueue_data entry = {};
    entry.msg = *msg;
    entry.internal = internal;
    const size_t cost = cost_of(msg);
    if (LL_insert_tail(queue, &entry, sizeof entry) != nullptr)
        load->bytes += cost;
    else
        NETPACK_msg_free(msg);
}

// ---- Outgoing ----

// A server that does not read, or is gone, must not make a talkative daemon grow for ever.
bool refuses(ZEBMSG_queue_load *load, size_t cost) {
    const size_t limit = load->dropped != 0 ? k_resume_load : zeb::k_queue_limit;
    if (load->bytes + cost > limit) {
        if (load->dropped++ == 0)
            ZEB_REPORT("Outgoing messages are not leaving: refusing new ones (%zu bytes queued)",
                       load->bytes);
        return true;
    }
    if (load->dropped != 0)
        ZEB_REPORT("Outgoing messages are taken again, %u were refused", load->dropped);
    load->dropped = 0;
    return false;
}

void append_outgoing(ZEBMSG_link *lnk, NETPACK_message *msg, BOOL internal) {
    settle(&lnk->tx_queue, &lnk->tx_load);
    if (refuses(&lnk->tx_load, cost_of(msg)))
        NETPACK_msg_free(msg);
    else
        append(&lnk->tx_queue, &lnk->tx_load, msg, internal);
}

void *package(const ZEBMSG_msgqueue_data *entry, size_t *size) {
    return entry->internal ? NETPACK_package_message_lib(&entry->msg, size)
                           : NETPACK_package_message(&entry->msg, size);
}

void queue_filter_delete(ZEBMSG_link *lnk, BOOL all, DWORD uid) {
    NET_SERVER_FilterDelete record = {};
    record.all = all;
    record.uid = uid;
    ZEBMSG_queue_message_lib(lnk, NET_SERVER_DELETFILTER, 0, nullptr, &record, sizeof record,
                             "NET_SERVER_FilterDelete", TRUE);
}

template <size_t N> void set_pattern(char (&field)[N], const char *pattern) {
    if (pattern != nullptr)
        UTIL_strncpynt(field, pattern, N);
}

// ---- Received ----

void report_losses(ZEBMSG_queue_load *load) {
    if (load->dropped != 0)
        ZEB_REPORT("Received messages are processed again, %u were lost", load->dropped);
    load->dropped = 0;
    load->bytes = 0;
}

void move_to_batch(LL_TYPE *batch, LL_TYPE *queue, ZEBMSG_queue_load *load) {
    LL_merge_list_back(batch, queue);
    LL_init(queue);
    report_losses(load);
}

void take_batches(ZEBMSG_link *lnk) {
    ZEB_LOCK(guard, &lnk->mtx);
    move_to_batch(&lnk->cl_rx, &lnk->rx_queue, &lnk->rx_load);
    if (lnk->cl_lib_cbs.head == nullptr)
        free_entries(&lnk->rx_lib_queue);
    move_to_batch(&lnk->cl_rx_lib, &lnk->rx_lib_queue, &lnk->rx_lib_load);
}

// The callback runs even when the catalogue lacks the message or its record: it is shown what was
// found.
void deliver(ZEBMSG_link *lnk, ZEBMSG_msgqueue_data *entry, ZEBMSG_process_message_cb cb,
             void *param) {
    if (entry->internal) {
        ZEB_REPORT("SANITY ERROR: Internal message (%d) in the external message queue",
                   static_cast<int>(entry->msg.type));
        return;
    }
    ZEBMSG_proc_msg pm = {};
    ZEBMSG_netpack_to_zebmsgproc(&entry->msg, lnk, &pm);
    if (cb != nullptr)
        cb(&pm, param);
}

void deliver_lib(ZEBMSG_link *lnk, ZEBMSG_msgqueue_data *entry) {
    if (!entry->internal) {
        ZEB_REPORT("SANITY ERROR: External message (%d) in the internal message queue",
                   static_cast<int>(entry->msg.type));
        return;
    }
    ZEBMSG_proc_msg pm = {};
    ZEBMSG_netpack_to_zebmsgproc_lib(&entry->msg, lnk, &pm);
    for (LL_NODE *node = lnk->cl_lib_cbs.head; node != nullptr; node = node->next) {
        const auto *proc = static_cast<const ZEBMSG_library_msg_process *>(node->data);
        proc->cb(&pm, lnk, proc->param);
    }
}

BOOL convert(const NETPACK_message *msg, ZEBMSG_proc_msg *pm,
             const NETMSG_entry *(*find_msg)(NETMSG_type),
             const NETDSD_entry *(*find_ds)(const char *)) {
    pm->msg = find_msg(msg->type);
    if (pm->msg == nullptr) {
        ZEB_REPORT("SANITY ERROR: Unable to find message description for message %d",
                   static_cast<int>(msg->type));
        return FALSE;
    }
    const bool attached = msg->ds_name != nullptr && msg->ds_name[0] != '\0';
    pm->dsd = attached ? find_ds(msg->ds_name) : nullptr;
    if (attached && pm->dsd == nullptr) {
        ZEB_REPORT("SANITY ERROR: Message %s (%d), unable to find a structure description for %s",
                   pm->msg->name, static_cast<int>(msg->type), msg->ds_name);
        return FALSE;
    }
    pm->flags = msg->flags;
    pm->src_name = msg->src_name;
    pm->dest_name = msg->dest_name;
    pm->pds = msg->pds;
    return TRUE;
}

} // namespace

namespace zeb {

void append_received(ZEBMSG_link *lnk, NETPACK_message *msg, BOOL internal) {
    LL_TYPE *queue = internal ? &lnk->rx_lib_queue : &lnk->rx_queue;
    ZEBMSG_queue_load *load = internal ? &lnk->rx_lib_load : &lnk->rx_load;
    settle(queue, load);
    // The latest state of the station matters more than its past.
    while (queue->head != nullptr && load->bytes + cost_of(msg) > k_queue_limit) {
        if (load->dropped++ == 0)
            ZEB_REPORT(
                "Received messages are not processed: dropping the oldest (%zu bytes queued)",
                load->bytes);
        remove_head(queue, load);
    }
    append(queue, load, msg, internal);
}

void package_next(void **data, size_t *size, void *param) {
    auto *lnk = static_cast<ZEBMSG_link *>(param);
    *data = nullptr;
    *size = 0;
    if (lnk->tx_queue.head == nullptr)
        return;
    *data = package(entry_of(lnk->tx_queue.head), size);
    remove_head(&lnk->tx_queue, &lnk->tx_load);
}

void clear_queue(LL_TYPE *queue, ZEBMSG_queue_load *load) {
    free_entries(queue);
    *load = {};
}

void clear_library_procs(ZEBMSG_link *lnk) {
    for (LL_NODE *node = lnk->cl_lib_cbs.head; node != nullptr; node = node->next)
        free(static_cast<ZEBMSG_library_msg_process *>(node->data)->param);
    LL_clear(&lnk->cl_lib_cbs);
}

} // namespace zeb

void ZEBMSG_queue_message(ZEBMSG_link *lnk, NETMSG_type type, DWORD flags, const char *dest_name,
                          const void *pds, size_t sz_ds, const char *ds_name) {
    NETPACK_message msg;
    NETPACK_msg_copy_from_parameters_int(&msg, type, flags, dest_name, nullptr, pds, sz_ds,
                                         ds_name);
    ZEB_LOCK(guard, &lnk->mtx);
    append_outgoing(lnk, &msg, FALSE);
}

void ZEBMSG_queue_message_lib(ZEBMSG_link *lnk, NETMSG_type type, DWORD flags,
                              const char *dest_name, const void *pds, size_t sz_ds,
                              const char *ds_name, BOOL do_lock) {
    NETPACK_message msg;
    NETPACK_msg_copy_from_parameters_int(&msg, type, flags, dest_name, nullptr, pds, sz_ds,
                                         ds_name);
    if (!do_lock) {
        append_outgoing(lnk, &msg, TRUE);
        return;
    }
    ZEB_LOCK(guard, &lnk->mtx);
    append_outgoing(lnk, &msg, TRUE);
}

DWORD ZEBMSG_add_filter(ZEBMSG_link *lnk, BOOL accept, const char *src_match,
                        const char *dest_match, int msg_type_match, const char *inst_type_match,
                        const char *tag_matches, const char *msg_metatype_matches) {
    NET_SERVER_FilterAdd filter = {};
    filter.uid = lnk->msg_filter_next_uid++;
    filter.target = accept;
    filter.type_match = msg_type_match;
    set_pattern(filter.src_match, src_match);
    set_pattern(filter.dest_match, dest_match);
    set_pattern(filter.inst_type_match, inst_type_match);
    set_pattern(filter.tag_match, tag_matches);
    set_pattern(filter.metatype_match, msg_metatype_matches);
    ZEBMSG_queue_message_lib(lnk, NET_SERVER_ADDFILTER, 0, nullptr, &filter, sizeof filter,
                             "NET_SERVER_FilterAdd", TRUE);
    return filter.uid;
}

void ZEBMSG_delete_filter(ZEBMSG_link *lnk, DWORD uid) {
    queue_filter_delete(lnk, FALSE, uid);
}

void ZEBMSG_clear_filters(ZEBMSG_link *lnk) {
    queue_filter_delete(lnk, TRUE, 0);
}

void ZEBMSG_register_library_msg_proc(ZEBMSG_link *lnk, ZEBMSG_process_message_lib_cb cb,
                                      const void *param, size_t sz_param) {
    ZEBMSG_library_msg_process proc = {cb, nullptr};
    if (param != nullptr && sz_param != 0) {
        proc.param = malloc(sz_param);
        if (!ZEB_CHECK_ERRNO(proc.param != nullptr))
            return;
        memcpy(proc.param, param, sz_param);
    }
    if (LL_insert_tail(&lnk->cl_lib_cbs, &proc, sizeof proc) == nullptr)
        free(proc.param);
}

BOOL ZEBMSG_netpack_to_zebmsgproc(NETPACK_message *msg, ZEBMSG_link * /*lnk*/,
                                  ZEBMSG_proc_msg *pm) {
    return convert(msg, pm, NETPACK_find_msg_by_type, NETPACK_find_ds);
}

BOOL ZEBMSG_netpack_to_zebmsgproc_lib(NETPACK_message *msg, ZEBMSG_link * /*lnk*/,
                                      ZEBMSG_proc_msg *pm) {
    return convert(msg, pm, NETPACK_find_msg_by_type_lib, NETPACK_find_ds_lib);
}

void ZEBMSG_process_messages(ZEBMSG_link *lnk, ZEBMSG_process_message_cb cb, void *param) {
    take_batches(lnk);
    for (LL_NODE *node = lnk->cl_rx.head; node != nullptr; node = node->next)
        deliver(lnk, entry_of(node), cb, param);
    free_entries(&lnk->cl_rx);
    for (LL_NODE *node = lnk->cl_rx_lib.head; node != nullptr; node = node->next)
        deliver_lib(lnk, entry_of(node));
    free_entries(&lnk->cl_rx_lib);
}

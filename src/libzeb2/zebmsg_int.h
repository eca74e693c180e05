// zebmsg_int.h - what the sources of zebmsg share. Not installed.
//
// Everything here is called with the link's mutex held, or before the link is shared.
#ifndef ZEB2_ZEBMSG_INT_H
#define ZEB2_ZEBMSG_INT_H

#include "zebmsg.h"

// One entry of the link's queues; the message owns its names and its record.
struct ZEBMSG_msgqueue_data {
    NETPACK_message msg;
    BOOL internal; // packed and unpacked with the library's own catalogue
};

namespace zeb {

// The memory that each of a link's queues may hold; generous, for a queue that nobody empties.
constexpr size_t k_queue_limit = 64 * 1024 * 1024;
// Instruments that one link remembers; a station has some dozens.
constexpr int k_known_limit = 4096;

// zebmsg_hooks.cpp

// Closes the socket and leaves its number to the next pre-select. The status stays.
void link_lost(ZEBMSG_link *lnk);

// zebmsg_queue.cpp

// Takes the message over. A full received queue loses its oldest messages, reported at the start
// and at the end of the loss.
void append_received(ZEBMSG_link *lnk, NETPACK_message *msg, BOOL internal);
// Supplies the framer with the next packed message, or with nothing; `param` is the link.
void package_next(void **data, size_t *size, void *param);
// Frees the queued messages and empties the queue.
void clear_queue(LL_TYPE *queue, ZEBMSG_queue_load *load);
// Frees the parameter blocks of the library procedures and forgets them.
void clear_library_procs(ZEBMSG_link *lnk);

// zebmsg_registry.cpp

void record_instrument(ZEBMSG_link *lnk, const char *name, const NET_SERVER_InstrumentInfo *info);
void forget_instrument(ZEBMSG_link *lnk, const char *name);

} // namespace zeb

#endif

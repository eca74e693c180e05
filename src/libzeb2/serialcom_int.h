// serialcom_int.h - what the sources of serialcom share. Not installed.
#ifndef ZEB2_SERIALCOM_INT_H
#define ZEB2_SERIALCOM_INT_H

#include "serialcom.h"

namespace zeb {

// serialcom_hooks.cpp

// Closes the socket, leaves its number to the next pre-select and tells whoever waits. With the
// link's mutex held.
void link_lost(SERIALCOM_link *lnk);

// serialcom_request.cpp

// Makes r_buffer hold `size` bytes, at most a packet's; its content is lost when it must grow.
// False, with no buffer left, without memory. With the link's mutex held.
bool make_request_room(SERIALCOM_link *lnk, size_t size);
// Ends the request in flight and tells whoever waits. With the link's mutex held.
void finish_request(SERIALCOM_link *lnk, SERIALCOM_REQUEST_STATUS result);

} // namespace zeb

#endif

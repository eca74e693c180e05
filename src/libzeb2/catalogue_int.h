/* catalogue_int.h - the library's private copy of the catalogue. Internal; generated tables.
 *
 * An application may replace the public tables of net_ds_desc.h and net_msg_desc.h; these stay what
 * the library was built with, and its own traffic uses no others. */
#ifndef ZEB2_CATALOGUE_INT_H
#define ZEB2_CATALOGUE_INT_H

#include "net_ds_desc.h"
#include "net_msg_desc.h"

#ifdef __cplusplus
extern "C" {
#endif

#define ZEB_PRIVATE __attribute__((visibility("hidden")))

ZEB_PRIVATE extern const NETDSD_entry _ndsd_structures[];
ZEB_PRIVATE extern const size_t _ndsd_structures_count;
ZEB_PRIVATE extern const NETMSG_entry _nmsg_list[];
ZEB_PRIVATE extern const size_t _nmsg_list_count;

#undef ZEB_PRIVATE

#ifdef __cplusplus
}
#endif
#endif

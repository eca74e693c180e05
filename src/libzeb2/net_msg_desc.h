/* net_msg_desc.h - descriptions of messages in the generated catalogue.
 *
 * A table that the program only reads, with the constant of a message as index.
 *
 *   const NETMSG_entry *message = &_nmsg_list_ext[MSG_GPS_INSTANT];
 *   if (message->ds_tie != NULL)
 *       printf("%s carries a %s\n", message->name, message->ds_tie);
 *
 * Threads: any; nothing here changes. */
#ifndef ZEB2_NET_MSG_DESC_H
#define ZEB2_NET_MSG_DESC_H

/* NETMSG_type: a program with a catalogue of its own names its generated enumeration here
 * (zeb_add_catalogue() does so for the targets that use the catalogue). */
#ifdef ZEB_MSG_LIST_HEADER
#include ZEB_MSG_LIST_HEADER
#else
#include "msg_list.h"
#endif
#include "port.h"

#ifdef __cplusplus
extern "C" {
#endif

/* One message; row i of the catalogue has msg = i. */
typedef struct NETMSG_entry {
    NETMSG_type msg;
    const char *name;       /* the constant's name, which is also the name on the wire */
    const char *meta_types; /* lowercase word of the instrument class or service, or "*" */
    const char *ds_tie;     /* record that every message of this type carries, or null for none */
} NETMSG_entry;

/* The public catalogue, sorted by name in byte order; see net_ds_desc.h for replacing it. */
ZEB_API extern const NETMSG_entry _nmsg_list_ext[];
ZEB_API extern const size_t _nmsg_list_count_ext;

#ifdef __cplusplus
}
#endif
#endif

#ifndef ZEB2_NETPACK_H
#define ZEB2_NETPACK_H

#include "net_ds_desc.h"
#include "net_msg_desc.h"
#include "port.h"
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct NETPACK_message {
    NETMSG_type type;
    DWORD flags;
    char *dest_name;
    char *src_name;
    void *pds;
    size_t sz_ds;
    char *ds_name;
} NETPACK_message;

/* Each indexed by NETDSD_field_type. */
ZEB_API extern const size_t g_netpack_field_sizes[30];
ZEB_API extern const BOOL g_netpack_field_send_count[30];
ZEB_API extern const char *const g_netpack_field_names[30];

ZEB_API const NETDSD_entry *NETPACK_find_ds(const char *dstype);
ZEB_API const NETDSD_entry *NETPACK_find_ds_lib(const char *dstype);
ZEB_API const NETMSG_entry *NETPACK_find_msg_by_type(NETMSG_type type);
ZEB_API const NETMSG_entry *NETPACK_find_msg_by_type_lib(NETMSG_type type);
ZEB_API const NETMSG_entry *NETPACK_find_msg_by_name(const char *name);
ZEB_API const NETMSG_entry *NETPACK_find_msg_by_name_lib(const char *name);

ZEB_API void *NETPACK_package_ds(const void *pds, const char *dstype, size_t dssize, size_t *out_size);
ZEB_API void *NETPACK_package_ds_lib(const void *pds, const char *dstype, size_t dssize, size_t *out_size);
ZEB_API size_t NETPACK_unpack_ds(const void *pkg, size_t pkgsize, void *dest, size_t destsize, const char *dstype);
ZEB_API size_t NETPACK_unpack_ds_lib(const void *pkg, size_t pkgsize, void *dest, size_t destsize, const char *dstype);
ZEB_API void NETPACK_fill_mvc(void *pds, const char *dstype, size_t dssize);
ZEB_API void NETPACK_fill_mvc_lib(void *pds, const char *dstype, size_t dssize);

ZEB_API void *NETPACK_package_message(const NETPACK_message *in, size_t *out_sz);
ZEB_API void *NETPACK_package_message_lib(const NETPACK_message *in, size_t *out_sz);
ZEB_API BOOL NETPACK_unpack_message(const void *msg, size_t sz, NETPACK_message *out);
ZEB_API BOOL NETPACK_unpack_message_lib(const void *msg, size_t sz, NETPACK_message *out);
ZEB_API void NETPACK_msg_free(NETPACK_message *msg);
ZEB_API void NETPACK_msg_copy(const NETPACK_message *src, NETPACK_message *dest);
ZEB_API void NETPACK_msg_copy_from_parameters_int(NETPACK_message *dest, NETMSG_type type, DWORD flags, const char *dest_name, const char *src_name, const void *pds, size_t sz_ds, const char *ds_name);

#ifdef __cplusplus
}
#endif
#endif

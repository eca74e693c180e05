/* net_ds_desc.h - descriptions of records ("data structures") in the generated catalogue.
 *
 * Tables that the program only reads. What looks up, packs and prints by them is in netpack.h.
 *
 *   for (size_t i = 0; i < _ndsd_structures_count_ext; ++i) {
 *       const NETDSD_entry *record = &_ndsd_structures_ext[i];
 *       for (size_t k = 0; k < record->count_fields; ++k)
 *           printf("%s.%s: %s\n", record->name, record->fields[k].name, record->fields[k].comment);
 *   }
 *
 * Threads: any; nothing here changes. */
#ifndef ZEB2_NET_DS_DESC_H
#define ZEB2_NET_DS_DESC_H

#include "port.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The type of one field. The A_ codes are arrays of the scalar 14 places lower. */
typedef enum NETDSD_field_type ZEB_ENUM32 {
    NETDSD_FT_BOOL = 0,
    NETDSD_FT_CHAR,
    NETDSD_FT_BYTE,
    NETDSD_FT_SHORT,
    NETDSD_FT_USHORT,
    NETDSD_FT_INT,
    NETDSD_FT_UINT,
    NETDSD_FT_LONG,
    NETDSD_FT_ULONG,
    NETDSD_FT_SIZET,
    NETDSD_FT_TIME,
    NETDSD_FT_FTIME,
    NETDSD_FT_DOUBLE,
    NETDSD_FT_FLOAT,
    NETDSD_FT_A_BOOL,
    NETDSD_FT_A_CHAR,
    NETDSD_FT_A_BYTE,
    NETDSD_FT_A_SHORT,
    NETDSD_FT_A_USHORT,
    NETDSD_FT_A_INT,
    NETDSD_FT_A_UINT,
    NETDSD_FT_A_LONG,
    NETDSD_FT_A_ULONG,
    NETDSD_FT_A_SIZET,
    NETDSD_FT_A_TIME,
    NETDSD_FT_A_FTIME,
    NETDSD_FT_A_DOUBLE,
    NETDSD_FT_A_FLOAT,
    NETDSD_FT_STRING, /* NUL-terminated character array */
    NETDSD_FT_BIN     /* opaque elements, or nested records when type_name is described */
} NETDSD_field_type;

/* One field of a record. */
typedef struct NETDSD_field {
    NETDSD_field_type ft;
    const char *name;
    size_t offset;         /* bytes from the start of the record in memory */
    size_t count;          /* elements; the capacity, terminator included, of a STRING */
    const char *comment;   /* never null, often empty */
    size_t size;           /* bytes of one element in memory */
    const char *type_name; /* as declared: "double", "WORD", "time_t", or a nested record's name */
} NETDSD_field;

/* One record; its fields are sorted by name in byte order. */
typedef struct NETDSD_entry {
    const NETDSD_field *fields;
    size_t count_fields;
    const char *name;
    size_t total_size; /* bytes of the record in memory, padding included */
} NETDSD_entry;

/* The public catalogue, sorted by name in byte order. A program that defines these two (and those of
 * net_msg_desc.h) itself, usually by zeb_add_catalogue(), has the plain NETPACK_ entry points use
 * its own; the library's traffic keeps the catalogue that the library was built with. */
ZEB_API extern const NETDSD_entry _ndsd_structures_ext[];
ZEB_API extern const size_t _ndsd_structures_count_ext;

#ifdef __cplusplus
}
#endif
#endif

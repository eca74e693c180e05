/* netpack.h - records and messages as bytes, by the descriptions of the generated catalogue.
 *
 * A package names its structure and every field, so that sender and receiver may be built against
 * different revisions of a record: what the package lacks holds missing values, what the receiver
 * does not know is skipped, numbers of another type are converted, and each departure is reported.
 *
 *   NET_SERVER_Heartbeat beat = {5};
 *   size_t size;
 *   void *package = NETPACK_package_ds(&beat, "NET_SERVER_Heartbeat", sizeof beat, &size);
 *   NETPACK_unpack_ds(package, size, &beat, sizeof beat, "NET_SERVER_Heartbeat");
 *   free(package);
 *
 * Every operation comes twice: the plain name works on the public catalogue (_ndsd_structures_ext
 * and its companions), which a program may replace by its own; the name ending in _lib works on the
 * library's private copy and serves the library's own messages.
 *
 * The bytes are laid out in docs/formats/package.md and docs/formats/message.md.
 * Arguments: a null pointer where "not null" is said is reported as a failed assertion and the
 * operation fails. Failures and departures go to standard error.
 * Threads: every function may run in any thread, on data of its own; nothing locks. */
#ifndef ZEB2_NETPACK_H
#define ZEB2_NETPACK_H

#include "net_ds_desc.h"
#include "net_msg_desc.h"
#include "port.h"
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A message between two daemons. It has either no attachment (pds null, sz_ds 0, ds_name null or
 * empty) or all three, with the name that the catalogue ties to the type. Made by
 * NETPACK_unpack_message or NETPACK_msg_copy it owns its strings and its record. */
typedef struct NETPACK_message {
    NETMSG_type type; /* row of the message catalogue; travels by name */
    DWORD flags;      /* carried unchanged */
    char *dest_name;  /* null or empty: none */
    char *src_name;   /* null or empty: none */
    void *pds;        /* the attached record, or null */
    size_t sz_ds;     /* its size in bytes, 0 when none */
    char *ds_name;    /* its structure's name */
} NETPACK_message;

/* ---- Field types, each table indexed by NETDSD_field_type ---- */

/* Bytes of one element in a package: 1, 2, 4 or 8. */
ZEB_API extern const size_t g_netpack_field_sizes[30];
/* Whether a package carries the number of elements: arrays and NETDSD_FT_BIN. */
ZEB_API extern const BOOL g_netpack_field_send_count[30];
/* The kind in a word: "BOOL", "BIN", "INT", "TIME", "FTIME", "FLOAT", "STRING". */
ZEB_API extern const char *const g_netpack_field_names[30];

/* ---- Lookups ---- */

/* Finds a structure by its exact name, letter case included.
 * dstype: the name, not null.
 * Returns the catalogue's own row (never freed by the caller); null when there is none.
 * Threads: any. */
ZEB_API const NETDSD_entry *NETPACK_find_ds(const char *dstype);
/* The same in the library's private catalogue. */
ZEB_API const NETDSD_entry *NETPACK_find_ds_lib(const char *dstype);

/* Finds a message by its number.
 * type: any number; those at or beyond the catalogue's count match nothing.
 * Returns the catalogue's own row; null when there is none.
 * Threads: any. */
ZEB_API const NETMSG_entry *NETPACK_find_msg_by_type(NETMSG_type type);
/* The same in the library's private catalogue. */
ZEB_API const NETMSG_entry *NETPACK_find_msg_by_type_lib(NETMSG_type type);

/* Finds a message by its exact name ("MSG_SERVER_HEARTBEAT").
 * name: not null.
 * Returns the catalogue's own row; null when there is none.
 * Threads: any. */
ZEB_API const NETMSG_entry *NETPACK_find_msg_by_name(const char *name);
/* The same in the library's private catalogue. */
ZEB_API const NETMSG_entry *NETPACK_find_msg_by_name_lib(const char *name);

/* ---- Records ---- */

/* Packs one record. Without a description of exactly `dssize` bytes the record goes raw, with a
 * warning: a zero byte and the record as it lies in memory. A text without its terminator is sent
 * up to the end of its member, with a warning.
 * pds: the record, not null, `dssize` bytes; only read.
 * dstype: its structure's name, not null.
 * dssize: bytes.
 * out_size: not null; receives the package's length in bytes, untouched on failure.
 * Returns the package, which the caller frees; null without memory, and when a name, a text or a
 * count exceeds 65535, a type is unknown or records nest more than 32 deep.
 * Threads: any. */
ZEB_API void *NETPACK_package_ds(const void *pds, const char *dstype, size_t dssize,
                                 size_t *out_size);
/* The same with the library's private catalogue. */
ZEB_API void *NETPACK_package_ds_lib(const void *pds, const char *dstype, size_t dssize,
                                     size_t *out_size);

/* Unpacks a package into a record, which is whole afterwards whatever the package holds: bytes that
 * nothing filled are missing values (see NETPACK_fill_mvc), padding is zero.
 * Integers of another width are assigned at the local width, into floating types by value. Floating
 * values are truncated towards zero into integers; beyond the range of the local type they take its
 * nearest limit, and NaN becomes 0. A missing value of the sender's type is a number like any
 * other. pkg: the package, `pkgsize` bytes, null only when `pkgsize` is 0; no byte beyond it is
 * read. dest: receives the record, not null, `destsize` bytes. dstype: the structure's name, not
 * null; a package of another name is refused. Returns the bytes of the package used; 0 on failure.
 * Two results are the record's size instead: of a raw package, and of a described one without a
 * local description, which leaves zeros. Threads: any. */
ZEB_API size_t NETPACK_unpack_ds(const void *pkg, size_t pkgsize, void *dest, size_t destsize,
                                 const char *dstype);
/* The same with the library's private catalogue. */
ZEB_API size_t NETPACK_unpack_ds_lib(const void *pkg, size_t pkgsize, void *dest, size_t destsize,
                                     const char *dstype);

/* Starts a record whose values are not known yet. Missing values by type: INT, UINT, LONG and ULONG
 * 0x55555555; SIZET and TIME all bits set; FTIME -1.0; DOUBLE 9.999e-99; described elements by
 * these rules; anything else zero. pds: the record, not null, `dssize` bytes; padding becomes zero.
 * dstype: its structure's name, not null. Without a description of exactly `dssize` bytes the
 * record stays zero, with a warning. Threads: any. */
ZEB_API void NETPACK_fill_mvc(void *pds, const char *dstype, size_t dssize);
/* The same with the library's private catalogue. */
ZEB_API void NETPACK_fill_mvc_lib(void *pds, const char *dstype, size_t dssize);

/* ---- Messages ---- */

/* Packs a message. Its attachment must be the structure that the catalogue ties to the type; part
 * of an attachment on a type that has none is left out with a warning. in: not null; only read.
 * out_sz: not null; receives the length in bytes, 0 on failure.
 * Returns the bytes, which the caller frees; null when the type is unknown, the attachment is not
 * the tied one or cannot be packed, a name exceeds 65535 bytes, or without memory. Threads: any. */
ZEB_API void *NETPACK_package_message(const NETPACK_message *in, size_t *out_sz);
/* The same with the library's private catalogue. */
ZEB_API void *NETPACK_package_message_lib(const NETPACK_message *in, size_t *out_sz);

/* Unpacks a message. A record is given the local structure's size whatever its package holds.
 * msg: not null, `sz` bytes; no byte beyond them is read. Bytes behind the message are reported.
 * out: not null; overwritten without being freed. The caller frees it with NETPACK_msg_free.
 * Returns TRUE; FALSE, with `out` empty, when bytes are missing before the record, the name is not
 * in the catalogue, the structure is not the tied one or not described, or without memory.
 * Threads: any. */
ZEB_API BOOL NETPACK_unpack_message(const void *msg, size_t sz, NETPACK_message *out);
/* The same with the library's private catalogue. */
ZEB_API BOOL NETPACK_unpack_message_lib(const void *msg, size_t sz, NETPACK_message *out);

/* Frees what a message owns and empties it; type and flags stay.
 * msg: not null; may be empty already.
 * Threads: the message's owner. */
ZEB_API void NETPACK_msg_free(NETPACK_message *msg);

/* Copies a message with all it owns. Part of an attachment is left out with a warning. Without
 * memory the process ends with exit(-1).
 * src: not null; only read.
 * dest: not null; overwritten without being freed. The caller frees it with NETPACK_msg_free.
 * Threads: the owner of `dest`. */
ZEB_API void NETPACK_msg_copy(const NETPACK_message *src, NETPACK_message *dest);

/* The same from a message's parts, by the same rules. Empty names become null.
 * dest: not null; overwritten without being freed.
 * dest_name, src_name, ds_name: may be null.
 * pds: may be null; `sz_ds` bytes are copied.
 * Threads: the owner of `dest`. */
ZEB_API void NETPACK_msg_copy_from_parameters_int(NETPACK_message *dest, NETMSG_type type,
                                                  DWORD flags, const char *dest_name,
                                                  const char *src_name, const void *pds,
                                                  size_t sz_ds, const char *ds_name);

#ifdef __cplusplus
}
#endif
#endif

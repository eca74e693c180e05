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
 * other.
 *
 * pkg: the package, `pkgsize` bytes, null only when `pkgsize` is 0; no byte beyond it is read.
 *
 * dest: receives the record, not null, `destsize` bytes.
 *
 * dstype: the structure's name, not null; a package of another name is refused.
 *
 * Returns the bytes of the package used; 0 on failure. Two results are the record's size instead:
 * of a raw package, and of a described one without a local description, which leaves zeros.
 * Threads: any. */
ZEB_API size_t NETPACK_unpack_ds(const void *pkg, size_t pkgsize, void *dest, size_t destsize,
                                 const char *dstype);
/* The same with the library's private catalogue. */
ZEB_API size_t NETPACK_unpack_ds_lib(const void *pkg, size_t pkgsize, void *dest, size_t destsize,
                                     const char *dstype);

/* Starts a record whose values are not known yet. Missing values by type: INT, UINT, LONG and ULONG
 * 0x55555555; SIZET and TIME all bits set; FTIME -1.0; DOUBLE 9.999e-99; described elements by
 * these rules; anything else zero. Without a description of exactly `dssize` bytes the record stays
 * zero, with a warning.
 *
 * pds: the record, not null, `dssize` bytes; padding becomes zero.
 *
 * dstype: its structure's name, not null.
 *
 * Threads: any. */
ZEB_API void NETPACK_fill_mvc(void *pds, const char *dstype, size_t dssize);
/* The same with the library's private catalogue. */
ZEB_API void NETPACK_fill_mvc_lib(void *pds, const char *dstype, size_t dssize);

/* ---- Records as named values ---- */

/* What a value is: an int32_t, a double, a text, or bytes without a description. */
typedef enum NETPACK_ds_iterator_types {
    NETPACK_ITERATOR_LONG = 0,
    NETPACK_ITERATOR_DOUBLE = 1,
    NETPACK_ITERATOR_STRING = 2,
    NETPACK_ITERATOR_BIN = 3
} NETPACK_ds_iterator_types;

/* Receives one value of a record.
 * name: owned by the iteration, until the callback returns.
 * value: by type, see NETPACK_iterate_ds_raw; until the callback returns. size: its bytes; of a
 * text those before its terminator. param: the caller's own. */
typedef void (*NETPACK_ds_iterator_cb)(char *name, NETPACK_ds_iterator_types type, void *value,
                                       size_t size, void *param);

/* Walks a record, nested records and arrays included, one call per value, fields in byte order of
 * their names. With a prefix of "p_" the values of a field f of a record are named
 *
 *   p_f                  one value
 *   p_f_1, p_f_2 ...     each element of an array of 2 or more
 *   p_f_g, p_f_2_g       value g of the nested record f, or of its second element
 *
 *   field types                              handed out as          value points at
 *   BOOL CHAR BYTE SHORT USHORT INT UINT     NETPACK_ITERATOR_LONG     an int32_t
 *   LONG ULONG SIZET TIME and their arrays                             (unsigned: the same bits)
 *   FTIME DOUBLE FLOAT and their arrays      NETPACK_ITERATOR_DOUBLE   a double
 *   STRING                                   NETPACK_ITERATOR_STRING   the text in the record
 *   BIN without a description                NETPACK_ITERATOR_BIN      the element in the record
 *
 * A text that lacks its terminator is handed out as a terminated copy, with a warning. Without a
 * description of exactly `dssize` bytes, of the record or of a nested one, there is a warning and
 * one value, the whole as NETPACK_ITERATOR_BIN, named p_Raw or p_f_Raw.
 * pds: the record, not null, `dssize` bytes; only read, as long as the callback does so too.
 * dstype: its structure's name, not null. cb: not null. param: handed to it.
 * field_prefix: begins every name; null is empty.
 * Returns nothing. A value whose name cannot be made without memory is reported and left out; so is
 * what is nested more than 32 deep. Threads: any; the callback runs in the caller's. */
ZEB_API void NETPACK_iterate_ds_raw(const void *pds, const char *dstype, size_t dssize,
                                    NETPACK_ds_iterator_cb cb, void *param,
                                    const char *field_prefix);
/* The same with the library's private catalogue. */
ZEB_API void NETPACK_iterate_ds_raw_lib(const void *pds, const char *dstype, size_t dssize,
                                        NETPACK_ds_iterator_cb cb, void *param,
                                        const char *field_prefix);

/* Writes a record for people to read: a line per field, NAME(KIND)=VALUES, or NAME(KIND)[COUNT]=
 * with a count above 1, where a text's count is the size of its array. KIND is the word of
 * g_netpack_field_names.
 *
 *   field types                      one element                          between elements
 *   BOOL                             TRUE or FALSE                        ,
 *   CHAR BYTE                        two hex digits                       nothing
 *   SHORT to SIZET                   decimal                              ,
 *   TIME                             20140821_142401, or INVALID          ,
 *   FTIME                            20140821_1424010250, or INVALID      ,
 *   DOUBLE FLOAT                     +1.500000E+00 (%+012E)               ,
 *   STRING                           the text as it is
 *   BIN without a description        hex digits; a comma follows the first byte of each element but
 *                                    the first
 *   BIN of described records         a block each, lines indented by a tab:
 *
 *   parts(BIN)[2]=Part:{
 *       tag(STRING)[4]=ab
 *       },
 *       {
 *       tag(STRING)[4]=cd
 *       }
 *
 * Without a description of exactly `dssize` bytes there is a warning and one line, "*RawData=" and
 * all bytes in hex digits. Numbers do not depend on the locale.
 * pds: the record, not null, `dssize` bytes; only read.
 * dstype: its structure's name, not null.
 * print_file: not null, open for writing; locked meanwhile, so that dumps do not mix. Failures to
 * write stay with it (ferror).
 * line_prefix: begins every line; null is empty.
 * Returns nothing. Without memory for a prefix the dump stops; what is nested more than 32 deep is
 * left out (both reported). Threads: any. */
ZEB_API void NETPACK_print_ds_raw(const void *pds, const char *dstype, size_t dssize,
                                  FILE *print_file, const char *line_prefix);
/* The same with the library's private catalogue. */
ZEB_API void NETPACK_print_ds_raw_lib(const void *pds, const char *dstype, size_t dssize,
                                      FILE *print_file, const char *line_prefix);

/* Writes what a package holds, by the names and types that it brings itself: any structure, known
 * or not. The first line is "*Structure=" and the name, the others are those of
 * NETPACK_print_ds_raw but for the count of texts, which packages lack. A raw package is a single
 * "*RawData=" line. Control characters and backslashes of names and texts are written as \xHH, so
 * that a line stays one.
 * Undescribed elements are of the size that the catalogue's field of that name has; without one, all
 * bytes up to the end of the package are written as that field's.
 * pds: the package, `dssize` bytes, null only when `dssize` is 0; no byte beyond it is read.
 * print_file, line_prefix: as above.
 * Returns nothing. A package that ends early is reported and written as far as it goes.
 * Threads: any. */
ZEB_API void NETPACK_print_ds(const void *pds, size_t dssize, FILE *print_file,
                              const char *line_prefix);
/* The same with the library's private catalogue. */
ZEB_API void NETPACK_print_ds_lib(const void *pds, size_t dssize, FILE *print_file,
                                  const char *line_prefix);

/* ---- Records as lines of columns (docs/formats/tabular.md) ----
 *
 * Fields are columns in byte order of their names, separated by commas; nested records are walked
 * in place. No line end is written, that is the caller's.
 *
 *   field types                   columns        written                         read
 *   BOOL                          one each       1 or 0                          always as 1
 *   CHAR BYTE                     one each (*)   two hex digits                  strtol, base 16
 *   SHORT to ULONG                one each       decimal                         strtol, base 0
 *   SIZET                         one each       decimal                         decimal
 *   TIME FTIME                    one each       UTIL_time2string,               UTIL_string2time,
 *                                                UTIL_ftime2string               UTIL_string2ftime
 *   DOUBLE FLOAT                  one each       +1.500000E+00 (%+012E)          atof
 *   STRING                        one            the text as it is               cut to its array
 *   BIN without a description     one each (*)   hex digits, see                 hex digits
 *                                                NETPACK_print_ds_raw
 *   BIN of described records      the columns of each record
 *
 * (*) An array of CHAR or BYTE is written as a single column, though header and reader have one per
 * element; the commas of undescribed elements stand one byte off. */

/* Queues the column names of a structure: prefix, field name, "_" and the element's number (from 1)
 * in arrays of 2 or more; names of nested records are joined by "_".
 * desc: null gives the single column "RawContents".
 * fh: a writing entry of zebfile.h, as for ZEBFILE_printf.
 * prefix: begins every name; null is empty.
 * Returns nothing. Without memory for a nested prefix the header stops; what is nested more than 32
 * deep is left out (both reported). Threads: any. */
ZEB_API void NETPACK_print_tabular_header_zebfile(const NETDSD_entry *desc, int fh,
                                                  const char *prefix);

/* Queues the columns of a record. Without a description of exactly `dssize` bytes there is a
 * warning, and all bytes are written as hex digits with a line end.
 * pds: the record, not null, `dssize` bytes; only read.
 * dstype: its structure's name, not null.
 * fh: a writing entry of zebfile.h, as for ZEBFILE_printf.
 * Returns nothing. What is nested more than 32 deep is left out (reported). Threads: any. */
ZEB_API void NETPACK_print_ds_tabular_raw_zebfile(const void *pds, const char *dstype,
                                                  size_t dssize, int fh);

/* Reads a line of columns into a record. Text where a number belongs gives 0 (SIZET keeps what it
 * held); columns beyond the last field are left alone. Without a description of exactly `dssize`
 * bytes there is a warning, and pairs of hex digits are read as far as they go.
 * pds: the record, not null, `dssize` bytes; what the line does not reach keeps its value.
 * dstype: its structure's name, not null.
 * line: without its line end, which would belong to the last column; not null.
 * Returns the columns used, 1 without a description; a line that is too short is reported and gives
 * those it had. 0 without memory. Threads: any. */
ZEB_API size_t NETPACK_read_ds_tabular_raw(void *pds, const char *dstype, size_t dssize,
                                           const char *line);

/* ---- Messages ---- */

/* Packs a message. Its attachment must be the structure that the catalogue ties to the type; part
 * of an attachment on a type that has none is left out with a warning.
 *
 * in: not null; only read.
 *
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

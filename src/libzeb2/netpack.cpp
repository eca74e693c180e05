#include "netpack.h"

#include "catalogue_int.h"
#include "diag.h"
#include "netpack_int.h"

#include <cstdlib>
#include <cstring>

using namespace zeb::netpack;

// BOOL CHAR BYTE SHORT USHORT INT UINT LONG ULONG SIZET TIME FTIME DOUBLE FLOAT, their arrays,
// STRING and BIN.
extern const size_t g_netpack_field_sizes[30] = {1, 1, 1, 2, 2, 4, 4, 4, 4, 4, 4, 8, 8, 4, 1,
                                                 1, 1, 2, 2, 4, 4, 4, 4, 4, 4, 8, 8, 4, 1, 1};

extern const BOOL g_netpack_field_send_count[30] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1,
                                                    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 1};

extern const char *const g_netpack_field_names[30] = {
    "BOOL", "BIN",   "BIN",   "INT",   "INT",  "INT",   "INT",   "INT",   "INT",    "INT",
    "TIME", "FTIME", "FLOAT", "FLOAT", "BOOL", "BIN",   "BIN",   "INT",   "INT",    "INT",
    "INT",  "INT",   "INT",   "INT",   "TIME", "FTIME", "FLOAT", "FLOAT", "STRING", "BIN"};

namespace zeb::netpack {
namespace {

PlanCache g_public_cache;
PlanCache g_private_cache;

int compare_structure(const void *key, const void *row) {
    return strcmp(static_cast<const char *>(key), static_cast<const NETDSD_entry *>(row)->name);
}

int compare_message(const void *key, const void *row) {
    return strcmp(static_cast<const char *>(key), static_cast<const NETMSG_entry *>(row)->name);
}

const NETDSD_entry *search_structure(const Catalogue &catalogue, const char *name) {
    if (!ZEB_CHECK(name != nullptr))
        return nullptr;
    return static_cast<const NETDSD_entry *>(bsearch(name, catalogue.structures,
                                                     catalogue.count_structures,
                                                     sizeof(NETDSD_entry), compare_structure));
}

const NETMSG_entry *search_message(const Catalogue &catalogue, const char *name) {
    if (!ZEB_CHECK(name != nullptr))
        return nullptr;
    return static_cast<const NETMSG_entry *>(bsearch(
        name, catalogue.messages, catalogue.count_messages, sizeof(NETMSG_entry), compare_message));
}

} // namespace

Catalogue public_catalogue() {
    return {_ndsd_structures_ext, _ndsd_structures_count_ext, _nmsg_list_ext, _nmsg_list_count_ext,
            &g_public_cache};
}

Catalogue private_catalogue() {
    return {_ndsd_structures, _ndsd_structures_count, _nmsg_list, _nmsg_list_count,
            &g_private_cache};
}

const NETMSG_entry *find_message(const Catalogue &catalogue, NETMSG_type type) {
    const size_t row = static_cast<size_t>(static_cast<unsigned>(type));
    return row < catalogue.count_messages ? &catalogue.messages[row] : nullptr;
}

} // namespace zeb::netpack

const NETDSD_entry *NETPACK_find_ds(const char *dstype) {
    return search_structure(public_catalogue(), dstype);
}

const NETDSD_entry *NETPACK_find_ds_lib(const char *dstype) {
    return search_structure(private_catalogue(), dstype);
}

const NETMSG_entry *NETPACK_find_msg_by_type(NETMSG_type type) {
    return find_message(public_catalogue(), type);
}

const NETMSG_entry *NETPACK_find_msg_by_type_lib(NETMSG_type type) {
    return find_message(private_catalogue(), type);
}

const NETMSG_entry *NETPACK_find_msg_by_name(const char *name) {
    return search_message(public_catalogue(), name);
}

const NETMSG_entry *NETPACK_find_msg_by_name_lib(const char *name) {
    return search_message(private_catalogue(), name);
}

void *NETPACK_package_ds(const void *pds, const char *dstype, size_t dssize, size_t *out_size) {
    return package_ds(public_catalogue(), pds, dstype, dssize, out_size);
}

void *NETPACK_package_ds_lib(const void *pds, const char *dstype, size_t dssize, size_t *out_size) {
    return package_ds(private_catalogue(), pds, dstype, dssize, out_size);
}

size_t NETPACK_unpack_ds(const void *pkg, size_t pkgsize, void *dest, size_t destsize,
                         const char *dstype) {
    return unpack_ds(public_catalogue(), pkg, pkgsize, dest, destsize, dstype);
}

size_t NETPACK_unpack_ds_lib(const void *pkg, size_t pkgsize, void *dest, size_t destsize,
                             const char *dstype) {
    return unpack_ds(private_catalogue(), pkg, pkgsize, dest, destsize, dstype);
}

void NETPACK_fill_mvc(void *pds, const char *dstype, size_t dssize) {
    fill_mvc(public_catalogue(), pds, dstype, dssize);
}

void NETPACK_fill_mvc_lib(void *pds, const char *dstype, size_t dssize) {
    fill_mvc(private_catalogue(), pds, dstype, dssize);
}

void *NETPACK_package_message(const NETPACK_message *in, size_t *out_sz) {
    return package_message(public_catalogue(), in, out_sz);
}

void *NETPACK_package_message_lib(const NETPACK_message *in, size_t *out_sz) {
    return package_message(private_catalogue(), in, out_sz);
}

BOOL NETPACK_unpack_message(const void *msg, size_t sz, NETPACK_message *out) {
    return unpack_message(public_catalogue(), msg, sz, out);
}

BOOL NETPACK_unpack_message_lib(const void *msg, size_t sz, NETPACK_message *out) {
    return unpack_message(private_catalogue(), msg, sz, out);
}

void NETPACK_iterate_ds_raw(const void *pds, const char *dstype, size_t dssize,
                            NETPACK_ds_iterator_cb cb, void *param, const char *field_prefix) {
    iterate_ds_raw(public_catalogue(), pds, dstype, dssize, cb, param, field_prefix);
}

void NETPACK_iterate_ds_raw_lib(const void *pds, const char *dstype, size_t dssize,
                                NETPACK_ds_iterator_cb cb, void *param, const char *field_prefix) {
    iterate_ds_raw(private_catalogue(), pds, dstype, dssize, cb, param, field_prefix);
}

void NETPACK_print_ds_raw(const void *pds, const char *dstype, size_t dssize, FILE *print_file,
                          const char *line_prefix) {
    print_ds_raw(public_catalogue(), pds, dstype, dssize, print_file, line_prefix, 0);
}

void NETPACK_print_ds_raw_lib(const void *pds, const char *dstype, size_t dssize, FILE *print_file,
                              const char *line_prefix) {
    print_ds_raw(private_catalogue(), pds, dstype, dssize, print_file, line_prefix, 0);
}

void NETPACK_print_ds(const void *pds, size_t dssize, FILE *print_file, const char *line_prefix) {
    print_ds(public_catalogue(), pds, dssize, print_file, line_prefix);
}

void NETPACK_print_ds_lib(const void *pds, size_t dssize, FILE *print_file,
                          const char *line_prefix) {
    print_ds(private_catalogue(), pds, dssize, print_file, line_prefix);
}

void NETPACK_print_tabular_header_zebfile(const NETDSD_entry *desc, int fh, const char *prefix) {
    print_tabular_header(public_catalogue(), desc, fh, prefix);
}

void NETPACK_print_ds_tabular_raw_zebfile(const void *pds, const char *dstype, size_t dssize,
                                          int fh) {
    print_tabular(public_catalogue(), pds, dstype, dssize, fh);
}

size_t NETPACK_read_ds_tabular_raw(void *pds, const char *dstype, size_t dssize, const char *line) {
    return read_tabular(public_catalogue(), pds, dstype, dssize, line);
}

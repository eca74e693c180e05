#include "netpack_dump.h"

#include "diag.h"

namespace zeb::netpack {
namespace {

// Each returns false when the dump is to stop.
class RecordDump {
  public:
    RecordDump(const Catalogue &catalogue, FILE *file) : catalogue_(catalogue), out_(file) {}

    bool record(const char *record, const char *dstype, size_t dssize, std::string_view prefix,
                int depth, size_t print_recurse);

  private:
    bool field(const char *record, const NETDSD_field &field, std::string_view prefix, int depth);
    bool elements(const char *from, const NETDSD_field &field, std::string_view prefix, int depth);

    const Catalogue &catalogue_;
    DumpStream out_;
};

bool RecordDump::record(const char *record, const char *dstype, size_t dssize,
                        std::string_view prefix, int depth, size_t print_recurse) {
    const NETDSD_entry *entry = find_usable(catalogue_, dstype, dssize);
    if (entry == nullptr) {
        ZEB_REPORT("WARNING: Bad structure description for \"%s\"", dstype);
        out_.put_raw(prefix, record, dssize);
        return true;
    }
    if (depth > k_max_depth) {
        ZEB_REPORT("Structure \"%s\" is nested too deeply", dstype);
        return true;
    }
    out_.open_block(prefix, entry->name, print_recurse);
    for (size_t i = 0; i < entry->count_fields; ++i) {
        const NETDSD_field &next = entry->fields[i];
        out_.put(prefix);
        out_.put(next.name);
        out_.put_kind(static_cast<unsigned>(next.ft), next.count);
        if (!field(record, next, prefix, depth))
            return false;
        out_.put('\n');
    }
    out_.close_block(prefix, print_recurse);
    return true;
}

bool RecordDump::field(const char *record, const NETDSD_field &field, std::string_view prefix,
                       int depth) {
    const char *from = record + field.offset;
    if (static_cast<unsigned>(field.ft) >= k_type_count) {
        ZEB_REPORT("BUG: Unknown type (%u) in local description of field \"%s\"",
                   static_cast<unsigned>(field.ft), field.name);
        return true;
    }
    if (field.ft == NETDSD_FT_STRING) {
        out_.put({from, text_size(from, field)});
        return true;
    }
    if (field.ft != NETDSD_FT_BIN) {
        out_.put_numbers(field.ft, from, element_count(field));
        return true;
    }
    if (find_structure(catalogue_, field.type_name) != nullptr)
        return elements(from, field, prefix, depth);
    out_.put_opaque(from, field_bytes(field), field.size);
    return true;
}

bool RecordDump::elements(const char *from, const NETDSD_field &field, std::string_view prefix,
                          int depth) {
    NameText extended;
    if (!extended.compose(prefix, "\t", 0, ""))
        return false;
    for (size_t j = 0; j < field.count; ++j) {
        if (!record(from + j * field.size, field.type_name, field.size, extended.view(), depth + 1,
                    j + 1))
            return false;
    }
    return true;
}

} // namespace

void print_ds_raw(const Catalogue &catalogue, const void *pds, const char *dstype, size_t dssize,
                  FILE *print_file, const char *line_prefix, size_t print_recurse) {
    if (!ZEB_CHECK(pds != nullptr) || !ZEB_CHECK(dstype != nullptr) ||
        !ZEB_CHECK(print_file != nullptr))
        return;
    RecordDump(catalogue, print_file)
        .record(static_cast<const char *>(pds), dstype, dssize,
                line_prefix != nullptr ? line_prefix : "", 0, print_recurse);
}

} // namespace zeb::netpack

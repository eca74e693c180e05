#include "netpack_text.h"

#include "diag.h"
#include "netpack_convert.h"

#include <cerrno>

namespace zeb::netpack {
namespace {

// One walk over a record and all that is nested in it.
class Iteration {
  public:
    Iteration(const Catalogue &catalogue, NETPACK_ds_iterator_cb cb, void *param)
        : catalogue_(catalogue), cb_(cb), param_(param) {}

    void walk(const char *record, const char *dstype, size_t dssize, std::string_view prefix,
              int depth);

  private:
    void walk_field(const char *record, const NETDSD_field &field, std::string_view prefix,
                    int depth);
    void walk_records(const char *from, const NETDSD_field &field, std::string_view prefix,
                      int depth);
    void give_number(const char *from, NETDSD_field_type type);
    void give_text(const char *from, const NETDSD_field &field);
    void give(NETPACK_ds_iterator_types type, const void *value, size_t size) {
        cb_(name_.text(), type, const_cast<void *>(value), size, param_);
    }

    const Catalogue &catalogue_;
    NETPACK_ds_iterator_cb cb_;
    void *param_;
    NameText name_; // what callbacks receive; made anew for each, as it is theirs to change
};

void Iteration::walk(const char *record, const char *dstype, size_t dssize, std::string_view prefix,
                     int depth) {
    const NETDSD_entry *entry = find_usable(catalogue_, dstype, dssize);
    if (entry == nullptr) {
        ZEB_REPORT("WARNING: Bad structure description for \"%s\"", dstype);
        if (name_.compose(prefix, "Raw", 0, ""))
            give(NETPACK_ITERATOR_BIN, record, dssize);
        return;
    }
    if (depth > k_max_depth) {
        ZEB_REPORT("Structure \"%s\" is nested too deeply", dstype);
        return;
    }
    for (size_t i = 0; i < entry->count_fields; ++i)
        walk_field(record, entry->fields[i], prefix, depth);
}

void Iteration::walk_field(const char *record, const NETDSD_field &field, std::string_view prefix,
                           int depth) {
    const char *from = record + field.offset;
    if (static_cast<unsigned>(field.ft) >= k_type_count) {
        ZEB_REPORT("BUG: Unknown type (%u) in local description of field \"%s\"",
                   static_cast<unsigned>(field.ft), field.name);
        return;
    }
    if (field.ft == NETDSD_FT_STRING) {
        if (name_.compose(prefix, field.name, 0, ""))
            give_text(from, field);
        return;
    }
    const bool opaque = field.ft == NETDSD_FT_BIN;
    if (opaque && find_structure(catalogue_, field.type_name) != nullptr) {
        walk_records(from, field, prefix, depth);
        return;
    }
    const size_t count = element_count(field);
    const size_t size = opaque ? field.size : g_netpack_field_sizes[field.ft];
    for (size_t i = 0; i < count; ++i) {
        if (!name_.compose(prefix, field.name, element_number(i, count), ""))
            continue;
        if (opaque)
            give(NETPACK_ITERATOR_BIN, from + i * size, size);
        else
            give_number(from + i * size, field.ft);
    }
}

void Iteration::walk_records(const char *from, const NETDSD_field &field, std::string_view prefix,
                             int depth) {
    NameText nested;
    for (size_t i = 0; i < field.count; ++i) {
        if (nested.compose(prefix, field.name, element_number(i, field.count), "_"))
            walk(from + i * field.size, field.type_name, field.size, nested.view(), depth + 1);
    }
}

void Iteration::give_number(const char *from, NETDSD_field_type type) {
    const NETDSD_field_type scalar = scalar_of(type);
    if (scalar == NETDSD_FT_FTIME || scalar == NETDSD_FT_DOUBLE || scalar == NETDSD_FT_FLOAT) {
        double value;
        convert_value(scalar, from, NETDSD_FT_DOUBLE, reinterpret_cast<char *>(&value));
        give(NETPACK_ITERATOR_DOUBLE, &value, sizeof value);
        return;
    }
    LONG value;
    convert_value(scalar, from, NETDSD_FT_LONG, reinterpret_cast<char *>(&value));
    give(NETPACK_ITERATOR_LONG, &value, sizeof value);
}

// A callback may take the text for a string, so it gets no text without an end.
void Iteration::give_text(const char *from, const NETDSD_field &field) {
    const size_t size = text_size(from, field);
    if (size < field.count) {
        give(NETPACK_ITERATOR_STRING, from, size);
        return;
    }
    NameText copy;
    if (copy.compose({from, size}, "", 0, ""))
        give(NETPACK_ITERATOR_STRING, copy.text(), size);
}

} // namespace

void iterate_ds_raw(const Catalogue &catalogue, const void *pds, const char *dstype, size_t dssize,
                    NETPACK_ds_iterator_cb cb, void *param, const char *field_prefix) {
    if (!ZEB_CHECK(pds != nullptr) || !ZEB_CHECK(dstype != nullptr) || !ZEB_CHECK(cb != nullptr))
        return;
    Iteration(catalogue, cb, param)
        .walk(static_cast<const char *>(pds), dstype, dssize,
              field_prefix != nullptr ? field_prefix : "", 0);
}

} // namespace zeb::netpack

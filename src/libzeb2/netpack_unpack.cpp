#include "netpack_int.h"

#include "diag.h"
#include "netpack_convert.h"

#include <algorithm>
#include <cerrno>

namespace zeb::netpack {
namespace {

size_t unpack_structure(const Catalogue &catalogue, const NETDSD_entry *entry, const Plan *plan,
                        Reader reader, char *dest, size_t destsize, const char *dstype, int depth);

bool is_numeric(unsigned type) {
    return type < NETDSD_FT_STRING;
}

// Which fields a package has named so far.
class SeenFields {
  public:
    explicit SeenFields(size_t count) {
        const size_t words = count / 64 + 1;
        if (words > sizeof inline_ / sizeof inline_[0])
            words_ = heap_ = static_cast<uint64_t *>(calloc(words, sizeof(uint64_t)));
    }
    ~SeenFields() { free(heap_); }
    SeenFields(const SeenFields &) = delete;
    SeenFields &operator=(const SeenFields &) = delete;

    bool usable() const { return words_ != nullptr; }
    bool contains(size_t i) const { return (words_[i / 64] >> i % 64 & 1) != 0; }
    void insert(size_t i) { words_[i / 64] |= uint64_t{1} << i % 64; }
    // True when all of the first `count` fields are in.
    bool all(size_t count) const {
        for (size_t word = 0; word < count / 64; ++word) {
            if (words_[word] != UINT64_MAX)
                return false;
        }
        return words_[count / 64] == (uint64_t{1} << count % 64) - 1;
    }

  private:
    uint64_t inline_[4] = {};
    uint64_t *heap_ = nullptr;
    uint64_t *words_ = inline_;
};

// Fills one record from one described package. Missing values are written field by field, only
// where the package brings nothing: most packages bring everything.
class RecordFiller {
  public:
    RecordFiller(const Catalogue &catalogue, const Plan &plan, Reader &reader, char *record,
                 int depth)
        : catalogue_(catalogue), plan_(plan), reader_(reader), record_(record), depth_(depth),
          type_(plan.entry->name), seen_(plan.fields.size()), last_(plan.fields.size()) {}

    // False, reported, when the package fails; the record is whole all the same.
    bool fill();

  private:
    bool read_opening(size_t *count);
    bool read_fields(size_t count);
    size_t take_expected_values(size_t count);
    bool read_field();
    bool take_matching(size_t i);
    bool take_differing(size_t i, const PackageField &header);
    bool take_unknown(const PackageField &header);
    bool take_text(size_t i);
    bool take_numbers(size_t i, const PackageField &header);
    bool take_elements(size_t i, const PackageField &header);
    bool take_element_packages(size_t i, size_t count);
    bool take_raw_elements(size_t i, const PackageField &header, uint64_t size);
    bool skip_data(const PackageField &header);
    bool read_element_size(const NETDSD_field *field, BYTE flag, uint32_t *size);
    void compare_counts(const FieldPlan &local, const PackageField &header);
    void report_mismatch(const PackageField &header);
    void blank_field(size_t i, size_t from = 0);
    void blank_all();
    void blank_gaps();
    void finish_missing(bool report);
    bool out_of_data();

    char *place(const FieldPlan &local) const { return record_ + local.offset; }

    const Catalogue &catalogue_;
    const Plan &plan_;
    Reader &reader_;
    char *record_;
    int depth_;
    const char *type_;
    SeenFields seen_;
    size_t last_; // the field taken last; the number of fields before the first
};

bool RecordFiller::out_of_data() {
    ZEB_REPORT("Structure \"%s\" ran out of data prematurely", type_);
    return false;
}

bool RecordFiller::fill() {
    size_t count;
    if (!ZEB_CHECK_ERRNO(seen_.usable()) || !read_opening(&count)) {
        blank_all();
        return false;
    }
    blank_gaps();
    if (!read_fields(count)) {
        finish_missing(false);
        return out_of_data();
    }
    if (reader_.remaining() > 0)
        ZEB_REPORT(
            "WARNING: Package of type \"%s\" ran out of fields before the end of the package",
            type_);
    finish_missing(true);
    return true;
}

bool RecordFiller::read_opening(size_t *count) {
    *count = plan_.fields.size();
    if (reader_.skip_if(plan_.headers.data(), plan_.opening_size))
        return true;
    BYTE kind;
    std::string_view name;
    uint16_t fields;
    if (!reader_.read(&kind) || !reader_.read_text(&name))
        return out_of_data();
    if (name != type_) {
        ZEB_REPORT("ERROR: Type (\"%s\") passed for unpacking destination doesn't match the type "
                   "the package identifies itself as (\"%.*s\")",
                   type_, NAME_ARGS(name));
        return false;
    }
    if (!reader_.read(&fields))
        return out_of_data();
    *count = fields;
    return true;
}

bool RecordFiller::read_fields(size_t count) {
    while (count > 0) {
        count -= take_expected_values(count);
        if (count == 0)
            break;
        if (!read_field())
            return false;
        --count;
    }
    return true;
}

// Numbers that come as the latest package had them: nearly all there is to do for most packages.
// Works on locals because the stores into the record, being of characters, make the compiler read
// every member again.
size_t RecordFiller::take_expected_values(size_t count) {
    const FieldPlan *const fields = plan_.fields.data();
    const size_t count_fields = plan_.fields.size();
    const char *const headers = plan_.headers.data();
    char *const record = record_;
    const char *at = reader_.at();
    size_t left = reader_.remaining();
    size_t last = last_;
    size_t taken = 0;
    for (; taken < count; ++taken) {
        const size_t i = plan_.follower(last);
        if (i >= count_fields)
            break;
        const FieldPlan &next = fields[i];
        if (next.straight_size > left || !same_bytes(at, headers + next.header, next.header_size))
            break;
        copy_value(record + next.offset, at + next.header_size, next.bytes);
        at += next.straight_size;
        left -= next.straight_size;
        seen_.insert(i);
        last = i;
    }
    last_ = last;
    reader_.take(reader_.remaining() - left);
    return taken;
}

bool RecordFiller::read_field() {
    const size_t next = plan_.follower(last_);
    if (next < plan_.fields.size()) {
        const FieldPlan &local = plan_.fields[next];
        if (local.header_size != 0 &&
            reader_.skip_if(plan_.headers.data() + local.header, local.header_size))
            return take_matching(next);
    }
    PackageField header;
    if (!reader_.read_header(&header))
        return false;
    const size_t i = plan_.find_field(header.name);
    if (i == k_not_found)
        return take_unknown(header);
    plan_.set_follower(last_, i);
    const FieldPlan &local = plan_.fields[i];
    if (header.type == static_cast<unsigned>(local.field->ft) &&
        (header.type == NETDSD_FT_STRING || header.count == local.count))
        return take_matching(i);
    return take_differing(i, header);
}

// The field has the local type and count.
bool RecordFiller::take_matching(size_t i) {
    const FieldPlan &local = plan_.fields[i];
    last_ = i;
    if (local.kind == FieldKind::value) {
        if (const char *from = reader_.take(local.bytes)) {
            copy_value(place(local), from, local.bytes);
            seen_.insert(i);
            return true;
        }
    }
    const PackageField header = {local.field->name, static_cast<unsigned>(local.field->ft),
                                 static_cast<uint16_t>(local.count)};
    switch (local.kind) {
    case FieldKind::text:
        return take_text(i);
    case FieldKind::records:
    case FieldKind::opaque:
        return take_elements(i, header);
    default:
        return take_numbers(i, header);
    }
}

bool RecordFiller::take_differing(size_t i, const PackageField &header) {
    const FieldPlan &local = plan_.fields[i];
    last_ = i;
    if (header.type == NETDSD_FT_STRING) {
        blank_field(i);
        report_mismatch(header);
        return skip_data(header);
    }
    compare_counts(local, header);
    if (header.type == NETDSD_FT_BIN)
        return take_elements(i, header);
    return take_numbers(i, header);
}

bool RecordFiller::take_unknown(const PackageField &header) {
    if (!skip_data(header))
        return false;
    ZEB_REPORT("WARNING: Field \"%.*s\" in package of type \"%s\" was present in the package but "
               "not in the local description, it will be ignored",
               NAME_ARGS(header.name), type_);
    return true;
}

void RecordFiller::compare_counts(const FieldPlan &local, const PackageField &header) {
    if (header.count == local.count)
        return;
    ZEB_REPORT("WARNING: Number of ellements in field \"%.*s\" in package of type \"%s\" does not "
               "match the local description (package: %u vs local: %u), the %s",
               NAME_ARGS(header.name), type_, static_cast<unsigned>(header.count),
               static_cast<unsigned>(local.count),
               header.count < local.count ? "undefined ellements will be returned as MVCs"
                                          : "excesses ellements will be ignored");
}

void RecordFiller::report_mismatch(const PackageField &header) {
    ZEB_REPORT("WARNING: Unrecoverable type mis-match on field \"%.*s\" in package of type \"%s\" "
               "this field returned as a MVC",
               NAME_ARGS(header.name), type_);
}

bool RecordFiller::take_text(size_t i) {
    const FieldPlan &local = plan_.fields[i];
    std::string_view text;
    if (!reader_.read_text(&text))
        return false;
    if (text.empty() || local.bytes == 0) {
        blank_field(i);
        return true;
    }
    const size_t size = strnlen(text.data(), std::min(text.size(), local.bytes - 1));
    memcpy(place(local), text.data(), size);
    memset(place(local) + size, 0, local.bytes - size);
    seen_.insert(i);
    return true;
}

bool RecordFiller::take_numbers(size_t i, const PackageField &header) {
    const FieldPlan &local = plan_.fields[i];
    const NETDSD_field_type local_type = local.field->ft;
    blank_field(i);
    if (header.type >= k_type_count) {
        ZEB_REPORT("BUG: Unknown type (%u) in package \"%s\" field \"%.*s\"", header.type, type_,
                   NAME_ARGS(header.name));
        return true;
    }
    if (local.kind == FieldKind::unknown)
        ZEB_REPORT("BUG: Unknown type (%u) in local description \"%s\" field \"%.*s\"",
                   static_cast<unsigned>(local_type), type_, NAME_ARGS(header.name));
    else if (local.kind != FieldKind::value)
        report_mismatch(header);
    if (local.kind != FieldKind::value)
        return skip_data(header);
    if (header.type != static_cast<unsigned>(local_type))
        ZEB_REPORT("WARNING: Data type of field \"%.*s\" in package of type \"%s\" does not match "
                   "the local description, but the types were close enough to translate",
                   NAME_ARGS(header.name), type_);
    const size_t size = g_netpack_field_sizes[header.type];
    const size_t local_size = g_netpack_field_sizes[local_type];
    for (size_t k = 0; k < header.count; ++k) {
        const char *from = reader_.take(size);
        if (from == nullptr)
            return false;
        if (k < local.count)
            convert_value(static_cast<NETDSD_field_type>(header.type), from, local_type,
                          place(local) + k * local_size);
        else
            ZEB_REPORT("WARNING: Field \"%.*s\" skipped in package \"%s\"", NAME_ARGS(header.name),
                       type_);
    }
    return true;
}

// The element size travels only with described elements. A package that carries it without, next
// to the undescribed bytes, is understood too: four bytes that equal the local size are taken for
// it. Without a local field to tell the size the package has to.
bool RecordFiller::read_element_size(const NETDSD_field *field, BYTE flag, uint32_t *size) {
    if (flag == k_described_elements || field == nullptr || field->ft != NETDSD_FT_BIN)
        return reader_.read(size);
    *size = static_cast<uint32_t>(field->size);
    reader_.skip_if(reinterpret_cast<const char *>(size), sizeof *size);
    return true;
}

bool RecordFiller::take_elements(size_t i, const PackageField &header) {
    const FieldPlan &local = plan_.fields[i];
    BYTE flag;
    uint32_t size;
    if (!reader_.read(&flag) || !read_element_size(local.field, flag, &size)) {
        blank_field(i);
        return false;
    }
    const bool described = flag == k_described_elements;
    if (described && local.kind == FieldKind::records)
        return take_element_packages(i, header.count) &&
               reader_.take(uint64_t{header.count} * size) != nullptr;
    blank_field(i);
    const bool usable = local.kind == FieldKind::records || local.kind == FieldKind::opaque;
    if (!usable)
        report_mismatch(header);
    for (size_t k = 0; described && k < header.count; ++k) {
        uint32_t length;
        if (!reader_.read(&length) || reader_.take(length) == nullptr)
            return false;
    }
    if (!usable)
        return reader_.take(uint64_t{header.count} * size) != nullptr;
    return take_raw_elements(i, header, size);
}

bool RecordFiller::take_element_packages(size_t i, size_t count) {
    const FieldPlan &local = plan_.fields[i];
    const NETDSD_field &field = *local.field;
    const Plan *plan = plan_of(catalogue_, local.elements);
    const char *package = nullptr;
    size_t k = 0;
    for (uint32_t length; k < count; ++k) {
        if (!reader_.read(&length) || (package = reader_.take(length)) == nullptr)
            break;
        // An element that fails has said so and keeps what it has; the next begins all the same.
        if (k < local.count)
            unpack_structure(catalogue_, local.elements, plan, Reader(package, length),
                             place(local) + k * field.size, field.size, field.type_name,
                             depth_ + 1);
    }
    blank_field(i, std::min(k, local.count) * field.size);
    return k == count;
}

bool RecordFiller::take_raw_elements(size_t i, const PackageField &header, uint64_t size) {
    const FieldPlan &local = plan_.fields[i];
    const uint64_t bytes = header.count * size;
    const char *from = reader_.take(bytes);
    if (from == nullptr)
        return false;
    if (size == local.field->size)
        memcpy(place(local), from, static_cast<size_t>(std::min<uint64_t>(bytes, local.bytes)));
    else
        report_mismatch(header);
    return true;
}

// Past the data of a field that the record has no place for.
bool RecordFiller::skip_data(const PackageField &header) {
    if (header.type >= k_type_count) {
        ZEB_REPORT("BUG: Unknown type (%u) in package \"%s\" field \"%.*s\"", header.type, type_,
                   NAME_ARGS(header.name));
        return true;
    }
    if (is_numeric(header.type))
        return reader_.take(header.count * g_netpack_field_sizes[header.type]) != nullptr;
    if (header.type == NETDSD_FT_STRING) {
        std::string_view text;
        return reader_.read_text(&text);
    }
    BYTE flag;
    uint32_t size;
    if (!reader_.read(&flag) || !read_element_size(nullptr, flag, &size))
        return false;
    for (size_t k = 0; flag == k_described_elements && k < header.count; ++k) {
        uint32_t length;
        if (!reader_.read(&length) || reader_.take(length) == nullptr)
            return false;
    }
    return reader_.take(uint64_t{header.count} * size) != nullptr;
}

// Missing values from byte `from` of the field on, unless an earlier field of that name brought
// something; marks the field as named by the package.
void RecordFiller::blank_field(size_t i, size_t from) {
    const FieldPlan &local = plan_.fields[i];
    const size_t offset = local.offset + from;
    if (!seen_.contains(i) && from < local.bytes)
        memcpy(record_ + offset, plan_.blank.data() + offset, local.bytes - from);
    seen_.insert(i);
}

void RecordFiller::blank_all() {
    memcpy(record_, plan_.blank.data(), plan_.entry->total_size);
}

void RecordFiller::blank_gaps() {
    for (const Range &gap : plan_.gaps)
        memset(record_ + gap.offset, 0, gap.size);
}

void RecordFiller::finish_missing(bool report) {
    if (seen_.all(plan_.fields.size()))
        return;
    for (size_t i = 0; i < plan_.fields.size(); ++i) {
        if (seen_.contains(i))
            continue;
        const NETDSD_field &field = *plan_.fields[i].field;
        blank_field(i);
        if (report)
            ZEB_REPORT("WARNING: Package of type \"%s\" doesn't contain the field \"%s\"(%s) which "
                       "is in the local description, it will be returned as a MVC",
                       type_, field.name, field.type_name);
    }
}

size_t take_raw_package(Reader reader, char *dest, size_t destsize) {
    const size_t size = reader.remaining() - 1;
    if (size != destsize) {
        ZEB_REPORT("ERROR: Raw package size (%zu) doesn't match destination size (%zu)", size,
                   destsize);
        return 0;
    }
    memcpy(dest, reader.at() + 1, size);
    return destsize;
}

// No description to go by. A described package counts as consumed, so that the caller goes on
// behind it with a record of zeros.
size_t unpack_undescribed(Reader reader, char *dest, size_t destsize, const char *dstype) {
    memset(dest, 0, destsize);
    if (reader.remaining() == 0) {
        ZEB_REPORT("Structure \"%s\" ran out of data prematurely", dstype);
        return 0;
    }
    if (*reader.at() != k_raw_package) {
        ZEB_REPORT("ERROR: Bad structure description for \"%s\"", dstype);
        return destsize;
    }
    ZEB_REPORT(
        "WARNING: Bad structure description for \"%s\", but recieved a raw package, using it",
        dstype);
    return take_raw_package(reader, dest, destsize);
}

size_t unpack_described(const Catalogue &catalogue, const Plan &plan, Reader reader, char *dest,
                        size_t destsize, int depth) {
    const char *dstype = plan.entry->name;
    if (reader.remaining() > 0 && *reader.at() != k_raw_package && depth <= k_max_depth) {
        const size_t before = reader.remaining();
        RecordFiller filler(catalogue, plan, reader, dest, depth);
        return filler.fill() ? before - reader.remaining() : 0;
    }
    memcpy(dest, plan.blank.data(), destsize);
    if (reader.remaining() == 0) {
        ZEB_REPORT("Structure \"%s\" ran out of data prematurely", dstype);
        return 0;
    }
    if (depth > k_max_depth) {
        ZEB_REPORT("Structure \"%s\" is nested too deeply", dstype);
        return 0;
    }
    ZEB_REPORT("WARNING: A structure description for \"%s\" is present but the package recieved "
               "isn't using it",
               dstype);
    return take_raw_package(reader, dest, destsize);
}

// `plan` is null without a description, and without memory for a plan.
size_t unpack_structure(const Catalogue &catalogue, const NETDSD_entry *entry, const Plan *plan,
                        Reader reader, char *dest, size_t destsize, const char *dstype, int depth) {
    if (!is_usable(entry, plan, destsize))
        return unpack_undescribed(reader, dest, destsize, dstype);
    if (plan != nullptr)
        return unpack_described(catalogue, *plan, reader, dest, destsize, depth);
    memset(dest, 0, destsize);
    fill_missing(catalogue, *entry, dest, depth);
    return 0;
}

} // namespace

size_t unpack_ds(const Catalogue &catalogue, const void *pkg, size_t pkgsize, void *dest,
                 size_t destsize, const char *dstype) {
    if (!ZEB_CHECK(dest != nullptr) || !ZEB_CHECK(dstype != nullptr) ||
        !ZEB_CHECK(pkg != nullptr || pkgsize == 0))
        return 0;
    const NETDSD_entry *entry;
    const Plan *plan = find_plan(catalogue, dstype, &entry);
    return unpack_structure(catalogue, entry, plan, Reader(pkg, pkgsize), static_cast<char *>(dest),
                            destsize, dstype, 0);
}

void fill_mvc(const Catalogue &catalogue, void *pds, const char *dstype, size_t dssize) {
    if (!ZEB_CHECK(pds != nullptr) || !ZEB_CHECK(dstype != nullptr))
        return;
    const NETDSD_entry *entry;
    const Plan *plan = find_plan(catalogue, dstype, &entry);
    const bool usable = is_usable(entry, plan, dssize);
    if (usable && plan != nullptr) {
        memcpy(pds, plan->blank.data(), dssize);
        return;
    }
    memset(pds, 0, dssize);
    if (usable)
        fill_missing(catalogue, *entry, static_cast<char *>(pds), 0);
    else
        ZEB_REPORT("WARNING: Bad structure description for \"%s\"", dstype);
}

} // namespace zeb::netpack

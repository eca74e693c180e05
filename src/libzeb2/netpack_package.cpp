// The dump of a package, which describes itself: the catalogue is asked for one thing only, the
// size of undescribed elements, which packages do not carry.
#include "netpack_dump.h"

#include "diag.h"

#include <algorithm>

namespace zeb::netpack {
namespace {

constexpr size_t k_slack_bytes = sizeof(uint32_t); // behind the fields, for each undescribed one

// One structure of a package. The functions return false when nothing more can be read of it.
class PackageDump {
  public:
    PackageDump(const Catalogue &catalogue, DumpStream &out, Reader reader, std::string_view prefix,
                int depth)
        : catalogue_(catalogue), out_(out), reader_(reader), prefix_(prefix), depth_(depth) {}

    // `index` is 0 for a package of its own and the number, from 1, of a nested element. False,
    // reported, without memory: then everything stops.
    bool dump(size_t index);

  private:
    bool described();
    void heading(size_t index);
    bool read_field();
    bool values(const PackageField &field);
    bool numbers(const PackageField &field);
    bool text();
    bool bytes(const PackageField &field);
    bool element_packages(const PackageField &field);
    bool opaque(const PackageField &field);
    bool last_opaque(const PackageField &field);
    bool unsized_opaque(const PackageField &field);
    const NETDSD_field *local_opaque(const PackageField &field) const;
    bool out_of_data();

    const Catalogue &catalogue_;
    DumpStream &out_;
    Reader reader_;
    std::string_view prefix_;
    int depth_;
    std::string_view structure_;
    size_t fields_left_ = 0;
    size_t slack_ = 0;
    bool stopped_ = false;
};

bool PackageDump::out_of_data() {
    ZEB_REPORT("Structure \"%.*s\" ran out of data prematurely", NAME_ARGS(structure_));
    return false;
}

bool PackageDump::dump(size_t index) {
    if (depth_ > k_max_depth) {
        ZEB_REPORT("A package is nested too deeply");
        return true;
    }
    if (reader_.remaining() > 0 && *reader_.at() == k_raw_package) {
        reader_.take(1);
        out_.open_block(prefix_, "", index);
        out_.put_raw(prefix_, reader_.at(), reader_.remaining());
        out_.close_block(prefix_, index);
        return true;
    }
    const bool opened = described();
    heading(index);
    while (opened && fields_left_ > 0 && read_field())
        --fields_left_;
    if (stopped_)
        return false;
    if (opened && fields_left_ == 0 && reader_.remaining() > slack_)
        ZEB_REPORT("WARNING: Package of type \"%.*s\" ran out of fields before the end of the "
                   "package",
                   NAME_ARGS(structure_));
    out_.close_block(prefix_, index);
    return true;
}

bool PackageDump::described() {
    uint16_t count;
    if (reader_.take(1) == nullptr || !reader_.read_text(&structure_) || !reader_.read(&count))
        return out_of_data();
    fields_left_ = count;
    return true;
}

void PackageDump::heading(size_t index) {
    out_.open_block(prefix_, structure_, index);
    if (index != 0)
        return;
    out_.put(prefix_);
    out_.put("*Structure=");
    out_.put_visible(structure_);
    out_.put('\n');
}

bool PackageDump::read_field() {
    PackageField field;
    if (!reader_.read_header(&field))
        return out_of_data();
    out_.put(prefix_);
    out_.put_visible(field.name);
    out_.put_kind(field.type, field.count);
    const bool complete = values(field);
    if (!stopped_)
        out_.put('\n');
    return complete;
}

bool PackageDump::values(const PackageField &field) {
    if (field.type >= k_type_count) {
        ZEB_REPORT("BUG: Unknown type (%u) in package \"%.*s\" field \"%.*s\"", field.type,
                   NAME_ARGS(structure_), NAME_ARGS(field.name));
        return true;
    }
    if (field.type == NETDSD_FT_STRING)
        return text();
    return field.type == NETDSD_FT_BIN ? bytes(field) : numbers(field);
}

bool PackageDump::numbers(const PackageField &field) {
    const size_t size = g_netpack_field_sizes[field.type];
    const size_t count = std::min<size_t>(field.count, reader_.remaining() / size);
    out_.put_numbers(static_cast<NETDSD_field_type>(field.type), reader_.take(count * size), count);
    return count == field.count || out_of_data();
}

bool PackageDump::text() {
    uint16_t size;
    if (!reader_.read(&size))
        return out_of_data();
    const size_t present = std::min<size_t>(size, reader_.remaining());
    out_.put_visible({reader_.take(present), present});
    return present == size || out_of_data();
}

bool PackageDump::bytes(const PackageField &field) {
    BYTE flag;
    if (!reader_.read(&flag))
        return out_of_data();
    return flag == k_described_elements ? element_packages(field) : opaque(field);
}

bool PackageDump::element_packages(const PackageField &field) {
    uint32_t size;
    if (!reader_.read(&size))
        return out_of_data();
    NameText extended;
    if (!extended.compose(prefix_, "\t", 0, "")) {
        stopped_ = true;
        return false;
    }
    for (size_t j = 0; j < field.count; ++j) {
        uint32_t length;
        const char *package;
        if (!reader_.read(&length) || (package = reader_.take(length)) == nullptr)
            return out_of_data();
        PackageDump element(catalogue_, out_, Reader(package, length), extended.view(), depth_ + 1);
        if (!element.dump(j + 1)) {
            stopped_ = true;
            return false;
        }
    }
    return reader_.take(uint64_t{field.count} * size) != nullptr || out_of_data();
}

const NETDSD_field *PackageDump::local_opaque(const PackageField &field) const {
    const NETDSD_entry *entry = find_structure(catalogue_, structure_);
    const NETDSD_field *local = entry == nullptr ? nullptr : find_field(*entry, field.name);
    return local != nullptr && local->ft == NETDSD_FT_BIN && local->size > 0 ? local : nullptr;
}

bool PackageDump::opaque(const PackageField &field) {
    slack_ += k_slack_bytes;
    if (const NETDSD_field *local = local_opaque(field)) {
        const auto size = static_cast<uint32_t>(local->size);
        reader_.skip_if(reinterpret_cast<const char *>(&size), sizeof size);
        const uint64_t wanted = uint64_t{field.count} * size;
        const auto present = static_cast<size_t>(std::min<uint64_t>(wanted, reader_.remaining()));
        out_.put_opaque(reader_.take(present), present, size);
        return present == wanted || out_of_data();
    }
    if (field.count == 0)
        return true;
    return fields_left_ == 1 ? last_opaque(field) : unsized_opaque(field);
}

// What lies between here and the slack can only be the last field's.
bool PackageDump::last_opaque(const PackageField &field) {
    const size_t size = reader_.remaining() - std::min(reader_.remaining(), slack_);
    const bool even = size % field.count == 0 && size > 0;
    out_.put_opaque(reader_.take(size), size, even ? size / field.count : size + 1);
    return true;
}

bool PackageDump::unsized_opaque(const PackageField &field) {
    ZEB_REPORT("Size of the elements of field \"%.*s\" in package of type \"%.*s\" is not known, "
               "the rest is printed as bytes",
               NAME_ARGS(field.name), NAME_ARGS(structure_));
    const size_t rest = reader_.remaining();
    out_.put_hex(reader_.take(rest), rest);
    return false;
}

} // namespace

void print_ds(const Catalogue &catalogue, const void *pds, size_t dssize, FILE *print_file,
              const char *line_prefix) {
    if (!ZEB_CHECK(pds != nullptr || dssize == 0) || !ZEB_CHECK(print_file != nullptr))
        return;
    DumpStream out(print_file);
    PackageDump(catalogue, out, Reader(pds, dssize), line_prefix != nullptr ? line_prefix : "", 0)
        .dump(0);
}

} // namespace zeb::netpack

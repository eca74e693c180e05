#include "package_reader.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace zebctl {
namespace {

constexpr int k_deepest = 32; // records within records, as the library has it
constexpr size_t k_size_field = 4;

const char *const k_codes[] = {"BOOL", "CHAR",  "BYTE",  "SHORT", "USHORT", "INT",    "UINT",
                               "LONG", "ULONG", "SIZET", "TIME",  "FTIME",  "DOUBLE", "FLOAT"};

template <typename T> T load(std::string_view bytes) {
    T value;
    memcpy(&value, bytes.data(), sizeof value);
    return value;
}

class PackageReader {
  public:
    PackageReader(PackageVisitor &visitor, std::string &error) : visitor_(visitor), error_(error) {}
    bool read_record(std::string_view &bytes, int depth);

  private:
    bool fail(const std::string &what);
    bool take(std::string_view &bytes, uint64_t count, std::string_view &taken);
    bool take_text(std::string_view &bytes, std::string_view &text);
    template <typename T> bool take_number(std::string_view &bytes, T &number);
    void show_raw(std::string_view bytes);
    bool read_field(std::string_view &bytes, int depth);
    bool read_value(std::string_view &bytes, const PackageField &field, int depth);
    bool read_bin(std::string_view &bytes, const PackageField &field, int depth);
    bool read_elements(std::string_view &bytes, const PackageField &field, int depth);
    bool read_opaque(std::string_view &bytes, const PackageField &field);
    bool opaque_size(std::string_view &bytes, const PackageField &field, uint64_t &size);

    PackageVisitor &visitor_;
    std::string &error_;
    std::string_view structure_, field_;
    bool is_last_ = false; // the field is the record's last one
    size_t opaques_ = 0;   // of the record, up to the field
};

bool PackageReader::fail(const std::string &what) {
    error_ = what;
    if (!structure_.empty())
        error_ += ", in " + std::string(structure_);
    if (!field_.empty())
        error_ += "." + std::string(field_);
    return false;
}

bool PackageReader::take(std::string_view &bytes, uint64_t count, std::string_view &taken) {
    if (count > bytes.size())
        return fail("the package ends " + std::to_string(count - bytes.size()) +
                    " bytes before what it announces");
    taken = bytes.substr(0, static_cast<size_t>(count));
    bytes.remove_prefix(static_cast<size_t>(count));
    return true;
}

template <typename T> bool PackageReader::take_number(std::string_view &bytes, T &number) {
    std::string_view taken;
    if (!take(bytes, sizeof number, taken))
        return false;
    number = load<T>(taken);
    return true;
}

bool PackageReader::take_text(std::string_view &bytes, std::string_view &text) {
    uint16_t size;
    return take_number(bytes, size) && take(bytes, size, text);
}

bool PackageReader::read_record(std::string_view &bytes, int depth) {
    uint8_t described;
    uint16_t fields;
    std::string_view name;
    const std::string_view outer = structure_;
    if (depth > k_deepest)
        return fail("records nest too deep");
    if (!take_number(bytes, described))
        return false;
    if (described != 1) {
        show_raw(bytes);
        bytes = {};
        return true;
    }
    if (!take_text(bytes, name))
        return false;
    structure_ = name;
    field_ = {};
    opaques_ = 0;
    if (!take_number(bytes, fields))
        return false;
    visitor_.begin_record(name);
    for (size_t i = 0; i < fields; ++i) {
        is_last_ = i + 1 == fields;
        if (!read_field(bytes, depth))
            return false;
    }
    visitor_.end_record();
    structure_ = outer;
    return true;
}

void PackageReader::show_raw(std::string_view bytes) {
    visitor_.begin_record({});
    visitor_.begin_field({"raw", NETDSD_FT_BIN, bytes.size()});
    visitor_.opaque(bytes);
    visitor_.end_field();
    visitor_.end_record();
}

bool PackageReader::read_field(std::string_view &bytes, int depth) {
    PackageField field;
    uint16_t type, count = 1;
    field_ = {};
    if (!take_text(bytes, field.name))
        return false;
    field_ = field.name;
    if (!take_number(bytes, type))
        return false;
    if (type > NETDSD_FT_BIN)
        return fail("there is no type " + std::to_string(type));
    if (g_netpack_field_send_count[type] != FALSE && !take_number(bytes, count))
        return false;
    field.type = static_cast<NETDSD_field_type>(type);
    field.count = count;
    visitor_.begin_field(field);
    if (!read_value(bytes, field, depth))
        return false;
    visitor_.end_field();
    return true;
}

bool PackageReader::read_value(std::string_view &bytes, const PackageField &field, int depth) {
    std::string_view value;
    if (field.type == NETDSD_FT_BIN)
        return read_bin(bytes, field, depth);
    if (field.type == NETDSD_FT_STRING) {
        if (!take_text(bytes, value))
            return false;
        visitor_.text(value);
        return true;
    }
    if (!take(bytes, uint64_t{field.count} * g_netpack_field_sizes[field.type], value))
        return false;
    visitor_.numbers(field, value.data());
    return true;
}

bool PackageReader::read_bin(std::string_view &bytes, const PackageField &field, int depth) {
    uint8_t described;
    if (!take_number(bytes, described))
        return false;
    return described == 1 ? read_elements(bytes, field, depth) : read_opaque(bytes, field);
}

bool PackageReader::read_elements(std::string_view &bytes, const PackageField &field, int depth) {
    uint32_t size, length;
    std::string_view element, memory;
    const std::string_view structure = structure_;
    const bool is_last = is_last_;
    const size_t opaques = opaques_;
    if (!take_number(bytes, size))
        return false;
    for (size_t i = 0; i < field.count; ++i) {
        if (!take_number(bytes, length) || !take(bytes, length, element) ||
            !read_record(element, depth + 1))
            return false;
        structure_ = structure;
        field_ = field.name;
    }
    is_last_ = is_last;
    opaques_ = opaques;
    return take(bytes, uint64_t{field.count} * size, memory);
}

// The size of an element without a description is not sent: it is the catalogue's, or follows from
// what there is behind the last field, or is read where a described element has it.
bool PackageReader::opaque_size(std::string_view &bytes, const PackageField &field,
                                uint64_t &size) {
    ++opaques_;
    const uint32_t ahead = bytes.size() >= k_size_field ? load<uint32_t>(bytes) : 0;
    const NETDSD_entry *entry = NETPACK_find_ds(std::string(structure_).c_str());
    for (size_t i = 0; entry != nullptr && i < entry->count_fields; ++i) {
        if (field.name != entry->fields[i].name || entry->fields[i].ft != NETDSD_FT_BIN)
            continue;
        size = entry->fields[i].size;
        if (ahead == size)
            bytes.remove_prefix(k_size_field);
        return true;
    }
    const size_t slack = opaques_ * k_size_field;
    if (is_last_ && field.count > 0 && bytes.size() > slack &&
        (bytes.size() - slack) % field.count == 0) {
        size = (bytes.size() - slack) / field.count;
        return true;
    }
    uint32_t sent;
    if (!take_number(bytes, sent))
        return false;
    size = sent;
    return true;
}

bool PackageReader::read_opaque(std::string_view &bytes, const PackageField &field) {
    uint64_t size = 0;
    std::string_view memory;
    if (!opaque_size(bytes, field, size) || !take(bytes, field.count * size, memory))
        return false;
    visitor_.opaque(memory);
    return true;
}

struct FreeDeleter {
    void operator()(void *block) const { free(block); }
};

// The package that a sender with the description would have made; null without one of that size.
std::unique_ptr<void, FreeDeleter> described(std::string_view record, const std::string &structure,
                                             size_t &size) {
    const NETDSD_entry *entry = NETPACK_find_ds(structure.c_str());
    if (entry == nullptr || entry->total_size != record.size())
        return nullptr;
    return std::unique_ptr<void, FreeDeleter>(
        NETPACK_package_ds(record.data(), structure.c_str(), record.size(), &size));
}

} // namespace

size_t read_package(std::string_view package, const std::string &structure, PackageVisitor &visitor,
                    std::string &error) {
    std::string_view rest = package;
    size_t size = 0;
    if (!package.empty() && package[0] == 0) {
        if (const auto made = described(package.substr(1), structure, size)) {
            std::string_view bytes(static_cast<const char *>(made.get()), size);
            return PackageReader(visitor, error).read_record(bytes, 1) ? package.size() : 0;
        }
    }
    if (!PackageReader(visitor, error).read_record(rest, 1))
        return 0;
    return package.size() - rest.size();
}

std::string type_text(const PackageField &field) {
    if (field.type == NETDSD_FT_STRING)
        return "STRING";
    const bool is_array = field.type >= NETDSD_FT_A_BOOL && field.type <= NETDSD_FT_A_FLOAT;
    const std::string name = field.type == NETDSD_FT_BIN
                                 ? "BIN"
                                 : k_codes[is_array ? field.type - NETDSD_FT_A_BOOL : field.type];
    return is_array || field.type == NETDSD_FT_BIN ? name + "[" + std::to_string(field.count) + "]"
                                                   : name;
}

} // namespace zebctl

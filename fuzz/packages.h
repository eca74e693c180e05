// packages.h - packages that come close to a structure's description: what random bytes alone would
// hardly ever be.
#pragma once

#include "fuzz.h"

#include <functional>
#include <zeb2/netpack.h>

namespace fuzz {

template <class T> void put(std::string &to, T value) {
    to.append(reinterpret_cast<const char *>(&value), sizeof value);
}

inline void put_text(std::string &to, std::string_view text) {
    put(to, static_cast<uint16_t>(text.size()));
    to.append(text);
}

// Makes packages by an input, which chooses the fields, and whether each is as described.
class PackageMaker {
  public:
    // `find` is for the structures of elements.
    using Find = std::function<const NETDSD_entry *(const char *name)>;
    explicit PackageMaker(Input &input, Find find = NETPACK_find_ds)
        : input_(input), find_(std::move(find)) {}

    std::string make(const NETDSD_entry &entry, int depth = 0) {
        const uint8_t fields = input_.byte() % 32;
        std::string package;
        put(package, uint8_t{1});
        put_text(package, entry.name);
        put(package, static_cast<uint16_t>(fields));
        for (int i = 0; i < fields && !input_.empty() && package.size() < k_most; ++i)
            put_field(package, entry, depth);
        return package;
    }

  private:
    static constexpr size_t k_most = 1 << 16;
    static constexpr unsigned k_types = 30;
    enum { k_other_type = 1, k_other_count = 2, k_unknown = 4, k_short = 8, k_in_turn = 0x80 };

    void put_field(std::string &package, const NETDSD_entry &entry, int depth) {
        const uint8_t how = input_.byte();
        const bool unknown = (how & k_unknown) != 0 || entry.count_fields == 0;
        if ((how & k_in_turn) == 0)
            next_ = input_.number<uint16_t>();
        const NETDSD_field &field =
            unknown ? k_no_field : entry.fields[next_++ % entry.count_fields];
        const unsigned type = static_cast<unsigned>(
            (how & k_other_type) != 0 ? input_.below(32) : static_cast<size_t>(field.ft));
        size_t count = field.ft < NETDSD_FT_A_BOOL ? 1 : field.count;
        if ((how & k_other_count) != 0)
            count = input_.number<uint16_t>() % 300;
        put_text(package, unknown ? input_.block(8) : field.name);
        put(package, static_cast<uint16_t>(type));
        if (type < k_types && g_netpack_field_send_count[type])
            put(package, static_cast<uint16_t>(count));
        if (type == NETDSD_FT_STRING)
            put_text(package, input_.block());
        else if (type == NETDSD_FT_BIN)
            put_elements(package, field, count, depth);
        else if (type < k_types)
            put_value(package, count * g_netpack_field_sizes[type], (how & k_short) == 0);
    }

    void put_value(std::string &package, size_t size, bool whole) {
        const std::string_view value = input_.bytes(std::min<size_t>(size, 64));
        package.append(value);
        if (whole)
            package.append(size - value.size(), '\x5A');
    }

    void put_elements(std::string &package, const NETDSD_field &field, size_t count, int depth) {
        const uint8_t flag = input_.byte() % 4 == 0 ? 0 : 1;
        put(package, flag);
        size_t size = field.size;
        if (input_.byte() % 8 == 0)
            size = input_.number<uint16_t>();
        if (flag != 0)
            put(package, static_cast<uint32_t>(size));
        const NETDSD_entry *element = find_(field.type_name);
        for (size_t i = 0; flag != 0 && i < count && package.size() < k_most; ++i) {
            const bool described = element != nullptr && depth < 40 && input_.byte() % 4 != 0;
            const std::string nested =
                described ? make(*element, depth + 1) : std::string(input_.block(32));
            put(package, static_cast<uint32_t>(nested.size()));
            package.append(nested);
        }
        put_value(package, std::min(count * size, k_most), true);
    }

    static constexpr NETDSD_field k_no_field = {NETDSD_FT_INT, "?", 0, 1, "", 4, "?"};
    Input &input_;
    Find find_;
    size_t next_ = 0;
};

} // namespace fuzz

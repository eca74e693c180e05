#include "netpack_dump.h"

#include <charconv>

namespace zeb::netpack {
namespace {

bool is_byte(NETDSD_field_type scalar) {
    return scalar == NETDSD_FT_CHAR || scalar == NETDSD_FT_BYTE;
}

} // namespace

void DumpStream::put_hex(const char *bytes, size_t size) {
    for (size_t i = 0; i < size; ++i) {
        char digits[2];
        hex_text(bytes[i], digits);
        put({digits, sizeof digits});
    }
}

void DumpStream::put_visible(std::string_view text) {
    for (const char c : text) {
        const auto code = static_cast<unsigned char>(c);
        if (code >= ' ' && code != 0x7F && c != '\\') {
            put(c);
        } else {
            put("\\x");
            put_hex(&c, 1);
        }
    }
}

void DumpStream::put_raw(std::string_view prefix, const char *bytes, size_t size) {
    put(prefix);
    put("*RawData=");
    put_hex(bytes, size);
    put('\n');
}

void DumpStream::put_kind(unsigned type, size_t count) {
    put('(');
    put(type < k_type_count ? g_netpack_field_names[type] : "?");
    put(')');
    if (count > 1) {
        char digits[k_number_text];
        char *const end = std::to_chars(digits, digits + sizeof digits, count).ptr;
        put('[');
        put({digits, static_cast<size_t>(end - digits)});
        put(']');
    }
    put('=');
}

void DumpStream::put_numbers(NETDSD_field_type type, const char *from, size_t count) {
    const NETDSD_field_type scalar = scalar_of(type);
    const size_t size = g_netpack_field_sizes[scalar];
    if (is_byte(scalar)) {
        put_hex(from, count);
        return;
    }
    for (size_t i = 0; i < count; ++i, from += size) {
        if (i > 0)
            put(',');
        char text[k_value_text];
        if (scalar == NETDSD_FT_BOOL)
            put(*from != 0 ? "TRUE" : "FALSE");
        else
            put({text, value_text(scalar, from, text)});
    }
}

void DumpStream::put_opaque(const char *from, size_t size, size_t element_size) {
    for (size_t k = 0; k < size; ++k) {
        put_hex(from + k, 1);
        if (comma_follows(k, element_size))
            put(',');
    }
}

void DumpStream::open_block(std::string_view prefix, std::string_view structure, size_t index) {
    if (index == 1) {
        put_visible(structure);
        put(structure.empty() ? "{\n" : ":{\n");
    } else if (index > 1) {
        put(",\n");
        put(prefix);
        put("{\n");
    }
}

void DumpStream::close_block(std::string_view prefix, size_t index) {
    if (index == 0)
        return;
    put(prefix);
    put('}');
}

} // namespace zeb::netpack

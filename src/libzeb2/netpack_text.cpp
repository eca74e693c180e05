#include "netpack_text.h"

#include "diag.h"
#include "util.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace zeb::netpack {
namespace {

constexpr size_t k_name_slack = 32; // of a name: separators, an element's number, a terminator

size_t terminated(char *to, const char *end) {
    to[end - to] = '\0';
    return static_cast<size_t>(end - to);
}

template <class Integer> size_t integer_text(const char *from, char (&to)[k_value_text]) {
    return terminated(to, std::to_chars(to, to + k_value_text - 1, load<Integer>(from)).ptr);
}

// What "%+012E" gives in the C locale, at a third of its time.
size_t floating_text(double value, char (&to)[k_value_text]) {
    if (!std::isfinite(value))
        return static_cast<size_t>(snprintf(to, k_value_text, "%+012E", value));
    to[0] = std::signbit(value) ? '-' : '+';
    char *const end = std::to_chars(to + 1, to + k_value_text - 1, std::fabs(value),
                                    std::chars_format::scientific, 6)
                          .ptr;
    to[sizeof "+d.dddddd" - 1] = 'E';
    return terminated(to, end);
}

size_t time_text(const char *from, char (&to)[k_value_text]) {
    UTIL_time2string(load<TIME>(from), to);
    return strlen(to);
}

size_t ftime_text(const char *from, char (&to)[k_value_text]) {
    UTIL_ftime2string(load<FTIME>(from), to);
    return strlen(to);
}

char *copied(char *to, std::string_view text) {
    memcpy(to, text.data(), text.size());
    return to + text.size();
}

} // namespace

size_t value_text(NETDSD_field_type type, const char *from, char (&to)[k_value_text]) {
    switch (static_cast<unsigned>(scalar_of(type))) {
    case NETDSD_FT_BOOL:
        to[0] = *from != 0 ? '1' : '0';
        return terminated(to, to + 1);
    case NETDSD_FT_CHAR:
    case NETDSD_FT_BYTE:
        hex_text(*from, to);
        return terminated(to, to + 2);
    case NETDSD_FT_SHORT:
        return integer_text<int16_t>(from, to);
    case NETDSD_FT_USHORT:
        return integer_text<uint16_t>(from, to);
    case NETDSD_FT_INT:
    case NETDSD_FT_LONG:
        return integer_text<int32_t>(from, to);
    case NETDSD_FT_TIME:
        return time_text(from, to);
    case NETDSD_FT_FTIME:
        return ftime_text(from, to);
    case NETDSD_FT_DOUBLE:
        return floating_text(load<double>(from), to);
    case NETDSD_FT_FLOAT:
        return floating_text(static_cast<double>(load<float>(from)), to);
    default: // UINT ULONG SIZET
        return integer_text<uint32_t>(from, to);
    }
}

void hex_text(char byte, char *to) {
    static constexpr char k_digits[] = "0123456789ABCDEF";
    const auto value = static_cast<unsigned char>(byte);
    to[0] = k_digits[value >> 4];
    to[1] = k_digits[value & 15];
}

size_t number_text(size_t number, char (&to)[k_number_text]) {
    to[0] = '_';
    return terminated(to, std::to_chars(to + 1, to + k_number_text - 1, number).ptr);
}

bool NameText::compose(std::string_view prefix, std::string_view name, size_t number,
                       std::string_view tail) {
    if (!reserve(prefix.size() + name.size() + tail.size() + k_name_slack))
        return false;
    char *end = copied(copied(text_, prefix), name);
    if (number != 0) {
        char digits[k_number_text];
        const size_t length = number_text(number, digits);
        end = copied(end, {digits, length});
    }
    size_ = terminated(text_, copied(end, tail));
    return true;
}

bool NameText::reserve(size_t capacity) {
    if (capacity <= capacity_)
        return true;
    free(text_);
    text_ = static_cast<char *>(malloc(capacity));
    capacity_ = text_ != nullptr ? capacity : 0;
    return ZEB_CHECK_ERRNO(text_ != nullptr);
}

} // namespace zeb::netpack

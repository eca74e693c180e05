#include "package_show.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>

#include "record_json.h"
#include "text.h"

namespace zebctl {
namespace {

constexpr size_t k_indent = 2;
constexpr int k_digits = 9; // for people

template <typename T> T load(const char *at) {
    T value;
    memcpy(&value, at, sizeof value);
    return value;
}

bool is_array(NETDSD_field_type type) {
    return type >= NETDSD_FT_A_BOOL && type <= NETDSD_FT_A_FLOAT;
}

NETDSD_field_type scalar_of(NETDSD_field_type type) {
    return is_array(type) ? static_cast<NETDSD_field_type>(type - NETDSD_FT_A_BOOL) : type;
}

// ---- Numbers ----

template <typename T> bool append_integer(std::string &out, const char *at, T missing) {
    const T value = load<T>(at);
    char text[24];
    if (value == missing)
        return false;
    out.append(text, std::to_chars(text, text + sizeof text, value).ptr);
    return true;
}

template <typename T> bool append_short(std::string &out, const char *at) {
    char text[24];
    out.append(text, std::to_chars(text, text + sizeof text, int{load<T>(at)}).ptr);
    return true;
}

// Appends a whole number; false when it is missing. Only for types that hold such.
bool append_whole(std::string &out, NETDSD_field_type type, const char *at) {
    constexpr int32_t k_missing = 0x55555555;
    switch (type) {
    case NETDSD_FT_BYTE:
        return append_short<BYTE>(out, at);
    case NETDSD_FT_SHORT:
        return append_short<int16_t>(out, at);
    case NETDSD_FT_USHORT:
        return append_short<uint16_t>(out, at);
    case NETDSD_FT_UINT:
    case NETDSD_FT_ULONG:
        return append_integer<uint32_t>(out, at, k_missing);
    case NETDSD_FT_SIZET:
        return append_integer<uint32_t>(out, at, 0xFFFFFFFFu);
    case NETDSD_FT_TIME:
        return append_integer<int32_t>(out, at, -1);
    default:
        return append_integer<int32_t>(out, at, k_missing);
    }
}

bool is_real(NETDSD_field_type type) {
    return type == NETDSD_FT_FTIME || type == NETDSD_FT_DOUBLE || type == NETDSD_FT_FLOAT;
}

bool is_time(NETDSD_field_type type) {
    return type == NETDSD_FT_FTIME || type == NETDSD_FT_TIME;
}

double real_at(NETDSD_field_type type, const char *at) {
    return type == NETDSD_FT_FLOAT ? static_cast<double>(load<float>(at)) : load<double>(at);
}

bool is_missing(NETDSD_field_type type, double value) {
    return type == NETDSD_FT_DOUBLE ? value == MVC : type == NETDSD_FT_FTIME && value == -1.0;
}

// The shortest text that reads back to the same value, and shows that it is no whole number.
void append_real_json(std::string &out, NETDSD_field_type type, const char *at) {
    const double value = real_at(type, at);
    if (is_missing(type, value)) {
        out += "null";
        return;
    }
    if (!std::isfinite(value)) {
        out += real_to_json(value).dump();
        return;
    }
    char text[40];
    const double size = std::fabs(value);
    const auto format = size == 0 || (size >= 1e-5 && size < 1e15) ? std::chars_format::fixed
                                                                   : std::chars_format::scientific;
    char *const end = std::to_chars(text, text + sizeof text, value, format).ptr;
    out.append(text, end);
    if (std::find_if(text, end, [](char c) { return c == '.' || c == 'e'; }) == end)
        out += ".0";
}

void append_json(std::string &out, NETDSD_field_type type, const char *at) {
    if (is_real(type))
        append_real_json(out, type, at);
    else if (type == NETDSD_FT_BOOL)
        out += *at != 0 ? "true" : "false";
    else if (type == NETDSD_FT_CHAR)
        out += scalar_to_json(type, at).dump();
    else if (!append_whole(out, type, at))
        out += "null";
}

void append_for_people(std::string &out, NETDSD_field_type type, const char *at) {
    if (is_time(type)) {
        out += iso_time(type == NETDSD_FT_TIME ? load<int32_t>(at) : load<double>(at));
    } else if (is_real(type)) {
        char text[40];
        const double value = real_at(type, at);
        out += is_missing(type, value)
                   ? "-"
                   : std::string(text, std::to_chars(text, text + sizeof text, value,
                                                     std::chars_format::general, k_digits)
                                           .ptr);
    } else if (type == NETDSD_FT_BOOL) {
        out += *at != 0 ? "TRUE" : "FALSE";
    } else if (type == NETDSD_FT_CHAR) {
        out += scalar_to_json(type, at).dump();
    } else if (!append_whole(out, type, at)) {
        out += "-";
    }
}

bool is_plain(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return c >= 0x20 && c < 0x7F && c != '"' && c != '\\'; });
}

} // namespace

void append_json_text(std::string &out, std::string_view text) {
    if (is_plain(text)) {
        out += '"';
        out += text;
        out += '"';
    } else {
        out += Json(to_utf8(text.data(), text.size())).dump();
    }
}

void append_hex(std::string &out, std::string_view bytes) {
    constexpr char k_hex[] = "0123456789ABCDEF";
    for (const char c : bytes) {
        out += k_hex[static_cast<BYTE>(c) >> 4];
        out += k_hex[static_cast<BYTE>(c) & 15];
    }
}

// ---- JSON ----

void PackageJson::open(char bracket) {
    separate();
    out_ += bracket;
    closers_ += bracket == '{' ? '}' : ']';
}

void PackageJson::close() {
    if (!shows())
        return;
    out_ += closers_.back();
    closers_.pop_back();
}

void PackageJson::separate() {
    if (const char last = out_.empty() ? '[' : out_.back(); last == '}' || last == ']')
        out_ += ',';
}

void PackageJson::begin_record(std::string_view) {
    if (fields_.empty()) {
        out_ += '{';
        closers_ += '}';
        return;
    }
    Open &field = fields_.back();
    if (!field.is_list && field.field.count != 1 && field.elements == 0 && !types_ && shows()) {
        open('[');
        field.is_list = true;
    }
    if (types_ && field.elements > 0)
        field.shown = false;
    ++field.elements;
    if (shows())
        open('{');
}

void PackageJson::begin_field(const PackageField &field) {
    const bool shown = shows();
    fields_.push_back({field, false, 0, shown});
    if (!shown)
        return;
    if (out_.back() != '{')
        out_ += ',';
    append_json_text(out_, field.name);
    out_ += ':';
}

void PackageJson::end_field() {
    const Open field = fields_.back();
    const bool shown = fields_.size() == 1 || fields_[fields_.size() - 2].shown;
    if (shown && out_.back() == ':')
        out_ += types_ ? "\"" + type_text(field.field) + "\"" : "[]";
    if (field.is_list)
        close();
    fields_.pop_back();
}

void PackageJson::numbers(const PackageField &field, const char *elements) {
    if (types_)
        return;
    const NETDSD_field_type type = scalar_of(field.type);
    if (field.type == NETDSD_FT_A_CHAR) {
        out_ += char_array_to_json(elements, field.count).dump();
        return;
    }
    if (!is_array(field.type)) {
        append_json(out_, type, elements);
        return;
    }
    out_ += '[';
    for (size_t i = 0; i < field.count; ++i) {
        if (i > 0)
            out_ += ',';
        append_json(out_, type, elements + i * g_netpack_field_sizes[type]);
    }
    out_ += ']';
}

void PackageJson::text(std::string_view text) {
    if (!types_)
        append_json_text(out_, text);
}

void PackageJson::opaque(std::string_view bytes) {
    if (types_)
        return;
    out_ += '[';
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (i > 0)
            out_ += ',';
        append_short<BYTE>(out_, bytes.data() + i);
    }
    out_ += ']';
}

void PackageJson::finish() {
    if (!closers_.empty() && out_.back() == ':')
        out_ += "null";
    while (!closers_.empty()) {
        out_ += closers_.back();
        closers_.pop_back();
    }
}

// ---- For people ----

void PackageText::line() {
    out_ += '\n';
    out_.append(k_indent * depth_, ' ');
}

void PackageText::begin_record(std::string_view structure) {
    if (!elements_.empty()) {
        auto &[count, seen] = elements_.back();
        ++seen;
        if (count == 1) {
            out_ += ' ';
        } else {
            ++depth_;
            line();
            --depth_;
            out_ += "[" + std::to_string(seen) + "] ";
        }
        out_ += visible(std::string(structure));
    }
    depth_ += steps();
}

// A record that is one of several has a line of its own.
size_t PackageText::steps() const {
    return elements_.empty() || elements_.back().first == 1 ? 1 : 2;
}

void PackageText::begin_field(const PackageField &field) {
    line();
    out_ += visible(std::string(field.name)) + " " + type_text(field);
    elements_.emplace_back(field.count, 0);
}

void PackageText::numbers(const PackageField &field, const char *elements) {
    out_ += " = ";
    const NETDSD_field_type type = scalar_of(field.type);
    if (field.type == NETDSD_FT_A_CHAR) {
        out_ += char_array_to_json(elements, field.count).dump();
        return;
    }
    for (size_t i = 0; i < field.count; ++i) {
        if (i > 0)
            out_ += ',';
        append_for_people(out_, type, elements + i * g_netpack_field_sizes[type]);
    }
}

void PackageText::text(std::string_view text) {
    out_ += " = ";
    out_ += visible(std::string(text));
}

void PackageText::opaque(std::string_view bytes) {
    out_ += " = ";
    append_hex(out_, bytes);
}

} // namespace zebctl

#include "record_json.h"

#include <cmath>
#include <cstring>
#include <limits>

namespace zebctl {
namespace {

constexpr int k_first_array = NETDSD_FT_A_BOOL;

bool is_array(NETDSD_field_type type) {
    return type >= k_first_array && type <= NETDSD_FT_A_FLOAT;
}

NETDSD_field_type scalar_of(NETDSD_field_type type) {
    return is_array(type) ? static_cast<NETDSD_field_type>(type - k_first_array) : type;
}

template <typename T> T load(const char *at) {
    T value;
    memcpy(&value, at, sizeof value);
    return value;
}

template <typename T> void store(char *at, T value) {
    memcpy(at, &value, sizeof value);
}

template <typename T> Json integer_to_json(const char *at, T missing) {
    const T value = load<T>(at);
    return value == missing ? Json(nullptr) : Json(value);
}

bool is_printable(char c) {
    return c >= 0x20 && c < 0x7F;
}

Json char_to_json(char c) {
    return is_printable(c) ? Json(std::string(1, c)) : Json(static_cast<int>(static_cast<BYTE>(c)));
}

} // namespace

Json scalar_to_json(NETDSD_field_type type, const char *at) {
    constexpr int32_t k_missing = 0x55555555;
    switch (type) {
    case NETDSD_FT_BOOL:
        return load<BOOL>(at) != 0;
    case NETDSD_FT_CHAR:
        return char_to_json(*at);
    case NETDSD_FT_BYTE:
        return load<BYTE>(at);
    case NETDSD_FT_SHORT:
        return load<int16_t>(at);
    case NETDSD_FT_USHORT:
        return load<uint16_t>(at);
    case NETDSD_FT_INT:
    case NETDSD_FT_LONG:
        return integer_to_json<int32_t>(at, k_missing);
    case NETDSD_FT_UINT:
    case NETDSD_FT_ULONG:
        return integer_to_json<uint32_t>(at, static_cast<uint32_t>(k_missing));
    case NETDSD_FT_SIZET:
        return integer_to_json<uint32_t>(at, 0xFFFFFFFFu);
    case NETDSD_FT_TIME:
        return integer_to_json<int32_t>(at, -1);
    case NETDSD_FT_FTIME:
        return real_to_json(load<double>(at), -1.0);
    case NETDSD_FT_DOUBLE:
        return real_to_json(load<double>(at), MVC);
    case NETDSD_FT_FLOAT:
        return real_to_json(static_cast<double>(load<float>(at)),
                            std::numeric_limits<double>::quiet_NaN());
    default:
        return nullptr;
    }
}

// JSON texts are UTF-8; a byte that is not is shown by its place in Latin-1, and read back so.
std::string to_utf8(const char *text, size_t size) {
    std::string result;
    for (size_t i = 0; i < size; ++i) {
        const auto byte = static_cast<BYTE>(text[i]);
        if (byte < 0x80) {
            result.push_back(text[i]);
        } else {
            result.push_back(static_cast<char>(0xC0 | byte >> 6));
            result.push_back(static_cast<char>(0x80 | (byte & 0x3F)));
        }
    }
    return result;
}

namespace {

std::string from_utf8(const std::string &text) {
    std::string result;
    for (size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<BYTE>(text[i]);
        if (byte >= 0xC2 && byte <= 0xC3 && i + 1 < text.size())
            result.push_back(
                static_cast<char>((byte & 0x03) << 6 | (static_cast<BYTE>(text[++i]) & 0x3F)));
        else
            result.push_back(text[i]);
    }
    return result;
}

} // namespace

Json char_array_to_json(const char *at, size_t count) {
    size_t length = count;
    while (length > 0 && at[length - 1] == '\0')
        --length;
    for (size_t i = 0; i < length; ++i)
        if (!is_printable(at[i])) {
            Json list = Json::array();
            for (size_t k = 0; k < length; ++k)
                list.push_back(static_cast<BYTE>(at[k]));
            return list;
        }
    return std::string(at, length);
}

namespace {

Json bytes_to_json(const char *at, size_t size) {
    Json list = Json::array();
    for (size_t i = 0; i < size; ++i)
        list.push_back(static_cast<BYTE>(at[i]));
    return list;
}

Json nested_to_json(const NETDSD_field &field, const char *at) {
    const NETDSD_entry *nested = NETPACK_find_ds(field.type_name);
    if (nested == nullptr || nested->total_size != field.size)
        return bytes_to_json(at, field.size * field.count);
    if (field.count == 1)
        return to_json(*nested, at);
    Json list = Json::array();
    for (size_t i = 0; i < field.count; ++i)
        list.push_back(to_json(*nested, at + i * field.size));
    return list;
}

Json field_to_json(const NETDSD_field &field, const char *at) {
    if (field.ft == NETDSD_FT_STRING)
        return to_utf8(at, strnlen(at, field.count));
    if (field.ft == NETDSD_FT_BIN)
        return nested_to_json(field, at);
    if (field.ft == NETDSD_FT_A_CHAR)
        return char_array_to_json(at, field.count);
    if (!is_array(field.ft))
        return scalar_to_json(field.ft, at);
    Json list = Json::array();
    for (size_t i = 0; i < field.count; ++i)
        list.push_back(scalar_to_json(scalar_of(field.ft), at + i * field.size));
    return list;
}

// ---- the way back

bool set_value(const NETDSD_field &field, char *at, const Json &value, std::string &error);

template <typename T>
bool store_integer(char *at, const Json &value, T missing, std::string &error) {
    if (value.is_null()) {
        store(at, missing);
        return true;
    }
    if (value.is_boolean()) {
        store(at, static_cast<T>(value.get<bool>()));
        return true;
    }
    if (!value.is_number_integer()) {
        error = "wants a whole number, not " + value.dump();
        return false;
    }
    // Every type here fits a signed 64-bit value; an unsigned one beyond that is out of range
    // anyway.
    const bool huge = value.is_number_unsigned() && value.get<uint64_t>() > INT64_MAX;
    const int64_t number = huge ? INT64_MAX : value.get<int64_t>();
    if (number < static_cast<int64_t>(std::numeric_limits<T>::min()) ||
        number > static_cast<int64_t>(std::numeric_limits<T>::max())) {
        error = value.dump() + " is outside " + std::to_string(std::numeric_limits<T>::min()) +
                " to " + std::to_string(std::numeric_limits<T>::max());
        return false;
    }
    store(at, static_cast<T>(number));
    return true;
}

template <typename T>
bool store_real(char *at, const Json &value, double missing, std::string &error) {
    double number = missing;
    if (value == "NaN")
        number = std::numeric_limits<double>::quiet_NaN();
    else if (value == "Infinity")
        number = std::numeric_limits<double>::infinity();
    else if (value == "-Infinity")
        number = -std::numeric_limits<double>::infinity();
    else if (value.is_number())
        number = value.get<double>();
    else if (!value.is_null()) {
        error = "wants a number, not " + value.dump();
        return false;
    }
    store(at, static_cast<T>(number));
    return true;
}

bool store_char(char *at, const Json &value, std::string &error) {
    if (!value.is_string())
        return store_integer<BYTE>(at, value, 0, error);
    const std::string text = value.get<std::string>();
    if (text.size() > 1) {
        error = "wants one character, not " + value.dump();
        return false;
    }
    *at = text.empty() ? '\0' : text[0];
    return true;
}

bool store_scalar(NETDSD_field_type type, char *at, const Json &value, std::string &error) {
    switch (type) {
    case NETDSD_FT_CHAR:
        return store_char(at, value, error);
    case NETDSD_FT_BOOL:
    case NETDSD_FT_BYTE:
        return store_integer<BYTE>(at, value, 0, error);
    case NETDSD_FT_SHORT:
        return store_integer<int16_t>(at, value, 0, error);
    case NETDSD_FT_USHORT:
        return store_integer<uint16_t>(at, value, 0, error);
    case NETDSD_FT_INT:
    case NETDSD_FT_LONG:
        return store_integer<int32_t>(at, value, 0x55555555, error);
    case NETDSD_FT_UINT:
    case NETDSD_FT_ULONG:
        return store_integer<uint32_t>(at, value, 0x55555555u, error);
    case NETDSD_FT_SIZET:
        return store_integer<uint32_t>(at, value, 0xFFFFFFFFu, error);
    case NETDSD_FT_TIME:
        return store_integer<int32_t>(at, value, -1, error);
    case NETDSD_FT_FTIME:
        return store_real<double>(at, value, -1.0, error);
    case NETDSD_FT_DOUBLE:
        return store_real<double>(at, value, MVC, error);
    case NETDSD_FT_FLOAT:
        return store_real<float>(at, value, 0.0, error);
    default:
        error = "cannot be set";
        return false;
    }
}

bool store_text(char *at, size_t capacity, const std::string &text, std::string &error) {
    if (text.size() > capacity) {
        error = "holds at most " + std::to_string(capacity) + " characters";
        return false;
    }
    memset(at, 0, capacity);
    text.copy(at, text.size());
    return true;
}

// One element of an array field, as a field of its own.
NETDSD_field element_of(const NETDSD_field &field) {
    NETDSD_field element = field;
    element.ft = scalar_of(field.ft);
    element.count = 1;
    return element;
}

bool set_list(const NETDSD_field &field, char *at, const Json &list, std::string &error) {
    if (list.size() > field.count) {
        error = "holds at most " + std::to_string(field.count) + " elements";
        return false;
    }
    for (size_t i = 0; i < list.size(); ++i)
        if (!set_value(element_of(field), at + i * field.size, list[i], error)) {
            error = "element " + std::to_string(i) + ": " + error;
            return false;
        }
    return true;
}

bool set_nested(const NETDSD_field &field, char *at, const Json &value, std::string &error) {
    const NETDSD_entry *nested = NETPACK_find_ds(field.type_name);
    if (nested == nullptr || nested->total_size != field.size) {
        NETDSD_field raw = field;
        raw.ft = NETDSD_FT_A_BYTE;
        raw.count = field.size * field.count;
        raw.size = 1;
        return value.is_array() ? set_list(raw, at, value, error)
                                : (error = "wants a list of bytes", false);
    }
    return from_json(*nested, at, value, error);
}

bool set_value(const NETDSD_field &field, char *at, const Json &value, std::string &error) {
    const bool textual = field.ft == NETDSD_FT_STRING || field.ft == NETDSD_FT_A_CHAR;
    if (textual && value.is_string())
        return store_text(at, field.ft == NETDSD_FT_STRING ? field.count - 1 : field.count,
                          from_utf8(value.get<std::string>()), error);
    if (field.ft == NETDSD_FT_STRING) {
        error = "wants a text, not " + value.dump();
        return false;
    }
    if (field.count > 1 && value.is_array()) {
        if (field.ft == NETDSD_FT_A_CHAR)
            memset(at, 0, field.count);
        return set_list(field, at, value, error);
    }
    if (field.ft == NETDSD_FT_BIN && field.count == 1)
        return set_nested(field, at, value, error);
    if (field.count > 1 || (is_array(field.ft) && !value.is_array())) {
        error = "wants a list, not " + value.dump();
        return false;
    }
    if (is_array(field.ft))
        return set_list(field, at, value, error);
    return store_scalar(field.ft, at, value, error);
}

const NETDSD_field *find_field(const NETDSD_entry &description, const std::string &name) {
    for (size_t i = 0; i < description.count_fields; ++i)
        if (name == description.fields[i].name)
            return &description.fields[i];
    return nullptr;
}

std::string no_such_field(const NETDSD_entry &description, const std::string &name) {
    std::string text = std::string(description.name) + " has no field \"" + name + "\"; it has";
    for (size_t i = 0; i < description.count_fields; ++i)
        text += std::string(i == 0 ? " " : ", ") + description.fields[i].name;
    return text;
}

std::string cut_component(std::string &path) {
    const size_t dot = path.find('.');
    std::string head = path.substr(0, dot);
    path = dot == std::string::npos ? "" : path.substr(dot + 1);
    return head;
}

// What the right side of an assignment says: as JSON, and as it stands.
struct Given {
    Json value;
    std::string text;

    // A text field takes digits as they stand: name=12 is the text "12".
    Json for_field(const NETDSD_field &field) const {
        const bool textual = field.ft == NETDSD_FT_STRING || field.ft == NETDSD_FT_A_CHAR ||
                             (field.ft == NETDSD_FT_CHAR && text.size() == 1);
        return textual && value.is_primitive() && !value.is_string() ? Json(text) : value;
    }
};

bool set_path(const NETDSD_entry &description, char *record, std::string path, const Given &given,
              std::string &error) {
    const std::string name = cut_component(path);
    const NETDSD_field *found = find_field(description, name);
    if (found == nullptr) {
        error = no_such_field(description, name);
        return false;
    }
    NETDSD_field field = *found;
    char *at = record + field.offset;
    const bool has_elements = is_array(field.ft) || (field.ft == NETDSD_FT_BIN && field.count > 1);
    if (!path.empty() && has_elements) {
        const std::string index = cut_component(path);
        char *end;
        const unsigned long i = strtoul(index.c_str(), &end, 10);
        if (index.empty() || *end != '\0' || i >= field.count) {
            error = name + " has the elements 0 to " + std::to_string(field.count - 1) +
                    ", not \"" + index + "\"";
            return false;
        }
        at += i * field.size;
        field = element_of(field);
    }
    if (path.empty()) {
        if (set_value(field, at, given.for_field(field), error))
            return true;
        error = name + ": " + error;
        return false;
    }
    const NETDSD_entry *nested =
        field.ft == NETDSD_FT_BIN ? NETPACK_find_ds(field.type_name) : nullptr;
    if (nested == nullptr) {
        error = name + " has nothing below it";
        return false;
    }
    return set_path(*nested, at, path, given, error);
}

} // namespace

Json real_to_json(double value, double missing) {
    if (value == missing)
        return nullptr;
    if (std::isnan(value))
        return "NaN";
    if (std::isinf(value))
        return value > 0 ? "Infinity" : "-Infinity";
    return value;
}

Json to_json(const NETDSD_entry &description, const void *record) {
    Json object = Json::object();
    for (size_t i = 0; i < description.count_fields; ++i) {
        const NETDSD_field &field = description.fields[i];
        object[field.name] = field_to_json(field, static_cast<const char *>(record) + field.offset);
    }
    return object;
}

bool from_json(const NETDSD_entry &description, void *record, const Json &value,
               std::string &error) {
    if (!value.is_object()) {
        error = std::string(description.name) + " wants an object, not " + value.dump();
        return false;
    }
    for (const auto &[name, member] : value.items()) {
        const NETDSD_field *field = find_field(description, name);
        if (field == nullptr) {
            error = no_such_field(description, name);
            return false;
        }
        if (!set_value(*field, static_cast<char *>(record) + field->offset, member, error)) {
            error = name + ": " + error;
            return false;
        }
    }
    return true;
}

bool set_field(const NETDSD_entry &description, void *record, const std::string &assignment,
               std::string &error) {
    const size_t equals = assignment.find('=');
    if (equals == std::string::npos || equals == 0) {
        error = "\"" + assignment + "\" is not of the form name=value";
        return false;
    }
    Given given = {nullptr, assignment.substr(equals + 1)};
    given.value = Json::parse(given.text, nullptr, false);
    if (given.value.is_discarded())
        given.value = given.text;
    return set_path(description, static_cast<char *>(record), assignment.substr(0, equals), given,
                    error);
}

} // namespace zebctl

#include "record_text.h"

#include <cstdio>

#include "text.h"

namespace zebctl {
namespace {

bool is_time(const NETDSD_field &field) {
    return field.ft == NETDSD_FT_TIME || field.ft == NETDSD_FT_FTIME ||
           field.ft == NETDSD_FT_A_TIME || field.ft == NETDSD_FT_A_FTIME;
}

// Says nothing: missing, empty, or what a zeroed record holds.
bool is_blank(const Json &value) {
    if (value.is_array() || value.is_object()) {
        for (const Json &each : value)
            if (!is_blank(each))
                return false;
        return true;
    }
    return value.is_null() || value == "" || value == 0 || value == false || value == 0.0;
}

std::string value_text(const NETDSD_field &field, const Json &value);

std::string object_text(const NETDSD_entry *description, const Json &object) {
    std::string text;
    for (const auto &[name, value] : fields_for_people(description, object))
        text += (text.empty() ? "" : " ") + name + "=" + value;
    return "{" + text + "}";
}

std::string list_text(const NETDSD_field &field, const Json &list) {
    size_t used = list.size();
    while (used > 0 && is_blank(list[used - 1]))
        --used;
    std::string text;
    for (size_t i = 0; i < used; ++i)
        text += (i == 0 ? "" : ",") + value_text(field, list[i]);
    return "[" + text + "]";
}

std::string value_text(const NETDSD_field &field, const Json &value) {
    if (value.is_array())
        return list_text(field, value);
    if (value.is_object())
        return object_text(NETPACK_find_ds(field.type_name), value);
    if (is_time(field) && value.is_number())
        return iso_time(value.get<double>());
    return value_for_people(value);
}

bool says_something(const Json &value) {
    if (value.is_array())
        return !is_blank(value);
    return !value.is_null() && value != "";
}

} // namespace

std::string value_for_people(const Json &value) {
    if (value.is_null())
        return "-";
    if (!value.is_number_float())
        return value.dump(-1, ' ', false, Json::error_handler_t::replace);
    char text[32];
    snprintf(text, sizeof text, "%.9g", value.get<double>());
    return text;
}

std::vector<std::pair<std::string, std::string>> fields_for_people(const NETDSD_entry *description,
                                                                   const Json &record) {
    std::vector<std::pair<std::string, std::string>> fields;
    for (size_t i = 0; description != nullptr && i < description->count_fields; ++i) {
        const NETDSD_field &field = description->fields[i];
        const auto value = record.find(field.name);
        if (value != record.end() && says_something(*value))
            fields.emplace_back(field.name, value_text(field, *value));
    }
    return fields;
}

} // namespace zebctl

#include "station_keys.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

#include <zeb2/serialcom.h>
#include <zeb2/util.h>
#include <zeb2/zebmsg.h>

#include "settings.h"

namespace serverkit {
namespace {

std::string in_lower_case(std::string text) {
    for (char &c : text)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return text;
}

// The fields of a list, without the blanks around them.
Names fields_of(const std::string &value, const char *separators) {
    Names fields;
    std::string field(value.size() + 1, '\0');
    for (int i = 0; UTIL_stringfield(value.c_str(), separators, i, field.data(), field.size());
         ++i) {
        UTIL_strip_lead_trail_space(field.data());
        fields.emplace_back(field.c_str());
    }
    return fields;
}

} // namespace

std::optional<std::string> fault_of_tags(const std::string &value) {
    const NET_SERVER_InstrumentInfo info = {};
    const Names tags = fields_of(value, ";");
    bool good = tags.size() <= std::size(info.tags);
    for (const std::string &tag : tags)
        good = good && tag.size() < sizeof info.tags[0].tag;
    if (good)
        return std::nullopt;
    return "up to " + std::to_string(std::size(info.tags)) + " tags of at most " +
           std::to_string(sizeof info.tags[0].tag - 1) + " characters";
}

// The library takes all that begins with "t" or is a number for true, and all else for false: "yes"
// as well as "on".
std::optional<std::string> fault_of_truth(const std::string &value) {
    for (const char *word : {"true", "false", "1", "0"})
        if (same_name(value, word))
            return std::nullopt;
    return "true or false";
}

// Read another way: "TRUE" is off, "False" is on.
std::optional<std::string> fault_of_logging(const std::string &value) {
    for (const char *word : {"true", "false", "1", "0"})
        if (value == word)
            return std::nullopt;
    return "1 or 0";
}

std::optional<std::string> fault_of_duration(const std::string &value) {
    if (parse_interval(value))
        return std::nullopt;
    return "a time such as 90, 1:30 or 1:00:00";
}

std::optional<std::string> fault_of_polynomial(const std::string &value) {
    for (const std::string &field : fields_of(value, ",;:"))
        if (!parse_number(field))
            return "a list of numbers, between \";\"";
    return std::nullopt;
}

std::optional<std::string> fault_of_port(const std::string &value) {
    SERIALD_connect_params line;
    SERIALD_port_params settings = {};
    if (SERIALCOM_breakdown_port_string(value.c_str(), &line, &settings))
        return std::nullopt;
    return "a port: a name such as =gps, or a device such as ttyS0:4800n81";
}

Default general_host(const Settings &settings) {
    return {settings.usable("RemoteHost")};
}

Default general_spinup(const Settings &settings) {
    return {settings.usable("Global;SpinupTime")};
}

Default log_directory(const Settings &settings) {
    constexpr size_t k_longest_code = 31;
    const char *const above = getenv("DB");
    const std::string station = settings.usable("Disk;StationID").substr(0, k_longest_code);
    return {(above != nullptr ? above : "/oru/db") + ("/stn/" + in_lower_case(station)) + "/log",
            above != nullptr ? "DB" : nullptr};
}

// The instruments of the first line, A11 and its like, are those that a bypass concerns.
Default averages_on_bypass(const Settings &settings) {
    const std::string name = settings.usable(settings.own("fil;name"));
    const bool is_first_line = name.size() > 2 && name[name.size() - 2] == '1' &&
                               isdigit(static_cast<unsigned char>(name.back())) != 0;
    return {is_first_line ? "false" : "true"};
}

Default ignores_flush(const Settings &settings) {
    return {settings.usable(settings.own("AverageOnBypass"))};
}

} // namespace serverkit

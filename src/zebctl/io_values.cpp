#include "io_values.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <iterator>

#include <zeb2/util.h>

#include "record_text.h"

namespace zebctl {
namespace {

std::vector<IoEvent> real_events(const char *what, const Json &record) {
    constexpr size_t k_room = std::size(NET_IO_MultiReal{}.chans);
    std::vector<IoEvent> events;
    const size_t used = std::min(record["n"].is_null() ? 0 : record["n"].get<size_t>(), k_room);
    const FTIME time = record["curtime"].is_number() ? record["curtime"].get<double>() : -1.0;
    for (size_t i = 0; i < used; ++i)
        if (const Json &channel = record["chans"][i]; channel["name"] != "")
            events.push_back({what, channel["name"], channel["val"], time});
    return events;
}

template <typename Record>
std::vector<IoEvent> digital_events(const char *what, const Record &record, DWORD mask) {
    std::vector<IoEvent> events;
    for (size_t i = 0; i < std::size(record.info); ++i) {
        const std::string name(record.info[i].name,
                               strnlen(record.info[i].name, sizeof record.info[i].name));
        if (!name.empty() && (mask >> i & 1U) != 0)
            events.push_back({what, name, (record.val >> i & 1U) != 0, -1.0});
    }
    return events;
}

IoVariable variable_of(const IO_var_real &real) {
    return {real.name,
            real.clname,
            false,
            real_to_json(real.val),
            real_to_json(real.avg),
            real_to_json(real.runningavg)};
}

IoVariable variable_of(const IO_var_digital &digital) {
    return {digital.name, digital.clname, true, digital.val != FALSE, nullptr, nullptr};
}

template <typename Var> void append(std::vector<IoVariable> &all, const LL_TYPE &list) {
    for (const LL_NODE *node = list.head; node != nullptr; node = node->next)
        all.push_back(variable_of(*static_cast<const Var *>(node->data)));
}

std::vector<IoVariable> all_io() {
    std::vector<IoVariable> all;
    append<IO_var_real>(all, g_io_real);
    append<IO_var_digital>(all, g_io_digital);
    return all;
}

std::string lowered(std::string text) {
    for (char &c : text)
        c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return text;
}

} // namespace

std::vector<IoEvent> io_events(const ZEBMSG_proc_msg &message) {
    if (message.msg == nullptr || message.dsd == nullptr || message.pds == nullptr)
        return {};
    switch (message.msg->msg) {
    case MSG_IO_INSTANT:
        return real_events("value", to_json(*message.dsd, message.pds));
    case MSG_IO_AVG:
        return real_events("average", to_json(*message.dsd, message.pds));
    case MSG_IO_RUNNINGAVG:
        return real_events("running", to_json(*message.dsd, message.pds));
    case MSG_IO_STATE_DIGITAL:
        return digital_events("state", *static_cast<const NET_IO_DigitalIn *>(message.pds),
                              ~DWORD{0});
    case MSG_IO_SET_DIGITAL: {
        const auto &record = *static_cast<const NET_IO_DigitalOut *>(message.pds);
        return digital_events("set", record, record.mask);
    }
    case MSG_IO_SET_REAL: {
        const Json record = to_json(*message.dsd, message.pds);
        return {{"set", record["name"], record["val"], -1.0}};
    }
    default:
        return {};
    }
}

std::vector<IoVariable> published_io() {
    std::vector<IoVariable> all = all_io();
    std::erase_if(all, [](const IoVariable &variable) { return variable.from.empty(); });
    return all;
}

std::optional<IoVariable> find_io(const std::string &name) {
    for (const IoVariable &variable : all_io())
        if (same_io_name(variable.name, name))
            return variable;
    return std::nullopt;
}

std::string io_text(const Json &value) {
    return value.is_string() ? value.get<std::string>() : value_for_people(value);
}

std::optional<IoRequest> parse_io_request(const std::string &text) {
    const std::string word = lowered(text);
    if (word == "true" || word == "on")
        return IoRequest{true, 0, true};
    if (word == "false" || word == "off")
        return IoRequest{true, 0, false};
    char *end;
    const double value = strtod(text.c_str(), &end);
    if (text.empty() || isspace(static_cast<unsigned char>(text[0])) || *end != '\0' ||
        !std::isfinite(value))
        return std::nullopt;
    return IoRequest{false, value, false};
}

bool same_io_name(const std::string &a, const std::string &b) {
    return UTIL_strcasecmp(a.c_str(), b.c_str()) == 0;
}

bool matches_io_name(const std::string &pattern, const std::string &name) {
    return UTIL_wildcard_match(lowered(name).c_str(), lowered(pattern).c_str());
}

} // namespace zebctl

#include "status.h"

#include <nlohmann/json.hpp>

namespace zebmsgd {
namespace {

using Json = nlohmann::ordered_json;

Json traffic_json(const Traffic &traffic) {
    return {{"messages_in", traffic.messages_in},   {"bytes_in", traffic.bytes_in},
            {"messages_out", traffic.messages_out}, {"bytes_out", traffic.bytes_out},
            {"filtered", traffic.filtered},         {"dropped", traffic.dropped}};
}

// Only what the filter looks at.
Json filter_json(const Filter &filter) {
    Json json = {{"uid", filter.uid}, {"accept", filter.accept}};
    if (filter.type >= 0)
        json["type"] = filter.type;
    const std::pair<const char *, const std::string &> patterns[] = {
        {"source", filter.source},
        {"destination", filter.destination},
        {"instrument_type", filter.instrument_type},
        {"tag", filter.tag},
        {"metatype", filter.metatype}};
    for (const auto &[name, pattern] : patterns)
        if (!pattern.empty())
            json[name] = pattern;
    return json;
}

Json instrument_json(const Announcement &announced) {
    if (!announced.made)
        return nullptr;
    return {{"type", announced.type},
            {"display_name", announced.display_name},
            {"id", announced.id},
            {"tags", announced.tags}};
}

Json client_json(const Client &client, double now) {
    Json json = {{"name", client.name},
                 {"origin", client.origin},
                 {"open", client.open},
                 {"connected_seconds", now - client.connected},
                 {"queue_bytes", client.out.bytes()},
                 {"queue_messages", client.out.frames()},
                 {"retained", client.retained},
                 {"retained_bytes", client.retained_bytes},
                 {"garbage_bytes", client.in.garbage()}};
    json.update(traffic_json(client.traffic));
    json["instrument"] = instrument_json(client.announced);
    json["filters"] = Json::array();
    for (const Filter &filter : client.filters.all())
        json["filters"].push_back(filter_json(filter));
    return json;
}

} // namespace

std::string status_document(const Totals &totals, const std::vector<const Client *> &clients,
                            double now) {
    Traffic all = totals.gone;
    Json list = Json::array();
    for (const Client *client : clients) {
        all.add(client->traffic);
        list.push_back(client_json(*client, now));
    }
    Json json = {{"server", "zebmsgd"},
                 {"version", totals.version},
                 {"uptime_seconds", totals.uptime},
                 {"heartbeat", totals.heartbeat},
                 {"connections", totals.connections},
                 {"refused", totals.refused},
                 {"cut_off", totals.cut_off},
                 {"failed_accepts", totals.failed_accepts},
                 {"retained", totals.retained}};
    json.update(traffic_json(all));
    json["clients"] = std::move(list);
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

} // namespace zebmsgd

#include "status.h"

#include <nlohmann/json.hpp>

namespace zebmsgd {
namespace {

// Written as it goes. A tree of JSON values takes memory even when it is taken down, where the lack
// of it would end the server.
class Document {
  public:
    void open(char bracket) {
        text_ += bracket;
        ++depth_;
        is_empty_ = true;
    }
    void close(char bracket) {
        --depth_;
        if (!is_empty_)
            new_line();
        text_ += bracket;
        is_empty_ = false;
    }
    void item() {
        if (!is_empty_)
            text_ += ',';
        is_empty_ = false;
        new_line();
    }
    void key(const char *name) {
        item();
        text_ += std::string("\"") + name + "\": ";
    }
    template <typename Value> void value(const Value &value) {
        using Json = nlohmann::json;
        text_ += Json(value).dump(-1, ' ', false, Json::error_handler_t::replace);
    }
    template <typename Value> void member(const char *name, const Value &one) {
        key(name);
        value(one);
    }
    template <typename Items, typename Put>
    void list(const char *name, const Items &items, const Put &put) {
        key(name);
        open('[');
        for (const auto &each : items) {
            item();
            put(each);
        }
        close(']');
    }
    std::string finish() { return std::move(text_) + "\n"; }

  private:
    void new_line() { text_ += "\n" + std::string(2 * depth_, ' '); }
    std::string text_;
    size_t depth_ = 0;
    bool is_empty_ = true; // what was opened last
};

void put_traffic(Document &out, const Traffic &traffic) {
    out.member("messages_in", traffic.messages_in);
    out.member("bytes_in", traffic.bytes_in);
    out.member("messages_out", traffic.messages_out);
    out.member("bytes_out", traffic.bytes_out);
    out.member("filtered", traffic.filtered);
    out.member("dropped", traffic.dropped);
}

// Only what the filter looks at.
void put_filter(Document &out, const Filter &filter) {
    out.open('{');
    out.member("uid", filter.uid);
    out.member("accept", filter.accept);
    if (filter.type >= 0)
        out.member("type", filter.type);
    const std::pair<const char *, const std::string &> patterns[] = {
        {"source", filter.source},
        {"destination", filter.destination},
        {"instrument_type", filter.instrument_type},
        {"tag", filter.tag},
        {"metatype", filter.metatype}};
    for (const auto &[name, pattern] : patterns)
        if (!pattern.empty())
            out.member(name, pattern);
    out.close('}');
}

void put_instrument(Document &out, const Announcement &announced) {
    if (!announced.made)
        return out.value(nullptr);
    out.open('{');
    out.member("type", announced.type);
    out.member("display_name", announced.display_name);
    out.member("id", announced.id);
    out.list("tags", announced.tags, [&](const std::string &tag) { out.value(tag); });
    out.close('}');
}

void put_client(Document &out, const Client &client, double now) {
    out.open('{');
    out.member("name", client.name);
    out.member("origin", client.origin);
    out.member("open", client.open);
    out.member("connected_seconds", now - client.connected);
    out.member("queue_bytes", client.out.bytes());
    out.member("queue_messages", client.out.frames());
    out.member("retained", client.retained);
    out.member("retained_bytes", client.retained_bytes);
    out.member("garbage_bytes", client.in.garbage());
    put_traffic(out, client.traffic);
    out.key("instrument");
    put_instrument(out, client.announced);
    out.list("filters", client.filters.all(),
             [&](const Filter &filter) { put_filter(out, filter); });
    out.close('}');
}

} // namespace

std::string status_document(const Totals &totals, const std::vector<const Client *> &clients,
                            double now) {
    Traffic all = totals.gone;
    for (const Client *client : clients)
        all.add(client->traffic);
    Document out;
    out.open('{');
    out.member("server", "zebmsgd");
    out.member("version", totals.version);
    out.member("uptime_seconds", totals.uptime);
    out.member("heartbeat", totals.heartbeat);
    out.member("connections", totals.connections);
    out.member("refused", totals.refused);
    out.member("cut_off", totals.cut_off);
    out.member("failed_accepts", totals.failed_accepts);
    out.member("retained", totals.retained);
    put_traffic(out, all);
    out.list("clients", clients, [&](const Client *client) { put_client(out, *client, now); });
    out.close('}');
    return out.finish();
}

} // namespace zebmsgd

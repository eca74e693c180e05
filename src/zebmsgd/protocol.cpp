#include "protocol.h"

#include "records.h"
#include "serverkit/report.h"

namespace zebmsgd {
namespace {

using serverkit::printable;
using serverkit::report;

// Far above the server's own records; the library reports each field that it does not know, so a
// longer package would fill the log.
constexpr size_t k_longest_own_message = 4096;

constexpr std::string_view k_handshake = "MSG_SERVER_CLIENTHANDSHAKE";

} // namespace

const Protocol::Row Protocol::k_rows[] = {
    {"MSG_SERVER_HEARTBEAT", &Protocol::on_echo},
    {"MSG_SERVER_INSTRUMENTINFO", &Protocol::on_announcement},
    {"MSG_NOTIFY_CLIENT_CONNECT", &Protocol::on_connected},
    {"NET_SERVER_ADDFILTER", &Protocol::on_add_filter},
    {"NET_SERVER_DELETFILTER", &Protocol::on_delete_filter},
    {"MSG_SERVER_TERMINATE", &Protocol::on_terminate},
    {k_handshake, &Protocol::on_handshake},
    {"MSG_SERVER_SERVERHANDSHAKE", &Protocol::on_not_for_clients},
    {"MSG_NOTIFY_CLIENT_TERMINATE", &Protocol::on_not_for_clients},
};

void Protocol::receive(Peer &from, std::string_view payload, double now) {
    ++from.traffic.messages_in;
    const auto message = parse_message(payload);
    if (!from.open) {
        if (message && message->name == k_handshake)
            handshake(from, payload, now);
        else
            router_.doom(from, "it did not begin with its handshake");
        return;
    }
    if (!message || message->destination.size() > k_longest_name ||
        message->destination.find('\0') != std::string_view::npos) {
        router_.drop(from, "a message is malformed");
        return;
    }
    for (const Row &row : k_rows)
        if (row.name == message->name)
            return (this->*row.handler)(from, *message, payload, now);
    router_.route(from, *message);
}

void Protocol::take_name_over(const std::string &name) {
    Peer *older = router_.find(name);
    if (older == nullptr)
        return;
    router_.send(*older, make_terminate());
    router_.doom(*older, "its name was taken over by a newer connection");
    // At once, so that the others hear of the old client's end before they hear of the new one.
    router_.leave(*older);
    router_.touch(*older);
}

void Protocol::handshake(Peer &from, std::string_view payload, double now) {
    const auto name =
        payload.size() <= k_longest_own_message ? read_handshake(payload) : std::nullopt;
    if (!name) {
        router_.doom(from, "its handshake cannot be read");
        return;
    }
    if (router_.peers().size() >= limits_.clients && router_.find(*name) == nullptr) {
        router_.doom(from, "too many clients are connected");
        return;
    }
    take_name_over(*name);
    from.name = *name;
    from.last_echo = now;
    router_.join(from);
    router_.send(from, make_server_handshake(heartbeat_));
    if (verbose)
        report("client \"%s\" connected", printable(from.name).c_str());
}

void Protocol::beat(double now) {
    router_.send_all(make_heartbeat(++heartbeat_));
    for (Peer *peer : router_.peers())
        if (peer->unanswered_since == 0)
            peer->unanswered_since = now;
}

void Protocol::on_handshake(Peer &from, const Message &, std::string_view, double) {
    router_.drop(from, "sent a second handshake");
}

void Protocol::on_echo(Peer &from, const Message &, std::string_view, double now) {
    from.last_echo = now;
    from.unanswered_since = 0;
}

void Protocol::on_terminate(Peer &from, const Message &, std::string_view, double) {
    router_.doom(from, "it said goodbye", false);
}

void Protocol::on_not_for_clients(Peer &from, const Message &, std::string_view, double) {
    router_.drop(from, "sent a message that only the server sends");
}

void Protocol::on_announcement(Peer &from, const Message &message, std::string_view payload,
                               double) {
    if (payload.size() <= k_longest_own_message)
        if (auto announced = read_announcement(payload))
            from.announced = std::move(*announced);
    router_.route(from, message);
}

void Protocol::on_connected(Peer &from, const Message &message, std::string_view, double) {
    if ((message.flags & (k_flag_publish | k_flag_retain)) != 0 || !message.destination.empty())
        router_.route(from, message);
    router_.begin_replay(from);
}

void Protocol::on_add_filter(Peer &from, const Message &, std::string_view payload, double) {
    if (from.filters.size() >= limits_.filters)
        return router_.drop(from, "has too many filters");
    const auto record =
        payload.size() <= k_longest_own_message ? read_filter_add(payload) : std::nullopt;
    if (record)
        from.filters.add(Filter::of_record(*record));
    else
        router_.drop(from, "a filter cannot be read");
}

void Protocol::on_delete_filter(Peer &from, const Message &, std::string_view payload, double) {
    const auto record =
        payload.size() <= k_longest_own_message ? read_filter_delete(payload) : std::nullopt;
    if (!record)
        router_.drop(from, "a filter deletion cannot be read");
    else if (record->all != FALSE)
        from.filters.clear();
    else
        from.filters.remove(record->uid);
}

} // namespace zebmsgd

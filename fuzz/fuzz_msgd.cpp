// The message server's insides under several clients that send what they like, in any pieces, and
// read when they like.
#include "packages.h"
#include "serverkit/inbuffer.h"
#include "zebmsgd/protocol.h"

#include <set>

namespace {

using namespace fuzz;
using namespace zebmsgd;

constexpr size_t k_clients = 4;
constexpr const char *k_names[] = {"a", "b", "B", ""};
constexpr const char *k_messages[] = {"MSG_SERVER_CLIENTHANDSHAKE",
                                      "MSG_SERVER_HEARTBEAT",
                                      "MSG_SERVER_INSTRUMENTINFO",
                                      "MSG_NOTIFY_CLIENT_CONNECT",
                                      "NET_SERVER_ADDFILTER",
                                      "NET_SERVER_DELETFILTER",
                                      "MSG_SERVER_TERMINATE",
                                      "MSG_SERVER_SERVERHANDSHAKE",
                                      "MSG_GPS_INSTANT",
                                      "MSG_FLOW_STATUS",
                                      "MSG_UNKNOWN_1",
                                      "MSG_UNKNOWN_2"};
// Small, so that an input reaches them.
constexpr Limits k_limits = {
    .clients = 3, .queue_bytes = 2048, .filters = 3, .retained = 3, .retained_bytes = 512};

struct Connection {
    Peer peer{k_limits.queue_bytes};
    serverkit::InBuffer in;
};

class Station {
  public:
    explicit Station(Input &input) : input_(input) {
        for (auto &connection : connections_)
            connection = std::make_unique<Connection>();
        router_.relieve = [this](Peer &peer) {
            if (input_.byte() % 2 == 0)
                read_one(peer);
        };
    }
    ~Station() {
        for (auto &connection : connections_)
            let_go(*connection);
    }

    void run() {
        while (!input_.empty()) {
            step(input_.byte());
            settle();
            check();
        }
    }

  private:
    void step(uint8_t op) {
        auto &connection = connections_[op % k_clients];
        now_ += 1;
        switch (op / k_clients % 8) {
        case 0:
            return give(*connection, std::string(input_.block()));
        case 1:
            return give_packet(*connection, message("MSG_SERVER_CLIENTHANDSHAKE", 0, "",
                                                    handshake(k_names[input_.below(4)])));
        case 2:
            while (!connection->peer.out.empty())
                read_one(connection->peer);
            return router_.touch(connection->peer);
        case 3:
            router_.doom(connection->peer, "it closed its connection", false);
            return;
        case 4:
            return protocol_.beat(now_);
        default:
            return give_message(*connection);
        }
    }

    void give_message(Connection &connection) {
        const char *name = k_messages[input_.below(std::size(k_messages))];
        const uint32_t flags = input_.byte() % 5;
        const std::string to(input_.byte() % 4 == 0 ? input_.block(34) : k_names[input_.below(4)]);
        const NETMSG_entry *row = NETPACK_find_msg_by_name(name);
        const NETDSD_entry *entry =
            row == nullptr || row->ds_tie == nullptr ? nullptr : NETPACK_find_ds(row->ds_tie);
        std::string record;
        put_text(record, entry == nullptr ? "" : entry->name);
        record +=
            entry == nullptr ? std::string(input_.block(60)) : PackageMaker(input_).make(*entry);
        give_packet(connection, message(name, flags, to, record));
    }

    static std::string message(const char *name, uint32_t flags, std::string_view to,
                               std::string_view record) {
        std::string text;
        put(text, flags);
        put_text(text, name);
        put_text(text, to);
        put_text(text, "");
        return text.append(record);
    }

    static std::string handshake(const char *name) {
        std::string record;
        put_text(record, "NET_SERVER_ClientHandshake");
        put(record, uint8_t{1});
        put_text(record, "NET_SERVER_ClientHandshake");
        put(record, uint16_t{1});
        put_text(record, "name");
        put(record, static_cast<uint16_t>(NETDSD_FT_STRING));
        put_text(record, name);
        return record;
    }

    void give_packet(Connection &connection, std::string_view payload) {
        const Frame frame = Frame::of_payload(payload);
        give(connection, std::string(frame.data(), frame.size()));
    }

    void give(Connection &connection, const std::string &bytes) {
        Peer &peer = connection.peer;
        if (peer.doom != nullptr)
            return;
        Exactly piece(bytes);
        connection.in.accept(piece.view(), [&](std::string_view payload) {
            protocol_.receive(peer, payload, now_);
            return peer.doom == nullptr;
        });
        router_.touch(peer);
    }

    // Each frame is whole and says whom it is from.
    static void read_one(Peer &peer) {
        iovec block;
        if (peer.out.gather(&block, 1) == 0)
            return;
        const std::string_view frame(static_cast<const char *>(block.iov_base), block.iov_len);
        const auto parsed = parse_message(frame.substr(serverkit::k_frame_header));
        MUST(parsed && parsed->source.size() <= k_longest_name);
        peer.out.consume(block.iov_len);
    }

    // As the server does, but for the sockets.
    void settle() {
        while (Peer *peer = router_.take_touched()) {
            if (peer->doom == nullptr && peer->replay_next < peer->replay_end)
                router_.continue_replay(*peer);
            if (peer->doom == nullptr)
                continue;
            for (auto &connection : connections_) {
                if (&connection->peer != peer)
                    continue;
                let_go(*connection);
                connection = std::make_unique<Connection>();
                break;
            }
        }
    }

    void let_go(Connection &connection) {
        router_.leave(connection.peer);
        router_.forget(connection.peer);
    }

    void check() const {
        size_t open = 0, retained = 0;
        for (const auto &connection : connections_) {
            const Peer &peer = connection->peer;
            open += peer.open ? 1 : 0;
            retained += peer.retained;
            MUST(peer.out.load() <= k_limits.queue_bytes);
            MUST(peer.filters.size() <= k_limits.filters);
            MUST(peer.retained <= k_limits.retained);
            MUST(peer.retained_bytes <= k_limits.retained_bytes);
            if (peer.open && !peer.name.empty())
                MUST(router_.find(peer.name) == &peer);
        }
        MUST(open == router_.peers().size() && open <= k_limits.clients);
        MUST(retained == router_.retained());
    }

    Input &input_;
    Router router_{k_limits};
    Protocol protocol_{router_, k_limits};
    std::unique_ptr<Connection> connections_[k_clients];
    double now_ = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Input input(data, size);
    Station(input).run();
    return 0;
}

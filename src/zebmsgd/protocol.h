// protocol.h - what the server makes of a client's messages: the link protocol, then routing.
#pragma once

#include "router.h"

namespace zebmsgd {

class Protocol {
  public:
    Protocol(Router &router, const Limits &limits) : router_(router), limits_(limits) {}

    // One payload from `from`, received at `now` (seconds, monotonic). A client that must go has
    // its `doom` set; nothing more may be given for it.
    void receive(Peer &from, std::string_view payload, double now);

    // Sends every client a heartbeat.
    void beat(double now);
    unsigned heartbeat_index() const { return heartbeat_; }

    // Written for each client that opens or leaves, when asked for.
    bool verbose = false;

  private:
    using Handler = void (Protocol::*)(Peer &, const Message &, std::string_view payload,
                                       double now);
    struct Row {
        std::string_view name;
        Handler handler;
    };
    static const Row k_rows[];

    void handshake(Peer &from, std::string_view payload, double now);
    void take_name_over(const std::string &name);

    void on_handshake(Peer &, const Message &, std::string_view, double);
    void on_echo(Peer &, const Message &, std::string_view, double);
    void on_terminate(Peer &, const Message &, std::string_view, double);
    void on_not_for_clients(Peer &, const Message &, std::string_view, double);
    void on_announcement(Peer &, const Message &, std::string_view, double);
    void on_connected(Peer &, const Message &, std::string_view, double);
    void on_add_filter(Peer &, const Message &, std::string_view, double);
    void on_delete_filter(Peer &, const Message &, std::string_view, double);

    Router &router_;
    Limits limits_;
    unsigned heartbeat_ = 0;
};

} // namespace zebmsgd

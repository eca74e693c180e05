// router.h - who gets what. Knows the clients by what routing needs of them and nothing of sockets.
#pragma once

#include "filters.h"
#include "serverkit/outqueue.h"
#include "wire.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

namespace zebmsgd {

struct Limits {
    size_t clients = 256;
    size_t queue_bytes = 8 * 1024 * 1024;
    size_t filters = 256;
    size_t retained = 1024;
    size_t retained_bytes = 2 * 1024 * 1024;
};

// A client's name is a field of 32 characters with its terminator.
constexpr size_t k_longest_name = 31;

struct Traffic {
    uint64_t messages_in = 0;
    uint64_t bytes_in = 0;
    uint64_t messages_out = 0;
    uint64_t bytes_out = 0;
    uint64_t filtered = 0; // not delivered because of the receiver's filters
    uint64_t dropped = 0;  // from this client and of no use: malformed, undeliverable, over a limit

    void add(const Traffic &more);
};

// A connection as routing sees it. It takes part from join() to leave().
struct Peer {
    explicit Peer(size_t queue_limit) : out(queue_limit) {}

    std::string name; // from the handshake
    bool open = false;
    bool greeted = false; // its own notice of connecting has passed, retained messages follow
    FilterList filters;
    Announcement announced;
    serverkit::OutQueue out;
    Traffic traffic;
    double last_echo = 0;
    double unanswered_since = 0; // when the first heartbeat after the last echo left; 0: none

    bool touched = false;       // waits for Router::take_touched()
    const char *doom = nullptr; // why it must go; null while it may stay
    bool at_fault = false;      // the doom is worth a line even when nobody asked for lines

    size_t retained = 0;
    size_t retained_bytes = 0;
    uint64_t joined_at =
        0; // retained messages with this stamp or a later one came while it was here
    uint64_t replay_next = 0; // retained messages below replay_end are still to be replayed
    uint64_t replay_end = 0;
    std::vector<const char *> reported_drops;
};

class Router {
  public:
    explicit Router(const Limits &limits) : limits_(limits) {}

    // Called before a peer is given up because its queue is full: a chance to empty it.
    std::function<void(Peer &)> relieve;

    void join(Peer &peer);
    // Forgets the peer and what it retained, and tells the others. A peer that never joined just
    // goes.
    void leave(Peer &peer);
    // Before a peer is destroyed: nothing refers to it any more.
    void forget(Peer &peer);
    bool tells_of_leaving = true; // false while the server itself goes
    // Names are compared without regard to case; null when nobody has it.
    Peer *find(std::string_view name) const;

    // Publishes, retains or passes on, as the message's flags and destination say.
    void route(Peer &from, const Message &message);
    // Starts the replay of what other clients retained, once per client; continue_replay() goes on
    // with it when the queue has room again.
    void begin_replay(Peer &peer);
    void continue_replay(Peer &peer);

    // Delivers whatever the filters say.
    void send(Peer &to, const Frame &frame);
    void send_all(const Frame &frame);

    // Counts a message of no use; the first for each reason of each client is reported. `why`
    // lasts.
    void drop(Peer &from, const char *why);

    const std::vector<Peer *> &peers() const { return peers_; }
    // Peers with something new to send or a doom, each once; null when there is none.
    Peer *take_touched();
    void touch(Peer &peer);
    // The peer must go; the first reason stays. `why` lasts.
    void doom(Peer &peer, const char *why, bool at_fault = true);
    size_t retained() const { return retained_.size(); }

  private:
    struct Retained {
        Peer *from;
        std::string type;
        Frame frame;
        uint64_t stamp;
    };

    void publish(Peer &from, const Message &message, const Frame &frame);
    void pass_on(Peer &from, const Message &message, const Frame &frame);
    void retain(Peer &from, const Message &message, const Frame &frame);
    void forget_retained(const Peer &peer);
    void deliver(Peer &to, const Subject &subject, const Frame &frame);
    void replay(Peer &to, const Retained &entry);

    Limits limits_;
    std::vector<Peer *> peers_; // in the order of joining
    std::unordered_map<std::string, Peer *> by_name_;
    std::vector<Peer *> touched_;
    // By the order in which each was first retained: a newer one takes the place of the older.
    std::map<uint64_t, Retained> retained_;
    std::map<std::pair<const Peer *, std::string>, uint64_t> retained_at_;
    uint64_t next_retained_ = 1;
    uint64_t next_stamp_ = 1; // counts replacements too
};

} // namespace zebmsgd

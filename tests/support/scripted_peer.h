// scripted_peer.h - what the scripted servers share: listening in a private run directory, one
// accepted client, the frames of the wire, and the select loop of a test that services links.
// Nothing here has a thread: the test drives it.
#pragma once

#include "dispatch.h"
#include "support.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace zeb::test {

// The pieces of the wire, written out here so that a test can also get them wrong.
Bytes wire_u16(unsigned value);
Bytes wire_u32(unsigned value);
Bytes wire_text(const std::string &text); // 16-bit length and the characters
Bytes operator+(Bytes left, const Bytes &right);
// One frame around a payload.
Bytes wire_frame(const Bytes &payload);

// Listening descriptors; they throw when that fails. listen_host finds a free port when *port is 0.
int listen_local(const std::string &path);
int listen_host(const std::string &address, int *port);

// One client of a scripted server, as the server sees it.
class ScriptedConnection {
  public:
    ScriptedConnection() = default;
    ~ScriptedConnection() { close_client(); }
    // Takes the client that waits at the listener, or waits for one.
    bool accept_from(int listener, double seconds);
    int client() const { return client_; }

    void send_bytes(const Bytes &bytes);
    void stop_reading(); // the client's next send finds nobody
    void close_client(); // end of stream
    void reset_client(); // connection reset (TCP)

    // What the client sent and is here already: everything as bytes, then payload by payload.
    const Bytes &received_bytes();
    std::optional<Bytes> next_payload();
    bool client_gone(); // the client closed its end

    ScriptedConnection(const ScriptedConnection &) = delete;
    ScriptedConnection &operator=(const ScriptedConnection &) = delete;

  private:
    void read_available();
    int client_ = -1;
    bool gone_ = false;
    Bytes raw_;
    size_t taken_ = 0; // bytes of raw_ already given out as payloads
};

// Services links as a daemon's own loop would.
template <class Link> class LinkHookLoop {
  public:
    LinkHookLoop(const LinkHooks<Link> &hooks, const std::vector<Link *> &links,
                 pthread_t *thread = nullptr)
        : hooks_(hooks), links_(links) {
        FD_ZERO(&rx);
        FD_ZERO(&tx);
        for (Link *lnk : links)
            hooks_.init(lnk, &rx, &tx, &fd_max, thread);
    }
    // One cycle with a short wait; false once every link was reported lost.
    bool cycle() {
        const timespec wait = {0, 5'000'000};
        return cycle(&wait, nullptr);
    }
    // One cycle that waits without limit when `wait` is null.
    bool cycle(const timespec *wait, const sigset_t *mask) {
        if (lost)
            return false;
        for (Link *lnk : links_)
            hooks_.pre_select(lnk, &rx, &tx, &fd_max);
        fd_set sel_rx = rx;
        fd_set sel_tx = tx;
        const int ready = pselect(fd_max + 1, &sel_rx, &sel_tx, nullptr, wait, mask);
        std::erase_if(links_, [&](Link *lnk) {
            return !(ready > 0 ? hooks_.post_select(lnk, &rx, &tx, &sel_rx, &sel_tx, &fd_max)
                               : hooks_.loop_continue(lnk, &rx, &tx, &fd_max));
        });
        lost = links_.empty();
        return !lost;
    }
    // Cycles until the condition holds; false when every link is lost before or time runs out.
    bool run_until(const std::function<bool()> &condition, double seconds = 20) {
        const double limit = steady_time() + seconds;
        while (!condition())
            if (!cycle() || steady_time() > limit)
                return false;
        return true;
    }
    // Cycles until every link is lost.
    bool run_until_lost(double seconds = 20) {
        run_until([&] { return lost; }, seconds);
        return lost;
    }
    bool serves(const Link *lnk) const {
        return std::find(links_.begin(), links_.end(), lnk) != links_.end();
    }

    fd_set rx, tx;
    int fd_max = -1;
    bool lost = false;

  private:
    LinkHooks<Link> hooks_;
    std::vector<Link *> links_;
};

} // namespace zeb::test

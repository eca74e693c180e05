// loop.h - what the servers' event loops are made of: a clock, watched descriptors, the signals
// that stop a server, connections accepted within the system's limits.
#pragma once

#include "report.h"
#include "sockets.h"

#include <cstdint>
#include <string>
#include <sys/epoll.h>
#include <sys/resource.h>

namespace serverkit {

// Seconds on a clock that nobody sets.
double monotonic();

// Watched descriptors, each with a number of the server's that says what it is.
class Watch {
  public:
    bool open(); // false when it fails (reported)
    // Likewise, with one line until it works again.
    bool add(int fd, uint32_t kind, uint32_t events);
    bool change(int fd, uint32_t kind, uint32_t events);
    void remove(int fd);
    // Waits for at most `seconds`; the number of events, negative when the loop itself failed
    // (reported).
    int wait(epoll_event *events, int most, double seconds);

    static uint32_t kind(const epoll_event &event) {
        return static_cast<uint32_t>(event.data.u64 >> 32);
    }
    static int fd(const epoll_event &event) {
        return static_cast<int>(event.data.u64 & 0xffffffff);
    }

  private:
    UniqueFd epoll_;
    Fault fault_; // of add(), which may be tried again and again
};

// A descriptor that becomes readable with SIGINT and SIGTERM, which are blocked from then on;
// SIGPIPE is ignored. Empty when it fails (reported).
UniqueFd catch_stop_signals();
// Takes one such signal; false when there was none.
bool take_signal(const UniqueFd &signals);

// Asks for as many descriptors as the server needs, and says when the system's limit is lower.
void raise_descriptor_limit(rlim_t wanted);

// Accepts connections and, when the system cannot give more, says so once.
class Acceptor {
  public:
    enum class Result { accepted, again, none, pause };

    // On `pause` the connection stays ready: the server must not watch the socket for a while.
    Result accept(int listener, UniqueFd &connection, sockaddr_storage &address);
    uint64_t failures() const { return failures_; }

  private:
    Fault fault_;
    uint64_t failures_ = 0;
};

} // namespace serverkit

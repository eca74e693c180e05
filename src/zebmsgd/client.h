// client.h - one connection: its socket, the framing of what it sends and the queue of what it
// gets.
#pragma once

#include "router.h"
#include "serverkit/sockets.h"
#include "serverkit/stream.h"

#include <string>

namespace zebmsgd {

struct Client : Peer {
    Client(serverkit::UniqueFd socket, std::string where, double now, size_t queue_limit)
        : Peer(queue_limit), fd(std::move(socket)), origin(std::move(where)), connected(now) {}

    // Reads once and hands the payloads to `sink`, which returns false to stop.
    void read_some(char *scratch, size_t scratch_size, const serverkit::InBuffer::Sink &sink,
                   Router &router);
    // Sends what the socket takes.
    void flush(Router &router);

    serverkit::UniqueFd fd;
    std::string origin; // "pid 123" or an address with its port
    double connected;   // when, monotonic
    serverkit::InBuffer in;
    uint32_t interest = 0; // what epoll was asked for
    int error = 0;         // of the system, when it is behind the doom
    bool reported_garbage = false;

  private:
    // What becomes of the client after a transfer; `failure` is its doom when errno says why.
    void end(serverkit::Transfer transfer, Router &router, const char *failure);
};

// "client "cpc1" (pid 123)", or "connection (pid 123)" before its handshake.
std::string describe(const Client &client);

} // namespace zebmsgd

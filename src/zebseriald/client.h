// client.h - one connection: its socket and the framing of what it sends.
#pragma once

#include "dialogue.h"
#include "serverkit/sockets.h"
#include "serverkit/stream.h"

namespace zebseriald {

struct Client : Dialogue {
    Client(Surroundings &around, uint64_t number, serverkit::UniqueFd socket, double now)
        : Dialogue(around, number, serverkit::local_origin(socket.get())), fd(std::move(socket)) {
        last_heard = now;
    }

    // Reads once and takes the records. Short memory ends the client.
    void read_some(char *scratch, size_t scratch_size, double now);
    // Sends what the socket takes.
    void flush();

    serverkit::UniqueFd fd;
    serverkit::InBuffer in;
    uint32_t interest = 0; // what epoll was asked for
    bool touched = false;  // waits for its answers to be sent

  private:
    void after(serverkit::Transfer transfer, const char *failure);
    bool reported_garbage_ = false;
    uint64_t bytes_ = 0;
};

} // namespace zebseriald

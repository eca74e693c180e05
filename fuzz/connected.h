// connected.h - links that believe themselves connected to a server, which is the input. The
// targets are linked with --wrap=connect.
#pragma once

#include "fuzz.h"

#include <cerrno>
#include <sys/select.h>
#include <sys/socket.h>
#include <zeb2/port.h>

namespace fuzz {

// The server's end of the latest connection; -1 without one.
extern int g_server;

void close_server();

// A link in a select loop of one descriptor, cycle by cycle, without waiting.
template <class Link> struct Hooks {
    BOOL (*pre_select)(Link *, fd_set *, fd_set *, int *);
    BOOL (*post_select)(Link *, fd_set *, fd_set *, fd_set *, fd_set *, int *);
};

template <class Link> class Loop {
  public:
    Loop(Link &link, const Hooks<Link> &hooks) : link_(link), hooks_(hooks) {
        FD_ZERO(&rx_);
        FD_ZERO(&tx_);
    }
    // What the server sends; false when the link is lost.
    bool deliver(std::string_view bytes) {
        if (!bytes.empty())
            MUST(send(g_server, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
                 static_cast<ssize_t>(bytes.size()));
        bool served = true;
        for (size_t left = bytes.size() + 1; served && left > 0;
             left -= std::min<size_t>(left, 256))
            served = cycle();
        return served;
    }
    // False when the link is lost.
    bool cycle() {
        int most = -1;
        hooks_.pre_select(&link_, &rx_, &tx_, &most);
        fd_set ready_rx = rx_, ready_tx = tx_;
        if (!hooks_.post_select(&link_, &rx_, &tx_, &ready_rx, &ready_tx, &most))
            return false;
        char sent[512];
        while (recv(g_server, sent, sizeof sent, MSG_DONTWAIT) > 0) {
        }
        return true;
    }

  private:
    Link &link_;
    Hooks<Link> hooks_;
    fd_set rx_, tx_;
};

} // namespace fuzz

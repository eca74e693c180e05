// test_sweep_peer.h - both servers of a station in a process of their own, which answer whatever
// connects. They come before the process under test and outlive it, however that ends.
#pragma once

#include "support.h"

#include <sys/types.h>

namespace zeb::test {

class SweepPeer {
  public:
    SweepPeer(); // in a private run directory, which ZEB2RUN names meanwhile
    ~SweepPeer();
    int port() const { return port_; } // of the message server on 127.0.0.1

    // The messages that the server sends end with these: when a program has announced itself, and
    // when it has published a reading of a hygrometer.
    static constexpr char k_end_of_greeting[] = "greeting";
    static constexpr char k_end_of_orders[] = "orders";

    SweepPeer(const SweepPeer &) = delete;
    SweepPeer &operator=(const SweepPeer &) = delete;

  private:
    TempDir directory_;
    ScopedEnv run_;
    int port_ = 0;
    pid_t process_ = -1;
};

} // namespace zeb::test

// server.h - the event loop: the listening socket, clients, ports, timers, and the stop.
#pragma once

#include "client.h"
#include "config.h"
#include "serverkit/loop.h"

#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

namespace zebseriald {

class Server {
  public:
    explicit Server(const Config &config);

    // Catches the stop signals and opens the listening socket; false when that fails (reported).
    bool open();
    // Serves until SIGINT or SIGTERM; false when the loop itself failed.
    bool run();

  private:
    // What a descriptor of the loop is.
    enum class Kind : uint32_t { signal, listener, client, port };

    bool watch(int fd, Kind kind, uint32_t events);
    void listen_for(int fd, Kind kind, uint32_t events, uint32_t &interest);
    void dispatch(Kind kind, int fd, uint32_t events);
    void accept_all();
    void admit(serverkit::UniqueFd fd);
    void serve_client(int fd);
    void serve_port(int fd, uint32_t events);

    void touch(Client &client);
    void settle();
    void settle_port(Port &port);
    void settle_client(Client &client);
    void close_client(Client &client);

    void run_timers();
    void resume_accepting();
    void check_clients();
    void check_deaf();
    void end_silent(Client &client);
    void forgive(double seconds);
    void wake_at(double when) { next_check_ = std::min(next_check_, when); }
    double patience(const Client &client) const;

    void stop();
    bool stopped() const;

    Config config_;
    double now_;
    double next_check_;        // nothing is due before this
    double stop_deadline_ = 0; // 0: not stopping
    double resume_at_ = 0;     // 0: listening
    uint64_t next_number_ = 0;

    serverkit::Watch watch_;
    serverkit::UniqueFd signals_;
    std::optional<serverkit::LocalListener> listener_;
    serverkit::Acceptor acceptor_;
    serverkit::Complaints complaints_;
    serverkit::Fault memory_fault_;

    Ports ports_;
    Surroundings around_;
    std::unordered_map<int, Port *> port_of_; // by descriptor
    std::unordered_map<int, std::unique_ptr<Client>> clients_;
    std::vector<Port *> stirred_;
    std::vector<Client *> touched_;
    std::unique_ptr<char[]> scratch_;
};

} // namespace zebseriald

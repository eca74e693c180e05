// server.h - the event loop: listening sockets, connections, timers, status, and the stop.
#pragma once

#include "client.h"
#include "config.h"
#include "protocol.h"
#include "serverkit/loop.h"
#include "serverkit/report.h"
#include "serverkit/sockets.h"
#include "status.h"

#include <list>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

namespace zebmsgd {

class Server {
  public:
    Server(const Config &config, std::string version);

    // Catches the stop signals and opens every listening socket; false when one fails (reported).
    bool open();
    // Serves until SIGINT or SIGTERM; false when the loop itself failed.
    bool run();

  private:
    // What a descriptor of the loop is.
    enum class Kind : uint32_t { signal, local, tcp, status, client, status_reader };
    struct StatusReader {
        serverkit::UniqueFd fd;
        std::string text;
        size_t sent;
        double deadline;
    };
    using StatusReaders = std::list<StatusReader>;

    bool watch(int fd, Kind kind, uint32_t events);
    void change(Client &client);

    void dispatch(Kind kind, int fd);
    void accept_all(int fd, Kind kind);
    bool accept_one(int fd, Kind kind);
    void admit(serverkit::UniqueFd fd, std::string origin);
    void pause_listening();
    void resume_listening();
    void refuse(const std::string &origin, const char *why);

    void serve(int fd);
    void discard(Client &client);
    void settle();
    void close_client(Client &client);

    void open_status(serverkit::UniqueFd fd);
    bool write_status(StatusReader &reader); // true while there is more to write
    void continue_status(int fd);
    Totals totals() const;

    double next_deadline() const;
    void run_timers();
    void check_clients();

    void stop();
    bool stopped() const;

    Config config_;
    std::string version_;
    Router router_;
    Protocol protocol_;
    double started_;
    double now_;
    double next_beat_;
    double next_check_;
    double stop_deadline_ = 0; // 0: not stopping
    double resume_at_ = 0;     // 0: listening

    serverkit::Watch watch_;
    serverkit::UniqueFd signals_;
    std::optional<serverkit::LocalListener> local_;
    std::optional<serverkit::LocalListener> status_;
    serverkit::UniqueFd tcp_;

    std::unordered_map<int, std::unique_ptr<Client>> clients_;
    StatusReaders readers_;
    std::unique_ptr<char[]> scratch_;
    serverkit::Acceptor acceptor_;
    serverkit::Fault refusal_fault_;
    serverkit::Fault memory_fault_;
    Totals totals_;
};

} // namespace zebmsgd

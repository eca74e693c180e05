// session.h - a subcommand's link to the message server, under a name of its own.
//
//   Session session(options.config);
//   if (!session.is_connected())
//       return k_failed;
//   switch (session.listen(options.timeout, hear, is_enough)) ...
#pragma once

#include <functional>
#include <string>

#include "daemon.h"

namespace zebctl {

// Says on standard error what went wrong; the result is k_failed.
int fail(const std::string &text);

class Session {
  public:
    // config: a file for RemoteHost, or empty; name: on the server, "zebctl-PID" when empty.
    explicit Session(const std::string &config, const std::string &name = "");

    // False after a report.
    bool is_connected() const { return is_connected_; }
    ZEBMSG_link *messages() { return station_.messages(); }

    enum class Heard { enough, too_little, interrupted, gone }; // gone: after a report
    // Hands on messages until it is enough, or for so many seconds (below 0: without end).
    Heard listen(double seconds, const std::function<void(const ZEBMSG_proc_msg &)> &hear,
                 const std::function<bool()> &is_enough);

    // Waits until what is queued has left; the exit status, after a report when it has not.
    int send();
    // The same for at most so many seconds, without a report.
    bool drain(double seconds) { return station_.drain(seconds); }

  private:
    daemon_kit::Options daemon_;
    daemon_kit::Configuration configuration_;
    daemon_kit::Station station_;
    bool is_connected_ = false;
};

} // namespace zebctl

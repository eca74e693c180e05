// daemon.h - what every example daemon does before and around its instrument: the command line, the
// configuration, the links to the station's servers, the announcement. A daemon's main() is
//
//   daemon_kit::Daemon daemon(k_keys, "Publishes the fixes of a receiver.");
//   if (!daemon.start(argc, argv) || !daemon.connect_with_line())
//       return daemon.exit_status();
//   daemon.announce("gps");
//   while (daemon.station().wait(0.25))
//       ... talk to daemon.station().line(), queue on daemon.station().messages() ...
//   return daemon.station().result();
#pragma once

#include <optional>
#include <string>

#include <zeb2/libzeb2.h>

#include "serverkit/inspect.h"

namespace daemon_kit {

struct Options {
    std::string name;   // on the message server, and of the daemon's branch of the configuration
    std::string config; // empty: the station's file
};

// Of a program that reads no keys itself.
inline constexpr serverkit::ProgramKeys k_no_keys = {"", {}};

// The configuration tree and the daemon's branch of it.
class Configuration {
  public:
    using Missing = serverkit::Missing;

    explicit Configuration(const Options &options, Missing missing = Missing::refused,
                           const serverkit::ProgramKeys &keys = k_no_keys);
    ~Configuration() { CONF_free(root_); }
    Configuration(const Configuration &) = delete;
    Configuration &operator=(const Configuration &) = delete;

    // True after a report: there is nothing to run on.
    bool is_refused() const { return root_ == nullptr; }
    CONF_node *root() const { return root_; }
    // Null while no key is set there.
    CONF_node *local() const { return CONF_lookup_tree(root_, keys_.name().c_str()); }
    // The value of a key of the daemon's branch, or its default; a value that the table does not
    // allow is reported and the default taken. A number that is not set and has no default is MVC.
    std::string text(const std::string &key) { return settings_.text(settings_.own(key)); }
    double number(const std::string &key) { return settings_.number(settings_.own(key)); }
    serverkit::Settings &settings() { return settings_; }

  private:
    serverkit::Keys keys_;
    CONF_node *root_;
    serverkit::Settings settings_;
};

// The links to the station's servers, served by the library's dispatch thread.
class Station {
  public:
    Station() = default;
    ~Station(); // what is queued is sent, within a moment, and the servers are told
    Station(const Station &) = delete;
    Station &operator=(const Station &) = delete;

    // Connects to the message server under a name and, unless `port` is empty, to the serial server
    // for that port ("=NAME" or "DEVICE:SETTINGS"), and waits for both. False after a report.
    bool connect(const std::string &name, const Configuration &configuration,
                 const std::string &port = "");
    // Waits so long; false as soon as a server is gone or the program is to stop.
    bool wait(double seconds);
    // Waits until what is queued has left, for at most `seconds`; false when it has not.
    bool drain(double seconds);
    // The exit status when wait() said no: 0 when the program is to stop, 1 after a report of the
    // server that is gone.
    int result();
    // Tells people: a line on standard error and one for the station's monitor.
    void tell(const char *format, ...) __attribute__((format(printf, 2, 3)));

    ZEBMSG_link *messages() { return &link_.msg_lnk; }
    SERIALCOM_link *line() { return &link_.sc_lnk; }
    INST_link *link() { return &link_; } // both

  private:
    bool wait_for_servers(const std::string &port);
    bool is_up(const BOOL &flag);
    bool has_output();

    INST_link link_ = {};
    bool connected_ = false;
};

// The frame of a daemon's main().
class Daemon {
  public:
    // `keys` has the usual name, of the program; --name gives another.
    Daemon(const serverkit::ProgramKeys &keys, const char *description)
        : keys_(keys), options_{keys.name, ""}, description_(description) {}
    ~Daemon();
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;

    // Each is false when there is nothing more to do but to return exit_status().
    bool start(int argc, char **argv); // command line, library, signals, configuration, read()
    bool connect();                    // to the message server
    bool connect_with_line();          // and to the serial server, for the port of the key "Port"
    // Announces the instrument as the keys DisplayName, ID and Tags say, and tells the program that
    // launched this one that it is ready.
    void announce(const char *type);

    int exit_status() const { return exit_status_; }
    const std::string &name() const { return options_.name; }
    Configuration &configuration() { return *configuration_; }
    Station &station() { return *station_; }
    std::string port() { return configuration_->text("Port"); }

  private:
    // The exit status, when the program does not go on.
    std::optional<int> parse_command_line(int argc, char **argv);
    bool connect_to(const std::string &port);

    const serverkit::ProgramKeys &keys_;
    Options options_;
    serverkit::Inspection inspection_;
    const char *description_;
    int exit_status_ = 1;
    std::optional<Configuration> configuration_;
    std::optional<Station> station_;
};

} // namespace daemon_kit

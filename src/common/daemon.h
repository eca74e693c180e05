// daemon.h - what every example daemon does before and around its instrument: the command line, the
// configuration, the links to the station's servers, the announcement. A daemon's main() is
//
//   daemon_kit::Daemon daemon("gps", "Publishes the fixes of a receiver.");
//   if (!daemon.start(argc, argv) || !daemon.connect_with_line())
//       return daemon.exit_status();
//   daemon.announce("gps", "GPS", "G");
//   while (daemon.station().wait(0.25))
//       ... talk to daemon.station().line(), queue on daemon.station().messages() ...
//   return daemon.station().result();
#pragma once

#include <cmath>
#include <cstdio>
#include <optional>
#include <string>

#include <zeb2/libzeb2.h>

namespace daemon_kit {

struct Options {
    std::string name;   // on the message server, and of the daemon's branch of the configuration
    std::string config; // empty: the station's file
};

// Reads the command line; a negative result means "go on", any other is the exit status.
int parse_command_line(int argc, char **argv, const char *description, Options &options);

// A file open for reading, or null with errno set: a directory opens like a file and reads as
// nothing, which would pass for an empty configuration.
FILE *open_file(const std::string &name);

// The tree of a configuration file, for CONF_free(); null after a report.
CONF_node *load_configuration(const std::string &name);

// The configuration tree and the daemon's branch of it.
class Configuration {
  public:
    // Whether a station's file that does not exist is a mistake. A file that was named always is.
    enum class Missing { refused, allowed };

    explicit Configuration(const Options &options, Missing missing = Missing::refused);
    ~Configuration() { CONF_free(root_); }
    Configuration(const Configuration &) = delete;
    Configuration &operator=(const Configuration &) = delete;

    // True after a report: there is nothing to run on.
    bool is_refused() const { return root_ == nullptr; }
    CONF_node *root() const { return root_; }
    CONF_node *local() const { return local_; }
    // The value of a key of the daemon's branch, or the default; a number that is none, or outside
    // the limits, is reported and the default taken.
    std::string text(const char *key, const std::string &fallback) const;
    double number(const char *key, double fallback, double lowest = -HUGE_VAL,
                  double highest = HUGE_VAL) const;
    // Gives a key of the daemon's branch this value unless it has one: for what the library reads
    // itself, from a branch that the file need not have.
    void provide(const std::string &key, const std::string &value);

  private:
    std::string name_; // of the branch
    CONF_node *root_ = nullptr;
    CONF_node *local_ = nullptr;
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
    // `name` is the usual one, of the program; --name gives another.
    Daemon(const char *name, const char *description)
        : options_{name, ""}, description_(description) {}
    ~Daemon();
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;

    // Each is false when there is nothing more to do but to return exit_status().
    bool start(int argc, char **argv); // command line, library, signals, configuration
    bool connect();                    // to the message server
    bool connect_with_line();          // and to the serial server, for the port of the key "Port"
    // Announces the instrument, under the keys DisplayName, ID and Tags when they are set, and
    // tells the program that launched this one that it is ready.
    void announce(const char *type, const char *display_name, const char *id);

    int exit_status() const { return exit_status_; }
    const std::string &name() const { return options_.name; }
    const Configuration &configuration() const { return *configuration_; }
    Configuration &configuration() { return *configuration_; }
    Station &station() { return *station_; }
    // What the key "Port" says: "=" and the daemon's name unless it is set.
    std::string port() const { return configuration_->text("Port", "=" + options_.name); }

  private:
    bool connect_to(const std::string &port);

    Options options_;
    const char *description_;
    int exit_status_ = 1;
    std::optional<Configuration> configuration_;
    std::optional<Station> station_;
};

} // namespace daemon_kit

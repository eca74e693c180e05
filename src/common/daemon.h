// daemon.h - what every example daemon does before and around its instrument: the command line, the
// configuration, and one loop that serves the message link together with the instrument's line.
#pragma once

#include <cstdio>
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
    // The value of a key of the daemon's branch, or the default.
    std::string text(const char *key, const std::string &fallback) const;
    double number(const char *key, double fallback) const;

  private:
    CONF_node *root_ = nullptr;
    CONF_node *local_ = nullptr;
};

// The link to the message server, served by the thread that calls cycle().
class ServerLink {
  public:
    ServerLink() = default;
    ~ServerLink();
    ServerLink(const ServerLink &) = delete;
    ServerLink &operator=(const ServerLink &) = delete;

    // Connects and waits for the server's handshake; false after a report.
    bool connect(const std::string &name, const Configuration &configuration);
    // Waits at most `seconds` for the server or for input on `fd` (-1 for none) and moves what
    // there is; `readable` tells whether `fd` has input. False when the server is gone.
    bool cycle(double seconds, int fd, bool &readable);
    // Sends what is queued, for at most `seconds`; false when the server is gone or too slow.
    bool drain(double seconds);
    ZEBMSG_link *get() { return &link_; }

  private:
    bool has_output();
    bool serve(int selected, fd_set *readable, fd_set *writable);

    ZEBMSG_link link_ = {};
    bool connected_ = false;
    bool stuck_ = false; // what was queued could not leave in time
    fd_set rx_ = {};
    fd_set tx_ = {};
    int max_ = -1;
};

} // namespace daemon_kit

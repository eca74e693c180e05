#include "daemon.h"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/stat.h>

namespace daemon_kit {
namespace {

constexpr double k_farewell = 1.0; // s for the closing message to leave

// A clock that nobody sets.
double steady_seconds() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

} // namespace

FILE *open_file(const std::string &name) {
    FILE *file = fopen(name.c_str(), "re");
    struct stat info;
    if (file == nullptr || fstat(fileno(file), &info) != 0 || !S_ISDIR(info.st_mode))
        return file;
    fclose(file);
    errno = EISDIR;
    return nullptr;
}

CONF_node *load_configuration(const std::string &name) {
    FILE *file = open_file(name);
    if (file == nullptr) {
        fprintf(stderr, "%scannot read the configuration %s: %s\n", g_dbg_msg_title, name.c_str(),
                strerror(errno));
        return nullptr;
    }
    CONF_node *root = CONF_alloc();
    if (root != nullptr)
        CONF_load(root, file);
    fclose(file);
    return root;
}

int parse_command_line(int argc, char **argv, const char *description, Options &options) {
    CLI::App app(description);
    app.set_version_flag("--version", options.name + " " + ZEB_VERSION);
    app.add_option("-n,--name", options.name,
                   "name on the message server and of the branch of the configuration")
        ->capture_default_str();
    app.add_option("-c,--config", options.config,
                   "configuration file (default: etc/zeb.conf under $ZEB2)");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    return -1;
}

Configuration::Configuration(const Options &options, Missing missing) {
    if (!options.config.empty())
        root_ = load_configuration(options.config);
    else if ((root_ = CONF_get_default()) == nullptr && missing == Missing::allowed)
        root_ = CONF_alloc();
    else if (root_ == nullptr)
        fprintf(
            stderr,
            "%sno configuration: etc/zeb.conf is missing under $ZEB2; name a file with --config\n",
            g_dbg_msg_title);
    if (root_ != nullptr)
        local_ = CONF_lookup_tree(root_, options.name.c_str());
}

std::string Configuration::text(const char *key, const std::string &fallback) const {
    const char *value = local_ != nullptr ? CONF_lookup(local_, key) : nullptr;
    return value != nullptr ? value : fallback;
}

double Configuration::number(const char *key, double fallback) const {
    const std::string value = text(key, "");
    char *end;
    const double result = strtod(value.c_str(), &end);
    if (value.empty())
        return fallback;
    if (*end == '\0')
        return result;
    fprintf(stderr, "%sthe value \"%s\" of %s is not a number; using %g\n", g_dbg_msg_title,
            value.c_str(), key, fallback);
    return fallback;
}

ServerLink::~ServerLink() {
    if (!connected_)
        return;
    // The closing message leaves by the hooks, which nobody else is running any more. A server that
    // did not take what was before it is not waited for twice.
    if (!stuck_) {
        ZEBMSG_queue_message_lib(&link_, MSG_SERVER_TERMINATE, 0, nullptr, nullptr, 0, nullptr,
                                 TRUE);
        drain(k_farewell);
    }
    ZEBMSG_multi_destroy(&link_);
}

bool ServerLink::drain(double seconds) {
    const double limit = steady_seconds() + seconds;
    bool ignored;
    while (has_output()) {
        stuck_ = steady_seconds() > limit || !cycle(0.02, -1, ignored);
        if (stuck_)
            return false;
    }
    return true;
}

// Nobody else touches the link: this thread runs its hooks.
bool ServerLink::has_output() {
    return link_.tx_queue.count != 0 || link_.tx_buff_size != 0 ||
           NETMSG_buffer_pending(&link_.tx_stream);
}

bool ServerLink::connect(const std::string &name, const Configuration &configuration) {
    ZEBMSG_connect_params parameters;
    ZEBMSG_init_params(&parameters);
    parameters.id_str = name.c_str();
    parameters.host_override = ZEBMSG_get_host_str(configuration.root(), configuration.local());
    if (!ZEBMSG_multi_connect(&parameters, &link_))
        return false;
    connected_ = true;
    FD_ZERO(&rx_);
    FD_ZERO(&tx_);
    ZEBMSG_dispatch_init(&link_, &rx_, &tx_, &max_, nullptr);
    bool ignored;
    while (cycle(0.25, -1, ignored))
        if (ZEBMSG_test_connected(&link_))
            return true;
        else if (UTIL_exit_poll())
            return false;
    return false;
}

bool ServerLink::cycle(double seconds, int fd, bool &readable) {
    readable = false;
    ZEBMSG_dispatch_pre_select(&link_, &rx_, &tx_, &max_);
    if (ZEBMSG_test_connected_ext(&link_) < 0)
        return false;
    fd_set selected_rx = rx_, selected_tx = tx_;
    if (fd >= 0 && fd < FD_SETSIZE)
        FD_SET(fd, &selected_rx);
    const timespec limit = {static_cast<time_t>(seconds),
                            static_cast<long>((seconds - static_cast<time_t>(seconds)) * 1e9)};
    const int selected =
        pselect(std::max(max_, fd) + 1, &selected_rx, &selected_tx, nullptr, &limit, nullptr);
    readable = selected > 0 && fd >= 0 && fd < FD_SETSIZE && FD_ISSET(fd, &selected_rx);
    return serve(selected, &selected_rx, &selected_tx);
}

bool ServerLink::serve(int selected, fd_set *readable, fd_set *writable) {
    if (selected > 0)
        return ZEBMSG_dispatch_post_select(&link_, &rx_, &tx_, readable, writable, &max_);
    return ZEBMSG_dispatch_loop_continue(&link_, &rx_, &tx_, &max_);
}

} // namespace daemon_kit

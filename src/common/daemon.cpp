#include "daemon.h"

#include <cstdarg>
#include <cstdio>
#include <ctime>

#include "command_line/command_line.h"
#include "serverkit/report.h"
#include "serverkit/streams.h"

namespace daemon_kit {

using serverkit::report;

namespace {

constexpr double k_farewell = 0.5; // s for what is queued to leave; the library adds its own 2 s

// A clock that nobody sets.
double steady_seconds() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// The tree of the configuration; null after a report.
CONF_node *load(const Options &options, serverkit::Missing missing) {
    CONF_node *root = nullptr;
    if (!options.config.empty())
        serverkit::load_configuration(options.config, &root);
    else if ((root = CONF_get_default()) == nullptr && missing == serverkit::Missing::allowed)
        root = CONF_alloc();
    else if (root == nullptr)
        report("no configuration: etc/zeb.conf is missing under $ZEB2; name a file with --config");
    return root;
}

} // namespace

Configuration::Configuration(const Options &options, Missing missing,
                             const serverkit::ProgramKeys &keys)
    : keys_(keys, options.name), root_(load(options, missing)),
      settings_(keys_, root_,
                keys.strict ? serverkit::Settings::Tell::yes
                            : serverkit::Settings::Tell::with_default) {}

Station::~Station() {
    if (!connected_)
        return;
    drain(k_farewell);
    INST_disconnect(&link_);
}

bool Station::connect(const std::string &name, const Configuration &configuration,
                      const std::string &port) {
    ZEBMSG_connect_params server;
    ZEBMSG_init_params(&server);
    server.id_str = name.c_str();
    server.host_override = ZEBMSG_get_host_str(configuration.root(), configuration.local());
    SERIALD_connect_params line;
    SERIALD_port_params settings = {};
    if (!port.empty() && !SERIALCOM_breakdown_port_string(port.c_str(), &line, &settings)) {
        report("\"%s\" is no port: a name such as =gps, or a device such as ttyS0:4800n81",
               port.c_str());
        return false;
    }
    SERIALCOM_link *const no_more_links = nullptr;
    SERIALD_connect_params *const no_more_lines = nullptr;
    if (!INST_connect(&link_, &server, port.empty() ? nullptr : &line, nullptr, no_more_links,
                      no_more_lines)) {
        report("cannot connect to the station; %s running?",
               port.empty() ? "is the message server" : "are the message and the serial server");
        return false;
    }
    connected_ = true;
    if (!wait_for_servers(port))
        return false;
    if (settings.baud != 0)
        SERIALCOM_set_port_params(&link_.sc_lnk, &settings);
    return true;
}

// INST_wait_connected() would not hear of a signal while a server hangs.
bool Station::wait_for_servers(const std::string &port) {
    while (!INST_test_connected(&link_)) {
        if (!is_up(link_.msg_lnk_up)) {
            report("the message server closed the link");
            return false;
        }
        if (!port.empty() && !is_up(link_.sc_lnk_up)) {
            report("the serial server closed the link; does it know the port %s?", port.c_str());
            return false;
        }
        if (UTIL_exit_poll())
            return false;
        UTIL_fsleep(0.005);
    }
    return true;
}

// A link that is lost keeps its last state: nobody serves it any more. The flags tell.
bool Station::is_up(const BOOL &flag) {
    pthread_mutex_lock(&link_.mtx);
    const bool up = flag;
    pthread_mutex_unlock(&link_.mtx);
    return up;
}

// INST_sleep() of no time at all need not look at the links.
bool Station::wait(double seconds) {
    return !UTIL_exit_poll() && INST_test_connected(&link_) && INST_sleep(&link_, seconds);
}

bool Station::drain(double seconds) {
    const double limit = steady_seconds() + seconds;
    while (has_output()) {
        if (steady_seconds() > limit || !is_up(link_.msg_lnk_up))
            return false;
        UTIL_fsleep(0.005);
    }
    return true;
}

bool Station::has_output() {
    ZEBMSG_link *link = messages();
    pthread_mutex_lock(&link->mtx);
    const bool waiting = link->tx_queue.count != 0 || link->tx_buff_size != 0 ||
                         NETMSG_buffer_pending(&link->tx_stream);
    pthread_mutex_unlock(&link->mtx);
    return waiting;
}

int Station::result() {
    if (UTIL_exit_poll())
        return 0;
    report("the %s server is gone", is_up(link_.msg_lnk_up) ? "serial" : "message");
    return 1;
}

void Station::tell(const char *format, ...) {
    char text[1024];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    report("%s", text);
    ZEBMSG_writemonitor(messages(), 0, UTIL_ftime(), "%s", text);
}

Daemon::~Daemon() {
    station_.reset();
    if (configuration_)
        LIBZEB_cleanup();
}

std::optional<int> Daemon::parse_command_line(int argc, char **argv) {
    command_line::Parser app(description_);
    app.set_version_flag("--version", options_.name + " " + ZEB_VERSION);
    app.add_option("-n,--name", options_.name,
                   "name on the message server and of the branch of the configuration")
        .capture_default_str();
    app.add_option("-c,--config", options_.config,
                   "configuration file (default: etc/zeb.conf under $ZEB2)");
    serverkit::add_inspection(app, inspection_);
    return app.parse(argc, argv);
}

bool Daemon::start(int argc, char **argv) {
    serverkit::hold_standard_streams();
    if (const auto status = parse_command_line(argc, argv)) {
        exit_status_ = *status;
        return false;
    }
    if (!LIBZEB_init(options_.name.c_str()))
        return false;
    if (inspection_.is_wanted()) {
        const serverkit::Keys keys(keys_, options_.name);
        exit_status_ = inspect(inspection_, {keys, options_.config, serverkit::Missing::refused});
        LIBZEB_cleanup();
        return false;
    }
    UTIL_exit_signal_poll_setup();
    configuration_.emplace(options_, serverkit::Missing::refused, keys_);
    if (configuration_->is_refused())
        return false;
    if (keys_.read != nullptr)
        keys_.read(configuration_->settings());
    return true;
}

bool Daemon::connect() {
    return connect_to("");
}

bool Daemon::connect_with_line() {
    return connect_to(port());
}

bool Daemon::connect_to(const std::string &port) {
    if (station_.emplace().connect(name(), configuration(), port))
        return true;
    exit_status_ = UTIL_exit_poll() ? 0 : 1;
    return false;
}

void Daemon::announce(const char *type) {
    NET_SERVER_InstrumentInfo info;
    ZEBMSG_register_init(&info);
    UTIL_strncpynt(info.type, type, sizeof info.type);
    UTIL_strncpynt(info.display_name, configuration().text("DisplayName").c_str(),
                   sizeof info.display_name);
    info.id_ch = configuration().text("ID")[0];
    if (configuration().local() != nullptr)
        ZEBMSG_do_tags(&info, configuration().root(), configuration().local());
    ZEBMSG_register_instrument(station().messages(), &info);
    UTIL_startupokay();
}

} // namespace daemon_kit

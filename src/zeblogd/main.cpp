// zeblogd - the station's conductor: tells every daemon when to begin an average, to write a monitor
// record, to flush and to switch its log file, and keeps the station's monitor messages.

#include "conductor.h"
#include "daemon.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr double k_look = 0.1; // s between looks at the clock, which may be set

void received(ZEBMSG_proc_msg *message, void *conductor) {
    static_cast<zeblogd::Conductor *>(conductor)->received(*message, UTIL_ftime());
}

void announce(ZEBMSG_link *link, const daemon_kit::Configuration &configuration) {
    NET_SERVER_InstrumentInfo info;
    ZEBMSG_register_init(&info);
    UTIL_strncpynt(info.type, "conductor", sizeof info.type);
    UTIL_strncpynt(info.display_name, configuration.text("DisplayName", "Conductor").c_str(),
                   sizeof info.display_name);
    info.id_ch = configuration.text("ID", "C")[0];
    if (configuration.local() != nullptr)
        ZEBMSG_do_tags(&info, configuration.root(), configuration.local());
    ZEBMSG_register_instrument(link, &info);
}

int run(daemon_kit::ServerLink &link, zeblogd::Conductor &conductor) {
    while (!UTIL_exit_poll()) {
        bool ignored;
        const double wait = std::clamp(conductor.wait(UTIL_ftime()), 0.0, k_look);
        if (!link.cycle(wait, -1, ignored)) {
            fprintf(stderr, "%sthe message server is gone\n", g_dbg_msg_title);
            return 1;
        }
        ZEBMSG_process_messages(link.get(), received, &conductor);
        conductor.conduct(UTIL_ftime());
    }
    return 0;
}

int serve(const daemon_kit::Options &options) {
    const daemon_kit::Configuration configuration(options);
    if (configuration.is_refused())
        return 1;
    const auto config = zeblogd::read_config(configuration.root());
    daemon_kit::ServerLink link;
    if (!config || !link.connect(options.name, configuration))
        return UTIL_exit_poll() ? 0 : 1;
    zeblogd::Conductor conductor(*config, options.name, link.get(), UTIL_ftime());
    announce(link.get(), configuration);
    UTIL_startupokay();
    return run(link, conductor);
}

} // namespace

int main(int argc, char **argv) {
    daemon_kit::Options options{"zeblogd", ""};
    const int status = daemon_kit::parse_command_line(
        argc, argv, "Conducts the station's loggers and keeps its monitor messages.", options);
    if (status >= 0)
        return status;
    if (!LIBZEB_init(options.name.c_str()))
        return 1;
    UTIL_exit_signal_poll_setup();
    const int result = serve(options);
    LIBZEB_cleanup();
    return result;
}

// zeblogd - the station's conductor: tells every daemon when to begin an average, to write a
// monitor record, to flush and to switch its log file, and keeps the station's monitor messages.

#include "conductor.h"
#include "daemon.h"

#include <algorithm>

namespace {

constexpr double k_look = 0.1; // s between looks for messages

void received(ZEBMSG_proc_msg *message, void *conductor) {
    static_cast<zeblogd::Conductor *>(conductor)->received(*message, UTIL_ftime());
}

int run(daemon_kit::Station &station, zeblogd::Conductor &conductor) {
    while (station.wait(std::min(conductor.wait(UTIL_ftime()), k_look))) {
        ZEBMSG_process_messages(station.messages(), received, &conductor);
        conductor.conduct(UTIL_ftime());
    }
    return station.result();
}

} // namespace

int main(int argc, char **argv) {
    daemon_kit::Daemon daemon(zeblogd::k_keys,
                              "Conducts the station's loggers and keeps its monitor messages.");
    if (!daemon.start(argc, argv))
        return daemon.exit_status();
    const auto config = zeblogd::read_config(daemon.configuration().settings());
    if (!config || !daemon.connect())
        return daemon.exit_status();
    ZEBMSG_link *link = daemon.station().messages();
    zeblogd::Conductor conductor(*config, daemon.name(), link, UTIL_ftime());
    daemon.announce("conductor");
    return run(daemon.station(), conductor);
}

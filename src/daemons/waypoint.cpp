// waypoint.cpp - tells how far and in which direction a way point is: finds the program that
// carries the tag "position", listens to its fixes and answers each with a way point status, to it
// and to everyone.
//
// Keys of its branch of the configuration ("waypoint" unless --name says otherwise):
//   Position     tag of the program whose fixes are answered, default "position"
//   Name         of the way point, default "home"
//   Latitude, Longitude   deg, north and east positive (required)
//   Radius       m within which it counts as reached, default 50
//   DisplayName, Tags

#include <cstdio>
#include <string>

#include "daemon.h"
#include "gps_record.h"

namespace {

struct Answerer {
    ZEBMSG_link *link;
    std::string tag;
    NET_GPS_WaypointDef waypoint;
};

void answer(Answerer &self, const NET_GPS_Fixinfo &fix) {
    NET_GPS_AllWaypointStatus status = {};
    status.n = 1;
    status.waypoints[0] = gps::way_to(self.waypoint, fix);
    ZEBMSG_queue_message(self.link, MSG_GPS_WAYPOINT_STATUS, 1, nullptr, &status, sizeof status,
                         "NET_GPS_AllWaypointStatus");
}

void received(ZEBMSG_proc_msg *message, void *param) {
    Answerer &self = *static_cast<Answerer *>(param);
    if (message->msg == nullptr || message->msg->msg != MSG_GPS_INSTANT ||
        message->pds == nullptr || message->src_name == nullptr ||
        !ZEBMSG_filter_name_and_tag(self.link, message->src_name, self.tag.c_str()))
        return;
    const NET_GPS_Fixinfo &fix = *static_cast<NET_GPS_Fixinfo *>(message->pds);
    if (fix.valid)
        answer(self, fix);
}

void announce(ZEBMSG_link *link, const daemon_kit::Configuration &configuration) {
    NET_SERVER_InstrumentInfo info;
    ZEBMSG_register_init(&info);
    UTIL_strncpynt(info.type, "waypoint", sizeof info.type);
    UTIL_strncpynt(info.display_name, configuration.text("DisplayName", "Way point").c_str(),
                   sizeof info.display_name);
    info.id_ch = 'W';
    if (configuration.local() != nullptr)
        ZEBMSG_do_tags(&info, configuration.root(), configuration.local());
    ZEBMSG_register_instrument(link, &info);
}

int run(daemon_kit::ServerLink &link, Answerer &answerer) {
    std::string known;
    while (!UTIL_exit_poll()) {
        bool ignored;
        if (!link.cycle(0.25, -1, ignored)) {
            fprintf(stderr, "%sthe message server is gone\n", g_dbg_msg_title);
            return 1;
        }
        ZEBMSG_process_messages(link.get(), received, &answerer);
        const char *name = ZEBMSG_name_for_tag(link.get(), answerer.tag.c_str());
        if (name != nullptr && known != name)
            fprintf(stderr, "%sthe position comes from %s\n", g_dbg_msg_title, name);
        known = name != nullptr ? name : "";
    }
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    daemon_kit::Options options{"waypoint", ""};
    const int status = daemon_kit::parse_command_line(
        argc, argv, "Answers the station's position with distance and bearing of a way point.",
        options);
    if (status >= 0)
        return status;
    if (!LIBZEB_init(options.name.c_str()))
        return 1;
    UTIL_exit_signal_poll_setup();
    const daemon_kit::Configuration configuration(options);
    if (configuration.is_refused())
        return 1;
    int result = 1;
    daemon_kit::ServerLink link;
    Answerer answerer = {link.get(), configuration.text("Position", "position"), {}};
    UTIL_strncpynt(answerer.waypoint.name, configuration.text("Name", "home").c_str(),
                   sizeof answerer.waypoint.name);
    answerer.waypoint.lat = configuration.number("Latitude", MVC);
    answerer.waypoint.lon = configuration.number("Longitude", MVC);
    answerer.waypoint.radius = configuration.number("Radius", 50);
    if (answerer.waypoint.lat == MVC || answerer.waypoint.lon == MVC) {
        fprintf(stderr, "%sno way point: set %s;Latitude and %s;Longitude in the configuration\n",
                g_dbg_msg_title, options.name.c_str(), options.name.c_str());
        return 1;
    }
    if (link.connect(options.name, configuration)) {
        announce(link.get(), configuration);
        UTIL_startupokay();
        result = run(link, answerer);
    }
    return result;
}

// waypoint.cpp - tells how far and in which direction a way point is: finds the program that
// carries the tag "position", listens to its fixes and answers each with a way point status, to it
// and to everyone.
//
// The keys of its branch of the configuration are in waypoint_keys.cpp.

#include <cstdio>
#include <string>

#include "daemon.h"
#include "gps_record.h"
#include "waypoint_keys.h"

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

int run(daemon_kit::Station &station, Answerer &answerer) {
    std::string known;
    while (station.wait(0.05)) {
        ZEBMSG_process_messages(station.messages(), received, &answerer);
        const char *name = ZEBMSG_name_for_tag(station.messages(), answerer.tag.c_str());
        if (name != nullptr && known != name)
            fprintf(stderr, "%sthe position comes from %s\n", g_dbg_msg_title, name);
        known = name != nullptr ? name : "";
    }
    return station.result();
}

// False when there is none, which was said when the configuration was read.
bool read_waypoint(daemon_kit::Configuration &configuration, NET_GPS_WaypointDef &waypoint) {
    UTIL_strncpynt(waypoint.name, configuration.text("Name").c_str(), sizeof waypoint.name);
    waypoint.lat = configuration.number("Latitude");
    waypoint.lon = configuration.number("Longitude");
    waypoint.radius = configuration.number("Radius");
    return waypoint.lat != MVC && waypoint.lon != MVC;
}

} // namespace

int main(int argc, char **argv) {
    daemon_kit::Daemon daemon(
        waypoint::k_keys,
        "Answers the station's position with distance and bearing of a way point.");
    Answerer answerer = {};
    if (!daemon.start(argc, argv) || !read_waypoint(daemon.configuration(), answerer.waypoint) ||
        !daemon.connect())
        return daemon.exit_status();
    answerer.link = daemon.station().messages();
    answerer.tag = daemon.configuration().text("Position");
    daemon.announce("waypoint");
    return run(daemon.station(), answerer);
}

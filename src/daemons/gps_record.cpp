#include "gps_record.h"

#include <algorithm>
#include <cmath>

#include <zeb2/util.h>

namespace gps {

NET_GPS_Fixinfo to_record(const nmea::Fix &fix) {
    NET_GPS_Fixinfo record = {};
    record.fix_time = fix.fix_time;
    record.lat = fix.latitude;
    record.lon = fix.longitude;
    record.alt = fix.altitude;
    record.geoid = fix.geoid;
    record.speed = fix.speed;
    record.track = fix.track;
    record.magvar = fix.magvar;
    record.pdop = fix.pdop;
    record.hdop = fix.hdop;
    record.vdop = fix.vdop;
    record.lat_sd = fix.sigma_latitude;
    record.lon_sd = fix.sigma_longitude;
    record.alt_sd = fix.sigma_altitude;
    record.sats_used = fix.satellites_used;
    record.sats_view = fix.satellites_in_view;
    record.quality = fix.quality;
    record.mode = fix.mode;
    record.valid = fix.valid;
    UTIL_strncpynt(record.talker, fix.talker.c_str(), sizeof record.talker);
    return record;
}

NET_GPS_Status to_record(const Counts &counts, const nmea::Fix &last, FTIME last_valid) {
    NET_GPS_Status record = {};
    record.last_fix = last_valid;
    record.valid = last.valid;
    record.quality = last.quality;
    record.sats_used = last.satellites_used;
    record.sentences = counts.sentences;
    record.refused = counts.refused;
    record.instants = counts.instants;
    record.fixes = counts.fixes;
    return record;
}

NET_GPS_WaypointStatus way_to(const NET_GPS_WaypointDef &waypoint, const NET_GPS_Fixinfo &fix) {
    constexpr double k_radius = 6371008.8; // m
    constexpr double k_radian = M_PI / 180;
    const double from = fix.lat * k_radian, to = waypoint.lat * k_radian;
    const double east = (waypoint.lon - fix.lon) * k_radian;
    const double h = std::pow(std::sin((to - from) / 2), 2) +
                     std::cos(from) * std::cos(to) * std::pow(std::sin(east / 2), 2);
    const double bearing =
        std::atan2(std::sin(east) * std::cos(to),
                   std::cos(from) * std::sin(to) - std::sin(from) * std::cos(to) * std::cos(east));
    NET_GPS_WaypointStatus status = {};
    UTIL_strncpynt(status.name, waypoint.name, sizeof status.name);
    status.time = fix.fix_time;
    status.distance = 2 * k_radius * std::asin(std::sqrt(std::min(1.0, h)));
    status.bearing = std::fmod(bearing / k_radian + 360, 360);
    status.reached = status.distance <= waypoint.radius;
    return status;
}

} // namespace gps

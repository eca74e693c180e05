// gps_record.h - fixes of the parser as records of the catalogue, and the geometry of way points.
#pragma once

#include <zeb2/definitions/gps.h>

#include "nmea.h"

namespace gps {

// Since the daemon started.
struct Counts {
    unsigned int sentences = 0;
    unsigned int refused = 0;
    unsigned int instants = 0;
    unsigned int fixes = 0;
};

NET_GPS_Fixinfo to_record(const nmea::Fix &fix);

// The status after `last`, the latest instant; `last_valid` is the time of the latest valid one.
NET_GPS_Status to_record(const Counts &counts, const nmea::Fix &last, FTIME last_valid);

// From a fix to a way point on a sphere of the Earth's mean radius (6371008.8 m): distance by the
// haversine formula, initial bearing of the great circle, degrees from 0 to 360.
NET_GPS_WaypointStatus way_to(const NET_GPS_WaypointDef &waypoint, const NET_GPS_Fixinfo &fix);

} // namespace gps

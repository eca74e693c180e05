/* gps.h - satellite navigation receivers: fixes, the receiver's state, and way points. */
#ifndef ZEB2_DEFINITIONS_GPS_H
#define ZEB2_DEFINITIONS_GPS_H

#include <zeb2/port.h>

#pragma pack(push, 4)

/* One instant of the receiver. What no sentence gave is missing: MVC in a real, -1 in a
 * time or a number. */
typedef struct {
    FTIME fix_time; /* Time of the fix by the receiver (s since 1970) */
    double lat;     /* Latitude, north positive (deg) | Lat_${INST:G\d+} | -90;90 */
    double lon;     /* Longitude, east positive (deg) | Lon_${INST:G\d+} | -180;180 */
    double alt;     /* Altitude above mean sea level (m) | Alt_${INST:G\d+} | -500;50000 */
    double geoid; /* Height of the geoid above the ellipsoid (m) | ZGeoid_${INST:G\d+} | -200;200 */
    double speed; /* Speed over ground (m/s) | WSg_${INST:G\d+} | 0;1000 */
    double track; /* Track over ground from true north (deg) | WDg_${INST:G\d+} | 0;360 */
    double magvar;    /* Magnetic variation, east positive (deg) | Zmv_${INST:G\d+} | -180;180 */
    double pdop;      /* Dilution of precision in space (1) | ZPdop_${INST:G\d+} | 0;100 */
    double hdop;      /* Dilution of precision, horizontal (1) | ZHdop_${INST:G\d+} | 0;100 */
    double vdop;      /* Dilution of precision, vertical (1) | ZVdop_${INST:G\d+} | 0;100 */
    double lat_sd;    /* Standard error of the latitude (m) | LatSd_${INST:G\d+} | 0;1E6 */
    double lon_sd;    /* Standard error of the longitude (m) | LonSd_${INST:G\d+} | 0;1E6 */
    double alt_sd;    /* Standard error of the altitude (m) | AltSd_${INST:G\d+} | 0;1E6 */
    int sats_used;    /* Satellites used, -1 unknown (1) | ZNsat_${INST:G\d+} | 0;200 */
    int sats_view;    /* Satellites in view, -1 unknown (1) | ZNview_${INST:G\d+} | 0;200 */
    int quality;      /* 0 none, 1 autonomous, 2 differential, 4 and 5 kinematic, -1 unknown */
    int mode;         /* 1 none, 2 without height, 3 with height, -1 unknown */
    BOOL valid;       /* The position may be used */
    STRING talker[4]; /* Talker of the sentence that gave the position */
} NET_GPS_Fixinfo;

/* How the receiver and its line are doing. */
typedef struct {
    FTIME last_fix; /* Time of the last valid fix (s since 1970) */
    BOOL valid;     /* The last position may be used */
    int quality;    /* 0 none, 1 autonomous, 2 differential, 4 and 5 kinematic, -1 unknown */
    int sats_used;  /* Satellites used, -1 unknown (1) */
    unsigned int sentences; /* Sentences taken since the daemon started (1) */
    unsigned int refused;   /* Lines refused: damaged, cut or no sentences (1) */
    unsigned int instants;  /* Instants published (1) */
    unsigned int fixes;     /* Instants with a valid position (1) */
} NET_GPS_Status;

/* A place to go to or to stay near. */
typedef struct {
    STRING name[32]; /* Name of the way point */
    double lat;      /* Latitude, north positive (deg) */
    double lon;      /* Longitude, east positive (deg) */
    double radius;   /* Distance within which it counts as reached (m) */
} NET_GPS_WaypointDef;

typedef struct {
    STRING name[32]; /* Name of the way point */
    FTIME time;      /* Time of the fix that this was computed from (s since 1970) */
    double distance; /* Distance along the surface (m) */
    double bearing;  /* Bearing from the receiver, from true north (deg) */
    BOOL reached;    /* The receiver is within the way point's radius */
} NET_GPS_WaypointStatus;

typedef struct {
    NET_GPS_WaypointDef waypoints[16];
    unsigned int n; /* Way points in use (1) */
} NET_GPS_AllWaypointInfo;

typedef struct {
    NET_GPS_WaypointStatus waypoints[16];
    unsigned int n; /* Way points in use (1) */
} NET_GPS_AllWaypointStatus;

#pragma pack(pop)

ZEB_MESSAGE(MSG_GPS_AVERAGE, "gps", NET_GPS_Fixinfo);
ZEB_MESSAGE(MSG_GPS_INSTANT, "gps", NET_GPS_Fixinfo);
ZEB_MESSAGE(MSG_GPS_STATUS, "gps", NET_GPS_Status);
ZEB_MESSAGE(MSG_GPS_WAYPOINT_DEF, "gps", NET_GPS_AllWaypointInfo);
ZEB_MESSAGE(MSG_GPS_WAYPOINT_STATUS, "gps", NET_GPS_AllWaypointStatus);

#endif

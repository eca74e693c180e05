/* verticalprofile.h - plan of vertical profiles flown from a home field over a site. Missing: MVC
 * in a real, -1 in a time, 0x55555555 in an int or DWORD. */
#ifndef ZEB2_DEFINITIONS_VERTICALPROFILE_H
#define ZEB2_DEFINITIONS_VERTICALPROFILE_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    STRING name[32]; /* Name of the place */
    double lat;      /* Latitude, north positive (deg) */
    double lon;      /* Longitude, east positive (deg) */
    double alt;      /* Altitude above mean sea level (m) */
    double radius;   /* Distance within which it counts as reached (m) */
} NET_VERTICALPROFILE_Waypoint;

typedef struct {
    BOOL enabled;                       /* The place is used */
    NET_VERTICALPROFILE_Waypoint place; /* *instant */
} NET_VERTICALPROFILE_SetWaypoint;

typedef struct {
    BOOL enabled; /* Fly profiles by the plan */
} NET_VERTICALPROFILE_SetEnabled;

/* The plan, and how far it has come. */
typedef struct {
    FTIME time;
    BOOL enabled; /* Profiles are flown by the plan */
    WORD task;    /* 0 none, 1 climbing out, 2 on the way, 3 climbing, 4 on a level, 5 descending, 6
                     returning */
    FTIME task_start; /* Start of the task (s since 1970) */
    FTIME task_end;   /* Expected end of the task, -1 unknown (s since 1970) */
    NET_VERTICALPROFILE_Waypoint home;
    NET_VERTICALPROFILE_Waypoint site;
    BYTE n;              /* Number of levels used */
    double levels[16];   /* Altitude of each level above mean sea level (m) */
    double duration[16]; /* Time on each level (s) */
    int level;           /* Present level, from 0 on (-1: none) */
    DWORD profiles;      /* Profiles finished since the plan began */
    double distance;     /* Distance to the next place (m) */
    double bearing;      /* Bearing to the next place from true north (deg) */
    double climb;        /* Climb to the next altitude, negative to descend (m) */
} NET_VERTICALPROFILE_All;

#pragma pack(pop)

ZEB_MESSAGE(MSG_VERTICALPROFILE_ALL, "verticalprofile", NET_VERTICALPROFILE_All);
ZEB_MESSAGE_BARE(MSG_VERTICALPROFILE_RESETTASKS, "verticalprofile");
ZEB_MESSAGE(MSG_VERTICALPROFILE_SET_ENABLED, "verticalprofile", NET_VERTICALPROFILE_SetEnabled);
ZEB_MESSAGE(MSG_VERTICALPROFILE_SET_HOME, "verticalprofile", NET_VERTICALPROFILE_SetWaypoint);
ZEB_MESSAGE(MSG_VERTICALPROFILE_SET_SITE, "verticalprofile", NET_VERTICALPROFILE_SetWaypoint);

#endif

/* cutpoints.h - size cut of the station's inlet, which switches between impactors. Missing: MVC in
 * a real, -1 in a time. */
#ifndef ZEB2_DEFINITIONS_CUTPOINTS_H
#define ZEB2_DEFINITIONS_CUTPOINTS_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    int val; /* 0 large particles too, 1 small particles only, 2 switching */
} NET_CUTPOINTS_Cutpoint;

typedef struct {
    NET_CUTPOINTS_Cutpoint cp_cur;
    FTIME time_cur; /* Start of the present cut (s since 1970) */
    NET_CUTPOINTS_Cutpoint cp_next;
    FTIME time_next; /* Start of the next cut (s since 1970) */
} NET_CUTPOINTS_Status;

/* The cuts of one round and how long each lasts; unused steps have a duration of 0. */
typedef struct {
    BOOL enabled;  /* Scan through the steps */
    double offset; /* Offset of the first round from midnight UTC (s) */
    double settle; /* Time after each change in which nothing is kept (s) */
    NET_CUTPOINTS_Cutpoint steps[8];
    double duration[8]; /* Duration of each step (s) */
} NET_CUTPOINTS_Scanning;

#pragma pack(pop)

ZEB_MESSAGE(MSG_CUTPOINTS_CHANGE_CUTPOINT, "cutpoints", NET_CUTPOINTS_Cutpoint);
ZEB_MESSAGE(MSG_CUTPOINTS_SCANNING, "cutpoints", NET_CUTPOINTS_Scanning);
ZEB_MESSAGE(MSG_CUTPOINTS_SET_SCANNING, "cutpoints", NET_CUTPOINTS_Scanning);
ZEB_MESSAGE(MSG_CUTPOINTS_STATUS, "cutpoints", NET_CUTPOINTS_Status);

#endif

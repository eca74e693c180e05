/* z48.h - temperature controller with four zones. */
#ifndef ZEB2_DEFINITIONS_Z48_H
#define ZEB2_DEFINITIONS_Z48_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    BYTE zone;       /* Zone, from 0 on */
    double setpoint; /* Temperature set point (C) */
} NET_Z48_Setpoint;

typedef struct {
    double setpoint[4]; /* Temperature set point of each zone (C) */
    BOOL enabled[4];    /* The zone is controlled */
} NET_Z48_Setpoints;

typedef struct {
    FTIME time;
    double T[4];      /* Zone temperature (C) | T${INDEX:1:2:3:4}_${INST:C\d+} */
    double output[4]; /* Zone output (%) | ZOUT${INDEX:1:2:3:4}_${INST:C\d+} | 0;100 */
} NET_Z48_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    double T[4];      /* Zone temperature (C) | T${INDEX:1:2:3:4}_${INST:C\d+} */
    double output[4]; /* Zone output (%) | ZOUT${INDEX:1:2:3:4}_${INST:C\d+} | 0;100 */
} NET_Z48_Avg;

typedef struct {
    WORD state;         /* 0 starting, 1 controlling, 2 no answer */
    WORD alarms;        /* Alarms, bit i of zone i (bits) */
    WORD sensor_errors; /* Broken sensors, bit i of zone i (bits) */
    STRING firmware[32];
} NET_Z48_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_Z48_AVERAGE, "z48", NET_Z48_Avg);
ZEB_MESSAGE(MSG_Z48_INSTANT, "z48", NET_Z48_Instant);
ZEB_MESSAGE(MSG_Z48_SET, "z48", NET_Z48_Setpoint);
ZEB_MESSAGE(MSG_Z48_SETPOINTS, "z48", NET_Z48_Setpoints);
ZEB_MESSAGE(MSG_Z48_STATUS, "z48", NET_Z48_Status);

#endif

/* z48.h - temperature controller with four zones. Missing: MVC in a real, -1 in a time, 0x55555555
 * in an int or DWORD. */
#ifndef ZEB2_DEFINITIONS_Z48_H
#define ZEB2_DEFINITIONS_Z48_H

#include <zeb2/port.h>

#pragma pack(push, 4)

/* A set point wanted. */
typedef struct {
    BYTE zone;       /* Zone, from 0 on */
    double setpoint; /* Temperature set point (C) */
    BOOL enabled;    /* Control the zone */
} NET_Z48_Setpoint;

/* The set points that are in force. */
typedef struct {
    double setpoint[4]; /* Temperature set point of each zone (C) */
    BOOL enabled[4];    /* The zone is controlled */
} NET_Z48_Setpoints;

typedef struct {
    FTIME time;
    double T[4];        /* Zone temperature (C) | T${INDEX:1:2:3:4}_${INST:C\d+} | -200;2000 */
    double setpoint[4]; /* Temperature set point (C) |
                           Ts${INDEX:1:2:3:4}_${INST:C\d+} | -200;2000 */
    double output[4];   /* Zone output (%) | ZOUT${INDEX:1:2:3:4}_${INST:C\d+} | 0;100 */
} NET_Z48_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples;      /* Readings averaged (1) */
    double T[4];        /* Zone temperature (C) | T${INDEX:1:2:3:4}_${INST:C\d+} | -200;2000 */
    double setpoint[4]; /* Temperature set point (C) |
                           Ts${INDEX:1:2:3:4}_${INST:C\d+} | -200;2000 */
    double output[4];   /* Zone output (%) | ZOUT${INDEX:1:2:3:4}_${INST:C\d+} | 0;100 */
} NET_Z48_Avg;

typedef struct {
    WORD state;         /* 0 starting, 1 controlling, 2 no answer */
    WORD alarms_low;    /* Zones too cold, bit i of zone i (bits) */
    WORD alarms_high;   /* Zones too hot, bit i of zone i (bits) */
    WORD sensor_errors; /* Broken sensors, bit i of zone i (bits) */
    WORD tuning;        /* Zones that tune themselves, bit i of zone i (bits) */
    double T_board;     /* Board temperature (C) | T5_${INST:C\d+} | -50;100 */
    DWORD timeouts;     /* Requests without an answer */
    DWORD damaged;      /* Answers with a wrong checksum */
    STRING firmware[32];
} NET_Z48_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_Z48_AVERAGE, "z48", NET_Z48_Avg);
ZEB_MESSAGE(MSG_Z48_INSTANT, "z48", NET_Z48_Instant);
ZEB_MESSAGE(MSG_Z48_SET, "z48", NET_Z48_Setpoint);
ZEB_MESSAGE(MSG_Z48_SETPOINTS, "z48", NET_Z48_Setpoints);
ZEB_MESSAGE(MSG_Z48_STATUS, "z48", NET_Z48_Status);

#endif

/* watlow.h - temperature controllers on one line. */
#ifndef ZEB2_DEFINITIONS_WATLOW_H
#define ZEB2_DEFINITIONS_WATLOW_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    BYTE address;    /* Address of the controller */
    double T;        /* Temperature (C) | T_${INST:C\d+} */
    double setpoint; /* Temperature set point (C) | Ts_${INST:C\d+} */
    double output;   /* Controller output (%) | ZOUT_${INST:C\d+} | 0;100 */
} NET_WATLOW_OneChannel;

typedef struct {
    FTIME time;
    BYTE n;                             /* Number of controllers used */
    NET_WATLOW_OneChannel channels[16]; /* *instant */
} NET_WATLOW_Channels;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    BYTE n;                             /* Number of controllers used */
    NET_WATLOW_OneChannel channels[16]; /* *instant */
} NET_WATLOW_Avg;

typedef struct {
    WORD state;          /* 0 starting, 1 reading, 2 no answer */
    BYTE n;              /* Number of controllers used */
    DWORD alarms;        /* Alarms, bit i of controller i (bits) */
    DWORD sensor_errors; /* Broken sensors, bit i of controller i (bits) */
    DWORD timeouts;      /* Requests without an answer */
} NET_WATLOW_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_WATLOW_AVERAGE, "watlow", NET_WATLOW_Avg);
ZEB_MESSAGE(MSG_WATLOW_INSTANT, "watlow", NET_WATLOW_Channels);
ZEB_MESSAGE(MSG_WATLOW_SET, "watlow", NET_WATLOW_OneChannel);
ZEB_MESSAGE(MSG_WATLOW_SETPOINTS, "watlow", NET_WATLOW_Channels);
ZEB_MESSAGE(MSG_WATLOW_STATUS, "watlow", NET_WATLOW_Status);

#endif

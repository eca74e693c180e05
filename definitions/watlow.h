/* watlow.h - temperature controllers on one line, each an instrument of its own. Missing: MVC in a
 * real, -1 in a time, 0x55555555 in an int or DWORD. */
#ifndef ZEB2_DEFINITIONS_WATLOW_H
#define ZEB2_DEFINITIONS_WATLOW_H

#include <zeb2/port.h>

#pragma pack(push, 4)

/* One controller. In a MSG_WATLOW_SET the address tells which, setpoint what it shall hold; output
 * is the output to hold when manual is true, the temperature is not read. */
typedef struct {
    BYTE address;    /* Address of the controller */
    double T;        /* Temperature (C) | T_${INST:C\d+} | -200;2000 */
    double setpoint; /* Temperature set point (C) | Ts_${INST:C\d+} | -200;2000 */
    double output;   /* Controller output (%) | ZOUT_${INST:C\d+} | -100;100 */
    BOOL manual;     /* The output is held */
} NET_WATLOW_OneChannel;

/* The controllers read, or in a MSG_WATLOW_SETPOINTS the set points in force. */
typedef struct {
    FTIME time;
    BYTE n;                             /* Number of controllers used */
    NET_WATLOW_OneChannel channels[16]; /* *instant */
} NET_WATLOW_Channels;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples;                      /* Readings averaged (1) */
    BYTE n;                             /* Number of controllers used */
    NET_WATLOW_OneChannel channels[16]; /* *instant */
} NET_WATLOW_Avg;

typedef struct {
    WORD state;          /* 0 starting, 1 reading, 2 no answer */
    BYTE n;              /* Number of controllers used */
    DWORD silent;        /* Controllers without an answer, bit i of controller i (bits) */
    DWORD alarms;        /* Alarms, bit i of controller i (bits) */
    DWORD sensor_errors; /* Broken sensors, bit i of controller i (bits) */
    DWORD manual;        /* Controllers with a held output, bit i of controller i (bits) */
    DWORD timeouts;      /* Requests without an answer */
    DWORD damaged;       /* Answers with a wrong checksum */
} NET_WATLOW_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_WATLOW_AVERAGE, "watlow", NET_WATLOW_Avg);
ZEB_MESSAGE(MSG_WATLOW_INSTANT, "watlow", NET_WATLOW_Channels);
ZEB_MESSAGE(MSG_WATLOW_SET, "watlow", NET_WATLOW_OneChannel);
ZEB_MESSAGE(MSG_WATLOW_SETPOINTS, "watlow", NET_WATLOW_Channels);
ZEB_MESSAGE(MSG_WATLOW_STATUS, "watlow", NET_WATLOW_Status);

#endif

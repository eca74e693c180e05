/* lovepid.h - temperature and process controllers on one line, each with an address. Element i of
 * an array belongs to the controller at address[i]. Missing: MVC in a real, -1 in a time,
 * 0x55555555 in an int or DWORD. */
#ifndef ZEB2_DEFINITIONS_LOVEPID_H
#define ZEB2_DEFINITIONS_LOVEPID_H

#include <zeb2/port.h>

#pragma pack(push, 4)

/* A set point wanted. */
typedef struct {
    BYTE address;    /* Address of the controller */
    double setpoint; /* Set point, in the unit of the controller (any) */
} NET_LOVEPID_Setpoint;

/* The set points that are in force. */
typedef struct {
    BYTE n; /* Number of controllers used */
    NET_LOVEPID_Setpoint setpoints[16];
} NET_LOVEPID_Setpoints;

typedef struct {
    FTIME time;
    BYTE n;              /* Number of controllers used */
    BYTE address[16];    /* Address of each controller */
    double val[16];      /* Process value, in the unit of the controller (any) |
                            ZIN${INDEX:1:2:3:4:5:6:7:8:9:10:11:12:13:14:15:16}_${INST:C\d+} */
    double setpoint[16]; /* Set point, in the unit of the controller (any) |
                            ZSET${INDEX:1:2:3:4:5:6:7:8:9:10:11:12:13:14:15:16}_${INST:C\d+} */
    double
        output[16]; /* Controller output (%) |
                       ZOUT${INDEX:1:2:3:4:5:6:7:8:9:10:11:12:13:14:15:16}_${INST:C\d+} | 0;100 */
} NET_LOVEPID_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples;       /* Readings averaged (1) */
    BYTE n;              /* Number of controllers used */
    BYTE address[16];    /* Address of each controller */
    double val[16];      /* Process value, in the unit of the controller (any) |
                            ZIN${INDEX:1:2:3:4:5:6:7:8:9:10:11:12:13:14:15:16}_${INST:C\d+} */
    double setpoint[16]; /* Set point, in the unit of the controller (any) |
                            ZSET${INDEX:1:2:3:4:5:6:7:8:9:10:11:12:13:14:15:16}_${INST:C\d+} */
    double
        output[16]; /* Controller output (%) |
                       ZOUT${INDEX:1:2:3:4:5:6:7:8:9:10:11:12:13:14:15:16}_${INST:C\d+} | 0;100 */
} NET_LOVEPID_Avg;

typedef struct {
    BYTE address;     /* Address of the controller */
    WORD code;        /* Error that the controller reports: 0 none, 1 command unknown, 2 checksum, 3
                         command not carried out, 4 value out of range, 5 sensor, 6 output, 7
                         memory, 8 address wrong */
    DWORD timeouts;   /* Requests without an answer */
    DWORD damaged;    /* Answers with a wrong checksum */
    FTIME last_error; /* Time of the last increase or code, -1 before it (s since 1970) */
} NET_LOVEPID_Error;

typedef struct {
    WORD state;          /* 0 starting, 1 reading, 2 no answer */
    BYTE n;              /* Number of controllers used */
    DWORD silent;        /* Controllers without an answer, bit i of controller i (bits) */
    DWORD alarms;        /* Alarms, bit i of controller i (bits) */
    DWORD sensor_errors; /* Broken sensors, bit i of controller i (bits) */
    DWORD manual;        /* Controllers with a held output, bit i of controller i (bits) */
    NET_LOVEPID_Error errors[16];
} NET_LOVEPID_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_LOVEPID_AVERAGE, "lovepid", NET_LOVEPID_Avg);
ZEB_MESSAGE(MSG_LOVEPID_INSTANT, "lovepid", NET_LOVEPID_Instant);
ZEB_MESSAGE(MSG_LOVEPID_SET, "lovepid", NET_LOVEPID_Setpoint);
ZEB_MESSAGE(MSG_LOVEPID_SETPOINTS, "lovepid", NET_LOVEPID_Setpoints);
ZEB_MESSAGE(MSG_LOVEPID_STATUS, "lovepid", NET_LOVEPID_Status);

#endif

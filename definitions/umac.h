/* umac.h - microcontroller board with analogue inputs and outputs and digital ports. Each analogue
 * channel has the name by which the other daemons know it. Missing: MVC in a real, -1 in a time,
 * 0x55555555 in an int or DWORD. The bits of flags are listed in the status record. */
#ifndef ZEB2_DEFINITIONS_UMAC_H
#define ZEB2_DEFINITIONS_UMAC_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    STRING name[32]; /* Name of the channel */
    double raw;      /* Signal at the terminal (V) | V_${INST:X\d+} | -15;15 */
    double val;      /* Calibrated value, in the unit of the channel (any) | ZVAL_${INST:X\d+} */
} NET_UMAC_AnalogIn;

typedef struct {
    STRING name[32]; /* Name of the channel */
    double raw;      /* Signal at the terminal (V) | Vo_${INST:X\d+} | -15;15 */
    double val;      /* Value asked for, in the unit of the channel (any) | ZOUT_${INST:X\d+} */
} NET_UMAC_AnalogOut;

typedef struct {
    DWORD inputs;  /* Digital inputs, bit i of input i (bits) */
    DWORD outputs; /* Digital outputs, bit i of output i (bits) */
} NET_UMAC_DIO;

typedef struct {
    FTIME time;
    BYTE n_ain;                /* Number of analogue inputs used */
    BYTE n_aout;               /* Number of analogue outputs used */
    NET_UMAC_AnalogIn ain[24]; /* *instant */
    NET_UMAC_AnalogOut aout[8];
    NET_UMAC_DIO dio;
    double V; /* Supply voltage (V) | Vs_${INST:X\d+} | 0;60 */
    double T; /* Board temperature (C) | T_${INST:X\d+} | -50;100 */
} NET_UMAC_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples;             /* Readings averaged (1) */
    BYTE n_ain;                /* Number of analogue inputs used */
    BYTE n_aout;               /* Number of analogue outputs used */
    NET_UMAC_AnalogIn ain[24]; /* *instant */
    NET_UMAC_AnalogOut aout[8];
    double V; /* Supply voltage (V) | Vs_${INST:X\d+} | 0;60 */
    double T; /* Board temperature (C) | T_${INST:X\d+} | -50;100 */
} NET_UMAC_Avg;

typedef struct {
    DWORD resets;     /* Resets of the board seen */
    DWORD timeouts;   /* Requests without an answer */
    DWORD damaged;    /* Answers with a wrong checksum */
    DWORD refused;    /* Requests that the board refused */
    FTIME last_error; /* Time of the last increase, -1 before it (s since 1970) */
} NET_UMAC_ErrorStatus;

typedef struct {
    BYTE channel;    /* Number of the output, from 0 on */
    double val;      /* Wanted value, in the unit of the channel (any) */
    STRING name[32]; /* Name of the channel; empty to go by its number */
} NET_UMAC_SetAO;

typedef struct {
    DWORD val;  /* Wanted states, bit i of output i (bits) */
    DWORD mask; /* Outputs to be set, bit i of output i (bits) */
} NET_UMAC_SetDO;

typedef struct {
    WORD state; /* 0 starting, 1 reading, 2 no answer */
    WORD flags; /* Instrument status (bits): 0 board reset, 1 supply voltage, 2 reference voltage, 3
                   board temperature, 4 input over its range, 5 outputs off after silence */
    BYTE address;    /* Address of the board */
    BYTE revision;   /* Revision of the board */
    double interval; /* Time between readings (s) */
    DWORD uptime;    /* Time since the last reset of the board (s) */
    STRING serial_number[32];
    STRING firmware[32];
} NET_UMAC_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_UMAC_AVERAGE, "umac", NET_UMAC_Avg);
ZEB_MESSAGE(MSG_UMAC_ERROR_STATUS, "umac", NET_UMAC_ErrorStatus);
ZEB_MESSAGE(MSG_UMAC_INSTANT, "umac", NET_UMAC_Instant);
ZEB_MESSAGE(MSG_UMAC_SET_AO, "umac", NET_UMAC_SetAO);
ZEB_MESSAGE(MSG_UMAC_SET_DO, "umac", NET_UMAC_SetDO);
ZEB_MESSAGE(MSG_UMAC_STATUS, "umac", NET_UMAC_Status);

#endif

/* cr1000.h - programmable data logger with analogue inputs and digital ports. The name of a
 * channel is the identifier in its variables. Missing: MVC in a real, -1 in a time, 0x55555555 in
 * an int or DWORD. */
#ifndef ZEB2_DEFINITIONS_CR1000_H
#define ZEB2_DEFINITIONS_CR1000_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    STRING name[32]; /* Name of the channel */
    double raw;      /* Signal at the terminal (mV) | V_${INST:X\d+} | -6000;6000 */
    double val;      /* Calibrated value, in the unit of the channel (any) | ZVAL_${INST:X\d+} */
} NET_CR1000_AnalogIn;

typedef struct {
    STRING name[32]; /* Name of the port */
    BOOL output;     /* The port is an output */
    BOOL val;        /* State of the port */
} NET_CR1000_DIO;

typedef struct {
    FTIME time;
    FTIME logger_time;           /* Time by the logger's clock (s since 1970) */
    BYTE n_ain;                  /* Number of analogue inputs used (1) */
    BYTE n_dio;                  /* Number of digital ports used (1) */
    NET_CR1000_AnalogIn ain[16]; /* *instant */
    NET_CR1000_DIO dio[8];
    double pulses[2]; /* Pulse input rate (Hz) | ZPULSE${INDEX:1:2}_${INST:X\d+} | 0;1E6 */
    double V;         /* Supply voltage (V) | Vs_${INST:X\d+} | 0;40 */
    double T;         /* Board temperature (C) | T_${INST:X\d+} | -50;100 */
} NET_CR1000_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples;               /* Readings averaged (1) */
    BYTE n_ain;                  /* Number of analogue inputs used (1) */
    NET_CR1000_AnalogIn ain[16]; /* *instant */
    double pulses[2]; /* Pulse input rate (Hz) | ZPULSE${INDEX:1:2}_${INST:X\d+} | 0;1E6 */
    double V;         /* Supply voltage (V) | Vs_${INST:X\d+} | 0;40 */
    double T;         /* Board temperature (C) | T_${INST:X\d+} | -50;100 */
} NET_CR1000_Avg;

/* Counters that the logger keeps until it is reset. */
typedef struct {
    int watchdog;     /* Watchdog resets (1) */
    int overrun;      /* Programme overruns (1) */
    int low_supply;   /* Times that the supply was too low (1) */
    int low_battery;  /* Times that the back-up battery was too low (1) */
    int lost_records; /* Records lost on the way (1) */
    FTIME last_error; /* Time of the last increase, -1 for none (s since 1970) */
} NET_CR1000_ErrorStatus;

typedef struct {
    BYTE port;       /* Number of the port, from 0 on */
    BOOL val;        /* Wanted state */
    STRING name[32]; /* Name of the port; when not empty, taken instead of the number */
} NET_CR1000_SetDO;

typedef struct {
    WORD state;           /* 0 starting, 1 reading, 2 no answer */
    WORD flags;           /* Inputs over their range, bit i of input i (bits) */
    double scan_interval; /* Time between scans (s) */
    double V_battery;     /* Back-up battery voltage (V) | V2_${INST:X\d+} | 0;10 */
    STRING program[64];   /* Name of the programme that the logger runs */
    STRING serial_number[32];
    STRING firmware[32];
} NET_CR1000_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_CR1000_AVERAGE, "cr1000", NET_CR1000_Avg);
ZEB_MESSAGE(MSG_CR1000_ERROR_STATUS, "cr1000", NET_CR1000_ErrorStatus);
ZEB_MESSAGE(MSG_CR1000_INSTANT, "cr1000", NET_CR1000_Instant);
ZEB_MESSAGE(MSG_CR1000_SET_DO, "cr1000", NET_CR1000_SetDO);
ZEB_MESSAGE(MSG_CR1000_STATUS, "cr1000", NET_CR1000_Status);

#endif

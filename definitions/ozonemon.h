/* ozonemon.h - ozone monitor: absorption of ultraviolet light at 254 nm in two cells, which take
 * sample and scrubbed air in turn. Missing: MVC in a real, -1 in a time, 0x55555555 in an int or
 * DWORD. The bits of flags are listed in the status record. */
#ifndef ZEB2_DEFINITIONS_OZONEMON_H
#define ZEB2_DEFINITIONS_OZONEMON_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    double X;      /* Ozone mixing ratio (ppb) | X_${INST:G\d+} | -10;1E4 */
    double C1;     /* Cell A count rate (Hz) | C1_${INST:G\d+} | 0;1E7 */
    double C2;     /* Cell B count rate (Hz) | C2_${INST:G\d+} | 0;1E7 */
    double noise1; /* Cell A noise (Hz) | Cg1_${INST:G\d+} | 0;1E6 */
    double noise2; /* Cell B noise (Hz) | Cg2_${INST:G\d+} | 0;1E6 */
    double Q1;     /* Cell A flow (lpm) | Q1_${INST:G\d+} | 0;10 */
    double Q2;     /* Cell B flow (lpm) | Q2_${INST:G\d+} | 0;10 */
    double P;      /* Cell pressure (hPa) | P_${INST:G\d+} | 100;1200 */
    double T1;     /* Sample temperature (C) | T1_${INST:G\d+} | -50;100 */
    double T2;     /* Lamp temperature (C) | T2_${INST:G\d+} | -50;150 */
    double T3;     /* Ozonator lamp temperature (C) | T3_${INST:G\d+} | -50;150 */
    double lamp;   /* Lamp drive (%) | ZLAMP_${INST:G\d+} | 0;100 */
    DWORD flags;   /* Instrument status (bits) */
} NET_OZONEMON_Reading;

/* The latest reading and the running average since start_time; in a MSG_OZONEMON_AVERAGE the latter
 * has run its full time. */
typedef struct {
    FTIME start_time;
    FTIME time;
    DWORD samples;           /* Readings averaged (1) */
    NET_OZONEMON_Reading in; /* *instant */
    NET_OZONEMON_Reading ra;
} NET_OZONEMON_Instant;

/* Result of a zero with scrubbed air. */
typedef struct {
    FTIME start_time;
    FTIME end_time;
    double X;         /* Ozone mixing ratio of scrubbed air (ppb) | Xz_${INST:G\d+} | -100;100 */
    double deviation; /* Standard deviation during the zero (ppb) | Xzg_${INST:G\d+} | 0;100 */
    double shift;     /* Change of the zero (ppb) | Xzd_${INST:G\d+} | -100;100 */
    double P;         /* Cell pressure (hPa) | Pz_${INST:G\d+} | 100;1200 */
    double T;         /* Sample temperature (C) | Tz_${INST:G\d+} | -50;100 */
} NET_OZONEMON_Zero;

typedef struct {
    WORD state;  /* 0 starting, 1 sampling, 2 zeroing, 3 calibrating, 4 no answer */
    DWORD flags; /* Instrument status (bits): 0 lamp dim, 1 lamp temperature, 2 cell temperature, 3
                    ozonator temperature, 4 pressure, 5 cell A flow, 6 cell B flow, 7 cell A counts,
                    8 cell B counts, 9 ozone out of range, 10 pressure not compensated, 11
                    temperature not compensated, 12 service mode, 13 clock */
    double background;      /* Background correction (ppb) */
    double coefficient;     /* Calibration coefficient (1) */
    double averaging;       /* Averaging time of the instrument (s) */
    double zero_interval;   /* Time between zeros, missing without a schedule (s) */
    double zero_duration;   /* Duration of a zero (s) */
    FTIME last_zero;        /* End of the last zero, -1 before it (s since 1970) */
    FTIME next_zero;        /* Time of the next zero, -1 without a schedule (s since 1970) */
    FTIME last_calibration; /* End of the last calibration, -1 before it (s since 1970) */
    double X_level;         /* Ozone that the ozonator is set to while calibrating (ppb) */
    FTIME instrument_time;  /* Time by the instrument's clock (s since 1970) */
    STRING serial_number[32];
    STRING firmware[32];
} NET_OZONEMON_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_OZONEMON_AVERAGE, "ozonemon", NET_OZONEMON_Instant);
ZEB_MESSAGE(MSG_OZONEMON_INSTANT, "ozonemon", NET_OZONEMON_Instant);
ZEB_MESSAGE_BARE(MSG_OZONEMON_STARTCALIBRATE, "ozonemon");
ZEB_MESSAGE_BARE(MSG_OZONEMON_STARTZERO, "ozonemon");
ZEB_MESSAGE(MSG_OZONEMON_STATUS, "ozonemon", NET_OZONEMON_Status);
ZEB_MESSAGE(MSG_OZONEMON_ZERO, "ozonemon", NET_OZONEMON_Zero);

#endif

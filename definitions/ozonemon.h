/* ozonemon.h - ozone monitor: absorption of ultraviolet light in two cells. */
#ifndef ZEB2_DEFINITIONS_OZONEMON_H
#define ZEB2_DEFINITIONS_OZONEMON_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    double X;       /* Ozone mixing ratio (ppb) | X_${INST:G\d+} | -10;1E4 */
    double A;       /* Cell A count rate (Hz) | C1_${INST:G\d+} */
    double B;       /* Cell B count rate (Hz) | C2_${INST:G\d+} */
    double noise_A; /* Cell A noise (Hz) | Cg1_${INST:G\d+} */
    double noise_B; /* Cell B noise (Hz) | Cg2_${INST:G\d+} */
    double Q1;      /* Cell A flow (lpm) | Q1_${INST:G\d+} */
    double Q2;      /* Cell B flow (lpm) | Q2_${INST:G\d+} */
    double P;       /* Cell pressure (hPa) | P_${INST:G\d+} */
    double T1;      /* Sample temperature (C) | T1_${INST:G\d+} */
    double T2;      /* Lamp temperature (C) | T2_${INST:G\d+} */
    double T3;      /* Ozonator lamp temperature (C) | T3_${INST:G\d+} */
    WORD flags;     /* Instrument status (bits) */
} NET_OZONEMON_Reading;

/* The latest reading and the running average since start_time; in a MSG_OZONEMON_AVERAGE the
 * latter has run its full time. */
typedef struct {
    FTIME start_time;
    FTIME time;
    NET_OZONEMON_Reading in; /* *instant */
    NET_OZONEMON_Reading ra;
} NET_OZONEMON_Instant;

/* Result of a zero with scrubbed air. */
typedef struct {
    FTIME start_time;
    FTIME end_time;
    double X;         /* Ozone mixing ratio of scrubbed air (ppb) | Xz_${INST:G\d+} */
    double deviation; /* Standard deviation during the zero (ppb) | Xzg_${INST:G\d+} */
    double shift;     /* Change of the zero (ppb) | Xzd_${INST:G\d+} */
} NET_OZONEMON_Zero;

typedef struct {
    WORD state;         /* 0 starting, 1 sampling, 2 zeroing, 3 calibrating, 4 no answer */
    DWORD flags;        /* Instrument status (bits) */
    double background;  /* Background correction (ppb) */
    double coefficient; /* Calibration coefficient (1) */
    double averaging;   /* Averaging time of the instrument (s) */
    FTIME next_zero;    /* Time of the next zero (s since 1970) */
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

/* tdl.h - gas analyser with a tunable diode laser. */
#ifndef ZEB2_DEFINITIONS_TDL_H
#define ZEB2_DEFINITIONS_TDL_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time;
    double X[3];     /* Mixing ratio of each gas (ppb) | X${INDEX:1:2:3}_${INST:G\d+} */
    double P;        /* Cell pressure (hPa) | P_${INST:G\d+} */
    double T1;       /* Cell temperature (C) | T1_${INST:G\d+} */
    double T2;       /* Laser temperature (C) | T2_${INST:G\d+} */
    double Q;        /* Sample flow (slpm) | Q_${INST:G\d+} */
    double laser;    /* Laser current (mA) | A_${INST:G\d+} */
    double signal;   /* Transmitted light signal (V) | V_${INST:G\d+} */
    double ringdown; /* Ring-down time (us) | ZRD_${INST:G\d+} */
    WORD flags;      /* Instrument status (bits) */
} NET_TDL_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    double X[3];     /* Mixing ratio of each gas (ppb) | X${INDEX:1:2:3}_${INST:G\d+} */
    double P;        /* Cell pressure (hPa) | P_${INST:G\d+} */
    double T1;       /* Cell temperature (C) | T1_${INST:G\d+} */
    double T2;       /* Laser temperature (C) | T2_${INST:G\d+} */
    double Q;        /* Sample flow (slpm) | Q_${INST:G\d+} */
    double laser;    /* Laser current (mA) | A_${INST:G\d+} */
    double signal;   /* Transmitted light signal (V) | V_${INST:G\d+} */
    double ringdown; /* Ring-down time (us) | ZRD_${INST:G\d+} */
    WORD flags;      /* Every instrument status seen (bits) */
} NET_TDL_Avg;

typedef struct {
    WORD state; /* 0 starting, 1 sampling, 2 zeroing, 3 calibrating, 4 no answer */
    WORD flags; /* Instrument status (bits) */
    STRING gas1[16];
    STRING gas2[16];
    STRING gas3[16];
    STRING serial_number[32];
} NET_TDL_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_TDL_AVERAGE, "tdl", NET_TDL_Avg);
ZEB_MESSAGE(MSG_TDL_INSTANT, "tdl", NET_TDL_Instant);
ZEB_MESSAGE(MSG_TDL_STATUS, "tdl", NET_TDL_Status);

#endif

/* cpc_3783.h - water particle counter with a separator for waste water. Bits of flags and missing
 * values are as in common_cnc.h. */
#ifndef ZEB2_DEFINITIONS_CPC_3783_H
#define ZEB2_DEFINITIONS_CPC_3783_H

#include <zeb2/port.h>

#pragma pack(push, 4)

/* A pulse height that falls tells of water that is failing to condense, before N does. */
typedef struct {
    FTIME time;
    double N;            /* Particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E6 */
    double C;            /* Count rate (Hz) | C_${INST:N\d+} | 0;1E7 */
    double Q;            /* Sample flow (lpm) | Q1_${INST:N\d+} | -1;20 */
    double Qi;           /* Inlet flow (lpm) | Q2_${INST:N\d+} | -1;20 */
    double T1;           /* Conditioner temperature (C) | T1_${INST:N\d+} | -50;100 */
    double T2;           /* Growth tube temperature (C) | T2_${INST:N\d+} | -50;100 */
    double T3;           /* Optics temperature (C) | T3_${INST:N\d+} | -50;100 */
    double T4;           /* Water separator temperature (C) | T4_${INST:N\d+} | -50;100 */
    double T5;           /* Cabinet temperature (C) | T5_${INST:N\d+} | -50;100 */
    double P;            /* Ambient pressure (hPa) | P_${INST:N\d+} | 100;1200 */
    double Pd1;          /* Orifice pressure drop (hPa) | Pd1_${INST:N\d+} | -10;1100 */
    double Pd2;          /* Nozzle pressure drop (hPa) | Pd2_${INST:N\d+} | -10;100 */
    double laser;        /* Laser current (mA) | A_${INST:N\d+} | 0;500 */
    double pulse_height; /* Pulse height (mV) | V1_${INST:N\d+} | 0;1E4 */
    double deviation;    /* Standard deviation of the pulse height (mV) | V2_${INST:N\d+} | 0;1E4 */
    WORD flags;          /* Instrument status (bits) */
} NET_CPC_3783_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples;       /* Readings averaged (1) */
    double N;            /* Particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E6 */
    double C;            /* Count rate (Hz) | C_${INST:N\d+} | 0;1E7 */
    double Q;            /* Sample flow (lpm) | Q1_${INST:N\d+} | -1;20 */
    double Qi;           /* Inlet flow (lpm) | Q2_${INST:N\d+} | -1;20 */
    double T1;           /* Conditioner temperature (C) | T1_${INST:N\d+} | -50;100 */
    double T2;           /* Growth tube temperature (C) | T2_${INST:N\d+} | -50;100 */
    double T3;           /* Optics temperature (C) | T3_${INST:N\d+} | -50;100 */
    double T4;           /* Water separator temperature (C) | T4_${INST:N\d+} | -50;100 */
    double T5;           /* Cabinet temperature (C) | T5_${INST:N\d+} | -50;100 */
    double P;            /* Ambient pressure (hPa) | P_${INST:N\d+} | 100;1200 */
    double Pd1;          /* Orifice pressure drop (hPa) | Pd1_${INST:N\d+} | -10;1100 */
    double Pd2;          /* Nozzle pressure drop (hPa) | Pd2_${INST:N\d+} | -10;100 */
    double laser;        /* Laser current (mA) | A_${INST:N\d+} | 0;500 */
    double pulse_height; /* Pulse height (mV) | V1_${INST:N\d+} | 0;1E4 */
    double deviation;    /* Standard deviation of the pulse height (mV) | V2_${INST:N\d+} | 0;1E4 */
    WORD flags;          /* Every instrument status seen (bits) */
} NET_CPC_3783_Avg;

typedef struct {
    WORD state; /* 0 starting, 1 warming up, 2 counting, 3 no answer */
    WORD
        flags; /* Instrument status (bits): 0 conditioner, 1 growth tube, 2 optics temperature, 3
                  inlet flow, 4 sample flow, 5 laser, 6 water, 7 concentration out of range, 8 water
                  separator temperature, 9 waste bottle, 10 pulse height, 11 calibration due */
    BOOL liquid_ok;  /* Enough water */
    BOOL waste_full; /* The waste bottle is full */
    BOOL pump_on;    /* The pump runs */
    BOOL high_flow;  /* The high flow mode is set */
    double Q_set;    /* Inlet flow set point (lpm) */
    double T1_set;   /* Conditioner temperature set point (C) */
    double T2_set;   /* Growth tube temperature set point (C) */
    double T3_set;   /* Optics temperature set point (C) */
    double T4_set;   /* Water separator temperature set point (C) */
    STRING serial_number[32];
    STRING firmware[32];
} NET_CPC_3783_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_CPC_3783_AVERAGE, "cnc", NET_CPC_3783_Avg);
ZEB_MESSAGE(MSG_CPC_3783_INSTANT, "cnc", NET_CPC_3783_Instant);
ZEB_MESSAGE(MSG_CPC_3783_STATUS, "cnc", NET_CPC_3783_Status);

#endif

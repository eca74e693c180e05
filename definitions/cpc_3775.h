/* cpc_3775.h - butanol particle counter with pressure transducers for its flows and a photometric
 * range for high concentrations. Bits of flags and missing values are as in common_cnc.h. */
#ifndef ZEB2_DEFINITIONS_CPC_3775_H
#define ZEB2_DEFINITIONS_CPC_3775_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time;
    double N;      /* Particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E7 */
    double C;      /* Count rate (Hz) | C_${INST:N\d+} | 0;1E7 */
    double Q;      /* Sample flow (lpm) | Q1_${INST:N\d+} | -1;20 */
    double Qi;     /* Inlet flow (lpm) | Q2_${INST:N\d+} | -1;20 */
    double T1;     /* Saturator temperature (C) | T1_${INST:N\d+} | -50;100 */
    double T2;     /* Condenser temperature (C) | T2_${INST:N\d+} | -50;100 */
    double T3;     /* Optics temperature (C) | T3_${INST:N\d+} | -50;100 */
    double T4;     /* Cabinet temperature (C) | T4_${INST:N\d+} | -50;100 */
    double P;      /* Ambient pressure (hPa) | P_${INST:N\d+} | 100;1200 */
    double Pd1;    /* Orifice pressure drop (hPa) | Pd1_${INST:N\d+} | -10;1100 */
    double Pd2;    /* Nozzle pressure drop (hPa) | Pd2_${INST:N\d+} | -10;100 */
    double laser;  /* Laser current (mA) | A_${INST:N\d+} | 0;500 */
    double liquid; /* Liquid level signal (V) | V1_${INST:N\d+} | -1;12 */
    WORD flags;    /* Instrument status (bits) */
} NET_CPC_3775_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples; /* Readings averaged (1) */
    double N;      /* Particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E7 */
    double C;      /* Count rate (Hz) | C_${INST:N\d+} | 0;1E7 */
    double Q;      /* Sample flow (lpm) | Q1_${INST:N\d+} | -1;20 */
    double Qi;     /* Inlet flow (lpm) | Q2_${INST:N\d+} | -1;20 */
    double T1;     /* Saturator temperature (C) | T1_${INST:N\d+} | -50;100 */
    double T2;     /* Condenser temperature (C) | T2_${INST:N\d+} | -50;100 */
    double T3;     /* Optics temperature (C) | T3_${INST:N\d+} | -50;100 */
    double T4;     /* Cabinet temperature (C) | T4_${INST:N\d+} | -50;100 */
    double P;      /* Ambient pressure (hPa) | P_${INST:N\d+} | 100;1200 */
    double Pd1;    /* Orifice pressure drop (hPa) | Pd1_${INST:N\d+} | -10;1100 */
    double Pd2;    /* Nozzle pressure drop (hPa) | Pd2_${INST:N\d+} | -10;100 */
    double laser;  /* Laser current (mA) | A_${INST:N\d+} | 0;500 */
    double liquid; /* Liquid level signal (V) | V1_${INST:N\d+} | -1;12 */
    WORD flags;    /* Every instrument status seen (bits) */
} NET_CPC_3775_Avg;

typedef struct {
    WORD state; /* 0 starting, 1 warming up, 2 counting, 3 no answer */
    WORD flags; /* Instrument status (bits): 0 saturator, 1 condenser, 2 optics temperature, 3 inlet
                   flow, 4 sample flow, 5 laser, 6 liquid, 7 concentration out of range, 8
                   photometric range in use, 9 calibration due */
    BOOL liquid_ok;        /* Enough working liquid */
    BOOL high_flow;        /* The high flow mode is set */
    BOOL pump_on;          /* The pump runs */
    BOOL auto_fill;        /* The instrument fills itself */
    BOOL photometric_mode; /* The concentration comes from the photometric range */
    double T1_set;         /* Saturator temperature set point (C) */
    double T2_set;         /* Condenser temperature set point (C) */
    double T3_set;         /* Optics temperature set point (C) */
    STRING serial_number[32];
    STRING firmware[32];
} NET_CPC_3775_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_CPC_3775_AVERAGE, "cnc", NET_CPC_3775_Avg);
ZEB_MESSAGE(MSG_CPC_3775_INSTANT, "cnc", NET_CPC_3775_Instant);
ZEB_MESSAGE(MSG_CPC_3775_STATUS, "cnc", NET_CPC_3775_Status);

#endif

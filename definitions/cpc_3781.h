/* cpc_3781.h - water particle counter: a cool conditioner and a warm, wet growth tube. Bits of
 * flags and missing values are as in common_cnc.h. */
#ifndef ZEB2_DEFINITIONS_CPC_3781_H
#define ZEB2_DEFINITIONS_CPC_3781_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time;
    double N;     /* Particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E6 */
    double C;     /* Count rate (Hz) | C_${INST:N\d+} | 0;1E7 */
    double Q;     /* Sample flow (lpm) | Q1_${INST:N\d+} | -1;20 */
    double Qi;    /* Inlet flow (lpm) | Q2_${INST:N\d+} | -1;20 */
    double T1;    /* Conditioner temperature (C) | T1_${INST:N\d+} | -50;100 */
    double T2;    /* Growth tube temperature (C) | T2_${INST:N\d+} | -50;100 */
    double T3;    /* Optics temperature (C) | T3_${INST:N\d+} | -50;100 */
    double P;     /* Ambient pressure (hPa) | P_${INST:N\d+} | 100;1200 */
    double Pd1;   /* Orifice pressure drop (hPa) | Pd1_${INST:N\d+} | -10;1100 */
    double Pd2;   /* Nozzle pressure drop (hPa) | Pd2_${INST:N\d+} | -10;100 */
    double laser; /* Laser current (mA) | A_${INST:N\d+} | 0;500 */
    WORD flags;   /* Instrument status (bits) */
} NET_CPC_3781_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples; /* Readings averaged (1) */
    double N;      /* Particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E6 */
    double C;      /* Count rate (Hz) | C_${INST:N\d+} | 0;1E7 */
    double Q;      /* Sample flow (lpm) | Q1_${INST:N\d+} | -1;20 */
    double Qi;     /* Inlet flow (lpm) | Q2_${INST:N\d+} | -1;20 */
    double T1;     /* Conditioner temperature (C) | T1_${INST:N\d+} | -50;100 */
    double T2;     /* Growth tube temperature (C) | T2_${INST:N\d+} | -50;100 */
    double T3;     /* Optics temperature (C) | T3_${INST:N\d+} | -50;100 */
    double P;      /* Ambient pressure (hPa) | P_${INST:N\d+} | 100;1200 */
    double Pd1;    /* Orifice pressure drop (hPa) | Pd1_${INST:N\d+} | -10;1100 */
    double Pd2;    /* Nozzle pressure drop (hPa) | Pd2_${INST:N\d+} | -10;100 */
    double laser;  /* Laser current (mA) | A_${INST:N\d+} | 0;500 */
    WORD flags;    /* Every instrument status seen (bits) */
} NET_CPC_3781_Avg;

typedef struct {
    WORD state; /* 0 starting, 1 warming up, 2 counting, 3 no answer */
    WORD flags; /* Instrument status (bits): 0 conditioner, 1 growth tube, 2 optics temperature, 3
                   inlet flow, 4 sample flow, 5 laser, 6 water, 7 concentration out of range, 8
                   water valve open, 9 calibration due */
    BOOL liquid_ok; /* Enough water */
    BOOL pump_on;   /* The pump runs */
    double T1_set;  /* Conditioner temperature set point (C) */
    double T2_set;  /* Growth tube temperature set point (C) */
    double T3_set;  /* Optics temperature set point (C) */
    STRING serial_number[32];
    STRING firmware[32];
} NET_CPC_3781_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_CPC_3781_AVERAGE, "cnc", NET_CPC_3781_Avg);
ZEB_MESSAGE(MSG_CPC_3781_INSTANT, "cnc", NET_CPC_3781_Instant);
ZEB_MESSAGE(MSG_CPC_3781_STATUS, "cnc", NET_CPC_3781_Status);

#endif

/* cpc_3703.h - butanol particle counter without electronics of its own for its flow: a controller
 * counts the pulses, drives the temperatures and measures the flow over an orifice. Bits of flags
 * and missing values are as in common_cnc.h. */
#ifndef ZEB2_DEFINITIONS_CPC_3703_H
#define ZEB2_DEFINITIONS_CPC_3703_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time;
    double N;   /* Particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E6 */
    double C;   /* Count rate (Hz) | C_${INST:N\d+} | 0;1E7 */
    double Q;   /* Sample flow (lpm) | Q_${INST:N\d+} | -1;20 */
    double T1;  /* Saturator temperature (C) | T1_${INST:N\d+} | -50;100 */
    double T2;  /* Condenser temperature (C) | T2_${INST:N\d+} | -50;100 */
    double T3;  /* Optics temperature (C) | T3_${INST:N\d+} | -50;100 */
    double P;   /* Sample pressure (hPa) | P_${INST:N\d+} | 100;1200 */
    double Pd1; /* Orifice pressure drop (hPa) | Pd1_${INST:N\d+} | -10;1100 */
    WORD flags; /* Instrument status (bits) */
} NET_CPC_3703_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples; /* Readings averaged (1) */
    double N;      /* Particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E6 */
    double C;      /* Count rate (Hz) | C_${INST:N\d+} | 0;1E7 */
    double Q;      /* Sample flow (lpm) | Q_${INST:N\d+} | -1;20 */
    double T1;     /* Saturator temperature (C) | T1_${INST:N\d+} | -50;100 */
    double T2;     /* Condenser temperature (C) | T2_${INST:N\d+} | -50;100 */
    double T3;     /* Optics temperature (C) | T3_${INST:N\d+} | -50;100 */
    double P;      /* Sample pressure (hPa) | P_${INST:N\d+} | 100;1200 */
    double Pd1;    /* Orifice pressure drop (hPa) | Pd1_${INST:N\d+} | -10;1100 */
    WORD flags;    /* Every instrument status seen (bits) */
} NET_CPC_3703_Avg;

typedef struct {
    WORD state; /* 0 starting, 1 warming up, 2 counting, 3 no answer */
    WORD flags; /* Instrument status (bits): 0 saturator, 1 condenser, 2 optics temperature, 3 inlet
                   flow, 4 sample flow, 5 laser, 6 liquid, 7 concentration out of range, 8 fill
                   valve open, 9 no pump */
    BOOL liquid_ok;      /* Enough working liquid */
    BOOL pump_on;        /* The pump runs */
    double T_difference; /* Set difference of saturator and condenser (C) */
    double Q_set;        /* Sample flow set point (lpm) */
    STRING serial_number[32];
    STRING firmware[32];
} NET_CPC_3703_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_CPC_3703_AVERAGE, "cnc", NET_CPC_3703_Avg);
ZEB_MESSAGE(MSG_CPC_3703_INSTANT, "cnc", NET_CPC_3703_Instant);
ZEB_MESSAGE(MSG_CPC_3703_STATUS, "cnc", NET_CPC_3703_Status);

#endif

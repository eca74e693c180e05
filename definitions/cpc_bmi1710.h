/* cpc_bmi1710.h - butanol particle counter that mixes a saturated flow into its sample, with both
 * flows controlled. Bits of flags and missing values are as in common_cnc.h. */
#ifndef ZEB2_DEFINITIONS_CPC_BMI1710_H
#define ZEB2_DEFINITIONS_CPC_BMI1710_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    double N;        /* Particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E6 */
    double Nu;       /* Particle concentration without coincidence correction (1/cm3) |
                        Nu_${INST:N\d+} | 0;1E6 */
    double C;        /* Count rate (Hz) | C_${INST:N\d+} | 0;1E7 */
    double Q;        /* Sample flow (lpm) | Q1_${INST:N\d+} | -1;20 */
    double Qs;       /* Saturator flow (lpm) | Q2_${INST:N\d+} | -1;20 */
    double T1;       /* Saturator bottom temperature (C) | T1_${INST:N\d+} | -50;100 */
    double T2;       /* Saturator top temperature (C) | T2_${INST:N\d+} | -50;100 */
    double T3;       /* Condenser temperature (C) | T3_${INST:N\d+} | -50;100 */
    double T4;       /* Optics temperature (C) | T4_${INST:N\d+} | -50;100 */
    double T5;       /* Inlet temperature (C) | T5_${INST:N\d+} | -50;100 */
    double P;        /* Sample pressure (hPa) | P_${INST:N\d+} | 100;1200 */
    double power[5]; /* Drive of saturator bottom, saturator top, condenser, optics, saturator pump
                        (%) | ZPOWER${INDEX:1:2:3:4:5}_${INST:N\d+} | 0;100 */
    double liquid;   /* Liquid level (%) | ZLIQUID_${INST:N\d+} | 0;100 */
    WORD flags;      /* Instrument status (bits) */
} NET_CPC_BMI1710_Reading;

/* The latest reading and the running average since start_time; in a MSG_CPC_BMI1710_AVERAGE the
 * latter has run its full time and ends at time. */
typedef struct {
    FTIME start_time;
    FTIME time;
    DWORD samples;              /* Readings averaged (1) */
    NET_CPC_BMI1710_Reading in; /* *instant */
    NET_CPC_BMI1710_Reading ra;
} NET_CPC_BMI1710_Instant;

typedef struct {
    WORD state; /* 0 starting, 1 warming up, 2 counting, 3 no answer */
    WORD flags; /* Instrument status (bits): 0 saturator, 1 condenser, 2 optics temperature, 3 inlet
                   flow, 4 sample flow, 5 laser, 6 liquid, 7 concentration out of range, 8 saturator
                   flow, 9 inlet temperature, 10 pressure */
    BOOL liquid_ok;       /* Enough working liquid */
    BOOL pump_on;         /* The pump runs */
    double Q_set;         /* Sample flow set point (lpm) */
    double saturator_set; /* Saturator flow set point (lpm) */
    double T_difference;  /* Set difference of saturator and condenser (C) */
    DWORD fills;          /* Times that the liquid was filled up (1) */
    STRING serial_number[32];
    STRING firmware[32];
} NET_CPC_BMI1710_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_CPC_BMI1710_AVERAGE, "cnc", NET_CPC_BMI1710_Instant);
ZEB_MESSAGE(MSG_CPC_BMI1710_INSTANT, "cnc", NET_CPC_BMI1710_Instant);
ZEB_MESSAGE(MSG_CPC_BMI1710_STATUS, "cnc", NET_CPC_BMI1710_Status);

#endif

/* cpc_bmi1710.h - butanol particle counter with controlled flows. */
#ifndef ZEB2_DEFINITIONS_CPC_BMI1710_H
#define ZEB2_DEFINITIONS_CPC_BMI1710_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    double N;      /* Particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E6 */
    double C;      /* Count rate (Hz) | C_${INST:N\d+} */
    double Q1;     /* Sample flow (lpm) | Q1_${INST:N\d+} */
    double Q2;     /* Saturator flow (lpm) | Q2_${INST:N\d+} */
    double T1;     /* Saturator bottom temperature (C) | T1_${INST:N\d+} */
    double T2;     /* Saturator top temperature (C) | T2_${INST:N\d+} */
    double T3;     /* Condenser temperature (C) | T3_${INST:N\d+} */
    double T4;     /* Optics temperature (C) | T4_${INST:N\d+} */
    double T5;     /* Inlet temperature (C) | T5_${INST:N\d+} */
    double P;      /* Sample pressure (hPa) | P_${INST:N\d+} */
    double liquid; /* Liquid level (%) | ZLIQUID_${INST:N\d+} */
    WORD flags;    /* Instrument status (bits) */
} NET_CPC_BMI1710_Reading;

/* The latest reading and the running average since start_time; in a MSG_CPC_BMI1710_AVERAGE the
 * latter has run its full time. */
typedef struct {
    FTIME start_time;
    FTIME time;
    NET_CPC_BMI1710_Reading in; /* *instant */
    NET_CPC_BMI1710_Reading ra;
} NET_CPC_BMI1710_Instant;

typedef struct {
    WORD state;          /* 0 starting, 1 warming up, 2 counting, 3 no answer */
    WORD flags;          /* Instrument status (bits) */
    BOOL pump_on;        /* The pump runs */
    double flow_set;     /* Sample flow set point (lpm) */
    double T_difference; /* Set difference of saturator and condenser (C) */
    STRING serial_number[32];
    STRING firmware[32];
} NET_CPC_BMI1710_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_CPC_BMI1710_AVERAGE, "cnc", NET_CPC_BMI1710_Instant);
ZEB_MESSAGE(MSG_CPC_BMI1710_INSTANT, "cnc", NET_CPC_BMI1710_Instant);
ZEB_MESSAGE(MSG_CPC_BMI1710_STATUS, "cnc", NET_CPC_BMI1710_Status);

#endif

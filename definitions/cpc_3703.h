/* cpc_3703.h - particle counter whose counts and flow are read over a controller. */
#ifndef ZEB2_DEFINITIONS_CPC_3703_H
#define ZEB2_DEFINITIONS_CPC_3703_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time;
    double N;   /* Particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E6 */
    double C;   /* Count rate (Hz) | C_${INST:N\d+} */
    double Q;   /* Sample flow (lpm) | Q_${INST:N\d+} */
    double P;   /* Sample pressure (hPa) | P_${INST:N\d+} */
    double T1;  /* Saturator temperature (C) | T1_${INST:N\d+} */
    double T2;  /* Condenser temperature (C) | T2_${INST:N\d+} */
    double T3;  /* Optics temperature (C) | T3_${INST:N\d+} */
    double dP;  /* Orifice pressure drop (hPa) | Pd1_${INST:N\d+} */
    WORD flags; /* Instrument status (bits) */
} NET_CPC_3703_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    double N;   /* Particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E6 */
    double C;   /* Count rate (Hz) | C_${INST:N\d+} */
    double Q;   /* Sample flow (lpm) | Q_${INST:N\d+} */
    double P;   /* Sample pressure (hPa) | P_${INST:N\d+} */
    double T1;  /* Saturator temperature (C) | T1_${INST:N\d+} */
    double T2;  /* Condenser temperature (C) | T2_${INST:N\d+} */
    double T3;  /* Optics temperature (C) | T3_${INST:N\d+} */
    double dP;  /* Orifice pressure drop (hPa) | Pd1_${INST:N\d+} */
    WORD flags; /* Every instrument status seen (bits) */
} NET_CPC_3703_Avg;

typedef struct {
    WORD state;     /* 0 starting, 1 warming up, 2 counting, 3 no answer */
    WORD flags;     /* Instrument status (bits) */
    BOOL liquid_ok; /* Enough working liquid */
    BOOL pump_on;   /* The pump runs */
    STRING serial_number[32];
    STRING firmware[32];
} NET_CPC_3703_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_CPC_3703_AVERAGE, "cnc", NET_CPC_3703_Avg);
ZEB_MESSAGE(MSG_CPC_3703_INSTANT, "cnc", NET_CPC_3703_Instant);
ZEB_MESSAGE(MSG_CPC_3703_STATUS, "cnc", NET_CPC_3703_Status);

#endif

/* cpc_3022.h - butanol particle counter with a photometric range for high concentrations. */
#ifndef ZEB2_DEFINITIONS_CPC_3022_H
#define ZEB2_DEFINITIONS_CPC_3022_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time;
    double N;           /* Particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E7 */
    double C;           /* Count rate (Hz) | C_${INST:N\d+} */
    double photometric; /* Photometric detector signal (V) | V_${INST:N\d+} */
    double Q;           /* Sample flow (lpm) | Q1_${INST:N\d+} */
    double Qt;          /* Total flow (lpm) | Q2_${INST:N\d+} */
    double T1;          /* Saturator temperature (C) | T1_${INST:N\d+} */
    double T2;          /* Condenser temperature (C) | T2_${INST:N\d+} */
    double T3;          /* Optics temperature (C) | T3_${INST:N\d+} */
    WORD flags;         /* Instrument status (bits) */
} NET_CPC_3022_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    double N;           /* Particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E7 */
    double C;           /* Count rate (Hz) | C_${INST:N\d+} */
    double photometric; /* Photometric detector signal (V) | V_${INST:N\d+} */
    double Q;           /* Sample flow (lpm) | Q1_${INST:N\d+} */
    double Qt;          /* Total flow (lpm) | Q2_${INST:N\d+} */
    double T1;          /* Saturator temperature (C) | T1_${INST:N\d+} */
    double T2;          /* Condenser temperature (C) | T2_${INST:N\d+} */
    double T3;          /* Optics temperature (C) | T3_${INST:N\d+} */
    WORD flags;         /* Every instrument status seen (bits) */
} NET_CPC_3022_Avg;

typedef struct {
    WORD state;           /* 0 starting, 1 warming up, 2 counting, 3 no answer */
    WORD flags;           /* Instrument status (bits) */
    BOOL liquid_ok;       /* Enough working liquid */
    BOOL vacuum_ok;       /* Enough vacuum */
    BOOL high_flow;       /* The high flow mode is set */
    double laser_current; /* Laser current (mA) */
    STRING firmware[32];
} NET_CPC_3022_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_CPC_3022_AVERAGE, "cnc", NET_CPC_3022_Avg);
ZEB_MESSAGE(MSG_CPC_3022_INSTANT, "cnc", NET_CPC_3022_Instant);
ZEB_MESSAGE(MSG_CPC_3022_STATUS, "cnc", NET_CPC_3022_Status);

#endif

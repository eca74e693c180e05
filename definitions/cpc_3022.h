/* cpc_3022.h - butanol particle counter with a photometric range for high concentrations. Bits of
 * flags and missing values are as in common_cnc.h. */
#ifndef ZEB2_DEFINITIONS_CPC_3022_H
#define ZEB2_DEFINITIONS_CPC_3022_H

#include <zeb2/port.h>

#pragma pack(push, 4)

/* Single pulses are counted up to some 1E4 per cm3; above, all the droplets in the beam scatter
 * together and N comes from the photometric signal. */
typedef struct {
    FTIME time;
    double N;           /* Particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E7 */
    double C;           /* Count rate (Hz) | C_${INST:N\d+} | 0;1E7 */
    double photometric; /* Photometric detector signal (V) | V_${INST:N\d+} | -1;12 */
    double Q;           /* Sample flow (lpm) | Q1_${INST:N\d+} | -1;20 */
    double Qi;          /* Inlet flow (lpm) | Q2_${INST:N\d+} | -1;20 */
    double T1;          /* Saturator temperature (C) | T1_${INST:N\d+} | -50;100 */
    double T2;          /* Condenser temperature (C) | T2_${INST:N\d+} | -50;100 */
    double T3;          /* Optics temperature (C) | T3_${INST:N\d+} | -50;100 */
    double laser;       /* Laser current (mA) | A_${INST:N\d+} | 0;500 */
    WORD flags;         /* Instrument status (bits) */
} NET_CPC_3022_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples;      /* Readings averaged (1) */
    double N;           /* Particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E7 */
    double C;           /* Count rate (Hz) | C_${INST:N\d+} | 0;1E7 */
    double photometric; /* Photometric detector signal (V) | V_${INST:N\d+} | -1;12 */
    double Q;           /* Sample flow (lpm) | Q1_${INST:N\d+} | -1;20 */
    double Qi;          /* Inlet flow (lpm) | Q2_${INST:N\d+} | -1;20 */
    double T1;          /* Saturator temperature (C) | T1_${INST:N\d+} | -50;100 */
    double T2;          /* Condenser temperature (C) | T2_${INST:N\d+} | -50;100 */
    double T3;          /* Optics temperature (C) | T3_${INST:N\d+} | -50;100 */
    double laser;       /* Laser current (mA) | A_${INST:N\d+} | 0;500 */
    WORD flags;         /* Every instrument status seen (bits) */
} NET_CPC_3022_Avg;

typedef struct {
    WORD state; /* 0 starting, 1 warming up, 2 counting, 3 no answer */
    WORD flags; /* Instrument status (bits): 0 saturator, 1 condenser, 2 optics temperature, 3 inlet
                   flow, 4 sample flow, 5 laser, 6 liquid, 7 concentration out of range, 8
                   photometric range in use */
    BOOL liquid_ok;        /* Enough working liquid */
    BOOL vacuum_ok;        /* Enough vacuum */
    BOOL high_flow;        /* The high flow mode is set */
    BOOL photometric_mode; /* The concentration comes from the photometric range */
    STRING serial_number[32];
    STRING firmware[32];
} NET_CPC_3022_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_CPC_3022_AVERAGE, "cnc", NET_CPC_3022_Avg);
ZEB_MESSAGE(MSG_CPC_3022_INSTANT, "cnc", NET_CPC_3022_Instant);
ZEB_MESSAGE(MSG_CPC_3022_STATUS, "cnc", NET_CPC_3022_Status);

#endif

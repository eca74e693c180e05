/* cpc_3010.h - butanol particle counter with a critical orifice. Bits of flags and missing values
 * are as in common_cnc.h. */
#ifndef ZEB2_DEFINITIONS_CPC_3010_H
#define ZEB2_DEFINITIONS_CPC_3010_H

#include <zeb2/port.h>

#pragma pack(push, 4)

/* The critical orifice holds the flow, so Q is usually its measured value at installation. */
typedef struct {
    FTIME time;
    double N;   /* Particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E6 */
    double C;   /* Count rate (Hz) | C_${INST:N\d+} | 0;1E7 */
    double Q;   /* Sample flow (lpm) | Q_${INST:N\d+} | -1;20 */
    double T1;  /* Saturator temperature (C) | T1_${INST:N\d+} | -50;100 */
    double T2;  /* Condenser temperature (C) | T2_${INST:N\d+} | -50;100 */
    WORD flags; /* Instrument status (bits) */
} NET_CPC_3010_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples; /* Readings averaged (1) */
    double N;      /* Particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E6 */
    double C;      /* Count rate (Hz) | C_${INST:N\d+} | 0;1E7 */
    double Q;      /* Sample flow (lpm) | Q_${INST:N\d+} | -1;20 */
    double T1;     /* Saturator temperature (C) | T1_${INST:N\d+} | -50;100 */
    double T2;     /* Condenser temperature (C) | T2_${INST:N\d+} | -50;100 */
    WORD flags;    /* Every instrument status seen (bits) */
} NET_CPC_3010_Avg;

typedef struct {
    WORD state;     /* 0 starting, 1 warming up, 2 counting, 3 no answer */
    WORD flags;     /* Instrument status (bits): 0 saturator, 1 condenser, 3 vacuum, 6 liquid, 7
                       concentration out of range */
    BOOL liquid_ok; /* Enough working liquid */
    BOOL vacuum_ok; /* Enough vacuum behind the orifice */
    BOOL temperature_ok; /* Saturator and condenser at their difference */
    BOOL filling;        /* The fill valve is open */
    double T_difference; /* Set difference of saturator and condenser (C) */
    double dead_time;    /* Dead time of a pulse, for the coincidence correction (us) */
    STRING serial_number[32];
    STRING firmware[32];
} NET_CPC_3010_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_CPC_3010_AVERAGE, "cnc", NET_CPC_3010_Avg);
ZEB_MESSAGE(MSG_CPC_3010_INSTANT, "cnc", NET_CPC_3010_Instant);
ZEB_MESSAGE(MSG_CPC_3010_STATUS, "cnc", NET_CPC_3010_Status);

#endif

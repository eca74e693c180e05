/* cpc_pulse.h - particle counter whose pulses are counted by the station itself. */
#ifndef ZEB2_DEFINITIONS_CPC_PULSE_H
#define ZEB2_DEFINITIONS_CPC_PULSE_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time;
    double N;   /* Particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E6 */
    double C;   /* Count rate (Hz) | C_${INST:N\d+} */
    double Q;   /* Sample flow (lpm) | Q_${INST:N\d+} */
    WORD flags; /* Counter status (bits) */
} NET_CPC_Pulse_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    double N;   /* Particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E6 */
    double C;   /* Count rate (Hz) | C_${INST:N\d+} */
    double Q;   /* Sample flow (lpm) | Q_${INST:N\d+} */
    WORD flags; /* Every counter status seen (bits) */
} NET_CPC_Pulse_Avg;

typedef struct {
    WORD state;          /* 0 starting, 1 warming up, 2 counting, 3 no answer */
    WORD flags;          /* Instrument status (bits) */
    double dead_time;    /* Dead time of a pulse (s) */
    double flow_default; /* Flow taken when none is measured (lpm) */
    STRING flow_channel[32];
} NET_CPC_Pulse_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_CPC_PULSE_AVERAGE, "cnc", NET_CPC_Pulse_Avg);
ZEB_MESSAGE(MSG_CPC_PULSE_INSTANT, "cnc", NET_CPC_Pulse_Instant);
ZEB_MESSAGE(MSG_CPC_PULSE_STATUS, "cnc", NET_CPC_Pulse_Status);

#endif

/* cpc_pulse.h - particle counter whose pulses are counted by the station itself. Bits of flags and
 * missing values are as in common_cnc.h. */
#ifndef ZEB2_DEFINITIONS_CPC_PULSE_H
#define ZEB2_DEFINITIONS_CPC_PULSE_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time;
    double N;   /* Particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E6 */
    double C;   /* Count rate (Hz) | C_${INST:N\d+} | 0;1E7 */
    double Q;   /* Sample flow (lpm) | Q_${INST:N\d+} | -1;20 */
    WORD flags; /* Counter status (bits) */
} NET_CPC_Pulse_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples; /* Readings averaged (1) */
    double N;      /* Particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E6 */
    double C;      /* Count rate (Hz) | C_${INST:N\d+} | 0;1E7 */
    double Q;      /* Sample flow (lpm) | Q_${INST:N\d+} | -1;20 */
    WORD flags;    /* Every counter status seen (bits) */
} NET_CPC_Pulse_Avg;

typedef struct {
    WORD state; /* 0 starting, 1 warming up, 2 counting, 3 no answer */
    WORD flags; /* Counter status (bits): 3 no pulses, 4 flow out of range, 7 concentration out of
                   range, 8 default flow in use */
    double dead_time;        /* Dead time of a pulse, for the coincidence correction (us) */
    double flow_default;     /* Sample flow taken when none is measured (lpm) */
    double interval;         /* Time over which the pulses of a reading are counted (s) */
    STRING counter[32];      /* Name of the channel that counts the pulses */
    STRING flow_channel[32]; /* Name of the channel that measures the flow, empty for none */
} NET_CPC_Pulse_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_CPC_PULSE_AVERAGE, "cnc", NET_CPC_Pulse_Avg);
ZEB_MESSAGE(MSG_CPC_PULSE_INSTANT, "cnc", NET_CPC_Pulse_Instant);
ZEB_MESSAGE(MSG_CPC_PULSE_STATUS, "cnc", NET_CPC_Pulse_Status);

#endif

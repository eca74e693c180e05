/* common_cnc.h - what every counter of condensation nuclei has in common, for displays that do
 * not care which one it is. */
#ifndef ZEB2_DEFINITIONS_COMMON_CNC_H
#define ZEB2_DEFINITIONS_COMMON_CNC_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time;
    double N;   /* Particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E6 */
    double Q;   /* Sample flow (lpm) | Q_${INST:N\d+} */
    WORD flags; /* Instrument status (bits) */
} NET_COMMON_CNC_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    double N;   /* Particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E6 */
    double Q;   /* Sample flow (lpm) | Q_${INST:N\d+} */
    WORD flags; /* Every instrument status seen (bits) */
} NET_COMMON_CNC_Avg;

#pragma pack(pop)

ZEB_MESSAGE(MSG_COMMON_CNC_AVERAGE, "cnc", NET_COMMON_CNC_Avg);
ZEB_MESSAGE(MSG_COMMON_CNC_INSTANT, "cnc", NET_COMMON_CNC_Instant);

#endif

/* common_cnc.h - what every counter of condensation nuclei has in common, for displays that do not
 * care which one it is. Missing: MVC in a real, -1 in a time.
 *
 * The flags of all such counters use the same bits, whatever the instrument's own code is, each
 * set while that is wrong: 0 saturator or conditioner temperature, 1 condenser or growth tube
 * temperature, 2 optics temperature, 3 inlet flow or vacuum, 4 sample flow, 5 laser, 6 working
 * liquid, 7 concentration out of range. Bits 8 to 15 are listed in each counter's status record. */
#ifndef ZEB2_DEFINITIONS_COMMON_CNC_H
#define ZEB2_DEFINITIONS_COMMON_CNC_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time;
    double N;   /* Particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E7 */
    double Q;   /* Sample flow (lpm) | Q_${INST:N\d+} | -1;20 */
    WORD flags; /* Instrument status (bits) */
} NET_COMMON_CNC_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples; /* Readings averaged (1) */
    double N;      /* Particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E7 */
    double Q;      /* Sample flow (lpm) | Q_${INST:N\d+} | -1;20 */
    WORD flags;    /* Every instrument status seen (bits) */
} NET_COMMON_CNC_Avg;

#pragma pack(pop)

ZEB_MESSAGE(MSG_COMMON_CNC_AVERAGE, "cnc", NET_COMMON_CNC_Avg);
ZEB_MESSAGE(MSG_COMMON_CNC_INSTANT, "cnc", NET_COMMON_CNC_Instant);

#endif

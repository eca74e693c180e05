/* common_psap.h - what every filter absorption photometer has in common. Arrays hold blue, green,
 * red; wavelengths that an instrument lacks are missing. Missing: MVC in a real, -1 in a time.
 *
 * The flags use these bits, whatever the instrument's own code is: 0 flow off its set point, 1
 * light source fault, 2 detector fault, 3 temperature off its set point, 4 transmittance too low,
 * 5 filter used up, 6 filter being changed or settling, 7 no air through the filter. */
#ifndef ZEB2_DEFINITIONS_COMMON_PSAP_H
#define ZEB2_DEFINITIONS_COMMON_PSAP_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    double Ba[3]; /* Absorption coefficient (1/Mm) | Ba${INDEX:B:G:R}_${INST:A\d+} | -100;1E5 */
    double Ir[3]; /* Filter transmittance (1) | Ir${INDEX:B:G:R}_${INST:A\d+} | 0;2 */
    double Q;     /* Sample flow (lpm) | Q_${INST:A\d+} | -1;20 */
    double L;     /* Sample length on the filter (m) | L_${INST:A\d+} | 0;1E6 */
    WORD flags;   /* Instrument status (bits) */
} NET_COMMON_PSAP_Shared;

typedef struct {
    FTIME time;
    NET_COMMON_PSAP_Shared shared; /* *instant */
} NET_COMMON_PSAP_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples;                 /* Readings averaged (1) */
    NET_COMMON_PSAP_Shared shared; /* *instant */
} NET_COMMON_PSAP_Avg;

#pragma pack(pop)

ZEB_MESSAGE(MSG_COMMON_PSAP_AVERAGE, "psap", NET_COMMON_PSAP_Avg);
ZEB_MESSAGE(MSG_COMMON_PSAP_INSTANT, "psap", NET_COMMON_PSAP_Instant);

#endif

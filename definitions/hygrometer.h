/* hygrometer.h - dew point hygrometer with a cooled mirror. */
#ifndef ZEB2_DEFINITIONS_HYGROMETER_H
#define ZEB2_DEFINITIONS_HYGROMETER_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time;
    double Td;     /* Dew point (C) | TD_${INST:X\d+} | -100;60 */
    double T;      /* Air temperature (C) | T_${INST:X\d+} | -100;60 */
    double U;      /* Relative humidity (%) | U_${INST:X\d+} | -5;110 */
    double P;      /* Air pressure (hPa) | P_${INST:X\d+} */
    double mixing; /* Water vapour mixing ratio (g/kg) | ZMR_${INST:X\d+} */
    double mirror; /* Mirror cooler drive (%) | ZMIRROR_${INST:X\d+} */
    WORD flags;    /* Instrument status (bits) */
} NET_HYGROMETER_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    double Td;     /* Dew point (C) | TD_${INST:X\d+} | -100;60 */
    double T;      /* Air temperature (C) | T_${INST:X\d+} | -100;60 */
    double U;      /* Relative humidity (%) | U_${INST:X\d+} | -5;110 */
    double P;      /* Air pressure (hPa) | P_${INST:X\d+} */
    double mixing; /* Water vapour mixing ratio (g/kg) | ZMR_${INST:X\d+} */
    double mirror; /* Mirror cooler drive (%) | ZMIRROR_${INST:X\d+} */
    WORD flags;    /* Every instrument status seen (bits) */
} NET_HYGROMETER_Avg;

typedef struct {
    WORD state;           /* 0 starting, 1 controlling, 2 cleaning the mirror, 3 no answer */
    WORD flags;           /* Instrument status (bits) */
    BOOL frost;           /* Ice, not dew, lies on the mirror */
    double contamination; /* Contamination of the mirror (%) */
    FTIME next_cleaning;  /* Time of the next mirror cleaning (s since 1970) */
} NET_HYGROMETER_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_HYGROMETER_AVERAGE, "hygrometer", NET_HYGROMETER_Avg);
ZEB_MESSAGE(MSG_HYGROMETER_INSTANT, "hygrometer", NET_HYGROMETER_Instant);
ZEB_MESSAGE(MSG_HYGROMETER_STATUS, "hygrometer", NET_HYGROMETER_Status);

#endif

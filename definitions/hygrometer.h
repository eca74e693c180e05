/* hygrometer.h - dew point hygrometer with a cooled mirror. Missing: MVC in a real, -1 in a time.
 * The bits of flags are listed in the status record. */
#ifndef ZEB2_DEFINITIONS_HYGROMETER_H
#define ZEB2_DEFINITIONS_HYGROMETER_H

#include <zeb2/port.h>

#pragma pack(push, 4)

/* U and the mixing ratio follow from the dew point, the air's temperature and its pressure. */
typedef struct {
    FTIME time;
    double Td;     /* Dew point (C) | TD_${INST:X\d+} | -100;60 */
    double T;      /* Air temperature (C) | T_${INST:X\d+} | -100;60 */
    double U;      /* Relative humidity (%) | U_${INST:X\d+} | -5;110 */
    double P;      /* Air pressure (hPa) | P_${INST:X\d+} | 100;1200 */
    double mixing; /* Water vapour mixing ratio (g/kg) | ZMR_${INST:X\d+} | 0;100 */
    double Q;      /* Sample flow (lpm) | Q_${INST:X\d+} | -1;20 */
    double mirror; /* Mirror cooler drive (%) | ZMIRROR_${INST:X\d+} | -100;100 */
    WORD flags;    /* Instrument status (bits) */
} NET_HYGROMETER_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples; /* Readings averaged (1) */
    double Td;     /* Dew point (C) | TD_${INST:X\d+} | -100;60 */
    double T;      /* Air temperature (C) | T_${INST:X\d+} | -100;60 */
    double U;      /* Relative humidity (%) | U_${INST:X\d+} | -5;110 */
    double P;      /* Air pressure (hPa) | P_${INST:X\d+} | 100;1200 */
    double mixing; /* Water vapour mixing ratio (g/kg) | ZMR_${INST:X\d+} | 0;100 */
    double Q;      /* Sample flow (lpm) | Q_${INST:X\d+} | -1;20 */
    double mirror; /* Mirror cooler drive (%) | ZMIRROR_${INST:X\d+} | -100;100 */
    WORD flags;    /* Every instrument status seen (bits) */
} NET_HYGROMETER_Avg;

typedef struct {
    WORD state; /* 0 starting, 1 controlling, 2 cleaning the mirror, 3 no answer */
    WORD flags; /* Instrument status (bits): 0 dew point not settled, 1 mirror dirty, 2 cooler at
                   its limit, 3 light source, 4 temperature sensor, 5 pressure sensor, 6 flow, 7
                   mirror being cleaned */
    BOOL frost; /* Ice, not dew, lies on the mirror */
    double contamination;  /* Contamination of the mirror (%) | ZDIRT_${INST:X\d+} | 0;100 */
    double clean_interval; /* Time between mirror cleanings (s) */
    FTIME last_cleaning;   /* End of the last mirror cleaning, -1 unknown (s since 1970) */
    FTIME next_cleaning;   /* Time of the next mirror cleaning, -1 for none (s since 1970) */
    STRING serial_number[32];
    STRING firmware[32];
} NET_HYGROMETER_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_HYGROMETER_AVERAGE, "hygrometer", NET_HYGROMETER_Avg);
ZEB_MESSAGE(MSG_HYGROMETER_INSTANT, "hygrometer", NET_HYGROMETER_Instant);
ZEB_MESSAGE(MSG_HYGROMETER_STATUS, "hygrometer", NET_HYGROMETER_Status);

#endif

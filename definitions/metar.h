/* metar.h - routine weather reports of airfields. */
#ifndef ZEB2_DEFINITIONS_METAR_H
#define ZEB2_DEFINITIONS_METAR_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time; /* Time of the report (s since 1970) */
    STRING station[8];
    STRING text[512];
    double WD;         /* Wind direction (deg) | WD_${INST:X\d+} | 0;360 */
    double WS;         /* Wind speed (m/s) | WS_${INST:X\d+} | 0;150 */
    double WG;         /* Gust speed (m/s) | WSx_${INST:X\d+} | 0;200 */
    double visibility; /* Visibility (m) | WZ_${INST:X\d+} */
    double ceiling;    /* Height of the lowest broken or overcast layer (m) | ZCEIL_${INST:X\d+} */
    double cover;      /* Cloud cover (%) | ZCLOUD_${INST:X\d+} | 0;100 */
    double T;          /* Air temperature (C) | T_${INST:X\d+} */
    double Td;         /* Dew point (C) | TD_${INST:X\d+} */
    double U;          /* Relative humidity (%) | U_${INST:X\d+} */
    double P;          /* Pressure at sea level (hPa) | P_${INST:X\d+} */
    STRING weather[64];
} NET_METAR_Report;

typedef struct {
    WORD state;        /* 0 starting, 1 waiting, 2 fetching, 3 no report */
    FTIME last_report; /* Time of the latest report (s since 1970) */
    FTIME next_fetch;  /* Time of the next attempt (s since 1970) */
    int failures;      /* Attempts without a report since the last one */
} NET_METAR_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_METAR_REPORT, "metar", NET_METAR_Report);
ZEB_MESSAGE(MSG_METAR_STATUS, "metar", NET_METAR_Status);

#endif

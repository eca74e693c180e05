/* metar.h - routine weather reports of airfields, and the forecast that their end may hold.
 * Pressures, winds and heights are converted to the units given; a layer or group that a report
 * lacks is missing. Missing: MVC in a real, -1 in a time, 0x55555555 in an int or DWORD. */
#ifndef ZEB2_DEFINITIONS_METAR_H
#define ZEB2_DEFINITIONS_METAR_H

#include <zeb2/port.h>

#pragma pack(push, 4)

/* One report of one airfield. */
typedef struct {
    FTIME time;        /* Time of the report (s since 1970) */
    FTIME received;    /* Time of its receipt (s since 1970) */
    STRING station[8]; /* Location code of the airfield */
    STRING text[512];  /* The report as received */
    WORD kind;         /* 0 routine, 1 special, 2 corrected, 3 nothing observed */
    BOOL automatic;    /* No observer took part */
    double WD;         /* Wind direction (deg) | WD_${INST:X\d+} | 0;360 */
    double WD_from;    /* Wind direction varies clockwise from (deg) | WDa_${INST:X\d+} | 0;360 */
    double WD_to;      /* Wind direction varies clockwise to (deg) | WDb_${INST:X\d+} | 0;360 */
    BOOL WD_variable;  /* The wind has no direction */
    double WS;         /* Wind speed (m/s) | WS_${INST:X\d+} | 0;150 */
    double WG;         /* Gust speed (m/s) | WSx_${INST:X\d+} | 0;200 */
    double visibility; /* Visibility (m) | WZ_${INST:X\d+} | 0;1E5 */
    double runway_visibility; /* Least visibility along a runway (m) | WZr_${INST:X\d+} | 0;1E4 */
    double ceiling; /* Height of the lowest broken or overcast layer (m) | ZCEIL_${INST:X\d+} |
                       0;3E4 */
    double cover;   /* Cloud cover (%) | ZCLOUD_${INST:X\d+} | 0;100 */
    BYTE layers;    /* Number of cloud layers used, lowest first */
    double layer_height[6]; /* Height of each cloud layer above ground (m) |
                               ZCLH${INDEX:1:2:3:4:5:6}_${INST:X\d+} | 0;3E4 */
    double layer_cover[6];  /* Cover of each cloud layer (%) |
                               ZCLC${INDEX:1:2:3:4:5:6}_${INST:X\d+} | 0;100 */
    WORD convective; /* Layers of convective cloud, two bits each from bit 0 on: 1 towering, 2
                        thundercloud (bits) */
    double T;        /* Air temperature (C) | T_${INST:X\d+} | -100;60 */
    double Td;       /* Dew point (C) | TD_${INST:X\d+} | -100;60 */
    double U;        /* Relative humidity (%) | U_${INST:X\d+} | -5;110 */
    double P; /* Pressure reduced to sea level by the standard atmosphere (hPa) | P_${INST:X\d+} |
                 800;1100 */
    double P_sea;       /* Pressure reduced to sea level by the day's temperature (hPa) |
                           P2_${INST:X\d+} | 800;1100 */
    double rain;        /* Precipitation of the last hour (mm) | ZRAIN_${INST:X\d+} | 0;500 */
    STRING weather[64]; /* Groups of present weather */
    STRING recent[32];  /* Groups of recent weather */
    STRING trend[128];  /* Forecast for the next two hours as received */
} NET_METAR_Report;

typedef struct {
    WORD state;         /* 0 starting, 1 waiting, 2 fetching, 3 no report */
    STRING station[8];  /* Location code of the airfield */
    STRING source[128]; /* Where the reports come from */
    double interval;    /* Time between attempts (s) */
    FTIME last_report;  /* Time of the latest report (s since 1970) */
    FTIME next_fetch;   /* Time of the next attempt (s since 1970) */
    int failures;       /* Attempts without a report since the last one */
    DWORD reports;      /* Reports since the daemon started */
    DWORD refused;      /* Reports that could not be understood */
} NET_METAR_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_METAR_REPORT, "metar", NET_METAR_Report);
ZEB_MESSAGE(MSG_METAR_STATUS, "metar", NET_METAR_Status);

#endif

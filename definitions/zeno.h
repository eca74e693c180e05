/* zeno.h - weather station with its own data logger. */
#ifndef ZEB2_DEFINITIONS_ZENO_H
#define ZEB2_DEFINITIONS_ZENO_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME start_time;
    FTIME end_time;
    FTIME logger_time;   /* Time of the report by the logger's clock (s since 1970) */
    double WS;           /* Wind speed (m/s) | WS_${INST:X\d+} | 0;150 */
    double WD;           /* Wind direction (deg) | WD_${INST:X\d+} | 0;360 */
    double WS_vector;    /* Vector mean wind speed (m/s) | WSv_${INST:X\d+} | 0;150 */
    double WG;           /* Gust speed (m/s) | WSx_${INST:X\d+} | 0;200 */
    double WD_deviation; /* Standard deviation of the wind direction (deg) | WDg_${INST:X\d+} */
    double T[2];         /* Air temperature (C) | T${INDEX:1:2}_${INST:X\d+} | -100;60 */
    double U[2];         /* Relative humidity (%) | U${INDEX:1:2}_${INST:X\d+} | -5;110 */
    double Td;           /* Dew point (C) | TD_${INST:X\d+} | -100;60 */
    double P;            /* Air pressure (hPa) | P_${INST:X\d+} | 100;1200 */
    double rain;         /* Rain sum (mm) | WI_${INST:X\d+} */
    double R;            /* Global radiation (W/m2) | R_${INST:X\d+} */
    double V;            /* Battery voltage (V) | V_${INST:X\d+} */
    WORD flags;          /* Instrument status (bits) */
} NET_ZENO_Report;

typedef struct {
    WORD state;          /* 0 starting, 1 reporting, 2 no answer */
    WORD flags;          /* Instrument status (bits) */
    double interval;     /* Time between reports (s) */
    double V_battery;    /* Battery voltage (V) */
    double clock_offset; /* Offset of the logger's clock (s) */
    STRING firmware[32];
} NET_ZENO_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_ZENO_REPORT, "zeno", NET_ZENO_Report);
ZEB_MESSAGE(MSG_ZENO_STATUS, "zeno", NET_ZENO_Status);

#endif

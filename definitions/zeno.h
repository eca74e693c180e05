/* zeno.h - weather station with its own data logger. Winds are means over the report: WS of the
 * speed, WS_vector and WD of the vector. Missing: MVC in a real, -1 in a time, 0x55555555 in an int
 * or DWORD. The bits of flags are listed in the status record. */
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
    double WS_deviation; /* Standard deviation of the wind speed (m/s) | WSg_${INST:X\d+} | 0;100 */
    double WD_deviation; /* Standard deviation of the wind direction (deg) | WDg_${INST:X\d+} |
                            0;180 */
    double T[2];         /* Air temperature (C) | T${INDEX:1:2}_${INST:X\d+} | -100;60 */
    double U[2];         /* Relative humidity (%) | U${INDEX:1:2}_${INST:X\d+} | -5;110 */
    double Td;           /* Dew point (C) | TD_${INST:X\d+} | -100;60 */
    double P;            /* Air pressure (hPa) | P_${INST:X\d+} | 100;1200 */
    double rain;         /* Precipitation sum of the report (mm) | ZRAIN_${INST:X\d+} | 0;500 */
    double R;            /* Global radiation (W/m2) | R_${INST:X\d+} | -20;2000 */
    double V;            /* Battery voltage (V) | V_${INST:X\d+} | 0;60 */
    double T_logger;     /* Logger temperature (C) | T3_${INST:X\d+} | -100;100 */
    WORD flags;          /* Instrument status (bits) */
} NET_ZENO_Report;

typedef struct {
    WORD state; /* 0 starting, 1 reporting, 2 no answer */
    WORD flags; /* Instrument status (bits): 0 wind sensor, 1 first temperature or humidity sensor,
                   2 second one, 3 pressure sensor, 4 rain gauge, 5 radiation sensor, 6 battery low,
                   7 logger restarted, 8 clock, 9 memory */
    double interval;     /* Time between reports (s) */
    double V_battery;    /* Battery voltage (V) | V_${INST:X\d+} | 0;60 */
    double clock_offset; /* Logger clock offset (s) | S_${INST:X\d+} | -1E5;1E5 */
    DWORD reports;       /* Reports since the daemon started */
    DWORD damaged;       /* Reports with a wrong checksum */
    STRING serial_number[32];
    STRING firmware[32];
} NET_ZENO_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_ZENO_REPORT, "zeno", NET_ZENO_Report);
ZEB_MESSAGE(MSG_ZENO_STATUS, "zeno", NET_ZENO_Status);

#endif

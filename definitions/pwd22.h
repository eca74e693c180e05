/* pwd22.h - present weather and visibility sensor: light that the air scatters forward, rain on a
 * capacitive surface, temperature. A weather code that is missing is -1. Missing: MVC in a real, -1
 * in a time, 0x55555555 in an int or DWORD. The bits of flags are listed in the status record. */
#ifndef ZEB2_DEFINITIONS_PWD22_H
#define ZEB2_DEFINITIONS_PWD22_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time;
    double visibility1;  /* Visibility, one-minute mean (m) | WZ1_${INST:X\d+} | 0;1E5 */
    double visibility10; /* Visibility, ten-minute mean (m) | WZ2_${INST:X\d+} | 0;1E5 */
    int weather_now;     /* Present weather code 0 to 99 of automatic stations, instantaneous, -1
                            missing */
    int weather_15;      /* Present weather code of the last 15 minutes, -1 missing */
    int weather_60;      /* Present weather code of the last hour, -1 missing */
    double intensity;    /* Rain intensity (mm/h) | WI_${INST:X\d+} | 0;1E3 */
    double rain; /* Precipitation sum as water, from 0 on again at 99.99 (mm) | ZRAIN_${INST:X\d+} |
                    0;100 */
    double snow; /* Snow sum, from 0 on again at 999 (mm) | ZSNOW_${INST:X\d+} | 0;1000 */
    double T;    /* Air temperature (C) | T_${INST:X\d+} | -100;60 */
    double luminance;        /* Background luminance (cd/m2) | I_${INST:X\d+} | 0;1E5 */
    STRING weather[8];       /* Present weather in letters */
    STRING metar_now[32];    /* Present weather in the letters of airfield reports */
    STRING metar_recent[32]; /* Recent weather in the letters of airfield reports */
    WORD flags;              /* Instrument status (bits) */
} NET_PWD22_Report;

typedef struct {
    WORD state; /* 0 starting, 1 reporting, 2 no answer */
    WORD flags; /* Instrument status (bits): 0 hardware error, 1 hardware warning, 2 contamination
                   alarm, 3 contamination warning, 4 first visibility limit, 5 second visibility
                   limit, 6 third visibility limit, 7 transmitter, 8 receiver saturated, 9 rain
                   sensor, 10 temperature sensor, 11 luminance sensor, 12 supply voltage, 13
                   restarted */
    double signal; /* Scattered light signal (Hz) | Cs_${INST:X\d+} | 0;1E6 */
    double offset; /* Offset of the scattered light signal (Hz) | Cd_${INST:X\d+} | -1E6;1E6 */
    double contamination_tx; /* Contamination of the transmitter window (%) | ZCONT1_${INST:X\d+} |
                                -100;100 */
    double contamination_rx; /* Contamination of the receiver window (%) | ZCONT2_${INST:X\d+} |
                                -100;100 */
    double rain_signal;      /* Rain sensor signal (V) | V3_${INST:X\d+} | -15;15 */
    double V_supply;         /* Supply voltage (V) | Vs_${INST:X\d+} | 0;60 */
    double V_lamp;           /* Light source voltage (V) | Vl_${INST:X\d+} | -15;15 */
    double T_board;          /* Board temperature (C) | T2_${INST:X\d+} | -100;100 */
    double T_tx;             /* Transmitter temperature (C) | T3_${INST:X\d+} | -100;100 */
    double T_rain;           /* Rain sensor temperature (C) | T4_${INST:X\d+} | -100;100 */
    BOOL heater;             /* The hood heaters are on */
    double limits[3];        /* Visibility limits, 0 for none (m) */
    double interval;         /* Time between reports (s) */
    STRING firmware[32];
} NET_PWD22_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_PWD22_REPORT, "pwd22", NET_PWD22_Report);
ZEB_MESSAGE(MSG_PWD22_STATUS, "pwd22", NET_PWD22_Status);

#endif

/* pwd22.h - present weather and visibility sensor. */
#ifndef ZEB2_DEFINITIONS_PWD22_H
#define ZEB2_DEFINITIONS_PWD22_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time;
    double visibility1;  /* Visibility, one-minute mean (m) | WZ1_${INST:X\d+} | 0;1E5 */
    double visibility10; /* Visibility, ten-minute mean (m) | WZ2_${INST:X\d+} | 0;1E5 */
    int weather_now;     /* Present weather code, instantaneous */
    int weather_15;      /* Present weather code of the last 15 minutes */
    int weather_60;      /* Present weather code of the last hour */
    double intensity;    /* Rain intensity (mm/h) | WI_${INST:X\d+} | 0;1E3 */
    double rain;         /* Rain sum (mm) | ZRAIN_${INST:X\d+} */
    double snow;         /* Snow sum (mm) | ZSNOW_${INST:X\d+} */
    double T;            /* Air temperature (C) | T1_${INST:X\d+} */
    double luminance;    /* Background luminance (cd/m2) | I_${INST:X\d+} */
    STRING weather[8];
    WORD flags; /* Alarms and warnings (bits) */
} NET_PWD22_Report;

typedef struct {
    WORD state;              /* 0 starting, 1 reporting, 2 no answer */
    WORD flags;              /* Alarms and warnings (bits) */
    double signal;           /* Scattered light signal (Hz) */
    double offset;           /* Offset of that signal (Hz) */
    double contamination_tx; /* Contamination of the transmitter window (%) */
    double contamination_rx; /* Contamination of the receiver window (%) */
    double V_supply;         /* Supply voltage (V) */
    double V_lamp;           /* Light source voltage (V) */
    double T_board;          /* Board temperature (C) */
    double T_tx;             /* Transmitter temperature (C) */
} NET_PWD22_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_PWD22_REPORT, "pwd22", NET_PWD22_Report);
ZEB_MESSAGE(MSG_PWD22_STATUS, "pwd22", NET_PWD22_Status);

#endif

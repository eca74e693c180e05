/* bestups.h - uninterruptible power supply. */
#ifndef ZEB2_DEFINITIONS_BESTUPS_H
#define ZEB2_DEFINITIONS_BESTUPS_H

#include <zeb2/port.h>

#pragma pack(push, 4)

/* Measured values, at end_time or averaged from start_time on. */
typedef struct {
    FTIME start_time;
    FTIME end_time;
    double V_in;      /* Input voltage (V) | V1_${INST:U\d+} | 0;300 */
    double V_out;     /* Output voltage (V) | V2_${INST:U\d+} | 0;300 */
    double V_battery; /* Battery voltage (V) | V3_${INST:U\d+} | 0;300 */
    double A_out;     /* Output current (A) | A_${INST:U\d+} */
    double load;      /* Load (%) | ZLOAD_${INST:U\d+} | 0;200 */
    double charge;    /* Battery charge (%) | ZCHARGE_${INST:U\d+} | 0;100 */
    double frequency; /* Input frequency (Hz) | ZFREQ_${INST:U\d+} */
    double runtime;   /* Time left on battery (s) | ZRUN_${INST:U\d+} */
    double T;         /* Internal temperature (C) | T_${INST:U\d+} */
} NET_BESTUPS_Parameters;

typedef struct {
    WORD state;       /* 0 starting, 1 on line, 2 on battery, 3 on bypass, 4 off, 5 no answer */
    WORD flags;       /* Alarms (bits) */
    BOOL battery_low; /* The battery is almost empty */
    BOOL battery_bad; /* The battery needs replacing */
    BOOL overload;    /* The load is too large */
    FTIME on_battery_since; /* Start of the power failure, -1 for none (s since 1970) */
    STRING model[32];
    STRING firmware[32];
} NET_BESTUPS_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_BESTUPS_AVERAGE, "bestups", NET_BESTUPS_Parameters);
ZEB_MESSAGE(MSG_BESTUPS_INSTANT, "bestups", NET_BESTUPS_Parameters);
ZEB_MESSAGE(MSG_BESTUPS_STATUS, "bestups", NET_BESTUPS_Status);

#endif

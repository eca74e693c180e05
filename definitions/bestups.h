/* bestups.h - uninterruptible power supply. Missing: MVC in a real, -1 in a time. The bits of
 * flags are listed in the status record. */
#ifndef ZEB2_DEFINITIONS_BESTUPS_H
#define ZEB2_DEFINITIONS_BESTUPS_H

#include <zeb2/port.h>

#pragma pack(push, 4)

/* Measured values: in a MSG_BESTUPS_INSTANT those at end_time, with samples 1; in a
 * MSG_BESTUPS_AVERAGE the averages from start_time on, and the extremes of the input. */
typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples;    /* Readings averaged (1) */
    double V_in;      /* Input voltage (V) | V1_${INST:U\d+} | 0;300 */
    double V_in_min;  /* Least input voltage (V) | V1min_${INST:U\d+} | 0;300 */
    double V_in_max;  /* Greatest input voltage (V) | V1max_${INST:U\d+} | 0;300 */
    double V_out;     /* Output voltage (V) | V2_${INST:U\d+} | 0;300 */
    double V_battery; /* Battery voltage (V) | V3_${INST:U\d+} | 0;300 */
    double A_out;     /* Output current (A) | A_${INST:U\d+} | 0;100 */
    double load;      /* Load (%) | ZLOAD_${INST:U\d+} | 0;200 */
    double charge;    /* Battery charge (%) | ZCHARGE_${INST:U\d+} | 0;100 */
    double frequency; /* Input frequency (Hz) | ZFREQ_${INST:U\d+} | 0;100 */
    double runtime;   /* Time left on battery (s) | ZRUN_${INST:U\d+} | 0;1E6 */
    double T;         /* Internal temperature (C) | T_${INST:U\d+} | -50;100 */
} NET_BESTUPS_Parameters;

typedef struct {
    WORD state;       /* 0 starting, 1 on line, 2 on battery, 3 on bypass, 4 off, 5 no answer */
    WORD flags;       /* Alarms (bits): 0 on battery, 1 battery low, 2 battery worn, 3 overload, 4
                         temperature, 5 input voltage, 6 output voltage, 7 on bypass, 8 charger, 9
                         test */
    BOOL battery_low; /* The battery is almost empty */
    BOOL battery_bad; /* The battery needs replacing */
    BOOL overload;    /* The load is too large */
    FTIME on_battery_since; /* Start of the power failure, -1 for none (s since 1970) */
    FTIME last_test;        /* Time of the last battery test, -1 unknown (s since 1970) */
    DWORD transfers;        /* Times that the load went on battery, 0x55555555 unknown (1) */
    double power;           /* Rated output power (W) */
    STRING model[32];
    STRING serial_number[32];
    STRING firmware[32];
} NET_BESTUPS_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_BESTUPS_AVERAGE, "bestups", NET_BESTUPS_Parameters);
ZEB_MESSAGE(MSG_BESTUPS_INSTANT, "bestups", NET_BESTUPS_Parameters);
ZEB_MESSAGE(MSG_BESTUPS_STATUS, "bestups", NET_BESTUPS_Status);

#endif

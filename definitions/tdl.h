/* tdl.h - gas analyser with a tunable diode laser, for up to three gases. What the instrument lacks
 * is missing, such as the ring-down time of one that measures transmission. Missing: MVC in a real,
 * -1 in a time. The bits of flags are listed in the status record. */
#ifndef ZEB2_DEFINITIONS_TDL_H
#define ZEB2_DEFINITIONS_TDL_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time;
    double X[3];     /* Mixing ratio of each gas (ppb) | X${INDEX:1:2:3}_${INST:G\d+} | -1E4;1E9 */
    double Xd[3];    /* Mixing ratio of each gas in dry air (ppb) | X${INDEX:1:2:3}d_${INST:G\d+} |
                        -1E4;1E9 */
    double P;        /* Cell pressure (hPa) | P_${INST:G\d+} | 0;1200 */
    double T1;       /* Cell temperature (C) | T1_${INST:G\d+} | -50;100 */
    double T2;       /* Laser temperature (C) | T2_${INST:G\d+} | -50;100 */
    double T3;       /* Case temperature (C) | T3_${INST:G\d+} | -50;100 */
    double Q;        /* Sample flow (slpm) | Q_${INST:G\d+} | 0;100 */
    double laser;    /* Laser current (mA) | A_${INST:G\d+} | 0;1E4 */
    double signal;   /* Transmitted light signal (V) | V_${INST:G\d+} | -20;20 */
    double ringdown; /* Ring-down time (us) | ZRD_${INST:G\d+} | 0;1E3 */
    WORD flags;      /* Instrument status (bits) */
} NET_TDL_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples;   /* Readings averaged (1) */
    double X[3];     /* Mixing ratio of each gas (ppb) | X${INDEX:1:2:3}_${INST:G\d+} | -1E4;1E9 */
    double Xd[3];    /* Mixing ratio of each gas in dry air (ppb) | X${INDEX:1:2:3}d_${INST:G\d+} |
                        -1E4;1E9 */
    double P;        /* Cell pressure (hPa) | P_${INST:G\d+} | 0;1200 */
    double T1;       /* Cell temperature (C) | T1_${INST:G\d+} | -50;100 */
    double T2;       /* Laser temperature (C) | T2_${INST:G\d+} | -50;100 */
    double T3;       /* Case temperature (C) | T3_${INST:G\d+} | -50;100 */
    double Q;        /* Sample flow (slpm) | Q_${INST:G\d+} | 0;100 */
    double laser;    /* Laser current (mA) | A_${INST:G\d+} | 0;1E4 */
    double signal;   /* Transmitted light signal (V) | V_${INST:G\d+} | -20;20 */
    double ringdown; /* Ring-down time (us) | ZRD_${INST:G\d+} | 0;1E3 */
    WORD flags;      /* Every instrument status seen (bits) */
} NET_TDL_Avg;

typedef struct {
    WORD state; /* 0 starting, 1 sampling, 2 zeroing, 3 calibrating, 4 no answer */
    WORD flags; /* Instrument status (bits): 0 laser, 1 laser temperature, 2 detector, 3 light lost
                   on the way, 4 cell pressure, 5 cell temperature, 6 sample flow, 7 line not
                   locked, 8 fit bad, 9 warming up */
    BYTE n;     /* Number of gases measured */
    BYTE valve; /* Inlet that is sampled, from 1 on (0: the ambient one) */
    STRING gas1[16];        /* Formula of the first gas */
    STRING gas2[16];        /* Formula of the second gas */
    STRING gas3[16];        /* Formula of the third gas */
    double offset[3];       /* Zero offset of each gas (ppb) */
    double factor[3];       /* Calibration factor of each gas (1) */
    double averaging;       /* Averaging time of the instrument (s) */
    FTIME last_zero;        /* End of the last zero, -1 before it (s since 1970) */
    FTIME last_calibration; /* End of the last calibration, -1 before it (s since 1970) */
    FTIME instrument_time;  /* Time by the instrument's clock (s since 1970) */
    STRING serial_number[32];
    STRING firmware[32];
} NET_TDL_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_TDL_AVERAGE, "tdl", NET_TDL_Avg);
ZEB_MESSAGE(MSG_TDL_INSTANT, "tdl", NET_TDL_Instant);
ZEB_MESSAGE(MSG_TDL_STATUS, "tdl", NET_TDL_Status);

#endif

/* velocicalc.h - air velocity meter in the station's stack. */
#ifndef ZEB2_DEFINITIONS_VELOCICALC_H
#define ZEB2_DEFINITIONS_VELOCICALC_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time;
    double V;  /* Air velocity (m/s) | WS_${INST:Q\d+} | 0;100 */
    double Q;  /* Stack flow (lpm) | Q_${INST:Q\d+} */
    double T;  /* Air temperature (C) | T_${INST:Q\d+} */
    double U;  /* Relative humidity (%) | U_${INST:Q\d+} */
    double P;  /* Barometric pressure (hPa) | P_${INST:Q\d+} */
    double dP; /* Differential pressure (hPa) | Pd_${INST:Q\d+} */
} NET_VELOCICALC_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    double V;  /* Air velocity (m/s) | WS_${INST:Q\d+} | 0;100 */
    double Q;  /* Stack flow (lpm) | Q_${INST:Q\d+} */
    double T;  /* Air temperature (C) | T_${INST:Q\d+} */
    double U;  /* Relative humidity (%) | U_${INST:Q\d+} */
    double P;  /* Barometric pressure (hPa) | P_${INST:Q\d+} */
    double dP; /* Differential pressure (hPa) | Pd_${INST:Q\d+} */
} NET_VELOCICALC_Avg;

/* The meter and its settings, as an answer (INFO) or when they change (STATUS). */
typedef struct {
    WORD state;       /* 0 starting, 1 reading, 2 no answer */
    WORD flags;       /* Instrument status (bits) */
    double area;      /* Cross section of the stack (cm2) */
    double averaging; /* Averaging time of the instrument (s) */
    STRING model[32];
    STRING serial_number[32];
} NET_VELOCICALC_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_VELOCICALC_AVERAGE, "velocicalc", NET_VELOCICALC_Avg);
ZEB_MESSAGE(MSG_VELOCICALC_INFO, "velocicalc", NET_VELOCICALC_Status);
ZEB_MESSAGE(MSG_VELOCICALC_INSTANT, "velocicalc", NET_VELOCICALC_Instant);
ZEB_MESSAGE(MSG_VELOCICALC_STATUS, "velocicalc", NET_VELOCICALC_Status);

#endif

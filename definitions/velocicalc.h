/* velocicalc.h - air velocity meter in the station's stack. Missing: MVC in a real, -1 in a time.
 * The bits of flags are listed in the status record. */
#ifndef ZEB2_DEFINITIONS_VELOCICALC_H
#define ZEB2_DEFINITIONS_VELOCICALC_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time;
    double WS; /* Air velocity (m/s) | WS_${INST:Q\d+} | 0;100 */
    double Q;  /* Stack flow (lpm) | Q_${INST:Q\d+} | 0;1E5 */
    double T;  /* Air temperature (C) | T_${INST:Q\d+} | -100;60 */
    double Td; /* Dew point (C) | TD_${INST:Q\d+} | -100;60 */
    double U;  /* Relative humidity (%) | U_${INST:Q\d+} | -5;110 */
    double P;  /* Air pressure (hPa) | P_${INST:Q\d+} | 100;1200 */
    double dP; /* Differential pressure (hPa) | Pd_${INST:Q\d+} | -100;100 */
} NET_VELOCICALC_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples; /* Readings averaged (1) */
    double WS; /* Air velocity (m/s) | WS_${INST:Q\d+} | 0;100 */
    double Q;  /* Stack flow (lpm) | Q_${INST:Q\d+} | 0;1E5 */
    double T;  /* Air temperature (C) | T_${INST:Q\d+} | -100;60 */
    double Td; /* Dew point (C) | TD_${INST:Q\d+} | -100;60 */
    double U;  /* Relative humidity (%) | U_${INST:Q\d+} | -5;110 */
    double P;  /* Air pressure (hPa) | P_${INST:Q\d+} | 100;1200 */
    double dP; /* Differential pressure (hPa) | Pd_${INST:Q\d+} | -100;100 */
} NET_VELOCICALC_Avg;

/* The meter and its settings, as an answer (INFO) or when they change (STATUS). */
typedef struct {
    WORD state;  /* 0 starting, 1 reading, 2 no answer */
    WORD flags;  /* Instrument status (bits): 0 velocity sensor, 1 temperature sensor, 2 humidity
                    sensor, 3 pressure sensor, 4 velocity out of range, 5 battery low, 6 calibration
                    due */
    double area; /* Cross section of the stack (cm2) */
    double averaging; /* Averaging time of the instrument (s) */
    BOOL standard;    /* Velocity and flow are at standard conditions */
    FTIME calibrated; /* Date of the last calibration, -1 unknown (s since 1970) */
    STRING model[32];
    STRING serial_number[32];
    STRING firmware[32];
} NET_VELOCICALC_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_VELOCICALC_AVERAGE, "velocicalc", NET_VELOCICALC_Avg);
ZEB_MESSAGE(MSG_VELOCICALC_INFO, "velocicalc", NET_VELOCICALC_Status);
ZEB_MESSAGE(MSG_VELOCICALC_INSTANT, "velocicalc", NET_VELOCICALC_Instant);
ZEB_MESSAGE(MSG_VELOCICALC_STATUS, "velocicalc", NET_VELOCICALC_Status);

#endif

/* tsitmf.h - thermal mass flow meter. Missing: MVC in a real, -1 in a time. The bits of flags are
 * listed in the status record. */
#ifndef ZEB2_DEFINITIONS_TSITMF_H
#define ZEB2_DEFINITIONS_TSITMF_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time;
    double Q;      /* Flow (slpm) | Q_${INST:Q\d+} | -1;500 */
    double T;      /* Gas temperature (C) | T_${INST:Q\d+} | -50;100 */
    double P;      /* Gas pressure (hPa) | P_${INST:Q\d+} | 0;5000 */
    double volume; /* Totalled volume (m3) | Qt_${INST:Q\d+} | 0;1E6 */
} NET_TSITMF_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples; /* Readings averaged (1) */
    double Q;      /* Flow (slpm) | Q_${INST:Q\d+} | -1;500 */
    double T;      /* Gas temperature (C) | T_${INST:Q\d+} | -50;100 */
    double P;      /* Gas pressure (hPa) | P_${INST:Q\d+} | 0;5000 */
    double volume; /* Totalled volume (m3) | Qt_${INST:Q\d+} | 0;1E6 */
} NET_TSITMF_Avg;

typedef struct {
    WORD state; /* 0 starting, 1 reading, 2 no answer */
    WORD flags; /* Instrument status (bits): 0 flow above the range, 1 flow sensor, 2 temperature
                   sensor, 3 pressure sensor, 4 calibration due */
    STRING gas[16]; /* Gas that the meter is set to */
    STRING model[32];
    STRING serial_number[32];
    STRING firmware[32];
} NET_TSITMF_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_TSITMF_AVERAGE, "tsitmf", NET_TSITMF_Avg);
ZEB_MESSAGE(MSG_TSITMF_INSTANT, "tsitmf", NET_TSITMF_Instant);
ZEB_MESSAGE(MSG_TSITMF_STATUS, "tsitmf", NET_TSITMF_Status);

#endif

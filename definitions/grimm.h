/* grimm.h - optical particle spectrometer with up to 32 size channels. Channels from n on are
 * missing. Missing: MVC in a real, -1 in a time. The bits of flags are listed in the status
 * record. */
#ifndef ZEB2_DEFINITIONS_GRIMM_H
#define ZEB2_DEFINITIONS_GRIMM_H

#include <zeb2/port.h>

#pragma pack(push, 4)

/* The lower diameters of the channels are in the information record. */
typedef struct {
    FTIME time;
    BYTE n; /* Number of size channels used (1) */
    double N
        [32];    /* Concentration of particles above the channel's diameter (1/cm3) |
                    Nc${INDEX:1:2:3:4:5:6:7:8:9:10:11:12:13:14:15:16:17:18:19:20:21:22:23:24:25:26:27:28:29:30:31:32}_${INST:N\d+}
                    | 0;1E5 */
    double Nt;   /* Total particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E5 */
    double X[3]; /* Mass concentration below 10, 2.5 and 1 um (ug/m3) |
                    X${INDEX:10:25:1}_${INST:N\d+} | 0;1E5 */
    double Q;    /* Sample flow (lpm) | Q_${INST:N\d+} | -1;20 */
    double T;    /* Sample temperature (C) | T_${INST:N\d+} | -50;100 */
    double U;    /* Sample relative humidity (%) | U_${INST:N\d+} | -5;110 */
    double P;    /* Ambient pressure (hPa) | P_${INST:N\d+} | 100;1200 */
    WORD flags;  /* Instrument status (bits) */
} NET_GRIMM_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples; /* Readings averaged (1) */
    BYTE n;        /* Number of size channels used (1) */
    double N
        [32];    /* Concentration of particles above the channel's diameter (1/cm3) |
                    Nc${INDEX:1:2:3:4:5:6:7:8:9:10:11:12:13:14:15:16:17:18:19:20:21:22:23:24:25:26:27:28:29:30:31:32}_${INST:N\d+}
                    | 0;1E5 */
    double Nt;   /* Total particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E5 */
    double X[3]; /* Mass concentration below 10, 2.5 and 1 um (ug/m3) |
                    X${INDEX:10:25:1}_${INST:N\d+} | 0;1E5 */
    double Q;    /* Sample flow (lpm) | Q_${INST:N\d+} | -1;20 */
    double T;    /* Sample temperature (C) | T_${INST:N\d+} | -50;100 */
    double U;    /* Sample relative humidity (%) | U_${INST:N\d+} | -5;110 */
    double P;    /* Ambient pressure (hPa) | P_${INST:N\d+} | 100;1200 */
    WORD flags;  /* Every instrument status seen (bits) */
} NET_GRIMM_Avg;

typedef struct {
    BYTE n;          /* Number of size channels used (1) */
    double Dp[32];   /* Lower diameter of each channel (um) */
    double density;  /* Density taken for the mass (g/cm3) */
    double C_factor; /* Correction factor of the mass (1) */
    double interval; /* Time between readings (s) */
    STRING model[32];
    STRING serial_number[32];
    STRING firmware[32];
} NET_GRIMM_Info;

typedef struct {
    WORD state; /* 0 starting, 1 self test, 2 counting, 3 standby, 4 no answer */
    WORD flags; /* Instrument status (bits): 0 flow off its set point, 1 pump, 2 laser, 3 detector
                   dirty, 4 concentration out of range, 5 battery low, 6 self test failed, 7 climate
                   sensor, 8 inlet heater */
    WORD gravimetric; /* Number of the gravimetric factor (1) */
    BYTE battery;     /* Battery charge (%) */
    double pump;      /* Pump drive (%) | ZPUMP_${INST:N\d+} | 0;200 */
    double laser;     /* Laser current (mA) | A_${INST:N\d+} | 0;500 */
    double Q_set;     /* Sample flow set point (lpm) */
} NET_GRIMM_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_GRIMM_AVERAGE, "grimm", NET_GRIMM_Avg);
ZEB_MESSAGE(MSG_GRIMM_INFO, "grimm", NET_GRIMM_Info);
ZEB_MESSAGE(MSG_GRIMM_INSTANT, "grimm", NET_GRIMM_Instant);
ZEB_MESSAGE(MSG_GRIMM_STATUS, "grimm", NET_GRIMM_Status);

#endif

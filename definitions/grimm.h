/* grimm.h - optical particle spectrometer with up to 32 size channels. */
#ifndef ZEB2_DEFINITIONS_GRIMM_H
#define ZEB2_DEFINITIONS_GRIMM_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time;
    BYTE n;       /* Number of size channels used */
    double N[32]; /* Concentration of particles above the channel's diameter (1/cm3) |
                     Nc${INDEX:1:2:3:4:5:6:7:8:9:10:11:12:13:14:15:16:17:18:19:20:21:22:23:24:25:26:27:28:29:30:31:32}_${INST:N\d+}
                     | 0;1E5 */
    double Nt;    /* Total particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E5 */
    double X[3];  /* Mass concentration (ug/m3) | X${INDEX:10:25:1}_${INST:N\d+} */
    double Q;     /* Sample flow (lpm) | Q_${INST:N\d+} */
    double T;     /* Sample temperature (C) | T_${INST:N\d+} */
    double U;     /* Sample relative humidity (%) | U_${INST:N\d+} */
    double P;     /* Ambient pressure (hPa) | P_${INST:N\d+} */
    WORD flags;   /* Instrument status (bits) */
} NET_GRIMM_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    BYTE n;       /* Number of size channels used */
    double N[32]; /* Concentration of particles above the channel's diameter (1/cm3) |
                     Nc${INDEX:1:2:3:4:5:6:7:8:9:10:11:12:13:14:15:16:17:18:19:20:21:22:23:24:25:26:27:28:29:30:31:32}_${INST:N\d+}
                     | 0;1E5 */
    double Nt;    /* Total particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E5 */
    double X[3];  /* Mass concentration (ug/m3) | X${INDEX:10:25:1}_${INST:N\d+} */
    double Q;     /* Sample flow (lpm) | Q_${INST:N\d+} */
    double T;     /* Sample temperature (C) | T_${INST:N\d+} */
    double U;     /* Sample relative humidity (%) | U_${INST:N\d+} */
    double P;     /* Ambient pressure (hPa) | P_${INST:N\d+} */
    WORD flags;   /* Every instrument status seen (bits) */
} NET_GRIMM_Avg;

typedef struct {
    BYTE n;          /* Number of size channels used */
    double Dp[32];   /* Lower diameter of each channel (um) */
    double density;  /* Density taken for the mass (g/cm3) */
    double C_factor; /* Correction factor of the mass (1) */
    STRING model[32];
    STRING serial_number[32];
} NET_GRIMM_Info;

typedef struct {
    WORD state;       /* 0 starting, 1 self test, 2 counting, 3 no answer */
    WORD flags;       /* Instrument status (bits) */
    WORD gravimetric; /* Number of the gravimetric factor */
    BYTE battery;     /* Battery charge (%) */
    double pump;      /* Pump current (%) */
    double laser;     /* Laser current (%) */
} NET_GRIMM_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_GRIMM_AVERAGE, "grimm", NET_GRIMM_Avg);
ZEB_MESSAGE(MSG_GRIMM_INFO, "grimm", NET_GRIMM_Info);
ZEB_MESSAGE(MSG_GRIMM_INSTANT, "grimm", NET_GRIMM_Instant);
ZEB_MESSAGE(MSG_GRIMM_STATUS, "grimm", NET_GRIMM_Status);

#endif

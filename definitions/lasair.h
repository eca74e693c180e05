/* lasair.h - optical particle counter with eight size channels. */
#ifndef ZEB2_DEFINITIONS_LASAIR_H
#define ZEB2_DEFINITIONS_LASAIR_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time;
    double N[8];   /* Particle concentration of each size channel (1/cm3) |
                      Nb${INDEX:1:2:3:4:5:6:7:8}_${INST:N\d+} | 0;1E5 */
    double Nt;     /* Total particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E5 */
    double Q;      /* Sample flow (lpm) | Q_${INST:N\d+} */
    double laser;  /* Laser reference signal (V) | V_${INST:N\d+} */
    double sheath; /* Sheath flow (lpm) | Q2_${INST:N\d+} */
    double volume; /* Sampled volume (cm3) | Qt_${INST:N\d+} */
    WORD flags;    /* Instrument status (bits) */
} NET_LASAIR_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    double N[8];   /* Particle concentration of each size channel (1/cm3) |
                      Nb${INDEX:1:2:3:4:5:6:7:8}_${INST:N\d+} | 0;1E5 */
    double Nt;     /* Total particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E5 */
    double Q;      /* Sample flow (lpm) | Q_${INST:N\d+} */
    double laser;  /* Laser reference signal (V) | V_${INST:N\d+} */
    double sheath; /* Sheath flow (lpm) | Q2_${INST:N\d+} */
    double volume; /* Sampled volume (cm3) | Qt_${INST:N\d+} */
    WORD flags;    /* Every instrument status seen (bits) */
} NET_LASAIR_Avg;

typedef struct {
    double Dp[9];     /* Diameters between which the channels lie (um) */
    double Q_nominal; /* Nominal sample flow (lpm) */
    STRING model[32];
    STRING serial_number[32];
} NET_LASAIR_Info;

typedef struct {
    WORD state;      /* 0 starting, 1 counting, 2 no answer */
    WORD flags;      /* Instrument status (bits) */
    BOOL laser_ok;   /* The laser is bright enough */
    BOOL flow_ok;    /* The sample flow is within limits */
    double interval; /* Counting time (s) */
} NET_LASAIR_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_LASAIR_AVERAGE, "lasair", NET_LASAIR_Avg);
ZEB_MESSAGE(MSG_LASAIR_INFO, "lasair", NET_LASAIR_Info);
ZEB_MESSAGE(MSG_LASAIR_INSTANT, "lasair", NET_LASAIR_Instant);
ZEB_MESSAGE(MSG_LASAIR_STATUS, "lasair", NET_LASAIR_Status);

#endif

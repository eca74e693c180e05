/* lasair.h - optical particle counter: light that single particles scatter, sorted into eight size
 * channels. Missing: MVC in a real, -1 in a time. The bits of flags are listed in the status
 * record. */
#ifndef ZEB2_DEFINITIONS_LASAIR_H
#define ZEB2_DEFINITIONS_LASAIR_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time;
    double N[8]; /* Particle concentration of each size channel (1/cm3) |
                    Nb${INDEX:1:2:3:4:5:6:7:8}_${INST:N\d+} | 0;1E5 */
    double Nt;   /* Total particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E5 */
    double C[8]; /* Count rate of each size channel (Hz) | Cb${INDEX:1:2:3:4:5:6:7:8}_${INST:N\d+} |
                    0;1E6 */
    double Q;    /* Sample flow (lpm) | Q_${INST:N\d+} | 0;100 */
    double laser;  /* Laser reference signal (V) | V_${INST:N\d+} | 0;20 */
    double sheath; /* Sheath flow (lpm) | Q2_${INST:N\d+} | 0;100 */
    double volume; /* Sampled volume (cm3) | Qt_${INST:N\d+} | 0;1E7 */
    WORD flags;    /* Instrument status (bits) */
} NET_LASAIR_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples; /* Readings averaged (1) */
    double N[8]; /* Particle concentration of each size channel (1/cm3) |
                    Nb${INDEX:1:2:3:4:5:6:7:8}_${INST:N\d+} | 0;1E5 */
    double Nt;   /* Total particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E5 */
    double C[8]; /* Count rate of each size channel (Hz) | Cb${INDEX:1:2:3:4:5:6:7:8}_${INST:N\d+} |
                    0;1E6 */
    double Q;    /* Sample flow (lpm) | Q_${INST:N\d+} | 0;100 */
    double laser;  /* Laser reference signal (V) | V_${INST:N\d+} | 0;20 */
    double sheath; /* Sheath flow (lpm) | Q2_${INST:N\d+} | 0;100 */
    double volume; /* Sampled volume (cm3) | Qt_${INST:N\d+} | 0;1E7 */
    WORD flags;    /* Every instrument status seen (bits) */
} NET_LASAIR_Avg;

typedef struct {
    double Dp[9]; /* Diameters between which the channels lie, the last missing where the highest
                     channel is open (um) */
    double Q_nominal; /* Nominal sample flow (lpm) */
    double index; /* Refractive index of the particles that the channels were calibrated with (1) */
    double N_max; /* Concentration above which particles coincide (1/cm3) */
    STRING model[32];
    STRING serial_number[32];
    STRING firmware[32];
} NET_LASAIR_Info;

typedef struct {
    WORD state; /* 0 starting, 1 counting, 2 no answer */
    WORD flags; /* Instrument status (bits): 0 laser dim, 1 sample flow, 2 sheath flow, 3 too many
                   particles, 4 counts lost, 5 detector noise, 6 clock */
    BOOL laser_ok;         /* The laser is bright enough */
    BOOL flow_ok;          /* The sample flow is within limits */
    BOOL pump_on;          /* The pump runs */
    double interval;       /* Counting time (s) */
    double delay;          /* Time between countings (s) */
    FTIME instrument_time; /* Time by the instrument's clock (s since 1970) */
} NET_LASAIR_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_LASAIR_AVERAGE, "lasair", NET_LASAIR_Avg);
ZEB_MESSAGE(MSG_LASAIR_INFO, "lasair", NET_LASAIR_Info);
ZEB_MESSAGE(MSG_LASAIR_INSTANT, "lasair", NET_LASAIR_Instant);
ZEB_MESSAGE(MSG_LASAIR_STATUS, "lasair", NET_LASAIR_Status);

#endif

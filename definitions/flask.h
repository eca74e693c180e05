/* flask.h - sampler that fills flasks with air for later analysis in the laboratory: the line and
 * the flask are flushed, then the flask is filled above ambient pressure and closed. Missing: MVC
 * in a real, -1 in a time. */
#ifndef ZEB2_DEFINITIONS_FLASK_H
#define ZEB2_DEFINITIONS_FLASK_H

#include <zeb2/port.h>

#pragma pack(push, 4)

/* What is in the sampler and when it is to be filled. */
typedef struct {
    BYTE n;               /* Number of flasks in the sampler (1) */
    STRING package[32];   /* Name of the package that the flasks came in */
    BOOL filled[20];      /* The flask is filled */
    FTIME planned[20];    /* Planned time of filling, -1 for none (s since 1970) */
    FTIME start_time[20]; /* Start of filling, -1 before it (s since 1970) */
    FTIME end_time[20];   /* End of filling, -1 before it (s since 1970) */
    double P[20];         /* Final pressure of each flask (hPa) |
                             Pf${INDEX:1:2:3:4:5:6:7:8:9:10:11:12:13:14:15:16:17:18:19:20}_${INST:F\d+} |
                             0;1E4 */
    double
        volume[20]; /* Flushed volume before each filling (m3) |
                       Qtf${INDEX:1:2:3:4:5:6:7:8:9:10:11:12:13:14:15:16:17:18:19:20}_${INST:F\d+}
                       | 0;100 */
} NET_FLASK_Info;

/* MVC leaves a value to the sampler's own settings. */
typedef struct {
    BYTE flask;          /* Flask to fill, from 1 on, 0 for the next empty one */
    double flush_volume; /* Volume to flush first (m3) */
    double P_final;      /* Final pressure (hPa) */
    STRING comment[256]; /* Text kept with the sample */
} NET_FLASK_StartSample;

typedef struct {
    WORD state; /* 0 idle, 1 flushing the line, 2 flushing the flask, 3 filling, 4 closing, 5 failed
                 */
    WORD flags; /* Sampler status (bits): 0 no flow, 1 leak, 2 final pressure not reached, 3 valve,
                   4 temperature, 5 no empty flask left, 6 no answer */
    BYTE flask; /* Flask in use, from 1 on, 0 for none */
    double Q;   /* Flow (slpm) | Q_${INST:F\d+} | -1;200 */
    double P;   /* Manifold pressure (hPa) | P_${INST:F\d+} | 0;1E4 */
    double T;   /* Manifold temperature (C) | T_${INST:F\d+} | -50;100 */
    double volume;       /* Flushed volume (m3) | Qt_${INST:F\d+} | 0;100 */
    double flush_volume; /* Volume to flush (m3) */
    double P_final;      /* Final pressure to reach (hPa) */
    FTIME next_sample;   /* Time of the next planned sample, -1 for none (s since 1970) */
    STRING serial_number[32];
    STRING firmware[32];
} NET_FLASK_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_FLASK_INFO, "flask", NET_FLASK_Info);
ZEB_MESSAGE_BARE(MSG_FLASK_RESET_PLAN, "flask");
ZEB_MESSAGE(MSG_FLASK_START_SAMPLE, "flask", NET_FLASK_StartSample);
ZEB_MESSAGE(MSG_FLASK_STATUS, "flask", NET_FLASK_Status);

#endif

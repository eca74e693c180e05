/* flask.h - sampler that fills flasks with air for later analysis in the laboratory. */
#ifndef ZEB2_DEFINITIONS_FLASK_H
#define ZEB2_DEFINITIONS_FLASK_H

#include <zeb2/port.h>

#pragma pack(push, 4)

/* What is in the sampler and when it is to be filled. */
typedef struct {
    BYTE n; /* Number of flasks in the sampler */
    STRING package[32];
    BOOL filled[20];      /* The flask is filled */
    FTIME planned[20];    /* Planned time of filling, -1 for none (s since 1970) */
    FTIME start_time[20]; /* Start of filling, -1 before it (s since 1970) */
    FTIME end_time[20];   /* End of filling, -1 before it (s since 1970) */
    double P[20];         /* Final pressure of each flask (hPa) |
                             Pf${INDEX:1:2:3:4:5:6:7:8:9:10:11:12:13:14:15:16:17:18:19:20}_${INST:F\d+} */
    double volume[20];    /* Flushed volume before each filling (m3) */
} NET_FLASK_Info;

typedef struct {
    BYTE flask;          /* Flask to fill, from 1 on (0: the next empty one) */
    double flush_volume; /* Volume to flush first (m3) */
    double P_final;      /* Final pressure (hPa) */
    STRING comment[256];
} NET_FLASK_StartSample;

typedef struct {
    WORD state; /* 0 idle, 1 flushing the line, 2 flushing the flask, 3 filling, 4 closing, 5 failed
                 */
    WORD flags; /* Sampler status (bits) */
    BYTE flask; /* Flask in use, from 1 on (0: none) */
    double Q;   /* Flow (slpm) | Q_${INST:F\d+} */
    double P;   /* Manifold pressure (hPa) | P_${INST:F\d+} */
    double T;   /* Manifold temperature (C) | T_${INST:F\d+} */
    double volume;     /* Flushed volume (m3) */
    FTIME next_sample; /* Time of the next planned sample (s since 1970) */
} NET_FLASK_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_FLASK_INFO, "flask", NET_FLASK_Info);
ZEB_MESSAGE_BARE(MSG_FLASK_RESET_PLAN, "flask");
ZEB_MESSAGE(MSG_FLASK_START_SAMPLE, "flask", NET_FLASK_StartSample);
ZEB_MESSAGE(MSG_FLASK_STATUS, "flask", NET_FLASK_Status);

#endif

/* pils.h - particle-into-liquid sampler: aerosol grown in steam and collected into vials. Missing:
 * MVC in a real, -1 in a time. The bits of flags are listed in the status record. */
#ifndef ZEB2_DEFINITIONS_PILS_H
#define ZEB2_DEFINITIONS_PILS_H

#include <zeb2/port.h>

#pragma pack(push, 4)

/* One entry of the queue: a sample, or a blank of filtered air. */
typedef struct {
    FTIME start_time; /* Start of collecting, -1 for at once (s since 1970) */
    double duration;  /* Duration of collecting (s) */
    double vial_time; /* Time after which the next vial is filled, missing for one vial alone (s) */
    BYTE vial;        /* First vial to fill, from 1 on (0: the next empty one) */
    STRING comment[256]; /* Remark for the laboratory */
} NET_PILS_Acquire;

typedef struct {
    FTIME time;
    double Q;         /* Sample flow (lpm) | Q1_${INST:F\d+} | 0;50 */
    double Q_steam;   /* Steam water flow (ml/min) | Q2_${INST:F\d+} | 0;50 */
    double Q_wash;    /* Transport liquid flow (ml/min) | Q3_${INST:F\d+} | 0;50 */
    double Q_vial;    /* Flow into the vial (ml/min) | Q4_${INST:F\d+} | 0;50 */
    double Qt;        /* Air sampled for the vial (m3) | Qt_${INST:F\d+} | 0;1E4 */
    double T1;        /* Steam generator temperature (C) | T1_${INST:F\d+} | -50;200 */
    double T2;        /* Steam tip temperature (C) | T2_${INST:F\d+} | -50;200 */
    double T3;        /* Condensation chamber temperature (C) | T3_${INST:F\d+} | -50;200 */
    double T4;        /* Sample temperature (C) | T4_${INST:F\d+} | -50;100 */
    double P;         /* Sample pressure (hPa) | P_${INST:F\d+} | 100;1200 */
    double dP;        /* Pressure drop over the impactor (hPa) | Pd_${INST:F\d+} | -10;1200 */
    BYTE vial;        /* Vial being filled (0: none) */
    FTIME vial_start; /* Start of the vial, -1 without one (s since 1970) */
    BOOL blank;       /* Filtered air is sampled */
    WORD flags;       /* Instrument status (bits) */
} NET_PILS_Instant;

typedef struct {
    WORD state;      /* 0 off, 1 warming up, 2 waiting, 3 collecting, 4 moving to a vial, 5 shutting
                        down, 6 failed */
    WORD flags;      /* Instrument status (bits): 0 sample flow, 1 steam generator, 2 steam tip, 3
                        condensation chamber, 4 liquid pumps, 5 water used up, 6 waste full, 7 vial
                        carousel, 8 no empty vial */
    BYTE queued;     /* Entries in the queue */
    BYTE vials_left; /* Empty vials left */
    BOOL shutdown_queued;     /* A shut-down follows the last entry */
    NET_PILS_Acquire current; /* *instant */
    FTIME end_time;           /* End of the present entry, -1 without one (s since 1970) */
} NET_PILS_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_PILS_INSTANT, "pils", NET_PILS_Instant);
ZEB_MESSAGE_BARE(MSG_PILS_QUEUE_CLEAR, "pils");
ZEB_MESSAGE(MSG_PILS_QUEUE_FILTER, "pils", NET_PILS_Acquire);
ZEB_MESSAGE(MSG_PILS_QUEUE_SAMPLE, "pils", NET_PILS_Acquire);
ZEB_MESSAGE_BARE(MSG_PILS_QUEUE_SHUTDOWN, "pils");
ZEB_MESSAGE_BARE(MSG_PILS_SHUTDOWN, "pils");
ZEB_MESSAGE(MSG_PILS_STATUS, "pils", NET_PILS_Status);

#endif

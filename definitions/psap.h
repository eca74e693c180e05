/* psap.h - one-wavelength filter absorption photometer. */
#ifndef ZEB2_DEFINITIONS_PSAP_H
#define ZEB2_DEFINITIONS_PSAP_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time;
    double Ba;      /* Absorption coefficient (1/Mm) | BaG_${INST:A\d+} */
    double Ir;      /* Filter transmittance (1) | IrG_${INST:A\d+} | 0;2 */
    double Q;       /* Sample flow (lpm) | Q_${INST:A\d+} | 0;10 */
    double Ip;      /* Sample detector signal (count) | IpG_${INST:A\d+} */
    double If;      /* Reference detector signal (count) | IfG_${INST:A\d+} */
    double L;       /* Sample length on the filter (m) | L_${INST:A\d+} */
    double Ba_inst; /* Absorption coefficient as the instrument reports it (1/Mm) |
                       BaGi_${INST:A\d+} */
    WORD flags;     /* Instrument status (bits) */
} NET_PSAP_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    double Ba;  /* Absorption coefficient (1/Mm) | BaG_${INST:A\d+} */
    double Ir;  /* Filter transmittance (1) | IrG_${INST:A\d+} | 0;2 */
    double Q;   /* Sample flow (lpm) | Q_${INST:A\d+} | 0;10 */
    double Ip;  /* Sample detector signal (count) | IpG_${INST:A\d+} */
    double If;  /* Reference detector signal (count) | IfG_${INST:A\d+} */
    double L;   /* Sample length on the filter (m) | L_${INST:A\d+} */
    WORD flags; /* Every instrument status seen (bits) */
} NET_PSAP_Avg;

/* The filter in use and how the white filter before it read. */
typedef struct {
    FTIME filter_start; /* Time of the filter change (s since 1970) */
    DWORD filter_id;    /* Running number of the filter */
    double area;        /* Area of the spot (mm2) */
    double Irw;         /* Intensity ratio of the white filter (1) | IrwG_${INST:F\d+} */
    double Irs;         /* Intensity ratio at the start of the filter (1) | IrsG_${INST:F\d+} */
    double volume;      /* Air sampled through the filter (m3) */
} NET_PSAP_FilterInfo;

typedef struct {
    WORD state;         /* 0 sampling, 1 change wanted, 2 changing, 3 settling */
    BOOL flow_on;       /* Air is drawn through the filter */
    double Ir_change;   /* Transmittance below which a change is wanted (1) */
    double settle_left; /* Time until sampling begins (s) */
} NET_PSAP_FilterStatus;

typedef struct {
    WORD state;         /* 0 starting, 1 sampling, 2 changing the filter, 3 no answer */
    WORD flags;         /* Instrument status (bits) */
    double calibration; /* Flow calibration factor (1) */
    double averaging;   /* Averaging time of the instrument (s) */
    STRING firmware[32];
} NET_PSAP_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_PSAP_AVERAGE, "psap", NET_PSAP_Avg);
ZEB_MESSAGE(MSG_PSAP_FILTERINFO, "psap", NET_PSAP_FilterInfo);
ZEB_MESSAGE(MSG_PSAP_FILTERSTATUS, "psap", NET_PSAP_FilterStatus);
ZEB_MESSAGE(MSG_PSAP_INSTANT, "psap", NET_PSAP_Instant);
ZEB_MESSAGE(MSG_PSAP_SETFILTERSATUS, "psap", NET_PSAP_FilterStatus);
ZEB_MESSAGE(MSG_PSAP_STATUS, "psap", NET_PSAP_Status);

#endif

/* psap3.h - three-wavelength filter absorption photometer. Arrays hold blue, green, red. */
#ifndef ZEB2_DEFINITIONS_PSAP3_H
#define ZEB2_DEFINITIONS_PSAP3_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time;
    double Ba[3];      /* Absorption coefficient (1/Mm) | Ba${INDEX:B:G:R}_${INST:A\d+} */
    double Ir[3];      /* Filter transmittance (1) | Ir${INDEX:B:G:R}_${INST:A\d+} | 0;2 */
    double Ip[3];      /* Sample detector signal (count) | Ip${INDEX:B:G:R}_${INST:A\d+} */
    double If[3];      /* Reference detector signal (count) | If${INDEX:B:G:R}_${INST:A\d+} */
    double Ipz;        /* Sample detector signal, light off (count) | IpD_${INST:A\d+} */
    double Ifz;        /* Reference detector signal, light off (count) | IfD_${INST:A\d+} */
    double Q;          /* Sample flow (lpm) | Q_${INST:A\d+} | 0;10 */
    double L;          /* Sample length on the filter (m) | L_${INST:A\d+} */
    double Ba_inst[3]; /* Absorption coefficient as the instrument reports it (1/Mm) |
                          Ba${INDEX:B:G:R}i_${INST:A\d+} */
    WORD flags;        /* Instrument status (bits) */
} NET_PSAP3_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    double Ba[3]; /* Absorption coefficient (1/Mm) | Ba${INDEX:B:G:R}_${INST:A\d+} */
    double Ir[3]; /* Filter transmittance (1) | Ir${INDEX:B:G:R}_${INST:A\d+} | 0;2 */
    double Ip[3]; /* Sample detector signal (count) | Ip${INDEX:B:G:R}_${INST:A\d+} */
    double If[3]; /* Reference detector signal (count) | If${INDEX:B:G:R}_${INST:A\d+} */
    double Ipz;   /* Sample detector signal, light off (count) | IpD_${INST:A\d+} */
    double Ifz;   /* Reference detector signal, light off (count) | IfD_${INST:A\d+} */
    double Q;     /* Sample flow (lpm) | Q_${INST:A\d+} | 0;10 */
    double L;     /* Sample length on the filter (m) | L_${INST:A\d+} */
    WORD flags;   /* Every instrument status seen (bits) */
} NET_PSAP3_Avg;

/* The filter in use and how the white filter before it read. */
typedef struct {
    FTIME filter_start; /* Time of the filter change (s since 1970) */
    DWORD filter_id;    /* Running number of the filter */
    double area;        /* Area of the spot (mm2) */
    double wavelengths[3];
    double Irw[3]; /* Intensity ratio of the white filter (1) | Irw${INDEX:B:G:R}_${INST:F\d+} */
    double Irs[3]; /* Intensity ratio at the start of the filter (1) |
                      Irs${INDEX:B:G:R}_${INST:F\d+} */
    double volume; /* Air sampled through the filter (m3) */
} NET_PSAP3_FilterInfo;

typedef struct {
    WORD state;          /* 0 sampling, 1 change wanted, 2 changing, 3 settling */
    BOOL flow_on;        /* Air is drawn through the filter */
    double Ir_change[3]; /* Transmittance below which a change is wanted (1) */
    double settle_left;  /* Time until sampling begins (s) */
} NET_PSAP3_FilterStatus;

typedef struct {
    WORD state;         /* 0 starting, 1 sampling, 2 changing the filter, 3 no answer */
    WORD flags;         /* Instrument status (bits) */
    WORD gains;         /* Detector gain settings (bits) */
    double calibration; /* Flow calibration factor (1) */
    double averaging;   /* Averaging time of the instrument (s) */
    STRING firmware[32];
} NET_PSAP3_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_PSAP3_AVERAGE, "psap3", NET_PSAP3_Avg);
ZEB_MESSAGE(MSG_PSAP3_FILTERINFO, "psap3", NET_PSAP3_FilterInfo);
ZEB_MESSAGE(MSG_PSAP3_FILTERSTATUS, "psap3", NET_PSAP3_FilterStatus);
ZEB_MESSAGE(MSG_PSAP3_INSTANT, "psap3", NET_PSAP3_Instant);
ZEB_MESSAGE(MSG_PSAP3_SETFILTERSATUS, "psap3", NET_PSAP3_FilterStatus);
ZEB_MESSAGE(MSG_PSAP3_STATUS, "psap3", NET_PSAP3_Status);

#endif

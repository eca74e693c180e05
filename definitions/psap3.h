/* psap3.h - filter absorption photometer: the light that a loaded filter lets through beside a
 * clean one, at 467, 530 and 660 nm. Arrays of three hold blue, green, red. Missing: MVC in a real,
 * -1 in a time, 0x55555555 in an int or DWORD. The bits of flags are listed in the status record,
 * the common ones as in common_psap.h. */
#ifndef ZEB2_DEFINITIONS_PSAP3_H
#define ZEB2_DEFINITIONS_PSAP3_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time;
    double Ba[3]; /* Absorption coefficient (1/Mm) | Ba${INDEX:B:G:R}_${INST:A\d+} | -100;1E5 */
    double Ir[3]; /* Filter transmittance (1) | Ir${INDEX:B:G:R}_${INST:A\d+} | 0;2 */
    double Ip[3]; /* Sample detector signal (count) | Ip${INDEX:B:G:R}_${INST:A\d+} | 0;1E8 */
    double If[3]; /* Reference detector signal (count) | If${INDEX:B:G:R}_${INST:A\d+} | 0;1E8 */
    double Ipz;   /* Sample detector signal, light off (count) | IpD_${INST:A\d+} | -1E7;1E7 */
    double Ifz;   /* Reference detector signal, light off (count) | IfD_${INST:A\d+} | -1E7;1E7 */
    double Q;     /* Sample flow (lpm) | Q_${INST:A\d+} | 0;10 */
    double L;     /* Sample length on the filter (m) | L_${INST:A\d+} | 0;1E6 */
    double Ba_inst[3]; /* Absorption coefficient as the instrument reports it (1/Mm) |
                          Ba${INDEX:B:G:R}i_${INST:A\d+} | -100;1E5 */
    WORD flags;        /* Instrument status (bits) */
} NET_PSAP3_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples; /* Readings averaged (1) */
    double Ba[3]; /* Absorption coefficient (1/Mm) | Ba${INDEX:B:G:R}_${INST:A\d+} | -100;1E5 */
    double Ir[3]; /* Filter transmittance (1) | Ir${INDEX:B:G:R}_${INST:A\d+} | 0;2 */
    double Ip[3]; /* Sample detector signal (count) | Ip${INDEX:B:G:R}_${INST:A\d+} | 0;1E8 */
    double If[3]; /* Reference detector signal (count) | If${INDEX:B:G:R}_${INST:A\d+} | 0;1E8 */
    double Ipz;   /* Sample detector signal, light off (count) | IpD_${INST:A\d+} | -1E7;1E7 */
    double Ifz;   /* Reference detector signal, light off (count) | IfD_${INST:A\d+} | -1E7;1E7 */
    double Q;     /* Sample flow (lpm) | Q_${INST:A\d+} | 0;10 */
    double L;     /* Sample length on the filter (m) | L_${INST:A\d+} | 0;1E6 */
    double Ba_inst[3]; /* Absorption coefficient as the instrument reports it (1/Mm) |
                          Ba${INDEX:B:G:R}i_${INST:A\d+} | -100;1E5 */
    WORD flags;        /* Every instrument status seen (bits) */
} NET_PSAP3_Avg;

/* The filter in use and how the white filter before it read: Ir is the ratio of the sample and
 * reference signals over that of the start. */
typedef struct {
    FTIME filter_start;    /* Time of the filter change (s since 1970) */
    DWORD filter_id;       /* Running number of the filter */
    double area;           /* Area of the spot (mm2) */
    double wavelengths[3]; /* Wavelength of each colour (nm) */
    double Irw[3];     /* Intensity ratio of the white filter (1) | Irw${INDEX:B:G:R}_${INST:F\d+} |
                          0;10 */
    double Irs[3];     /* Intensity ratio at the start of the filter (1) |
                          Irs${INDEX:B:G:R}_${INST:F\d+} | 0;10 */
    double volume;     /* Air sampled through the filter (m3) | Qt_${INST:F\d+} | 0;1E4 */
    FTIME white_start; /* Time of the white filter's change, -1 unknown (s since 1970) */
} NET_PSAP3_FilterInfo;

/* How far a filter change has come. In a MSG_PSAP3_SETFILTERSATUS the state and flow_on are what is
 * asked for, and Ir_change where it is not missing; the rest is not read. */
typedef struct {
    WORD state;          /* 0 sampling, 1 change wanted, 2 changing, 3 settling */
    BOOL flow_on;        /* Air is drawn through the filter */
    double Ir_change[3]; /* Transmittance below which a change is wanted (1) */
    double settle_left;  /* Time until sampling begins (s) */
    FTIME state_start;   /* Start of the state (s since 1970) */
} NET_PSAP3_FilterStatus;

typedef struct {
    WORD state; /* 0 starting, 1 sampling, 2 changing the filter, 3 no answer */
    WORD flags; /* Instrument status (bits): 0 flow off its set point, 1 light source, 2 detector, 4
                   transmittance too low, 5 filter used up, 6 filter being changed or settling, 7 no
                   air through the filter, 8 detector saturated, 9 filter cover open */
    WORD gains; /* Detector gains, two bits each from bit 0 on: sample blue, green, red, reference
                   blue, green, red (bits) */
    double calibration;    /* Flow calibration factor (1) */
    double averaging;      /* Averaging time of the instrument (s) */
    FTIME instrument_time; /* Time by the instrument's clock (s since 1970) */
    STRING serial_number[32];
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

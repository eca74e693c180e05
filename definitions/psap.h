/* psap.h - filter absorption photometer: the light that a loaded filter lets through beside a clean
 * one, at about 565 nm. Missing: MVC in a real, -1 in a time, 0x55555555 in an int or DWORD. The
 * bits of flags are listed in the status record, the common ones as in common_psap.h. */
#ifndef ZEB2_DEFINITIONS_PSAP_H
#define ZEB2_DEFINITIONS_PSAP_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time;
    double Ba;      /* Absorption coefficient (1/Mm) | BaG_${INST:A\d+} | -100;1E5 */
    double Ir;      /* Filter transmittance (1) | IrG_${INST:A\d+} | 0;2 */
    double Ip;      /* Sample detector signal (count) | IpG_${INST:A\d+} | 0;1E8 */
    double If;      /* Reference detector signal (count) | IfG_${INST:A\d+} | 0;1E8 */
    double Q;       /* Sample flow (lpm) | Q_${INST:A\d+} | 0;10 */
    double L;       /* Sample length on the filter (m) | L_${INST:A\d+} | 0;1E6 */
    double Ba_inst; /* Absorption coefficient as the instrument reports it (1/Mm) |
                       BaGi_${INST:A\d+} | -100;1E5 */
    WORD flags;     /* Instrument status (bits) */
} NET_PSAP_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples;  /* Readings averaged (1) */
    double Ba;      /* Absorption coefficient (1/Mm) | BaG_${INST:A\d+} | -100;1E5 */
    double Ir;      /* Filter transmittance (1) | IrG_${INST:A\d+} | 0;2 */
    double Ip;      /* Sample detector signal (count) | IpG_${INST:A\d+} | 0;1E8 */
    double If;      /* Reference detector signal (count) | IfG_${INST:A\d+} | 0;1E8 */
    double Q;       /* Sample flow (lpm) | Q_${INST:A\d+} | 0;10 */
    double L;       /* Sample length on the filter (m) | L_${INST:A\d+} | 0;1E6 */
    double Ba_inst; /* Absorption coefficient as the instrument reports it (1/Mm) |
                       BaGi_${INST:A\d+} | -100;1E5 */
    WORD flags;     /* Every instrument status seen (bits) */
} NET_PSAP_Avg;

/* The filter in use and how the white filter before it read: Ir is the ratio of the sample and
 * reference signals over that of the start. */
typedef struct {
    FTIME filter_start; /* Time of the filter change (s since 1970) */
    DWORD filter_id;    /* Running number of the filter */
    double area;        /* Area of the spot (mm2) */
    double Irw;         /* Intensity ratio of the white filter (1) | IrwG_${INST:F\d+} | 0;10 */
    double Irs;    /* Intensity ratio at the start of the filter (1) | IrsG_${INST:F\d+} | 0;10 */
    double volume; /* Air sampled through the filter (m3) | Qt_${INST:F\d+} | 0;1E4 */
    FTIME white_start; /* Time of the white filter's change, -1 unknown (s since 1970) */
} NET_PSAP_FilterInfo;

/* How far a filter change has come. In a MSG_PSAP_SETFILTERSATUS the state and flow_on are what is
 * asked for, and Ir_change where it is not missing; the rest is not read. */
typedef struct {
    WORD state;         /* 0 sampling, 1 change wanted, 2 changing, 3 settling */
    BOOL flow_on;       /* Air is drawn through the filter */
    double Ir_change;   /* Transmittance below which a change is wanted (1) */
    double settle_left; /* Time until sampling begins (s) */
    FTIME state_start;  /* Start of the state (s since 1970) */
} NET_PSAP_FilterStatus;

typedef struct {
    WORD state; /* 0 starting, 1 sampling, 2 changing the filter, 3 no answer */
    WORD flags; /* Instrument status (bits): 0 flow off its set point, 1 light source, 2 detector, 4
                   transmittance too low, 5 filter used up, 6 filter being changed or settling, 7 no
                   air through the filter, 8 detector saturated, 9 filter cover open */
    double wavelength;     /* Wavelength of the light source (nm) */
    double calibration;    /* Flow calibration factor (1) */
    double averaging;      /* Averaging time of the instrument (s) */
    FTIME instrument_time; /* Time by the instrument's clock (s since 1970) */
    STRING serial_number[32];
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

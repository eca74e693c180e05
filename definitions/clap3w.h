/* clap3w.h - three-wavelength filter absorption photometer with eight spots on one filter. Arrays
 * of three hold blue, green, red; arrays of ten the eight spots and the two references. Missing:
 * MVC in a real, -1 in a time, 0x55555555 in a DWORD. The bits of flags are listed in the status
 * record. */
#ifndef ZEB2_DEFINITIONS_CLAP3W_H
#define ZEB2_DEFINITIONS_CLAP3W_H

#include <zeb2/definitions/io.h>
#include <zeb2/port.h>

#pragma pack(push, 4)

/* Detector signals of all spots of a filter, for one white filter or one test of its stability. */
typedef struct {
    FTIME time;
    double blue[10];  /* Signal, blue (count) | IB${INDEX:1:2:3:4:5:6:7:8:9:10}_${INST:A\d+} |
                         -1E5;2E7 */
    double green[10]; /* Signal, green (count) | IG${INDEX:1:2:3:4:5:6:7:8:9:10}_${INST:A\d+} |
                         -1E5;2E7 */
    double red[10];   /* Signal, red (count) | IR${INDEX:1:2:3:4:5:6:7:8:9:10}_${INST:A\d+} |
                         -1E5;2E7 */
    double dark[10];  /* Signal, light off (count) | ID${INDEX:1:2:3:4:5:6:7:8:9:10}_${INST:A\d+} |
                         -1E5;2E7 */
    double deviation[3]; /* Largest relative deviation of a spot (1) |
                            Isd${INDEX:B:G:R}_${INST:A\d+} | 0;1 */
    DWORD samples;       /* Readings averaged (1) */
    BOOL stable;         /* The signals agree within the set limits */
} NET_CLAP3W_Intensities;

typedef struct {
    FTIME time;
    double Ba[3]; /* Absorption coefficient (1/Mm) | Ba${INDEX:B:G:R}_${INST:A\d+} | -100;1E5 */
    double Ir[3]; /* Filter transmittance (1) | Ir${INDEX:B:G:R}_${INST:A\d+} | 0;2 */
    double Ip[3]; /* Sample detector signal (count) | Ip${INDEX:B:G:R}_${INST:A\d+} | -1E5;2E7 */
    double If[3]; /* Reference detector signal (count) | If${INDEX:B:G:R}_${INST:A\d+} | -1E5;2E7 */
    double Ipz;   /* Sample detector signal, light off (count) | IpD_${INST:A\d+} | -1E5;2E7 */
    double Ifz;   /* Reference detector signal, light off (count) | IfD_${INST:A\d+} | -1E5;2E7 */
    double Q;     /* Sample flow (slpm) | Q_${INST:A\d+} | -1;20 */
    double L;     /* Sample length on the spot (m) | L_${INST:A\d+} | 0;1E6 */
    double T1;    /* Sample temperature (C) | T1_${INST:A\d+} | -50;100 */
    double T2;    /* Case temperature (C) | T2_${INST:A\d+} | -50;100 */
    double V;     /* Flow sensor signal (V) | V1_${INST:A\d+} | -1;12 */
    BYTE Fn;      /* Spot in use, 0 for none (1) | Fn_${INST:A\d+} | 0;8 */
    WORD flags;   /* Instrument status (bits) */
} NET_CLAP3W_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples; /* Readings averaged (1) */
    double Ba[3];  /* Absorption coefficient (1/Mm) | Ba${INDEX:B:G:R}_${INST:A\d+} | -100;1E5 */
    double Ir[3];  /* Filter transmittance (1) | Ir${INDEX:B:G:R}_${INST:A\d+} | 0;2 */
    double Ip[3];  /* Sample detector signal (count) | Ip${INDEX:B:G:R}_${INST:A\d+} | -1E5;2E7 */
    double If[3]; /* Reference detector signal (count) | If${INDEX:B:G:R}_${INST:A\d+} | -1E5;2E7 */
    double Ipz;   /* Sample detector signal, light off (count) | IpD_${INST:A\d+} | -1E5;2E7 */
    double Ifz;   /* Reference detector signal, light off (count) | IfD_${INST:A\d+} | -1E5;2E7 */
    double Q;     /* Sample flow (slpm) | Q_${INST:A\d+} | -1;20 */
    double L;     /* Sample length on the spot (m) | L_${INST:A\d+} | 0;1E6 */
    double T1;    /* Sample temperature (C) | T1_${INST:A\d+} | -50;100 */
    double T2;    /* Case temperature (C) | T2_${INST:A\d+} | -50;100 */
    double V;     /* Flow sensor signal (V) | V1_${INST:A\d+} | -1;12 */
    BYTE Fn;      /* Spot in use, 0 for none (1) | Fn_${INST:A\d+} | 0;8 */
    WORD flags;   /* Every instrument status seen (bits) */
} NET_CLAP3W_Avg;

/* The filter in the instrument: how its signals were when it was put in, and those of the white
 * filter that the transmittances are relative to. */
typedef struct {
    WORD state;   /* 0 sampling, 1 change wanted, 2 changing, 3 white filter wanted, 4 measuring the
                     white filter, 5 settling */
    BYTE spot;    /* Spot in use, 0 for none */
    BOOL flow_on; /* Air is drawn through the spot */
    FTIME filter_start; /* Time of the filter change (s since 1970) */
    FTIME spot_start;   /* Start of sampling on the spot (s since 1970) */
    DWORD filter_id;    /* Running number of the filter (1) */
    double areas[8];    /* Area of each spot (mm2) */
    double Ir_advance;  /* Transmittance at which the next spot is taken (1) */
    double volume;      /* Sampled volume of the spot (m3) |
                           Qt_${INST:A\d+} | 0;1E4 */
    double Ir_final[8]; /* Green transmittance of each spot when it was left, missing before (1) |
                           IrG${INDEX:1:2:3:4:5:6:7:8}_${INST:A\d+} | 0;2 */
    NET_CLAP3W_Intensities start; /* *instant */
    NET_CLAP3W_Intensities white;
} NET_CLAP3W_FilterStatus;

typedef struct {
    WORD state; /* 0 starting, 1 sampling, 2 changing the filter, 3 bypassed, 4 no answer */
    WORD flags; /* Instrument status (bits): 0 flow off its set point, 1 light source, 2 detector, 3
                   case temperature, 4 transmittance too low, 5 last spot used up, 6 filter being
                   changed or settling, 7 no air through the filter */
    DWORD valves;          /* Valves that are open, bit i of spot i (bits) */
    double Q_set;          /* Sample flow set point (slpm) */
    double T_set;          /* Case temperature set point (C) */
    double heater;         /* Case heater drive (%) | ZHEAT_${INST:A\d+} | 0;100 */
    double wavelengths[3]; /* Wavelength (nm) */
    STRING serial_number[32];
    STRING firmware[32];
} NET_CLAP3W_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_CLAP3W_AVERAGE, "clap3w", NET_CLAP3W_Avg);
ZEB_MESSAGE_BARE(MSG_CLAP3W_FILTERCHANGE, "clap3w");
ZEB_MESSAGE(MSG_CLAP3W_FILTERSTATUS, "clap3w", NET_CLAP3W_FilterStatus);
ZEB_MESSAGE_BARE(MSG_CLAP3W_FLOW, "clap3w");
ZEB_MESSAGE(MSG_CLAP3W_FLOWMULTI, "clap3w", NET_IO_LockID);
ZEB_MESSAGE_BARE(MSG_CLAP3W_FLOWOVERRIDE, "clap3w");
ZEB_MESSAGE(MSG_CLAP3W_INSTANT, "clap3w", NET_CLAP3W_Instant);
ZEB_MESSAGE(MSG_CLAP3W_LASTSTABLITY, "clap3w", NET_CLAP3W_Intensities);
ZEB_MESSAGE_BARE(MSG_CLAP3W_NOFLOW, "clap3w");
ZEB_MESSAGE(MSG_CLAP3W_NOFLOWMULTI, "clap3w", NET_IO_LockID);
ZEB_MESSAGE_BARE(MSG_CLAP3W_NOFLOWOVERRIDE, "clap3w");
ZEB_MESSAGE_BARE(MSG_CLAP3W_SPOTADVANCE, "clap3w");
ZEB_MESSAGE(MSG_CLAP3W_STATUS, "clap3w", NET_CLAP3W_Status);
ZEB_MESSAGE_BARE(MSG_CLAP3W_WHITECHANGE, "clap3w");
ZEB_MESSAGE(MSG_CLAP3W_WHITEFILTER, "clap3w", NET_CLAP3W_Intensities);

#endif

/* maap.h - absorption photometer that measures the light a loaded tape reflects at several angles
 * as well as what it transmits. */
#ifndef ZEB2_DEFINITIONS_MAAP_H
#define ZEB2_DEFINITIONS_MAAP_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME start_time;
    FTIME end_time;
    FTIME instrument_time; /* Time of the report by the instrument's clock (s since 1970) */
    double X;              /* Equivalent black carbon concentration (ug/m3) | XR_${INST:A\d+} */
    double Ba;             /* Absorption coefficient (1/Mm) | BaR_${INST:A\d+} */
    double Ir;             /* Filter transmittance (1) | IrR_${INST:A\d+} */
    double
        Is[2];   /* Reflected signal at the two back angles (count) | Is${INDEX:1:2}_${INST:A\d+} */
    double Ip;   /* Transmitted signal (count) | IpR_${INST:A\d+} */
    double If;   /* Reference signal (count) | IfR_${INST:A\d+} */
    double ssa;  /* Single scattering albedo of the filter (1) | ZSSAR_${INST:A\d+} */
    double mass; /* Loading of the filter (ug) | ZPARTICLE_${INST:A\d+} */
    double Q;    /* Sample flow (lpm) | Q_${INST:A\d+} */
    double P;    /* Pressure in the sampling head (hPa) | P_${INST:A\d+} */
    double Pd1;  /* Pressure drop over the orifice (hPa) | Pd1_${INST:A\d+} */
    double Pd2;  /* Pressure drop over the filter (hPa) | Pd2_${INST:A\d+} */
    double T1;   /* Ambient temperature (C) | T1_${INST:A\d+} */
    double T2;   /* Head temperature (C) | T2_${INST:A\d+} */
    double T3;   /* System temperature (C) | T3_${INST:A\d+} */
    DWORD flags; /* Instrument status (bits) */
} NET_MAAP_Report;

typedef struct {
    FTIME filter_start; /* Start of sampling on the present spot (s since 1970) */
    DWORD spot;         /* Running number of the spot */
    double Ip;          /* Transmitted signal of the clean spot (count) | IpsR_${INST:F\d+} */
    double If;          /* Reference signal of the clean spot (count) | IfsR_${INST:F\d+} */
    double Is[2]; /* Reflected signals of the clean spot (count) | Iss${INDEX:1:2}_${INST:F\d+} */
    double area;  /* Area of the spot (mm2) */
} NET_MAAP_Filter;

typedef struct {
    WORD state;        /* 0 starting, 1 sampling, 2 advancing the tape, 3 zeroing, 4 no answer */
    DWORD flags;       /* Instrument status (bits) */
    BOOL tape_end;     /* The tape is used up */
    BOOL pump_on;      /* The pump runs */
    double Q_set;      /* Sample flow set point (lpm) */
    double Ir_advance; /* Transmittance at which the tape is advanced (1) */
    STRING serial_number[32];
    STRING firmware[32];
} NET_MAAP_Status;

#pragma pack(pop)

ZEB_MESSAGE_BARE(MSG_MAAP_ADVANCE, "maap");
ZEB_MESSAGE(MSG_MAAP_FILTER, "maap", NET_MAAP_Filter);
ZEB_MESSAGE(MSG_MAAP_REPORT, "maap", NET_MAAP_Report);
ZEB_MESSAGE(MSG_MAAP_STATUS, "maap", NET_MAAP_Status);

#endif

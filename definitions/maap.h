/* maap.h - absorption photometer at 637 nm that measures the light a loaded tape reflects at two
 * angles as well as what it transmits, so that scattering and absorption on the tape are told
 * apart. Missing: MVC in a real, -1 in a time, 0x55555555 in an int or DWORD. The bits of flags are
 * listed in the status record. */
#ifndef ZEB2_DEFINITIONS_MAAP_H
#define ZEB2_DEFINITIONS_MAAP_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME start_time;
    FTIME end_time;
    FTIME instrument_time; /* Time of the report by the instrument's clock (s since 1970) */
    double X;      /* Equivalent black carbon concentration (ug/m3) | XR_${INST:A\d+} | -100;1E4 */
    double Ba;     /* Absorption coefficient (1/Mm) | BaR_${INST:A\d+} | -100;1E5 */
    double Ir;     /* Filter transmittance (1) | IrR_${INST:A\d+} | 0;2 */
    double Is[2];  /* Reflected signal at 130 and 165 deg (count) | Is${INDEX:1:2}_${INST:A\d+} |
                      0;1E8 */
    double Ip;     /* Transmitted signal (count) | IpR_${INST:A\d+} | 0;1E8 */
    double If;     /* Reference signal (count) | IfR_${INST:A\d+} | 0;1E8 */
    double ssa;    /* Single scattering albedo of the filter (1) | ZSSAR_${INST:A\d+} | 0;1 */
    double mass;   /* Black carbon on the spot (ug) | ZPARTICLE_${INST:A\d+} | -10;1E4 */
    double Q;      /* Sample flow (lpm) | Q_${INST:A\d+} | 0;50 */
    double L;      /* Sample length on the spot (m) | L_${INST:A\d+} | 0;1E6 */
    double volume; /* Sampled volume since the start of the spot (m3) | Qt_${INST:A\d+} | 0;1E4 */
    double P;      /* Pressure in the sampling head (hPa) | P_${INST:A\d+} | 100;1200 */
    double Pd1;    /* Pressure drop over the orifice (hPa) | Pd1_${INST:A\d+} | -10;1200 */
    double Pd2;    /* Pressure drop over the filter (hPa) | Pd2_${INST:A\d+} | -10;1200 */
    double T1;     /* Ambient temperature (C) | T1_${INST:A\d+} | -100;60 */
    double T2;     /* Head temperature (C) | T2_${INST:A\d+} | -50;100 */
    double T3;     /* System temperature (C) | T3_${INST:A\d+} | -50;100 */
    DWORD flags;   /* Instrument status (bits) */
} NET_MAAP_Report;

/* A fresh spot of the tape, read before air is drawn through it. */
typedef struct {
    FTIME filter_start; /* Start of sampling on the present spot (s since 1970) */
    DWORD spot;         /* Running number of the spot */
    double Ip;    /* Transmitted signal of the clean spot (count) | IpsR_${INST:F\d+} | 0;1E8 */
    double If;    /* Reference signal of the clean spot (count) | IfsR_${INST:F\d+} | 0;1E8 */
    double Is[2]; /* Reflected signal of the clean spot at 130 and 165 deg (count) |
                     Iss${INDEX:1:2}_${INST:F\d+} | 0;1E8 */
    double area;  /* Area of the spot (mm2) */
    WORD cause; /* Why the tape was advanced: 0 unknown, 1 transmittance, 2 age of the spot, 3 time
                   of day, 4 command, 5 start */
} NET_MAAP_Filter;

typedef struct {
    WORD state;    /* 0 starting, 1 sampling, 2 advancing the tape, 3 zeroing, 4 no answer */
    DWORD flags;   /* Instrument status (bits): 0 memory, 1 pressure sensor, 2 temperature sensor, 3
                      flow regulation, 4 pump, 5 light source dim, 6 light source off, 7 detector
                      saturated, 8 zero of the detectors out of limits, 9 tape advancing, 10 tape
                      used up or broken, 11 zeroing, 12 clock */
    BOOL tape_end; /* The tape is used up */
    BOOL pump_on;  /* The pump runs */
    double Q_set;  /* Sample flow set point (lpm) */
    double wavelength;    /* Wavelength of the light source (nm) */
    double cross_section; /* Absorption taken for a mass of black carbon (m2/g) */
    double Ir_advance;    /* Transmittance at which the tape is advanced (1) */
    double age_advance;   /* Age of a spot at which the tape is advanced (s) */
    double time_advance;  /* Time of the daily advance after midnight UTC (s) */
    double averaging;     /* Averaging time of a report (s) */
    int tape_left;        /* Spots left on the tape, -1 unknown */
    STRING serial_number[32];
    STRING firmware[32];
} NET_MAAP_Status;

#pragma pack(pop)

ZEB_MESSAGE_BARE(MSG_MAAP_ADVANCE, "maap");
ZEB_MESSAGE(MSG_MAAP_FILTER, "maap", NET_MAAP_Filter);
ZEB_MESSAGE(MSG_MAAP_REPORT, "maap", NET_MAAP_Report);
ZEB_MESSAGE(MSG_MAAP_STATUS, "maap", NET_MAAP_Status);

#endif

/* ecoc.h - analyser of elemental and organic carbon on a filter, which collects and then heats
 * it. */
#ifndef ZEB2_DEFINITIONS_ECOC_H
#define ZEB2_DEFINITIONS_ECOC_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME start_time;
    FTIME end_time;
    double OC;               /* Organic carbon (ug/m3) | XO_${INST:F\d+} */
    double EC;               /* Elemental carbon, thermal and optical (ug/m3) | XE_${INST:F\d+} */
    double TC;               /* Total carbon (ug/m3) | XT_${INST:F\d+} */
    double EC_optical;       /* Elemental carbon, optical alone (ug/m3) | XEo_${INST:F\d+} */
    double volume;           /* Sampled volume (m3) | Qt_${INST:F\d+} */
    double Q;                /* Sample flow (lpm) | Q_${INST:F\d+} */
    double OC_mass;          /* Organic carbon on the filter (ug) | ZOC_${INST:F\d+} */
    double EC_mass;          /* Elemental carbon on the filter (ug) | ZEC_${INST:F\d+} */
    double calibration_area; /* Area of the calibration peak (count) | ZCAL_${INST:F\d+} */
    double split;            /* Split between organic and elemental carbon from the start (s) |
                                ZSPLIT_${INST:F\d+} */
    double laser_start;      /* Laser transmission before heating (count) | Ip1_${INST:F\d+} */
    double laser_end;        /* Laser transmission after heating (count) | Ip2_${INST:F\d+} */
    double P;                /* Ambient pressure (hPa) | P_${INST:F\d+} */
    double T;                /* Ambient temperature (C) | T_${INST:F\d+} */
    WORD flags;              /* Result flags (bits) */
} NET_ECOC_Report;

typedef struct {
    WORD state;      /* 0 idle, 1 collecting, 2 purging, 3 heating in helium, 4 heating in oxygen, 5
                        calibrating, 6 cooling, 7 no answer */
    WORD flags;      /* Instrument status (bits) */
    double T_oven;   /* Sample oven temperature (C) */
    double T_back;   /* Back oven temperature (C) */
    double laser;    /* Laser signal (count) */
    double detector; /* Carbon dioxide signal (ppm) */
    double Q;        /* Present flow (lpm) */
    int heated;      /* Number of analyses on this filter */
    FTIME next_start; /* Start of the next sample (s since 1970) */
} NET_ECOC_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_ECOC_REPORT, "ecoc", NET_ECOC_Report);
ZEB_MESSAGE(MSG_ECOC_STATUS, "ecoc", NET_ECOC_Status);

#endif

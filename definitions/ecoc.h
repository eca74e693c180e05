/* ecoc.h - analyser of elemental and organic carbon on a filter: it collects, heats the filter in
 * helium and then with oxygen, turns what leaves it into carbon dioxide, and watches a laser
 * through the filter to tell charred organic carbon from elemental. Missing: MVC in a real, -1 in
 * a time, 0x55555555 in an int or DWORD. */
#ifndef ZEB2_DEFINITIONS_ECOC_H
#define ZEB2_DEFINITIONS_ECOC_H

#include <zeb2/port.h>

#pragma pack(push, 4)

/* One analysis, from the start of collecting to its end; the heating comes after end_time. */
typedef struct {
    FTIME start_time;
    FTIME end_time;
    FTIME analysis_time; /* Start of the heating (s since 1970) */
    double OC;    /* Organic carbon, thermal and optical (ug/m3) | XO_${INST:F\d+} | -10;1E4 */
    double EC;    /* Elemental carbon, thermal and optical (ug/m3) |
                     XE_${INST:F\d+} | -10;1E4 */
    double TC;    /* Total carbon (ug/m3) | XT_${INST:F\d+} | -10;1E4 */
    double OC_sd; /* Standard error of the organic carbon (ug/m3) | XOg_${INST:F\d+} | 0;1E4 */
    double EC_sd; /* Standard error of the elemental carbon (ug/m3) | XEg_${INST:F\d+} | 0;1E4 */
    double TC_sd; /* Standard error of the total carbon (ug/m3) | XTg_${INST:F\d+} | 0;1E4 */
    double OC_optical; /* Organic carbon, total less optical (ug/m3) | XOo_${INST:F\d+} | -10;1E4 */
    double EC_optical; /* Elemental carbon, optical alone (ug/m3) | XEo_${INST:F\d+} | -10;1E4 */
    double volume;     /* Sampled volume (m3) | Qt_${INST:F\d+} | 0;1E4 */
    double Q;          /* Sample flow (lpm) | Q_${INST:F\d+} | -1;50 */
    double OC_mass;    /* Organic carbon on the filter (ug) | ZOC_${INST:F\d+} | -10;1E4 */
    double EC_mass;    /* Elemental carbon on the filter (ug) | ZEC_${INST:F\d+} | -10;1E4 */
    double blank;    /* Carbon of a blank, already taken off (ug) | ZBLANK_${INST:F\d+} | -10;100 */
    double peaks[4]; /* Organic carbon of each heating step in helium (ug) |
                        ZOCP${INDEX:1:2:3:4}_${INST:F\d+} | -10;1E4 */
    double pyrolysed;        /* Charred organic carbon (ug) | ZPC_${INST:F\d+} | -1E4;1E4 */
    double calibration_area; /* Area of the calibration peak (count) | ZCAL_${INST:F\d+} | 0;1E8 */
    double calibration_mass; /* Carbon of the calibration gas (ug) | ZCALC_${INST:F\d+} | 0;1E4 */
    double split;            /* Split between organic and elemental carbon from the start (s) |
                                ZSPLIT_${INST:F\d+} | 0;1E4 */
    double laser_start; /* Laser transmission before heating (count) | Ip1_${INST:F\d+} | 0;1E6 */
    double laser_end;   /* Laser transmission after heating (count) | Ip2_${INST:F\d+} | 0;1E6 */
    double P;           /* Ambient pressure (hPa) | P_${INST:F\d+} | 100;1200 */
    double T;           /* Ambient temperature (C) | T_${INST:F\d+} | -100;60 */
    int heated;         /* Number of analyses on this filter (1) */
    WORD flags; /* Result flags (bits): 0 calibration peak, 1 laser, 2 no split found, 3 flow, 4
                   oven temperature, 5 cut short, 6 filter worn, 7 blank */
} NET_ECOC_Report;

typedef struct {
    WORD state;      /* 0 idle, 1 collecting, 2 purging, 3 heating in helium, 4 heating in oxygen, 5
                        calibrating, 6 cooling, 7 no answer */
    WORD flags;      /* Instrument status (bits): 0 sample flow, 1 gas supply, 2 sample oven, 3 back
                        oven, 4 laser, 5 detector, 6 filter worn */
    double T_oven;   /* Sample oven temperature (C) | T1_${INST:F\d+} | -50;1100 */
    double T_back;   /* Back oven temperature (C) | T2_${INST:F\d+} | -50;1100 */
    double T_set;    /* Sample oven temperature set point (C) */
    double laser;    /* Laser signal (count) | Ip_${INST:F\d+} | 0;1E6 */
    double detector; /* Carbon dioxide signal (ppm) | ZCO2_${INST:F\d+} | -100;1E5 */
    double Q;        /* Sample flow (lpm) | Q_${INST:F\d+} | -1;50 */
    double pressure; /* Oven pressure above ambient (hPa) | Pd_${INST:F\d+} | -100;1200 */
    int heated;      /* Number of analyses on this filter (1) */
    double duration; /* Duration of collecting (s) */
    FTIME next_start; /* Start of the next sample, -1 for none (s since 1970) */
    STRING serial_number[32];
    STRING firmware[32];
} NET_ECOC_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_ECOC_REPORT, "ecoc", NET_ECOC_Report);
ZEB_MESSAGE(MSG_ECOC_STATUS, "ecoc", NET_ECOC_Status);

#endif

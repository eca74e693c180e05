/* sems.h - scanning electrical mobility spectrometer: a classifier column and a particle counter.
 * */
#ifndef ZEB2_DEFINITIONS_SEMS_H
#define ZEB2_DEFINITIONS_SEMS_H

#include <zeb2/port.h>

#pragma pack(push, 4)

/* One scan: diameters, counts while the voltage rises or falls, or the inverted distribution, as
 * its message says. */
typedef struct {
    FTIME start_time;
    FTIME end_time;
    WORD n;           /* Number of bins used */
    double bins[128]; /* Diameter (nm), count (count) or concentration (1/cm3) of each bin */
    double total;     /* Sum over the bins */
} NET_SEMS_Bins;

typedef struct {
    WORD n;              /* Number of bins used */
    double Dp_min;       /* Least diameter (nm) */
    double Dp_max;       /* Greatest diameter (nm) */
    double Q_sheath;     /* Sheath flow set point (lpm) */
    double Q_sample;     /* Sample flow set point (lpm) */
    double scan_time;    /* Duration of a scan (s) */
    double delay;        /* Time from the column to the counter (s) */
    double inner_radius; /* Inner radius of the column (mm) */
    double outer_radius; /* Outer radius of the column (mm) */
    double length;       /* Length of the column (mm) */
    BOOL negative;       /* The voltage is negative */
} NET_SEMS_Info;

typedef struct {
    WORD state;      /* 0 starting, 1 rising, 2 holding, 3 falling, 4 waiting, 5 no answer */
    WORD flags;      /* Instrument status (bits) */
    double V;        /* Column voltage (V) | V_${INST:N\d+} */
    double Q_sheath; /* Sheath flow (lpm) | Q2_${INST:N\d+} */
    double Q_sample; /* Sample flow (lpm) | Q1_${INST:N\d+} */
    double P;        /* Sheath pressure (hPa) | P_${INST:N\d+} */
    double T;        /* Sheath temperature (C) | T_${INST:N\d+} */
    double U;        /* Sheath relative humidity (%) | U_${INST:N\d+} */
    double N;        /* Present particle concentration (1/cm3) | N_${INST:N\d+} */
} NET_SEMS_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_SEMS_D, "sems", NET_SEMS_Bins);
ZEB_MESSAGE(MSG_SEMS_DLOGD, "sems", NET_SEMS_Bins);
ZEB_MESSAGE(MSG_SEMS_DN_DOWN, "sems", NET_SEMS_Bins);
ZEB_MESSAGE(MSG_SEMS_DN_UP, "sems", NET_SEMS_Bins);
ZEB_MESSAGE(MSG_SEMS_INFO, "sems", NET_SEMS_Info);
ZEB_MESSAGE(MSG_SEMS_STATUS, "sems", NET_SEMS_Status);

#endif

/* ae33.h - seven-wavelength aerosol absorption photometer with two spots on one tape, whose ratio
 * gives the loading compensation. */
#ifndef ZEB2_DEFINITIONS_AE33_H
#define ZEB2_DEFINITIONS_AE33_H

#include <zeb2/port.h>

#pragma pack(push, 4)

/* Per wavelength, shortest first. */
typedef struct {
    FTIME time; /* Time of the reading by the instrument's clock (s since 1970) */
    double wavelengths[7];
    double X[7];   /* Equivalent black carbon concentration (ug/m3) |
                      X${INDEX:1:2:3:4:5:6:7}c_${INST:A\d+} */
    double X1[7];  /* Equivalent black carbon concentration, spot 1 uncompensated (ug/m3) |
                      X${INDEX:1:2:3:4:5:6:7}u1_${INST:A\d+} */
    double X2[7];  /* Equivalent black carbon concentration, spot 2 uncompensated (ug/m3) |
                      X${INDEX:1:2:3:4:5:6:7}u2_${INST:A\d+} */
    double Ba[7];  /* Absorption coefficient (1/Mm) | Ba${INDEX:1:2:3:4:5:6:7}_${INST:A\d+} */
    double k[7];   /* Loading compensation factor (1) | k${INDEX:1:2:3:4:5:6:7}_${INST:A\d+} */
    double Ir1[7]; /* Transmittance, spot 1 (1) | Ir${INDEX:1:2:3:4:5:6:7}s1_${INST:A\d+} */
    double Ir2[7]; /* Transmittance, spot 2 (1) | Ir${INDEX:1:2:3:4:5:6:7}s2_${INST:A\d+} */
    double Q1;     /* Flow spot 1 (slpm) | Q1_${INST:A\d+} */
    double Q2;     /* Flow spot 2 (slpm) | Q2_${INST:A\d+} */
    double T1;     /* Controller temperature (C) | T1_${INST:A\d+} */
    double T2;     /* Light source temperature (C) | T2_${INST:A\d+} */
    WORD flags;    /* Instrument status (bits) */
} NET_AE33_Reading;

/* The latest reading and the running average since start_time; in a MSG_AE33_AVERAGE the latter
 * has run its full time. */
typedef struct {
    FTIME start_time;
    NET_AE33_Reading in; /* *instant */
    NET_AE33_Reading ra;
    double S; /* Instrument time offset (sec) | S_${INST:A\d+} */
} NET_AE33_Instant;

typedef struct {
    WORD flags;            /* Instrument status (bits) */
    WORD controller_flags; /* Controller status (bits) */
    WORD detector_flags;   /* Detector status (bits) */
    WORD led_flags;        /* Light source status (bits) */
    WORD valve_flags;      /* Valve status (bits) */
    int tape_advances;     /* Tape advances since the tape was changed */
    int tape_left;         /* Tape advances left */
    BOOL advancing;        /* The tape is being advanced */
    FTIME spot_start;      /* Start of sampling on the present spots (s since 1970) */
    double spot_area;      /* Area of a spot (mm2) */
    double leakage;        /* Leakage factor of the filter holder (1) */
    STRING serial_number[32];
    STRING firmware[32];
} NET_AE33_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_AE33_AVERAGE, "ae33", NET_AE33_Instant);
ZEB_MESSAGE(MSG_AE33_INSTANT, "ae33", NET_AE33_Instant);
ZEB_MESSAGE(MSG_AE33_STATUS, "ae33", NET_AE33_Status);

#endif

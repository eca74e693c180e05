/* ae33.h - seven-wavelength aerosol absorption photometer with two spots on one tape, whose ratio
 * gives the loading compensation. Arrays of seven hold the wavelengths, shortest first, from the
 * near ultraviolet to the near infrared. Missing: MVC in a real, -1 in a time, 0x55555555 in a
 * DWORD. The bits of flags are listed in the status record. */
#ifndef ZEB2_DEFINITIONS_AE33_H
#define ZEB2_DEFINITIONS_AE33_H

#include <zeb2/port.h>

#pragma pack(push, 4)

/* The wavelengths are in nm. */
typedef struct {
    FTIME time; /* Time of the reading by the instrument's clock (s since 1970) */
    double wavelengths[7];
    double X[7];   /* Equivalent black carbon concentration (ug/m3) |
                      X${INDEX:1:2:3:4:5:6:7}c_${INST:A\d+} */
    double X1[7];  /* Equivalent black carbon concentration, spot 1 uncompensated (ug/m3) |
                      X${INDEX:1:2:3:4:5:6:7}u1_${INST:A\d+} */
    double X2[7];  /* Equivalent black carbon concentration, spot 2 uncompensated (ug/m3) |
                      X${INDEX:1:2:3:4:5:6:7}u2_${INST:A\d+} */
    double Ba[7];  /* Absorption coefficient (1/Mm) |
                      Ba${INDEX:1:2:3:4:5:6:7}_${INST:A\d+} | -100;1E5 */
    double k[7];   /* Loading compensation factor (1) |
                      k${INDEX:1:2:3:4:5:6:7}_${INST:A\d+} | -1;1 */
    double Ir1[7]; /* Transmittance, spot 1 (1) | Ir${INDEX:1:2:3:4:5:6:7}s1_${INST:A\d+} | 0;2 */
    double Ir2[7]; /* Transmittance, spot 2 (1) | Ir${INDEX:1:2:3:4:5:6:7}s2_${INST:A\d+} | 0;2 */
    double Q1;     /* Flow spot 1 (slpm) | Q1_${INST:A\d+} */
    double Q2;     /* Flow spot 2 (slpm) | Q2_${INST:A\d+} | -1;20 */
    double T1;     /* Controller temperature (C) | T1_${INST:A\d+} | -50;100 */
    double T2;     /* Light source temperature (C) | T2_${INST:A\d+} | -50;100 */
    WORD flags;    /* Instrument status (bits) */
} NET_AE33_Reading;

/* The latest reading and the running average since start_time; in a MSG_AE33_AVERAGE the latter
 * has run its full time, and ends at the time of the reading. */
typedef struct {
    FTIME start_time;
    NET_AE33_Reading in; /* *instant */
    NET_AE33_Reading ra;
    double S; /* Instrument time offset (sec) | S_${INST:A\d+} */
} NET_AE33_Instant;

/* What changes rarely or is needed to judge a reading: raw signals, housekeeping, tape. */
typedef struct {
    WORD state; /* 0 starting, 1 sampling, 2 advancing the tape, 3 first reading of the
                   spots, 4 self test, 5 stopped, 6 no answer */
    WORD flags; /* Instrument status (bits): 0 advancing the tape, 1 first reading of the spots, 2
                   stopped, 3 flow off its set point, 4 ratio of the flows, 5 light source
                   calibrating, 6 light source faulty, 7 optical chamber, 8 tape low, 9 tape used
                   up, 10 tape drive, 11 settings, 12 test running */
    WORD controller_flags; /* Controller status (bits): 0 restarted, 1 pump, 2 tape drive, 3
                              temperature */
    WORD detector_flags;   /* Detector status (bits): 0 reference, 1 spot 1, 2 spot 2 saturated or
                              dark, 3 silent */
    WORD led_flags;        /* Light source status (bits): i wavelength i + 1 out of range */
    WORD valve_flags; /* Valve status (bits): 0 sampling, 1 bypass, 2 clean air, 3 flow calibration,
                         4 chamber open */
    DWORD tape_advances; /* Tape advances since the tape was changed (1) */
    int tape_left;       /* Tape advances left, -1 unknown (1) */
    BOOL advancing;      /* The tape is being advanced */
    FTIME spot_start;    /* Start of sampling on the present spots (s since 1970) */
    double ATN_advance;  /* Attenuation at which the tape is advanced (%) */
    double spot_area;    /* Area of a spot (mm2) */
    double leakage;      /* Leakage factor of the filter holder (1) */
    double Q_set;        /* Sample flow set point (slpm) */
    double interval;     /* Time between readings (s) */
    double If[7];        /* Reference detector signal (count) |
                            If${INDEX:1:2:3:4:5:6:7}_${INST:A\d+} | 0;2E6 */
    double Ip1[7];       /* Sample detector signal, spot 1 (count) |
                            Ip${INDEX:1:2:3:4:5:6:7}s1_${INST:A\d+} | 0;2E6 */
    double Ip2[7];       /* Sample detector signal, spot 2 (count) |
                            Ip${INDEX:1:2:3:4:5:6:7}s2_${INST:A\d+} | 0;2E6 */
    double Q;            /* Sample flow (slpm) | Q_${INST:A\d+} | -1;20 */
    double P;            /* Pressure of the flow's standard conditions (hPa) |
                            P_${INST:A\d+} | 100;1200 */
    double T;            /* Temperature of the flow's standard conditions (C) |
                            T_${INST:A\d+} | -50;100 */
    double T3;           /* Power supply temperature (C) | T3_${INST:A\d+} | -20;100 */
    double burning;      /* Share of biomass burning in the black carbon (%) |
                            ZBB_${INST:A\d+} | -50;150 */
    STRING serial_number[32];
    STRING firmware[32];
} NET_AE33_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_AE33_AVERAGE, "ae33", NET_AE33_Instant);
ZEB_MESSAGE(MSG_AE33_INSTANT, "ae33", NET_AE33_Instant);
ZEB_MESSAGE(MSG_AE33_STATUS, "ae33", NET_AE33_Status);

#endif

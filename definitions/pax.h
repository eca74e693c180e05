/* pax.h - photoacoustic absorption and reciprocal scattering at one wavelength. */
#ifndef ZEB2_DEFINITIONS_PAX_H
#define ZEB2_DEFINITIONS_PAX_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    double Ba;         /* Absorption coefficient (1/Mm) | Ba_${INST:A\d+} */
    double Bs;         /* Scattering coefficient (1/Mm) | Bs_${INST:A\d+} */
    double Be;         /* Extinction coefficient (1/Mm) | Be_${INST:A\d+} */
    double X;          /* Equivalent black carbon concentration (ug/m3) | X_${INST:A\d+} */
    double ssa;        /* Single scattering albedo (1) | ZSSA_${INST:A\d+} */
    double mic;        /* Microphone signal (V) | V1_${INST:A\d+} */
    double phase;      /* Microphone phase (deg) | ZPHASE_${INST:A\d+} */
    double background; /* Microphone background (V) | V2_${INST:A\d+} */
    double laser;      /* Laser power (W) | ZLASER_${INST:A\d+} */
    double photodiode; /* Scattering detector signal (V) | V3_${INST:A\d+} */
    double frequency;  /* Resonance frequency (Hz) | ZFREQ_${INST:A\d+} */
    double quality;    /* Resonator quality factor (1) | ZQ_${INST:A\d+} */
    double P;          /* Cell pressure (hPa) | P_${INST:A\d+} */
    double P_vacuum;   /* Vacuum pressure (hPa) | Pd_${INST:A\d+} */
    double T1;         /* Cell temperature (C) | T1_${INST:A\d+} */
    double T2;         /* Laser temperature (C) | T2_${INST:A\d+} */
    double U;          /* Cell relative humidity (%) | U1_${INST:A\d+} */
    double Q1;         /* Sample flow (lpm) | Q1_${INST:A\d+} */
    double Q2;         /* Filtered flow (lpm) | Q2_${INST:A\d+} */
    WORD flags;        /* Instrument status (bits) */
} NET_PAX_Reading;

/* The latest reading and the running average since start_time; in a MSG_PAX_AVERAGE the latter
 * has run its full time. */
typedef struct {
    FTIME start_time;
    FTIME time;
    NET_PAX_Reading in; /* *instant */
    NET_PAX_Reading ra;
} NET_PAX_Instant;

/* Result of a zero with filtered air. */
typedef struct {
    FTIME start_time;
    FTIME end_time;
    double Ba_bg;    /* Absorption background (1/Mm) | Bawz_${INST:A\d+} */
    double Bs_bg;    /* Scattering background (1/Mm) | Bswz_${INST:A\d+} */
    double Ba_shift; /* Change of the absorption background (1/Mm) | Bawzd_${INST:A\d+} */
    double Bs_shift; /* Change of the scattering background (1/Mm) | Bswzd_${INST:A\d+} */
    double T;        /* Cell temperature (C) | Twz_${INST:A\d+} */
    double P;        /* Cell pressure (hPa) | Pwz_${INST:A\d+} */
} NET_PAX_Zero;

typedef struct {
    WORD state; /* 0 starting, 1 sampling, 2 zeroing, 3 finding the resonance, 4 calibrating, 5 no
                   answer */
    WORD flags; /* Instrument status (bits) */
    double wavelength;    /* Wavelength of the laser (nm) */
    double zero_interval; /* Time between zeros (s) */
    FTIME next_zero;      /* Time of the next zero (s since 1970) */
    double disk_free;     /* Free storage of the instrument (%) */
    STRING serial_number[32];
    STRING firmware[32];
} NET_PAX_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_PAX_AVERAGE, "pax", NET_PAX_Instant);
ZEB_MESSAGE(MSG_PAX_INSTANT, "pax", NET_PAX_Instant);
ZEB_MESSAGE(MSG_PAX_STATUS, "pax", NET_PAX_Status);
ZEB_MESSAGE(MSG_PAX_ZERO, "pax", NET_PAX_Zero);

#endif

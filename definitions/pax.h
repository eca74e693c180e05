/* pax.h - photoacoustic absorption and, in a second cell, reciprocal scattering at one wavelength.
 * Missing: MVC in a real, -1 in a time. The bits of flags are listed in the status record. */
#ifndef ZEB2_DEFINITIONS_PAX_H
#define ZEB2_DEFINITIONS_PAX_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    double Ba;    /* Absorption coefficient (1/Mm) | Ba_${INST:A\d+} | -100;1E5 */
    double Bs;    /* Scattering coefficient (1/Mm) | Bs_${INST:A\d+} | -100;1E5 */
    double Be;    /* Extinction coefficient (1/Mm) | Be_${INST:A\d+} | -100;1E5 */
    double X;     /* Equivalent black carbon concentration (ug/m3) | X_${INST:A\d+} | -100;1E4 */
    double ssa;   /* Single scattering albedo (1) | ZSSA_${INST:A\d+} | -1;2 */
    double mic;   /* Microphone signal (V) | V1_${INST:A\d+} | -10;10 */
    double phase; /* Microphone phase (deg) | ZPHASE_${INST:A\d+} | -360;360 */
    double background; /* Microphone background (V) | V2_${INST:A\d+} | -10;10 */
    double laser;      /* Laser power (W) | ZLASER_${INST:A\d+} | 0;10 */
    double Al;         /* Laser current (A) | Al_${INST:A\d+} | 0;20 */
    double photodiode; /* Scattering detector signal (V) | V3_${INST:A\d+} | -10;10 */
    double frequency;  /* Resonance frequency (Hz) | ZFREQ_${INST:A\d+} | 0;1E5 */
    double quality;    /* Resonator quality factor (1) | ZQ_${INST:A\d+} | 0;1E3 */
    double P;          /* Cell pressure (hPa) | P_${INST:A\d+} | 100;1200 */
    double P_vacuum;   /* Vacuum pressure (hPa) | Pd_${INST:A\d+} | 0;1200 */
    double T1;         /* Cell temperature (C) | T1_${INST:A\d+} | -50;100 */
    double T2;         /* Laser temperature (C) | T2_${INST:A\d+} | -50;100 */
    double T3;         /* Case temperature (C) | T3_${INST:A\d+} | -50;100 */
    double U;          /* Cell relative humidity (%) | U1_${INST:A\d+} | -5;110 */
    double Q1;         /* Sample flow (lpm) | Q1_${INST:A\d+} | 0;10 */
    double Q2;         /* Filtered flow (lpm) | Q2_${INST:A\d+} | 0;10 */
    WORD flags;        /* Instrument status (bits) */
} NET_PAX_Reading;

/* The latest reading and the running average since start_time; in a MSG_PAX_AVERAGE the latter has
 * run its full time. */
typedef struct {
    FTIME start_time;
    FTIME time;
    DWORD samples;      /* Readings averaged (1) */
    NET_PAX_Reading in; /* *instant */
    NET_PAX_Reading ra;
} NET_PAX_Instant;

/* Result of a zero with filtered air. */
typedef struct {
    FTIME start_time;
    FTIME end_time;
    double Ba_bg;        /* Absorption background (1/Mm) | Bawz_${INST:A\d+} | -1E4;1E4 */
    double Bs_bg;        /* Scattering background (1/Mm) | Bswz_${INST:A\d+} | -1E4;1E4 */
    double Ba_shift;     /* Change of the absorption background (1/Mm) |
                            Bawzd_${INST:A\d+} | -1E3;1E3 */
    double Bs_shift;     /* Change of the scattering background (1/Mm) |
                            Bswzd_${INST:A\d+} | -1E3;1E3 */
    double Ba_deviation; /* Standard deviation of the absorption background (1/Mm) |
                            Bawzg_${INST:A\d+} | 0;1E3 */
    double Bs_deviation; /* Standard deviation of the scattering background (1/Mm) |
                            Bswzg_${INST:A\d+} | 0;1E3 */
    double T;            /* Cell temperature (C) | Twz_${INST:A\d+} | -50;100 */
    double P;            /* Cell pressure (hPa) | Pwz_${INST:A\d+} | 100;1200 */
} NET_PAX_Zero;

typedef struct {
    WORD state; /* 0 starting, 1 sampling, 2 zeroing, 3 finding the resonance, 4 calibrating, 5 no
                   answer */
    WORD flags; /* Instrument status (bits): 0 laser power, 1 laser temperature, 2 microphone, 3
                   resonance not found, 4 scattering detector, 5 pressure, 6 vacuum, 7 sample flow,
                   8 cell temperature, 9 relative humidity, 10 storage full, 11 zeroing */
    double wavelength;    /* Wavelength of the laser (nm) */
    double cross_section; /* Absorption taken for a mass of black carbon (m2/g) */
    double averaging;     /* Averaging time of the instrument (s) */
    double zero_interval; /* Time between zeros (s) */
    double zero_duration; /* Duration of a zero (s) */
    FTIME last_zero;      /* End of the last zero, -1 before it (s since 1970) */
    FTIME next_zero;      /* Time of the next zero (s since 1970) */
    double Ba_factor;     /* Calibration factor of the absorption (1) */
    double Bs_factor;     /* Calibration factor of the scattering (1) */
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

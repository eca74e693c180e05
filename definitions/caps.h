/* caps.h - particle extinction by the phase shift of light in a cavity, with the scattering of the
 * same air where the instrument has a sphere for it. Missing: MVC in a real, -1 in a time. The
 * bits of flags are listed in the status record. */
#ifndef ZEB2_DEFINITIONS_CAPS_H
#define ZEB2_DEFINITIONS_CAPS_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    double Be;         /* Extinction coefficient (1/Mm) | Be_${INST:E\d+} | -100;1E5 */
    double Bs;         /* Scattering coefficient (1/Mm) | Bs_${INST:E\d+} | -100;1E5 */
    double baseline;   /* Baseline extinction (1/Mm) | Bez_${INST:E\d+} | 0;5000 */
    double loss;       /* Cavity loss (1/Mm) | ZLOSS_${INST:E\d+} | 0;1E4 */
    double signal;     /* Detector signal (mV) | V_${INST:E\d+} | 0;1E4 */
    double scattering; /* Scattering detector signal (Hz) | Cs_${INST:E\d+} | 0;1E7 */
    double Q;          /* Sample flow (lpm) | Q_${INST:E\d+} | -1;20 */
    double P;          /* Sample pressure (hPa) | P_${INST:E\d+} | 100;1200 */
    double T;          /* Sample temperature (C) | T_${INST:E\d+} | -50;100 */
    WORD flags;        /* Instrument status (bits) */
} NET_CAPS_Reading;

/* The latest reading and the running average since start_time; in a MSG_CAPS_AVERAGE the latter
 * has run its full time and ends at time. */
typedef struct {
    FTIME start_time;
    FTIME time;
    DWORD samples;       /* Readings averaged (1) */
    NET_CAPS_Reading in; /* *instant */
    NET_CAPS_Reading ra;
} NET_CAPS_Instant;

/* Result of a zero with filtered air. */
typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples;      /* Readings averaged (1) */
    double baseline;    /* Baseline extinction (1/Mm) | Bewz_${INST:E\d+} | 0;5000 */
    double shift;       /* Change of the baseline extinction (1/Mm) |
                           Bewzd_${INST:E\d+} | -1000;1000 */
    double deviation;   /* Standard deviation during the zero (1/Mm) |
                           Bewzg_${INST:E\d+} | 0;1000 */
    double Bs_baseline; /* Baseline scattering (1/Mm) | Bswz_${INST:E\d+} | -100;5000 */
    double T;           /* Sample temperature (C) | Twz_${INST:E\d+} | -50;100 */
    double P;           /* Sample pressure (hPa) | Pwz_${INST:E\d+} | 100;1200 */
} NET_CAPS_Zero;

typedef struct {
    BOOL enabled;    /* Zero by itself */
    double interval; /* Time between zeros (s) */
    double offset;   /* Offset of the first zero from midnight UTC (s) */
    double flush;    /* Flush before and after the zero (s) */
    double duration; /* Duration of the zero (s) */
    FTIME next_zero; /* Time of the next zero, -1 for none (s since 1970) */
} NET_CAPS_ZeroSchedule;

typedef struct {
    WORD state;    /* 0 starting, 1 sampling, 2 flushing, 3 zeroing, 4 no answer */
    WORD flags;    /* Instrument status (bits): 0 zero running, 1 signal low, 2 cavity loss high, 3
                      flow, 4 pressure, 5 temperature, 6 light source, 7 scattering detector */
    BOOL pump_on;  /* The pump runs */
    BOOL scatters; /* The instrument measures scattering, too */
    double wavelength;  /* Wavelength of the light source (nm) */
    double modulation;  /* Modulation frequency of the light source (Hz) */
    double geometry;    /* Path correction for the purge flow (1) */
    double scatter_cal; /* Calibration factor of the scattering (1) */
    FTIME last_zero;    /* End of the last zero, -1 for none (s since 1970) */
    STRING serial_number[32];
    STRING firmware[32];
} NET_CAPS_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_CAPS_AVERAGE, "caps", NET_CAPS_Instant);
ZEB_MESSAGE(MSG_CAPS_INSTANT, "caps", NET_CAPS_Instant);
ZEB_MESSAGE_BARE(MSG_CAPS_ISSUE_ZERO, "caps");
ZEB_MESSAGE(MSG_CAPS_STATUS, "caps", NET_CAPS_Status);
ZEB_MESSAGE(MSG_CAPS_ZERO, "caps", NET_CAPS_Zero);
ZEB_MESSAGE(MSG_CAPS_ZEROSCHEDULE, "caps", NET_CAPS_ZeroSchedule);

#endif

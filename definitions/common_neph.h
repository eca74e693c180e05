/* common_neph.h - what every nephelometer has in common, and the span check that runs on all of
 * them alike. Arrays hold blue, green, red; wavelengths that an instrument lacks are missing, and
 * so is backscattering where there is no shutter. Missing: MVC in a real, -1 in a time.
 *
 * The flags use these bits, whatever the instrument's own code is: 0 light source, 1 inlet valve,
 * 2 reference or chopper, 3 backscatter shutter, 4 heater, 5 pressure, 6 sample temperature, 7
 * inlet temperature, 8 relative humidity, 9 detector; 14 zero running, 15 span check running. */
#ifndef ZEB2_DEFINITIONS_COMMON_NEPH_H
#define ZEB2_DEFINITIONS_COMMON_NEPH_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    double Bs[3];  /* Scattering coefficient (1/Mm) | Bs${INDEX:B:G:R}_${INST:S\d+} | -100;1E5 */
    double Bbs[3]; /* Backscattering coefficient (1/Mm) |
                      Bbs${INDEX:B:G:R}_${INST:S\d+} | -100;1E5 */
    double P;      /* Sample pressure (hPa) | P_${INST:S\d+} | 100;1200 */
    double T;      /* Sample temperature (C) | T_${INST:S\d+} | -50;100 */
    double U;      /* Sample relative humidity (%) | U_${INST:S\d+} | -5;110 */
    WORD flags;    /* Instrument status (bits) */
} NET_COMMON_Neph_Shared;

typedef struct {
    FTIME time;
    NET_COMMON_Neph_Shared shared; /* *instant */
} NET_COMMON_Neph_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples;                 /* Readings averaged (1) */
    NET_COMMON_Neph_Shared shared; /* *instant */
} NET_COMMON_Neph_Avg;

/* How long the phases of a span check last. */
typedef struct {
    double gas_flush;  /* Flush with the span gas (s) */
    double gas_sample; /* Measurement of the span gas (s) */
    double air_flush;  /* Flush with filtered air (s) */
    double air_sample; /* Measurement of filtered air (s) */
    double total;      /* Whole check (s) */
} NET_COMMON_Neph_SpancheckDuration;

/* Begins a span check. */
typedef struct {
    STRING gas[32];     /* Name of the span gas */
    double gas_density; /* Scattering of the gas relative to air (1) */
    NET_COMMON_Neph_SpancheckDuration duration;
} NET_COMMON_Neph_SpancheckIssue;

typedef struct {
    WORD phase; /* 0 none, 1 flushing with gas, 2 measuring gas, 3 flushing with air, 4 measuring
                   air */
    FTIME start_time; /* Start of the phase, -1 for none (s since 1970) */
    FTIME end_time;   /* Expected end of the phase, -1 for none (s since 1970) */
} NET_COMMON_Neph_SpancheckPhase;

/* Means over one measurement of a span check. */
typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples; /* Readings averaged (1) */
    double Bs[3];  /* Scattering coefficient (1/Mm) | Bs${INDEX:B:G:R}sp_${INST:S\d+} | -100;1E5 */
    double Bbs[3]; /* Backscattering coefficient (1/Mm) |
                      Bbs${INDEX:B:G:R}sp_${INST:S\d+} | -100;1E5 */
    double P;      /* Sample pressure (hPa) | Psp_${INST:S\d+} | 100;1200 */
    double T;      /* Sample temperature (C) | Tsp_${INST:S\d+} | -50;100 */
    double U;      /* Sample relative humidity (%) | Usp_${INST:S\d+} | -5;110 */
} NET_COMMON_Neph_SpancheckRun;

/* An error is how far what was measured, gas less air, is above the gas's known scattering at the
 * pressure and temperature of the check. */
typedef struct {
    STRING gas[32];                       /* Name of the span gas */
    double gas_density;                   /* Scattering of the gas relative to air (1) */
    NET_COMMON_Neph_SpancheckRun gas_run; /* *instant */
    NET_COMMON_Neph_SpancheckRun air_run;
    double Bs_error[3];  /* Error of the scattering coefficient (%) |
                            PCTc${INDEX:B:G:R}_${INST:S\d+} | -100;1000 */
    double Bbs_error[3]; /* Error of the backscattering coefficient (%) |
                            PCTbc${INDEX:B:G:R}_${INST:S\d+} | -100;1000 */
    double mean_error;   /* Mean error of all channels (%) | PCTc_${INST:S\d+} | -100;1000 */
} NET_COMMON_Neph_SpancheckResults;

#pragma pack(pop)

ZEB_MESSAGE(MSG_COMMON_NEPH_AVERAGE, "neph", NET_COMMON_Neph_Avg);
ZEB_MESSAGE(MSG_COMMON_NEPH_INSTANT, "neph", NET_COMMON_Neph_Instant);
ZEB_MESSAGE_BARE(MSG_COMMON_NEPH_SPANCHECK_ABORT, "neph");
ZEB_MESSAGE(MSG_COMMON_NEPH_SPANCHECK_DURATION, "neph", NET_COMMON_Neph_SpancheckDuration);
ZEB_MESSAGE(MSG_COMMON_NEPH_SPANCHECK_ISSUE, "neph", NET_COMMON_Neph_SpancheckIssue);
ZEB_MESSAGE(MSG_COMMON_NEPH_SPANCHECK_PHASE, "neph", NET_COMMON_Neph_SpancheckPhase);
ZEB_MESSAGE(MSG_COMMON_NEPH_SPANCHECK_RESULTS, "neph", NET_COMMON_Neph_SpancheckResults);

#endif

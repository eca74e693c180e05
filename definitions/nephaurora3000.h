/* nephaurora3000.h - integrating nephelometer with a light-emitting diode source, at 450, 525 and
 * 635 nm: total scattering from 10 to 170 deg and, with the shutter, backscattering from 90 to 170
 * deg. Arrays of three hold blue, green, red. Missing: MVC in a real, -1 in a time. The bits of
 * flags are listed in the status record, the common ones as in common_neph.h. */
#ifndef ZEB2_DEFINITIONS_NEPHAURORA3000_H
#define ZEB2_DEFINITIONS_NEPHAURORA3000_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    double Bs[3];  /* Scattering coefficient (1/Mm) | Bs${INDEX:B:G:R}_${INST:S\d+} | -100;1E5 */
    double Bbs[3]; /* Backscattering coefficient (1/Mm) |
                      Bbs${INDEX:B:G:R}_${INST:S\d+} | -100;1E5 */
} NET_NEPHAURORA3000_Scattering;

/* Detector counts: dark, of the reference shutter, and of the sample. */
typedef struct {
    double dark;         /* Dark count rate (Hz) | Cd_${INST:S\d+} | 0;1E6 */
    double reference[3]; /* Reference count rate (Hz) | Cf${INDEX:B:G:R}_${INST:S\d+} | 0;1E7 */
    double total[3];     /* Total scatter count rate (Hz) | Cs${INDEX:B:G:R}_${INST:S\d+} | 0;1E7 */
    double back[3];      /* Backscatter count rate (Hz) | Cbs${INDEX:B:G:R}_${INST:S\d+} | 0;1E7 */
    double ratio[3];     /* Total scatter over reference count rate (1) |
                            Cr${INDEX:B:G:R}_${INST:S\d+} | 0;10 */
} NET_NEPHAURORA3000_Counts;

typedef struct {
    FTIME time;
    NET_NEPHAURORA3000_Scattering scat; /* *instant */
    NET_NEPHAURORA3000_Counts counts;
    double P;   /* Sample pressure (hPa) | P_${INST:S\d+} | 100;1200 */
    double T1;  /* Sample temperature (C) | T1_${INST:S\d+} | -50;100 */
    double T2;  /* Cell temperature (C) | T2_${INST:S\d+} | -50;100 */
    double U;   /* Sample relative humidity (%) | U_${INST:S\d+} | -5;110 */
    WORD flags; /* Instrument status (bits) */
} NET_NEPHAURORA3000_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples;                      /* Readings averaged (1) */
    NET_NEPHAURORA3000_Scattering scat; /* *instant */
    NET_NEPHAURORA3000_Counts counts;
    double P;   /* Sample pressure (hPa) | P_${INST:S\d+} | 100;1200 */
    double T1;  /* Sample temperature (C) | T1_${INST:S\d+} | -50;100 */
    double T2;  /* Cell temperature (C) | T2_${INST:S\d+} | -50;100 */
    double U;   /* Sample relative humidity (%) | U_${INST:S\d+} | -5;110 */
    WORD flags; /* Every instrument status seen (bits) */
} NET_NEPHAURORA3000_Avg;

typedef struct {
    WORD mode;        /* 0 measuring, 1 blanking, 2 zeroing, 3 span check, 4 bypassed */
    BOOL backscatter; /* Backscatter is measured */
    BOOL heater;      /* The inlet heater is on */
    BOOL fan;         /* The sample fan is on */
    FTIME mode_start; /* Start of the mode (s since 1970) */
    FTIME mode_end;   /* Expected end of the mode, -1 unknown (s since 1970) */
} NET_NEPHAURORA3000_Modes;

/* Result of a zero with filtered air: the light of the walls. */
typedef struct {
    FTIME start_time;
    FTIME end_time;
    double Bsw[3];  /* Wall scattering coefficient (1/Mm) |
                       Bsw${INDEX:B:G:R}_${INST:S\d+} | -100;1E4 */
    double Bbsw[3]; /* Wall backscattering coefficient (1/Mm) | Bbsw${INDEX:B:G:R}_${INST:S\d+} |
                       -100;1E4 */
    double Bsw_shift[3];  /* Change of the wall scattering coefficient (1/Mm) |
                             Bsw${INDEX:B:G:R}d_${INST:S\d+} | -1E3;1E3 */
    double Bbsw_shift[3]; /* Change of the wall backscattering coefficient (1/Mm) |
                             Bbsw${INDEX:B:G:R}d_${INST:S\d+} | -1E3;1E3 */
    double P;             /* Sample pressure (hPa) | Pw_${INST:S\d+} | 100;1200 */
    double T;             /* Sample temperature (C) | Tw_${INST:S\d+} | -50;100 */
} NET_NEPHAURORA3000_Zero;

typedef struct {
    BOOL enabled;    /* Zeros run by this schedule */
    double interval; /* Time between zeros (s) */
    double offset;   /* Offset of the first zero from midnight UTC (s) */
    double flush;    /* Flush before and after the zero (s) */
    double duration; /* Duration of the zero (s) */
    FTIME last_zero; /* End of the last zero, -1 before it (s since 1970) */
    FTIME next_zero; /* Time of the next zero (s since 1970) */
} NET_NEPHAURORA3000_ZeroSchedule;

typedef struct {
    WORD state;       /* 0 starting, 1 sampling, 2 zeroing, 3 span check, 4 no answer */
    WORD major_state; /* State that the instrument reports: 0 normal, 1 span calibration, 2 zero
                         calibration, 3 zero check, 4 span check, 5 zero adjustment, 6 system
                         calibration, 7 environment calibration */
    WORD flags;       /* Instrument status (bits): 0 light source, 1 zero or span valve, 2 reference
                         shutter, 3 backscatter shutter, 4 heater, 5 pressure, 6 sample temperature,
                         7 cell temperature, 8 relative humidity, 9 detector, 10 fan, 11 clock, 14
                         zero running, 15 span check running */
    WORD dio;         /* Digital ports (bits): 0 zero pump, 1 span valve, 2 heater, 3 fan */
    double wavelengths[3]; /* Wavelength of each colour (nm) */
    double U_set;          /* Relative humidity above which the heater runs (%) */
    double averaging;      /* Averaging time of the instrument's own filter (s) */
    FTIME instrument_time; /* Time by the instrument's clock (s since 1970) */
    STRING serial_number[32];
    STRING firmware[32];
} NET_NEPHAURORA3000_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_NEPHAURORA3000_AVERAGE, "neph", NET_NEPHAURORA3000_Avg);
ZEB_MESSAGE(MSG_NEPHAURORA3000_INSTANT, "neph", NET_NEPHAURORA3000_Instant);
ZEB_MESSAGE_BARE(MSG_NEPHAURORA3000_ISSUE_ZERO, "neph");
ZEB_MESSAGE(MSG_NEPHAURORA3000_MODES, "neph", NET_NEPHAURORA3000_Modes);
ZEB_MESSAGE(MSG_NEPHAURORA3000_STATUS, "neph", NET_NEPHAURORA3000_Status);
ZEB_MESSAGE(MSG_NEPHAURORA3000_ZERO, "neph", NET_NEPHAURORA3000_Zero);
ZEB_MESSAGE(MSG_NEPHAURORA3000_ZEROSCHEDULE, "neph", NET_NEPHAURORA3000_ZeroSchedule);

#endif

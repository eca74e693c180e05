/* neph.h - integrating nephelometer with a white lamp: total scattering from 7 to 170 deg and, with
 * the shutter, backscattering from 90 to 170 deg, at 450, 550 and 700 nm. Arrays of three hold
 * blue, green, red. Missing: MVC in a real, -1 in a time, 0x55555555 in an int or DWORD. The bits
 * of flags are listed in the status record, the common ones as in common_neph.h. */
#ifndef ZEB2_DEFINITIONS_NEPH_H
#define ZEB2_DEFINITIONS_NEPH_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    double Bs[3];  /* Scattering coefficient (1/Mm) | Bs${INDEX:B:G:R}_${INST:S\d+} | -100;1E5 */
    double Bbs[3]; /* Backscattering coefficient (1/Mm) |
                      Bbs${INDEX:B:G:R}_${INST:S\d+} | -100;1E5 */
} NET_NEPH_Scattering;

/* Detector counts by position of the chopper and the shutter. */
typedef struct {
    double calibrator[3]; /* Calibrator count rate (Hz) | Cf${INDEX:B:G:R}_${INST:S\d+} | 0;1E7 */
    double total[3];     /* Total scatter count rate (Hz) | Cs${INDEX:B:G:R}_${INST:S\d+} | 0;1E7 */
    double dark[3];      /* Total dark count rate (Hz) | Cd${INDEX:B:G:R}_${INST:S\d+} | 0;1E6 */
    double back[3];      /* Backscatter count rate (Hz) | Cbs${INDEX:B:G:R}_${INST:S\d+} | 0;1E7 */
    double back_dark[3]; /* Backscatter dark count rate (Hz) | Cbd${INDEX:B:G:R}_${INST:S\d+} |
                            0;1E6 */
    double revolutions[2]; /* Chopper revolutions counted, total and backscatter (count) |
                              ZREV${INDEX:1:2}_${INST:S\d+} | 0;1E6 */
} NET_NEPH_PhotonCounts;

typedef struct {
    FTIME time;
    NET_NEPH_Scattering scat; /* *instant */
    NET_NEPH_PhotonCounts counts;
    double P;     /* Sample pressure (hPa) | P_${INST:S\d+} | 100;1200 */
    double T1;    /* Sample temperature (C) | T1_${INST:S\d+} | -50;100 */
    double T2;    /* Inlet temperature (C) | T2_${INST:S\d+} | -50;100 */
    double U;     /* Sample relative humidity (%) | U_${INST:S\d+} | -5;110 */
    double Al;    /* Lamp current (A) | Al_${INST:S\d+} | 0;20 */
    double Vl;    /* Lamp voltage (V) | Vl_${INST:S\d+} | 0;30 */
    double Vx;    /* Barometer signal (V) | Vx_${INST:S\d+} | -1;10 */
    char mode[8]; /* Mode in the instrument's letters: N measuring, B blanking, Z zeroing, C
                     calibrating */
    WORD flags;   /* Instrument status (bits) */
} NET_NEPH_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples;            /* Readings averaged (1) */
    NET_NEPH_Scattering scat; /* *instant */
    NET_NEPH_PhotonCounts counts;
    double P;   /* Sample pressure (hPa) | P_${INST:S\d+} | 100;1200 */
    double T1;  /* Sample temperature (C) | T1_${INST:S\d+} | -50;100 */
    double T2;  /* Inlet temperature (C) | T2_${INST:S\d+} | -50;100 */
    double U;   /* Sample relative humidity (%) | U_${INST:S\d+} | -5;110 */
    double Al;  /* Lamp current (A) | Al_${INST:S\d+} | 0;20 */
    double Vl;  /* Lamp voltage (V) | Vl_${INST:S\d+} | 0;30 */
    double Vx;  /* Barometer signal (V) | Vx_${INST:S\d+} | -1;10 */
    WORD flags; /* Every instrument status seen (bits) */
} NET_NEPH_Avg;

/* Calibration constants per wavelength, found by a span check. */
typedef struct {
    double K1[3]; /* Dead time of the detector (s) | K1${INDEX:B:G:R}_${INST:S\d+} | 0;1E-5 */
    double K2[3]; /* Calibrator constant (1/m) | K2${INDEX:B:G:R}_${INST:S\d+} | 0;1 */
    double K3[3]; /* Scattering of clean air at 0 C and 1013.25 hPa (1/m) |
                     K3${INDEX:B:G:R}_${INST:S\d+} | 0;1 */
    double K4[3]; /* Fraction of backscatter of clean air (1) |
                     K4${INDEX:B:G:R}_${INST:S\d+} | 0;1 */
    FTIME time;   /* Time of the span check that they come from, -1 unknown (s since 1970) */
} NET_NEPH_SpancheckCalibration;

/* Settings that the instrument keeps. A real that holds MVC in a MSG_NEPH_SETCONFIG leaves its
 * setting as it is. */
typedef struct {
    NET_NEPH_SpancheckCalibration cal; /* *instant */
    double averaging;                  /* Averaging time (s) */
    double blank;         /* Time after the valve moves in which nothing is measured (s) */
    double zero_time;     /* Duration of a zero (s) */
    double zero_interval; /* Time between zeros by the instrument's own schedule (s) */
    double Q_set;         /* Blower flow set point (lpm) */
    double lamp_power;    /* Lamp power (W) */
    double T_set;         /* Heater temperature set point (C) */
    double voltage[3];    /* Detector high voltage (V) */
    WORD zero_mode;       /* 0 by command, 1 by schedule */
    BOOL heater;          /* The inlet heater is on */
    BOOL backscatter;     /* The backscatter shutter runs */
    STRING label[64];     /* Name that the operator gave the instrument */
} NET_NEPH_Config;

/* Settings held against the instrument's own until the end of the override; MVC overrides nothing.
 */
typedef struct {
    double blower;     /* Blower power (%) */
    double lamp_power; /* Lamp power (W) */
    double T_set;      /* Heater temperature set point (C) */
    BOOL valve;        /* The inlet valve is held in the zero position */
    FTIME until;       /* End of the override (s since 1970) */
} NET_NEPH_OverrideParams;

typedef struct {
    WORD mode;        /* 0 measuring, 1 blanking, 2 zeroing, 3 span check, 4 bypassed */
    BOOL backscatter; /* Backscatter is measured */
    FTIME mode_start; /* Start of the mode (s since 1970) */
    FTIME mode_end;   /* Expected end of the mode, -1 unknown (s since 1970) */
} NET_NEPH_Modes;

/* Result of a zero: what the filtered air gave, and its parts, the light of the walls and of clean
 * air at the pressure and temperature of the zero. */
typedef struct {
    FTIME start_time;
    FTIME end_time;
    NET_NEPH_Scattering measured; /* *instant */
    double Bsw[3];                /* Wall scattering coefficient (1/Mm) |
                                     Bsw${INDEX:B:G:R}_${INST:S\d+} | -100;1E4 */
    double Bbsw[3]; /* Wall backscattering coefficient (1/Mm) | Bbsw${INDEX:B:G:R}_${INST:S\d+} |
                       -100;1E4 */
    double Bsr[3];  /* Scattering coefficient of clean air (1/Mm) | Bsr${INDEX:B:G:R}_${INST:S\d+} |
                       0;100 */
    double Bbsr[3]; /* Backscattering coefficient of clean air (1/Mm) |
                       Bbsr${INDEX:B:G:R}_${INST:S\d+} | 0;100 */
    double Bsw_shift[3];  /* Change of the wall scattering coefficient (1/Mm) |
                             Bsw${INDEX:B:G:R}d_${INST:S\d+} | -1E3;1E3 */
    double Bbsw_shift[3]; /* Change of the wall backscattering coefficient (1/Mm) |
                             Bbsw${INDEX:B:G:R}d_${INST:S\d+} | -1E3;1E3 */
    double P;             /* Sample pressure (hPa) | Pw_${INST:S\d+} | 100;1200 */
    double T;             /* Sample temperature (C) | Tw_${INST:S\d+} | -50;100 */
} NET_NEPH_Zero;

typedef struct {
    BOOL enabled;    /* Zeros run by this schedule */
    double interval; /* Time between zeros (s) */
    double offset;   /* Offset of the first zero from midnight UTC (s) */
    double flush;    /* Flush before and after the zero (s) */
    double duration; /* Duration of the zero (s) */
    FTIME last_zero; /* End of the last zero, -1 before it (s since 1970) */
    FTIME next_zero; /* Time of the next zero (s since 1970) */
} NET_NEPH_ZeroSchedule;

typedef struct {
    WORD state; /* 0 starting, 1 sampling, 2 zeroing, 3 span check, 4 no answer */
    WORD flags; /* Instrument status (bits): 0 lamp, 1 inlet valve, 2 chopper, 3 shutter, 4 heater
                   unstable, 5 pressure, 6 sample temperature, 7 inlet temperature, 8 relative
                   humidity, 9 detector, 14 zero running, 15 span check running */
    DWORD lamp_hours;      /* Age of the lamp (h) */
    double wavelengths[3]; /* Wavelength of each colour (nm) */
    FTIME instrument_time; /* Time by the instrument's clock (s since 1970) */
    STRING serial_number[32];
    STRING firmware[32];
} NET_NEPH_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_NEPH_AVERAGE, "neph", NET_NEPH_Avg);
ZEB_MESSAGE(MSG_NEPH_CONFIG, "neph", NET_NEPH_Config);
ZEB_MESSAGE(MSG_NEPH_INSTANT, "neph", NET_NEPH_Instant);
ZEB_MESSAGE_BARE(MSG_NEPH_ISSUE_ZERO, "neph");
ZEB_MESSAGE(MSG_NEPH_MODES, "neph", NET_NEPH_Modes);
ZEB_MESSAGE(MSG_NEPH_OVERRIDEPARAMS, "neph", NET_NEPH_OverrideParams);
ZEB_MESSAGE(MSG_NEPH_SETCONFIG, "neph", NET_NEPH_Config);
ZEB_MESSAGE(MSG_NEPH_SPANCALIBRATION, "neph", NET_NEPH_SpancheckCalibration);
ZEB_MESSAGE(MSG_NEPH_STATUS, "neph", NET_NEPH_Status);
ZEB_MESSAGE(MSG_NEPH_ZERO, "neph", NET_NEPH_Zero);
ZEB_MESSAGE(MSG_NEPH_ZEROSCHEDULE, "neph", NET_NEPH_ZeroSchedule);

#endif

/* nephm903.h - integrating nephelometer with a flash lamp and one detector, at about 530 nm.
 * Missing: MVC in a real, -1 in a time. The bits of flags are listed in the status record, the
 * common ones as in common_neph.h. */
#ifndef ZEB2_DEFINITIONS_NEPHM903_H
#define ZEB2_DEFINITIONS_NEPHM903_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time;
    double Bs;     /* Scattering coefficient (1/Mm) | BsG_${INST:S\d+} | -100;1E5 */
    double P;      /* Sample pressure (hPa) | P_${INST:S\d+} | 100;1200 */
    double T;      /* Sample temperature (C) | T_${INST:S\d+} | -50;100 */
    double U;      /* Sample relative humidity (%) | U_${INST:S\d+} | -5;110 */
    double lamp;   /* Flash lamp brightness (V) | Vl_${INST:S\d+} | 0;20 */
    double signal; /* Scattered light signal (V) | Vs_${INST:S\d+} | -1;20 */
    WORD flags;    /* Instrument status (bits) */
} NET_NEPHM903_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples; /* Readings averaged (1) */
    double Bs;     /* Scattering coefficient (1/Mm) | BsG_${INST:S\d+} | -100;1E5 */
    double P;      /* Sample pressure (hPa) | P_${INST:S\d+} | 100;1200 */
    double T;      /* Sample temperature (C) | T_${INST:S\d+} | -50;100 */
    double U;      /* Sample relative humidity (%) | U_${INST:S\d+} | -5;110 */
    double lamp;   /* Flash lamp brightness (V) | Vl_${INST:S\d+} | 0;20 */
    double signal; /* Scattered light signal (V) | Vs_${INST:S\d+} | -1;20 */
    WORD flags;    /* Every instrument status seen (bits) */
} NET_NEPHM903_Avg;

typedef struct {
    WORD state; /* 0 starting, 1 sampling, 2 zeroing, 3 calibrating, 4 no answer */
    WORD flags; /* Instrument status (bits): 0 flash lamp weak, 4 heater, 5 pressure, 6 sample
                   temperature, 8 relative humidity, 9 detector, 10 flash missed, 14 zero running,
                   15 calibration running */
    double wavelength;      /* Effective wavelength (nm) */
    double averaging;       /* Averaging time of the instrument (s) */
    double flash_rate;      /* Flashes of the lamp (Hz) */
    double clean_air;       /* Scattering coefficient of clean air (1/Mm) */
    double offset;          /* Signal of the walls (1/Mm) */
    double span;            /* Calibration factor (1) */
    BOOL heater;            /* The inlet heater is on */
    FTIME last_zero;        /* End of the last zero, -1 before it (s since 1970) */
    FTIME last_calibration; /* End of the last calibration, -1 before it (s since 1970) */
    STRING serial_number[32];
    STRING firmware[32];
} NET_NEPHM903_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_NEPHM903_AVERAGE, "neph", NET_NEPHM903_Avg);
ZEB_MESSAGE(MSG_NEPHM903_INSTANT, "neph", NET_NEPHM903_Instant);
ZEB_MESSAGE(MSG_NEPHM903_STATUS, "neph", NET_NEPHM903_Status);

#endif

/* nephm903.h - one-wavelength nephelometer with a flash lamp. */
#ifndef ZEB2_DEFINITIONS_NEPHM903_H
#define ZEB2_DEFINITIONS_NEPHM903_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time;
    double Bs;     /* Scattering coefficient (1/Mm) | BsG_${INST:S\d+} | 0;1E6 */
    double P;      /* Sample pressure (hPa) | P_${INST:S\d+} */
    double T;      /* Sample temperature (C) | T_${INST:S\d+} */
    double U;      /* Sample relative humidity (%) | U_${INST:S\d+} | -5;110 */
    double lamp;   /* Flash lamp brightness (V) | Vl_${INST:S\d+} */
    double signal; /* Scattered light signal (V) | Vs_${INST:S\d+} */
    WORD flags;    /* Instrument status (bits) */
} NET_NEPHM903_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    double Bs;     /* Scattering coefficient (1/Mm) | BsG_${INST:S\d+} | 0;1E6 */
    double P;      /* Sample pressure (hPa) | P_${INST:S\d+} */
    double T;      /* Sample temperature (C) | T_${INST:S\d+} */
    double U;      /* Sample relative humidity (%) | U_${INST:S\d+} | -5;110 */
    double lamp;   /* Flash lamp brightness (V) | Vl_${INST:S\d+} */
    double signal; /* Scattered light signal (V) | Vs_${INST:S\d+} */
    WORD flags;    /* Every instrument status seen (bits) */
} NET_NEPHM903_Avg;

typedef struct {
    WORD state;        /* 0 starting, 1 sampling, 2 zeroing, 3 calibrating, 4 no answer */
    WORD flags;        /* Instrument status (bits) */
    double wavelength; /* Effective wavelength (nm) */
    double clean_air;  /* Scattering coefficient of clean air (1/Mm) */
    double offset;     /* Signal of the walls (1/Mm) */
    STRING firmware[32];
} NET_NEPHM903_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_NEPHM903_AVERAGE, "neph", NET_NEPHM903_Avg);
ZEB_MESSAGE(MSG_NEPHM903_INSTANT, "neph", NET_NEPHM903_Instant);
ZEB_MESSAGE(MSG_NEPHM903_STATUS, "neph", NET_NEPHM903_Status);

#endif

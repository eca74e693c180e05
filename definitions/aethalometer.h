/* aethalometer.h - seven-wavelength aerosol absorption photometer with one spot on a tape, which
 * reports by itself every few minutes. */
#ifndef ZEB2_DEFINITIONS_AETHALOMETER_H
#define ZEB2_DEFINITIONS_AETHALOMETER_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME start_time;
    FTIME end_time;
    FTIME instrument_time; /* End of the report by the instrument's clock (s since 1970) */
    double wavelengths[7];
    double X[7];   /* Equivalent black carbon concentration (ug/m3) |
                      X${INDEX:1:2:3:4:5:6:7}_${INST:A\d+} */
    double ATN[7]; /* Attenuation (%) | ATN${INDEX:1:2:3:4:5:6:7}_${INST:A\d+} */
    double Ir[7];  /* Transmittance (1) | Ir${INDEX:1:2:3:4:5:6:7}_${INST:A\d+} */
    double Is[7];  /* Sample beam signal (V) | If${INDEX:1:2:3:4:5:6:7}_${INST:A\d+} */
    double If[7];  /* Reference beam signal (V) | Ip${INDEX:1:2:3:4:5:6:7}_${INST:A\d+} */
    double Isz[7]; /* Sample beam signal, light off (V) | Ifz${INDEX:1:2:3:4:5:6:7}_${INST:A\d+} */
    double
        Ifz[7]; /* Reference beam signal, light off (V) | Ipz${INDEX:1:2:3:4:5:6:7}_${INST:A\d+} */
    double bypass[7]; /* Fraction of the time with the bypass open (1) |
                         ZBYP${INDEX:1:2:3:4:5:6:7}_${INST:A\d+} */
    double Q;         /* Sample flow (lpm) | Q_${INST:A\d+} */
    double L;         /* Sample length on the spot (m) | L_${INST:A\d+} */
} NET_AETHALOMETER_Report;

typedef struct {
    WORD state;       /* 0 starting, 1 sampling, 2 advancing the tape, 3 stopped */
    WORD flags;       /* Instrument status (bits) */
    int wavelengths;  /* Number of wavelengths reported */
    BOOL advancing;   /* The tape is being advanced */
    int tape_left;    /* Tape left (%) */
    FTIME spot_start; /* Start of sampling on the present spot (s since 1970) */
    double spot_area; /* Area of the spot (mm2) */
    double interval;  /* Time between reports (s) */
    STRING serial_number[32];
} NET_AETHALOMETER_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_AETHALOMETER_REPORT, "aethalometer", NET_AETHALOMETER_Report);
ZEB_MESSAGE(MSG_AETHALOMETER_STATUS, "aethalometer", NET_AETHALOMETER_Status);

#endif

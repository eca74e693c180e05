/* aethalometer.h - seven-wavelength aerosol absorption photometer with one spot on a tape, which
 * reports by itself every few minutes. Arrays of seven hold the wavelengths, shortest first; those
 * that an instrument lacks are missing. Missing: MVC in a real, -1 in a time, 0x55555555 in a
 * DWORD. The bits of flags are listed in the status record. */
#ifndef ZEB2_DEFINITIONS_AETHALOMETER_H
#define ZEB2_DEFINITIONS_AETHALOMETER_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME start_time;
    FTIME end_time;
    FTIME instrument_time; /* End of the report by the instrument's clock (s since 1970) */
    double wavelengths[7]; /* Wavelength (nm) */
    double X[7];           /* Equivalent black carbon concentration (ug/m3) |
                              X${INDEX:1:2:3:4:5:6:7}_${INST:A\d+} | -10;1000 */
    double Ba[7];          /* Absorption coefficient (1/Mm) |
                              Ba${INDEX:1:2:3:4:5:6:7}_${INST:A\d+} | -100;1E5 */
    double ATN[7];         /* Attenuation (%) | ATN${INDEX:1:2:3:4:5:6:7}_${INST:A\d+} | -20;200 */
    double Ir[7];          /* Transmittance (1) | Ir${INDEX:1:2:3:4:5:6:7}_${INST:A\d+} | 0;2 */
    double Ip[7];          /* Sample detector signal (V) |
                              Ip${INDEX:1:2:3:4:5:6:7}_${INST:A\d+} | -1;12 */
    double If[7];          /* Reference detector signal (V) |
                              If${INDEX:1:2:3:4:5:6:7}_${INST:A\d+} | -1;12 */
    double Ipz[7];         /* Sample detector signal, light off (V) |
                              Ipz${INDEX:1:2:3:4:5:6:7}_${INST:A\d+} | -1;12 */
    double Ifz[7];         /* Reference detector signal, light off (V) |
                              Ifz${INDEX:1:2:3:4:5:6:7}_${INST:A\d+} | -1;12 */
    double bypass[7];      /* Fraction of the time with the bypass open (1) |
                              ZBYP${INDEX:1:2:3:4:5:6:7}_${INST:A\d+} | 0;1 */
    double Q;              /* Sample flow (slpm) | Q_${INST:A\d+} | -1;20 */
    double L;              /* Sample length on the spot (m) | L_${INST:A\d+} | 0;1E6 */
    DWORD spot;            /* Running number of the spot (1) */
    WORD flags;            /* Every instrument status seen (bits) */
} NET_AETHALOMETER_Report;

typedef struct {
    WORD state; /* 0 starting, 1 sampling, 2 advancing the tape, 3 stopped, 4 no answer */
    WORD flags; /* Instrument status (bits): 0 flow off its set point, 1 light source, 2 detector, 3
                   tape low, 4 tape used up, 5 tape being advanced, 6 storage full, 7 clock */
    BYTE n;     /* Number of wavelengths reported, from the shortest on */
    BOOL advancing;     /* The tape is being advanced */
    int tape_left;      /* Tape left, -1 unknown (%) */
    FTIME spot_start;   /* Start of sampling on the present spot (s since 1970) */
    double spot_area;   /* Area of the spot (mm2) */
    double ATN_advance; /* Attenuation at which the tape is advanced (%) */
    double Q_set;       /* Sample flow set point (slpm) */
    double interval;    /* Time between reports (s) */
    STRING serial_number[32];
    STRING firmware[32];
} NET_AETHALOMETER_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_AETHALOMETER_REPORT, "aethalometer", NET_AETHALOMETER_Report);
ZEB_MESSAGE(MSG_AETHALOMETER_STATUS, "aethalometer", NET_AETHALOMETER_Status);

#endif

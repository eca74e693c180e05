/* ccn.h - counter of cloud condensation nuclei: a wet column with a temperature gradient and an
 * optical counter behind it that sizes the droplets in twenty bins. Missing: MVC in a real, -1 in
 * a time, 0x55555555 in an int or DWORD. The bits of flags are listed in the status record. */
#ifndef ZEB2_DEFINITIONS_CCN_H
#define ZEB2_DEFINITIONS_CCN_H

#include <zeb2/port.h>

#pragma pack(push, 4)

/* The supersaturation that a model of flow and heat in the column finds for the measured state. */
typedef struct {
    FTIME time;
    double SS;         /* Modelled supersaturation (%) | SSm_${INST:N\d+} | -1;5 */
    double T_wall_top; /* Modelled wall temperature at the top (C) | Tm1_${INST:N\d+} | -50;100 */
    double T_wall_bottom; /* Modelled wall temperature at the bottom (C) | Tm2_${INST:N\d+} |
                             -50;100 */
    double resistance;    /* Thermal resistance of the wall (C/W) | ZTR_${INST:N\d+} | 0;10 */
    double delta_T;       /* Temperature difference over the wall (C) | Tdm_${INST:N\d+} | -50;50 */
    int iterations;       /* Steps that the model took (1) */
    BOOL converged;       /* The model found a solution */
} NET_CCN_DMTModelResults;

typedef struct {
    FTIME time;
    double N;          /* Droplet concentration (1/cm3) | N_${INST:N\d+} | 0;1E5 */
    double bins[20];   /* Droplet concentration of each size bin (1/cm3) |
                          Nb${INDEX:1:2:3:4:5:6:7:8:9:10:11:12:13:14:15:16:17:18:19:20}_${INST:N\d+} |
                          0;1E5 */
    double overflow;   /* Droplets above the last size bin (1/cm3) | Nbo_${INST:N\d+} | 0;1E5 */
    double SS;         /* Supersaturation set point (%) | SSs_${INST:N\d+} | 0;3 */
    double SS_calc;    /* Supersaturation from the gradient (%) | SS_${INST:N\d+} | -1;5 */
    double T1;         /* Temperature at the top of the column (C) | T1_${INST:N\d+} | -50;100 */
    double T2;         /* Temperature in the middle of the column (C) | T2_${INST:N\d+} | -50;100 */
    double T3;         /* Temperature at the bottom of the column (C) | T3_${INST:N\d+} | -50;100 */
    double T4;         /* Inlet temperature (C) | T4_${INST:N\d+} | -50;100 */
    double T5;         /* Optics temperature (C) | T5_${INST:N\d+} | -50;100 */
    double T6;         /* Inlet humidifier temperature (C) | T6_${INST:N\d+} | -50;100 */
    double T7;         /* Sample temperature (C) | T7_${INST:N\d+} | -50;100 */
    double delta_T;    /* Temperature difference over the column (C) | Td_${INST:N\d+} | -50;50 */
    double Q1;         /* Sample flow (lpm) | Q1_${INST:N\d+} | -1;20 */
    double Q2;         /* Sheath flow (lpm) | Q2_${INST:N\d+} | -1;20 */
    double P;          /* Sample pressure (hPa) | P_${INST:N\d+} | 100;1200 */
    double laser;      /* Laser current (mA) | A_${INST:N\d+} | 0;500 */
    double monitor;    /* First stage monitor (V) | V1_${INST:N\d+} | -1;12 */
    double valve;      /* Proportional valve signal (V) | V2_${INST:N\d+} | -1;12 */
    double baseline;   /* Baseline monitor of the detector (V) | V3_${INST:N\d+} | -1;12 */
    double T_unstable; /* Standard deviation of the temperature difference (C) |
                          Tg_${INST:N\d+} | 0;50 */
    BYTE bin_min;      /* First size bin counted in the droplet concentration (1) */
    BOOL stable;       /* The temperatures have settled */
    WORD flags;        /* Instrument status (bits) */
} NET_CCN_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples;     /* Readings averaged (1) */
    double N;          /* Droplet concentration (1/cm3) | N_${INST:N\d+} | 0;1E5 */
    double bins[20];   /* Droplet concentration of each size bin (1/cm3) |
                          Nb${INDEX:1:2:3:4:5:6:7:8:9:10:11:12:13:14:15:16:17:18:19:20}_${INST:N\d+} |
                          0;1E5 */
    double overflow;   /* Droplets above the last size bin (1/cm3) | Nbo_${INST:N\d+} | 0;1E5 */
    double SS;         /* Supersaturation set point (%) | SSs_${INST:N\d+} | 0;3 */
    double SS_calc;    /* Supersaturation from the gradient (%) | SS_${INST:N\d+} | -1;5 */
    double T1;         /* Temperature at the top of the column (C) | T1_${INST:N\d+} | -50;100 */
    double T2;         /* Temperature in the middle of the column (C) | T2_${INST:N\d+} | -50;100 */
    double T3;         /* Temperature at the bottom of the column (C) | T3_${INST:N\d+} | -50;100 */
    double T4;         /* Inlet temperature (C) | T4_${INST:N\d+} | -50;100 */
    double T5;         /* Optics temperature (C) | T5_${INST:N\d+} | -50;100 */
    double T6;         /* Inlet humidifier temperature (C) | T6_${INST:N\d+} | -50;100 */
    double T7;         /* Sample temperature (C) | T7_${INST:N\d+} | -50;100 */
    double delta_T;    /* Temperature difference over the column (C) | Td_${INST:N\d+} | -50;50 */
    double Q1;         /* Sample flow (lpm) | Q1_${INST:N\d+} | -1;20 */
    double Q2;         /* Sheath flow (lpm) | Q2_${INST:N\d+} | -1;20 */
    double P;          /* Sample pressure (hPa) | P_${INST:N\d+} | 100;1200 */
    double laser;      /* Laser current (mA) | A_${INST:N\d+} | 0;500 */
    double monitor;    /* First stage monitor (V) | V1_${INST:N\d+} | -1;12 */
    double valve;      /* Proportional valve signal (V) | V2_${INST:N\d+} | -1;12 */
    double baseline;   /* Baseline monitor of the detector (V) | V3_${INST:N\d+} | -1;12 */
    double T_unstable; /* Standard deviation of the temperature difference (C) |
                          Tg_${INST:N\d+} | 0;50 */
    BYTE bin_min;      /* First size bin counted in the droplet concentration (1) */
    BOOL stable;       /* The temperatures were settled all the time */
    WORD flags;        /* Every instrument status seen (bits) */
} NET_CCN_Avg;

/* Turns the scan on or off and gives its steps; unused steps have a duration of 0. */
typedef struct {
    BOOL enabled;        /* Scan through the steps */
    double offset;       /* Offset of the first scan from midnight UTC (s) */
    double SS[16];       /* Supersaturation of each step (%) */
    double duration[16]; /* Duration of each step (s) */
} NET_CCN_ScanningControl;

typedef struct {
    NET_CCN_ScanningControl control;
    int step;         /* Present step, from 0 on, -1 when not scanning */
    FTIME step_start; /* Start of the step, -1 when not scanning (s since 1970) */
    FTIME step_end;   /* End of the step, -1 when not scanning (s since 1970) */
} NET_CCN_Scanning;

typedef struct {
    double SS[16];       /* Supersaturation of each step, 0 behind the last (%) */
    double duration;     /* Duration of a step (s) */
    double settle;       /* Time at the start of each step in which nothing is kept (s) */
    STRING comment[256]; /* Text kept with the calibration */
} NET_CCN_StartCalibration;

typedef struct {
    WORD state;    /* 0 starting, 1 settling, 2 sampling, 3 calibrating, 4 no answer */
    WORD flags;    /* Instrument status (bits): 0 laser current high, 1 first stage monitor high, 2
                      flow, 3 ratio of sheath and sample flow, 4 column temperature, 5 inlet or
                      sample temperature, 6 optics temperature, 7 optical counter silent, 8
                      temperatures not settled, 9 water low, 10 waste full */
    BOOL pump_on;  /* The pump runs */
    double SS_set; /* Supersaturation set point (%) */
    double slope;  /* Temperature difference for one percent of supersaturation (C) */
    double intercept; /* Temperature difference at zero supersaturation (C) */
    double T1_set;    /* Set point of the temperature at the top of the column (C) */
    double T2_set;    /* Set point of the temperature in the middle of the column (C) */
    double T3_set;    /* Set point of the temperature at the bottom of the column (C) */
    double T4_set;    /* Inlet temperature set point (C) */
    double T5_set;    /* Optics temperature set point (C) */
    double T6_set;    /* Inlet humidifier temperature set point (C) */
    double Q1_set;    /* Sample flow set point (lpm) */
    double Q2_set;    /* Sheath flow set point (lpm) */
    double Dp[20];    /* Upper diameter of each size bin (um) */
    STRING serial_number[32];
    STRING firmware[32];
} NET_CCN_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_CCN_AVERAGE, "ccn", NET_CCN_Avg);
ZEB_MESSAGE(MSG_CCN_DMTMODELRESULTS, "ccn", NET_CCN_DMTModelResults);
ZEB_MESSAGE(MSG_CCN_INSTANT, "ccn", NET_CCN_Instant);
ZEB_MESSAGE(MSG_CCN_SCANNING, "ccn", NET_CCN_Scanning);
ZEB_MESSAGE(MSG_CCN_SET_SCANNING, "ccn", NET_CCN_ScanningControl);
ZEB_MESSAGE(MSG_CCN_START_CALIBRATION, "ccn", NET_CCN_StartCalibration);
ZEB_MESSAGE(MSG_CCN_STATUS, "ccn", NET_CCN_Status);
ZEB_MESSAGE_BARE(MSG_CCN_STOP_CALIBRATION, "ccn");

#endif

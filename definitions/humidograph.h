/* humidograph.h - conditioner that scans the relative humidity of the air to a nephelometer.
 * Missing: MVC in a real, -1 in a time. */
#ifndef ZEB2_DEFINITIONS_HUMIDOGRAPH_H
#define ZEB2_DEFINITIONS_HUMIDOGRAPH_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    BOOL enabled; /* Humidify */
    double U;     /* Relative humidity set point (%) */
} NET_HUMIDOGRAPH_Setpoint;

/* Steps of one scan; unused steps have a duration of 0. */
typedef struct {
    BOOL enabled;  /* Scan through the steps */
    BYTE mode;     /* 0 in steps, 1 in a ramp from each step to the next */
    double offset; /* Offset of the first scan from midnight UTC (s) */
    NET_HUMIDOGRAPH_Setpoint steps[16];
    double duration[16]; /* Duration of each step (s) */
} NET_HUMIDOGRAPH_Scanning;

typedef struct {
    WORD state; /* 0 dry, 1 holding, 2 rising, 3 falling, 4 drying out, 5 failed */
    WORD flags; /* Instrument status (bits): 0 water low, 1 water temperature, 2 heater, 3 sensor
                   before the humidifier, 4 sensor behind the humidifier, 5 set point not reached */
    NET_HUMIDOGRAPH_Setpoint setpoint; /* *instant */
    double U_in;      /* Relative humidity before the humidifier (%) | U1_${INST:C\d+} | -5;110 */
    double U_out;     /* Relative humidity behind the humidifier (%) | U2_${INST:C\d+} | -5;110 */
    double T_water;   /* Water temperature (C) | T1_${INST:C\d+} | -50;100 */
    double T_out;     /* Air temperature behind the humidifier (C) | T2_${INST:C\d+} | -50;100 */
    double T_in;      /* Air temperature before the humidifier (C) | T3_${INST:C\d+} | -50;100 */
    double U_set;     /* Present relative humidity set point (%) | Us_${INST:C\d+} | 0;100 */
    double heater;    /* Heater drive (%) | ZHEAT_${INST:C\d+} | 0;100 */
    BOOL water_ok;    /* Enough water */
    int step;         /* Present step, from 0 on, -1 when not scanning */
    FTIME step_start; /* Start of the step, -1 when not scanning (s since 1970) */
    FTIME step_end;   /* End of the step, -1 when not scanning (s since 1970) */
} NET_HUMIDOGRAPH_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_HUMIDOGRAPH_CHANGE_SETPOINT, "humidograph", NET_HUMIDOGRAPH_Setpoint);
ZEB_MESSAGE(MSG_HUMIDOGRAPH_SCANNING, "humidograph", NET_HUMIDOGRAPH_Scanning);
ZEB_MESSAGE(MSG_HUMIDOGRAPH_SET_SCANNING, "humidograph", NET_HUMIDOGRAPH_Scanning);
ZEB_MESSAGE(MSG_HUMIDOGRAPH_STATUS, "humidograph", NET_HUMIDOGRAPH_Status);

#endif

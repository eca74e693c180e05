/* genericpid.h - control loops between any input and output channel of the station, and their
 * automatic tuning. */
#ifndef ZEB2_DEFINITIONS_GENERICPID_H
#define ZEB2_DEFINITIONS_GENERICPID_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    double Kp;           /* Proportional gain, output per input */
    double Ki;           /* Integral gain, output per input and second */
    double Kd;           /* Derivative gain, output per input per second */
    double out_min;      /* Least output */
    double out_max;      /* Greatest output */
    double integral_max; /* Limit of the integral part */
    double deadband;     /* Error that is not acted on */
} NET_GENERICPID_ControllerParams;

/* Parameters of one loop. */
typedef struct {
    STRING name[32];
    NET_GENERICPID_ControllerParams params; /* *instant */
} NET_GENERICPID_Params;

typedef struct {
    STRING name[32];
    double setpoint; /* Set point, in the unit of the input */
    BOOL manual;     /* Hold the output instead */
    double output;   /* Output to hold */
} NET_GENERICPID_Setpoint;

/* One loop: its channels, parameters and set point. */
typedef struct {
    STRING name[32];
    STRING input[32];
    STRING output[32];
    STRING unit[16];
    double interval; /* Time between updates (s) */
    NET_GENERICPID_ControllerParams params;
    NET_GENERICPID_Setpoint setpoint; /* *instant */
} NET_GENERICPID_Info;

typedef struct {
    FTIME time;
    STRING name[32];
    double input;    /* Input, in the unit of the channel (any) | ZIN_${INST:C\d+} */
    double setpoint; /* Set point, in the unit of the channel (any) | ZSET_${INST:C\d+} */
    double output;   /* Output, in the unit of the channel (any) | ZOUT_${INST:C\d+} */
    double p;        /* Proportional part of the output (any) | ZPROP_${INST:C\d+} */
    double i;        /* Integral part of the output (any) | ZINT_${INST:C\d+} */
    double d;        /* Derivative part of the output (any) | ZDER_${INST:C\d+} */
    BOOL manual;     /* The output is held */
    BOOL saturated;  /* The output is at a limit */
} NET_GENERICPID_Instant;

typedef struct {
    STRING name[32];
    double step;       /* Step of the output */
    double hysteresis; /* Error at which the output is switched back */
    double noise;      /* Standard deviation of the input at rest */
    int cycles;        /* Number of oscillations to observe */
    double time_limit; /* Time after which the attempt is given up (s) */
} NET_GENERICPID_TuningRequest;

typedef struct {
    FTIME time;
    STRING name[32];
    int cycle;        /* Oscillations observed */
    double input;     /* Input, in the unit of the channel (any) | ZTIN_${INST:C\d+} */
    double output;    /* Output, in the unit of the channel (any) | ZTOUT_${INST:C\d+} */
    double amplitude; /* Amplitude of the last oscillation (any) | ZTAMP_${INST:C\d+} */
    double period;    /* Period of the last oscillation (s) | ZTPER_${INST:C\d+} */
} NET_GENERICPID_TuningInstant;

typedef struct {
    STRING name[32];
    BOOL success;                           /* The oscillation was regular enough */
    double ultimate_gain;                   /* Gain at which the loop oscillates */
    double ultimate_period;                 /* Period of that oscillation (s) */
    NET_GENERICPID_ControllerParams params; /* *instant */
} NET_GENERICPID_TuningResults;

typedef struct {
    STRING name[32];
    WORD state; /* 0 none, 1 settling, 2 oscillating, 3 finished, 4 given up */
    FTIME start_time;
    FTIME end_time;
} NET_GENERICPID_TuningSatus;

#pragma pack(pop)

ZEB_MESSAGE(MSG_GENERICPID_INFO, "genericpid", NET_GENERICPID_Info);
ZEB_MESSAGE(MSG_GENERICPID_INSTANT, "genericpid", NET_GENERICPID_Instant);
ZEB_MESSAGE_BARE(MSG_GENERICPID_RESET, "genericpid");
ZEB_MESSAGE(MSG_GENERICPID_SET, "genericpid", NET_GENERICPID_Setpoint);
ZEB_MESSAGE(MSG_GENERICPID_SETPOINT, "genericpid", NET_GENERICPID_Setpoint);
ZEB_MESSAGE(MSG_GENERICPID_SET_PARMS, "genericpid", NET_GENERICPID_Params);
ZEB_MESSAGE(MSG_GENERICPID_TUNING_INSTANT, "genericpid", NET_GENERICPID_TuningInstant);
ZEB_MESSAGE(MSG_GENERICPID_TUNING_RESULTS, "genericpid", NET_GENERICPID_TuningResults);
ZEB_MESSAGE(MSG_GENERICPID_TUNING_START, "genericpid", NET_GENERICPID_TuningRequest);
ZEB_MESSAGE(MSG_GENERICPID_TUNING_STATUS, "genericpid", NET_GENERICPID_TuningSatus);
ZEB_MESSAGE_BARE(MSG_GENERICPID_TUNING_STOP, "genericpid");

#endif

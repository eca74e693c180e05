/* genericpid.h - control loops between any input and output channel of the station, and their
 * automatic tuning, by switching the output between two levels until the input swings evenly.
 * Missing: MVC in a real, -1 in a time, 0x55555555 in an int or DWORD. */
#ifndef ZEB2_DEFINITIONS_GENERICPID_H
#define ZEB2_DEFINITIONS_GENERICPID_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    double Kp;           /* Proportional gain, output per input (any) */
    double Ki;           /* Integral gain, output per input and second (any) */
    double Kd;           /* Derivative gain, output per input per second (any) */
    double out_min;      /* Least output (any) */
    double out_max;      /* Greatest output (any) */
    double integral_max; /* Limit of the integral part (any) */
    double deadband;     /* Error that is not acted on (any) */
} NET_GENERICPID_ControllerParams;

/* Parameters of one loop. */
typedef struct {
    STRING name[32];                        /* Name of the loop */
    NET_GENERICPID_ControllerParams params; /* *instant */
} NET_GENERICPID_Params;

typedef struct {
    STRING name[32]; /* Name of the loop */
    double setpoint; /* Set point, in the unit of the input (any) */
    BOOL manual;     /* Hold the output instead */
    double output;   /* Output to hold (any) */
} NET_GENERICPID_Setpoint;

/* One loop: its channels, parameters and set point. */
typedef struct {
    STRING name[32];   /* Name of the loop */
    STRING input[32];  /* Name of the input channel */
    STRING output[32]; /* Name of the output channel */
    STRING unit[16];   /* Unit of the input */
    double interval;   /* Time between updates (s) */
    NET_GENERICPID_ControllerParams params;
    NET_GENERICPID_Setpoint setpoint; /* *instant */
} NET_GENERICPID_Info;

typedef struct {
    FTIME time;
    STRING name[32]; /* Name of the loop */
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
    STRING name[32];   /* Name of the loop */
    double step;       /* Step of the output (any) */
    double hysteresis; /* Error at which the output is switched back (any) */
    double noise;      /* Standard deviation of the input at rest (any) */
    int cycles;        /* Number of oscillations to observe (1) */
    double time_limit; /* Time after which the attempt is given up (s) */
} NET_GENERICPID_TuningRequest;

typedef struct {
    FTIME time;
    STRING name[32];  /* Name of the loop */
    int cycle;        /* Oscillations observed (1) */
    double input;     /* Input, in the unit of the channel (any) | ZTIN_${INST:C\d+} */
    double output;    /* Output, in the unit of the channel (any) | ZTOUT_${INST:C\d+} */
    double amplitude; /* Amplitude of the last oscillation (any) | ZTAMP_${INST:C\d+} */
    double period;    /* Period of the last oscillation (s) | ZTPER_${INST:C\d+} | 0;1E6 */
} NET_GENERICPID_TuningInstant;

typedef struct {
    STRING name[32];        /* Name of the loop */
    BOOL success;           /* The oscillation was regular enough */
    double ultimate_gain;   /* Gain at which the loop oscillates, output per input (any) */
    double ultimate_period; /* Period of that oscillation (s) */
    NET_GENERICPID_ControllerParams params; /* *instant */
} NET_GENERICPID_TuningResults;

typedef struct {
    STRING name[32];  /* Name of the loop */
    WORD state;       /* 0 none, 1 settling, 2 oscillating, 3 finished, 4 given up */
    FTIME start_time; /* Start of the attempt, -1 for none (s since 1970) */
    FTIME end_time;   /* End of the attempt, -1 before it (s since 1970) */
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

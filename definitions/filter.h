/* filter.h - carousel of aerosol filters for later analysis in the laboratory: one filter after
 * the other is sampled while the station is not bypassed. Missing: MVC in a real, -1 in a time. */
#ifndef ZEB2_DEFINITIONS_FILTER_H
#define ZEB2_DEFINITIONS_FILTER_H

#include <zeb2/definitions/io.h>
#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    BOOL heat;       /* Heat the filter rack */
    double setpoint; /* Rack temperature set point (C) */
} NET_FILTER_RackHeat;

typedef struct {
    WORD state; /* 0 idle, 1 sampling, 2 bypassed, 3 changing, 4 finished */
    WORD flags; /* Sampler status (bits): 0 flow off its set point, 1 no flow, 2 pressure drop high,
                   3 rack temperature, 4 relative humidity high, 5 carousel full */
    BYTE n;     /* Number of filters in the carousel (1) */
    BYTE current;          /* Filter being sampled, from 1 on, 0 for none */
    WORD valves;           /* Valves that are open, bit i of filter i (bits) */
    BOOL bypassed;         /* Sampling is bypassed */
    DWORD carousel_id;     /* Running number of the carousel (1) */
    FTIME carousel_start;  /* Start of this carousel (s since 1970) */
    FTIME filter_start[8]; /* Start of sampling on each filter, -1 before it (s since 1970) */
    FTIME filter_end[8];   /* End of sampling on each filter, -1 before it (s since 1970) */
    FTIME next_change;     /* Time of the next change of filters, -1 for none (s since 1970) */
    double sampled[8];     /* Time that air was drawn through each filter (s) |
                              ZTIME${INDEX:1:2:3:4:5:6:7:8}_${INST:F\d+} | 0;1E8 */
    double volume[8];      /* Sampled volume of each filter (m3) |
                              Qt${INDEX:1:2:3:4:5:6:7:8}_${INST:F\d+} | 0;1E5 */
    double Q;              /* Sample flow (slpm) | Q_${INST:F\d+} | -1;200 */
    double T;              /* Rack temperature (C) | T_${INST:F\d+} | -50;100 */
    double U;              /* Sample relative humidity (%) | U_${INST:F\d+} | -5;110 */
    double Pd;             /* Pressure drop over the filter (hPa) | Pd_${INST:F\d+} | -10;1200 */
    double Q_set;          /* Sample flow set point (slpm) */
    NET_FILTER_RackHeat heat;
} NET_FILTER_Status;

#pragma pack(pop)

ZEB_MESSAGE_BARE(MSG_FILTER_BYPASS, "filter");
ZEB_MESSAGE(MSG_FILTER_BYPASSMULTI, "filter", NET_IO_LockID);
ZEB_MESSAGE_BARE(MSG_FILTER_BYPASSOVERRIDE, "filter");
ZEB_MESSAGE_BARE(MSG_FILTER_CHANGE_BEGIN, "filter");
ZEB_MESSAGE_BARE(MSG_FILTER_CHANGE_END, "filter");
ZEB_MESSAGE(MSG_FILTER_RACK_HEAT, "filter", NET_FILTER_RackHeat);
ZEB_MESSAGE(MSG_FILTER_STATUS, "filter", NET_FILTER_Status);
ZEB_MESSAGE_BARE(MSG_FILTER_UNBYPASS, "filter");
ZEB_MESSAGE(MSG_FILTER_UNBYPASSMUTLI, "filter", NET_IO_LockID);
ZEB_MESSAGE_BARE(MSG_FILTER_UNBYPASSOVERRIDE, "filter");

#endif

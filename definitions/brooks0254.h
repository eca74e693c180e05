/* brooks0254.h - controller of four mass flow channels. Missing: MVC in a real, -1 in a time. */
#ifndef ZEB2_DEFINITIONS_BROOKS0254_H
#define ZEB2_DEFINITIONS_BROOKS0254_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    double Q[4];        /* Flow (slpm) | Q${INDEX:1:2:3:4}_${INST:Q\d+} | -1;500 */
    double setpoint[4]; /* Flow set point (slpm) | Qs${INDEX:1:2:3:4}_${INST:Q\d+} | 0;500 */
    double valve[4];    /* Valve drive (%) | ZVALVE${INDEX:1:2:3:4}_${INST:Q\d+} | 0;100 */
} NET_BROOKS0254_Channels;

typedef struct {
    FTIME time;
    NET_BROOKS0254_Channels channels; /* *instant */
    double total[4]; /* Totalled volume (m3) | Qt${INDEX:1:2:3:4}_${INST:Q\d+} | 0;1E6 */
    WORD flags;      /* Alarms, bit i of channel i (bits) */
} NET_BROOKS0254_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples;                    /* Readings averaged (1) */
    NET_BROOKS0254_Channels channels; /* *instant */
    WORD flags;                       /* Every alarm seen, bit i of channel i (bits) */
} NET_BROOKS0254_Avg;

typedef struct {
    WORD state;           /* 0 starting, 1 controlling, 2 no answer */
    WORD open;            /* Channels held open, bit i of channel i (bits) */
    WORD closed;          /* Channels held closed, bit i of channel i (bits) */
    double full_scale[4]; /* Full scale flow (slpm) */
    double factor[4];     /* Gas factor (1) */
    BYTE mode[4];         /* 0 set point of the channel, 1 ratio to another channel */
    STRING serial_number[32];
    STRING firmware[32];
} NET_BROOKS0254_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_BROOKS0254_AVERAGE, "brooks0254", NET_BROOKS0254_Avg);
ZEB_MESSAGE(MSG_BROOKS0254_INSTANT, "brooks0254", NET_BROOKS0254_Instant);
ZEB_MESSAGE(MSG_BROOKS0254_STATUS, "brooks0254", NET_BROOKS0254_Status);

#endif

/* ainsimple.h - analogue input modules that are asked for one channel after another. The name of a
 * channel is the identifier in its variables. Missing: MVC in a real, -1 in a time. */
#ifndef ZEB2_DEFINITIONS_AINSIMPLE_H
#define ZEB2_DEFINITIONS_AINSIMPLE_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    STRING name[32]; /* Name of the channel */
    double raw;      /* Signal at the terminal (V) | V_${INST:X\d+} | -15;15 */
    double val;      /* Calibrated value, in the unit of the channel (any) | ZVAL_${INST:X\d+} */
} NET_AINSIMPLE_AnalogIn;

typedef struct {
    FTIME time;
    BYTE n;                         /* Number of channels used (1) */
    NET_AINSIMPLE_AnalogIn ain[16]; /* *instant */
} NET_AINSIMPLE_Instant;

typedef struct {
    FTIME start_time;
    FTIME end_time;
    DWORD samples;                  /* Readings averaged (1) */
    BYTE n;                         /* Number of channels used (1) */
    NET_AINSIMPLE_AnalogIn ain[16]; /* *instant */
} NET_AINSIMPLE_Avg;

typedef struct {
    WORD state;      /* 0 starting, 1 reading, 2 no answer */
    WORD flags;      /* Channels over their range, bit i of channel i (bits) */
    BYTE n;          /* Number of channels used (1) */
    double interval; /* Time between readings (s) */
    STRING model[32];
    STRING firmware[32];
} NET_AINSIMPLE_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_AINSIMPLE_AVERAGE, "ainsimple", NET_AINSIMPLE_Avg);
ZEB_MESSAGE(MSG_AINSIMPLE_INSTANT, "ainsimple", NET_AINSIMPLE_Instant);
ZEB_MESSAGE(MSG_AINSIMPLE_STATUS, "ainsimple", NET_AINSIMPLE_Status);

#endif

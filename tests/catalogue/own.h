/* own.h - records of an application that the station's catalogue lacks. */
#ifndef ZEB2_TEST_OWN_H
#define ZEB2_TEST_OWN_H

#include <zeb2/port.h>

#define OWN_CHANNELS 3

#pragma pack(push, 4)

typedef struct {
    double v; /* Reading (V) | V_${INST:V\d+} */
    WORD flags;
} NET_OWN_Reading;

typedef struct {
    BOOL valid;
    FTIME start_time;
    NET_OWN_Reading channels[OWN_CHANNELS]; /* *instant */
} NET_OWN_Instant;

#pragma pack(pop)

ZEB_MESSAGE(AAA_OWN_FIRST, "own", NET_OWN_Instant);
ZEB_MESSAGE_BARE(MSG_OWN_RESET, "own");

#endif

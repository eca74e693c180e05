/* The record of the example in docs/formats/tabular.md. */
#ifndef PUMP_H
#define PUMP_H
#include <zeb2/port.h>

#pragma pack(push, 4)
typedef struct { double v; STRING tag[4]; } NET_PUMP_Part;
typedef struct {
    BOOL on;
    TIME since;
    int n[3];
    NET_PUMP_Part parts[2];
} NET_PUMP_Instant;
#pragma pack(pop)
#endif

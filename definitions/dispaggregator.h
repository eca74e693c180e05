/* dispaggregator.h - values collected from all instruments for the station's display. */
#ifndef ZEB2_DEFINITIONS_DISPAGGREGATOR_H
#define ZEB2_DEFINITIONS_DISPAGGREGATOR_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    STRING source[32];
    STRING name[32];
    STRING unit[16];
    double val; /* Value, in the unit given */
    FTIME time; /* Time of the value (s since 1970) */
    BOOL alarm; /* The value is outside its limits */
} NET_DISPAGGREGATOR_One;

typedef struct {
    FTIME time;
    WORD n; /* Number of values used */
    NET_DISPAGGREGATOR_One vals[128];
} NET_DISPAGGREGATOR_All;

#pragma pack(pop)

ZEB_MESSAGE(MSG_DISPAGGREGATOR_ALL, "dispaggregator", NET_DISPAGGREGATOR_All);

#endif

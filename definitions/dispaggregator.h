/* dispaggregator.h - values collected from all instruments for the station's display. Missing: MVC
 * in a real, -1 in a time. */
#ifndef ZEB2_DEFINITIONS_DISPAGGREGATOR_H
#define ZEB2_DEFINITIONS_DISPAGGREGATOR_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    STRING source[32]; /* Name of the daemon that sent the value */
    STRING name[32];   /* Name of the value, as the display shows it */
    STRING unit[16];   /* Unit of the value */
    double val;        /* Value, in the unit given (any) */
    double low;        /* Least value that raises no alarm, missing for none (any) */
    double high;       /* Greatest value that raises no alarm, missing for none (any) */
    FTIME time;        /* Time of the value (s since 1970) */
    BOOL alarm;        /* The value is outside its limits */
} NET_DISPAGGREGATOR_One;

typedef struct {
    FTIME time;
    WORD n; /* Number of values used (1) */
    NET_DISPAGGREGATOR_One vals[128];
} NET_DISPAGGREGATOR_All;

#pragma pack(pop)

ZEB_MESSAGE(MSG_DISPAGGREGATOR_ALL, "dispaggregator", NET_DISPAGGREGATOR_All);

#endif

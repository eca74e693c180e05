/* The record of a valve, and the message that carries it. */
#ifndef VALVE_H
#define VALVE_H
#include <zeb2/port.h>

#pragma pack(push, 4)
typedef struct {
    FTIME time;
    BOOL open;
    double flow; /* Flow (slpm) */
} NET_VALVE_Status;
#pragma pack(pop)

ZEB_MESSAGE(MSG_VALVE_STATUS, "valve", NET_VALVE_Status);
#endif

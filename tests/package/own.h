#ifndef PACKAGE_TEST_OWN_H
#define PACKAGE_TEST_OWN_H

#include <zeb2/port.h>

#pragma pack(push, 4)
typedef struct {
    BOOL open;
    double flow; /* Flow (slpm) */
} NET_VALVE_Status;
#pragma pack(pop)

ZEB_MESSAGE(MSG_VALVE_STATUS, "valve", NET_VALVE_Status);

#endif

/* message.h - short messages between the station's operators. */
#ifndef ZEB2_DEFINITIONS_MESSAGE_H
#define ZEB2_DEFINITIONS_MESSAGE_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time_sent;       /* Time of sending (s since 1970) */
    STRING contents[2048]; /* Text */
} NETDS_MESSAGE_OneMessage;

#pragma pack(pop)

ZEB_MESSAGE(MSG_MESSAGING_MESSAGE, "messaging", NETDS_MESSAGE_OneMessage);

#endif

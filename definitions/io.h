/* io.h - analogue and digital channels that daemons share by name. */
#ifndef ZEB2_DEFINITIONS_IO_H
#define ZEB2_DEFINITIONS_IO_H

#include <zeb2/port.h>

#pragma pack(push, 4)

/* One analogue channel. A value that is not known is MVC. */
typedef struct {
    STRING name[32]; /* Name of the channel */
    double val;      /* Value, in the unit that the channel is configured with */
} NET_IO_Real;

/* Values of several channels at one time; channels from n on are empty. */
typedef struct {
    FTIME curtime;         /* Time of the values (s since 1970) */
    NET_IO_Real chans[64]; /* Channels and their values */
    unsigned int n;        /* Number of channels used */
} NET_IO_MultiReal;

/* One digital channel; channels that do not exist have an empty name. */
typedef struct {
    STRING name[32]; /* Name of the channel */
} NET_IO_DigitalInfo;

typedef struct {
    NET_IO_DigitalInfo info[32];
    DWORD val; /* States, bit i of channel i (bits) */
} NET_IO_DigitalIn;

typedef struct {
    NET_IO_DigitalInfo info[32];
    DWORD val;  /* Requested states, bit i of channel i (bits) */
    DWORD mask; /* Channels to be set, bit i of channel i (bits) */
} NET_IO_DigitalOut;

/* The holder of one of several locks on the same switch: what one holder asks for lasts until
 * that holder, not another, takes it back. */
typedef struct {
    STRING id[32]; /* Name of the holder */
} NET_IO_LockID;

#pragma pack(pop)

ZEB_MESSAGE(MSG_IO_AVG, "io", NET_IO_MultiReal);
ZEB_MESSAGE(MSG_IO_INSTANT, "io", NET_IO_MultiReal);
ZEB_MESSAGE_BARE(MSG_IO_RESEND_DIGITAL, "io");
ZEB_MESSAGE_BARE(MSG_IO_RESEND_REAL, "io");
ZEB_MESSAGE(MSG_IO_RUNNINGAVG, "io", NET_IO_MultiReal);
ZEB_MESSAGE(MSG_IO_SET_DIGITAL, "io", NET_IO_DigitalOut);
ZEB_MESSAGE(MSG_IO_SET_REAL, "io", NET_IO_Real);
ZEB_MESSAGE(MSG_IO_STATE_DIGITAL, "io", NET_IO_DigitalIn);

#endif

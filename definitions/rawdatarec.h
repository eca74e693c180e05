/* rawdatarec.h - recorder of the raw lines of instruments that have no daemon of their own.
 * Missing: MVC in a real, -1 in a time, 0x55555555 in an int or DWORD. */
#ifndef ZEB2_DEFINITIONS_RAWDATAREC_H
#define ZEB2_DEFINITIONS_RAWDATAREC_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time;       /* Time of the line's first character (s since 1970) */
    STRING line[256]; /* The line without its end; longer ones go on in the next */
} NET_RAWDATAREC_OneLine;

/* The lines received since the message before, oldest first. */
typedef struct {
    WORD n; /* Number of lines used */
    NET_RAWDATAREC_OneLine lines[32];
} NET_RAWDATAREC_Lines;

typedef struct {
    BOOL recording;   /* Lines are being recorded */
    BOOL port_open;   /* The port can be read */
    STRING port[64];  /* Name of the serial port */
    STRING file[256]; /* Path of the file being written */
    DWORD lines;      /* Lines recorded since the start */
    DWORD bytes;      /* Bytes recorded since the start */
    DWORD lost;       /* Lines that could not be written since the start */
    FTIME file_start; /* Start of the file (s since 1970) */
    FTIME last_line;  /* Time of the last line, -1 before it (s since 1970) */
} NET_RAWDATAREC_Info;

#pragma pack(pop)

ZEB_MESSAGE(MSG_RAWDATAREC_INFO, "rawdatarec", NET_RAWDATAREC_Info);
ZEB_MESSAGE(MSG_RAWDATAREC_LINES, "rawdatarec", NET_RAWDATAREC_Lines);

#endif

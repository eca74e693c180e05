/* rawdatarec.h - recorder of the raw lines of instruments that have no daemon of their own. */
#ifndef ZEB2_DEFINITIONS_RAWDATAREC_H
#define ZEB2_DEFINITIONS_RAWDATAREC_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    FTIME time; /* Time of the line's first character (s since 1970) */
    STRING line[256];
} NET_RAWDATAREC_OneLine;

typedef struct {
    WORD n; /* Number of lines used */
    NET_RAWDATAREC_OneLine lines[32];
} NET_RAWDATAREC_Lines;

typedef struct {
    BOOL recording; /* Lines are being recorded */
    STRING port[64];
    STRING file[256];
    DWORD lines;     /* Lines recorded since the start */
    DWORD bytes;     /* Bytes recorded since the start */
    FTIME last_line; /* Time of the last line (s since 1970) */
} NET_RAWDATAREC_Info;

#pragma pack(pop)

ZEB_MESSAGE(MSG_RAWDATAREC_INFO, "rawdatarec", NET_RAWDATAREC_Info);
ZEB_MESSAGE(MSG_RAWDATAREC_LINES, "rawdatarec", NET_RAWDATAREC_Lines);

#endif

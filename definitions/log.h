/* log.h - control of the loggers (averages, file switching) and the station's monitor. */
#ifndef ZEB2_DEFINITIONS_LOG_H
#define ZEB2_DEFINITIONS_LOG_H

#include <zeb2/port.h>

#pragma pack(push, 4)

typedef struct {
    BOOL bypassed;     /* Sampling is bypassed */
    FTIME flush_until; /* End of the flush that follows, -1 without one (s since 1970) */
} NET_LOG_AVG_Bypass;

typedef struct {
    BOOL contaminated; /* The air is contaminated by local sources */
    FTIME flush_until; /* End of the flush that follows, -1 without one (s since 1970) */
} NET_LOG_AVG_Contamination;

/* What contaminates the air; the averages of the contaminated time are marked by it. */
typedef struct {
    unsigned short
        flags; /* 1 or 2 mark the averages with 1, neither of them with 2; 4 marks them with 4 */
} NET_LOG_AVG_ContamFlags;

typedef struct {
    FTIME flush_until; /* End of the flush, -1 without one (s since 1970) */
} NET_LOG_AVG_Flush;

typedef struct {
    BOOL enabled; /* The daemon writes its log file */
} NET_LOG_Info;

typedef struct {
    BOOL enable; /* Write log files from now on */
} NET_LOG_SetState;

/* One line for the station's monitor, from any daemon. */
typedef struct {
    BYTE flags;       /* Kind of the message (bits) */
    FTIME msgtime;    /* Time that the message is about (s since 1970) */
    STRING msg[8192]; /* Text */
} NET_LOG_MonitorMessage;

typedef struct {
    FTIME montime; /* Time for which monitor records are to be written (s since 1970) */
} NET_LOG_MonitorSnapshot;

typedef struct {
    FTIME starttime; /* Start of the new average (s since 1970) */
} NET_LOG_NewAverage;

typedef struct {
    double interval; /* Interval (s) */
} NET_LOG_SetInterval;

typedef struct {
    TIME switchtime; /* Time of the switch (s since 1970) */
} NET_LOG_SwitchFiles;

#pragma pack(pop)

ZEB_MESSAGE(MSG_LOG_AVG_BYPASS, "log", NET_LOG_AVG_Bypass);
ZEB_MESSAGE(MSG_LOG_AVG_CONTAMINATION, "log", NET_LOG_AVG_Contamination);
ZEB_MESSAGE(MSG_LOG_AVG_CONTAM_FLAGS, "log", NET_LOG_AVG_ContamFlags);
ZEB_MESSAGE(MSG_LOG_AVG_FLUSH, "log", NET_LOG_AVG_Flush);
ZEB_MESSAGE_BARE(MSG_LOG_FLUSH, "log");
ZEB_MESSAGE(MSG_LOG_INFO, "log", NET_LOG_Info);
ZEB_MESSAGE(MSG_LOG_MONITOR, "monitor", NET_LOG_MonitorMessage);
ZEB_MESSAGE(MSG_LOG_MONITOR_RECORD, "log", NET_LOG_MonitorSnapshot);
ZEB_MESSAGE(MSG_LOG_NEW_AVERAGE, "log", NET_LOG_NewAverage);
ZEB_MESSAGE(MSG_LOG_SET_INTERVAL_AVG, "log", NET_LOG_SetInterval);
ZEB_MESSAGE(MSG_LOG_SET_INTERVAL_FLS, "log", NET_LOG_SetInterval);
ZEB_MESSAGE(MSG_LOG_SET_INTERVAL_MON, "log", NET_LOG_SetInterval);
ZEB_MESSAGE(MSG_LOG_SET_INTERVAL_ROT, "log", NET_LOG_SetInterval);
ZEB_MESSAGE(MSG_LOG_SET_STATE, "log", NET_LOG_SetState);
ZEB_MESSAGE(MSG_LOG_SWITCHFILES, "log", NET_LOG_SwitchFiles);

#endif

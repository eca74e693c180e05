/* server.h - records of the message server's own protocol: handshake, heartbeat, filters, and the
 * announcement of instruments. */
#ifndef ZEB2_DEFINITIONS_SERVER_H
#define ZEB2_DEFINITIONS_SERVER_H

#include <zeb2/port.h>

#pragma pack(push, 4)

/* A client's first message: the name under which it wants to be known. */
typedef struct {
    STRING name[32]; /* Name of the client */
} NET_SERVER_ClientHandshake;

/* The server's answer: the link is open. */
typedef struct {
    unsigned int hb_idx; /* Index of the latest heartbeat */
} NET_SERVER_ServerHandshake;

/* Sent by the server at intervals and echoed by every client. */
typedef struct {
    unsigned int hb_idx; /* Running index of the heartbeat */
} NET_SERVER_Heartbeat;

/* A word by which displays and filters pick instruments; empty where there is none. */
typedef struct {
    STRING tag[32]; /* One word */
} NET_SERVER_InstrumentTag;

/* What a daemon says of the instrument it runs. */
typedef struct {
    STRING type[32];         /* Kind of instrument */
    STRING display_name[32]; /* Name for people */
    char id_ch;              /* Letter that its variables' instrument codes begin with */
    NET_SERVER_InstrumentTag tags[8];
} NET_SERVER_InstrumentInfo;

/* A rule for what the server delivers to the client that sends it. Empty strings and a type_match
 * below 0 match anything. */
typedef struct {
    BOOL target;              /* True to accept matching messages, false to reject them */
    STRING src_match[32];     /* Pattern for the name of the sender */
    STRING dest_match[32];    /* Pattern for the name of the destination */
    int type_match;           /* Number of the message, below 0 for any */
    char inst_type_match[32]; /* Pattern for the kind of instrument of the sender */
    char tag_match[256];      /* Pattern for a tag of the sender */
    char metatype_match[256]; /* Pattern for the class of the message */
    DWORD uid;                /* Number by which the client deletes the rule */
} NET_SERVER_FilterAdd;

typedef struct {
    BOOL all;  /* True to remove every filter of the client */
    DWORD uid; /* Number of the filter to remove */
} NET_SERVER_FilterDelete;

#pragma pack(pop)

ZEB_MESSAGE_BARE(MSG_NOTIFY_CLIENT_CONNECT, "*");
ZEB_MESSAGE_BARE(MSG_NOTIFY_CLIENT_TERMINATE, "*");
ZEB_MESSAGE(MSG_SERVER_CLIENTHANDSHAKE, "*", NET_SERVER_ClientHandshake);
ZEB_MESSAGE(MSG_SERVER_SERVERHANDSHAKE, "*", NET_SERVER_ServerHandshake);
ZEB_MESSAGE(MSG_SERVER_HEARTBEAT, "*", NET_SERVER_Heartbeat);
ZEB_MESSAGE(MSG_SERVER_INSTRUMENTINFO, "*", NET_SERVER_InstrumentInfo);
ZEB_MESSAGE_BARE(MSG_SERVER_TERMINATE, "*");
ZEB_MESSAGE(NET_SERVER_ADDFILTER, "*", NET_SERVER_FilterAdd);
ZEB_MESSAGE(NET_SERVER_DELETFILTER, "*", NET_SERVER_FilterDelete);

#endif

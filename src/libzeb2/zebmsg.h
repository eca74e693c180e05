/* zebmsg.h - the link to the station's message server.
 *
 * A daemon connects under its name, announces its instrument, sends typed messages that each carry
 * at most one record of the catalogue, and takes what the other programs publish. One thread
 * services the socket: the link's own (ZEBMSG_connect), or any select loop that drives the four
 * dispatch hooks (ZEBMSG_multi_connect). Callbacks only ever run in the thread that calls
 * ZEBMSG_process_messages.
 *
 *   ZEBMSG_connect_params cp;
 *   ZEBMSG_link lnk;
 *   NET_SERVER_InstrumentInfo ii;
 *   ZEBMSG_init_params(&cp);
 *   cp.id_str = "neph1";
 *   cp.host_override = ZEBMSG_get_host_str(root, local);
 *   memset(&lnk, 0, sizeof lnk);
 *   if (ZEBMSG_connect(&cp, &lnk) && ZEBMSG_wait_connected(&lnk)) {
 *       ZEBMSG_register_init(&ii);
 *       // fill ii.type, ii.display_name, ii.id_ch
 *       ZEBMSG_do_tags(&ii, root, local);
 *       ZEBMSG_register_instrument(&lnk, &ii);
 *       while (!UTIL_exit_poll()) {
 *           ZEBMSG_queue_message(&lnk, MSG_NEPH_INSTANT, 3, NULL, &rec, sizeof rec,
 *                                "NET_NEPH_Instant");
 *           ZEBMSG_process_messages(&lnk, on_message, NULL);
 *           UTIL_fsleep(0.25);
 *       }
 *   }
 *   ZEBMSG_disconnect(&lnk);
 *
 * The server sends heartbeats, the link echoes them; a server that is silent for more than 30 s is
 * taken for dead. Setting the wall clock meanwhile neither closes a link nor hides a dead server.
 * Nothing reconnects by itself. Failures are reported on standard error.
 *
 * Threads: a link's mutex guards it; every function below may be called from any thread unless its
 * block says otherwise, and none may be called with the mutex held.
 *
 * Limits: each queue holds at most 64 MiB (a full outgoing queue refuses new messages until it has
 * fallen to half, full received queues lose their oldest) and at most 4096 instruments are
 * remembered. A limit that is met is reported once when the loss begins; for queues also when it
 * ends.
 */
#ifndef ZEB2_ZEBMSG_H
#define ZEB2_ZEBMSG_H

#include "conf.h"
#include "definitions/server.h"
#include "ll.h"
#include "netmsg.h"
#include "netpack.h"
#include "port.h"
#include <pthread.h>
#include <sys/select.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Types ---- */

typedef enum ZEBMSG_LINK_STATUS {
    ZEBMSG_S_UNINITIALIZED = 0,      /* zeroed, never connected, or destroyed */
    ZEBMSG_S_UNLINKED = 1,           /* not connected, or connection lost */
    ZEBMSG_S_AWAITING_HANDSHAKE = 2, /* connected; the server has not answered yet */
    ZEBMSG_S_OPEN = 3                /* the server answered */
} ZEBMSG_LINK_STATUS;

/* How full a queue is, kept by the library. */
typedef struct ZEBMSG_queue_load {
    size_t bytes;  /* estimated memory of the queued messages */
    DWORD dropped; /* messages lost since the queue became full; 0 while nothing is lost */
} ZEBMSG_queue_load;

/* A link; the caller owns the record and zeroes it before its first use. Everything in it belongs
 * to the library; it is public for its size and for diagnostics. */
typedef struct ZEBMSG_link {
    int fh;                   /* the socket, -1 when none */
    int clear_fh;             /* closed socket still to be removed from the loop's sets, or -1 */
    char name[32];            /* this program's name on the server, terminated */
    NETMSG_buffer tx_stream;  /* framing state of the outgoing stream */
    NETMSG_buffer rx_stream;  /* framing state of the incoming stream */
    BYTE tx_buff[256];        /* bytes framed and not yet sent ... */
    size_t tx_buff_size;      /* ... and their number */
    LL_TYPE tx_queue;         /* outgoing messages */
    LL_TYPE rx_queue;         /* received messages that the program's catalogue knows */
    LL_TYPE rx_lib_queue;     /* received messages that the library's catalogue knows */
    ZEBMSG_LINK_STATUS stat;
    double next_hb_time;      /* time of the connect (s since 1970) */
    unsigned int last_hb;     /* index of the last heartbeat; all bits set before the handshake */
    FTIME last_rx_time;       /* when bytes last arrived (s since 1970); follows a set clock */
    LL_TYPE known_insts;      /* of ZEBMSG_known_info, in the order of first announcement */
    pthread_mutex_t mtx;      /* guards every field */
    pthread_t *thd;           /* the servicing thread, which wake-ups go to; null when unknown */
    LL_TYPE cl_rx;            /* the batches being delivered; they belong to the thread ... */
    LL_TYPE cl_rx_lib;        /* ... that is in ZEBMSG_process_messages */
    LL_TYPE cl_lib_cbs;       /* of ZEBMSG_library_msg_process, in the order of registration */
    DWORD msg_filter_next_uid;
    /* The link's own bookkeeping. */
    double clock_offset;      /* wall clock minus steady clock at the last look (s) */
    ZEBMSG_queue_load tx_load;
    ZEBMSG_queue_load rx_load;
    ZEBMSG_queue_load rx_lib_load;
    BOOL insts_full;          /* the full registry has been reported */
} ZEBMSG_link;

typedef struct ZEBMSG_connect_params {
    const char *id_str;        /* the program's name, cut to 31 characters; null for none */
    const char *host_override; /* "host" or "host:port"; null or empty for the local socket */
} ZEBMSG_connect_params;

/* An announced instrument. */
typedef struct ZEBMSG_known_info {
    char name[32];                /* program that announced it, cut to 31 characters */
    NET_SERVER_InstrumentInfo ii; /* its texts may lack a terminator when 32 characters long */
} ZEBMSG_known_info;

/* A message as a callback sees it. Every pointer is borrowed for the duration of the call. */
typedef struct ZEBMSG_proc_msg {
    const NETMSG_entry *msg; /* catalogue row of the type; null when the catalogue lacks it */
    const NETDSD_entry *dsd; /* description of the carried record; null when none is carried */
    DWORD flags;
    char *src_name;  /* sender; null when the server sent none */
    char *dest_name; /* null when none */
    void *pds;       /* the record in the local layout; may be null although dsd is not, when the
                      * sender named a record and attached nothing */
} ZEBMSG_proc_msg;

typedef void (*ZEBMSG_process_message_cb)(ZEBMSG_proc_msg *pm, void *param);
typedef void (*ZEBMSG_process_message_lib_cb)(ZEBMSG_proc_msg *pm, ZEBMSG_link *lnk, void *param);

/* A procedure of a library module that is shown every message of the library's catalogue. */
typedef struct ZEBMSG_library_msg_process {
    ZEBMSG_process_message_lib_cb cb;
    void *param; /* private copy of the caller's block, or null */
} ZEBMSG_library_msg_process;

/* ---- Connecting ---- */

/* Empties the parameters.
 * cp: not null; both texts become null. */
ZEB_API void ZEBMSG_init_params(ZEBMSG_connect_params *cp);

/* Reads the message server's host from the configuration key "RemoteHost".
 * root, local: the whole tree and the program's own subtree, which is asked first; null is skipped.
 * Result: a buffer of 256 bytes that the next call overwrites (one for the whole process), or null
 *   when neither tree has the key. A longer value is cut and reported.
 * Threads: not protected; for set-up. */
ZEB_API char *ZEBMSG_get_host_str(CONF_node *root, CONF_node *local);

/* Connects and starts the link's own servicing thread.
 * cp: not null; see ZEBMSG_multi_connect. Its texts are copied.
 * conn: not null; the caller's, must stay in place until ZEBMSG_disconnect.
 * Result: TRUE, the handshake still to come (ZEBMSG_wait_connected); FALSE when the connection, an
 *   allocation or the thread failed, which is reported; no thread is left then. Before another
 *   attempt call ZEBMSG_disconnect, which closes the socket of the failed one.
 * Threads: the calling thread alone; the link is shared from its return on. The own thread blocks
 *   every signal and sends queued messages within 1 s. When the connection is lost it ends, and the
 *   status keeps its last value. */
ZEB_API BOOL ZEBMSG_connect(ZEBMSG_connect_params *cp, ZEBMSG_link *conn);

/* Prepares the link, connects, and queues the handshake; the caller's loop does the rest.
 * cp: not null. id_str becomes the program's name. The server is, in this order, the one named by
 *   the environment variable "ZEB2SERVER", the one of host_override, or the local socket
 *   ".mainsocket" in "/var/run/zeb" (or in the directory that the environment variable "ZEB2RUN"
 *   names). A remote server is "host" (port 8567) or "host:port", cut to 255 characters; IPv4 only.
 * conn: not null; every field is set, whatever it held.
 * Result: TRUE with status AWAITING_HANDSHAKE; FALSE with status UNLINKED when the host is unknown,
 *   the socket cannot be made, has a number too high for a select set, or does not connect (each
 *   reported). An attempt that nobody accepts ends after 30 s.
 * Threads: the calling thread alone; the link must not be in use. */
ZEB_API BOOL ZEBMSG_multi_connect(ZEBMSG_connect_params *cp, ZEBMSG_link *conn);

/* ---- The select loop ----
 *
 * Once:        ZEBMSG_dispatch_init
 * each cycle:  ZEBMSG_dispatch_pre_select, copy both sets, pselect,
 *              ZEBMSG_dispatch_post_select when descriptors are ready, else
 *              ZEBMSG_dispatch_loop_continue
 * until one returns FALSE: the link is lost and needs no more service. For all of them:
 * lnk: not null.
 * rx_fds, tx_fds: the loop's own ("master") sets of reading and writing interest; not null.
 * fd_max: the highest descriptor of interest, -1 or more; not null; raised, never lowered.
 * Threads: the loop's thread; the link's mutex is held throughout. None of them ever waits. */

/* Puts the socket into both sets.
 * parent_thd: the loop's thread, to be woken with SIGUSR1 when the link is to be closed; borrowed
 *   until the link is destroyed. Null: nobody is woken. A thread already known is kept.
 * Result: TRUE. */
ZEB_API BOOL ZEBMSG_dispatch_init(ZEBMSG_link *lnk, fd_set *rx_fds, fd_set *tx_fds, int *fd_max,
                                  pthread_t *parent_thd);

/* Updates the sets; removes a socket that was closed meanwhile, and only then makes the status
 * UNLINKED. Writing is of interest while anything waits to be sent.
 * Result: TRUE. */
ZEB_API BOOL ZEBMSG_dispatch_pre_select(ZEBMSG_link *lnk, fd_set *rx_fds, fd_set *tx_fds,
                                        int *fd_max);

/* Receives at most 256 bytes and sends at most 256.
 * sel_rx_fds, sel_tx_fds: the sets as pselect left them; not null.
 * Result: FALSE when the connection was lost: error, end of stream, the server's farewell, or more
 *   than 30 s without a byte. The socket is then closed and out of the master sets. */
ZEB_API BOOL ZEBMSG_dispatch_post_select(ZEBMSG_link *lnk, fd_set *rx_fds, fd_set *tx_fds,
                                         fd_set *sel_rx_fds, fd_set *sel_tx_fds, int *fd_max);

/* Looks after the time; for a cycle without ready descriptors.
 * Result: FALSE when the link was closed for more than 30 s without a byte. */
ZEB_API BOOL ZEBMSG_dispatch_loop_continue(ZEBMSG_link *lnk, fd_set *rx_fds, fd_set *tx_fds,
                                           int *fd_max);

/* ---- State ---- */

/* Tells whether the link is open.
 * lnk: not null; may be zeroed.
 * Result: TRUE exactly when the status is OPEN.
 * Threads: any; takes the link's mutex. */
ZEB_API BOOL ZEBMSG_test_connected(ZEBMSG_link *lnk);

/* Tells how far the link is.
 * lnk: not null; may be zeroed.
 * Result: 1 open, 0 awaiting the handshake, -1 not connected.
 * Threads: any; takes the link's mutex. */
ZEB_API int ZEBMSG_test_connected_ext(ZEBMSG_link *lnk);

/* Waits for the server's handshake.
 * lnk: not null; somebody must be servicing it.
 * Result: TRUE once open; FALSE when the link is not connected or was lost. No time limit of its
 *   own: the 30 s of silence end the wait for a mute server.
 * Threads: any but the servicing thread; takes the link's mutex for each look. */
ZEB_API BOOL ZEBMSG_wait_connected(ZEBMSG_link *lnk);

/* ---- Disconnecting ---- */

/* Ends a link of ZEBMSG_connect: tells the server, stops the own thread, releases everything.
 * lnk: not null. A zeroed or destroyed link is left alone, one whose connect failed is released.
 *   Received messages not yet delivered are freed.
 * Result: none; takes at most about 3 s. A thread that cannot be stopped is reported, and the link
 *   then stays as it is.
 * Threads: one caller, not the servicing thread, not from within a callback. */
ZEB_API void ZEBMSG_disconnect(ZEBMSG_link *lnk);

/* Tells the server that the program leaves, and closes: messages still queued are discarded, the
 * farewell has 2 s to go out.
 * lnk: not null; nothing happens unless it is connected.
 * Threads: any but the servicing thread, which goes on with its cycles meanwhile; takes the link's
 *   mutex for short spells and wakes the servicing thread. */
ZEB_API void ZEBMSG_multi_disconnect(ZEBMSG_link *lnk);

/* Releases everything that the link holds; its status becomes UNINITIALIZED.
 * lnk: not null; connected once, successfully or not.
 * Threads: one caller, after the servicing thread has stopped; takes no lock. */
ZEB_API void ZEBMSG_multi_destroy(ZEBMSG_link *lnk);

/* ---- Sending ---- */

/* Queues a message of the program's catalogue; it leaves with the servicing thread's next cycle
 * (0.05 s in an instrument's loop, 1 s with the own thread).
 * lnk: not null; also before the handshake. On a lost link messages wait in vain.
 * type: of the catalogue; another is reported when the message is packed, and dropped.
 * flags: 1 publish to every client, 2 the server also keeps the latest for clients to come, 0 to
 *   the destination only.
 * dest_name: the receiver's name; null or empty for the server.
 * pds, sz_ds, ds_name: the record, its size in bytes and its name in the catalogue, which must be
 *   the one that the catalogue ties to the type; all null and 0 for a message without a record.
 *   Copied.
 * Result: none. A full queue refuses, see above.
 * Threads: any; takes the link's mutex. */
ZEB_API void ZEBMSG_queue_message(ZEBMSG_link *lnk, NETMSG_type type, DWORD flags,
                                  const char *dest_name, const void *pds, size_t sz_ds,
                                  const char *ds_name);

/* Queues a message of the library's own catalogue; for modules of the library.
 * do_lock: FALSE when the caller holds the link's mutex. The rest as above. */
ZEB_API void ZEBMSG_queue_message_lib(ZEBMSG_link *lnk, NETMSG_type type, DWORD flags,
                                      const char *dest_name, const void *pds, size_t sz_ds,
                                      const char *ds_name, BOOL do_lock);

/* ---- Filters: what the server is asked to deliver to this program ---- */

/* Asks the server for a rule. The server keeps the rules in the order added; the first that matches
 * decides, and without a match a message is accepted unless there are accepting rules.
 * lnk: not null.
 * accept: TRUE to accept what matches, FALSE to reject it.
 * src_match, dest_match: patterns ("*", "?") for the names of sender and receiver, at most 31
 *   characters; null or empty matches anything, as for the texts below.
 * msg_type_match: a message type; below 0 any.
 * inst_type_match: pattern for the sender's announced instrument type, at most 31 characters.
 * tag_matches, msg_metatype_matches: patterns for the sender's tags and the message's class, at
 *   most 255 characters.
 * Result: the rule's number, 1, 2, 3 ... on one link.
 * Threads: numbering is not protected: for set-up, or one thread. Queues with the mutex taken. */
ZEB_API DWORD ZEBMSG_add_filter(ZEBMSG_link *lnk, BOOL accept, const char *src_match,
                                const char *dest_match, int msg_type_match,
                                const char *inst_type_match, const char *tag_matches,
                                const char *msg_metatype_matches);

/* Asks the server to forget one rule.
 * lnk: not null. uid: its number.
 * Threads: any; takes the link's mutex. */
ZEB_API void ZEBMSG_delete_filter(ZEBMSG_link *lnk, DWORD uid);

/* Asks the server to forget all rules of this program.
 * lnk: not null.
 * Threads: any; takes the link's mutex. */
ZEB_API void ZEBMSG_clear_filters(ZEBMSG_link *lnk);

/* ---- Receiving ---- */

/* Adds a procedure of a library module that sees every message of the library's catalogue.
 * lnk: not null, connected. cb: not null.
 * param, sz_param: a block of sz_param bytes that is copied and given to cb; null or 0 gives null.
 *   The copy lives until the link is destroyed.
 * Result: none; a failed allocation is reported and nothing is registered.
 * Threads: not protected: for set-up, before messages are processed. */
ZEB_API void ZEBMSG_register_library_msg_proc(ZEBMSG_link *lnk, ZEBMSG_process_message_lib_cb cb,
                                              const void *param, size_t sz_param);

/* Makes the form that callbacks see, with the program's catalogue or (_lib) the library's.
 * msg: not null; pm borrows its texts and its record. lnk: not used.
 * pm: not null; filled as far as possible.
 * Result: FALSE, reported, when the catalogue lacks the type or the record.
 * Threads: any. */
ZEB_API BOOL ZEBMSG_netpack_to_zebmsgproc(NETPACK_message *msg, ZEBMSG_link *lnk,
                                          ZEBMSG_proc_msg *pm);
ZEB_API BOOL ZEBMSG_netpack_to_zebmsgproc_lib(NETPACK_message *msg, ZEBMSG_link *lnk,
                                              ZEBMSG_proc_msg *pm);

/* Delivers everything received so far, in order of arrival: first the whole batch to the program's
 * callback, then the messages of the library's catalogue to each library procedure. A message known
 * to both catalogues is delivered to both. Messages that arrive meanwhile wait for the next call.
 * lnk: not null. cb: the program's callback; null to discard its messages. param: given to cb.
 * Threads: one caller at a time, and not from within a callback; the link's mutex is free while
 *   callbacks run, so they may queue messages. They must not disconnect the link. */
ZEB_API void ZEBMSG_process_messages(ZEBMSG_link *lnk, ZEBMSG_process_message_cb cb, void *param);

/* ---- Instruments and tags ---- */

/* Zeroes an announcement. ii: not null. */
ZEB_API void ZEBMSG_register_init(NET_SERVER_InstrumentInfo *ii);

/* Reads an announcement's tags from the configuration key "Tags": at most eight texts between ";",
 * without the blanks around them, each cut to 31 characters.
 * ii: not null; entries beyond the last text keep what they hold.
 * root: not used. local: the program's subtree; null or without the key changes nothing.
 * Threads: any that may read the tree. */
ZEB_API void ZEBMSG_do_tags(NET_SERVER_InstrumentInfo *ii, CONF_node *root, CONF_node *local);

/* Announces the program's instrument to all programs, present and to come.
 * lnk: not null. ii: copied; null queues an announcement without a record, which is reported when
 *   it is packed, and dropped.
 * Threads: any; takes the link's mutex. */
ZEB_API void ZEBMSG_register_instrument(ZEBMSG_link *lnk, const NET_SERVER_InstrumentInfo *ii);

/* Finds the announcement of a program.
 * lnk, name: not null; case matters. ii: receives a copy when found; may be null.
 * Result: TRUE when found; with a null name FALSE, reported.
 * Threads: any; takes the link's mutex. */
ZEB_API BOOL ZEBMSG_instrument_info_by_name(ZEBMSG_link *lnk, const char *name,
                                            NET_SERVER_InstrumentInfo *ii);

/* Finds the instrument that carries a tag; of several the one announced first.
 * lnk, tag: not null; case matters. ii: receives a copy; may be null.
 * inst_name: array of 32 characters for the program's name; may be null.
 * Result: TRUE when found; with a null tag FALSE, reported.
 * Threads: any; takes the link's mutex. */
ZEB_API BOOL ZEBMSG_instrument_info_by_tag(ZEBMSG_link *lnk, const char *tag,
                                           NET_SERVER_InstrumentInfo *ii, char *inst_name);

/* The name of the program whose instrument carries a tag.
 * lnk, tag: not null; case matters.
 * Result: one buffer of 32 characters for the whole process that the next call overwrites; null
 *   when nobody carries the tag.
 * Threads: the buffer is not protected: one thread; takes the link's mutex. */
ZEB_API char *ZEBMSG_name_for_tag(ZEBMSG_link *lnk, const char *tag);

/* Tells whether the instrument of a program carries a tag.
 * lnk, name, tag: not null; case matters.
 * Result: TRUE when it does; FALSE also for an unknown program.
 * Threads: any; takes the link's mutex. */
ZEB_API BOOL ZEBMSG_filter_name_and_tag(ZEBMSG_link *lnk, const char *name, const char *tag);

/* Publishes one line for the station's monitor.
 * lnk: not null. flags: kind of the message. rectime: time that it is about (s since 1970).
 * fmt: format of SFMT_altprintf and its arguments; not null. The text is cut to 8191 characters.
 * Threads: any; takes the link's mutex. */
ZEB_API void ZEBMSG_writemonitor(ZEBMSG_link *lnk, BYTE flags, FTIME rectime, const char *fmt, ...);

#ifdef __cplusplus
}
#endif
#endif

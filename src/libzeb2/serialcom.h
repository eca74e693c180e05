/* serialcom.h - the link to the station's serial-port server.
 *
 * Drivers do not open serial ports: the server owns them, and a link is one connection to it, bound
 * to one port, that carries one request at a time. One thread services the socket: the link's own
 * (SERIALCOM_connect), or any select loop that drives the four dispatch hooks
 * (SERIALCOM_multi_connect). The bytes of the connection: docs/formats/serial.md.
 *
 *   SERIALD_connect_params cp;
 *   SERIALD_port_params pps;
 *   SERIALCOM_link lnk;
 *   char line[256];
 *   memset(&lnk, 0, sizeof lnk);
 *   SERIALCOM_breakdown_port_string("ttyS0:9600n81", &cp, &pps);
 *   if (SERIALCOM_connect(&cp, &lnk) && SERIALCOM_wait_connected(&lnk)) {
 *       SERIALCOM_set_port_params(&lnk, &pps);
 *       if (SERIALCOM_issue_write_string(&lnk, "RD\r") &&
 *           SERIALCOM_read_until_string(&lnk, "\r", 2.0, -1.0, line, sizeof line) >= 0)
 *           take(line); // what the instrument answered
 *   }
 *   SERIALCOM_disconnect(&lnk);
 *
 * The link sends a heartbeat every second; a server from which nothing has come for 30 s is taken
 * for dead. Setting the wall clock meanwhile neither closes a link nor hides a dead server. Nothing
 * reconnects by itself. Failures are reported on standard error; a null pointer where "not null" is
 * said is reported as a failed assertion and the call does nothing.
 *
 * Threads: a link's mutex guards it; every function below may be called from any thread unless its
 * block says otherwise, and none may be called with the mutex held. Callers that share a link must
 * take turns: a second request overwrites one that is not finished.
 */
#ifndef ZEB2_SERIALCOM_H
#define ZEB2_SERIALCOM_H

#include "netmsg.h"
#include "port.h"
#include <pthread.h>
#include <sys/select.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Wire records: little-endian, without padding but where shown ---- */

#pragma pack(push, 4)

typedef enum SERIALD_REQUEST_TYPE ZEB_ENUM32 {
    SERIALD_REQUEST_HEARTBEAT = 0,       /* sent by the link itself */
    SERIALD_REQUEST_CLOSE = 1,           /* sent by the link itself: it ends */
    SERIALD_REQUEST_READNEW = 2,         /* what arrived since the last read, at once */
    SERIALD_REQUEST_READNEW_ECHO = 3,    /* what other clients wrote since the last echo read */
    SERIALD_REQUEST_READUNTIL = 4,       /* up to and with the first stop character */
    SERIALD_REQUEST_READUNTIL_EMPTY = 5, /* the same, after the buffer was emptied */
    SERIALD_REQUEST_READBURST = 6,       /* up to the first silence */
    SERIALD_REQUEST_FLUSH = 7,           /* input is discarded until a silence */
    SERIALD_REQUEST_RESET = 8,           /* the device is closed and opened again */
    SERIALD_REQUEST_SET_PORT_PARAMS = 9, /* carries SERIALD_port_params */
    SERIALD_REQUEST_SET_INT_PARAMS = 10, /* carries SERIALD_int_params */
    SERIALD_REQUEST_WRITE = 11,          /* carries the bytes; answered when queued */
    SERIALD_REQUEST_BLOCKING_WRITE = 12, /* carries the bytes; answered when they are out */
    SERIALD_REQUEST_ADD_REPEATER = 13,   /* carries SERIALD_repeater_add */
    SERIALD_REQUEST_DEL_REPEATER = 14    /* carries SERIALD_repeater_delete */
} SERIALD_REQUEST_TYPE;

typedef enum SERIALD_RESP_TYPE ZEB_ENUM32 {
    SERIALD_RESP_HEARTBEAT = 0, /* answers no request */
    SERIALD_RESP_SUCCESS = 1,   /* may carry data */
    SERIALD_RESP_FAILURE = 2
} SERIALD_RESP_TYPE;

/* The handshake of a client: 256 bytes. */
typedef struct SERIALD_connect_params {
    char port_name[256]; /* "=" and a configured name or a path, or a device of /dev; terminated */
} SERIALD_connect_params;

/* A request: these 20 bytes, then its data to the end of the frame. */
typedef struct SERIALD_request_header {
    SERIALD_REQUEST_TYPE type;
    double timeout;       /* s; below 0 no limit */
    double burst_timeout; /* s of silence that end a burst; 0 or below none */
} SERIALD_request_header;

/* A response: these 4 bytes, then its data to the end of the frame. */
typedef struct SERIALD_resp_header {
    SERIALD_RESP_TYPE type;
} SERIALD_resp_header;

/* The settings of a line: 8 bytes. */
typedef struct SERIALD_port_params {
    DWORD baud;     /* bits per second */
    BYTE bits;      /* data bits of a character */
    BYTE parity;    /* 0 none, 1 odd, 2 even */
    BYTE stop_bits; /* 1 or 2 */
    BYTE flow_cont; /* flow control, 0 none */
} SERIALD_port_params;

/* The server's own settings for a port: 12 bytes. */
typedef struct SERIALD_int_params {
    DWORD max_buffer_size; /* bytes of input kept for a client; the oldest go first */
    DWORD max_echo_size;   /* bytes of other clients' output kept for a client */
    BOOL exclusive_mode;   /* TRUE: requests of other clients fail */
    BYTE padding[3];       /* 0 */
} SERIALD_int_params;

/* A file or pipe to which the server appends the port's traffic: 258 bytes. */
typedef struct SERIALD_repeater_add {
    BYTE mode;          /* 1 input, 2 output, 3 both */
    char filename[256]; /* on the server's host; terminated */
    BOOL line_buffer;   /* TRUE: written line by line */
} SERIALD_repeater_add;

/* A repeater to end: 256 bytes. */
typedef struct SERIALD_repeater_delete {
    char filename[256]; /* as it was added; terminated */
} SERIALD_repeater_delete;

#pragma pack(pop)

/* ---- The link ---- */

typedef enum SERIALCOM_LINK_STATUS {
    SERIALCOM_S_UNINITIALIZED = 0,      /* zeroed, not connected, or destroyed */
    SERIALCOM_S_UNLINKED = 1,           /* connection lost */
    SERIALCOM_S_SEND_HANDSHAKE = 2,     /* connected; the handshake is still to be sent */
    SERIALCOM_S_AWAITING_HANDSHAKE = 3, /* sent; the server has not answered yet */
    SERIALCOM_S_OPEN = 4,               /* requests and heartbeats flow */
    SERIALCOM_S_NOTIFY_CLOSE = 5,       /* the closing request is to be sent */
    SERIALCOM_S_CLOSE_WAIT_NO_TX = 6,   /* framed; it waits for the socket */
    SERIALCOM_S_CLOSE_DONE = 7          /* everything is out */
} SERIALCOM_LINK_STATUS;

typedef enum SERIALCOM_REQUEST_STATUS {
    SERIALCOM_RS_NONE = 0,    /* no request since the connect */
    SERIALCOM_RS_START = 1,   /* issued, not yet sent */
    SERIALCOM_RS_SENT = 2,    /* the answer is awaited */
    SERIALCOM_RS_DONE = 3,    /* never set; every value from here on is finished */
    SERIALCOM_RS_FAILURE = 4, /* the server refused, or the request could not be sent */
    SERIALCOM_RS_SUCCESS = 5
} SERIALCOM_REQUEST_STATUS;

/* A link; the caller owns the record and zeroes it before its first use. Everything in it belongs
 * to the library; it is public for its size and for diagnostics. */
typedef struct SERIALCOM_link {
    int fh;                     /* the socket, -1 when none */
    int clear_fh;               /* closed socket still to be removed from the sets, or -1 */
    SERIALD_connect_params cps; /* the port, which is the handshake */
    SERIALD_port_params pps;    /* for burst time-outs: 9600n81, whatever the port is set to */
    NETMSG_buffer rx;           /* framing state of the incoming stream */
    NETMSG_buffer tx;           /* framing state of the outgoing stream */
    BYTE tx_buff[256];          /* bytes framed and not yet sent ... */
    size_t tx_buff_size;        /* ... and their number */
    SERIALCOM_LINK_STATUS stat;
    FTIME last_rx_time; /* when bytes last arrived (s since 1970); follows a set clock */
    FTIME next_hb_time; /* when the next heartbeat is due; as above */
    SERIALCOM_REQUEST_STATUS rq_stat; /* of the one request in flight ... */
    SERIALD_request_header rq_header; /* ... and its header */
    SERIALD_resp_header resp_header;  /* zero */
    BYTE *r_buffer;                   /* the request's data, then the response's; or null */
    size_t r_buffer_size;             /* bytes of them */
    size_t r_buffer_max;              /* capacity, which only grows, to a power of two */
    pthread_mutex_t mtx;              /* guards every field */
    pthread_cond_t req_cond;          /* a request is finished, or the link is lost */
    pthread_t *thd;                   /* the servicing thread, which wake-ups go to; or null */
    double clock_offset;              /* wall clock minus steady clock at the last look (s) */
} SERIALCOM_link;

/* What the link knows while it takes one received piece apart. */
typedef struct SERIALCOM_recv_param {
    SERIALCOM_link *lnk;
    fd_set *rx_fds; /* the loop's own sets ... */
    fd_set *tx_fds; /* ... */
    BOOL stat;      /* FALSE once the link was lost meanwhile */
} SERIALCOM_recv_param;

/* Takes a port string apart.
 * str: not null; one of
 *     =NAME          "=" and at least one character: the name as it stands, "=" included; the
 *                    settings stay zero, the server knows them
 *     NAME:SETTINGS  the device NAME, which ends at the first ":", blank, tab or line end, and
 *                    decimal baud, parity ("o" odd, "e" even in either case, any other character
 *                    none), one digit of data bits, one of stop bits: ttyS0:9600n81. What follows
 *                    is ignored.
 * sc_params, port_params: not null; zeroed, then filled in. The name is cut to 255 characters, flow
 *   control is none. Of no use after a failure.
 * Result: FALSE for anything else: no separator, fewer than four characters from it to the end, a
 *   baud of 0 or beyond 32 bits, or one of the three characters missing.
 * Threads: any. */
ZEB_API BOOL SERIALCOM_breakdown_port_string(const char *str, SERIALD_connect_params *sc_params,
                                             SERIALD_port_params *port_params);
/* A burst time-out that suits the link's assumed settings, in seconds:
 *     (data bits + 1 with parity + stop bits) / baud + 0.02
 * which is one character and 20 ms. SERIALCOM_set_port_params does not change what is assumed, so
 * it is 0.0209375 on every connected link.
 * lnk: not null; connected once. Null gives 0.02.
 * Threads: any; takes the link's mutex. */
ZEB_API double SERIALCOM_burst_timeout(SERIALCOM_link *lnk);

/* ---- Connecting ---- */

/* Prepares the link and connects; the caller's loop sends the handshake and does the rest.
 * cp: not null; copied. Its port_name is cut to 255 characters.
 * conn: not null; every field is set, whatever it held; must stay in place until it is destroyed.
 * Result: TRUE with status SEND_HANDSHAKE. FALSE when the socket cannot be made, has a number too
 *   high for a select set, or does not connect to ".serialdsocket" in "/var/run/zeb" (or in the
 *   directory that the environment variable "ZEB2RUN" names), each reported: the status is then
 *   UNINITIALIZED, and SERIALCOM_multi_destroy closes what is open. FALSE also when the mutex or
 *   the condition variable cannot be made. An attempt that nobody accepts ends after 30 s.
 * Threads: the calling thread alone; the link must not be in use. */
ZEB_API BOOL SERIALCOM_multi_connect(SERIALD_connect_params *cp, SERIALCOM_link *conn);
/* The same, and starts the link's own servicing thread.
 * cp, conn: as above.
 * Result: TRUE, the handshake still to come (SERIALCOM_wait_connected); FALSE as above, or when the
 *   thread failed, which is reported: then the link is connected and SERIALCOM_disconnect ends it.
 * Threads: the calling thread alone; the link is shared from its return on. The own thread takes no
 *   signal but SIGUSR1, for which it installs UTIL_empty_sighandler. It ends when the link is lost.
 */
ZEB_API BOOL SERIALCOM_connect(SERIALD_connect_params *cp, SERIALCOM_link *conn);
/* Tells whether requests can be issued.
 * lnk: not null; may be zeroed.
 * Result: TRUE exactly when the status is OPEN.
 * Threads: any; takes the link's mutex. */
ZEB_API BOOL SERIALCOM_test_connected(SERIALCOM_link *lnk);
/* Tells how far the link is.
 * lnk: not null; may be zeroed.
 * Result: 1 open, 0 while the handshake runs, -1 not connected or closing.
 * Threads: any; takes the link's mutex. */
ZEB_API int SERIALCOM_test_connected_ext(SERIALCOM_link *lnk);
/* Waits for the server to answer the handshake.
 * lnk: not null; somebody must be servicing it.
 * Result: TRUE once open; FALSE when the link is not connected or was lost. No time limit of its
 *   own: the 30 s of silence end the wait for a mute server.
 * Threads: any but the servicing thread; takes the link's mutex for each look. */
ZEB_API BOOL SERIALCOM_wait_connected(SERIALCOM_link *lnk);
/* Tells the server that the link ends; the request has 2 s to go out. The socket stays open.
 * lnk: not null; nothing happens unless it is connected and not closing.
 * Threads: any but the servicing thread, which goes on with its cycles meanwhile; takes the link's
 *   mutex for short spells and wakes the servicing thread. */
ZEB_API void SERIALCOM_multi_disconnect(SERIALCOM_link *lnk);
/* Closes the socket and releases what the link holds; its status becomes UNINITIALIZED.
 * lnk: not null. A zeroed or destroyed link is left alone.
 * Threads: one caller, after the servicing thread has stopped and nobody waits any more; takes the
 *   link's mutex, which is not destroyed. */
ZEB_API void SERIALCOM_multi_destroy(SERIALCOM_link *lnk);
/* Ends a link of SERIALCOM_connect: tells the server, stops the own thread, releases everything.
 * lnk: not null. An UNINITIALIZED link is left alone. Of a link that is UNLINKED already, the ended
 *   thread is not joined and thd stays allocated: a caller that connects again and again joins and
 *   frees it itself.
 * Result: none; takes at most about 2 s. A thread that cannot be stopped is reported, and the link
 *   then stays as it is.
 * Threads: one caller, not the servicing thread; no other thread may use the link any more. */
ZEB_API void SERIALCOM_disconnect(SERIALCOM_link *lnk);

/* ---- The select loop ----
 *
 * Once:        SERIALCOM_dispatch_init
 * each cycle:  SERIALCOM_dispatch_pre_select, copy both sets, pselect,
 *              SERIALCOM_dispatch_post_select when descriptors are ready, else
 *              SERIALCOM_dispatch_loop_continue
 * until one returns FALSE: the link is UNLINKED, its socket closed and out of the sets, and it
 * needs no more service. For all of them: lnk: not null. rx_fds, tx_fds: the loop's own ("master")
 * sets of reading and writing interest; not null. fd_max: the highest descriptor of interest, -1 or
 * more; not null in the first two; raised, never lowered. Threads: the loop's thread; the link's
 * mutex is held throughout. None of them ever waits. SIGUSR1 must interrupt the loop's pselect:
 * that is how a request leaves at once. */

/* Puts the socket into both sets.
 * parent_thd: the loop's thread, to be woken with SIGUSR1; borrowed until the link is destroyed.
 *   Null: nobody is woken, requests leave with the next cycle. A thread already known is kept.
 * Result: TRUE. */
ZEB_API BOOL SERIALCOM_dispatch_init(SERIALCOM_link *lnk, fd_set *rx_fds, fd_set *tx_fds,
                                     int *fd_max, pthread_t *parent_thd);
/* Updates the sets; writing is of interest while anything waits to be sent. A socket that was
 * closed meanwhile is removed, and nothing else is done in that call. Result: TRUE. */
ZEB_API BOOL SERIALCOM_dispatch_pre_select(SERIALCOM_link *lnk, fd_set *rx_fds, fd_set *tx_fds,
                                           int *fd_max);
/* Receives at most 256 bytes and sends at most 256.
 * sel_rx_fds, sel_tx_fds: the sets as pselect left them; not null. fd_max: not used.
 * Result: FALSE when the link was lost: an error, the end of the stream, a refused handshake, or
 *   30 s without a byte. */
ZEB_API BOOL SERIALCOM_dispatch_post_select(SERIALCOM_link *lnk, fd_set *rx_fds, fd_set *tx_fds,
                                            fd_set *sel_rx_fds, fd_set *sel_tx_fds, int *fd_max);
/* Looks after the time; for a cycle without ready descriptors.
 * fd_max: not used.
 * Result: FALSE when the link was lost: 30 s without a byte. */
ZEB_API BOOL SERIALCOM_dispatch_loop_continue(SERIALCOM_link *lnk, fd_set *rx_fds, fd_set *tx_fds,
                                              int *fd_max);

/* ---- Requests: the core ----
 *
 * Time-outs are seconds that the server keeps; the link itself gives a request up only when it is
 * lost. Its outcome stays until the next is issued. */

/* Starts a request and wakes the servicing thread; does not wait.
 * lnk: not null; unless it is OPEN the request is refused with a report and nothing changes.
 * rqt: one of the types; others are sent as they are.
 * timeout, burst_timeout: s, passed on unchanged.
 * data, szdata: the bytes behind the header, copied; null or 0 for none. More than a packet holds
 *   (NETMSG_PAYLOAD_LIMIT less 21) is reported, and the request is finished as a FAILURE. Without
 *   memory the request goes out without its data, which is reported.
 * Threads: any; takes the link's mutex. */
ZEB_API void SERIALCOM_issue_request(SERIALCOM_link *lnk, SERIALD_REQUEST_TYPE rqt, double timeout,
                                     double burst_timeout, const void *data, size_t szdata);
/* Tells whether the last request is finished, without looking at the link.
 * lnk: not null.
 * Result: TRUE also when there was none.
 * Threads: any; takes the link's mutex. */
ZEB_API BOOL SERIALCOM_poll_request_done(SERIALCOM_link *lnk);
/* Tells whether the last request has succeeded and the link is OPEN.
 * lnk: not null.
 * Threads: any; takes the link's mutex. */
ZEB_API BOOL SERIALCOM_poll_request_success(SERIALCOM_link *lnk);
/* Waits until the last request is finished, the link is lost, or the process is told to exit
 * (UTIL_exit_poll, asked every 0.05 s).
 * lnk: not null; somebody must be servicing it.
 * Result: TRUE only for a success on an OPEN link.
 * Threads: any but the servicing thread; takes the link's mutex, free while it sleeps. */
ZEB_API BOOL SERIALCOM_wait_request_done(SERIALCOM_link *lnk);
/* Copies the data of the last response, and a NUL behind.
 * lnk: not null.
 * dest: array of szdest bytes, not null; szdest: at least 1. More data is cut without notice. With
 *   no array nothing is written, reported, and the result is 0.
 * Result: bytes copied, at most szdest - 1, without the NUL. (size_t)-1 unless the last request has
 *   succeeded and the link is OPEN; and when neither a request nor a response of this link has yet
 *   carried data, as then there is no buffer.
 * Threads: any; takes the link's mutex. */
ZEB_API size_t SERIALCOM_retrive_request_data(SERIALCOM_link *lnk, BYTE *dest, size_t szdest);

/* ---- Requests ----
 *
 * For all of them:
 * lnk: not null. Texts and records: not null, reported, and nothing is issued. Texts go without
 *   their terminator.
 * timeout: s until the server gives up; below 0 no limit. burst_timeout: s of silence that end the
 *   input; 0 or below none. What the server makes of them: docs/formats/serial.md.
 * dest, sz_dest: as for SERIALCOM_retrive_request_data.
 * Result: of a BOOL TRUE when the server answered with success; of a long the bytes read, or -1. It
 *   is FALSE or -1 when the server refused or gave up, the link is down or was lost, or the process
 *   was told to exit. Functions named issue_read and issue_flush return at once: go on with
 *   SERIALCOM_wait_request_done or SERIALCOM_poll_request_done, and then with
 *   SERIALCOM_retrive_request_data. All others wait for the answer.
 * Threads: any but the servicing thread, one at a time. */

/* Discards input until a silence of burst_timeout, or for timeout. */
ZEB_API void SERIALCOM_issue_flush(SERIALCOM_link *lnk, double timeout, double burst_timeout);
ZEB_API BOOL SERIALCOM_flush(SERIALCOM_link *lnk, double timeout, double burst_timeout);
/* Makes the server close and open the device. */
ZEB_API BOOL SERIALCOM_reset(SERIALCOM_link *lnk);
/* Writes n bytes; waits for the answer, which comes when the server has queued them.
 * data: n bytes, null only when that is 0. */
ZEB_API BOOL SERIALCOM_issue_write(SERIALCOM_link *lnk, const void *data, size_t n);
ZEB_API BOOL SERIALCOM_issue_write_string(SERIALCOM_link *lnk, const char *s);
/* Writes n bytes; the answer comes when they are on the line, or as a failure after timeout. */
ZEB_API BOOL SERIALCOM_write_blocking(SERIALCOM_link *lnk, const void *data, size_t n,
                                      double timeout);
ZEB_API BOOL SERIALCOM_write_string_blocking(SERIALCOM_link *lnk, const char *s, double timeout);
/* What arrived since this link's last read, which may be nothing. */
ZEB_API long SERIALCOM_read_new(SERIALCOM_link *lnk, void *dest, size_t sz_dest);
/* What other clients wrote to the port since this link's last echo read. */
ZEB_API long SERIALCOM_read_new_echo(SERIALCOM_link *lnk, void *dest, size_t sz_dest);
/* Input up to and including the first of the stop characters.
 * stop_chars: n bytes, or the characters of stop_chars_str. */
ZEB_API void SERIALCOM_issue_read_until(SERIALCOM_link *lnk, const void *stop_chars, size_t n,
                                        double timeout, double burst_timeout);
ZEB_API void SERIALCOM_issue_read_until_string(SERIALCOM_link *lnk, const char *stop_chars_str,
                                               double timeout, double burst_timeout);
ZEB_API long SERIALCOM_read_until(SERIALCOM_link *lnk, const void *stop_chars, size_t n,
                                  double timeout, double burst_timeout, void *dest, size_t sz_dest);
ZEB_API long SERIALCOM_read_until_string(SERIALCOM_link *lnk, const char *stop_chars_str,
                                         double timeout, double burst_timeout, void *dest,
                                         size_t sz_dest);
/* The same, of what arrives from now on: older input is discarded. */
ZEB_API void SERIALCOM_issue_read_until_empty(SERIALCOM_link *lnk, const void *stop_chars, size_t n,
                                              double timeout, double burst_timeout);
ZEB_API void SERIALCOM_issue_read_until_empty_string(SERIALCOM_link *lnk,
                                                     const char *stop_chars_str, double timeout,
                                                     double burst_timeout);
ZEB_API long SERIALCOM_read_until_empty(SERIALCOM_link *lnk, const void *stop_chars, size_t n,
                                        double timeout, double burst_timeout, void *dest,
                                        size_t sz_dest);
ZEB_API long SERIALCOM_read_until_empty_string(SERIALCOM_link *lnk, const char *stop_chars_str,
                                               double timeout, double burst_timeout, void *dest,
                                               size_t sz_dest);
/* Input up to the first silence of burst_timeout; timeout limits the wait for its first byte. */
ZEB_API void SERIALCOM_issue_read_burst(SERIALCOM_link *lnk, double timeout, double burst_timeout);
ZEB_API long SERIALCOM_read_burst(SERIALCOM_link *lnk, double timeout, double burst_timeout,
                                  void *dest, size_t sz_dest);
/* Sets the line. The outcome is not told.
 * pps: copied; the link's own assumption about the line stays. */
ZEB_API void SERIALCOM_set_port_params(SERIALCOM_link *lnk, const SERIALD_port_params *pps);
/* Sets the server's buffers and the exclusive use of the port. The outcome is not told.
 * ips: copied. */
ZEB_API void SERIALCOM_set_int_params(SERIALCOM_link *lnk, const SERIALD_int_params *ips);
/* Has the port's traffic appended to a file or pipe on the server's host. The outcome is not told.
 * filename: cut to 255 characters. mode: 1 input, 2 output, 3 both. line_buffer: TRUE to write line
 *   by line. */
ZEB_API void SERIALCOM_add_repeater(SERIALCOM_link *lnk, const char *filename, BYTE mode,
                                    BOOL line_buffer);
/* Ends a repeater. The outcome is not told.
 * filename: as it was added. */
ZEB_API void SERIALCOM_delete_repeater(SERIALCOM_link *lnk, const char *filename);

#ifdef __cplusplus
}
#endif
#endif

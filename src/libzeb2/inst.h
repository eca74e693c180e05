/* inst.h - one dispatch thread for everything that an instrument daemon talks to.
 *
 * The link to the message server, the serial line of the instrument, a second serial line on which
 * written log lines are echoed, any number of further serial lines, and the buffered descriptors:
 * connected together, serviced by one thread.
 *
 *   INST_link inst;
 *   // LIBZEB_init, UTIL_exit_signal_poll_setup, fill msg and port
 *   if (INST_connect(&inst, &msg, &port, NULL, NULL, NULL) && INST_wait_connected(&inst)) {
 *       UTIL_startupokay();
 *       while (INST_sleep(&inst, 1.0)) {
 *           // requests on inst.sc_lnk, ZEBMSG_queue_message on inst.msg_lnk
 *           ZEBMSG_process_messages(&inst.msg_lnk, on_message, NULL);
 *           EVENTAT_run(0);
 *       }
 *   }
 *   INST_disconnect(&inst);
 *
 * Nothing reconnects by itself. A link that is lost is serviced no more, the others are; the loop
 * above ends, and the daemon exits or begins anew with INST_disconnect and INST_connect.
 *
 * Threads: the links inside are used through their own modules, from any thread of the daemon as
 * these allow. The thread that connects also disconnects, while no other uses the links or the
 * descriptors. Nothing below is called from the dispatch thread. */
#ifndef ZEB2_INST_H
#define ZEB2_INST_H

#include "ll.h"
#include "port.h"
#include "serialcom.h"
#include "zebmsg.h"
#include <pthread.h>
#include <sys/select.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Types ---- */

/* The caller's record; it stays in place from INST_connect to INST_disconnect. "Up" is what the
 * dispatch thread still services. Everything but the links belongs to the library. */
typedef struct INST_link {
    ZEBMSG_link msg_lnk;
    BOOL msg_lnk_up;
    SERIALCOM_link sc_lnk; /* the instrument's serial line */
    BOOL sc_lnk_enabled;   /* it was asked for */
    BOOL sc_lnk_up;
    SERIALCOM_link log_sc_lnk; /* the serial line that log lines are echoed on */
    BOOL log_sc_lnk_enabled;
    BOOL log_sc_lnk_up;
    LL_TYPE ext_sc_links; /* of INST_ext_link, in the order given */
    BOOL status_ok;       /* no select has failed */
    pthread_mutex_t mtx;  /* guards the flags; the dispatch thread holds it in each of its passes */
    pthread_t *thd;       /* the dispatch thread, which wake-ups go to; null when there is none */
} INST_link;

/* A further serial link. */
typedef struct INST_ext_link {
    SERIALCOM_link *lnk; /* the caller's */
    BOOL lnk_up;
} INST_ext_link;

/* The hooks of serialcom.h as the dispatch thread calls them: the first once, one of the second
 * kind before each select and after one without ready descriptors, the third after the others. */
typedef BOOL (*INST_dispatch_cbst)(SERIALCOM_link *lnk, fd_set *rx_fds, fd_set *tx_fds, int *fd_max,
                                   pthread_t *parent_thd);
typedef BOOL (*INST_dispatch_cbmid)(SERIALCOM_link *lnk, fd_set *rx_fds, fd_set *tx_fds,
                                    int *fd_max);
typedef BOOL (*INST_dispatch_cbpst)(SERIALCOM_link *lnk, fd_set *rx_fds, fd_set *tx_fds,
                                    fd_set *sel_rx_fds, fd_set *sel_tx_fds, int *fd_max);

/* What a walk over the serial links carries: the loop's sets and the one hook to call, the other
 * two being null. The library's own; nothing a daemon needs. */
typedef struct INST_dispatch_trv_param {
    fd_set *rx_fds;
    fd_set *tx_fds;
    fd_set *sel_rx_fds;
    fd_set *sel_tx_fds;
    int *fd_max;
    pthread_t *parent_thd;
    INST_dispatch_cbst cbst;
    INST_dispatch_cbmid cbmid;
    INST_dispatch_cbpst cbpst;
} INST_dispatch_trv_param;

/* ---- Connecting ---- */

/* Connects every link and starts the dispatch thread; the servers' handshakes are still to come
 * (INST_wait_connected). In this order: the further links, the message link, the serial line, the
 * line for log lines. Buffered descriptors opened before are forgotten (ZEBFILE_multi_init).
 * lnk: not null; every field is set, whatever it held.
 * msg_params: not null, see ZEBMSG_multi_connect.
 * sc_params, log_sc_params: ports; null for no such line.
 * ...: further lines, as pairs of SERIALCOM_link * and SERIALD_connect_params *, ended by a pair of
 *   nulls. A further link's record stays the caller's and in place until INST_disconnect; it is
 *   zeroed first.
 * Result: TRUE. FALSE at the first failure, reported, and nothing after it is done: a connection,
 *   the mutex, memory, the thread. What is connected by then stays so until INST_disconnect, which
 *   is safe now; a further link that fails itself is left to its owner (SERIALCOM_multi_destroy).
 * Threads: see above; another attempt only after INST_disconnect. */
ZEB_API BOOL INST_connect(INST_link *lnk, ZEBMSG_connect_params *msg_params,
                          SERIALD_connect_params *sc_params, SERIALD_connect_params *log_sc_params,
                          ...);

/* ---- State ---- */

/* Tells whether every link is open.
 * lnk: not null; connected once, successfully or not.
 * Result: TRUE when the message link and each serial link asked for have had their handshake, none
 *   was lost and no select has failed.
 * Threads: any but the dispatch thread. */
ZEB_API BOOL INST_test_connected(INST_link *lnk);

/* Waits for the handshakes.
 * lnk: not null; connected once, successfully or not.
 * Result: TRUE once every link is open; FALSE when one was lost or refused. A further link that is
 *   not connected although it was never seen to be lost counts as open here. No time limit of its
 *   own: the links end for 30 s of silence. Exit signals do not end it.
 * Threads: any but the dispatch thread. */
ZEB_API BOOL INST_wait_connected(INST_link *lnk);

/* Waits in a daemon's main loop.
 * lnk: not null; connected once, successfully or not.
 * time: seconds; 0 and below only look. Setting the wall clock changes nothing.
 * Result: TRUE when the time has passed; FALSE as soon as INST_test_connected does not hold or
 *   UTIL_exit_poll tells of an exit, looked at every 0.25 s and whenever a signal arrives.
 * Threads: any but the dispatch thread. */
ZEB_API BOOL INST_sleep(INST_link *lnk, double time);

/* ---- Log lines ---- */

/* Writes a log line to the serial line for log lines and waits for the server's answer; without
 * that line, or when it is lost, does nothing.
 * lnk: not null. rec: the line as it is sent, ended by a zero, not null.
 * Failures are not told, see SERIALCOM_issue_write_string.
 * Threads: any but the dispatch thread, one at a time. */
ZEB_API void INST_logecho(INST_link *lnk, const char *rec);

/* ---- Disconnecting ---- */

/* Takes leave of the servers, stops the dispatch thread, and releases every link and every buffered
 * descriptor.
 * lnk: not null; zeroed, or given to INST_connect, whatever came of that. A second call does
 *   nothing.
 * Result: none. Each link has 2 s for its farewell. When the thread can be neither cancelled nor
 *   joined, that is reported and the links stay as they are.
 * Threads: see above. */
ZEB_API void INST_disconnect(INST_link *lnk);

#ifdef __cplusplus
}
#endif
#endif

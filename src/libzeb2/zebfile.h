/* zebfile.h - descriptors read and written without waiting: one buffer each, one thread that moves
 * the bytes.
 *
 *   ZEBFILE_init(); // or the hooks below in a loop of your own
 *   int fh = ZEBFILE_open(file_name, ZEBFILE_WRITE, O_APPEND);
 *   ZEBFILE_printf(fh, "%s,%g\n", station, pressure); // queued; returns at once
 *   ZEBFILE_associate_fh(pipe_fh, ZEBFILE_READ);
 *   char line[128];
 *   while (ZEBFILE_readuntil_blocking(pipe_fh, line, sizeof line, "\n", 0) != (size_t)-1)
 *       take(line);
 *   ZEBFILE_close(fh);
 *   ZEBFILE_destroy();
 *
 * Every descriptor is its own key; the table of entries belongs to the process. An entry either
 * reads or writes. End of file or an error on a descriptor is reported and ends its entry; the
 * descriptor is closed with it. "No result" is (size_t)-1.
 *
 * Numbers: closing is left to the servicing thread's next cycle, so a descriptor number that is
 * used again at once may still meet its old entry, which is found first.
 *
 * Limits: descriptors of FD_SETSIZE and above are refused. An entry that reads stops reading when
 * 64 MiB lie unread and goes on below 32 MiB; the writer of the pipe then waits, nothing is lost.
 * An entry that writes refuses further bytes when 64 MiB are queued and takes them again below 32
 * MiB. Both are reported when they begin and when they end.
 *
 * Threads: any thread may call anything but the start and stop functions; one mutex is held for
 * the whole of each call (it is let go while a call waits). Not from a signal handler. */
#ifndef ZEB2_ZEBFILE_H
#define ZEB2_ZEBFILE_H

#include "port.h"

#include <pthread.h>
#include <sys/select.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum ZEBFILE_mode { ZEBFILE_READ = 0, ZEBFILE_WRITE = 1 } ZEBFILE_mode;

/* One descriptor. The library owns its entries; a program has no need to make one. */
typedef struct ZEBFILE_entry {
    int fh;         /* -1: not in use */
    BOOL dettached; /* the descriptor outlives the entry */
    ZEBFILE_mode mode;
    BYTE *buffer;              /* read and not yet taken, or queued and not yet written; or null */
    size_t buffer_off;         /* valid bytes at the start of the buffer */
    size_t buffer_max;         /* bytes allocated: a power of two, or 0 */
    BOOL in_flush;             /* queued bytes go out whatever the flush limit says */
    size_t buffer_flush_limit; /* hold until this many bytes are queued; 0 or all bits set: never */
    pthread_cond_t nd_cond;    /* bytes arrived, or a buffer was found empty */
} ZEBFILE_entry;

/* ---- Start and stop ---- */

/* Empties the table and starts the module's own thread.
 * Returns TRUE; FALSE when the thread cannot be created (reported).
 * Threads: main thread, after LIBZEB_init; entries of an earlier start must be destroyed. */
ZEB_API BOOL ZEBFILE_init(void);

/* Stops the thread that services the table and does as ZEBFILE_multi_destroy. When the thread can
 * be neither cancelled nor joined, that is reported and everything stays as it is.
 * Threads: main thread, while no other uses the module. */
ZEB_API void ZEBFILE_destroy(void);

/* Empties the table for use by a loop that calls the hooks, without releasing what was in it.
 * Returns TRUE, always.
 * Threads: main thread, before the loop. */
ZEB_API BOOL ZEBFILE_multi_init(void);

/* Ends every entry: tries once to write what is queued, closes the descriptors that are not
 * detached, releases the buffers. Forgets the servicing thread.
 * Threads: main thread, after the servicing thread has ended; takes no lock. */
ZEB_API void ZEBFILE_multi_destroy(void);

/* ---- Entries ---- */

/* Makes an entry that is not in use: descriptor -1, reading, no buffer. `dettached` stays as it is.
 * pf: not null; its condition variable must not be initialised.
 * Returns TRUE; FALSE when the condition variable cannot be initialised (reported).
 * Threads: any, on its own entry; takes no lock. */
ZEB_API BOOL ZEBFILE_init_entry(ZEBFILE_entry *pf);

/* Opens a file, never waiting for it, closed on exec, and makes an entry for it.
 * filename: path. mode: a writing entry creates a missing file with mode 0666 less the umask.
 * flags: further flags of open(2), as O_APPEND or O_TRUNC.
 * Returns the descriptor, owned by the module; -1 on failure (reported).
 * Threads: any. */
ZEB_API int ZEBFILE_open(const char *filename, ZEBFILE_mode mode, int flags);

/* Makes an entry for a descriptor opened elsewhere: pipe, socket, terminal. It becomes non-blocking
 * and closed on exec. When it has an entry already: the same mode changes nothing, the other mode
 * drops the buffered bytes.
 * fh: descriptor, the module's from now on; -1 is refused without a word.
 * Returns TRUE; FALSE on failure (reported): the descriptor stays the caller's.
 * Threads: any. */
ZEB_API BOOL ZEBFILE_associate_fh(int fh, ZEBFILE_mode mode);

/* Waits as ZEBFILE_flush does, then gives up the entry but leaves the descriptor open: it is the
 * caller's again after the servicing thread's next cycle. Without an entry does nothing.
 * Threads: any but the servicing one. */
ZEB_API void ZEBFILE_disassociate_fh(int fh);

/* Waits as ZEBFILE_flush does, then asks for the entry's end; entry and descriptor are closed in a
 * cycle of the servicing thread that follows, namely the first that begins with a highest
 * descriptor of interest not below `fh`. Unread input is dropped. Without an entry does nothing.
 * Threads: any but the servicing one. */
ZEB_API void ZEBFILE_close(int fh);

/* ---- Writing ---- */

/* Sets when queued bytes are written.
 * sz: 0 or all bits set: as soon as possible; otherwise (bytes) only when at least so many are
 * queued, or a flush asks for them. Above 64 MiB as 64 MiB. Without an entry does nothing.
 * Threads: any. */
ZEB_API void ZEBFILE_setbuffer(int fh, size_t sz);

/* Queues bytes.
 * pd: `n` bytes, copied; may be null when n is 0.
 * Returns nothing. Reported and dropped: no writing entry, too much queued already (see above).
 * Without memory the bytes queued before are lost too (reported).
 * Threads: any. */
ZEB_API void ZEBFILE_write(int fh, const void *pd, size_t n);

/* Queues formatted text, without its terminator.
 * fmt: as printf. Failures as ZEBFILE_write, and a text that cannot be formatted is reported.
 * Threads: any. */
ZEB_API void ZEBFILE_printf(int fh, const char *fmt, ...) __attribute__((format(printf, 2, 3)));

/* Waits until everything queued is written, also what a flush limit held, or until the entry ends.
 * There is no time limit: a peer that reads no more keeps the caller until it goes. On a reading
 * entry drops what is unread.
 * Threads: any but the servicing one. */
ZEB_API void ZEBFILE_flush(int fh);

/* ---- Reading ---- */

/* Takes the next piece of input, up to and including a stop character.
 * pd: receives the piece, `max_read` bytes, terminated in place of the stop character; null gives
 * no result. Holds copied bytes also when there is no result. max_read: at least 1. A piece of
 * `max_read` bytes and more is cut: max_read - 1 bytes are returned and the byte in place of the
 * terminator is lost. stop_chars: string of stop characters, not null. lock_mtx: TRUE (FALSE is for
 * the module itself, which then holds the mutex).
 * Returns the length of the piece; (size_t)-1 when none is complete, without a reading entry
 * (reported).
 * Threads: any; never waits. */
ZEB_API size_t ZEBFILE_readuntil_int(int fh, char *pd, size_t max_read, const char *stop_chars,
                                     BOOL lock_mtx);

/* The same, waiting for a piece.
 * timeout: 0 and below waits until a piece is complete, the entry ends or UTIL_exit_poll tells of
 * an exit; above 0 (s) makes a single attempt, as stations rely on.
 * Returns the length of the piece; (size_t)-1 without one.
 * Threads: any but the servicing one. */
ZEB_API size_t ZEBFILE_readuntil_blocking(int fh, char *pd, size_t max_read, const char *stop_chars,
                                          double timeout);

/* Takes what has arrived.
 * pd: `max_read` bytes; null gives 0. max_read: the most to take.
 * Returns the number of bytes, 0 when nothing is there or without a reading entry (reported);
 * (size_t)-1 for descriptor -1.
 * Threads: any; never waits. */
ZEB_API size_t ZEBFILE_read_atmost(int fh, void *pd, size_t max_read);

/* Looks for a stop character in what has arrived, taking nothing.
 * stop_chars: string, not null.
 * Returns the index of the first one; (size_t)-1 when there is none, or without a reading entry
 * (reported).
 * Threads: any; never waits. */
ZEB_API size_t ZEBFILE_read_offsetof(int fh, const char *stop_chars);

/* ---- Hooks for a select loop of one's own ----
 *
 * The loop owns the sets: rx_fds and tx_fds (what is of interest) and fd_max, the highest
 * descriptor of interest, -1 for none. Each cycle: pre-select; the loop lowers fd_max to what the
 * sets hold; pselect on copies of them; then post-select when something is ready, loop-continue
 * otherwise. Each hook takes the module's mutex. Threads: the servicing thread only, with
 * cancellation disabled. */

/* Makes a thread the one to wake when there is work, unless there is one already.
 * parent_thd: lives until ZEBFILE_multi_destroy; null changes nothing. The sets are not touched. */
ZEB_API void ZEBFILE_dispatch_init(fd_set *rx_fds, fd_set *tx_fds, int *fd_max,
                                   pthread_t *parent_thd);

/* Ends the entries whose end was asked for, as far as fd_max reaches, then puts every descriptor
 * into the set it belongs to and takes it out of the other, raising fd_max. */
ZEB_API void ZEBFILE_dispatch_pre_select(fd_set *rx_fds, fd_set *tx_fds, int *fd_max);

/* Reads up to 256 bytes from each descriptor in sel_rx_fds, writes what is queued to each in
 * sel_tx_fds; those with nothing left to write leave tx_fds. */
ZEB_API void ZEBFILE_dispatch_post_select(fd_set *rx_fds, fd_set *tx_fds, fd_set *sel_rx_fds,
                                          fd_set *sel_tx_fds, int *fd_max);

/* Does nothing; there so that all modules with hooks have the same four. */
ZEB_API void ZEBFILE_dispatch_loop_continue(fd_set *rx_fds, fd_set *tx_fds, int *fd_max);

#ifdef __cplusplus
}
#endif
#endif

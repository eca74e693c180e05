/* util.h - process, clock, text and array helpers that every daemon uses.
 *
 * A daemon's main thread, before it starts other threads:
 *
 *   UTIL_exit_signal_poll_setup(); // SIGINT and SIGTERM now only raise a flag
 *   open_instrument();             // and the configuration, the links, ...
 *   UTIL_startupokay();            // tell whoever launched us
 *   while (!UTIL_exit_poll())
 *       UTIL_fsleep(0.25);
 *
 * Pointers are not null unless a function says otherwise. Functions without a word on threads work
 * on the caller's data alone and may run in any thread. */
#ifndef ZEB2_UTIL_H
#define ZEB2_UTIL_H

#include "port.h"
#include <signal.h>
#include <sys/select.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Every signal, once UTIL_init has run. Read only. */
ZEB_API extern sigset_t g_util_all_signals;
/* The exit flag, raised by the polling handlers; read it with UTIL_exit_poll. */
ZEB_API extern BOOL g_util_in_signal_exit;

/* ---- Process and signals ---- */

/* Fills g_util_all_signals. LIBZEB_init calls it.
 * Threads: main thread, before others exist. */
ZEB_API void UTIL_init(void);

/* Does nothing: a handler for SIGUSR1, which then only interrupts a blocking call.
 * sig: ignored.
 * Threads: any; safe in a signal handler. */
ZEB_API void UTIL_empty_sighandler(int sig);

/* Blocks every signal in the calling thread, so that nothing disturbs an exit; fit for atexit().
 * Threads: changes the calling thread's mask only. */
ZEB_API void UTIL_atexit_set_signal_mask(void);

/* Clears the exit flag, makes SIGINT and SIGTERM raise it, ignores SIGPIPE, and leaves exactly
 * SIGINT and SIGTERM unblocked. A sigaction that fails is reported; the set-up goes on.
 * Threads: main thread, before others start, so that they inherit the mask and handle none. */
ZEB_API void UTIL_exit_signal_poll_setup(void);

/* The same with SIGHUP as a third exit signal.
 * Threads: main thread, before others start. */
ZEB_API void UTIL_exit_signal_poll_setup_hup(void);

/* As UTIL_exit_signal_poll_setup, but SIGINT and SIGTERM end the process at once with exit(0), from
 * within the handler: for programs whose exit functions bear that.
 * Threads: main thread, before others start. */
ZEB_API void UTIL_exit_signal_setup(void);

/* Tells whether an exit signal has come since the set-up.
 * Returns TRUE from the first one on.
 * Threads: any; blocks the calling thread's signals for the moment of reading. */
ZEB_API BOOL UTIL_exit_poll(void);

/* The start-up handshake with the launching process. When the environment variable ZEB2STARTUP is a
 * number other than 0 or begins with T or t: starts a new session, turns standard input and error
 * to /dev/null, writes "STARTUP OKAY\n" to standard output and turns that to /dev/null too.
 * Otherwise does nothing. A setsid that fails is reported and passed over; another failure is
 * reported and ends the handshake there.
 * Threads: main thread. */
ZEB_API void UTIL_startupokay(void);

/* Makes a path relative to the installation root: a path that begins with "/" is copied, any other
 * gets the value of the environment variable ZEB2 (which may be unset or empty) and "/" in front.
 * in: path. out: receives the result; at least strlen(in) + strlen of ZEB2 + 2 bytes; may be `in`.
 * Threads: any, as long as none changes the environment. */
ZEB_API void UTIL_make_relative(const char *in, char *out);

/* ---- Time ---- */

/* Returns the current time in seconds since the epoch, to the microsecond. */
ZEB_API FTIME UTIL_ftime(void);

/* Sleeps once; a signal ends the sleep early.
 * tm: seconds; returns at once when not above 0 (or not a number), at most 2147483647 are slept. */
ZEB_API void UTIL_fsleep(double tm);

/* Gives the processor away by sleeping for a nanosecond. */
ZEB_API void UTIL_sched_yield(void);

/* Converts a broken-down time in UTC.
 * tp: years since 1900, months from 0, as in <time.h>; out-of-range members are normalised in
 * place. Returns seconds since the epoch; -1.0 when they do not fit the host's time_t. */
ZEB_API FTIME UTIL_timegm(struct tm *tp);

/* Writes a time as YYYYMMDD_HHMMSS (UTC), or "INVALID" for -1.
 * t: seconds since the epoch. str: at least 16 bytes.
 * A year that needs more than four characters is reported and cut off at the 15th character; a time
 * without a calendar date is reported and gives "INVALID". */
ZEB_API void UTIL_time2string(time_t t, char *str);

/* Writes a time as YYYYMMDD_HHMMSSmmmm (UTC; the milliseconds, truncated, with four digits, so
 * 20140821_1424010250 is a quarter second past), or "INVALID" for exactly -1.0.
 * t: seconds since the epoch. str: at least 20 bytes.
 * A text that would be longer is reported and cut off at the 19th character; what is not a finite
 * time with a calendar date is reported and gives "INVALID". */
ZEB_API void UTIL_ftime2string(FTIME t, char *str);

/* Reads the form of UTIL_time2string.
 * str: text; reading stops at the first thing that does not fit, which is not reported, and fields
 * not read are those of the epoch (1970, 01, 01, 00, 00, 00).
 * Returns seconds since the epoch; -1 when they do not fit the host's time_t. */
ZEB_API time_t UTIL_string2time(const char *str);

/* Reads the form of UTIL_ftime2string, with the same leniency; milliseconds not read are 0.
 * Returns seconds since the epoch. */
ZEB_API FTIME UTIL_string2ftime(const char *str);

/* Fractional day of the year in UTC, 1.0 at the beginning of 1 January:
 * day index + 1 + hour/24 + minute/1440 + seconds/86400.
 * curtime: seconds since the epoch.
 * Returns the day; MVC when `curtime` is MVC, not above 0, or has no calendar date. */
ZEB_API double UTIL_fdoy(FTIME curtime);

/* ---- Text ---- */

/* Copies a string into a field of fixed size: cut where it is too long, filled up with zeros,
 * always terminated. dst: `dst_size` bytes. src: string, of which at most dst_size - 1 bytes are
 * read; may overlap dst. dst_size: 0 is reported and writes nothing. */
ZEB_API void UTIL_strncpynt(char *dst, const char *src, size_t dst_size);

/* Compares two strings without regard to case, byte by byte after tolower().
 * Returns 0 when equal; at the first difference 1 if the first string's character is the greater,
 * else -1; when one string begins with the whole other, -1 if the first is the longer and 1 if the
 * second is (the reverse of strcasecmp: stations rely on it). */
ZEB_API int UTIL_strcasecmp(const char *s1, const char *s2);

/* Removes leading and trailing white space in place.
 * str: string; white space only becomes empty. */
ZEB_API void UTIL_strip_lead_trail_space(char *str);

/* Replaces every `old` by `replacement` in place.
 * str: string. old: not NUL (which matches nothing). */
ZEB_API void UTIL_replace_char(char *str, char old, char replacement);

/* Replaces the first `old` only. Otherwise as UTIL_replace_char. */
ZEB_API void UTIL_replace_char_once(char *str, char old, char replacement);

/* Takes one field out of a text; empty fields count.
 * str: fields separated by any one of the characters of `toks`. item: number of the field, from 0.
 * out: `sz_out` bytes, receives the field, cut to sz_out - 1 characters and terminated, or an empty
 * string when there is none. sz_out: 0 writes nothing.
 * Returns TRUE when the field exists. Behind a separator at the very end there is one more, empty
 * field; an empty text has no field. */
ZEB_API BOOL UTIL_stringfield(const char *str, const char *toks, int item, char *out,
                              size_t sz_out);

/* The same with a run of separators taken as one. A run at the end closes the last field without
 * opening another; a run at the beginning follows an empty field 0. */
ZEB_API BOOL UTIL_stringfield_consec(const char *str, const char *toks, int item, char *out,
                                     size_t sz_out);

/* Reads a number written in steps: value = value * factor + field, over all fields in order. With
 * ":" and 60, "12:30:15" gives 45015.
 * str, toks: as UTIL_stringfield; of each field 63 characters are read, with atof. factor: any.
 * Returns the value; a field that gives no finite number adds nothing. */
ZEB_API double UTIL_parse_delimited_inc(const char *str, const char *toks, double factor);

/* Reads a number with atof.
 * Returns it; MVC when it is infinite or not a number; 0 for text that holds none. */
ZEB_API double UTIL_atofv(const char *str);

/* Matches a string against a pattern; case matters. "?" is any one character; a backslash before
 * "*" or "?" makes that character literal and is an ordinary character elsewhere. "*" as the last
 * character matches zero or more characters, "*" elsewhere one or more: a*b does not match ab.
 * string: text. test: pattern.
 * Takes time in proportion to the product of the lengths at most. A pattern of 256 characters or
 * more that holds a "*" needs memory: when it runs out, that is reported and nothing matches.
 * Returns TRUE when the whole string matches the whole pattern. */
ZEB_API BOOL UTIL_wildcard_match(const char *string, const char *test);

/* Explains an error number of host name look-up (h_errno).
 * er: 1 to 4; anything else is an internal error of the resolver.
 * Returns a constant text. */
ZEB_API const char *UTIL_hstrerror(int er);

/* ---- Arrays, sizes and descriptor sets ---- */

/* Looks for an element in an array.
 * check: `ell_size` bytes. match_against: `n` elements of `ell_size` bytes; null when n is 0.
 * Returns TRUE when one has the same bytes. */
ZEB_API BOOL UTIL_match_any(const void *check, const void *match_against, size_t n,
                            size_t ell_size);

/* Shifts the bytes of an array; those that nothing is moved onto keep their values.
 * array: `total_size` bytes. offset: bytes; negative towards the start (byte i goes to i + offset,
 * those that would leave the array are lost), positive towards the end; 0, or as much as the array
 * holds, moves nothing. */
ZEB_API void UTIL_shift_array(void *array, size_t total_size, long offset);

/* The size to which a buffer grows: the smallest power of two strictly above `in`, at least 2 (an
 * exact power is doubled, so that there is always a byte to spare).
 * Returns it; from 2147483648 on there is none, which is reported and gives 4294967295. */
ZEB_API DWORD UTIL_roundup_p2(DWORD in);

/* Takes closed descriptors out of the sets with which a select failed, reporting each, and finds
 * the highest descriptor anew. A descriptor found closed in the write set is taken out of the read
 * set and stays in the write set. rx_fds, tx_fds: the sets. max_fd: highest descriptor in them,
 * replaced by the highest that still works (-1: none); -1 does nothing. Descriptors of FD_SETSIZE
 * and above are reported and not looked at. Threads: whichever owns the sets. */
ZEB_API void UTIL_trim_select_badfd(fd_set *rx_fds, fd_set *tx_fds, int *max_fd);

/* ---- Numerics: points equally spaced by h ---- */

/* First derivative at the middle of 3 points: (p2 - p0) / 2h. */
ZEB_API double UTIL_df1_three(const double *pts, double h);
/* First derivative at the middle of 5 points: (p0 - 8 p1 + 8 p3 - p4) / 12h. */
ZEB_API double UTIL_df1_five(const double *pts, double h);
/* Second derivative at the middle of 3 points: (p0 - 2 p1 + p2) / h^2. */
ZEB_API double UTIL_df2_three(const double *pts, double h);

/* Brings a value into a cyclic range: unchanged when min < val <= max, otherwise
 * val - floor((val - min) / (max - min)) * (max - min). So in 0 to 360, 360 stays, 720 becomes 0
 * and -10 becomes 350.
 * max: above min; otherwise the result is not a number. */
ZEB_API double UTIL_wrap(double val, double min, double max);

#ifdef __cplusplus
}
#endif
#endif

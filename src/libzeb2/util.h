#ifndef ZEB2_UTIL_H
#define ZEB2_UTIL_H

#include "port.h"
#include <signal.h>
#include <sys/select.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

ZEB_API extern sigset_t g_util_all_signals;
ZEB_API extern BOOL g_util_in_signal_exit;

ZEB_API void UTIL_init(void);
ZEB_API void UTIL_empty_sighandler(int sig);
ZEB_API void UTIL_atexit_set_signal_mask(void);
ZEB_API void UTIL_exit_signal_poll_setup(void);
ZEB_API void UTIL_exit_signal_poll_setup_hup(void);
ZEB_API void UTIL_exit_signal_setup(void);
ZEB_API BOOL UTIL_exit_poll(void);
ZEB_API void UTIL_startupokay(void);
ZEB_API void UTIL_make_relative(const char *in, char *out);

ZEB_API FTIME UTIL_ftime(void);
ZEB_API void UTIL_fsleep(double tm);
ZEB_API void UTIL_sched_yield(void);
ZEB_API FTIME UTIL_timegm(struct tm *tp);
ZEB_API void UTIL_time2string(time_t t, char *str);
ZEB_API void UTIL_ftime2string(FTIME t, char *str);
ZEB_API time_t UTIL_string2time(const char *str);
ZEB_API FTIME UTIL_string2ftime(const char *str);
ZEB_API double UTIL_fdoy(FTIME curtime);

ZEB_API void UTIL_strncpynt(char *dst, const char *src, size_t dst_size);
ZEB_API int UTIL_strcasecmp(const char *s1, const char *s2);
ZEB_API void UTIL_strip_lead_trail_space(char *str);
ZEB_API void UTIL_replace_char(char *str, char old, char replacement);
ZEB_API void UTIL_replace_char_once(char *str, char old, char replacement);
ZEB_API BOOL UTIL_match_any(const void *check, const void *match_against, size_t n, size_t ell_size);
ZEB_API BOOL UTIL_stringfield(const char *str, const char *toks, int item, char *out, size_t sz_out);
ZEB_API BOOL UTIL_stringfield_consec(const char *str, const char *toks, int item, char *out, size_t sz_out);
ZEB_API double UTIL_parse_delimited_inc(const char *str, const char *toks, double factor);
ZEB_API double UTIL_atofv(const char *str);
ZEB_API void UTIL_shift_array(void *array, size_t total_size, long offset);
ZEB_API DWORD UTIL_roundup_p2(DWORD in);
ZEB_API BOOL UTIL_wildcard_match(const char *string, const char *test);
ZEB_API void UTIL_trim_select_badfd(fd_set *rx_fds, fd_set *tx_fds, int *max_fd);
ZEB_API const char *UTIL_hstrerror(int er);

ZEB_API double UTIL_df1_three(const double *pts, double h);
ZEB_API double UTIL_df1_five(const double *pts, double h);
ZEB_API double UTIL_df2_three(const double *pts, double h);
ZEB_API double UTIL_wrap(double val, double min, double max);

#ifdef __cplusplus
}
#endif
#endif

#include "util.h"

#include "diag.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <sys/time.h>

namespace {

constexpr size_t k_time_text_size = sizeof "YYYYMMDD_HHMMSS";
constexpr size_t k_ftime_text_size = sizeof "YYYYMMDD_HHMMSSmmmm";
constexpr char k_invalid[] = "INVALID";
constexpr double k_longest_sleep = 2147483647.0; // 68 years, the seconds of the station computer

// A time split into the whole second at or before it and the rest; false when the host's time_t
// cannot hold it (nor what is not a number).
bool split_time(FTIME t, time_t *seconds, double *fraction) {
    const double whole = std::floor(t);
    const double limit = std::ldexp(1.0, std::numeric_limits<time_t>::digits);
    if (!(whole >= -limit && whole < limit))
        return false;
    *seconds = static_cast<time_t>(whole);
    *fraction = t - whole;
    return true;
}

// Writes the seconds form into `size` bytes and returns its full length; 0 for a time without a
// calendar date.
size_t print_seconds(time_t t, char *str, size_t size) {
    struct tm parts;
    if (gmtime_r(&t, &parts) == nullptr)
        return 0;
    return static_cast<size_t>(snprintf(str, size, "%04lld%02d%02d_%02d%02d%02d",
                                        parts.tm_year + 1900LL, parts.tm_mon + 1, parts.tm_mday,
                                        parts.tm_hour, parts.tm_min, parts.tm_sec));
}

void report_no_date(double t, char *str) {
    ZEB_REPORT("No date for time %g", t);
    strcpy(str, k_invalid);
}

void report_long_year(double t, const char *str) {
    ZEB_REPORT("Time %.0f does not fit its text and is cut to %s", t, str);
}

// Fields that a short text lacks are those of the epoch.
struct tm epoch_fields() {
    struct tm parts = {};
    parts.tm_year = 1970;
    parts.tm_mon = 1;
    parts.tm_mday = 1;
    return parts;
}

time_t seconds_of_fields(struct tm parts) {
    parts.tm_year -= 1900;
    parts.tm_mon -= 1;
    return timegm(&parts);
}

} // namespace

FTIME UTIL_ftime(void) {
    timeval now;
    gettimeofday(&now, nullptr);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_usec) / 1e6;
}

void UTIL_fsleep(double tm) {
    if (!(tm > 0.0))
        return;
    if (tm > k_longest_sleep)
        tm = k_longest_sleep;
    timespec span;
    span.tv_sec = static_cast<time_t>(tm);
    span.tv_nsec = static_cast<long>((tm - std::floor(tm)) * 1e9);
    nanosleep(&span, nullptr);
}

void UTIL_sched_yield(void) {
    const timespec span = {0, 1};
    nanosleep(&span, nullptr);
}

FTIME UTIL_timegm(struct tm *tp) {
    return static_cast<FTIME>(timegm(tp));
}

void UTIL_time2string(time_t t, char *str) {
    if (t == -1) {
        strcpy(str, k_invalid);
        return;
    }
    const size_t length = print_seconds(t, str, k_time_text_size);
    if (length == 0)
        report_no_date(static_cast<double>(t), str);
    else if (length >= k_time_text_size)
        report_long_year(static_cast<double>(t), str);
}

void UTIL_ftime2string(FTIME t, char *str) {
    if (t == -1.0) {
        strcpy(str, k_invalid);
        return;
    }
    time_t seconds;
    double fraction;
    size_t length;
    if (!split_time(t, &seconds, &fraction) ||
        (length = print_seconds(seconds, str, k_ftime_text_size)) == 0) {
        report_no_date(t, str);
        return;
    }
    if (length < k_ftime_text_size)
        length += static_cast<size_t>(snprintf(str + length, k_ftime_text_size - length, "%04d",
                                               static_cast<int>(fraction * 1000.0)));
    if (length >= k_ftime_text_size)
        report_long_year(t, str);
}

time_t UTIL_string2time(const char *str) {
    struct tm parts = epoch_fields();
    (void)sscanf(str, "%4d%2d%2d_%2d%2d%2d", &parts.tm_year, &parts.tm_mon, &parts.tm_mday,
                 &parts.tm_hour, &parts.tm_min, &parts.tm_sec);
    return seconds_of_fields(parts);
}

FTIME UTIL_string2ftime(const char *str) {
    struct tm parts = epoch_fields();
    int milliseconds = 0;
    (void)sscanf(str, "%4d%2d%2d_%2d%2d%2d%4d", &parts.tm_year, &parts.tm_mon, &parts.tm_mday,
                 &parts.tm_hour, &parts.tm_min, &parts.tm_sec, &milliseconds);
    return static_cast<FTIME>(seconds_of_fields(parts)) + milliseconds / 1000.0;
}

double UTIL_fdoy(FTIME curtime) {
    time_t seconds;
    double fraction;
    struct tm parts;
    if (curtime == MVC || !(curtime > 0.0) || !split_time(curtime, &seconds, &fraction) ||
        gmtime_r(&seconds, &parts) == nullptr)
        return MVC;
    return parts.tm_yday + 1.0 + parts.tm_hour / 24.0 + parts.tm_min / 1440.0 +
           (parts.tm_sec + fraction) / 86400.0;
}

#include "diag.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

const char *g_dbg_msg_title = "PREINIT: ";
char g_dbg_msg_title_static[256];

namespace zeb {
namespace {

bool is_retried(int error) { return error == EINTR || error == EAGAIN; }

// The title has always been written as a format, so a doubled percent sign in it shows once. Any
// other conversion would read arguments that nobody passed and is written as it stands.
void write_title() {
    char text[sizeof g_dbg_msg_title_static];
    size_t length = 0;
    for (const char *c = g_dbg_msg_title; *c != '\0' && length < sizeof text - 1; ++c) {
        if (c[0] == '%' && c[1] == '%')
            ++c;
        text[length++] = *c;
    }
    text[length] = '\0';
    fputs(text, stderr);
}

// A line is written in parts; those of other threads wait until it is whole.
class WholeLine {
  public:
    WholeLine() { flockfile(stderr); }
    ~WholeLine() { funlockfile(stderr); }
    WholeLine(const WholeLine &) = delete;
    WholeLine &operator=(const WholeLine &) = delete;
};

void write_message(const char *format, va_list args) {
    write_title();
    vfprintf(stderr, format, args);
}

} // namespace

void diag_assertion(const char *file, int line, const char *cond) {
    fprintf(stderr, "%sassertion failed (%s:%i): %s\n", g_dbg_msg_title, file, line, cond);
}

void diag_assertion_error(const char *file, int line, const char *cond, int error) {
    fprintf(stderr, "%sassertion failed (%s:%i): %s: %s\n", g_dbg_msg_title, file, line, cond,
            strerror(error));
}

void diag_repeated_call(const char *file, int line, const char *call, int error) {
    fprintf(stderr, "%ssyscall failed (%s:%i): %s: %s\n", g_dbg_msg_title, file, line, call,
            strerror(error));
}

void diag_single_call(const char *file, int line, const char *call, int error) {
    fprintf(stderr, "%ssystem call failed (%s:%i): %s: %s\n", g_dbg_msg_title, file, line, call,
            strerror(error));
}

void diag_message(const char *file, int line, const char *format, ...) {
    const WholeLine line_guard;
    va_list args;
    va_start(args, format);
    write_message(format, args);
    va_end(args);
    fprintf(stderr, " (%s:%i)\n", file, line);
}

void diag_message_errno(const char *file, int line, const char *format, ...) {
    const int error = errno;
    const WholeLine line_guard;
    va_list args;
    va_start(args, format);
    write_message(format, args);
    va_end(args);
    fprintf(stderr, ": %s (%s:%i)\n", strerror(error), file, line);
}

void mutex_lock(pthread_mutex_t *mutex, const char *file, int line, const char *call) {
    int result;
    do
        result = pthread_mutex_lock(mutex);
    while (is_retried(result));
    if (result != 0)
        diag_repeated_call(file, line, call, result);
}

void mutex_unlock(pthread_mutex_t *mutex, const char *file, int line, const char *call) {
    int result;
    do
        result = pthread_mutex_unlock(mutex);
    while (is_retried(result));
    if (result != 0)
        diag_repeated_call(file, line, call, result);
}

} // namespace zeb

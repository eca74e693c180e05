#include "fail_calls.h"

#include "fail_alloc.h"

#include <algorithm>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

using zeb::test::Call;
using zeb::test::failing_state;
using zeb::test::FailingPoint;
using zeb::test::FailingState;

// Where file offsets have 64 bits, a 32-bit host calls functions of other names.
#if defined(__i386__)
#define ZEB_WRAP(name) __wrap_##name##64
#define ZEB_REAL(name) __real_##name##64
#else
#define ZEB_WRAP(name) __wrap_##name
#define ZEB_REAL(name) __real_##name
#endif

#define ZEB_REPLACED(result, name, ...)                                                            \
    result __real_##name(__VA_ARGS__);                                                             \
    result __wrap_##name(__VA_ARGS__)
#define ZEB_REPLACED_LARGE(result, name, ...)                                                      \
    result ZEB_REAL(name)(__VA_ARGS__);                                                            \
    result ZEB_WRAP(name)(__VA_ARGS__)

extern "C" {
ZEB_REPLACED(int, clock_gettime, clockid_t clock, timespec *now);
ZEB_REPLACED(int, gettimeofday, timeval *now, void *zone);
ZEB_REPLACED(time_t, time, time_t *now);
[[noreturn]] void __real_exit(int status);
[[noreturn]] void __wrap_exit(int status);
[[noreturn]] void __real__exit(int status);
[[noreturn]] void __wrap__exit(int status);
ZEB_REPLACED(void, free, void *block);
ZEB_REPLACED(int, close, int fd);
ZEB_REPLACED(int, connect, int fd, const sockaddr *address, socklen_t length);
ZEB_REPLACED(int, dup2, int from, int to);
ZEB_REPLACED(char *, fgets, char *line, int size, FILE *stream);
ZEB_REPLACED(pid_t, fork, void);
ZEB_REPLACED(hostent *, gethostbyname, const char *name);
ZEB_REPLACED(int, kill, pid_t pid, int signal);
ZEB_REPLACED(int, linkat, int old_dir, const char *old_name, int new_dir, const char *new_name,
             int flags);
ZEB_REPLACED(int, nanosleep, const timespec *span, timespec *left);
ZEB_REPLACED(int, pipe2, int *ends, int flags);
ZEB_REPLACED(int, poll, pollfd *fds, nfds_t count, int time_out);
ZEB_REPLACED(int, pselect, int n, fd_set *rx, fd_set *tx, fd_set *ex, const timespec *limit,
             const sigset_t *mask);
ZEB_REPLACED(int, pthread_cancel, pthread_t thread);
ZEB_REPLACED(int, pthread_cond_destroy, pthread_cond_t *cond);
ZEB_REPLACED(int, pthread_cond_init, pthread_cond_t *cond, const pthread_condattr_t *attributes);
ZEB_REPLACED(int, pthread_cond_timedwait, pthread_cond_t *cond, pthread_mutex_t *mutex,
             const timespec *deadline);
ZEB_REPLACED(int, pthread_create, pthread_t *thread, const pthread_attr_t *attributes,
             void *(*function)(void *), void *param);
ZEB_REPLACED(int, pthread_join, pthread_t thread, void **result);
ZEB_REPLACED(int, pthread_kill, pthread_t thread, int signal);
ZEB_REPLACED(int, pthread_mutex_init, pthread_mutex_t *mutex,
             const pthread_mutexattr_t *attributes);
ZEB_REPLACED(int, pthread_mutex_lock, pthread_mutex_t *mutex);
ZEB_REPLACED(int, pthread_mutex_unlock, pthread_mutex_t *mutex);
ZEB_REPLACED(ssize_t, read, int fd, void *data, size_t size);
ZEB_REPLACED(ssize_t, recv, int fd, void *data, size_t size, int flags);
ZEB_REPLACED(int, rename, const char *old_name, const char *new_name);
ZEB_REPLACED(ssize_t, send, int fd, const void *data, size_t size, int flags);
ZEB_REPLACED(int, setsockopt, int fd, int level, int option, const void *value, socklen_t size);
ZEB_REPLACED(int, sigaction, int signal, const struct sigaction *action, struct sigaction *before);
ZEB_REPLACED(int, socket, int domain, int type, int protocol);
ZEB_REPLACED(int, unlink, const char *name);
ZEB_REPLACED(pid_t, waitpid, pid_t pid, int *status, int options);
ZEB_REPLACED(ssize_t, write, int fd, const void *data, size_t size);
ZEB_REPLACED_LARGE(int, fcntl, int fd, int command, ...);
ZEB_REPLACED_LARGE(FILE *, fopen, const char *name, const char *mode);
ZEB_REPLACED_LARGE(int, fstat, int fd, struct stat *info);
ZEB_REPLACED_LARGE(int, ftruncate, int fd, off_t size);
ZEB_REPLACED_LARGE(off_t, lseek, int fd, off_t offset, int whence);
ZEB_REPLACED_LARGE(int, open, const char *name, int flags, ...);
ZEB_REPLACED_LARGE(ssize_t, pread, int fd, void *data, size_t size, off_t offset);
ZEB_REPLACED_LARGE(int, stat, const char *name, struct stat *info);
}

namespace {

constexpr double k_patience = 0.02;               // s after the failure, at the clocks' own pace
constexpr double k_haste = 3000;                  // the pace afterwards
constexpr double k_endurance = 0.08;              // s after the failure, until it is asked to end
constexpr timespec k_longest_wait = {0, 2000000}; // of one call

FailingState g_own_state;
FailingState *g_state = &g_own_state;
std::atomic<long> g_files_named = 0; // calls of time

double seconds(const timespec &time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// How far the clocks are ahead.
double haste() {
    const FailingState &state = failing_state();
    if (!state.armed || !state.failed || state.point.passes)
        return 0;
    return std::max(0.0, zeb::test::real_time() - state.failed_at - k_patience) * k_haste;
}

// A program that waits for what will not come any more is asked to end, as an operator would. When
// it cannot even do that before the call works again, the call does.
void look_at_endurance() {
    FailingState &state = failing_state();
    if (!state.armed || !state.failed || state.point.passes)
        return;
    const double waited = zeb::test::real_time() - state.failed_at;
    if (waited > k_endurance && state.stops++ == 0)
        __real_kill(getpid(), SIGTERM);
    if (waited > 2 * k_endurance && state.point.is_lifted)
        state.lifted = true;
}

bool strikes(Call call) {
    FailingState &state = failing_state();
    if (!state.armed)
        return false;
    const long n = ++state.counts[static_cast<size_t>(call)];
    const FailingPoint &point = state.point;
    if (state.lifted)
        return false;
    if (point.n == 0 || point.call != call || n < point.n || (n > point.n && !point.for_ever))
        return false;
    if (!state.failed) {
        state.failed_at = zeb::test::real_time();
        state.failed = true;
    }
    look_at_endurance(); // a call may be repeated until it works
    return true;
}

int error() {
    return failing_state().point.error;
}

// For calls that say -1.
bool fails(Call call) {
    if (!strikes(call))
        return false;
    errno = error();
    return true;
}

// For calls that move bytes; *size becomes less when only some of them are to pass.
bool moves_nothing(Call call, size_t *size) {
    if (!strikes(call))
        return false;
    if (error() == zeb::test::k_short_count) {
        *size = std::max<size_t>(*size / 2, 1);
        return false;
    }
    errno = error();
    return true;
}

timespec shortened(const timespec &time) {
    return seconds(time) > seconds(k_longest_wait) ? k_longest_wait : time;
}

[[noreturn]] void end_process(int status) {
    ++failing_state().exits;
    failing_state().exit_status = status;
    zeb::test::disarm(); // for what is done at the end of every process
    __real__exit(status);
}

} // namespace

namespace zeb::test {

const char *name_of(Call call) {
#define ZEB_FAILING_CALL_TEXT(name) #name,
    static const char *const names[] = {ZEB_FAILING_CALLS(ZEB_FAILING_CALL_TEXT)};
#undef ZEB_FAILING_CALL_TEXT
    return names[static_cast<size_t>(call)];
}

std::string to_string(const FailingPoint &point) {
    const std::string how = point.error == k_short_count
                                ? "is cut short"
                                : std::string("fails: ") + strerror(point.error);
    return std::string(name_of(point.call)) + " " + std::to_string(point.n) +
           (point.for_ever ? " and all behind it " : " ") + how;
}

void place_failing_state(FailingState *state) {
    g_state = state != nullptr ? state : &g_own_state;
}

FailingState &failing_state() {
    return *g_state;
}

void arm(const FailingPoint &point) {
    FailingState &state = failing_state();
    state.point = point;
    state.failed = false;
    state.stops = 0;
    state.lifted = false;
    for (std::atomic<long> &count : state.counts)
        count = 0;
    state.armed = true;
}

void disarm() {
    failing_state().armed = false;
}

double real_time() {
    timespec now;
    __real_clock_gettime(CLOCK_MONOTONIC, &now);
    return seconds(now);
}

// What fail_alloc.cpp asks and tells.
bool allocation_fails() {
    return fails(Call::allocation);
}
void note_allocation() {
    ++failing_state().live_blocks;
}

} // namespace zeb::test

// ---- Time ----

int __wrap_clock_gettime(clockid_t clock, timespec *now) {
    const int result = __real_clock_gettime(clock, now);
    const double ahead = haste();
    now->tv_sec += static_cast<time_t>(ahead);
    return result;
}

int __wrap_gettimeofday(timeval *now, void *zone) {
    const int result = __real_gettimeofday(now, zone);
    now->tv_sec += static_cast<time_t>(haste());
    return result;
}

// Files that are named by the second get names of their own.
time_t __wrap_time(time_t *now) {
    const time_t result = __real_time(now);
    return failing_state().armed ? result + ++g_files_named : result;
}

// ---- The end of the process ----

void __wrap_exit(int status) {
    if (failing_state().armed)
        end_process(status);
    __real_exit(status);
}

void __wrap__exit(int status) {
    end_process(status);
}

// ---- Blocks ----

void __wrap_free(void *block) {
    if (block != nullptr)
        --failing_state().live_blocks;
    __real_free(block);
}

// ---- Calls ----

// The descriptor is gone all the same.
int __wrap_close(int fd) {
    const int result = __real_close(fd);
    return fails(Call::close) ? -1 : result;
}

int __wrap_connect(int fd, const sockaddr *address, socklen_t length) {
    return fails(Call::connect) ? -1 : __real_connect(fd, address, length);
}

int __wrap_dup2(int from, int to) {
    return fails(Call::dup2) ? -1 : __real_dup2(from, to);
}

int ZEB_WRAP(fcntl)(int fd, int command, ...) {
    va_list args;
    va_start(args, command);
    const long argument = va_arg(args, long);
    va_end(args);
    return fails(Call::fcntl) ? -1 : ZEB_REAL(fcntl)(fd, command, argument);
}

char *__wrap_fgets(char *line, int size, FILE *stream) {
    constexpr int k_error_seen = 0x20; // what ferror looks at
    if (!fails(Call::fgets))
        return __real_fgets(line, size, stream);
    stream->_flags |= k_error_seen;
    return nullptr;
}

FILE *ZEB_WRAP(fopen)(const char *name, const char *mode) {
    return fails(Call::fopen) ? nullptr : ZEB_REAL(fopen)(name, mode);
}

pid_t __wrap_fork() {
    return fails(Call::fork) ? -1 : __real_fork();
}

int ZEB_WRAP(fstat)(int fd, struct stat *info) {
    return fails(Call::fstat) ? -1 : ZEB_REAL(fstat)(fd, info);
}

int ZEB_WRAP(ftruncate)(int fd, off_t size) {
    return fails(Call::ftruncate) ? -1 : ZEB_REAL(ftruncate)(fd, size);
}

hostent *__wrap_gethostbyname(const char *name) {
    if (!strikes(Call::gethostbyname))
        return __real_gethostbyname(name);
    h_errno = TRY_AGAIN;
    return nullptr;
}

int __wrap_kill(pid_t pid, int signal) {
    return fails(Call::kill) ? -1 : __real_kill(pid, signal);
}

int __wrap_linkat(int old_dir, const char *old_name, int new_dir, const char *new_name, int flags) {
    return fails(Call::linkat) ? -1 : __real_linkat(old_dir, old_name, new_dir, new_name, flags);
}

off_t ZEB_WRAP(lseek)(int fd, off_t offset, int whence) {
    return fails(Call::lseek) ? -1 : ZEB_REAL(lseek)(fd, offset, whence);
}

int __wrap_nanosleep(const timespec *span, timespec *left) {
    look_at_endurance();
    if (fails(Call::nanosleep))
        return -1;
    const timespec some = shortened(*span);
    return __real_nanosleep(failing_state().armed ? &some : span, left);
}

int ZEB_WRAP(open)(const char *name, int flags, ...) {
    va_list args;
    va_start(args, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(args, mode_t) : 0;
    va_end(args);
    return fails(Call::open) ? -1 : ZEB_REAL(open)(name, flags, mode);
}

int __wrap_pipe2(int *ends, int flags) {
    return fails(Call::pipe2) ? -1 : __real_pipe2(ends, flags);
}

int __wrap_poll(pollfd *fds, nfds_t count, int time_out) {
    look_at_endurance();
    if (fails(Call::poll))
        return -1;
    return __real_poll(fds, count, failing_state().armed ? 2 : time_out);
}

ssize_t ZEB_WRAP(pread)(int fd, void *data, size_t size, off_t offset) {
    return moves_nothing(Call::pread, &size) ? -1 : ZEB_REAL(pread)(fd, data, size, offset);
}

int __wrap_pselect(int n, fd_set *rx, fd_set *tx, fd_set *ex, const timespec *limit,
                   const sigset_t *mask) {
    if (fails(Call::pselect))
        return -1;
    const timespec some = limit != nullptr ? shortened(*limit) : k_longest_wait;
    return __real_pselect(n, rx, tx, ex, failing_state().armed ? &some : limit, mask);
}

int __wrap_pthread_cancel(pthread_t thread) {
    return strikes(Call::pthread_cancel) ? error() : __real_pthread_cancel(thread);
}

int __wrap_pthread_cond_destroy(pthread_cond_t *cond) {
    const int result = __real_pthread_cond_destroy(cond);
    return strikes(Call::pthread_cond_destroy) ? error() : result;
}

int __wrap_pthread_cond_init(pthread_cond_t *cond, const pthread_condattr_t *attributes) {
    return strikes(Call::pthread_cond_init) ? error() : __real_pthread_cond_init(cond, attributes);
}

int __wrap_pthread_cond_timedwait(pthread_cond_t *cond, pthread_mutex_t *mutex,
                                  const timespec *deadline) {
    look_at_endurance();
    const bool struck = strikes(Call::pthread_cond_timedwait);
    if (struck && error() == EINVAL)
        return error();
    if (!failing_state().armed)
        return __real_pthread_cond_timedwait(cond, mutex, deadline);
    timespec soon;
    __real_clock_gettime(CLOCK_REALTIME, &soon);
    soon.tv_nsec += k_longest_wait.tv_nsec;
    soon.tv_sec += soon.tv_nsec / 1000000000;
    soon.tv_nsec %= 1000000000;
    const int result = __real_pthread_cond_timedwait(cond, mutex, &soon);
    return struck ? error() : result;
}

int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                          void *(*function)(void *), void *param) {
    return strikes(Call::pthread_create)
               ? error()
               : __real_pthread_create(thread, attributes, function, param);
}

int __wrap_pthread_join(pthread_t thread, void **result) {
    return strikes(Call::pthread_join) ? error() : __real_pthread_join(thread, result);
}

int __wrap_pthread_kill(pthread_t thread, int signal) {
    return strikes(Call::pthread_kill) ? error() : __real_pthread_kill(thread, signal);
}

int __wrap_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attributes) {
    return strikes(Call::pthread_mutex_init) ? error()
                                             : __real_pthread_mutex_init(mutex, attributes);
}

// Whoever takes an unknown error for success must be as safe as that assumes; only a retried error
// leaves the mutex alone.
int __wrap_pthread_mutex_lock(pthread_mutex_t *mutex) {
    const bool struck = strikes(Call::pthread_mutex_lock);
    if (struck && (error() == EINTR || error() == EAGAIN))
        return error();
    const int result = __real_pthread_mutex_lock(mutex);
    return struck ? error() : result;
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t *mutex) {
    const bool struck = strikes(Call::pthread_mutex_unlock);
    if (struck && (error() == EINTR || error() == EAGAIN))
        return error();
    const int result = __real_pthread_mutex_unlock(mutex);
    return struck ? error() : result;
}

ssize_t __wrap_read(int fd, void *data, size_t size) {
    return moves_nothing(Call::read, &size) ? -1 : __real_read(fd, data, size);
}

ssize_t __wrap_recv(int fd, void *data, size_t size, int flags) {
    if (moves_nothing(Call::recv, &size))
        return -1;
    return __real_recv(fd, data, size, flags);
}

int __wrap_rename(const char *old_name, const char *new_name) {
    return fails(Call::rename) ? -1 : __real_rename(old_name, new_name);
}

ssize_t __wrap_send(int fd, const void *data, size_t size, int flags) {
    if (moves_nothing(Call::send, &size))
        return -1;
    return __real_send(fd, data, size, flags);
}

int __wrap_setsockopt(int fd, int level, int option, const void *value, socklen_t size) {
    return fails(Call::setsockopt) ? -1 : __real_setsockopt(fd, level, option, value, size);
}

int __wrap_sigaction(int signal, const struct sigaction *action, struct sigaction *before) {
    return fails(Call::sigaction) ? -1 : __real_sigaction(signal, action, before);
}

int __wrap_socket(int domain, int type, int protocol) {
    return fails(Call::socket) ? -1 : __real_socket(domain, type, protocol);
}

int ZEB_WRAP(stat)(const char *name, struct stat *info) {
    return fails(Call::stat) ? -1 : ZEB_REAL(stat)(name, info);
}

int __wrap_unlink(const char *name) {
    return fails(Call::unlink) ? -1 : __real_unlink(name);
}

pid_t __wrap_waitpid(pid_t pid, int *status, int options) {
    return fails(Call::waitpid) ? -1 : __real_waitpid(pid, status, options);
}

ssize_t __wrap_write(int fd, const void *data, size_t size) {
    return moves_nothing(Call::write, &size) ? -1 : __real_write(fd, data, size);
}

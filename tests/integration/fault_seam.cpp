// fault_seam.so - loaded before libc: the clocks and the disk of a program under test, as the test
// wants them. Descriptors up to 2 are spared.
#include "fault_seam.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#define EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

using zeb::test::SeamClock;
using zeb::test::SeamControl;

constexpr int64_t k_second = 1000000000;

const SeamControl *map_control() {
    const char *path = getenv("ZEB_FAULT_SEAM");
    const int fd = path != nullptr ? open(path, O_RDONLY | O_CLOEXEC) : -1;
    if (fd < 0)
        return nullptr;
    void *block = mmap(nullptr, sizeof(SeamControl), PROT_READ, MAP_SHARED, fd, 0);
    close(fd);
    return block != MAP_FAILED ? static_cast<const SeamControl *>(block) : nullptr;
}

const SeamControl *control() {
    static const SeamControl *const mapped = map_control();
    return mapped;
}

// The system's clock, whoever else replaces its function.
int64_t real_ns(clockid_t clock) {
    timespec now = {};
    syscall(SYS_clock_gettime, clock, &now);
    return now.tv_sec * k_second + now.tv_nsec;
}

SeamClock clock_now() {
    if (control() == nullptr)
        return {0, real_ns(CLOCK_REALTIME), real_ns(CLOCK_MONOTONIC), 1};
    SeamClock clock;
    uint32_t used;
    do {
        used = control()->current.load();
        clock = control()->clocks[used & 1];
    } while (used != control()->current.load());
    const int64_t passed = (real_ns(CLOCK_MONOTONIC) - clock.start) * clock.rate;
    clock.wall += passed;
    clock.steady += passed;
    return clock;
}

timespec to_timespec(int64_t ns) {
    timespec result;
    result.tv_sec = static_cast<time_t>(ns / k_second);
    result.tv_nsec = static_cast<long>(ns % k_second);
    return result;
}

int64_t to_ns(const timespec &time) {
    return time.tv_sec * k_second + time.tv_nsec;
}

timespec shortened(const timespec &span) {
    return to_timespec(to_ns(span) / clock_now().rate);
}

int shortened(int ms) {
    return ms <= 0 ? ms : static_cast<int>((ms + clock_now().rate - 1) / clock_now().rate);
}

template <typename Function> Function next(const char *name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace

EXPORTED int clock_gettime(clockid_t clock, timespec *time) noexcept {
    const bool wall = clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
    const bool steady = clock == CLOCK_MONOTONIC || clock == CLOCK_MONOTONIC_COARSE;
    if (!wall && !steady)
        return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    const SeamClock now = clock_now();
    *time = to_timespec(wall ? now.wall : now.steady);
    return 0;
}

EXPORTED int gettimeofday(timeval *time, void *) noexcept {
    const timespec now = to_timespec(clock_now().wall);
    time->tv_sec = now.tv_sec;
    time->tv_usec = static_cast<suseconds_t>(now.tv_nsec / 1000);
    return 0;
}

EXPORTED time_t time(time_t *result) noexcept {
    const auto now = static_cast<time_t>(clock_now().wall / k_second);
    if (result != nullptr)
        *result = now;
    return now;
}

EXPORTED int nanosleep(const timespec *span, timespec *left) {
    static const auto real = next<decltype(&nanosleep)>("nanosleep");
    const timespec wait = shortened(*span);
    return real(&wait, left);
}

EXPORTED int pselect(int count, fd_set *in, fd_set *out, fd_set *other, const timespec *limit,
                     const sigset_t *mask) {
    static const auto real = next<decltype(&pselect)>("pselect");
    const timespec wait = limit != nullptr ? shortened(*limit) : timespec();
    return real(count, in, out, other, limit != nullptr ? &wait : nullptr, mask);
}

EXPORTED int poll(pollfd *fds, nfds_t count, int limit) {
    static const auto real = next<decltype(&poll)>("poll");
    return real(fds, count, shortened(limit));
}

EXPORTED int epoll_wait(int epoll, epoll_event *events, int most, int limit) {
    static const auto real = next<decltype(&epoll_wait)>("epoll_wait");
    return real(epoll, events, most, shortened(limit));
}

// Of two clocks, the deadline is on the one that is nearer. What the system would wait for has
// nothing to do with it: short pieces are, each a wake-up without a cause unless the time has come.
EXPORTED int pthread_cond_timedwait(pthread_cond_t *condition, pthread_mutex_t *mutex,
                                    const timespec *deadline) {
    static const auto real = reinterpret_cast<decltype(&pthread_cond_timedwait)>(
        dlvsym(RTLD_NEXT, "pthread_cond_timedwait", "GLIBC_2.3.2"));
    const SeamClock now = clock_now();
    const int64_t to_wall = to_ns(*deadline) - now.wall, to_steady = to_ns(*deadline) - now.steady;
    const bool wall = llabs(to_wall) < llabs(to_steady);
    const int64_t left = wall ? to_wall : to_steady;
    if (left <= 0)
        return ETIMEDOUT;
    const int64_t piece = left / now.rate < k_second / 50 ? left / now.rate : k_second / 50;
    const timespec until = to_timespec(real_ns(wall ? CLOCK_REALTIME : CLOCK_MONOTONIC) + piece);
    const int result = real(condition, mutex, &until);
    return result == ETIMEDOUT ? 0 : result;
}

EXPORTED ssize_t write(int fd, const void *data, size_t size) {
    static const auto real = next<decltype(&write)>("write");
    struct stat file;
    if (fd > STDERR_FILENO && control() != nullptr && control()->write_error != 0 &&
        fstat(fd, &file) == 0 && S_ISREG(file.st_mode)) {
        errno = control()->write_error;
        return -1;
    }
    return real(fd, data, size);
}

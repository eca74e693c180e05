// fail_calls.h - makes one call of a whole process fail, whichever thread makes it: the n-th
// allocation, or the n-th call of a function that enters the system, once or from then on. The
// test program is linked by zeb_fail_calls(NAME) of tests/CMakeLists.txt, against the static
// library.
//
// It also keeps account of the blocks that are allocated, and of the time: whoever waits for
// something that a failed call has put off for good must not keep a test waiting as long, so
// time-outs are short, and some time after the failure the clocks run fast.
#pragma once

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <string>

// The calls that can fail; "allocation" stands for malloc, calloc, realloc and strdup.
#define ZEB_FAILING_CALLS(X)                                                                       \
    X(allocation)                                                                                  \
    X(close)                                                                                       \
    X(connect)                                                                                     \
    X(dup2)                                                                                        \
    X(fcntl)                                                                                       \
    X(fgets)                                                                                       \
    X(fopen)                                                                                       \
    X(fork)                                                                                        \
    X(fstat)                                                                                       \
    X(ftruncate)                                                                                   \
    X(gethostbyname)                                                                               \
    X(kill)                                                                                        \
    X(linkat)                                                                                      \
    X(lseek)                                                                                       \
    X(nanosleep)                                                                                   \
    X(open)                                                                                        \
    X(pipe2)                                                                                       \
    X(poll)                                                                                        \
    X(pread)                                                                                       \
    X(pselect)                                                                                     \
    X(pthread_cancel)                                                                              \
    X(pthread_cond_destroy)                                                                        \
    X(pthread_cond_init)                                                                           \
    X(pthread_cond_timedwait)                                                                      \
    X(pthread_create)                                                                              \
    X(pthread_join)                                                                                \
    X(pthread_kill)                                                                                \
    X(pthread_mutex_init)                                                                          \
    X(pthread_mutex_lock)                                                                          \
    X(pthread_mutex_unlock)                                                                        \
    X(read)                                                                                        \
    X(recv)                                                                                        \
    X(rename)                                                                                      \
    X(send)                                                                                        \
    X(setsockopt)                                                                                  \
    X(sigaction)                                                                                   \
    X(socket)                                                                                      \
    X(stat)                                                                                        \
    X(unlink)                                                                                      \
    X(waitpid)                                                                                     \
    X(write)

namespace zeb::test {

#define ZEB_FAILING_CALL_NAME(name) name,
enum class Call { ZEB_FAILING_CALLS(ZEB_FAILING_CALL_NAME) };
#undef ZEB_FAILING_CALL_NAME
inline constexpr size_t k_calls = static_cast<size_t>(Call::write) + 1;

const char *name_of(Call call);

// Instead of an error: half of the bytes pass.
inline constexpr int k_short_count = -1;

// A call that is to fail.
struct FailingPoint {
    Call call = Call::allocation;
    long n = 0; // from 1; 0: none
    bool for_ever = false;
    int error = ENOMEM; // or k_short_count
    // The program goes on as if nothing had happened: nobody need hurry it.
    bool passes = false;
    // Only when the call works again can the program end.
    bool is_lifted = false;
};
std::string to_string(const FailingPoint &point);

// What happened. It may lie in memory that processes share, so that it outlives the one that a
// failure ends.
struct FailingState {
    FailingPoint point;
    std::atomic<bool> armed = false;
    std::atomic<bool> failed = false;
    std::atomic<double> failed_at = 0; // s of the real clock
    std::atomic<long> counts[k_calls] = {};
    std::atomic<long> live_blocks = 0;
    std::atomic<int> stops = 0;       // not 0: the program waited so long that it was asked to end
    std::atomic<bool> lifted = false; // nor could it end, until the call worked again
    std::atomic<int> exits = 0;       // calls of exit and _exit
    std::atomic<int> exit_status = 0;
};

// Puts the state there; null: in memory of this process, where it is at first.
void place_failing_state(FailingState *state);
FailingState &failing_state();

// From now on calls are counted, and this one fails.
void arm(const FailingPoint &point);
void disarm();

// Seconds of a clock that no test changes.
double real_time();

} // namespace zeb::test

// Each call of a whole session fails in turn, once and for ever: memory first, then the calls that
// enter the system.
#include "test_sweep_runner.h"

#include <algorithm>
#include <cstdio>
#include <gtest/gtest.h>

using namespace zeb::test;

namespace {

constexpr int k_shards = 8; // of a scenario, run side by side

// Sanitized processes start so slowly that every so manieth point has to do; a 32-bit host meets
// the same code once more.
#if defined(__SANITIZE_ADDRESS__)
constexpr long k_stride = 29;
#elif defined(__SANITIZE_THREAD__)
constexpr long k_stride = 97;
#elif defined(__i386__)
constexpr long k_stride = 5;
#else
constexpr long k_stride = 1;
#endif

constexpr long k_least_allocations = 10000;
constexpr long k_least_calls = 3000;

constexpr const Scenario *k_scenarios[] = {&k_station, &k_threads, &k_child, &k_records};

// In which ways a call fails.
struct Ways {
    Call call;
    std::vector<int> errors;
    std::vector<int> passing = {}; // errors that, once, nobody notices
    bool for_ever = true;          // also from some call on
    long most = 100000;            // of its calls that fail, the first ones
    bool is_lifted = false;        // for ever means until somebody waits for the work to be done
};

// A call whose number depends on how long somebody waits, or which nothing distinguishes from the
// one before, fails among the first few. What is to be written is waited for however long it takes:
// faults of the writing end some time.
const Ways k_system_calls[] = {
    {.call = Call::close, .errors = {EIO}, .passing = {EINTR}},
    {.call = Call::connect, .errors = {ECONNREFUSED, ETIMEDOUT, EACCES}, .passing = {EINTR}},
    {.call = Call::dup2, .errors = {EMFILE, EINTR}},
    {.call = Call::fcntl, .errors = {EPERM, EBADF}},
    {.call = Call::fgets, .errors = {EIO}},
    {.call = Call::fopen, .errors = {EMFILE, ENOMEM, EIO}},
    {.call = Call::fork, .errors = {EAGAIN, ENOMEM}},
    {.call = Call::fstat, .errors = {EIO, EOVERFLOW}},
    {.call = Call::ftruncate, .errors = {EIO, EINTR}},
    {.call = Call::gethostbyname, .errors = {ENOENT}},
    {.call = Call::kill, .errors = {EPERM, ESRCH}},
    {.call = Call::linkat, .errors = {ENOSPC, EEXIST, EIO, ENOENT}},
    {.call = Call::lseek, .errors = {EIO}},
    {.call = Call::nanosleep, .errors = {}, .passing = {EINTR}, .most = 20},
    {.call = Call::open, .errors = {EMFILE, ENFILE, ENOSPC, EACCES, EINTR, EIO}},
    {.call = Call::pipe2, .errors = {EMFILE, ENFILE}},
    {.call = Call::poll, .errors = {ENOMEM}, .passing = {EINTR}},
    {.call = Call::pread, .errors = {EIO, k_short_count}},
    {.call = Call::pselect,
     .errors = {ENOMEM, EBADF, EINVAL},
     .passing = {EINTR},
     .most = 16,
     .is_lifted = true},
    {.call = Call::pthread_cancel, .errors = {EAGAIN}, .for_ever = false},
    {.call = Call::pthread_cond_destroy, .errors = {EBUSY}},
    {.call = Call::pthread_cond_init, .errors = {EAGAIN, ENOMEM}},
    {.call = Call::pthread_cond_timedwait,
     .errors = {EINVAL},
     .passing = {ETIMEDOUT, EINTR},
     .most = 16},
    {.call = Call::pthread_create, .errors = {EAGAIN}},
    {.call = Call::pthread_join, .errors = {EINVAL}, .for_ever = false},
    {.call = Call::pthread_kill, .errors = {}, .passing = {ESRCH}},
    {.call = Call::pthread_mutex_init, .errors = {EAGAIN, ENOMEM}},
    // Repeated until it works.
    {.call = Call::pthread_mutex_lock,
     .errors = {EINVAL},
     .passing = {EINTR, EAGAIN},
     .for_ever = false,
     .most = 16},
    {.call = Call::pthread_mutex_unlock,
     .errors = {EPERM},
     .passing = {EINTR, EAGAIN},
     .for_ever = false,
     .most = 16},
    {.call = Call::read, .errors = {EIO}, .passing = {EAGAIN, EINTR, k_short_count}},
    {.call = Call::recv, .errors = {ECONNRESET, EIO}, .passing = {EAGAIN, EINTR, k_short_count}},
    {.call = Call::rename, .errors = {EIO, ENOSPC}},
    {.call = Call::send,
     .errors = {ECONNRESET, EPIPE},
     .passing = {EAGAIN, EINTR, k_short_count},
     .most = 60},
    {.call = Call::setsockopt, .errors = {EINVAL, ENOMEM}},
    // Who never gets a handler is ended by the first signal.
    {.call = Call::sigaction, .errors = {EINVAL}, .for_ever = false},
    {.call = Call::socket, .errors = {EMFILE, ENFILE, ENOBUFS, ENOMEM}},
    {.call = Call::stat, .errors = {EIO, ENOENT}},
    {.call = Call::unlink, .errors = {EACCES}},
    {.call = Call::waitpid, .errors = {EINTR, ECHILD}},
    {.call = Call::write,
     .errors = {ENOSPC, EIO, EAGAIN, EPIPE},
     .passing = {EINTR, k_short_count},
     .is_lifted = true},
};

const Ways k_memory[] = {{.call = Call::allocation, .errors = {ENOMEM}}};

struct Totals {
    long points = 0, fatal = 0, stopped = 0, lifted = 0, faults = 0;
};

// One shard of the points of a scenario.
class Sweep {
  public:
    Sweep(const Scenario &scenario, int shard) : runner_(scenario), shard_(shard) {}

    template <size_t N> void fail_each(const Ways (&calls)[N]) {
        for (const Ways &ways : calls) {
            for (const bool passes : {false, true}) {
                for (const int error : passes ? ways.passing : ways.errors) {
                    fail_each(ways, {ways.call, 0, false, error, passes, false});
                    if (ways.for_ever)
                        fail_each(ways, {ways.call, 0, true, error, false, ways.is_lifted});
                }
            }
        }
    }
    const Totals &totals() const { return totals_; }

  private:
    // Until a session passes without meeting the failure.
    void fail_each(const Ways &ways, FailingPoint point) {
        const long most = std::min(ways.most, 2 * runner_.calls(ways.call) + 20);
        for (; runner_.calls(ways.call) != 0; next_ += k_stride * k_shards) {
            point.n = next_;
            if (next_ > most || !fail(point))
                break;
        }
        // The next kind goes on where the stride has arrived, so that all shards have their part.
        next_ = 1 + (next_ - 1 + shard_) % (k_stride * k_shards);
    }
    bool fail(const FailingPoint &point) {
        const PointResult result = runner_.run(point);
        totals_.points += result.struck;
        totals_.fatal += result.fatal;
        totals_.stopped += result.stopped;
        totals_.lifted += result.lifted;
        if (!result.fault.empty() && ++totals_.faults <= 5)
            ADD_FAILURE() << result.fault << "\n" << runner_.errors();
        else if (!result.fault.empty())
            ADD_FAILURE() << result.fault;
        return result.struck;
    }

    SweepRunner runner_;
    int shard_;
    long next_ = 1 + shard_;
    Totals totals_;
};

using Part = std::tuple<const Scenario *, int>;

class SweepTest : public testing::TestWithParam<Part> {
  protected:
    Sweep sweep{*std::get<0>(GetParam()), std::get<1>(GetParam())};
    void print(const char *kind) const {
        const Totals &totals = sweep.totals();
        printf("%ld %s points (stride %ld): %ld ended the process as settled, %ld were asked to "
               "end, %ld could only when the call worked again\n",
               totals.points, kind, k_stride, totals.fatal, totals.stopped, totals.lifted);
    }
};

std::string part_name(const testing::TestParamInfo<Part> &info) {
    return std::string(std::get<0>(info.param)->name) + std::to_string(std::get<1>(info.param));
}

template <size_t N> long points(const SweepRunner &runner, const Ways (&calls)[N]) {
    long sum = 0;
    for (const Ways &ways : calls)
        sum += std::min(runner.calls(ways.call), ways.most) *
               static_cast<long>(ways.errors.size() + ways.passing.size()) *
               (ways.for_ever ? 2 : 1);
    return sum;
}

} // namespace

TEST_P(SweepTest, EveryAllocation) {
    sweep.fail_each(k_memory);
    print("allocation");
}

TEST_P(SweepTest, EverySystemCall) {
    sweep.fail_each(k_system_calls);
    print("system-call");
}

INSTANTIATE_TEST_SUITE_P(Scenarios, SweepTest,
                         testing::Combine(testing::ValuesIn(k_scenarios),
                                          testing::Range(0, k_shards)),
                         part_name);

TEST(Sweep, MeetsManyPoints) {
    long allocations = 0, calls = 0;
    for (const Scenario *scenario : k_scenarios) {
        const SweepRunner runner(*scenario);
        allocations += points(runner, k_memory);
        calls += points(runner, k_system_calls);
        printf("%s: %ld allocation points, %ld system-call points\n", scenario->name,
               points(runner, k_memory), points(runner, k_system_calls));
        for (size_t i = 0; i < k_calls; ++i)
            printf("  %s %ld\n", name_of(static_cast<Call>(i)), runner.calls(static_cast<Call>(i)));
    }
    printf("%ld allocation points, %ld system-call points\n", allocations, calls);
    EXPECT_GE(allocations, k_least_allocations);
    EXPECT_GE(calls, k_least_calls);
}

// test_sweep_runner.h - runs a session with one call failing, in a process of its own, and then a
// clean one in the same process, and judges how both ended.
#pragma once

#include "test_sweep_peer.h"
#include "test_sweep_session.h"

namespace zeb::test {

// How a point ended.
struct PointResult {
    bool struck = false;  // whether it came to the failure
    bool fatal = false;   // the process ended, in one of the ways in which it may
    bool stopped = false; // it had to be asked to end
    bool lifted = false;  // nor could it end before the call worked again
    std::string fault;    // what is wrong; empty when nothing is
};

struct SharedSweep;

class SweepRunner {
  public:
    explicit SweepRunner(const Scenario &scenario);
    ~SweepRunner();
    PointResult run(const FailingPoint &point);
    // How many calls a session makes when none fails.
    long calls(Call call) const { return calls_[static_cast<size_t>(call)]; }
    // What the last process wrote on standard error.
    std::string errors() const;

    SweepRunner(const SweepRunner &) = delete;
    SweepRunner &operator=(const SweepRunner &) = delete;

  private:
    [[noreturn]] void run_here(const FailingPoint &point);
    int wait_for(int process, int alive, bool *hangs) const;
    std::string judge(const FailingPoint &point, int status, PointResult *result) const;
    std::string judge_end(const FailingPoint &point, int status, PointResult *result) const;
    std::string judge_rest() const;
    std::string judge_log(const FailingPoint &point, bool ended_early) const;
    void empty_log() const;

    const Scenario &scenario_;
    SweepPeer peer_;
    TempDir home_, logs_;
    ScopedEnv zeb2_, db_, server_;
    SharedSweep *shared_ = nullptr;
    int errors_ = -1;
    long calls_[k_calls] = {};
};

} // namespace zeb::test

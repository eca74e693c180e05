// Faults: storms of signals, links that are made and ended without pause, children that die
// together.

#include "faults.h"
#include "flow_station.h"

#include <csignal>
#include <gmock/gmock.h>
#include <sstream>
#include <sys/wait.h>
#include <zeb2/libzeb2.h>

using namespace zeb::test;
using testing::HasSubstr;

namespace {

class FaultSignals : public Flow {};

TEST_F(FaultSignals, AStormOfWakeUpsHoldsNobodyUp) {
    ASSERT_TRUE(ready_);
    const auto instrument = pump();
    const auto daemon = run({"flow"});
    const auto conductor = run({"zeblogd"});
    ASSERT_TRUE(wait_for_daemons(2));
    const auto watcher = run({"zebctl", "watch", "--json", "--type", "MSG_TSITMF_INSTANT",
                              "--count", "20", "--timeout", "60"});
    while (watcher->running())
        for (int i = 0; i < 1000; ++i)
            for (Process *program : {server_.get(), serial_.get(), daemon.get(), conductor.get()})
                program->signal(SIGUSR1);
    EXPECT_EQ(watcher->wait(), 0) << watcher->errors();
    for (Process *program : {daemon.get(), conductor.get(), serial_.get(), server_.get()}) {
        program->signal(SIGTERM);
        EXPECT_EQ(program->wait(), 0) << program->errors();
    }
}

// ---- A thousand links ----

struct Use {
    long descriptors = 0, threads = 0, kib = 0;
};

class FaultThreads : public Flow {
  protected:
    void survive(int rounds) {
        const auto instrument = pump();
        const size_t before[] = {open_files(server_->pid()), open_files(serial_->pid())};
        const std::string own = dir_ / "peer";
        std::filesystem::create_directory(own);
        Process::Options options{{{"ZEB2RUN", dir_.path()}}};
        Process peer(own,
                     {built_path("tests/integration/link_peer"), std::to_string(rounds), "=flow"},
                     options);
        ASSERT_TRUE(wait_until([&] { return !peer.running(); }, 110));
        ASSERT_EQ(peer.wait(), 0) << peer.errors();
        Use early, late;
        std::istringstream(peer.output()) >> early.descriptors >> early.threads >> early.kib >>
            late.descriptors >> late.threads >> late.kib;
        EXPECT_EQ(late.descriptors, early.descriptors);
        EXPECT_EQ(late.threads, early.threads);
        EXPECT_EQ(late.threads, 1);
        if (!is_sanitized()) {
            EXPECT_LT(late.kib, early.kib + 1024);
        }
        EXPECT_TRUE(wait_until([&] {
            return open_files(server_->pid()) == before[0] &&
                   open_files(serial_->pid()) == before[1];
        }));
    }
};

TEST_F(FaultThreads, AThousandConnectsAndDisconnectsAtAnyPointLeaveNothingBehind) {
    ASSERT_TRUE(ready_);
    survive(1000);
}

// ---- Children ----

class FaultChildren : public testing::Test {
  protected:
    FaultChildren() {
        LIBZEB_init("test");
        EXPECT_TRUE(ZEBFILE_init());
    }
    ~FaultChildren() override {
        ZEBFILE_destroy();
        LIBZEB_cleanup();
    }
    static constexpr int k_children = 100;
    PRGPIPE_link children_[k_children] = {};

    void start(const char *what) {
        char option[] = "-c", last[] = "";
        std::string command = what;
        char *arguments[] = {option, command.data(), last, nullptr};
        for (PRGPIPE_link &child : children_)
            ASSERT_TRUE(PRGPIPE_createchild("/bin/sh", &child, FALSE, arguments));
    }
    bool all_dead() {
        return wait_until([this] {
            int dead = 0;
            for (PRGPIPE_link &child : children_)
                dead += child.child_pid == -1 || PRGPIPE_test_dead(&child) ? 1 : 0;
            return dead == k_children;
        });
    }
};

TEST_F(FaultChildren, AHundredThatDieAtOnceAreAllNoticedAndNothingStays) {
    StderrCapture err;
    const auto before = open_descriptors();
    for (int round = 0; round < 3; ++round) {
        ASSERT_NO_FATAL_FAILURE(start("exec sleep 1000"));
        for (const PRGPIPE_link &child : children_)
            kill(child.child_pid, SIGKILL);
        EXPECT_TRUE(all_dead());
    }
    ZEBFILE_destroy(); // a close may wait there until the number is used again
    EXPECT_LE(open_descriptors().size(), before.size());
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1); // no zombies
}

TEST_F(FaultChildren, AHundredThatFloodAndEndLeaveNothingBehind) {
    StderrCapture err;
    const auto before = open_descriptors();
    ASSERT_NO_FATAL_FAILURE(start("head -c 300000 /dev/zero"));
    EXPECT_TRUE(wait_until([this] { // their output must be read, or they never end
        char block[8192];
        int open = 0;
        for (PRGPIPE_link &child : children_) {
            if (child.child_pid != -1) {
                ZEBFILE_read_atmost(child.read_stdout, block, sizeof block);
                open += PRGPIPE_test_dead(&child) ? 0 : 1;
            }
        }
        return open == 0;
    }));
    ZEBFILE_destroy();
    EXPECT_LE(open_descriptors().size(), before.size());
}

} // namespace

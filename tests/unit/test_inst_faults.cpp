// The instrument link when memory, descriptors or a system call fail.
#include "fail_alloc.h"
#include "inst_testing.h"

#include <cerrno>

using namespace zeb;
using namespace zeb::test;
using testing::HasSubstr;
using testing::Not;

namespace {

class InstFaults : public InstTest {
  protected:
    // A connect that failed has left nothing that a disconnect does not release.
    void expect_failed() {
        EXPECT_EQ(lnk.thd, nullptr);
        EXPECT_FALSE(INST_test_connected(&lnk));
        EXPECT_FALSE(INST_wait_connected(&lnk)) << "nobody services the links";
        EXPECT_FALSE(INST_sleep(&lnk, 3600));
        INST_disconnect(&lnk);
        EXPECT_EQ(open_descriptors(), before);
    }
    const std::set<int> before = open_descriptors();
};

// Every descriptor below the limit of a set in use, but for `free`.
class HighDescriptors {
  public:
    explicit HighDescriptors(int free) {
        while (held_.empty() || held_.back() < FD_SETSIZE + 76)
            held_.push_back(dup(0));
        for (int i = 0; i < free; ++i)
            close(held_[static_cast<size_t>(i)]);
        held_.erase(held_.begin(), held_.begin() + free);
    }
    ~HighDescriptors() {
        for (const int fh : held_)
            close(fh);
    }
    HighDescriptors(const HighDescriptors &) = delete;
    HighDescriptors &operator=(const HighDescriptors &) = delete;

  private:
    std::vector<int> held_;
};

} // namespace

TEST_F(InstFaults, AMutexThatCannotBeMadeFailsTheConnect) {
    g_replaced->mutex_init_fails = 4; // after those of the message link and two serial links
    EXPECT_FALSE(connect({true, true, 0}));
    expect_report("system call failed (inst.cpp:");
    expect_report("pthread_mutex_init(&lnk->mtx, nullptr): Resource temporarily unavailable");
    expect_failed();
}

TEST_F(InstFaults, AThreadThatCannotBeMadeFailsTheConnect) {
    g_replaced->create_error = EAGAIN;
    EXPECT_FALSE(connect({true, true, 3}));
    expect_report("system call failed (inst.cpp:");
    expect_report("pthread_create(");
    expect_report("Resource temporarily unavailable");
    expect_failed();
}

TEST_F(InstFaults, MemoryForTheThreadsHandleThatCannotBeHadFailsTheConnect) {
    // The handle is the last allocation of all.
    for (int n = 60; n > 0; --n) {
        BOOL connected;
        bool failed;
        {
            FailingAlloc failing(Alloc::fresh, n);
            connected = connect({});
            failed = failing.failed();
        }
        if (failed) {
            EXPECT_FALSE(connected);
            expect_report("assertion failed (inst.cpp:");
            expect_report("Cannot allocate memory");
            expect_failed();
            return;
        }
        ASSERT_TRUE(connected);
        INST_disconnect(&lnk);
        close_clients();
    }
    FAIL() << "no allocation failed";
}

TEST_F(InstFaults, AFurtherLinkThatCannotBeListedIsLeftToItsOwner) {
    for (const int n : {1, 2}) {
        {
            FailingAlloc failing(Alloc::fresh, n);
            EXPECT_FALSE(connect({false, false, 1}));
            EXPECT_TRUE(failing.failed());
        }
        EXPECT_EQ(lnk.ext_sc_links.count, 0);
        EXPECT_EQ(lnk.msg_lnk.stat, ZEBMSG_S_UNINITIALIZED);
        SERIALCOM_multi_destroy(&further[0]);
        expect_failed();
    }
}

TEST_F(InstFaults, AThreadThatCannotBeCancelledLeavesTheLinksAsTheyAre) {
    open({true, false, 1});
    g_replaced->cancel_error = EPERM;
    INST_disconnect(&lnk);
    expect_report("system call failed (inst.cpp:");
    expect_report("pthread_cancel(");
    EXPECT_NE(lnk.thd, nullptr);
    EXPECT_THAT(err.text(), Not(HasSubstr("Disconnected socket")));
    EXPECT_EQ(lnk.ext_sc_links.count, 1);
    g_replaced->cancel_error = 0;
    INST_disconnect(&lnk);
    EXPECT_EQ(lnk.thd, nullptr);
    EXPECT_EQ(lnk.msg_lnk.stat, ZEBMSG_S_UNINITIALIZED);
}

TEST_F(InstFaults, AThreadThatCannotBeJoinedLeavesTheLinksAsTheyAre) {
    open({});
    g_replaced->join_error = EINVAL;
    INST_disconnect(&lnk);
    expect_report("system call failed (inst.cpp:");
    expect_report("pthread_join(");
    EXPECT_NE(lnk.thd, nullptr);
    EXPECT_THAT(err.text(), Not(HasSubstr("Disconnected socket")));
    g_replaced->join_error = 0;
    INST_disconnect(&lnk);
    EXPECT_EQ(lnk.thd, nullptr);
    EXPECT_EQ(lnk.msg_lnk.stat, ZEBMSG_S_UNINITIALIZED);
}

TEST_F(InstFaults, SocketsThatNoSetHoldsAreRefused) {
    const std::pair<Layout, int> steps[] = {
        {{false, false, 1}, 0}, // the further link
        {{false, false, 1}, 1}, // the message link
        {{true, false, 0}, 1},  // the serial link
        {{true, true, 0}, 2},   // the link for log lines
    };
    for (const auto &[layout, free] : steps) {
        StderrCapture step;
        {
            HighDescriptors high(free);
            EXPECT_FALSE(connect(layout));
            INST_disconnect(&lnk);
            SERIALCOM_multi_destroy(&further[0]);
        }
        EXPECT_THAT(step.finish(), HasSubstr("does not fit a descriptor set (0 to 1023)"));
        EXPECT_EQ(open_descriptors(), before);
    }
}

TEST_F(InstFaults, AnOpenInstrumentOutlivesADaemonThatHasTooManyDescriptors) {
    open({true, false, 0});
    HighDescriptors high(0);
    expect_serves_messages();
    expect_serves(&lnk.sc_lnk, *clients[0]);
    expect_no_failed_select();
}

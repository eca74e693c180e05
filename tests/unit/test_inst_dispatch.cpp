// The dispatch thread: its cycle, its hooks, its wake-ups.
#include "inst_testing.h"

#include "util.h"

using namespace zeb;
using namespace zeb::test;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr Layout k_all = {true, true, 1};

class InstDispatch : public InstTest {
  protected:
    // From here on the select ends for a reason only; it is being waited in when this returns.
    void make_selects_endless() {
        g_replaced->endless = true;
        ASSERT_TRUE(wait_until([] { return g_replaced->endless_selects > 0; }));
    }
    size_t calls_of(const void *link) {
        const std::lock_guard<std::mutex> guard(g_replaced->mutex);
        return static_cast<size_t>(
            std::count_if(g_replaced->calls.begin(), g_replaced->calls.end(),
                          [&](const HookCall &c) { return c.link == link; }));
    }
};

} // namespace

// ---- The cycle ----

TEST_F(InstDispatch, EverySignalIsBlockedButTheWakeUpInTheSelect) {
    open({});
    for (int signal = 1; signal < 32; ++signal) {
        if (signal == SIGKILL || signal == SIGSTOP)
            continue;
        EXPECT_EQ(sigismember(&g_replaced->thread_mask, signal), 1) << signal;
        EXPECT_EQ(sigismember(&g_replaced->select_mask, signal), signal == SIGUSR1 ? 0 : 1);
    }
    struct sigaction action;
    sigaction(SIGUSR1, nullptr, &action);
    EXPECT_EQ(action.sa_handler, UTIL_empty_sighandler);
}

TEST_F(InstDispatch, TheSelectTakesATwentiethOfASecondAtMost) {
    open({});
    EXPECT_EQ(g_replaced->time_out.tv_sec, 0);
    EXPECT_EQ(g_replaced->time_out.tv_nsec, 50000000);
}

TEST_F(InstDispatch, EveryPassCallsTheHooksInOneOrder) {
    const Layout layout = {true, true, 3};
    open(layout);
    EXPECT_TRUE(some_cycles_pass());
    std::vector<HookCall> calls;
    {
        const std::lock_guard<std::mutex> guard(g_replaced->mutex);
        calls = g_replaced->calls;
    }
    const std::vector<const void *> order = {
        nullptr, &lnk.msg_lnk, &lnk.sc_lnk, &lnk.log_sc_lnk, &further[0], &further[1], &further[2]};
    std::set<HookKind> seen;
    for (size_t i = 0; i + order.size() <= calls.size(); i += order.size()) {
        const HookKind kind = calls[i].kind;
        EXPECT_EQ(kind == HookKind::init, i == 0);
        EXPECT_EQ(kind == HookKind::pre_select, i / order.size() % 2 == 1)
            << "every other pass, after the first";
        seen.insert(kind);
        for (size_t k = 0; k < order.size(); ++k)
            EXPECT_EQ(calls[i + k], (HookCall{order[k], kind})) << i << "+" << k;
    }
    EXPECT_EQ(seen.size(), 4U);
}

TEST_F(InstDispatch, ALinkWhoseHookReturnsFalseIsServicedNoMore) {
    const std::vector<const void *> links = {&lnk.msg_lnk, &lnk.sc_lnk, &lnk.log_sc_lnk,
                                             &further[0]};
    for (const HookKind kind :
         {HookKind::init, HookKind::pre_select, HookKind::post_select, HookKind::loop_continue}) {
        for (const void *refused : links) {
            g_replaced->refuses = true;
            g_replaced->refused = {refused, kind};
            g_replaced->calls.clear();
            ASSERT_TRUE(connect(k_all));
            const auto up_flags = [&] {
                return std::vector<bool>{flag(&lnk.msg_lnk_up), is_up(&lnk.sc_lnk),
                                         is_up(&lnk.log_sc_lnk), is_up(&further[0])};
            };
            std::vector<bool> expected;
            for (const void *link : links)
                expected.push_back(link != refused);
            EXPECT_TRUE(wait_until([&] { return up_flags() == expected; }));
            const size_t calls = calls_of(refused);
            EXPECT_TRUE(some_cycles_pass());
            EXPECT_EQ(calls_of(refused), calls);
            EXPECT_EQ(up_flags(), expected);
            EXPECT_FALSE(INST_test_connected(&lnk));
            INST_disconnect(&lnk);
            close_clients();
        }
    }
}

TEST_F(InstDispatch, WithoutADescriptorOfInterestTheThreadYieldsInsteadOfSelecting) {
    open({});
    server.close_client();
    EXPECT_TRUE(wait_until([&] { return !flag(&lnk.msg_lnk_up); }));
    const int yields = g_replaced->dispatch_yields;
    EXPECT_TRUE(wait_until([&] { return g_replaced->dispatch_yields >= yields + 10; }));
    const int selects = g_replaced->selects;
    const int then = g_replaced->dispatch_yields;
    EXPECT_TRUE(wait_until([&] { return g_replaced->dispatch_yields >= then + 10; }));
    EXPECT_EQ(g_replaced->selects, selects);
    const std::lock_guard<std::mutex> guard(g_replaced->mutex);
    EXPECT_EQ(g_replaced->calls.back().link, nullptr) << "the descriptors are still serviced";
}

TEST_F(InstDispatch, TheLossOfTheServerShowsWithinOneCycle) {
    open({});
    make_selects_endless();
    const int selects = g_replaced->selects;
    server.close_client();
    EXPECT_TRUE(wait_until([&] { return !flag(&lnk.msg_lnk_up); }));
    EXPECT_LE(g_replaced->selects, selects + 1);
    expect_report("Zero length read on message socket, assuming termination, closing connection");
}

// ---- Wake-ups ----

TEST_F(InstDispatch, ARequestOnAnyLinkLeavesAlthoughNoTimeOutPasses) {
    open({true, true, 3});
    make_selects_endless();
    const std::vector<SERIALCOM_link *> links = serial_links({true, true, 3});
    for (size_t i = 0; i < links.size(); ++i)
        expect_serves(links[i], *clients[i]);
    expect_no_failed_select();
}

TEST_F(InstDispatch, QueuedBytesOfADescriptorLeaveAlthoughNoTimeOutPasses) {
    open({});
    Pipe out;
    const int fh = out.give(1);
    ASSERT_TRUE(ZEBFILE_associate_fh(fh, ZEBFILE_WRITE));
    EXPECT_EQ(g_zebfile_signal_thread, lnk.thd);
    make_selects_endless();
    ZEBFILE_write(fh, "now", 3);
    std::string text;
    EXPECT_TRUE(wait_until([&] { return !(text = out.take()).empty(); }));
    EXPECT_EQ(text, "now");
}

TEST_F(InstDispatch, FarewellsLeaveAlthoughNoTimeOutPasses) {
    open(k_all);
    make_selects_endless();
    INST_disconnect(&lnk);
    EXPECT_EQ(server.wait_next()->type, MSG_SERVER_TERMINATE);
    for (SerialClient *client : clients)
        EXPECT_EQ(client->wait_request()->type, static_cast<unsigned>(SERIALD_REQUEST_CLOSE));
}

TEST_F(InstDispatch, WakeUpsAreNoErrors) {
    open(k_all);
    make_selects_endless();
    const int selects = g_replaced->selects;
    for (int i = 1; i <= 20; ++i) {
        pthread_kill(*lnk.thd, SIGUSR1);
        EXPECT_TRUE(wait_until([&] { return g_replaced->selects >= selects + i; }));
    }
    expect_no_failed_select();
    EXPECT_TRUE(INST_test_connected(&lnk));
}

TEST_F(InstDispatch, AQueuedMessageLeavesWithACycleThatFollows) {
    open({});
    ZEBMSG_queue_message_lib(&lnk.msg_lnk, MSG_NOTIFY_CLIENT_CONNECT, 1, nullptr, nullptr, 0,
                             nullptr, TRUE);
    EXPECT_EQ(server.wait_next()->type, MSG_NOTIFY_CLIENT_CONNECT);
}

// ---- Failed selects ----

TEST_F(InstDispatch, ADescriptorClosedBehindItsBackIsPrunedAndTheStatusIsBad) {
    open({true, false, 0});
    Pipe low, high;
    const int bad = low.give(0);
    ASSERT_LT(bad, high.reader());
    ASSERT_TRUE(ZEBFILE_associate_fh(high.give(0), ZEBFILE_READ));
    ASSERT_TRUE(ZEBFILE_associate_fh(bad, ZEBFILE_READ));
    close(bad);
    EXPECT_TRUE(wait_until([&] { return !flag(&lnk.status_ok); }));
    const std::string pruned = "WARNING: Pruned file " + number(bad) + " from read list";
    EXPECT_TRUE(wait_until([&] { return err.text().find(pruned) != std::string::npos; }));
    expect_report("Select failed: Bad file descriptor (inst_dispatch.cpp:");
    expect_report("CRITICAL: bad file descriptor, atempting to prune (inst_dispatch.cpp:");
    ZEBFILE_close(bad);
    expect_serves_messages();
    expect_serves(&lnk.sc_lnk, *clients[0]);
    EXPECT_TRUE(flag(&lnk.msg_lnk_up));
    EXPECT_FALSE(INST_test_connected(&lnk)) << "the status stays bad";
    EXPECT_FALSE(INST_wait_connected(&lnk));
    EXPECT_FALSE(INST_sleep(&lnk, 3600));
}

TEST_F(InstDispatch, AMessageSocketClosedJustBeforeTheSelectIsNoFailure) {
    open({true, false, 0});
    // The farewell cannot leave while the select is held, so the socket is closed under it.
    g_replaced->released = [&] {
        ZEB_LOCK(guard, &lnk.msg_lnk.mtx);
        return lnk.msg_lnk.fh == -1;
    };
    g_replaced->hold = true;
    EXPECT_TRUE(wait_until([] { return !g_replaced->hold; }));
    ZEBMSG_multi_disconnect(&lnk.msg_lnk);
    EXPECT_TRUE(some_cycles_pass());
    expect_no_failed_select();
    EXPECT_TRUE(flag(&lnk.status_ok));
    EXPECT_EQ(ZEBMSG_test_connected_ext(&lnk.msg_lnk), -1) << "a pre-select has seen it";
    expect_serves(&lnk.sc_lnk, *clients[0]);
}

TEST_F(InstDispatch, AnotherBadDescriptorIsAFailureEvenThen) {
    open({});
    Pipe in;
    const int bad = in.give(0);
    ASSERT_TRUE(ZEBFILE_associate_fh(bad, ZEBFILE_READ));
    EXPECT_TRUE(some_cycles_pass());
    g_replaced->released = [&] {
        ZEB_LOCK(guard, &lnk.msg_lnk.mtx);
        return lnk.msg_lnk.fh == -1;
    };
    g_replaced->hold = true;
    EXPECT_TRUE(wait_until([] { return !g_replaced->hold; }));
    close(bad);
    ZEBMSG_multi_disconnect(&lnk.msg_lnk);
    EXPECT_TRUE(wait_until([&] { return !flag(&lnk.status_ok); }));
    expect_report("Pruned file " + number(bad));
}

TEST_F(InstDispatch, AnOrderlyDisconnectNeverFailsASelect) {
    for (int i = 0; i < 20; ++i) {
        open(k_all);
        INST_disconnect(&lnk);
    }
    expect_no_failed_select();
}

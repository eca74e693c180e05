// inst_testing.h - what the tests of the instrument link share: both servers played by the test,
// the links between, and the calls of the code under test that a test watches or replaces.
#pragma once

#include "inst.h"
#include "scripted_serial_server.h"
#include "scripted_server.h"
#include "zebfile_testing.h"

#include <atomic>
#include <mutex>
#include <vector>

namespace zeb::test {

// ---- Replaced calls ----

enum class HookKind { init, pre_select, post_select, loop_continue };

// One call of a hook by the dispatch thread; the link is null for the buffered descriptors.
struct HookCall {
    const void *link;
    HookKind kind;
    bool operator==(const HookCall &) const = default;
};

// What the replaced calls do; made anew for each test, before there is a dispatch thread, and null
// before the first.
struct Replaced {
    // The select of the dispatch thread.
    std::atomic<int> selects = 0;         // begun
    std::atomic<bool> endless = false;    // they end for a reason only, never by their time-out
    std::atomic<int> endless_selects = 0; // begun without a time-out
    std::atomic<bool> hold = false;       // the next one waits here for `released`, once
    std::function<bool()> released;
    timespec time_out = {-1, -1}; // of the first
    sigset_t select_mask;
    sigset_t thread_mask;
    // Calls that fail: the error, and which call it is to be, from 1 on.
    int connect_fails = 0;
    int mutex_init_fails = 0;
    std::atomic<int> connects = 0;
    std::atomic<int> mutex_inits = 0;
    std::atomic<int> create_error = 0;
    std::atomic<int> cancel_error = 0;
    std::atomic<int> join_error = 0;
    // Waits of the thread that runs the test.
    std::vector<double> slices;           // of UTIL_fsleep
    std::function<void()> on_slice;       // instead of sleeping
    std::function<void()> on_yield;       // instead of yielding
    std::atomic<int> dispatch_yields = 0; // of other threads
    // Hooks.
    std::mutex mutex;
    std::vector<HookCall> calls;
    bool refuses = false;
    HookCall refused = {}; // returns FALSE and does nothing

    const pthread_t test_thread = pthread_self();
};
extern std::unique_ptr<Replaced> g_replaced;

// ---- The links ----

// Which links an instrument has.
struct Layout {
    bool serial = false;
    bool log = false;
    int further = 0;
    int serials() const { return further + serial + log; }
};

class InstTest : public testing::Test {
  protected:
    InstTest();
    ~InstTest() override;

    BOOL connect(const Layout &layout);
    // Connects and answers every handshake.
    void open(const Layout &layout);
    // Takes and closes whatever has connected; few connections can wait at a server.
    void close_clients();
    // The serial links in the order in which they connect.
    std::vector<SERIALCOM_link *> serial_links(const Layout &layout);

    bool flag(const BOOL *up);
    bool is_up(const SERIALCOM_link *serial);
    // Whether the dispatch thread serves what comes and what is asked.
    void expect_serves_messages();
    void expect_serves(SERIALCOM_link *serial, SerialClient &client);
    // Some further selects of the dispatch thread.
    bool some_cycles_pass();
    void expect_report(const std::string &text) {
        EXPECT_THAT(err.text(), testing::HasSubstr(text));
    }
    void expect_no_failed_select() {
        EXPECT_THAT(err.text(), testing::Not(testing::HasSubstr("Select failed")));
    }

    StderrCapture err;
    ScopedEnv no_server{"ZEB2SERVER", nullptr};
    ScriptedServer server;
    ScriptedSerialServer serial_server{server.run_directory()};
    std::vector<SerialClient *> clients; // in the order of serial_links()
    INST_link lnk = {};
    SERIALCOM_link further[3] = {};
    unsigned heartbeat = 1;
};

} // namespace zeb::test

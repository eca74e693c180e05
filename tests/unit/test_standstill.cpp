// A process, or the whole machine, that stands still for ten minutes: every clock has gone on, and
// nothing of it may be taken for the silence of a peer. The clocks of this program jump when a test
// says so.
#include "scripted_serial_server.h"
#include "scripted_server.h"
#include "util.h"

#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

using namespace zeb::test;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr double k_standstill = 600; // s

std::atomic<int> g_stood_still = 0; // s, of all standstills
std::atomic<int> g_looks = 0;       // at any clock since arm()
std::atomic<int> g_strikes_at = -1; // the look that comes after a standstill; -1: none

void look() {
    if (g_looks++ == g_strikes_at)
        g_stood_still += static_cast<int>(k_standstill);
}

// Look number `at` from now on comes after a standstill.
void arm(int at) {
    g_looks = 0;
    g_strikes_at = at;
}

} // namespace

extern "C" {
int __real_clock_gettime(clockid_t clock, timespec *now);
int __real_gettimeofday(timeval *now, void *zone);
int __real_pthread_cond_timedwait(pthread_cond_t *cond, pthread_mutex_t *mutex, const timespec *at);

int __wrap_clock_gettime(clockid_t clock, timespec *now) {
    look();
    const int result = __real_clock_gettime(clock, now);
    now->tv_sec += g_stood_still;
    return result;
}

int __wrap_gettimeofday(timeval *now, void *zone) {
    look();
    const int result = __real_gettimeofday(now, zone);
    now->tv_sec += g_stood_still;
    return result;
}

int __wrap_pthread_cond_timedwait(pthread_cond_t *cond, pthread_mutex_t *mutex,
                                  const timespec *at) {
    const timespec real = {at->tv_sec - g_stood_still, at->tv_nsec};
    return __real_pthread_cond_timedwait(cond, mutex, &real);
}
}

namespace {

ZEBMSG_connect_params params_of(const char *name) {
    ZEBMSG_connect_params cp;
    ZEBMSG_init_params(&cp);
    cp.id_str = name;
    return cp;
}

// Two message links and a serial one in one loop, open. Each server keeps its own run directory.
class Standstill : public testing::Test {
  protected:
    void SetUp() override {
        open(message_server_, &messages_);
        further_server_.emplace();
        open(*further_server_, &further_);
        serial_server_.emplace();
        open_serial();
        zeb::loop_begins();
        zeb::pass_begins();
    }
    void TearDown() override {
        arm(-1);
        SERIALCOM_multi_destroy(&serial_);
        ZEBMSG_multi_destroy(&further_);
        ZEBMSG_multi_destroy(&messages_);
    }

    void open(ScriptedServer &server, ZEBMSG_link *lnk) {
        ZEBMSG_connect_params cp = params_of("neph1");
        ASSERT_TRUE(ZEBMSG_multi_connect(&cp, lnk));
        ASSERT_TRUE(server.accept());
        server.handshake(1);
        HookLoop loop(lnk);
        ASSERT_TRUE(loop.run_until([&] { return lnk->stat == ZEBMSG_S_OPEN; }));
    }
    void open_serial() {
        SERIALD_connect_params cp = {};
        strcpy(cp.port_name, "ttyS0");
        ASSERT_TRUE(SERIALCOM_multi_connect(&cp, &serial_));
        serial_client_ = &serial_server_->accept();
        SerialHookLoop loop({&serial_});
        ASSERT_TRUE(loop.run_until([&] { return serial_client_->received_bytes().size() == 266; }));
        ASSERT_EQ(serial_client_->wait_handshake(), "ttyS0");
        serial_client_->success();
        ASSERT_TRUE(loop.run_until([&] { return serial_.stat == SERIALCOM_S_OPEN; }));
    }

    // One pass over all links with nothing to read and, if asked for, everything ready to write;
    // whether each is kept.
    bool pass(bool ready_to_write) {
        int fd_max = 0;
        fd_set rx, tx, none, ready;
        for (fd_set *set : {&rx, &tx, &none, &ready})
            FD_ZERO(set);
        if (ready_to_write)
            for (const int fh : {messages_.fh, further_.fh, serial_.fh})
                FD_SET(fh, &ready);
        zeb::pass_begins();
        bool kept = true;
        for (ZEBMSG_link *lnk : {&messages_, &further_})
            kept &= ready_to_write
                        ? ZEBMSG_dispatch_post_select(lnk, &rx, &tx, &none, &ready, &fd_max) == TRUE
                        : ZEBMSG_dispatch_loop_continue(lnk, &rx, &tx, &fd_max) == TRUE;
        kept &=
            ready_to_write
                ? SERIALCOM_dispatch_post_select(&serial_, &rx, &tx, &none, &ready, &fd_max) == TRUE
                : SERIALCOM_dispatch_loop_continue(&serial_, &rx, &tx, &fd_max) == TRUE;
        return kept;
    }
    // The stamps of every link are of now, but for the seconds that this test takes.
    void expect_stamps_of_now() {
        const FTIME now = UTIL_ftime();
        for (const FTIME heard :
             {messages_.last_rx_time, further_.last_rx_time, serial_.last_rx_time}) {
            EXPECT_LE(heard, now + 0.1);
            EXPECT_GT(heard, now - 25);
        }
        EXPECT_LE(serial_.next_hb_time, now + 1.1);
    }
    // Every look of two passes in turn comes after a standstill, until none is left.
    void strike_every_look(bool ready_to_write) {
        int at = 0;
        do {
            arm(at);
            EXPECT_TRUE(pass(ready_to_write)) << "at look " << at;
            EXPECT_TRUE(pass(ready_to_write)) << "at look " << at << ", one pass later";
            const bool struck = g_looks > at;
            arm(-1);
            EXPECT_TRUE(pass(ready_to_write)) << "at look " << at;
            SCOPED_TRACE(at);
            expect_stamps_of_now();
            if (!struck || HasFailure())
                break;
        } while (++at < 1000);
        EXPECT_GE(at, 14); // a pass begins; six hooks look twice at least, and once more
        EXPECT_THAT(err_.text(), Not(HasSubstr("timeout")));
    }

    StderrCapture err_;
    ScopedEnv no_server_{"ZEB2SERVER", nullptr};
    ScriptedServer message_server_;
    std::optional<ScriptedServer> further_server_;
    std::optional<ScriptedSerialServer> serial_server_;
    SerialClient *serial_client_ = nullptr;
    ZEBMSG_link messages_ = {}, further_ = {};
    SERIALCOM_link serial_ = {};
};

TEST_F(Standstill, AtAnyLookAtTheClockClosesNoIdleLink) {
    strike_every_look(false);
}

TEST_F(Standstill, AtAnyLookAtTheClockClosesNoLinkThatSends) {
    strike_every_look(true);
}

TEST_F(Standstill, DoesNotHideAPeerThatIsSilentAfterwards) {
    arm(3);
    EXPECT_TRUE(pass(false));
    EXPECT_TRUE(pass(false));
    EXPECT_TRUE(pass(false));
    messages_.last_rx_time -= 31;
    EXPECT_FALSE(pass(false));
    EXPECT_THAT(err_.text(), HasSubstr("Socket timeout - closing"));
    EXPECT_NE(further_.fh, -1);
    EXPECT_NE(serial_.fh, -1);
}

// A handler of messages that takes long whenever it is called.
TEST_F(Standstill, InEveryPassLeavesNoLinkUnserved) {
    int fd_max = 0;
    fd_set rx, tx, ready, none;
    for (fd_set *set : {&rx, &tx, &ready, &none})
        FD_ZERO(set);
    FD_SET(serial_.fh, &ready);
    const auto pass = [&] {
        zeb::pass_begins();
        EXPECT_TRUE(ZEBMSG_dispatch_loop_continue(&messages_, &rx, &tx, &fd_max));
        g_stood_still += 20;
        EXPECT_TRUE(SERIALCOM_dispatch_post_select(&serial_, &rx, &tx, &ready, &none, &fd_max));
    };
    for (int i = 0; i < 3; ++i)
        pass();
    serial_client_->heartbeat();
    pass();
    EXPECT_EQ(recv(serial_.fh, &fd_max, 1, MSG_PEEK | MSG_DONTWAIT), -1) << "it was not read";
    EXPECT_NEAR(serial_.last_rx_time, UTIL_ftime(), 1);
}

TEST(StandstillOfAThread, KeepsALinkThatHasItsOwnThread) {
    StderrCapture err;
    ScopedEnv no_server{"ZEB2SERVER", nullptr};
    ScriptedServer server;
    ZEBMSG_link lnk = {};
    ZEBMSG_connect_params cp = params_of("neph1");
    ASSERT_TRUE(ZEBMSG_connect(&cp, &lnk));
    ASSERT_TRUE(server.accept());
    server.handshake(1);
    ASSERT_TRUE(ZEBMSG_wait_connected(&lnk));
    ASSERT_EQ(server.wait_next().value().type, MSG_SERVER_CLIENTHANDSHAKE);
    ASSERT_EQ(server.wait_next().value().type, MSG_NOTIFY_CLIENT_CONNECT);
    const auto answers = [&](unsigned index) {
        server.heartbeat(index);
        const ServerMessage echo = server.wait_next().value_or(ServerMessage{});
        return echo.type == MSG_SERVER_HEARTBEAT && echo.as<NET_SERVER_Heartbeat>().hb_idx == index;
    };
    EXPECT_TRUE(answers(1)); // the loop has gone round once
    g_stood_still += static_cast<int>(k_standstill);
    // Idle passes see it first: an answer would make the link look alive.
    const int looked = g_looks;
    ASSERT_TRUE(wait_until([&] { return g_looks > looked + 9; }));
    EXPECT_TRUE(answers(2));
    ZEBMSG_disconnect(&lnk);
    EXPECT_THAT(err.text(), Not(HasSubstr("timeout")));
}

// A loop that has something to select, then nothing for a while, then something again.
class IdleLoop final : public zeb::ServiceLoop {
  public:
    explicit IdleLoop(int fh) : fh_(fh) {}
    std::atomic<bool> done = false;
    double step = -1;

  private:
    static constexpr int k_idle_passes = 3;

    void pre_select() override {
        ++passes_;
        if (is_idle()) {
            zeb::select_remove(fh_, &sets_.rx);
            g_stood_still += 10; // each pass is usual, all of them would not be
        } else {
            zeb::select_add(fh_, &sets_.rx, &sets_.fd_max);
        }
    }
    bool is_idle() const { return passes_ > 1 && passes_ <= 1 + k_idle_passes; }
    void post_select() override {}
    void loop_continue() override {
        if (is_idle() || passes_ == 1 || done)
            return;
        step = zeb::clock_step(UTIL_ftime(), &offset_);
        done = true;
    }
    void select_failed(int) override {}

    int fh_, passes_ = 0;
    double offset_ = 0;
};

TEST(StandstillOfAThread, PassesWithNothingToSelectAreNone) {
    int fh[2];
    ASSERT_EQ(pipe(fh), 0);
    IdleLoop loop(fh[0]);
    pthread_t thread;
    const auto run = [](void *param) -> void * { static_cast<IdleLoop *>(param)->run(nullptr); };
    ASSERT_EQ(pthread_create(&thread, nullptr, run, &loop), 0);
    EXPECT_TRUE(wait_until([&] { return loop.done.load(); }));
    pthread_cancel(thread);
    pthread_join(thread, nullptr);
    EXPECT_EQ(loop.step, 0.0);
    close(fh[0]);
    close(fh[1]);
}

} // namespace

#include "dispatch.h"
#include "support.h"
#include "util.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using namespace zeb;
using namespace zeb::test;
using testing::HasSubstr;

namespace {

struct SocketPair {
    SocketPair() { socketpair(AF_UNIX, SOCK_STREAM, 0, fh); }
    ~SocketPair() {
        close(fh[0]);
        close(fh[1]);
    }
    int fh[2];
};

std::string path_of(const char *name) {
    sockaddr_un address;
    socklen_t length = 0;
    EXPECT_TRUE(local_address(name, &address, &length));
    EXPECT_EQ(length, strlen(address.sun_path) + 2);
    return address.sun_path;
}

TEST(Dispatch, SocketsAreInTheRunDirectory) {
    ScopedEnv unset("ZEB2RUN", nullptr);
    EXPECT_EQ(path_of(".mainsocket"), "/var/run/zeb/.mainsocket");
}

TEST(Dispatch, Zeb2RunReplacesTheRunDirectory) {
    ScopedEnv run("ZEB2RUN", "/tmp/station");
    EXPECT_EQ(path_of(".mainsocket"), "/tmp/station/.mainsocket");
}

TEST(Dispatch, AnEmptyZeb2RunIsAsIfUnset) {
    ScopedEnv run("ZEB2RUN", "");
    EXPECT_EQ(path_of(".serialdsocket"), "/var/run/zeb/.serialdsocket");
}

TEST(Dispatch, ThePathMayFillTheAddressButForTheTerminator) {
    const std::string directory(107 - strlen("/s"), 'd');
    ScopedEnv run("ZEB2RUN", directory.c_str());
    EXPECT_EQ(path_of("s"), directory + "/s");
}

TEST(Dispatch, ATooLongPathIsReportedAndFails) {
    ScopedEnv run("ZEB2RUN", std::string(107 - strlen("/s") + 1, 'd').c_str());
    sockaddr_un address;
    socklen_t length = 0;
    StderrCapture err;
    EXPECT_FALSE(local_address("s", &address, &length));
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_THAT(err.finish(), HasSubstr("is longer than the 107 characters"));
}

TEST(Dispatch, SocketsAreClosedOnExec) {
    const int fh = stream_socket(AF_UNIX);
    ASSERT_NE(fh, -1);
    EXPECT_TRUE(fcntl(fh, F_GETFD) & FD_CLOEXEC);
    close(fh);
}

TEST(Dispatch, ConnectingWithoutAServerFailsWithItsReason) {
    TempDir directory;
    ScopedEnv run("ZEB2RUN", directory.path().c_str());
    const int fh = stream_socket(AF_UNIX);
    EXPECT_FALSE(connect_local(fh, ".mainsocket"));
    EXPECT_EQ(errno, ENOENT);
    close(fh);
}

TEST(Dispatch, APortBeyondTheRangeFails) {
    in_addr loopback = {htonl(INADDR_LOOPBACK)};
    const int fh = stream_socket(AF_INET);
    for (int port : {-1, 65536, 70000}) {
        EXPECT_FALSE(connect_host(fh, loopback, port));
        EXPECT_EQ(errno, EINVAL);
    }
    close(fh);
}

TEST(Dispatch, AnAddressResolvesToItself) {
    in_addr address = {};
    ASSERT_TRUE(resolve_host("127.0.0.9", &address));
    EXPECT_EQ(address.s_addr, htonl(0x7F000009));
}

TEST(Dispatch, DescriptorsBeyondTheSetAreReportedAndLeftOut) {
    fd_set set;
    FD_ZERO(&set);
    int fd_max = 3;
    StderrCapture err;
    for (int fh : {-1, FD_SETSIZE, FD_SETSIZE + 5000}) {
        EXPECT_FALSE(select_fits(fh));
        select_add(fh, &set, &fd_max);
        select_remove(fh, &set);
        EXPECT_FALSE(select_contains(fh, &set));
    }
    EXPECT_EQ(fd_max, 3);
    EXPECT_THAT(err.finish(), HasSubstr("Descriptor 1024 does not fit a descriptor set"));
    EXPECT_TRUE(select_fits(FD_SETSIZE - 1));
}

TEST(Dispatch, AddingRaisesTheMaximumAndNeverLowersIt) {
    fd_set set;
    FD_ZERO(&set);
    int fd_max = -1;
    select_add(7, &set, &fd_max);
    select_add(4, &set, &fd_max);
    EXPECT_EQ(fd_max, 7);
    EXPECT_TRUE(select_contains(4, &set));
    select_remove(7, &set);
    EXPECT_FALSE(select_contains(7, &set));
    EXPECT_EQ(fd_max, 7);
}

TEST(Dispatch, TheHighestDescriptorOfEitherSetIsFound) {
    fd_set rx, tx;
    FD_ZERO(&rx);
    FD_ZERO(&tx);
    EXPECT_EQ(select_highest(&rx, &tx, FD_SETSIZE + 100), -1);
    EXPECT_EQ(select_highest(&rx, &tx, -1), -1);
    FD_SET(0, &rx);
    EXPECT_EQ(select_highest(&rx, &tx, 9), 0);
    FD_SET(9, &tx);
    EXPECT_EQ(select_highest(&rx, &tx, 9), 9);
    EXPECT_EQ(select_highest(&rx, &tx, 8), 0);
}

TEST(Dispatch, SendingToAClosedPeerFailsWithoutASignal) {
    SocketPair pair;
    shutdown(pair.fh[1], SHUT_RD);
    BYTE data[4] = {1, 2, 3, 4};
    size_t size = sizeof data;
    EXPECT_EQ(send_step(pair.fh[0], data, &size), Io::failed);
    EXPECT_EQ(errno, EPIPE);
    EXPECT_EQ(size, 4U);
}

TEST(Dispatch, AFullSocketKeepsTheRestInFront) {
    SocketPair pair;
    std::vector<BYTE> data(8 * 1024 * 1024);
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<BYTE>(i % 251);
    size_t size = data.size();
    ASSERT_EQ(send_step(pair.fh[0], data.data(), &size), Io::moved);
    const size_t sent = data.size() - size;
    ASSERT_GT(size, 0U);
    EXPECT_EQ(data[0], static_cast<BYTE>(sent % 251));
    while (send_step(pair.fh[0], data.data(), &size) == Io::moved) {
    }
    EXPECT_EQ(send_step(pair.fh[0], data.data(), &size), Io::nothing);
}

TEST(Dispatch, ReceivingTellsDataFromSilenceAndFromTheEnd) {
    SocketPair pair;
    char data[8];
    size_t received = 99;
    EXPECT_EQ(receive_step(pair.fh[0], data, sizeof data, &received), Io::nothing);
    EXPECT_EQ(received, 0U);
    ASSERT_EQ(write(pair.fh[1], "abc", 3), 3);
    EXPECT_EQ(receive_step(pair.fh[0], data, sizeof data, &received), Io::moved);
    EXPECT_EQ(std::string(data, received), "abc");
    shutdown(pair.fh[1], SHUT_WR);
    EXPECT_EQ(receive_step(pair.fh[0], data, sizeof data, &received), Io::closed);
    EXPECT_EQ(receive_step(-1, data, sizeof data, &received), Io::failed);
}

TEST(Dispatch, ASetClockIsAStepAndAnUnknownOffsetIsNot) {
    double offset = 0;
    const double now = steady_time() + 1e9;
    EXPECT_EQ(clock_step(now, &offset), 0.0);
    EXPECT_EQ(clock_step(now, &offset), 0.0);
    EXPECT_NEAR(clock_step(now + 3600, &offset), 3600, 0.9);
    EXPECT_EQ(clock_step(now + 3600, &offset), 0.0);
    EXPECT_NEAR(clock_step(now, &offset), -3600, 0.9);
}

TEST(Dispatch, SlewingIsGivenOutOnceItAmountsToASecond) {
    double offset = 0;
    const double start = steady_time() + 1e9;
    clock_step(start, &offset);
    const double before = offset;
    EXPECT_EQ(clock_step(steady_time() + before + 0.6, &offset), 0.0);
    EXPECT_NEAR(clock_step(steady_time() + before + 1.2, &offset), 1.2, 0.1);
}

// ---- Threads ----

struct MaskSeen {
    Wakeups wakeups;
    sigset_t mask;
    int cancel_state, cancel_type;
};

void *look_at_mask(void *param) {
    auto *seen = static_cast<MaskSeen *>(param);
    prepare_thread(seen->wakeups);
    pthread_sigmask(SIG_SETMASK, nullptr, &seen->mask);
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &seen->cancel_state);
    pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, &seen->cancel_type);
    return nullptr;
}

MaskSeen mask_in_thread(Wakeups wakeups) {
    MaskSeen seen = {wakeups, {}, -1, -1};
    pthread_t thread;
    pthread_create(&thread, nullptr, look_at_mask, &seen);
    pthread_join(thread, nullptr);
    return seen;
}

TEST(Dispatch, AThreadThatIsNeverWokenBlocksEverySignal) {
    const MaskSeen seen = mask_in_thread(Wakeups::never);
    EXPECT_TRUE(sigismember(&seen.mask, SIGUSR1));
    EXPECT_TRUE(sigismember(&seen.mask, SIGTERM));
    EXPECT_EQ(seen.cancel_state, PTHREAD_CANCEL_ENABLE);
    EXPECT_EQ(seen.cancel_type, PTHREAD_CANCEL_DEFERRED);
}

TEST(Dispatch, AThreadThatIsAlwaysWokenLetsOnlyTheWakeUpThrough) {
    const MaskSeen seen = mask_in_thread(Wakeups::always);
    EXPECT_FALSE(sigismember(&seen.mask, SIGUSR1));
    EXPECT_TRUE(sigismember(&seen.mask, SIGTERM));
    struct sigaction action;
    sigaction(SIGUSR1, nullptr, &action);
    EXPECT_EQ(action.sa_handler, UTIL_empty_sighandler);
    EXPECT_EQ(action.sa_flags & SA_RESTART, 0);
}

TEST(Dispatch, AThreadWokenInSelectBlocksTheWakeUpElsewhere) {
    const MaskSeen seen = mask_in_thread(Wakeups::in_select);
    EXPECT_TRUE(sigismember(&seen.mask, SIGUSR1));
    const sigset_t mask = wakeup_mask();
    EXPECT_FALSE(sigismember(&mask, SIGUSR1));
    EXPECT_TRUE(sigismember(&mask, SIGINT));
}

struct Sleeper {
    int result = 0, error = 0;
};

void *sleep_in_select(void *param) {
    auto *sleeper = static_cast<Sleeper *>(param);
    prepare_thread(Wakeups::in_select);
    const sigset_t mask = wakeup_mask();
    const timespec limit = {60, 0};
    sleeper->result = pselect(0, nullptr, nullptr, nullptr, &limit, &mask);
    sleeper->error = errno;
    return nullptr;
}

TEST(Dispatch, AWakeUpInterruptsTheSelectAndWritesNothing) {
    prepare_thread(Wakeups::in_select); // the handler, before any signal can arrive
    Sleeper sleeper;
    StderrCapture err;
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, sleep_in_select, &sleeper), 0);
    wake_thread(&thread); // stays pending until the select takes it
    wake_thread(nullptr);
    pthread_join(thread, nullptr);
    EXPECT_EQ(sleeper.result, -1);
    EXPECT_EQ(sleeper.error, EINTR);
    EXPECT_EQ(err.finish(), "");
}

void *pass_a_guard(void *param) {
    {
        CancelGuard uncancelled;
        pthread_cancel(pthread_self());
        pthread_testcancel();
        *static_cast<bool *>(param) = true;
    }
    pthread_testcancel();
    return nullptr;
}

TEST(Dispatch, ACancelledThreadEndsOnlyAfterItsGuard) {
    bool passed = false;
    void *result = nullptr;
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, pass_a_guard, &passed), 0);
    pthread_join(thread, &result);
    EXPECT_TRUE(passed);
    EXPECT_EQ(result, PTHREAD_CANCELED);
}

} // namespace

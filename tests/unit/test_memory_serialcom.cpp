// Serial links when memory or a system call fails.
#include "fail_alloc.h"
#include "serialcom_testing.h"

#include "dispatch.h"

#include <cerrno>

using namespace zeb::test;
using testing::HasSubstr;
using testing::Not;

namespace {

// What the replaced calls return instead of being made; 0: they are made.
std::atomic<int> g_fail_mutex_init;
std::atomic<int> g_fail_cond_init;
std::atomic<int> g_fail_cond_wait;
std::atomic<int> g_fail_cond_destroy;
std::atomic<int> g_fail_create;
std::atomic<int> g_fail_cancel;
std::atomic<int> g_fail_join;
std::atomic<int> g_fail_select; // the errno of a pselect that fails
std::atomic<int> g_fail_socket; // ... and of a socket that is not made

void fail_nothing() {
    for (std::atomic<int> *call :
         {&g_fail_mutex_init, &g_fail_cond_init, &g_fail_cond_wait, &g_fail_cond_destroy,
          &g_fail_create, &g_fail_cancel, &g_fail_join, &g_fail_select, &g_fail_socket})
        *call = 0;
}

} // namespace

extern "C" {
int __real_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attributes);
int __real_pthread_cond_init(pthread_cond_t *cond, const pthread_condattr_t *attributes);
int __real_pthread_cond_timedwait(pthread_cond_t *cond, pthread_mutex_t *mutex,
                                  const timespec *deadline);
int __real_pthread_cond_destroy(pthread_cond_t *cond);
int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                          void *(*function)(void *), void *param);
int __real_pthread_cancel(pthread_t thread);
int __real_pthread_join(pthread_t thread, void **result);
int __real_pselect(int count, fd_set *rx, fd_set *tx, fd_set *ex, const timespec *wait,
                   const sigset_t *mask);
int __real_socket(int domain, int type, int protocol);
int __wrap_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attributes);
int __wrap_pthread_cond_init(pthread_cond_t *cond, const pthread_condattr_t *attributes);
int __wrap_pthread_cond_timedwait(pthread_cond_t *cond, pthread_mutex_t *mutex,
                                  const timespec *deadline);
int __wrap_pthread_cond_destroy(pthread_cond_t *cond);
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                          void *(*function)(void *), void *param);
int __wrap_pthread_cancel(pthread_t thread);
int __wrap_pthread_join(pthread_t thread, void **result);
int __wrap_pselect(int count, fd_set *rx, fd_set *tx, fd_set *ex, const timespec *wait,
                   const sigset_t *mask);
int __wrap_socket(int domain, int type, int protocol);

int __wrap_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attributes) {
    const int error = g_fail_mutex_init;
    return error != 0 ? error : __real_pthread_mutex_init(mutex, attributes);
}
int __wrap_pthread_cond_init(pthread_cond_t *cond, const pthread_condattr_t *attributes) {
    const int error = g_fail_cond_init;
    return error != 0 ? error : __real_pthread_cond_init(cond, attributes);
}
int __wrap_pthread_cond_timedwait(pthread_cond_t *cond, pthread_mutex_t *mutex,
                                  const timespec *deadline) {
    const int error = g_fail_cond_wait;
    return error != 0 ? error : __real_pthread_cond_timedwait(cond, mutex, deadline);
}
int __wrap_pthread_cond_destroy(pthread_cond_t *cond) {
    const int result = __real_pthread_cond_destroy(cond);
    const int error = g_fail_cond_destroy;
    return error != 0 ? error : result;
}
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                          void *(*function)(void *), void *param) {
    const int error = g_fail_create;
    return error != 0 ? error : __real_pthread_create(thread, attributes, function, param);
}
int __wrap_pthread_cancel(pthread_t thread) {
    const int error = g_fail_cancel;
    return error != 0 ? error : __real_pthread_cancel(thread);
}
int __wrap_pthread_join(pthread_t thread, void **result) {
    const int error = g_fail_join;
    return error != 0 ? error : __real_pthread_join(thread, result);
}
int __wrap_pselect(int count, fd_set *rx, fd_set *tx, fd_set *ex, const timespec *wait,
                   const sigset_t *mask) {
    if (g_fail_select == 0)
        return __real_pselect(count, rx, tx, ex, wait, mask);
    errno = g_fail_select;
    return -1;
}
int __wrap_socket(int domain, int type, int protocol) {
    if (g_fail_socket == 0)
        return __real_socket(domain, type, protocol);
    errno = g_fail_socket;
    return -1;
}
}

namespace {

// ---- Connecting ----

class SerialFaults : public testing::Test {
  protected:
    ~SerialFaults() override { fail_nothing(); }
    BOOL connect() {
        SERIALD_connect_params cp = port_of("ttyS0");
        return SERIALCOM_connect(&cp, &lnk);
    }
    void expect_report(const std::string &text) { EXPECT_THAT(err.text(), HasSubstr(text)); }
    void clean_up() {
        fail_nothing();
        SERIALCOM_multi_destroy(&lnk);
    }

    StderrCapture err;
    ScriptedSerialServer server;
    SERIALCOM_link lnk = {};
};

TEST_F(SerialFaults, WithoutASocketTheConnectFails) {
    g_fail_socket = EMFILE;
    EXPECT_FALSE(connect());
    EXPECT_EQ(lnk.stat, SERIALCOM_S_UNINITIALIZED);
    EXPECT_EQ(lnk.fh, -1);
    expect_report("conn->fh != -1: Too many open files");
    clean_up();
}

TEST_F(SerialFaults, WithoutAMutexTheConnectFails) {
    g_fail_mutex_init = ENOMEM;
    EXPECT_FALSE(connect());
    expect_report("system call failed (serialcom.cpp:");
    expect_report("pthread_mutex_init(&conn->mtx, nullptr): Cannot allocate memory");
    clean_up();
}

TEST_F(SerialFaults, WithoutAConditionTheConnectFails) {
    g_fail_cond_init = EAGAIN;
    EXPECT_FALSE(connect());
    expect_report("pthread_cond_init(&conn->req_cond, nullptr): Resource temporarily unavailable");
    clean_up();
}

TEST_F(SerialFaults, WithoutAHandleTheConnectFails) {
    const FailingAlloc failing(Alloc::fresh, 1);
    EXPECT_FALSE(connect());
    EXPECT_TRUE(failing.failed());
    EXPECT_EQ(lnk.thd, nullptr);
    expect_report("assertion failed (serialcom.cpp:");
    expect_report(": Cannot allocate memory");
    clean_up();
}

TEST_F(SerialFaults, WithoutAThreadTheConnectFails) {
    g_fail_create = EAGAIN;
    EXPECT_FALSE(connect());
    EXPECT_EQ(lnk.thd, nullptr);
    expect_report("system call failed (serialcom.cpp:");
    expect_report("Resource temporarily unavailable");
    clean_up();
}

// ---- Disconnecting ----

TEST_F(SerialFaults, AThreadThatCannotBeCancelledKeepsTheLink) {
    ASSERT_TRUE(connect());
    SerialClient &client = server.accept();
    g_fail_cancel = EPERM;
    SERIALCOM_disconnect(&lnk);
    expect_report("pthread_cancel(thread): Operation not permitted");
    EXPECT_NE(lnk.thd, nullptr);
    EXPECT_NE(lnk.fh, -1);
    EXPECT_FALSE(client.client_gone());
    EXPECT_THAT(err.text(), Not(HasSubstr("Disconnected from serial server")));
    fail_nothing();
    SERIALCOM_disconnect(&lnk);
    EXPECT_EQ(lnk.thd, nullptr);
}

TEST_F(SerialFaults, AThreadThatCannotBeJoinedKeepsTheLink) {
    ASSERT_TRUE(connect());
    server.accept();
    g_fail_join = EINVAL;
    SERIALCOM_disconnect(&lnk);
    expect_report("Invalid argument");
    EXPECT_NE(lnk.thd, nullptr);
    EXPECT_NE(lnk.fh, -1);
    fail_nothing();
    SERIALCOM_disconnect(&lnk);
    EXPECT_EQ(lnk.thd, nullptr);
}

TEST_F(SerialFaults, AConditionThatCannotBeDestroyedIsReported) {
    SERIALD_connect_params cp = port_of("ttyS0");
    ASSERT_TRUE(SERIALCOM_multi_connect(&cp, &lnk));
    g_fail_cond_destroy = EBUSY;
    SERIALCOM_multi_destroy(&lnk);
    expect_report("pthread_cond_destroy(&lnk->req_cond): Device or resource busy");
    EXPECT_EQ(lnk.stat, SERIALCOM_S_UNINITIALIZED);
}

// ---- Serving and waiting ----

TEST_F(SerialFaults, AFailedSelectDropsTheLinkAndEndsTheThread) {
    ASSERT_TRUE(connect());
    SerialClient &client = server.accept();
    g_fail_select = EBADF;
    EXPECT_TRUE(wait_until([&] { return client.client_gone(); }));
    EXPECT_TRUE(wait_until([&] { return SERIALCOM_test_connected_ext(&lnk) == -1; }));
    expect_report("Select failed: Bad file descriptor");
    pthread_join(*lnk.thd, nullptr);
    free(lnk.thd);
    lnk.thd = nullptr;
    EXPECT_EQ(lnk.stat, SERIALCOM_S_UNLINKED);
    clean_up();
}

TEST_F(SerialFaults, AnInterruptedSelectIsNotReported) {
    g_fail_select = EINTR;
    ASSERT_TRUE(connect());
    pthread_mutex_lock(&lnk.mtx);
    lnk.last_rx_time -= 31;
    pthread_mutex_unlock(&lnk.mtx);
    EXPECT_FALSE(SERIALCOM_wait_connected(&lnk)); // the time was looked after all the same
    expect_report("Serial server socket timeout - closing");
    EXPECT_THAT(err.text(), Not(HasSubstr("Select failed")));
    pthread_join(*lnk.thd, nullptr);
    free(lnk.thd);
    lnk.thd = nullptr;
    clean_up();
}

class SerialNoMemory : public SerialLink {
  protected:
    ~SerialNoMemory() override { fail_nothing(); }
};

using SerialNoMemoryDeathTest = SerialNoMemory;

TEST_F(SerialNoMemoryDeathTest, AnUnknownErrorOfTheWaitEndsTheProcess) {
    open();
    issue(SERIALD_REQUEST_READNEW);
    g_fail_cond_wait = EINVAL;
    err.finish();
    EXPECT_EXIT(SERIALCOM_wait_request_done(&lnk), testing::ExitedWithCode(1),
                "Unknown error on pthread_cond_timedwait: 22:Invalid argument.  Inconsistant "
                "sycronization \\(I'm going to deadlock!\\), panic! \\(serialcom_request.cpp:");
}

TEST_F(SerialNoMemory, AnInterruptedWaitGoesOn) {
    open();
    issue(SERIALD_REQUEST_READNEW);
    g_fail_cond_wait = EINTR;
    std::thread exiting([] { __atomic_store_n(&g_util_in_signal_exit, TRUE, __ATOMIC_SEQ_CST); });
    EXPECT_FALSE(SERIALCOM_wait_request_done(&lnk));
    exiting.join();
    __atomic_store_n(&g_util_in_signal_exit, FALSE, __ATOMIC_SEQ_CST);
}

// ---- Memory ----

TEST_F(SerialNoMemory, WithoutABufferTheRequestGoesOutWithoutItsData) {
    open();
    {
        const FailingAlloc failing(Alloc::fresh, 1);
        issue(SERIALD_REQUEST_WRITE, "lost");
        EXPECT_TRUE(failing.failed());
    }
    EXPECT_THAT(err.text(), HasSubstr("assertion failed (serialcom_request.cpp:"));
    EXPECT_THAT(err.text(), HasSubstr("lnk->r_buffer != nullptr: Cannot allocate memory"));
    EXPECT_EQ(lnk.rq_stat, SERIALCOM_RS_START);
    const SerialRequest request = next();
    EXPECT_EQ(request.type, unsigned{SERIALD_REQUEST_WRITE});
    EXPECT_TRUE(request.data.empty());
    client->success(bytes_of("abc"));
    settle();
    EXPECT_TRUE(SERIALCOM_wait_request_done(&lnk));
    EXPECT_EQ(lnk.r_buffer_max, 4U);
}

TEST_F(SerialNoMemory, ARequestThatCannotBeFramedFails) {
    open();
    issue(SERIALD_REQUEST_WRITE, "abc");
    {
        const FailingAlloc failing(Alloc::fresh, 1);
        ASSERT_TRUE(loop->cycle());
        EXPECT_TRUE(failing.failed());
    }
    EXPECT_THAT(err.text(), HasSubstr("assertion failed (serialcom_hooks.cpp:"));
    EXPECT_FALSE(SERIALCOM_wait_request_done(&lnk));
    EXPECT_EQ(lnk.rq_stat, SERIALCOM_RS_FAILURE);
    EXPECT_EQ(send(SERIALD_REQUEST_READNEW).type, unsigned{SERIALD_REQUEST_READNEW});
}

TEST_F(SerialNoMemory, AHeartbeatThatCannotBeFramedIsLeftOut) {
    open();
    lnk.next_hb_time = UTIL_ftime();
    {
        const FailingAlloc failing(Alloc::fresh, 1);
        ASSERT_TRUE(loop->cycle());
        EXPECT_TRUE(failing.failed());
    }
    EXPECT_GT(lnk.next_hb_time, UTIL_ftime());
    EXPECT_FALSE(client->next().has_value());
}

TEST_F(SerialNoMemory, TheHandshakeAndTheCloseAreTriedAgain) {
    {
        const FailingAlloc failing(Alloc::fresh, 1);
        ASSERT_TRUE(loop->cycle());
        EXPECT_TRUE(failing.failed());
    }
    EXPECT_EQ(lnk.stat, SERIALCOM_S_SEND_HANDSHAKE);
    open();
    lnk.stat = SERIALCOM_S_NOTIFY_CLOSE;
    {
        const FailingAlloc failing(Alloc::fresh, 1);
        ASSERT_TRUE(loop->cycle());
        EXPECT_TRUE(failing.failed());
    }
    EXPECT_EQ(lnk.stat, SERIALCOM_S_NOTIFY_CLOSE);
    EXPECT_EQ(next().type, unsigned{SERIALD_REQUEST_CLOSE});
}

TEST_F(SerialNoMemory, AResponseThatCannotBeKeptIsDroppedWithoutWakingAnybody) {
    open();
    send(SERIALD_REQUEST_READNEW);
    client->success(bytes_of("abc"));
    {
        const FailingAlloc failing(Alloc::fresh, 1);
        ASSERT_TRUE(loop->run_until([&] { return failing.failed(); }));
    }
    EXPECT_EQ(lnk.rq_stat, SERIALCOM_RS_SENT);
    EXPECT_EQ(lnk.r_buffer, nullptr);
    EXPECT_EQ(lnk.r_buffer_size, 0U);
    EXPECT_EQ(lnk.stat, SERIALCOM_S_OPEN);
}

} // namespace

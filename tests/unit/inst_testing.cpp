#include "inst_testing.h"

#include "util.h"

#include <cerrno>
#include <cstdarg>
#include <sys/socket.h>

using namespace zeb::test;

namespace zeb::test {

std::unique_ptr<Replaced> g_replaced;

InstTest::InstTest() {
    g_replaced = std::make_unique<Replaced>();
}

InstTest::~InstTest() {
    g_replaced->endless = false;
    INST_disconnect(&lnk);
}

namespace {

SERIALD_connect_params port(const std::string &name) {
    SERIALD_connect_params params = {};
    UTIL_strncpynt(params.port_name, name.c_str(), sizeof params.port_name);
    return params;
}

} // namespace

BOOL InstTest::connect(const Layout &layout) {
    ZEBMSG_connect_params msg;
    ZEBMSG_init_params(&msg);
    msg.id_str = "neph1";
    SERIALD_connect_params sc = port("=instrument"), log = port("=log");
    SERIALD_connect_params f[3] = {port("=further0"), port("=further1"), port("=further2")};
    SERIALD_connect_params *none = nullptr;
    SERIALCOM_link *no_link = nullptr;
    SERIALD_connect_params *s = layout.serial ? &sc : nullptr;
    SERIALD_connect_params *l = layout.log ? &log : nullptr;
    if (layout.further == 3)
        return INST_connect(&lnk, &msg, s, l, &further[0], &f[0], &further[1], &f[1], &further[2],
                            &f[2], no_link, none);
    if (layout.further == 1)
        return INST_connect(&lnk, &msg, s, l, &further[0], &f[0], no_link, none);
    return INST_connect(&lnk, &msg, s, l, no_link, none);
}

void InstTest::open(const Layout &layout) {
    close_clients();
    ASSERT_TRUE(connect(layout)) << err.text();
    for (int i = 0; i < layout.serials(); ++i) {
        clients.push_back(&serial_server.accept());
        const std::string name = i < layout.further                     ? "=further" + number(i)
                                 : i == layout.further && layout.serial ? "=instrument"
                                                                        : "=log";
        EXPECT_EQ(clients.back()->wait_handshake(), name);
        clients.back()->success();
    }
    ASSERT_TRUE(server.accept());
    EXPECT_FALSE(INST_test_connected(&lnk)) << "the message server has not answered yet";
    server.handshake(heartbeat);
    EXPECT_TRUE(INST_wait_connected(&lnk));
    EXPECT_TRUE(INST_test_connected(&lnk));
    EXPECT_EQ(server.wait_next()->type, MSG_SERVER_CLIENTHANDSHAKE);
    EXPECT_EQ(server.wait_next()->type, MSG_NOTIFY_CLIENT_CONNECT);
}

void InstTest::close_clients() {
    for (SerialClient *client : clients)
        client->close_client();
    clients.clear();
    do
        server.close_client();
    while (server.accept(0));
    try {
        for (;;)
            serial_server.accept(0).close_client();
    } catch (const std::runtime_error &) {
        return; // nobody is left
    }
}

std::vector<SERIALCOM_link *> InstTest::serial_links(const Layout &layout) {
    std::vector<SERIALCOM_link *> links;
    for (int i = 0; i < layout.further; ++i)
        links.push_back(&further[i]);
    if (layout.serial)
        links.push_back(&lnk.sc_lnk);
    if (layout.log)
        links.push_back(&lnk.log_sc_lnk);
    return links;
}

bool InstTest::flag(const BOOL *up) {
    ZEB_LOCK(guard, &lnk.mtx);
    return *up != FALSE;
}

bool InstTest::is_up(const SERIALCOM_link *serial) {
    if (serial == &lnk.sc_lnk)
        return flag(&lnk.sc_lnk_up);
    if (serial == &lnk.log_sc_lnk)
        return flag(&lnk.log_sc_lnk_up);
    for (const LL_NODE *node = lnk.ext_sc_links.head; node != nullptr; node = node->next) {
        const auto *ext = static_cast<INST_ext_link *>(node->data);
        if (ext->lnk == serial)
            return flag(&ext->lnk_up);
    }
    return false;
}

void InstTest::expect_serves_messages() {
    server.heartbeat(++heartbeat);
    const std::optional<ServerMessage> echo = server.wait_next();
    ASSERT_TRUE(echo.has_value());
    EXPECT_EQ(echo->type, MSG_SERVER_HEARTBEAT);
    EXPECT_EQ(echo->as<NET_SERVER_Heartbeat>().hb_idx, heartbeat);
}

void InstTest::expect_serves(SERIALCOM_link *serial, SerialClient &client) {
    SERIALCOM_issue_flush(serial, 1, 2);
    const std::optional<SerialRequest> request = client.wait_request();
    ASSERT_TRUE(request.has_value());
    EXPECT_EQ(request->type, static_cast<unsigned>(SERIALD_REQUEST_FLUSH));
    client.success();
    EXPECT_TRUE(SERIALCOM_wait_request_done(serial));
}

bool InstTest::some_cycles_pass() {
    const int before = g_replaced->selects;
    return wait_until([&] { return g_replaced->selects >= before + 3; });
}

} // namespace zeb::test

namespace {

bool is_test_thread() {
    return pthread_equal(pthread_self(), g_replaced->test_thread) != 0;
}

// Notes the call; false when it is to be refused.
bool note(const void *link, HookKind kind) {
    const std::lock_guard<std::mutex> guard(g_replaced->mutex);
    const HookCall call = {link, kind};
    g_replaced->calls.push_back(call);
    return !(g_replaced->refuses && g_replaced->refused == call);
}

} // namespace

extern "C" {
int __real_pselect(int n, fd_set *rx, fd_set *tx, fd_set *ex, const timespec *limit,
                   const sigset_t *mask);
int __real_connect(int fh, const sockaddr *address, socklen_t length);
int __real_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attributes);
int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                          void *(*function)(void *), void *param);
int __real_pthread_cancel(pthread_t thread);
int __real_pthread_join(pthread_t thread, void **result);
void __real_UTIL_fsleep(double time);
void __real_UTIL_sched_yield();
int __wrap_pselect(int n, fd_set *rx, fd_set *tx, fd_set *ex, const timespec *limit,
                   const sigset_t *mask);
int __wrap_connect(int fh, const sockaddr *address, socklen_t length);
int __wrap_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attributes);
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                          void *(*function)(void *), void *param);
int __wrap_pthread_cancel(pthread_t thread);
int __wrap_pthread_join(pthread_t thread, void **result);
void __wrap_UTIL_fsleep(double time);
void __wrap_UTIL_sched_yield();

int __wrap_pselect(int n, fd_set *rx, fd_set *tx, fd_set *ex, const timespec *limit,
                   const sigset_t *mask) {
    if (is_test_thread() || mask == nullptr) // another thread's, or a probe
        return __real_pselect(n, rx, tx, ex, limit, mask);
    if (g_replaced->selects == 0) {
        g_replaced->time_out = *limit;
        g_replaced->select_mask = *mask;
        pthread_sigmask(SIG_SETMASK, nullptr, &g_replaced->thread_mask);
    }
    ++g_replaced->selects;
    if (g_replaced->hold.exchange(false))
        wait_until(g_replaced->released, 60);
    const bool endless = g_replaced->endless;
    if (endless)
        ++g_replaced->endless_selects;
    return __real_pselect(n, rx, tx, ex, endless ? nullptr : limit, mask);
}
int __wrap_connect(int fh, const sockaddr *address, socklen_t length) {
    if (++g_replaced->connects != g_replaced->connect_fails)
        return __real_connect(fh, address, length);
    errno = ECONNREFUSED;
    return -1;
}
int __wrap_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attributes) {
    // The test framework makes its own before there is a test.
    return g_replaced != nullptr && ++g_replaced->mutex_inits == g_replaced->mutex_init_fails
               ? EAGAIN
               : __real_pthread_mutex_init(mutex, attributes);
}
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                          void *(*function)(void *), void *param) {
    const int error = g_replaced->create_error;
    return error != 0 ? error : __real_pthread_create(thread, attributes, function, param);
}
int __wrap_pthread_cancel(pthread_t thread) {
    const int error = g_replaced->cancel_error;
    return error != 0 ? error : __real_pthread_cancel(thread);
}
int __wrap_pthread_join(pthread_t thread, void **result) {
    const int error = g_replaced->join_error;
    return error != 0 ? error : __real_pthread_join(thread, result);
}
void __wrap_UTIL_fsleep(double time) {
    if (!is_test_thread()) {
        __real_UTIL_fsleep(time);
        return;
    }
    g_replaced->slices.push_back(time);
    if (g_replaced->on_slice)
        g_replaced->on_slice();
    else
        __real_UTIL_fsleep(time);
}
void __wrap_UTIL_sched_yield() {
    if (!is_test_thread())
        ++g_replaced->dispatch_yields;
    if (is_test_thread() && g_replaced->on_yield)
        g_replaced->on_yield();
    else
        __real_UTIL_sched_yield();
}

// ---- The hooks ----

void __real_ZEBFILE_dispatch_init(fd_set *, fd_set *, int *, pthread_t *);
void __real_ZEBFILE_dispatch_pre_select(fd_set *, fd_set *, int *);
void __real_ZEBFILE_dispatch_post_select(fd_set *, fd_set *, fd_set *, fd_set *, int *);
void __real_ZEBFILE_dispatch_loop_continue(fd_set *, fd_set *, int *);
void __wrap_ZEBFILE_dispatch_init(fd_set *, fd_set *, int *, pthread_t *);
void __wrap_ZEBFILE_dispatch_pre_select(fd_set *, fd_set *, int *);
void __wrap_ZEBFILE_dispatch_post_select(fd_set *, fd_set *, fd_set *, fd_set *, int *);
void __wrap_ZEBFILE_dispatch_loop_continue(fd_set *, fd_set *, int *);

void __wrap_ZEBFILE_dispatch_init(fd_set *rx, fd_set *tx, int *fd_max, pthread_t *thread) {
    note(nullptr, HookKind::init);
    __real_ZEBFILE_dispatch_init(rx, tx, fd_max, thread);
}
void __wrap_ZEBFILE_dispatch_pre_select(fd_set *rx, fd_set *tx, int *fd_max) {
    note(nullptr, HookKind::pre_select);
    __real_ZEBFILE_dispatch_pre_select(rx, tx, fd_max);
}
void __wrap_ZEBFILE_dispatch_post_select(fd_set *rx, fd_set *tx, fd_set *sel_rx, fd_set *sel_tx,
                                         int *fd_max) {
    note(nullptr, HookKind::post_select);
    __real_ZEBFILE_dispatch_post_select(rx, tx, sel_rx, sel_tx, fd_max);
}
void __wrap_ZEBFILE_dispatch_loop_continue(fd_set *rx, fd_set *tx, int *fd_max) {
    note(nullptr, HookKind::loop_continue);
    __real_ZEBFILE_dispatch_loop_continue(rx, tx, fd_max);
}

// The four hooks of a kind of link.
#define ZEB_WATCHED_HOOKS(MODULE, LINK)                                                            \
    BOOL __real_##MODULE##_dispatch_init(LINK *, fd_set *, fd_set *, int *, pthread_t *);          \
    BOOL __real_##MODULE##_dispatch_pre_select(LINK *, fd_set *, fd_set *, int *);                 \
    BOOL __real_##MODULE##_dispatch_post_select(LINK *, fd_set *, fd_set *, fd_set *, fd_set *,    \
                                                int *);                                            \
    BOOL __real_##MODULE##_dispatch_loop_continue(LINK *, fd_set *, fd_set *, int *);              \
    BOOL __wrap_##MODULE##_dispatch_init(LINK *, fd_set *, fd_set *, int *, pthread_t *);          \
    BOOL __wrap_##MODULE##_dispatch_pre_select(LINK *, fd_set *, fd_set *, int *);                 \
    BOOL __wrap_##MODULE##_dispatch_post_select(LINK *, fd_set *, fd_set *, fd_set *, fd_set *,    \
                                                int *);                                            \
    BOOL __wrap_##MODULE##_dispatch_loop_continue(LINK *, fd_set *, fd_set *, int *);              \
    BOOL __wrap_##MODULE##_dispatch_init(LINK *link, fd_set *rx, fd_set *tx, int *fd_max,          \
                                         pthread_t *thread) {                                      \
        return note(link, HookKind::init) &&                                                       \
               __real_##MODULE##_dispatch_init(link, rx, tx, fd_max, thread);                      \
    }                                                                                              \
    BOOL __wrap_##MODULE##_dispatch_pre_select(LINK *link, fd_set *rx, fd_set *tx, int *fd_max) {  \
        return note(link, HookKind::pre_select) &&                                                 \
               __real_##MODULE##_dispatch_pre_select(link, rx, tx, fd_max);                        \
    }                                                                                              \
    BOOL __wrap_##MODULE##_dispatch_post_select(LINK *link, fd_set *rx, fd_set *tx,                \
                                                fd_set *sel_rx, fd_set *sel_tx, int *fd_max) {     \
        return note(link, HookKind::post_select) &&                                                \
               __real_##MODULE##_dispatch_post_select(link, rx, tx, sel_rx, sel_tx, fd_max);       \
    }                                                                                              \
    BOOL __wrap_##MODULE##_dispatch_loop_continue(LINK *link, fd_set *rx, fd_set *tx,              \
                                                  int *fd_max) {                                   \
        return note(link, HookKind::loop_continue) &&                                              \
               __real_##MODULE##_dispatch_loop_continue(link, rx, tx, fd_max);                     \
    }

ZEB_WATCHED_HOOKS(ZEBMSG, ZEBMSG_link)
ZEB_WATCHED_HOOKS(SERIALCOM, SERIALCOM_link)
}

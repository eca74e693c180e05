// Each allocation that a server makes while somebody talks to it fails in turn: whom that hurts is
// let go of, and everybody after him is served.
#include "fail_new.h"
#include "zebmsgd/server.h"
#include "zebmsgd_peer.h"
#include "zebseriald/server.h"
#include "zebseriald_peer.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <gmock/gmock.h>
#include <thread>

namespace {

std::atomic<long> g_left = 0; // allocations of the server's thread up to the one that fails
thread_local bool t_fails = false;

bool this_one_fails() {
    return t_fails && g_left > 0 && --g_left == 0;
}

} // namespace

using namespace zeb::test;
using testing::HasSubstr;

namespace {

// A server on a thread of this process, from its start to the signal that stops it.
template <typename Server> class Running {
  public:
    explicit Running(Server &server)
        : thread_([this, &server] {
              t_fails = true;
              good_ = server.run();
              t_fails = false;
          }) {}
    bool stop() {
        kill(getpid(), SIGTERM); // blocked; the server reads it
        thread_.join();
        return good_;
    }

  private:
    bool good_ = false;
    std::thread thread_;
};

// Half a connection that says something and nothing more; true when the server has closed it too.
template <typename Peer> bool says(int fd, const std::string &bytes) {
    Peer peer(fd);
    peer.send_raw(bytes);
    shutdown(fd, SHUT_WR);
    return peer.sees_end();
}

// One session after the other with a failing allocation one further, until none is met any more.
long fail_each_allocation(const std::function<void()> &session) {
    constexpr long k_most = 5000;
    g_new_fails = this_one_fails;
    for (long n = 1; n < k_most && !testing::Test::HasFailure(); ++n) {
        g_left = n;
        SCOPED_TRACE("allocation " + std::to_string(n));
        session();
        if (g_left.exchange(0) > 0)
            return n - 1;
    }
    return 0;
}

TEST(ServersMemory, TheMessageServerOutlivesEachAllocationThatFails) {
    const TempDir dir;
    const ScopedEnv run("ZEB2RUN", dir.path().c_str());
    StderrCapture errors;
    zebmsgd::Server server({}, "test");
    ASSERT_TRUE(server.open());
    Running running(server);
    const std::string talk =
        framed(handshake("talker")) + framed(packed(1, "MSG_NOTIFY_CLIENT_CONNECT")) +
        framed(announcement("CPC", "inlet")) + framed(add_filter({.accept = true, .uid = 1})) +
        framed(packed(3, "MSG_TALK", "", "", "NET_TALK", "kept")) + framed(packed(1, "MSG_TALK"));
    const long points = fail_each_allocation([&] {
        EXPECT_TRUE(says<Wire>(connect_local(dir / ".mainsocket"), talk));
        char block[4096];
        const int status = connect_local(dir / ".mainstatus");
        while (recv(status, block, sizeof block, 0) > 0)
            ;
        close(status);
    });
    EXPECT_GT(points, 20);
    Wire next(connect_local(dir / ".mainsocket"));
    next.send(handshake("next"));
    EXPECT_EQ(next.next_name(), "MSG_SERVER_SERVERHANDSHAKE");
    next.hang_up();
    EXPECT_TRUE(running.stop());
    const std::string text = errors.finish();
    EXPECT_THAT(text, HasSubstr("memory is short; what could not be done is left"));
    EXPECT_THAT(text, HasSubstr("memory suffices again"));
}

TEST(ServersMemory, ThePortServerOutlivesEachAllocationThatFails) {
    const TempDir dir;
    const ScopedEnv run("ZEB2RUN", dir.path().c_str());
    Terminal terminal;
    StderrCapture errors;
    zebseriald::Server server({});
    ASSERT_TRUE(server.open());
    Running running(server);
    const std::string name = framed(padded("=" + terminal.path(), 256));
    const std::string talk = name + framed(record_of({k_write, 1, -1, "abc"})) +
                             framed(record_of({k_read_new, -1, -1})) +
                             framed(record_of(settings(100, 100, true))) +
                             framed(record_of({k_flush, 0, 0}));
    const long points = fail_each_allocation(
        [&] { EXPECT_TRUE(says<Peer>(connect_local(dir / ".serialdsocket"), talk)); });
    EXPECT_GT(points, 10);
    Peer next(connect_local(dir / ".serialdsocket"));
    next.send_raw(name);
    EXPECT_EQ(next.answer(), "success");
    next.hang_up();
    EXPECT_TRUE(running.stop());
    const std::string text = errors.finish();
    EXPECT_THAT(text, HasSubstr("memory is short; what could not be done is left"));
    EXPECT_THAT(text, HasSubstr("memory suffices again"));
}

} // namespace

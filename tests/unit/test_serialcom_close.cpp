// Ending serial links, and the link's own thread.
#include "serialcom_testing.h"

#include "dispatch.h"

#include <sys/socket.h>
#include <unistd.h>

using namespace zeb::test;
using testing::HasSubstr;
using testing::Not;

namespace {

// Disconnects in a thread, as the servicing thread must go on.
class Closing {
  public:
    explicit Closing(SERIALCOM_link *lnk)
        : thread_([this, lnk] {
              SERIALCOM_multi_disconnect(lnk);
              done_ = true;
          }) {}
    ~Closing() { thread_.join(); }
    bool done() const { return done_; }

  private:
    std::atomic<bool> done_ = false;
    std::thread thread_;
};

class SerialClose : public SerialLink {
  protected:
    SERIALCOM_LINK_STATUS stat() {
        pthread_mutex_lock(&lnk.mtx);
        const SERIALCOM_LINK_STATUS now = lnk.stat;
        pthread_mutex_unlock(&lnk.mtx);
        return now;
    }
    // As if the select had reported these.
    bool post_select(bool readable, bool writable) {
        fd_set rx, tx;
        FD_ZERO(&rx);
        FD_ZERO(&tx);
        if (readable)
            FD_SET(lnk.fh, &rx);
        if (writable)
            FD_SET(lnk.fh, &tx);
        return SERIALCOM_dispatch_post_select(&lnk, &loop->rx, &loop->tx, &rx, &tx, &loop->fd_max);
    }
};

// ---- The states of a close ----

TEST_F(SerialClose, TheCloseRequestPassesThroughItsStates) {
    open();
    lnk.stat = SERIALCOM_S_NOTIFY_CLOSE;
    EXPECT_TRUE(wants_to_write());
    EXPECT_TRUE(post_select(false, true));
    EXPECT_EQ(lnk.stat, SERIALCOM_S_CLOSE_WAIT_NO_TX);
    EXPECT_EQ(lnk.tx_buff_size, 0U);
    const SerialRequest last = next();
    EXPECT_EQ(last.type, unsigned{SERIALD_REQUEST_CLOSE});
    EXPECT_EQ(last.timeout, 0.0);
    EXPECT_EQ(last.burst_timeout, 0.0);
    EXPECT_TRUE(last.data.empty());
}

TEST_F(SerialClose, AnEmptySendBufferEndsTheWaitForTheSocket) {
    open();
    lnk.stat = SERIALCOM_S_CLOSE_WAIT_NO_TX;
    EXPECT_TRUE(post_select(false, true));
    EXPECT_EQ(lnk.stat, SERIALCOM_S_CLOSE_DONE);
    lnk.stat = SERIALCOM_S_CLOSE_WAIT_NO_TX;
    EXPECT_FALSE(wants_to_write()); // no more writable sockets: the pre-select sees it, too
    EXPECT_EQ(lnk.stat, SERIALCOM_S_CLOSE_DONE);
}

TEST_F(SerialClose, WhileTheSocketIsFullTheCloseIsNotDone) {
    open();
    lnk.stat = SERIALCOM_S_CLOSE_WAIT_NO_TX;
    lnk.tx_buff_size = 3;
    EXPECT_TRUE(wants_to_write());
    EXPECT_EQ(lnk.stat, SERIALCOM_S_CLOSE_WAIT_NO_TX);
    EXPECT_TRUE(post_select(false, true));
    EXPECT_EQ(lnk.stat, SERIALCOM_S_CLOSE_WAIT_NO_TX);
    EXPECT_EQ(lnk.tx_buff_size, 0U);
    EXPECT_FALSE(wants_to_write());
    EXPECT_EQ(lnk.stat, SERIALCOM_S_CLOSE_DONE);
}

TEST_F(SerialClose, AfterTheCloseIsDonePostSelectDoesNothing) {
    open();
    lnk.stat = SERIALCOM_S_CLOSE_DONE;
    lnk.last_rx_time -= 60;
    client->close_client();
    EXPECT_TRUE(post_select(true, true));
    EXPECT_EQ(lnk.stat, SERIALCOM_S_CLOSE_DONE);
    EXPECT_NE(lnk.fh, -1);
}

TEST_F(SerialClose, AnAnswerIsTakenWhileTheLinkCloses) {
    open();
    for (auto stat : {SERIALCOM_S_NOTIFY_CLOSE, SERIALCOM_S_CLOSE_WAIT_NO_TX}) {
        lnk.stat = stat;
        lnk.rq_stat = SERIALCOM_RS_SENT;
        client->failure();
        EXPECT_TRUE(post_select(true, false));
        EXPECT_EQ(lnk.rq_stat, SERIALCOM_RS_FAILURE);
    }
}

// ---- Disconnecting ----

TEST_F(SerialClose, DisconnectTellsTheServerAndReturnsWhenThatIsOut) {
    open();
    const Closing closing(&lnk);
    ASSERT_TRUE(wait_until([&] { return stat() == SERIALCOM_S_NOTIFY_CLOSE; }));
    EXPECT_EQ(next().type, unsigned{SERIALD_REQUEST_CLOSE});
    EXPECT_TRUE(loop->run_until([&] { return closing.done(); }));
    EXPECT_EQ(lnk.stat, SERIALCOM_S_CLOSE_DONE);
    EXPECT_NE(lnk.fh, -1);
    EXPECT_THAT(err.text(), HasSubstr("Notifying serial server disconnect"));
}

TEST_F(SerialClose, DisconnectReturnsWhenTheServerLeavesFirst) {
    open();
    const Closing closing(&lnk);
    ASSERT_TRUE(wait_until([&] { return stat() == SERIALCOM_S_NOTIFY_CLOSE; }));
    client->close_client();
    loop->run_until_lost();
    EXPECT_TRUE(wait_until([&] { return closing.done(); }));
    EXPECT_EQ(lnk.stat, SERIALCOM_S_UNLINKED);
}

TEST_F(SerialClose, DisconnectFromAServerThatNeverReadsReturnsAfterTwoSeconds) {
    open();
    const int size = 4096;
    setsockopt(lnk.fh, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
    issue(SERIALD_REQUEST_WRITE, std::string(500000, 'x'));
    while (lnk.tx_buff_size < sizeof lnk.tx_buff)
        ASSERT_TRUE(post_select(false, true));
    const double before = zeb::steady_time();
    Closing closing(&lnk);
    EXPECT_TRUE(loop->run_until([&] { return closing.done(); }));
    EXPECT_GE(zeb::steady_time() - before, 2.0);
    EXPECT_EQ(lnk.stat, SERIALCOM_S_NOTIFY_CLOSE);
}

TEST_F(SerialClose, DisconnectDoesNothingInOtherStates) {
    for (auto stat : {SERIALCOM_S_UNINITIALIZED, SERIALCOM_S_UNLINKED, SERIALCOM_S_NOTIFY_CLOSE,
                      SERIALCOM_S_CLOSE_WAIT_NO_TX, SERIALCOM_S_CLOSE_DONE}) {
        lnk.stat = stat;
        SERIALCOM_multi_disconnect(&lnk);
        EXPECT_EQ(lnk.stat, stat);
    }
    EXPECT_THAT(err.text(), Not(HasSubstr("Notifying")));
}

TEST_F(SerialClose, DestroyEmptiesTheLink) {
    open();
    send(SERIALD_REQUEST_WRITE, "xyz");
    client->success(bytes_of("abc"));
    settle();
    const int fh = lnk.fh;
    SERIALCOM_multi_destroy(&lnk);
    EXPECT_EQ(lnk.stat, SERIALCOM_S_UNINITIALIZED);
    EXPECT_EQ(lnk.fh, -1);
    EXPECT_EQ(lnk.clear_fh, fh);
    EXPECT_EQ(lnk.r_buffer, nullptr);
    EXPECT_EQ(lnk.r_buffer_max, 0U);
    EXPECT_EQ(lnk.rx.buff, nullptr);
    EXPECT_EQ(lnk.tx.buff, nullptr);
    EXPECT_EQ(lnk.tx_buff_size, 0U);
    EXPECT_TRUE(client->client_gone());
    EXPECT_THAT(err.text(), HasSubstr("Disconnected from serial server"));
    const std::string before = err.text();
    SERIALCOM_multi_destroy(&lnk); // a second time: nothing is left
    SERIALCOM_disconnect(&lnk);
    EXPECT_EQ(err.text(), before);
}

TEST_F(SerialClose, ADestroyedLinkConnectsAgain) {
    open();
    SERIALCOM_multi_destroy(&lnk);
    SERIALD_connect_params cp = port_of("ttyS0");
    ASSERT_TRUE(SERIALCOM_multi_connect(&cp, &lnk));
    client = &server.accept();
    loop.emplace(std::vector<SERIALCOM_link *>{&lnk});
    open();
}

// ---- Waking the servicing thread ----

// A loop without any time-out, as the instrument's but for that: it moves only when it is woken, so
// what arrives here was sent because of the wake-up.
class WokenLoop {
  public:
    WokenLoop(SERIALCOM_link *lnk, SerialHookLoop *loop) : lnk_(lnk), loop_(loop) {
        thread_ = std::thread([this] { run(); });
    }
    ~WokenLoop() {
        stopping_ = true;
        zeb::wake_thread(&self_);
        thread_.join();
    }

  private:
    void run() {
        zeb::prepare_thread(zeb::Wakeups::in_select);
        self_ = pthread_self();
        SERIALCOM_dispatch_init(lnk_, &loop_->rx, &loop_->tx, &loop_->fd_max, &self_);
        const sigset_t mask = zeb::wakeup_mask();
        while (!stopping_ && loop_->cycle(nullptr, &mask)) {
        }
    }
    SERIALCOM_link *lnk_;
    SerialHookLoop *loop_;
    pthread_t self_;
    std::atomic<bool> stopping_ = false;
    std::thread thread_;
};

class SerialWoken : public SerialClose {
  protected:
    // Starts the loop and returns when it has nothing to do but to wait.
    void serve() {
        open();
        // No heartbeat may do what the wake-up is to do.
        lnk.next_hb_time = UTIL_ftime() + 1e6;
        woken.emplace(&lnk, &*loop);
        ASSERT_TRUE(wait_until([&] {
            pthread_mutex_lock(&lnk.mtx);
            const bool known = lnk.thd != nullptr;
            pthread_mutex_unlock(&lnk.mtx);
            return known;
        }));
    }
    void TearDown() override {
        woken.reset();
        SERIALCOM_multi_destroy(&lnk);
    }
    std::optional<WokenLoop> woken;
};

TEST_F(SerialWoken, ARequestLeavesBecauseTheLoopIsWoken) {
    serve();
    issue(SERIALD_REQUEST_WRITE, "now");
    const std::optional<SerialRequest> request = client->wait_request();
    ASSERT_TRUE(request.has_value());
    EXPECT_EQ(request->data, bytes_of("now"));
}

TEST_F(SerialWoken, TheCloseRequestLeavesBecauseTheLoopIsWoken) {
    serve();
    const Closing closing(&lnk);
    const std::optional<SerialRequest> request = client->wait_request();
    ASSERT_TRUE(request.has_value());
    EXPECT_EQ(request->type, unsigned{SERIALD_REQUEST_CLOSE});
}

// ---- The link's own thread ----

TEST_F(SerialThread, OpensServesAndDisconnects) {
    open();
    EXPECT_EQ(SERIALCOM_test_connected_ext(&lnk), 1);
    answer_all();
    EXPECT_TRUE(SERIALCOM_reset(&lnk));
    SERIALCOM_disconnect(&lnk);
    const std::vector<SerialRequest> &seen = responder->stop();
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_EQ(seen[0].type, unsigned{SERIALD_REQUEST_RESET});
    EXPECT_EQ(seen[1].type, unsigned{SERIALD_REQUEST_CLOSE});
    EXPECT_TRUE(client->client_gone());
    EXPECT_EQ(lnk.thd, nullptr);
    EXPECT_EQ(lnk.stat, SERIALCOM_S_UNINITIALIZED);
    EXPECT_THAT(err.text(), Not(HasSubstr("Select failed")));
    EXPECT_THAT(err.text(), Not(HasSubstr("call failed")));
}

TEST_F(SerialThread, SendsHeartbeatsOfItself) {
    open();
    for (int i = 0; i < 2; ++i) {
        std::optional<SerialRequest> request;
        ASSERT_TRUE(wait_until([&] { return (request = client->next()).has_value(); }));
        EXPECT_EQ(request->type, unsigned{SERIALD_REQUEST_HEARTBEAT});
    }
}

TEST_F(SerialThread, WaitingEndsWhenTheServerRefusesTheHandshake) {
    ASSERT_EQ(client->wait_handshake(), "ttyS0");
    client->failure();
    EXPECT_FALSE(SERIALCOM_wait_connected(&lnk));
}

TEST_F(SerialThread, WaitingEndsWhenTheServerLeavesBeforeTheHandshake) {
    client->close_client();
    EXPECT_FALSE(SERIALCOM_wait_connected(&lnk));
}

TEST_F(SerialThread, WaitingEndsWhenTheServerStaysSilentForTooLong) {
    locked<FTIME>([&] { return lnk.last_rx_time -= 30; });
    EXPECT_FALSE(SERIALCOM_wait_connected(&lnk));
    EXPECT_THAT(err.text(), HasSubstr("Serial server socket timeout - closing"));
}

TEST_F(SerialThread, AnUnlinkedLinkKeepsItsEndedThread) {
    open();
    client->close_client();
    ASSERT_TRUE(wait_for(SERIALCOM_S_UNLINKED));
    SERIALCOM_disconnect(&lnk);
    EXPECT_EQ(lnk.stat, SERIALCOM_S_UNINITIALIZED);
    ASSERT_NE(lnk.thd, nullptr);
    EXPECT_EQ(pthread_join(*lnk.thd, nullptr), 0);
    free(lnk.thd);
    lnk.thd = nullptr;
}

TEST_F(SerialThread, DisconnectsFromAServerThatNeverReads) {
    const int size = 4096;
    ASSERT_EQ(client->wait_handshake(), "ttyS0");
    client->success();
    ASSERT_TRUE(SERIALCOM_wait_connected(&lnk));
    setsockopt(lnk.fh, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
    const std::string much(500000, 'x');
    SERIALCOM_issue_request(&lnk, SERIALD_REQUEST_WRITE, 0, 0, much.data(), much.size());
    ASSERT_TRUE(
        wait_until([&] { return locked<bool>([&] { return lnk.rq_stat == SERIALCOM_RS_SENT; }); }));
    SERIALCOM_disconnect(&lnk);
    EXPECT_EQ(lnk.stat, SERIALCOM_S_UNINITIALIZED);
    EXPECT_EQ(lnk.thd, nullptr);
}

TEST_F(SerialThread, ConnectsAgainAfterADisconnect) {
    open();
    SERIALCOM_disconnect(&lnk);
    SERIALD_connect_params cp = port_of("ttyS0");
    ASSERT_TRUE(SERIALCOM_connect(&cp, &lnk));
    client = &server.accept();
    open();
}

TEST(Serialcom, AThreadWithoutASocketReportsAndEnds) {
    StderrCapture err;
    SERIALCOM_link lnk = {};
    lnk.fh = -1;
    const zeb::LinkHooks<SERIALCOM_link> none = {};
    const timespec cycle = {0, 0};
    zeb::LinkLoop<SERIALCOM_link>(&lnk, none, cycle).run();
    EXPECT_THAT(err.finish(), HasSubstr("assertion failed (dispatch.h:"));
}

} // namespace

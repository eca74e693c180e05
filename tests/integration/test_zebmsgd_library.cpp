// The real message server and the library's own clients.

#include "process.h"
#include "support.h"

#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <sys/stat.h>

#include <zeb2/libzeb2.h>

using namespace zeb::test;

namespace {

constexpr const char *k_interval = "NET_LOG_SetInterval";

// A daemon's link with its own thread; what the program is given is kept as texts.
class Link {
  public:
    explicit Link(const char *name) {
        ZEBMSG_connect_params params;
        ZEBMSG_init_params(&params);
        params.id_str = name;
        connected_ = ZEBMSG_connect(&params, &link_) && ZEBMSG_wait_connected(&link_);
    }
    ~Link() { leave(); }
    Link(const Link &) = delete;
    Link &operator=(const Link &) = delete;

    bool connected() const { return connected_; }
    ZEBMSG_link *get() { return &link_; }
    void leave() {
        if (connected_)
            ZEBMSG_disconnect(&link_);
        connected_ = false;
    }

    void publish_interval(double seconds) {
        NET_LOG_SetInterval record{seconds};
        ZEBMSG_queue_message(&link_, MSG_LOG_SET_INTERVAL_AVG, 1, nullptr, &record, sizeof record,
                             k_interval);
    }

    void announce(const char *type, const char *tag) {
        NET_SERVER_InstrumentInfo info;
        ZEBMSG_register_init(&info);
        UTIL_strncpynt(info.type, type, sizeof info.type);
        UTIL_strncpynt(info.tags[0].tag, tag, sizeof info.tags[0].tag);
        ZEBMSG_register_instrument(&link_, &info);
    }

    bool knows(const char *name) { return ZEBMSG_instrument_info_by_name(&link_, name, nullptr); }

    // Waits for an interval from `source`; negative when none comes.
    double interval_from(const char *source) {
        wanted_ = source;
        seconds_ = -1;
        wait_until([this] {
            ZEBMSG_process_messages(&link_, take, this);
            return seconds_ >= 0;
        });
        return seconds_;
    }

  private:
    static void take(ZEBMSG_proc_msg *message, void *param) {
        auto *self = static_cast<Link *>(param);
        if (message->msg->msg == MSG_LOG_SET_INTERVAL_AVG && message->src_name != nullptr &&
            self->wanted_ == message->src_name)
            self->seconds_ = static_cast<NET_LOG_SetInterval *>(message->pds)->interval;
    }

    ZEBMSG_link link_{};
    bool connected_ = false;
    std::string wanted_;
    double seconds_ = -1;
};

class ZebmsgdAndLibrary : public testing::Test {
  protected:
    TempDir dir;
    ScopedEnv run{"ZEB2RUN", dir.path().c_str()};
    ScopedEnv no_host{"ZEB2SERVER", nullptr};
    StderrCapture errors;
    std::optional<Process> server;

    ZebmsgdAndLibrary() {
        LIBZEB_init("test");
        server.emplace(dir.path(), std::vector<std::string>{built_path("bin/zebmsgd")},
                       Process::Options());
        wait_until([&] {
            struct stat info;
            return stat((dir / ".mainstatus").c_str(), &info) == 0;
        });
    }
    ~ZebmsgdAndLibrary() override {
        server.reset();
        LIBZEB_cleanup();
    }
};

TEST_F(ZebmsgdAndLibrary, AMessageReachesTheOtherDaemonWithItsSource) {
    Link sender("sender"), receiver("receiver");
    ASSERT_TRUE(sender.connected() && receiver.connected());
    sender.publish_interval(2.5);
    EXPECT_EQ(receiver.interval_from("sender"), 2.5);
}

TEST_F(ZebmsgdAndLibrary, AnInstrumentIsKnownToThoseThatConnectLaterUntilItLeaves) {
    Link early("early"), instrument("cpc1");
    ASSERT_TRUE(early.connected() && instrument.connected());
    instrument.announce("cpc_3010", "inlet");
    EXPECT_TRUE(wait_until([&] { return early.knows("cpc1"); }));
    Link late("late");
    EXPECT_TRUE(wait_until([&] { return late.knows("cpc1"); }));
    const char *name = ZEBMSG_name_for_tag(late.get(), const_cast<char *>("inlet"));
    ASSERT_NE(name, nullptr);
    EXPECT_STREQ(name, "cpc1");
    instrument.leave();
    EXPECT_TRUE(wait_until([&] { return !early.knows("cpc1") && !late.knows("cpc1"); }));
}

TEST_F(ZebmsgdAndLibrary, AFilterOfADaemonHolds) {
    Link wanted("cpc1"), unwanted("neph1"), receiver("receiver");
    ZEBMSG_add_filter(receiver.get(), TRUE, "cpc*", nullptr, -1, nullptr, nullptr, nullptr);
    // The filter is in force when the answer to a message sent after it has come back.
    receiver.publish_interval(1);
    ASSERT_EQ(wanted.interval_from("receiver"), 1);
    unwanted.publish_interval(2);
    ASSERT_EQ(wanted.interval_from("neph1"), 2);
    wanted.publish_interval(3);
    EXPECT_EQ(receiver.interval_from("cpc1"), 3);
}

TEST_F(ZebmsgdAndLibrary, ARestartedDaemonTakesItsNameOver) {
    Link ghost("cpc1");
    ASSERT_TRUE(ghost.connected());
    Link restarted("cpc1"), other("other");
    ASSERT_TRUE(restarted.connected());
    EXPECT_TRUE(wait_until([&] {
        return errors.text().find("Server terminating - closing socket") != std::string::npos;
    }));
    restarted.publish_interval(1);
    EXPECT_EQ(other.interval_from("cpc1"), 1);
}

TEST_F(ZebmsgdAndLibrary, AStoppedServerClosesTheLinksOfItsDaemons) {
    Link daemon("daemon");
    ASSERT_TRUE(daemon.connected());
    server->signal(SIGTERM);
    EXPECT_EQ(server->wait(), 0);
    EXPECT_TRUE(wait_until([&] {
        return errors.text().find("Server terminating - closing socket") != std::string::npos;
    }));
}

} // namespace

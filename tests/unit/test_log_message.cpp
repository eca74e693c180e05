// Logging: the station's messages, through a real link.
#include "log_testing.h"

#include "eventat.h"
#include "netpack.h"
#include "scripted_server.h"

using namespace zeb::test;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

namespace {

// What was asked for, in the order of the calls.
std::vector<std::pair<char, FTIME>> g_written;

void write_monitor(LOG_file *f, FTIME time) {
    EXPECT_NE(f, nullptr);
    g_written.emplace_back('m', time);
}

void write_average(LOG_file *f, FTIME time) {
    EXPECT_NE(f, nullptr);
    g_written.emplace_back('a', time);
}

// A daemon's main loop, cycle by cycle, on a scripted message server.
class LogMessages : public LogFiles {
  protected:
    void SetUp() override {
        LogFiles::SetUp();
        g_written.clear();
        EVENTAT_init();
        ZEBMSG_connect_params params = {"neph", nullptr};
        ASSERT_TRUE(ZEBMSG_multi_connect(&params, &lnk));
        ASSERT_TRUE(server.accept());
        loop.emplace(&lnk);
        server.handshake(1);
        ASSERT_TRUE(loop->run_until([&] { return lnk.stat == ZEBMSG_S_OPEN; }));
        define_simple();
    }
    void TearDown() override {
        EVENTAT_cleanup();
        ZEBMSG_multi_destroy(&lnk);
    }

    void register_link() { LOG_register_link(&f, &lnk, write_monitor, write_average); }
    template <class T> void send(NETMSG_type type, const char *name, const T &record) {
        server.send(type, "logd", &record, sizeof record, name);
    }
    void send_monitor(FTIME time) {
        send(MSG_LOG_MONITOR_RECORD, "NET_LOG_MonitorSnapshot", NET_LOG_MonitorSnapshot{time});
    }
    void send_average(FTIME time) {
        send(MSG_LOG_NEW_AVERAGE, "NET_LOG_NewAverage", NET_LOG_NewAverage{time});
    }
    void send_state(BOOL enable) {
        send(MSG_LOG_SET_STATE, "NET_LOG_SetState", NET_LOG_SetState{enable});
    }
    // Receives so many messages and has them processed.
    void process(int count) {
        ASSERT_TRUE(loop->run_until([&] { return lnk.rx_lib_queue.count == count; }));
        ZEBMSG_process_messages(
            &lnk, [](ZEBMSG_proc_msg *, void *) {}, nullptr);
    }
    // Whether each state was published that the server has received since the last look.
    std::vector<int> published() {
        EXPECT_TRUE(
            loop->run_until([&] { return lnk.tx_queue.count == 0 && lnk.tx_buff_size == 0; }));
        std::vector<int> states;
        while (const auto message = server.next()) {
            if (message->type != MSG_LOG_INFO)
                continue;
            EXPECT_EQ(message->flags, 3U);
            EXPECT_EQ(message->dest, "");
            EXPECT_EQ(message->record_name, "NET_LOG_Info");
            EXPECT_EQ(message->record.size(), 1U);
            states.push_back(message->as<NET_LOG_Info>().enabled);
        }
        return states;
    }

    ScopedEnv no_server{"ZEB2SERVER", nullptr};
    ScriptedServer server;
    ZEBMSG_link lnk = {};
    std::optional<HookLoop> loop;
};

// ---- State ----

TEST_F(LogMessages, OpeningPublishesTheState) {
    ASSERT_TRUE(LOG_open(&f, root, local, &lnk));
    EXPECT_THAT(published(), ElementsAre(1));
    local.set("EnableLogging", "0");
    ASSERT_TRUE(LOG_open(&f, root, local, &lnk));
    EXPECT_THAT(published(), ElementsAre(0));
}

TEST_F(LogMessages, OpeningThatFailsPublishesNothing) {
    root.set("Disk;LogDir", (dir / "none").c_str());
    EXPECT_FALSE(LOG_open(&f, root, local, &lnk));
    EXPECT_THAT(published(), IsEmpty());
}

TEST_F(LogMessages, AChangeOfStateIsStoredAndPublished) {
    open();
    register_link();
    send_state(FALSE);
    process(1);
    EXPECT_FALSE(f.info.enabled);
    write(1);
    send_state(TRUE);
    process(1);
    EXPECT_TRUE(f.info.enabled);
    write(2);
    EXPECT_THAT(published(), ElementsAre(0, 1));
    EXPECT_EQ(data(), line(2));
}

TEST_F(LogMessages, AStateThatRepeatsTheCurrentOnePublishesNothing) {
    open();
    register_link();
    send_state(TRUE);
    send_state(TRUE);
    process(2);
    EXPECT_TRUE(f.info.enabled);
    EXPECT_THAT(published(), IsEmpty());
}

// ---- Files ----

TEST_F(LogMessages, AFlushMessageWritesWhatIsHeldBack) {
    root.set("Disk;BufferSize", "64");
    open();
    register_link();
    write(1);
    server.send(MSG_LOG_FLUSH, "logd");
    process(1);
    EXPECT_THAT(read_file(f.filename), EndsWith(line(1)));
}

TEST_F(LogMessages, ASwitchMessageBeginsAFile) {
    open();
    register_link();
    const std::string name = f.filename;
    const time_t now = time(nullptr);
    wait_until([&] { return time(nullptr) != now; });
    send(MSG_LOG_SWITCHFILES, "NET_LOG_SwitchFiles", NET_LOG_SwitchFiles{1400000000});
    process(1);
    EXPECT_NE(name, f.filename);
    EXPECT_EQ(files().size(), 2U);
}

// ---- Monitor and average lines ----

TEST_F(LogMessages, MonitorAndAverageLinesAreWrittenAtTheirTimes) {
    register_link();
    send_average(2000);
    send_monitor(1000.5);
    process(2);
    EXPECT_THAT(g_written, IsEmpty());
    EVENTAT_run(1000);
    EXPECT_THAT(g_written, IsEmpty());
    EVENTAT_run(1001);
    EVENTAT_run(3000);
    EVENTAT_run(4000);
    EXPECT_THAT(g_written, ElementsAre(std::pair('m', 1000.5), std::pair('a', 2000.0)));
}

TEST_F(LogMessages, TwoMonitorRequestsBeforeTheFirstsTimeProduceOneMonitorWrite) {
    register_link();
    send_monitor(1000);
    send_monitor(1500);
    process(2);
    EVENTAT_run(2000);
    EXPECT_THAT(g_written, ElementsAre(std::pair('m', 1000.0)));
    send_monitor(3000);
    process(1);
    EVENTAT_run(3000);
    EXPECT_EQ(g_written.size(), 2U);
}

TEST_F(LogMessages, TwoAverageRequestsBeforeTheFirstsTimeProduceOneAverageWrite) {
    register_link();
    send_average(1000);
    send_average(900);
    process(2);
    EVENTAT_run(2000);
    EXPECT_THAT(g_written, ElementsAre(std::pair('a', 1000.0)));
}

TEST_F(LogMessages, RequestsWithoutAWriterAreIgnored) {
    LOG_register_link(&f, &lnk, nullptr, nullptr);
    send_monitor(1000);
    send_average(1000);
    process(2);
    EVENTAT_run(2000);
    EXPECT_THAT(g_written, IsEmpty());
}

TEST_F(LogMessages, ATimeThatNeverComesKeepsNoOtherFromComing) {
    register_link();
    send_monitor(std::numeric_limits<double>::infinity());
    send_monitor(std::numeric_limits<double>::quiet_NaN());
    send_monitor(1000);
    process(3);
    EVENTAT_run(2000);
    EXPECT_THAT(g_written, ElementsAre(std::pair('m', 1000.0)));
}

TEST_F(LogMessages, ARequestForNoTimeIsIgnoredAndDoesNotOutliveTheFile) {
    register_link();
    send_monitor(-1.0);
    send_average(-1.0);
    process(2);
    LOG_close(&f);
    EVENTAT_run(2000);
    EXPECT_THAT(g_written, IsEmpty());
    LOG_init(&f);
}

TEST_F(LogMessages, ClosingForgetsTheLinesThatAreStillDue) {
    register_link();
    send_monitor(1000);
    send_average(1000);
    process(2);
    LOG_close(&f);
    EVENTAT_run(2000);
    EXPECT_THAT(g_written, IsEmpty());
    LOG_init(&f);
}

// ---- What is ignored ----

TEST_F(LogMessages, MessagesWithoutARecordAreIgnored) {
    open();
    register_link();
    const std::string name = f.filename;
    const NETMSG_type types[] = {MSG_LOG_MONITOR_RECORD, MSG_LOG_NEW_AVERAGE, MSG_LOG_SET_STATE,
                                 MSG_LOG_SWITCHFILES};
    for (const NETMSG_type type : types) {
        const NETMSG_entry *entry = NETPACK_find_msg_by_type(type);
        ZEBMSG_proc_msg pm = {};
        pm.msg = entry;
        LOG_internal_message_proc(&f, &pm, &lnk, write_monitor, write_average);
    }
    EXPECT_EQ(f.filename, name);
    EXPECT_TRUE(f.info.enabled);
    EXPECT_THAT(g_written, IsEmpty());
    EXPECT_THAT(published(), IsEmpty());
}

TEST_F(LogMessages, OtherMessagesAreIgnored) {
    open();
    register_link();
    const size_t headers = content().size();
    send(MSG_LOG_SET_INTERVAL_AVG, "NET_LOG_SetInterval", NET_LOG_SetInterval{1});
    send(MSG_LOG_SET_INTERVAL_ROT, "NET_LOG_SetInterval", NET_LOG_SetInterval{1});
    send(MSG_LOG_INFO, "NET_LOG_Info", NET_LOG_Info{FALSE});
    process(3);
    EXPECT_TRUE(f.info.enabled);
    EXPECT_EQ(content().size(), headers);
    EXPECT_THAT(published(), IsEmpty());
}

TEST_F(LogMessages, AMessageThatTheCatalogueLacksIsIgnored) {
    ZEBMSG_proc_msg pm = {};
    LOG_internal_message_proc(&f, &pm, nullptr, write_monitor, write_average);
    EXPECT_THAT(g_written, IsEmpty());
}

// ---- A daemon that delivers messages itself ----

class LogOwnDelivery : public LogMessages {
  protected:
    template <class T>
    void deliver(NETMSG_type type, const char *name, T record, ZEBMSG_link *link) {
        ZEBMSG_proc_msg pm = {};
        pm.msg = NETPACK_find_msg_by_type(type);
        pm.dsd = NETPACK_find_ds(name);
        pm.pds = &record;
        LOG_internal_message_proc(&f, &pm, link, write_monitor, write_average);
    }
};

TEST_F(LogOwnDelivery, MonitorAndAverageLinesAreWrittenAtOnce) {
    deliver(MSG_LOG_MONITOR_RECORD, "NET_LOG_MonitorSnapshot", NET_LOG_MonitorSnapshot{5e9},
            nullptr);
    deliver(MSG_LOG_NEW_AVERAGE, "NET_LOG_NewAverage", NET_LOG_NewAverage{7}, nullptr);
    EXPECT_THAT(g_written, ElementsAre(std::pair('m', 5e9), std::pair('a', 7.0)));
}

TEST_F(LogOwnDelivery, AChangeOfStateIsPublishedWhenALinkIsGiven) {
    deliver(MSG_LOG_SET_STATE, "NET_LOG_SetState", NET_LOG_SetState{TRUE}, nullptr);
    EXPECT_TRUE(f.info.enabled);
    deliver(MSG_LOG_SET_STATE, "NET_LOG_SetState", NET_LOG_SetState{FALSE}, &lnk);
    EXPECT_THAT(published(), ElementsAre(0));
}

TEST_F(LogOwnDelivery, ARecordThatIsTooSmallIsNone) {
    deliver(MSG_LOG_MONITOR_RECORD, "NET_LOG_Info", NET_LOG_Info{1}, nullptr);
    EXPECT_THAT(g_written, IsEmpty());
}

} // namespace

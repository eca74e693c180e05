#include "inst_testing.h"

#include "util.h"

#include <sys/socket.h>

using namespace zeb;
using namespace zeb::test;
using testing::HasSubstr;
using testing::Not;

namespace {

class Inst : public InstTest {};

// Every combination of links.
class InstLayout : public InstTest, public testing::WithParamInterface<Layout> {
  protected:
    const Layout &layout() const { return GetParam(); }
};

std::vector<Layout> every_layout() {
    std::vector<Layout> layouts;
    for (const bool serial : {false, true})
        for (const bool log : {false, true})
            for (const int further : {0, 1, 3})
                layouts.push_back({serial, log, further});
    return layouts;
}

std::string name_of(const testing::TestParamInfo<Layout> &info) {
    return std::string("Message") + (info.param.serial ? "Serial" : "") +
           (info.param.log ? "Log" : "") + number(info.param.further) + "Further";
}

INSTANTIATE_TEST_SUITE_P(, InstLayout, testing::ValuesIn(every_layout()), name_of);

constexpr Layout k_all = {true, true, 1};

} // namespace

// ---- Every combination of links ----

TEST_P(InstLayout, EveryLinkIsServed) {
    open(layout());
    expect_serves_messages();
    const std::vector<SERIALCOM_link *> links = serial_links(layout());
    for (size_t i = 0; i < links.size(); ++i) {
        expect_serves(links[i], *clients[i]);
        EXPECT_TRUE(is_up(links[i]));
        EXPECT_EQ(links[i]->thd, lnk.thd);
    }
    EXPECT_EQ(lnk.msg_lnk.thd, lnk.thd);
    EXPECT_EQ(lnk.sc_lnk_enabled != FALSE, layout().serial);
    EXPECT_EQ(lnk.log_sc_lnk_enabled != FALSE, layout().log);
    EXPECT_EQ(lnk.ext_sc_links.count, layout().further);
    expect_no_failed_select();
}

TEST_P(InstLayout, AConnectionThatFailsEndsTheConnectAndEverythingIsReleased) {
    const std::set<int> before = open_descriptors();
    for (int failing = 1; failing <= layout().serials() + 1; ++failing) {
        g_replaced->connects = 0;
        g_replaced->connect_fails = failing;
        EXPECT_FALSE(connect(layout()));
        EXPECT_EQ(g_replaced->connects, failing) << "nothing is tried after it";
        EXPECT_EQ(lnk.ext_sc_links.count, std::min(failing - 1, layout().further));
        EXPECT_FALSE(INST_test_connected(&lnk));
        EXPECT_FALSE(INST_wait_connected(&lnk));
        EXPECT_FALSE(INST_sleep(&lnk, 1));
        INST_logecho(&lnk, "x");
        const bool further_failed = failing <= layout().further;
        EXPECT_EQ(lnk.msg_lnk.stat, further_failed ? ZEBMSG_S_UNINITIALIZED
                                    : failing == layout().further + 1
                                        ? ZEBMSG_S_UNLINKED
                                        : ZEBMSG_S_AWAITING_HANDSHAKE);
        INST_disconnect(&lnk);
        if (further_failed)
            SERIALCOM_multi_destroy(&further[failing - 1]);
        EXPECT_EQ(open_descriptors(), before) << failing;
        INST_disconnect(&lnk);
        close_clients();
    }
}

TEST_P(InstLayout, ALinkThatIsLostEndsTheSleepAndTheOthersAreServedOn) {
    const std::vector<SERIALCOM_link *> links = serial_links(layout());
    for (size_t lost = 0; lost <= links.size(); ++lost) {
        const bool message = lost == links.size();
        open(layout());
        if (message)
            server.close_client();
        else
            clients[lost]->close_client();
        EXPECT_FALSE(INST_sleep(&lnk, 3600));
        EXPECT_FALSE(INST_test_connected(&lnk));
        EXPECT_FALSE(INST_wait_connected(&lnk));
        EXPECT_EQ(flag(&lnk.msg_lnk_up), !message);
        if (!message)
            expect_serves_messages();
        for (size_t i = 0; i < links.size(); ++i) {
            EXPECT_EQ(is_up(links[i]), i != lost);
            if (i != lost)
                expect_serves(links[i], *clients[i]);
        }
        expect_no_failed_select();
        INST_disconnect(&lnk);
    }
}

TEST_P(InstLayout, DisconnectingTakesLeaveOfEveryServerAndReleasesEverything) {
    const std::set<int> before = open_descriptors();
    open(layout());
    INST_disconnect(&lnk);
    EXPECT_EQ(server.wait_next()->type, MSG_SERVER_TERMINATE);
    for (SerialClient *client : clients) {
        const std::optional<SerialRequest> request = client->wait_request();
        ASSERT_TRUE(request.has_value());
        EXPECT_EQ(request->type, static_cast<unsigned>(SERIALD_REQUEST_CLOSE));
    }
    close_clients();
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(lnk.thd, nullptr);
    EXPECT_EQ(lnk.ext_sc_links.count, 0);
    EXPECT_FALSE(INST_test_connected(&lnk));
    expect_no_failed_select();
}

// ---- Connecting ----

TEST_F(Inst, WithoutSerialLinksTheThreadServesMessagesAndDescriptorsOnly) {
    open({});
    Pipe in;
    const int fh = in.give(0);
    ASSERT_TRUE(ZEBFILE_associate_fh(fh, ZEBFILE_READ));
    in.put("line\n");
    char line[16];
    EXPECT_EQ(ZEBFILE_readuntil_blocking(fh, line, sizeof line, "\n", 0), 4U);
    expect_serves_messages();
    EXPECT_FALSE(lnk.sc_lnk_enabled);
    EXPECT_FALSE(lnk.log_sc_lnk_enabled);
    EXPECT_TRUE(INST_test_connected(&lnk)) << "which depends on the message link alone";
    server.close_client();
    EXPECT_TRUE(wait_until([&] { return !INST_test_connected(&lnk); }));
}

TEST_F(Inst, AFurtherLinkThatDoesNotConnectFailsBeforeTheMessageLinkIsOpened) {
    g_replaced->connect_fails = 1;
    EXPECT_FALSE(connect(k_all));
    EXPECT_FALSE(server.accept(0));
    EXPECT_EQ(lnk.msg_lnk.stat, ZEBMSG_S_UNINITIALIZED);
    EXPECT_EQ(lnk.thd, nullptr);
    expect_report("Unable to connect to serial server socket - it should be running by now...: "
                  "Connection refused");
    SERIALCOM_multi_destroy(&further[0]);
}

TEST_F(Inst, EverythingTheRecordHeldIsReset) {
    memset(static_cast<void *>(&lnk), 0x55, sizeof lnk);
    memset(static_cast<void *>(further), 0x55, sizeof further);
    open(k_all);
    expect_serves_messages();
    expect_serves(&further[0], *clients[0]);
}

TEST_F(Inst, ANullLinkEndsTheFurtherLinksAsWell) {
    ZEBMSG_connect_params msg = {"neph1", nullptr};
    SERIALD_connect_params port = {};
    SERIALCOM_link *none = nullptr;
    EXPECT_TRUE(INST_connect(&lnk, &msg, nullptr, nullptr, none, &port));
    EXPECT_EQ(lnk.ext_sc_links.count, 0);
    INST_disconnect(&lnk);
    SERIALD_connect_params *no_port = nullptr;
    EXPECT_TRUE(INST_connect(&lnk, &msg, nullptr, nullptr, &further[0], no_port));
    EXPECT_EQ(lnk.ext_sc_links.count, 0);
}

TEST_F(Inst, NullArgumentsAreReportedAndRefused) {
    ZEBMSG_connect_params msg = {"neph1", nullptr};
    SERIALCOM_link *none = nullptr;
    SERIALD_connect_params *no_port = nullptr;
    EXPECT_FALSE(INST_connect(nullptr, &msg, nullptr, nullptr, none, no_port));
    EXPECT_FALSE(INST_connect(&lnk, nullptr, nullptr, nullptr, none, no_port));
    EXPECT_FALSE(INST_test_connected(nullptr));
    EXPECT_FALSE(INST_wait_connected(nullptr));
    EXPECT_FALSE(INST_sleep(nullptr, 0));
    INST_logecho(nullptr, "x");
    INST_logecho(&lnk, nullptr);
    INST_disconnect(nullptr);
    EXPECT_EQ(occurrences(err.text(), "assertion failed (inst.cpp:"), 8U);
}

TEST_F(Inst, AHandshakeThatIsRefusedEndsTheWait) {
    ASSERT_TRUE(connect({true, false, 0}));
    SerialClient &client = serial_server.accept();
    ASSERT_TRUE(server.accept());
    server.handshake(1);
    client.wait_handshake();
    client.failure();
    EXPECT_FALSE(INST_wait_connected(&lnk));
    EXPECT_FALSE(flag(&lnk.sc_lnk_up));
    EXPECT_TRUE(flag(&lnk.msg_lnk_up));
}

TEST_F(Inst, ConnectsAnewAfterADisconnect) {
    open(k_all);
    INST_disconnect(&lnk);
    open(k_all);
    expect_serves(&lnk.sc_lnk, *clients[1]);
}

// ---- Sleeping ----

TEST_F(Inst, SleepsInSlicesUntilTheTimeHasPassed) {
    open({});
    const double start = steady_time();
    EXPECT_TRUE(INST_sleep(&lnk, 0.3));
    EXPECT_GE(steady_time() - start, 0.3);
    ASSERT_FALSE(g_replaced->slices.empty());
    EXPECT_EQ(g_replaced->slices.front(), 0.25);
    for (const double slice : g_replaced->slices) {
        EXPECT_GT(slice, 0);
        EXPECT_LE(slice, 0.25);
    }
}

TEST_F(Inst, NoTimeToSleepOnlyLooks) {
    open({});
    EXPECT_TRUE(INST_sleep(&lnk, 0));
    EXPECT_TRUE(INST_sleep(&lnk, -1));
    EXPECT_TRUE(INST_sleep(&lnk, std::numeric_limits<double>::quiet_NaN()));
    EXPECT_TRUE(g_replaced->slices.empty());
    server.close_client();
    EXPECT_TRUE(wait_until([&] { return !INST_test_connected(&lnk); }));
    EXPECT_FALSE(INST_sleep(&lnk, 0));
}

TEST_F(Inst, SleepEndsWithinASliceWhenTheServerClosesTheSocket) {
    open({});
    g_replaced->on_slice = [&] {
        if (g_replaced->slices.size() != 3)
            return;
        server.close_client();
        EXPECT_TRUE(wait_until([&] { return !flag(&lnk.msg_lnk_up); }));
    };
    EXPECT_FALSE(INST_sleep(&lnk, 3600));
    EXPECT_EQ(g_replaced->slices, std::vector<double>(3, 0.25));
}

TEST_F(Inst, SleepEndsWithinASliceWhenAnExitIsRequested) {
    open({});
    g_replaced->on_slice = [&] {
        if (g_replaced->slices.size() == 2)
            __atomic_store_n(&g_util_in_signal_exit, TRUE, __ATOMIC_SEQ_CST);
    };
    EXPECT_FALSE(INST_sleep(&lnk, 3600));
    EXPECT_EQ(g_replaced->slices.size(), 2U);
    EXPECT_FALSE(INST_sleep(&lnk, 0));
    EXPECT_TRUE(INST_test_connected(&lnk));
    __atomic_store_n(&g_util_in_signal_exit, FALSE, __ATOMIC_SEQ_CST);
}

// ---- Waiting for the handshakes: the rules, on links without a thread ----

namespace {

class InstWait : public InstTest {
  protected:
    InstWait() {
        lnk.status_ok = TRUE;
        lnk.msg_lnk_up = TRUE;
        lnk.msg_lnk.stat = ZEBMSG_S_OPEN;
        lnk.msg_lnk.fh = lnk.msg_lnk.clear_fh = -1;
        for (BOOL *yes :
             {&lnk.sc_lnk_enabled, &lnk.sc_lnk_up, &lnk.log_sc_lnk_enabled, &lnk.log_sc_lnk_up})
            *yes = TRUE;
        lnk.sc_lnk.stat = SERIALCOM_S_OPEN;
        lnk.log_sc_lnk.stat = SERIALCOM_S_OPEN;
        for (SERIALCOM_link &link : further) {
            link.stat = SERIALCOM_S_OPEN;
            const INST_ext_link ext = {&link, TRUE};
            LL_insert_tail(&lnk.ext_sc_links, &ext, sizeof ext);
        }
        // A wait that goes on ends here.
        g_replaced->on_yield = [this] {
            ++yields;
            lnk.status_ok = FALSE;
        };
    }
    ~InstWait() override {
        LL_clear(&lnk.ext_sc_links);
        lnk = {};
    }
    BOOL &further_up(int i) {
        LL_NODE *node = lnk.ext_sc_links.head;
        for (; i > 0; --i)
            node = node->next;
        return static_cast<INST_ext_link *>(node->data)->lnk_up;
    }
    // Whether the wait went on for another look.
    bool waits() {
        yields = 0;
        EXPECT_FALSE(INST_wait_connected(&lnk));
        lnk.status_ok = TRUE;
        return yields == 1;
    }
    int yields = 0;
};

} // namespace

TEST_F(InstWait, EndsAtOnceWhenEveryLinkIsOpen) {
    EXPECT_TRUE(INST_wait_connected(&lnk));
    EXPECT_EQ(yields, 0);
}

TEST_F(InstWait, EndsAtOnceWhenALinkIsNotServedAnyMore) {
    for (BOOL *up :
         {&lnk.status_ok, &lnk.msg_lnk_up, &lnk.sc_lnk_up, &lnk.log_sc_lnk_up, &further_up(1)}) {
        *up = FALSE;
        EXPECT_FALSE(INST_wait_connected(&lnk));
        EXPECT_FALSE(INST_test_connected(&lnk));
        EXPECT_EQ(yields, 0);
        *up = TRUE;
    }
}

TEST_F(InstWait, ASerialLinkThatWasNotAskedForDoesNotCount) {
    lnk.sc_lnk_enabled = lnk.sc_lnk_up = FALSE;
    lnk.sc_lnk.stat = SERIALCOM_S_UNINITIALIZED;
    EXPECT_TRUE(INST_wait_connected(&lnk));
    EXPECT_TRUE(INST_test_connected(&lnk));
    lnk.log_sc_lnk_enabled = lnk.log_sc_lnk_up = FALSE;
    lnk.log_sc_lnk.stat = SERIALCOM_S_UNINITIALIZED;
    EXPECT_TRUE(INST_wait_connected(&lnk));
    EXPECT_TRUE(INST_test_connected(&lnk));
}

TEST_F(InstWait, GoesOnWhileALinkAwaitsItsHandshake) {
    lnk.msg_lnk.stat = ZEBMSG_S_AWAITING_HANDSHAKE;
    EXPECT_TRUE(waits());
    lnk.msg_lnk.stat = ZEBMSG_S_OPEN;
    for (SERIALCOM_link *link : {&lnk.sc_lnk, &lnk.log_sc_lnk, &further[0], &further[2]}) {
        for (const auto stat : {SERIALCOM_S_SEND_HANDSHAKE, SERIALCOM_S_AWAITING_HANDSHAKE}) {
            link->stat = stat;
            EXPECT_TRUE(waits());
            EXPECT_FALSE(INST_test_connected(&lnk));
        }
        link->stat = SERIALCOM_S_OPEN;
    }
}

TEST_F(InstWait, EndsWhenTheMessageLinkOrAnOwnSerialLinkIsGone) {
    lnk.msg_lnk.stat = ZEBMSG_S_UNLINKED;
    EXPECT_FALSE(INST_wait_connected(&lnk));
    lnk.msg_lnk.stat = ZEBMSG_S_OPEN;
    for (SERIALCOM_link *link : {&lnk.sc_lnk, &lnk.log_sc_lnk}) {
        link->stat = SERIALCOM_S_UNLINKED;
        EXPECT_FALSE(INST_wait_connected(&lnk));
        link->stat = SERIALCOM_S_OPEN;
    }
    EXPECT_EQ(yields, 0);
}

TEST_F(InstWait, AFurtherLinkThatIsGoneButUpCountsAsOpen) {
    further[1].stat = SERIALCOM_S_UNLINKED;
    EXPECT_TRUE(INST_wait_connected(&lnk));
    EXPECT_FALSE(INST_test_connected(&lnk)) << "where it does not";
}

TEST_F(InstWait, TheFirstFurtherLinkThatIsNotOpenDecides) {
    further[0].stat = SERIALCOM_S_AWAITING_HANDSHAKE;
    further_up(1) = FALSE;
    EXPECT_TRUE(waits());
    further[0].stat = SERIALCOM_S_OPEN;
    further[2].stat = SERIALCOM_S_AWAITING_HANDSHAKE;
    EXPECT_FALSE(waits()) << "the lost one comes first";
}

TEST_F(InstWait, ALinkThatIsGoneDecidesOverOneThatAwaitsItsHandshake) {
    lnk.msg_lnk.stat = ZEBMSG_S_AWAITING_HANDSHAKE;
    lnk.sc_lnk.stat = SERIALCOM_S_UNLINKED;
    EXPECT_FALSE(waits());
    lnk.sc_lnk.stat = SERIALCOM_S_OPEN;
    further_up(2) = FALSE;
    EXPECT_FALSE(waits());
}

// ---- Log lines ----

TEST_F(Inst, ALogLineIsWrittenToTheLineForLogLines) {
    open({true, true, 0});
    SerialResponder responder(
        *clients[1], [](SerialClient &client, const SerialRequest &) { client.success(); });
    INST_logecho(&lnk, "20140821,17.5\n");
    const std::vector<SerialRequest> &requests = responder.stop();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].type, static_cast<unsigned>(SERIALD_REQUEST_WRITE));
    EXPECT_EQ(std::string(requests[0].data.begin(), requests[0].data.end()), "20140821,17.5\n");
}

TEST_F(Inst, ALogLineWithoutTheLineForItIsDropped) {
    open({true, false, 1});
    INST_logecho(&lnk, "x");
    EXPECT_EQ(lnk.sc_lnk.rq_stat, SERIALCOM_RS_NONE);
    EXPECT_THAT(err.text(), Not(HasSubstr("Tried to issue a request")));
}

TEST_F(Inst, ALogLineAfterTheLossOfItsLineIsDropped) {
    open({true, true, 0});
    clients[1]->close_client();
    EXPECT_TRUE(wait_until([&] { return !flag(&lnk.log_sc_lnk_up); }));
    INST_logecho(&lnk, "x");
    EXPECT_THAT(err.text(), Not(HasSubstr("Tried to issue a request")));
    expect_serves(&lnk.sc_lnk, *clients[0]);
}

// ---- Disconnecting ----

TEST_F(Inst, FarewellsAndReleasesHaveTheirOrder) {
    open({true, true, 3});
    const std::string before = err.text();
    INST_disconnect(&lnk);
    std::string order;
    const std::string text = err.text().substr(before.size());
    const std::pair<std::string, char> lines[] = {{"Notifying serial server disconnect", 's'},
                                                  {"Notifying server of socket closing", 'm'},
                                                  {"Disconnected from serial server", 'S'},
                                                  {"Disconnected socket", 'M'}};
    for (size_t at = 0; at < text.size(); ++at)
        for (const auto &[line, letter] : lines)
            if (text.compare(at, line.size(), line) == 0)
                order += letter;
    EXPECT_EQ(order, "ssmsssSSMSSS");
}

TEST_F(Inst, ASecondDisconnectDoesNothing) {
    open(k_all);
    INST_disconnect(&lnk);
    const std::string text = err.text();
    INST_disconnect(&lnk);
    EXPECT_EQ(err.text(), text);
}

TEST_F(Inst, AZeroedRecordIsDisconnectedWithoutATrace) {
    const std::set<int> before = open_descriptors();
    INST_disconnect(&lnk);
    EXPECT_EQ(open_descriptors(), before) << "descriptor 0 is not the link's";
    EXPECT_EQ(err.text(), "");
}

TEST_F(Inst, ADisconnectAfterTheMessageServerHasGoneIsQuickAndQuiet) {
    open(k_all);
    server.close_client();
    EXPECT_TRUE(wait_until([&] { return !flag(&lnk.msg_lnk_up); }));
    INST_disconnect(&lnk);
    EXPECT_THAT(err.text(), Not(HasSubstr("Notifying server of socket closing")));
    EXPECT_THAT(err.text(), HasSubstr("Disconnected socket"));
    expect_no_failed_select();
}

TEST_F(Inst, DescriptorsEndWithTheLink) {
    open({});
    Pipe in;
    const int fh = in.give(0);
    ASSERT_TRUE(ZEBFILE_associate_fh(fh, ZEBFILE_READ));
    INST_disconnect(&lnk);
    EXPECT_FALSE(is_open(fh));
    EXPECT_EQ(g_zebfile_signal_thread, nullptr);
}

TEST_F(Inst, AFailedConnectLeavesTheDescriptorsOfAnotherServiceAlone) {
    ASSERT_TRUE(ZEBFILE_init());
    Pipe in;
    const int fh = in.give(0);
    ASSERT_TRUE(ZEBFILE_associate_fh(fh, ZEBFILE_READ));
    g_replaced->connect_fails = 1;
    EXPECT_FALSE(connect({false, false, 1}));
    INST_disconnect(&lnk);
    SERIALCOM_multi_destroy(&further[0]);
    EXPECT_TRUE(is_open(fh));
    ZEBFILE_destroy();
    EXPECT_FALSE(is_open(fh));
}

#include "serialcom_testing.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace zeb::test;
using testing::HasSubstr;
using testing::Not;

namespace {

// ---- Port strings ----

struct PortString {
    BOOL result;
    SERIALD_connect_params name;
    SERIALD_port_params port;
};

PortString break_down(const std::string &text) {
    PortString s;
    memset(&s, 0xA5, sizeof s);
    s.result = SERIALCOM_breakdown_port_string(text.c_str(), &s.name, &s.port);
    return s;
}

TEST(SerialcomPort, APortStringGivesNameAndSettings) {
    const PortString s = break_down("ttyS0:9600n81");
    EXPECT_TRUE(s.result);
    EXPECT_STREQ(s.name.port_name, "ttyS0");
    EXPECT_EQ(s.port.baud, 9600U);
    EXPECT_EQ(s.port.parity, 0);
    EXPECT_EQ(s.port.bits, 8);
    EXPECT_EQ(s.port.stop_bits, 1);
    EXPECT_EQ(s.port.flow_cont, 0);
}

TEST(SerialcomPort, AnEqualsSignKeepsTheNameAsItStandsAndGivesZeroParameters) {
    const PortString s = break_down("=/dev/ttyUSB0");
    EXPECT_TRUE(s.result);
    EXPECT_STREQ(s.name.port_name, "=/dev/ttyUSB0");
    const SERIALD_port_params zero = {};
    EXPECT_EQ(memcmp(&s.port, &zero, sizeof zero), 0);
    EXPECT_STREQ(break_down("=a b:9600n81").name.port_name, "=a b:9600n81");
}

TEST(SerialcomPort, ALoneEqualsSignIsANormalPortStringAndFails) {
    EXPECT_FALSE(break_down("=").result);
}

TEST(SerialcomPort, WithoutAParityCharacterItFails) {
    EXPECT_FALSE(break_down("ttyS0:9600").result);
}

TEST(SerialcomPort, ZeroBaudFails) {
    EXPECT_FALSE(break_down("ttyS0:0n81").result);
}

TEST(SerialcomPort, AnUnknownParityLetterMeansNone) {
    const PortString s = break_down("ttyS0:9600x81");
    EXPECT_TRUE(s.result);
    EXPECT_EQ(s.port.parity, 0);
    EXPECT_EQ(s.port.bits, 8);
}

TEST(SerialcomPort, FewerThanFourCharactersFromTheSeparatorOnFail) {
    EXPECT_FALSE(break_down("ttyS0:96").result);
    EXPECT_FALSE(break_down("ttyS0:").result);
}

TEST(SerialcomPort, ParityLettersAreTakenInEitherCase) {
    for (const char *odd : {"p:300o71", "p:300O71"})
        EXPECT_EQ(break_down(odd).port.parity, 1) << odd;
    for (const char *even : {"p:300e71", "p:300E71"})
        EXPECT_EQ(break_down(even).port.parity, 2) << even;
    EXPECT_EQ(break_down("p:300e72").port.bits, 7);
    EXPECT_EQ(break_down("p:300e72").port.stop_bits, 2);
}

TEST(SerialcomPort, TheNameEndsAtAColonBlankTabOrLineEnd) {
    for (const char *end : {":", " ", "\t", "\n", "\r"}) {
        const PortString s = break_down(std::string("ttyS0") + end + "9600n81");
        EXPECT_TRUE(s.result);
        EXPECT_STREQ(s.name.port_name, "ttyS0");
    }
    EXPECT_FALSE(break_down("ttyS0").result);
    EXPECT_FALSE(break_down("").result);
}

TEST(SerialcomPort, WithoutANumberItFails) {
    EXPECT_FALSE(break_down("ttyS0:fast").result);
    EXPECT_FALSE(break_down("ttyS0:-9600n81").result);
    EXPECT_FALSE(break_down("ttyS0:99999999999n81").result);
}

TEST(SerialcomPort, BlanksMayStandBeforeTheNumber) {
    EXPECT_EQ(break_down("ttyS0: 9600n81").port.baud, 9600U);
}

TEST(SerialcomPort, WithoutDigitsForBitsAndStopBitsItFails) {
    for (const char *text : {"p:9600n", "p:9600nx1", "p:9600n8", "p:9600n8x"}) {
        const PortString s = break_down(text);
        EXPECT_FALSE(s.result) << text;
        EXPECT_EQ(s.port.baud, 0U) << text;
    }
}

TEST(SerialcomPort, WhatFollowsTheStopBitsIsIgnored) {
    EXPECT_TRUE(break_down("ttyS0:9600n81 and more").result);
}

TEST(SerialcomPort, ALongNameIsCutTo255Characters) {
    const std::string name(300, 'n');
    EXPECT_EQ(break_down(name + ":9600n81").name.port_name, name.substr(0, 255));
    EXPECT_EQ(break_down("=" + name).name.port_name, "=" + name.substr(0, 254));
}

TEST(SerialcomPort, NullPointersAreReported) {
    StderrCapture err;
    SERIALD_connect_params name;
    SERIALD_port_params port;
    EXPECT_FALSE(SERIALCOM_breakdown_port_string(nullptr, &name, &port));
    EXPECT_FALSE(SERIALCOM_breakdown_port_string("p:9600n81", nullptr, &port));
    EXPECT_FALSE(SERIALCOM_breakdown_port_string("p:9600n81", &name, nullptr));
    EXPECT_THAT(err.finish(), HasSubstr("assertion failed (serialcom.cpp:"));
}

// ---- Burst time-outs ----

TEST_F(SerialLink, At9600Baud8BitsNoParity1StopBitTheBurstTimeoutIsSoLong) {
    EXPECT_DOUBLE_EQ(SERIALCOM_burst_timeout(&lnk), 0.0209375);
}

TEST_F(SerialLink, ParityCountsAsOneBitOfABurstTimeout) {
    lnk.pps = {300, 7, 2, 2, 0};
    EXPECT_DOUBLE_EQ(SERIALCOM_burst_timeout(&lnk), 10.0 / 300 + 0.02);
}

// ---- Connecting ----

TEST(Serialcom, ConnectSetsEveryField) {
    StderrCapture err;
    ScriptedSerialServer server;
    SERIALCOM_link lnk;
    memset(&lnk, 0xA5, sizeof lnk);
    SERIALD_connect_params cp = port_of("=cpc");
    const FTIME before = UTIL_ftime();
    ASSERT_TRUE(SERIALCOM_multi_connect(&cp, &lnk));
    EXPECT_GE(lnk.fh, 0);
    EXPECT_TRUE(fcntl(lnk.fh, F_GETFD) & FD_CLOEXEC);
    EXPECT_EQ(lnk.clear_fh, -1);
    EXPECT_EQ(memcmp(&lnk.cps, &cp, sizeof cp), 0);
    EXPECT_EQ(lnk.pps.baud, 9600U);
    EXPECT_EQ(lnk.pps.bits, 8);
    EXPECT_EQ(lnk.pps.parity, 0);
    EXPECT_EQ(lnk.pps.stop_bits, 1);
    EXPECT_EQ(lnk.pps.flow_cont, 0);
    EXPECT_EQ(lnk.tx_buff_size, 0U);
    EXPECT_EQ(lnk.stat, SERIALCOM_S_SEND_HANDSHAKE);
    EXPECT_GE(lnk.last_rx_time, before);
    EXPECT_EQ(lnk.next_hb_time, lnk.last_rx_time);
    EXPECT_EQ(lnk.rq_stat, SERIALCOM_RS_NONE);
    EXPECT_EQ(lnk.rq_header.type, SERIALD_REQUEST_HEARTBEAT);
    EXPECT_EQ(lnk.resp_header.type, SERIALD_RESP_HEARTBEAT);
    EXPECT_EQ(lnk.r_buffer, nullptr);
    EXPECT_EQ(lnk.r_buffer_size + lnk.r_buffer_max, 0U);
    EXPECT_EQ(lnk.thd, nullptr);
    EXPECT_THAT(err.text(),
                HasSubstr("Connected to serial server socket (" + std::to_string(lnk.fh) +
                          "), begining handshake sequeuence (serialcom.cpp:"));
    SERIALCOM_multi_destroy(&lnk);
}

TEST(Serialcom, APortNameWithoutTerminatorIsCutAndFilledUp) {
    StderrCapture err;
    ScriptedSerialServer server;
    SERIALCOM_link lnk = {};
    SERIALD_connect_params cp;
    memset(&cp, 'n', sizeof cp);
    ASSERT_TRUE(SERIALCOM_multi_connect(&cp, &lnk));
    EXPECT_EQ(lnk.cps.port_name, std::string(255, 'n'));
    SERIALCOM_multi_destroy(&lnk);
    strcpy(cp.port_name, "ttyS1");
    ASSERT_TRUE(SERIALCOM_multi_connect(&cp, &lnk));
    EXPECT_EQ(std::string(lnk.cps.port_name, 256), "ttyS1" + std::string(251, '\0'));
    SERIALCOM_multi_destroy(&lnk);
}

TEST(Serialcom, WithoutAServerTheConnectFailsAndKeepsTheSocket) {
    StderrCapture err;
    TempDir directory;
    ScopedEnv run("ZEB2RUN", directory.path().c_str());
    SERIALCOM_link lnk = {};
    SERIALD_connect_params cp = port_of("ttyS0");
    EXPECT_FALSE(SERIALCOM_connect(&cp, &lnk));
    EXPECT_EQ(lnk.stat, SERIALCOM_S_UNINITIALIZED);
    EXPECT_NE(lnk.fh, -1);
    EXPECT_EQ(SERIALCOM_test_connected_ext(&lnk), -1);
    EXPECT_FALSE(SERIALCOM_wait_connected(&lnk));
    EXPECT_THAT(err.text(), HasSubstr("Unable to connect to serial server socket - it should be "
                                      "running by now...: No such file or directory"));
    SERIALCOM_disconnect(&lnk); // leaves it alone
    EXPECT_NE(lnk.fh, -1);
    SERIALCOM_multi_destroy(&lnk);
    EXPECT_EQ(lnk.fh, -1);
    EXPECT_THAT(err.text(), Not(HasSubstr("Disconnected from serial server")));
}

TEST(Serialcom, ATooLongSocketPathIsReportedAndFails) {
    StderrCapture err;
    ScopedEnv run("ZEB2RUN", std::string(200, 'd').c_str());
    SERIALCOM_link lnk = {};
    SERIALD_connect_params cp = port_of("ttyS0");
    EXPECT_FALSE(SERIALCOM_multi_connect(&cp, &lnk));
    EXPECT_THAT(err.text(), HasSubstr("is longer than"));
    EXPECT_THAT(err.text(), HasSubstr("Unable to connect to serial server socket"));
    SERIALCOM_multi_destroy(&lnk);
}

TEST(Serialcom, ADescriptorThatNoSetCanHoldFailsTheConnect) {
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_max < FD_SETSIZE + 64)
        GTEST_SKIP() << "this host allows too few descriptors";
    const rlimit before = limit;
    limit.rlim_cur = FD_SETSIZE + 64;
    setrlimit(RLIMIT_NOFILE, &limit);
    ScriptedSerialServer server;
    StderrCapture err;
    std::vector<int> taken;
    while (taken.empty() || taken.back() < FD_SETSIZE - 1)
        taken.push_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
    SERIALCOM_link lnk = {};
    SERIALD_connect_params cp = port_of("ttyS0");
    EXPECT_FALSE(SERIALCOM_multi_connect(&cp, &lnk));
    EXPECT_EQ(lnk.stat, SERIALCOM_S_UNINITIALIZED);
    EXPECT_THAT(err.text(), HasSubstr("does not fit a descriptor set"));
    SERIALCOM_multi_destroy(&lnk);
    for (int fh : taken)
        close(fh);
    setrlimit(RLIMIT_NOFILE, &before);
}

TEST(Serialcom, ALinkThatWasNeverConnectedIsLeftAlone) {
    StderrCapture err;
    SERIALCOM_link lnk = {};
    SERIALCOM_disconnect(&lnk);
    SERIALCOM_multi_disconnect(&lnk);
    SERIALCOM_multi_destroy(&lnk); // must not close descriptor 0
    EXPECT_NE(fcntl(0, F_GETFD), -1);
    EXPECT_FALSE(SERIALCOM_test_connected(&lnk));
    EXPECT_EQ(SERIALCOM_test_connected_ext(&lnk), -1);
    EXPECT_EQ(err.finish(), "");
}

TEST_F(SerialLink, TestConnectedTellsTheStatesApart) {
    const int expected[] = {-1, -1, 0, 0, 1, -1, -1, -1};
    for (int stat = SERIALCOM_S_UNINITIALIZED; stat <= SERIALCOM_S_CLOSE_DONE; ++stat) {
        lnk.stat = static_cast<SERIALCOM_LINK_STATUS>(stat);
        EXPECT_EQ(SERIALCOM_test_connected_ext(&lnk), expected[stat]) << stat;
        EXPECT_EQ(SERIALCOM_test_connected(&lnk), stat == SERIALCOM_S_OPEN) << stat;
    }
    lnk.stat = SERIALCOM_S_OPEN;
    EXPECT_TRUE(SERIALCOM_wait_connected(&lnk));
    lnk.stat = SERIALCOM_S_UNLINKED;
    EXPECT_FALSE(SERIALCOM_wait_connected(&lnk));
}

// ---- Handshake ----

TEST_F(SerialLink, TheHandshakeIsTheseBytes) {
    introduce();
    EXPECT_EQ(client->received_bytes(), load_hex("serial_handshake.frames.hex"));
    EXPECT_EQ(lnk.stat, SERIALCOM_S_AWAITING_HANDSHAKE);
}

TEST_F(SerialLink, ASuccessOpensTheLink) {
    introduce();
    client->success();
    ASSERT_TRUE(loop->run_until([&] { return SERIALCOM_test_connected(&lnk); }));
    EXPECT_THAT(err.text(), HasSubstr("Serial server handshake complete"));
    EXPECT_EQ(lnk.rq_stat, SERIALCOM_RS_NONE);
}

TEST_F(SerialLink, AFailureLeavesTheLinkUnlinkedAndOutOfTheSets) {
    introduce();
    client->failure();
    expect_lost("Error in serial server handsake, disconnecting");
    EXPECT_FALSE(SERIALCOM_wait_connected(&lnk));
    EXPECT_TRUE(client->client_gone());
}

TEST_F(SerialLink, AHeartbeatIsNoAnswerToTheHandshake) {
    introduce();
    client->heartbeat();
    expect_lost("Error in serial server handsake, disconnecting");
}

TEST_F(SerialLink, AMessageBeforeTheHandshakeWasSentIsIgnored) {
    client->success();
    fd_set ready, none;
    FD_ZERO(&ready);
    FD_ZERO(&none);
    FD_SET(lnk.fh, &ready);
    EXPECT_TRUE(
        SERIALCOM_dispatch_post_select(&lnk, &loop->rx, &loop->tx, &ready, &none, &loop->fd_max));
    EXPECT_THAT(err.text(), HasSubstr("Serial server sent a message before the handshake "
                                      "sequeuence started"));
    EXPECT_EQ(lnk.stat, SERIALCOM_S_SEND_HANDSHAKE);
}

// ---- The select halves ----

TEST_F(SerialLink, DispatchInitEntersBothSetsAndRaisesTheMaximum) {
    EXPECT_TRUE(FD_ISSET(lnk.fh, &loop->rx));
    EXPECT_TRUE(FD_ISSET(lnk.fh, &loop->tx));
    EXPECT_EQ(loop->fd_max, lnk.fh);
    loop->fd_max = lnk.fh + 5;
    EXPECT_TRUE(SERIALCOM_dispatch_init(&lnk, &loop->rx, &loop->tx, &loop->fd_max, nullptr));
    EXPECT_EQ(loop->fd_max, lnk.fh + 5);
    EXPECT_EQ(lnk.thd, nullptr);
}

TEST_F(SerialLink, DispatchInitKeepsAThreadThatIsAlreadyKnown) {
    pthread_t one = pthread_self();
    pthread_t two = pthread_self();
    SERIALCOM_dispatch_init(&lnk, &loop->rx, &loop->tx, &loop->fd_max, &one);
    SERIALCOM_dispatch_init(&lnk, &loop->rx, &loop->tx, &loop->fd_max, &two);
    EXPECT_EQ(lnk.thd, &one);
    lnk.thd = nullptr;
}

TEST_F(SerialLink, PreSelectRemovesAClosedSocketAndDoesNothingElse) {
    lnk.clear_fh = lnk.fh + 1;
    FD_SET(lnk.clear_fh, &loop->rx);
    FD_SET(lnk.clear_fh, &loop->tx);
    FD_CLR(lnk.fh, &loop->rx);
    EXPECT_TRUE(pre_select());
    EXPECT_EQ(lnk.clear_fh, -1);
    EXPECT_FALSE(FD_ISSET(lnk.fh + 1, &loop->rx));
    EXPECT_FALSE(FD_ISSET(lnk.fh + 1, &loop->tx));
    EXPECT_FALSE(FD_ISSET(lnk.fh, &loop->rx));
    loop->fd_max = -1;
    EXPECT_TRUE(pre_select());
    EXPECT_TRUE(FD_ISSET(lnk.fh, &loop->rx));
    EXPECT_EQ(loop->fd_max, lnk.fh);
}

TEST_F(SerialLink, WritingIsOfInterestInTheStatesThatHaveARecordToSend) {
    const bool expected[] = {true, true, true, false, false, true, false, false};
    silence_heartbeats();
    for (int stat = SERIALCOM_S_UNINITIALIZED; stat <= SERIALCOM_S_CLOSE_DONE; ++stat) {
        lnk.stat = static_cast<SERIALCOM_LINK_STATUS>(stat);
        EXPECT_EQ(wants_to_write(), expected[stat]) << stat;
    }
    lnk.stat = SERIALCOM_S_OPEN;
    lnk.rq_stat = SERIALCOM_RS_START;
    EXPECT_TRUE(wants_to_write());
    lnk.rq_stat = SERIALCOM_RS_SENT;
    EXPECT_FALSE(wants_to_write());
    lnk.next_hb_time = UTIL_ftime();
    EXPECT_TRUE(wants_to_write());
}

TEST_F(SerialLink, WritingIsOfInterestWhileBytesWait) {
    open();
    lnk.tx_buff_size = 1;
    EXPECT_TRUE(wants_to_write());
    lnk.tx_buff_size = 0;
    EXPECT_FALSE(wants_to_write());
    issue(SERIALD_REQUEST_WRITE, std::string(1000, 'x'));
    ASSERT_TRUE(loop->cycle());
    ASSERT_EQ(lnk.rq_stat, SERIALCOM_RS_SENT);
    EXPECT_TRUE(wants_to_write()); // the frame has more than one piece
    EXPECT_EQ(next().data.size(), 1000U);
    EXPECT_FALSE(wants_to_write());
}

TEST_F(SerialLink, AtMost256BytesLeaveInACycle) {
    open();
    const size_t before = client->received_bytes().size();
    issue(SERIALD_REQUEST_WRITE, std::string(1000, 'x'));
    for (size_t sent : {256U, 512U, 768U, 1024U, 1030U}) {
        ASSERT_TRUE(loop->cycle());
        EXPECT_EQ(client->received_bytes().size() - before, sent);
    }
}

// ---- Heartbeats ----

TEST_F(SerialLink, AHeartbeatIsTwentyZeroBytes) {
    open();
    const size_t before = client->received_bytes().size();
    lnk.next_hb_time = UTIL_ftime();
    EXPECT_EQ(next().type, unsigned{SERIALD_REQUEST_HEARTBEAT});
    const Bytes &all = client->received_bytes();
    EXPECT_EQ(Bytes(all.begin() + static_cast<long>(before), all.end()), heartbeat_frame());
}

TEST_F(SerialLink, TheNextHeartbeatIsDueASecondAfterARequestOrAHeartbeat) {
    open();
    FTIME before = UTIL_ftime();
    send(SERIALD_REQUEST_WRITE, "x");
    EXPECT_GE(lnk.next_hb_time, before + 1.0);
    EXPECT_LE(lnk.next_hb_time, UTIL_ftime() + 1.0);
    lnk.next_hb_time = before = UTIL_ftime();
    EXPECT_EQ(next().type, unsigned{SERIALD_REQUEST_HEARTBEAT});
    EXPECT_GE(lnk.next_hb_time, before + 1.0);
    EXPECT_LE(lnk.next_hb_time, UTIL_ftime() + 1.0);
}

TEST_F(SerialLink, HeartbeatsGoOutWhileARequestWaitsForItsAnswer) {
    open();
    send(SERIALD_REQUEST_READUNTIL, "\r");
    for (int i = 0; i < 3; ++i) {
        lnk.next_hb_time = UTIL_ftime();
        EXPECT_EQ(next().type, unsigned{SERIALD_REQUEST_HEARTBEAT});
        EXPECT_EQ(lnk.rq_stat, SERIALCOM_RS_SENT);
    }
}

TEST_F(SerialLink, AHeartbeatOfTheServerFinishesNothing) {
    open();
    send(SERIALD_REQUEST_READNEW);
    lnk.last_rx_time -= 20;
    const FTIME before = UTIL_ftime();
    client->heartbeat();
    settle();
    EXPECT_EQ(lnk.rq_stat, SERIALCOM_RS_SENT);
    EXPECT_GE(lnk.last_rx_time, before);
}

// ---- Losing the link ----

TEST_F(SerialLink, ThirtySecondsOfSilenceDropTheLink) {
    open();
    lnk.last_rx_time -= 30;
    expect_lost("Serial server socket timeout - closing");
    EXPECT_TRUE(client->client_gone());
}

TEST_F(SerialLink, ThirtySecondsOfSilenceDropAStalledHandshake) {
    introduce();
    lnk.last_rx_time -= 30;
    expect_lost("Serial server socket timeout - closing");
}

TEST_F(SerialLink, SomewhatLessThan30SecondsOfSilenceAreBorne) {
    open();
    lnk.last_rx_time -= 25;
    EXPECT_TRUE(SERIALCOM_dispatch_loop_continue(&lnk, &loop->rx, &loop->tx, &loop->fd_max));
    EXPECT_EQ(lnk.stat, SERIALCOM_S_OPEN);
}

TEST_F(SerialLink, SilenceIsNoticedWhileTheSocketIsBusyWithWriting) {
    open();
    lnk.last_rx_time -= 31;
    fd_set none, ready;
    FD_ZERO(&none);
    FD_ZERO(&ready);
    FD_SET(lnk.fh, &ready);
    EXPECT_FALSE(
        SERIALCOM_dispatch_post_select(&lnk, &loop->rx, &loop->tx, &none, &ready, &loop->fd_max));
    EXPECT_THAT(err.text(), HasSubstr("Serial server socket timeout - closing"));
}

// The record looks after a step of the clock as if its stamps had been taken before it.
TEST_F(SerialLink, SettingTheClockForwardDoesNotCloseTheLink) {
    open();
    lnk.clock_offset -= 3600;
    lnk.last_rx_time -= 3600;
    EXPECT_TRUE(SERIALCOM_dispatch_loop_continue(&lnk, &loop->rx, &loop->tx, &loop->fd_max));
    lnk.last_rx_time -= 31;
    EXPECT_FALSE(SERIALCOM_dispatch_loop_continue(&lnk, &loop->rx, &loop->tx, &loop->fd_max));
}

TEST_F(SerialLink, SettingTheClockBackDoesNotHideADeadServer) {
    open();
    lnk.clock_offset += 3600;
    lnk.last_rx_time += 3600 - 31;
    EXPECT_FALSE(SERIALCOM_dispatch_loop_continue(&lnk, &loop->rx, &loop->tx, &loop->fd_max));
    EXPECT_THAT(err.text(), HasSubstr("Serial server socket timeout - closing"));
}

TEST_F(SerialLink, SettingTheClockBackDoesNotDelayHeartbeats) {
    open();
    lnk.clock_offset += 3600;
    lnk.last_rx_time += 3600;
    lnk.next_hb_time = UTIL_ftime() + 3600;
    EXPECT_EQ(next().type, unsigned{SERIALD_REQUEST_HEARTBEAT});
    EXPECT_LE(lnk.next_hb_time, UTIL_ftime() + 1.0);
}

TEST_F(SerialLink, EndOfStreamDropsTheLink) {
    open();
    client->close_client();
    expect_lost("Zero length read on serial server socket, assuming termination, closing "
                "connection");
}

TEST_F(SerialLink, AReadErrorDropsTheLink) {
    open();
    send(SERIALD_REQUEST_WRITE, "x");
    issue(SERIALD_REQUEST_WRITE, "y");
    ASSERT_TRUE(loop->cycle());
    client->close_client(); // with bytes unread, which resets the connection
    expect_lost("Error reading from socket, closing connection: Connection reset by peer");
}

TEST_F(SerialLink, AWriteErrorDropsTheLinkWithoutASignal) {
    open();
    client->stop_reading();
    issue(SERIALD_REQUEST_WRITE, "x");
    expect_lost("Error writing to socket, closing connection: Broken pipe");
    EXPECT_EQ(lnk.rq_stat, SERIALCOM_RS_SENT); // the loss does not touch it
}

TEST_F(SerialLink, ALostLinkIsLeftAloneByTheHooks) {
    client->close_client();
    expect_lost("Zero length read");
    fd_set ready;
    FD_ZERO(&ready);
    EXPECT_TRUE(pre_select());
    EXPECT_EQ(lnk.clear_fh, -1);
    EXPECT_TRUE(pre_select());
    EXPECT_TRUE(
        SERIALCOM_dispatch_post_select(&lnk, &loop->rx, &loop->tx, &ready, &ready, &loop->fd_max));
    EXPECT_TRUE(SERIALCOM_dispatch_loop_continue(&lnk, &loop->rx, &loop->tx, &loop->fd_max));
    EXPECT_TRUE(SERIALCOM_dispatch_init(&lnk, &loop->rx, &loop->tx, &loop->fd_max, nullptr));
    EXPECT_EQ(lnk.stat, SERIALCOM_S_UNLINKED);
}

TEST(Serialcom, OneLoopServesSeveralLinks) {
    StderrCapture err;
    ScriptedSerialServer server;
    SERIALCOM_link links[3] = {};
    std::vector<SerialClient *> clients;
    std::vector<SERIALCOM_link *> all;
    for (int i = 0; i < 3; ++i) {
        SERIALD_connect_params cp = port_of("ttyS" + std::to_string(i));
        ASSERT_TRUE(SERIALCOM_multi_connect(&cp, &links[i]));
        clients.push_back(&server.accept());
        all.push_back(&links[i]);
    }
    SerialHookLoop loop(all);
    auto every = [&](SERIALCOM_LINK_STATUS stat) {
        return loop.run_until([&] {
            return links[0].stat == stat && links[1].stat == stat && links[2].stat == stat;
        });
    };
    ASSERT_TRUE(every(SERIALCOM_S_AWAITING_HANDSHAKE));
    for (SerialClient *client : clients)
        client->success();
    ASSERT_TRUE(every(SERIALCOM_S_OPEN));
    clients[1]->close_client();
    EXPECT_TRUE(loop.run_until([&] { return !loop.serves(&links[1]); }));
    EXPECT_EQ(links[1].stat, SERIALCOM_S_UNLINKED);
    SERIALCOM_issue_request(&links[2], SERIALD_REQUEST_RESET, -1, -1, nullptr, 0);
    EXPECT_TRUE(loop.run_until([&] { return links[2].rq_stat == SERIALCOM_RS_SENT; }));
    for (SERIALCOM_link &lnk : links)
        SERIALCOM_multi_destroy(&lnk);
}

} // namespace

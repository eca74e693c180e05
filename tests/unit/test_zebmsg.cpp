#include "scripted_server.h"
#include "support.h"
#include "zebmsg.h"

#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using namespace zeb::test;
using testing::HasSubstr;
using testing::Not;

namespace {

ZEBMSG_connect_params params_of(const char *name, const char *host = nullptr) {
    ZEBMSG_connect_params cp;
    ZEBMSG_init_params(&cp);
    cp.id_str = name;
    cp.host_override = host;
    return cp;
}

// A link that the test's own loop services, connected to a scripted server, handshake received.
class ZebmsgLink : public testing::Test {
  protected:
    void SetUp() override {
        ZEBMSG_connect_params cp = params_of("neph1");
        ASSERT_TRUE(ZEBMSG_multi_connect(&cp, &lnk));
        ASSERT_TRUE(server.accept());
        loop.emplace(&lnk);
    }
    void TearDown() override { ZEBMSG_multi_destroy(&lnk); }

    void open() {
        server.handshake(1);
        ASSERT_TRUE(loop->run_until([&] { return ZEBMSG_test_connected(&lnk); }));
        ASSERT_EQ(next().type, MSG_SERVER_CLIENTHANDSHAKE);
        ASSERT_EQ(next().type, MSG_NOTIFY_CLIENT_CONNECT);
    }
    // The client's next message; cycles until it is there.
    ServerMessage next() {
        std::optional<ServerMessage> message;
        EXPECT_TRUE(loop->run_until([&] { return (message = server.next()).has_value(); }));
        return message.value_or(ServerMessage{});
    }
    // Every byte the server sent so far has been received and worked on once a heartbeat of its own
    // has come back.
    void settle(unsigned index) {
        server.heartbeat(index);
        const ServerMessage echo = next();
        ASSERT_EQ(echo.type, MSG_SERVER_HEARTBEAT);
        ASSERT_EQ(echo.as<NET_SERVER_Heartbeat>().hb_idx, index);
    }
    bool lnk_is_closing() const {
        return err.text().find("Notifying server of socket closing") != std::string::npos;
    }
    void expect_lost(const char *text) {
        EXPECT_TRUE(loop->run_until_lost());
        EXPECT_EQ(lnk.fh, -1);
        EXPECT_THAT(err.text(), HasSubstr(text));
        ZEBMSG_dispatch_pre_select(&lnk, &loop->rx, &loop->tx, &loop->fd_max);
        EXPECT_EQ(lnk.stat, ZEBMSG_S_UNLINKED);
    }

    StderrCapture err;
    ScopedEnv no_server{"ZEB2SERVER", nullptr};
    ScriptedServer server;
    ZEBMSG_link lnk = {};
    std::optional<HookLoop> loop;
};

// ---- Parameters ----

TEST(Zebmsg, InitParamsEmptiesBoth) {
    ZEBMSG_connect_params cp = {"a", "b"};
    ZEBMSG_init_params(&cp);
    EXPECT_EQ(cp.id_str, nullptr);
    EXPECT_EQ(cp.host_override, nullptr);
}

class ZebmsgHost : public testing::Test {
  protected:
    void TearDown() override {
        CONF_free(root);
        CONF_free(local);
    }
    CONF_node *root = CONF_alloc();
    CONF_node *local = CONF_alloc();
};

TEST_F(ZebmsgHost, IsNullWithoutTheKey) {
    EXPECT_EQ(ZEBMSG_get_host_str(root, local), nullptr);
    EXPECT_EQ(ZEBMSG_get_host_str(nullptr, nullptr), nullptr);
}

TEST_F(ZebmsgHost, ComesFromTheSubtreeBeforeTheWholeTree) {
    CONF_set(root, "RemoteHost", "one:9000");
    EXPECT_STREQ(ZEBMSG_get_host_str(root, local), "one:9000");
    CONF_set(local, "RemoteHost", "two");
    EXPECT_STREQ(ZEBMSG_get_host_str(root, local), "two");
}

TEST_F(ZebmsgHost, IsCutAt255CharactersAndReported) {
    CONF_set(root, "RemoteHost", std::string(300, 'h').c_str());
    StderrCapture err;
    EXPECT_EQ(ZEBMSG_get_host_str(root, local), std::string(255, 'h'));
    EXPECT_THAT(err.finish(), HasSubstr("RemoteHost is cut to 255 characters"));
}

// ---- Connecting ----

TEST_F(ZebmsgLink, ConnectsToTheLocalSocketAndAwaitsTheHandshake) {
    EXPECT_EQ(lnk.stat, ZEBMSG_S_AWAITING_HANDSHAKE);
    EXPECT_EQ(lnk.last_hb, 0xFFFFFFFFU);
    EXPECT_EQ(lnk.msg_filter_next_uid, 1U);
    EXPECT_EQ(lnk.clear_fh, -1);
    EXPECT_STREQ(lnk.name, "neph1");
    EXPECT_EQ(ZEBMSG_test_connected_ext(&lnk), 0);
    EXPECT_FALSE(ZEBMSG_test_connected(&lnk));
    EXPECT_THAT(err.text(), HasSubstr("Message socket (" + std::to_string(lnk.fh) +
                                      ") connected, begining handshake sequeuence"));
    EXPECT_TRUE(fcntl(lnk.fh, F_GETFD) & FD_CLOEXEC);
}

TEST_F(ZebmsgLink, IntroducesItselfByName) {
    const ServerMessage first = next();
    EXPECT_EQ(first.type, MSG_SERVER_CLIENTHANDSHAKE);
    EXPECT_EQ(first.flags, 0U);
    EXPECT_EQ(first.dest, "");
    EXPECT_EQ(first.src, "");
    EXPECT_STREQ(first.as<NET_SERVER_ClientHandshake>().name, "neph1");
}

TEST(Zebmsg, ALongNameIsCutTo31Characters) {
    StderrCapture err;
    ScopedEnv no_server("ZEB2SERVER", nullptr);
    ScriptedServer server;
    ZEBMSG_link lnk = {};
    const std::string name(40, 'n');
    ZEBMSG_connect_params cp = params_of(name.c_str());
    ASSERT_TRUE(ZEBMSG_multi_connect(&cp, &lnk));
    ASSERT_TRUE(server.accept());
    HookLoop loop(&lnk);
    std::optional<ServerMessage> first;
    ASSERT_TRUE(loop.run_until([&] { return (first = server.next()).has_value(); }));
    EXPECT_EQ(first->as<NET_SERVER_ClientHandshake>().name, name.substr(0, 31));
    EXPECT_EQ(lnk.name, name.substr(0, 31));
    ZEBMSG_multi_destroy(&lnk);
}

TEST(Zebmsg, WithoutAServerTheConnectFailsAndTheLinkIsUnlinked) {
    StderrCapture err;
    TempDir directory;
    ScopedEnv run("ZEB2RUN", directory.path().c_str());
    ScopedEnv no_server("ZEB2SERVER", nullptr);
    ZEBMSG_link lnk;
    memset(&lnk, 0xA5, sizeof lnk); // the connect sets every field
    ZEBMSG_connect_params cp = params_of("neph1");
    EXPECT_FALSE(ZEBMSG_connect(&cp, &lnk));
    EXPECT_EQ(lnk.stat, ZEBMSG_S_UNLINKED);
    EXPECT_EQ(ZEBMSG_test_connected_ext(&lnk), -1);
    EXPECT_FALSE(ZEBMSG_wait_connected(&lnk));
    EXPECT_NE(lnk.fh, -1);
    EXPECT_THAT(err.text(), HasSubstr("Unable to connect to unix socket - is the server running?: "
                                      "No such file or directory"));
    ZEBMSG_disconnect(&lnk);
    EXPECT_EQ(lnk.fh, -1);
    EXPECT_EQ(lnk.stat, ZEBMSG_S_UNINITIALIZED);
}

TEST(Zebmsg, ATooLongSocketPathIsReportedAndFails) {
    StderrCapture err;
    ScopedEnv run("ZEB2RUN", std::string(200, 'd').c_str());
    ScopedEnv no_server("ZEB2SERVER", nullptr);
    ZEBMSG_link lnk = {};
    ZEBMSG_connect_params cp = params_of("neph1");
    EXPECT_FALSE(ZEBMSG_multi_connect(&cp, &lnk));
    EXPECT_THAT(err.text(), HasSubstr("is longer than"));
    EXPECT_THAT(err.text(), HasSubstr("Unable to connect to unix socket"));
    ZEBMSG_disconnect(&lnk);
}

TEST(Zebmsg, ADescriptorThatNoSetCanHoldFailsTheConnect) {
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_max < FD_SETSIZE + 64)
        GTEST_SKIP() << "this host allows too few descriptors";
    const rlimit before = limit;
    limit.rlim_cur = FD_SETSIZE + 64;
    setrlimit(RLIMIT_NOFILE, &limit);
    ScopedEnv no_server("ZEB2SERVER", nullptr);
    ScriptedServer server;
    StderrCapture err;
    std::vector<int> taken;
    while (taken.empty() || taken.back() < FD_SETSIZE - 1)
        taken.push_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
    ZEBMSG_link lnk = {};
    ZEBMSG_connect_params cp = params_of("neph1");
    EXPECT_FALSE(ZEBMSG_multi_connect(&cp, &lnk));
    EXPECT_THAT(err.text(), HasSubstr("does not fit a descriptor set"));
    ZEBMSG_disconnect(&lnk);
    for (int fh : taken)
        close(fh);
    setrlimit(RLIMIT_NOFILE, &before);
}

// ---- The server's host ----

// Connects and tells whether the server was reached.
bool reaches(ScriptedServer &server, const char *host_override) {
    ZEBMSG_link lnk = {};
    ZEBMSG_connect_params cp = params_of("neph1", host_override);
    const bool connected = ZEBMSG_multi_connect(&cp, &lnk) && server.accept(0);
    ZEBMSG_multi_destroy(&lnk);
    server.close_client();
    return connected;
}

// Loopback addresses of its own, so that nobody else listens at the default port.
std::string own_address() {
    return "127." + std::to_string(1 + getpid() / 62500 % 250) + "." +
           std::to_string(1 + getpid() / 250 % 250) + "." + std::to_string(1 + getpid() % 250);
}

TEST(Zebmsg, Zeb2ServerWithAPortConnectsThere) {
    StderrCapture err;
    ScriptedServer server("127.0.0.1");
    const std::string host = "127.0.0.1:" + std::to_string(server.port());
    ScopedEnv named("ZEB2SERVER", host.c_str());
    EXPECT_TRUE(reaches(server, nullptr));
    EXPECT_TRUE(reaches(server, "127.0.0.1:1")); // wins over the parameter
}

TEST(Zebmsg, Zeb2ServerWithPort9000ConnectsToPort9000) {
    StderrCapture err;
    ScriptedServer server(own_address(), 9000);
    ScopedEnv named("ZEB2SERVER", (own_address() + ":9000").c_str());
    EXPECT_TRUE(reaches(server, nullptr));
}

TEST(Zebmsg, ABareHostUsesPort8567) {
    StderrCapture err;
    ScriptedServer server(own_address(), 8567);
    ScopedEnv named("ZEB2SERVER", own_address().c_str());
    EXPECT_TRUE(reaches(server, nullptr));
}

TEST(Zebmsg, AnEmptyZeb2ServerFallsBackToTheParameter) {
    StderrCapture err;
    ScriptedServer server("127.0.0.1");
    ScopedEnv named("ZEB2SERVER", "");
    EXPECT_TRUE(reaches(server, ("127.0.0.1:" + std::to_string(server.port())).c_str()));
}

TEST(Zebmsg, AnEmptyZeb2ServerAndNoParameterMeanTheLocalSocket) {
    StderrCapture err;
    ScriptedServer server;
    ScopedEnv named("ZEB2SERVER", "");
    EXPECT_TRUE(reaches(server, nullptr));
    EXPECT_TRUE(reaches(server, ""));
}

TEST(Zebmsg, ARefusedHostIsReportedWithItsPort) {
    StderrCapture err;
    ScopedEnv no_server("ZEB2SERVER", nullptr);
    ZEBMSG_link lnk = {};
    ZEBMSG_connect_params cp = params_of("neph1", "127.0.0.1:1");
    EXPECT_FALSE(ZEBMSG_multi_connect(&cp, &lnk));
    EXPECT_EQ(lnk.stat, ZEBMSG_S_UNLINKED);
    EXPECT_THAT(err.text(), HasSubstr("Unable to connect to remote host \"127.0.0.1\" port 1 - is "
                                      "the server running?: Connection refused"));
    ZEBMSG_disconnect(&lnk);
}

TEST(Zebmsg, AColonWithoutANumberStaysInTheHostAndFails) {
    StderrCapture err;
    ScopedEnv impatient("RES_OPTIONS", "timeout:1 attempts:1");
    for (const char *host : {"127.0.0.1:abc", "127.0.0.1:0"}) {
        ScopedEnv named("ZEB2SERVER", host);
        ZEBMSG_link lnk = {};
        ZEBMSG_connect_params cp = params_of("neph1");
        EXPECT_FALSE(ZEBMSG_multi_connect(&cp, &lnk));
        EXPECT_EQ(lnk.fh, -1);
        EXPECT_THAT(err.text(),
                    HasSubstr(std::string("Failed to find remote server host \"") + host + "\": "));
        ZEBMSG_disconnect(&lnk);
    }
}

// ---- Handshake and heartbeat ----

TEST_F(ZebmsgLink, TheServersHandshakeOpensTheLink) {
    server.handshake(41);
    ASSERT_TRUE(loop->run_until([&] { return ZEBMSG_test_connected(&lnk); }));
    EXPECT_EQ(ZEBMSG_test_connected_ext(&lnk), 1);
    EXPECT_TRUE(ZEBMSG_wait_connected(&lnk));
    EXPECT_EQ(lnk.last_hb, 41U);
    EXPECT_THAT(err.text(), HasSubstr("Received handshake - socket initialized"));
    EXPECT_EQ(next().type, MSG_SERVER_CLIENTHANDSHAKE);
    const ServerMessage notice = next();
    EXPECT_EQ(notice.type, MSG_NOTIFY_CLIENT_CONNECT);
    EXPECT_EQ(notice.flags, 1U);
    EXPECT_TRUE(notice.record.empty());
    EXPECT_EQ(lnk.rx_queue.count, 0);
    EXPECT_EQ(lnk.rx_lib_queue.count, 0);
}

TEST_F(ZebmsgLink, HeartbeatsFiveSixFourGiveOneOutOfOrderLineAndThreeReplies) {
    open();
    for (unsigned index : {5U, 6U, 4U})
        server.heartbeat(index);
    for (unsigned index : {5U, 6U, 4U}) {
        const ServerMessage reply = next();
        EXPECT_EQ(reply.type, MSG_SERVER_HEARTBEAT);
        EXPECT_EQ(reply.flags, 0U);
        EXPECT_EQ(reply.record.size(), 4U);
        EXPECT_EQ(reply.as<NET_SERVER_Heartbeat>().hb_idx, index);
    }
    EXPECT_EQ(occurrences(err.text(), "Out of order heartbeat"), 1U);
    EXPECT_THAT(err.text(), HasSubstr("Out of order heartbeat: 4 - 6 (-"));
    EXPECT_EQ(lnk.last_hb, 4U);
    EXPECT_EQ(lnk.rx_queue.count, 0);
}

TEST_F(ZebmsgLink, AHeartbeatThatComesTwiceIsAnsweredTwiceAndNotOutOfOrder) {
    open();
    for (unsigned index : {7U, 7U})
        server.heartbeat(index);
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(next().as<NET_SERVER_Heartbeat>().hb_idx, 7U);
    EXPECT_THAT(err.text(), Not(HasSubstr("Out of order")));
}

TEST_F(ZebmsgLink, AHeartbeatBeforeTheHandshakeIsAnsweredAndNeverOutOfOrder) {
    server.heartbeat(3);
    EXPECT_EQ(next().type, MSG_SERVER_CLIENTHANDSHAKE);
    EXPECT_EQ(next().as<NET_SERVER_Heartbeat>().hb_idx, 3U);
    EXPECT_EQ(lnk.stat, ZEBMSG_S_AWAITING_HANDSHAKE);
    EXPECT_THAT(err.text(), Not(HasSubstr("Out of order")));
}

TEST_F(ZebmsgLink, AHeartbeatWithoutDataIsReportedAndNotAnswered) {
    open();
    server.send_bytes(
        wire_frame(wire_message("MSG_SERVER_HEARTBEAT", 0, "", "", "NET_SERVER_Heartbeat")));
    settle(2);
    EXPECT_THAT(err.text(), HasSubstr("assertion failed (zebmsg_hooks.cpp:"));
    EXPECT_EQ(lnk.rx_queue.count, 0);
    EXPECT_EQ(lnk.rx_lib_queue.count, 0);
}

TEST_F(ZebmsgLink, AHandshakeWithoutDataIsReportedAndDoesNotOpen) {
    server.send_bytes(wire_frame(
        wire_message("MSG_SERVER_SERVERHANDSHAKE", 0, "", "", "NET_SERVER_ServerHandshake")));
    EXPECT_EQ(next().type, MSG_SERVER_CLIENTHANDSHAKE);
    settle(2);
    EXPECT_THAT(err.text(), HasSubstr("assertion failed (zebmsg_hooks.cpp:"));
    EXPECT_EQ(lnk.stat, ZEBMSG_S_AWAITING_HANDSHAKE);
}

TEST_F(ZebmsgLink, ASecondHandshakeSetsTheHeartbeatAgain) {
    open();
    server.handshake(77);
    EXPECT_EQ(next().type, MSG_NOTIFY_CLIENT_CONNECT);
    EXPECT_EQ(lnk.last_hb, 77U);
    EXPECT_EQ(lnk.stat, ZEBMSG_S_OPEN);
}

TEST_F(ZebmsgLink, AClientHandshakeFromTheServerIsReportedAndNotDelivered) {
    open();
    const NET_SERVER_ClientHandshake record = {"odd"};
    server.send(MSG_SERVER_CLIENTHANDSHAKE, "", &record, sizeof record,
                "NET_SERVER_ClientHandshake");
    settle(2);
    EXPECT_THAT(err.text(), HasSubstr("Got message type 251 - this shouldn't happen"));
    EXPECT_EQ(lnk.rx_queue.count, 0);
    EXPECT_EQ(lnk.rx_lib_queue.count, 0);
}

// ---- Losing the link ----

TEST_F(ZebmsgLink, MoreThan30SecondsOfSilenceCloseAnOpenLink) {
    open();
    lnk.last_rx_time -= 31;
    expect_lost("Socket timeout - closing");
    EXPECT_TRUE(server.client_gone());
}

TEST_F(ZebmsgLink, MoreThan30SecondsOfSilenceCloseALinkThatAwaitsTheHandshake) {
    lnk.last_rx_time -= 31;
    EXPECT_FALSE(ZEBMSG_dispatch_loop_continue(&lnk, &loop->rx, &loop->tx, &loop->fd_max));
    EXPECT_THAT(err.text(), HasSubstr("Socket timeout - closing"));
    EXPECT_FALSE(FD_ISSET(lnk.clear_fh, &loop->rx));
    EXPECT_FALSE(FD_ISSET(lnk.clear_fh, &loop->tx));
    EXPECT_EQ(lnk.stat, ZEBMSG_S_AWAITING_HANDSHAKE);
    ZEBMSG_dispatch_pre_select(&lnk, &loop->rx, &loop->tx, &loop->fd_max);
    EXPECT_EQ(lnk.stat, ZEBMSG_S_UNLINKED);
    EXPECT_EQ(lnk.clear_fh, -1);
}

TEST_F(ZebmsgLink, SilenceIsNoticedWhileTheSocketIsBusyWithWriting) {
    open();
    lnk.last_rx_time -= 31;
    fd_set none, ready;
    FD_ZERO(&none);
    FD_ZERO(&ready);
    FD_SET(lnk.fh, &ready);
    EXPECT_FALSE(
        ZEBMSG_dispatch_post_select(&lnk, &loop->rx, &loop->tx, &none, &ready, &loop->fd_max));
    EXPECT_EQ(occurrences(err.text(), "Socket timeout - closing"), 1U);
}

TEST_F(ZebmsgLink, SomewhatLessThan30SecondsOfSilenceAreBorne) {
    open();
    lnk.last_rx_time -= 25;
    EXPECT_TRUE(ZEBMSG_dispatch_loop_continue(&lnk, &loop->rx, &loop->tx, &loop->fd_max));
    EXPECT_NE(lnk.fh, -1);
}

// The record looks after a step of the clock as if both stamps had been taken before it.
TEST_F(ZebmsgLink, SettingTheClockForwardDoesNotCloseTheLink) {
    open();
    lnk.clock_offset -= 3600;
    lnk.last_rx_time -= 3600;
    EXPECT_TRUE(ZEBMSG_dispatch_loop_continue(&lnk, &loop->rx, &loop->tx, &loop->fd_max));
    lnk.last_rx_time -= 31;
    EXPECT_FALSE(ZEBMSG_dispatch_loop_continue(&lnk, &loop->rx, &loop->tx, &loop->fd_max));
}

TEST_F(ZebmsgLink, SettingTheClockBackDoesNotHideADeadServer) {
    open();
    lnk.clock_offset += 3600;
    lnk.last_rx_time += 3600 - 31;
    EXPECT_FALSE(ZEBMSG_dispatch_loop_continue(&lnk, &loop->rx, &loop->tx, &loop->fd_max));
    EXPECT_THAT(err.text(), HasSubstr("Socket timeout - closing"));
}

TEST_F(ZebmsgLink, TheServersFarewellClosesTheLink) {
    open();
    server.send(MSG_SERVER_TERMINATE);
    expect_lost("Server terminating - closing socket");
    EXPECT_EQ(lnk.rx_queue.count, 0);
}

TEST_F(ZebmsgLink, EndOfStreamClosesTheLink) {
    server.close_client();
    expect_lost("Zero length read on message socket, assuming termination, closing connection");
}

TEST_F(ZebmsgLink, EndOfStreamInTheMiddleOfAFrameClosesTheLink) {
    open();
    const Bytes frame = wire_frame(wire_message("MSG_LOG_FLUSH", 1, "", "cpc1"));
    server.send_bytes(Bytes(frame.begin(), frame.begin() + 17));
    server.close_client();
    expect_lost("Zero length read on message socket");
    EXPECT_EQ(lnk.rx_queue.count, 0);
}

TEST(Zebmsg, AConnectionResetIsAReadError) {
    StderrCapture err;
    ScriptedServer server("127.0.0.1");
    ScopedEnv named("ZEB2SERVER", ("127.0.0.1:" + std::to_string(server.port())).c_str());
    ZEBMSG_link lnk = {};
    ZEBMSG_connect_params cp = params_of("neph1");
    ASSERT_TRUE(ZEBMSG_multi_connect(&cp, &lnk));
    ASSERT_TRUE(server.accept());
    server.reset_client();
    HookLoop loop(&lnk);
    EXPECT_TRUE(loop.run_until_lost());
    EXPECT_THAT(err.text(), HasSubstr("Error reading from socket, closing connection: "));
    ZEBMSG_multi_destroy(&lnk);
}

TEST_F(ZebmsgLink, AWriteErrorClosesTheLinkWithoutASignal) {
    open();
    server.stop_reading();
    ZEBMSG_queue_message(&lnk, MSG_LOG_FLUSH, 1, nullptr, nullptr, 0, nullptr);
    expect_lost("Error writing to socket, closing connection: Broken pipe");
}

TEST_F(ZebmsgLink, ALostLinkIsLeftAloneByTheHooks) {
    server.close_client();
    expect_lost("Zero length read");
    fd_set ready;
    FD_ZERO(&ready);
    EXPECT_TRUE(
        ZEBMSG_dispatch_post_select(&lnk, &loop->rx, &loop->tx, &ready, &ready, &loop->fd_max));
    EXPECT_TRUE(ZEBMSG_dispatch_loop_continue(&lnk, &loop->rx, &loop->tx, &loop->fd_max));
    EXPECT_FALSE(ZEBMSG_wait_connected(&lnk));
}

// ---- Bytes good and bad ----

TEST_F(ZebmsgLink, HalfAFrameWaitsForTheOtherHalf) {
    open();
    const Bytes frame = wire_frame(wire_message("MSG_LOG_FLUSH", 1, "", "cpc1"));
    server.send_bytes(Bytes(frame.begin(), frame.begin() + 20));
    ASSERT_TRUE(loop->run_until([&] { return lnk.rx_stream.start_buff == 20; }));
    EXPECT_EQ(lnk.rx_queue.count, 0);
    server.send_bytes(Bytes(frame.begin() + 20, frame.end()));
    EXPECT_TRUE(loop->run_until([&] { return lnk.rx_queue.count == 1; }));
}

TEST_F(ZebmsgLink, GarbageBeforeAFrameIsSkipped) {
    open();
    server.send_bytes(from_hex("00 FF \"2BEZ2BE\" 01 01 \"GET / HTTP/1.0\" 0D 0A"));
    server.send_bytes(wire_frame(wire_message("MSG_LOG_FLUSH", 1, "", "cpc1")));
    EXPECT_TRUE(loop->run_until([&] { return lnk.rx_queue.count == 1; }));
}

TEST_F(ZebmsgLink, GarbageInsideAFrameIsSkippedWithTheFrame) {
    open();
    server.send_bytes(wire_frame({}));
    server.send_bytes(wire_frame({1, 2, 3}));
    server.send_bytes(wire_frame(Bytes(5000, 0xFF)));
    server.send_bytes(wire_frame(wire_message("NO_SUCH_MESSAGE")));
    settle(2);
    EXPECT_EQ(lnk.rx_queue.count, 0);
    EXPECT_EQ(lnk.rx_lib_queue.count, 0);
}

TEST_F(ZebmsgLink, NamesOfTenKilobytesAreTaken) {
    open();
    const std::string name(10240, 'n');
    server.send_bytes(wire_frame(wire_message("MSG_NOTIFY_CLIENT_TERMINATE", 0, name, name)));
    NET_SERVER_InstrumentInfo info = {};
    server.announce(name, info);
    settle(2);
    EXPECT_EQ(lnk.rx_queue.count, 2);
    EXPECT_TRUE(ZEBMSG_instrument_info_by_name(&lnk, name.substr(0, 31).c_str(), nullptr));
}

TEST_F(ZebmsgLink, AFloodOfMessagesArrivesWhole) {
    open();
    const Bytes frame = wire_frame(wire_message("MSG_LOG_FLUSH", 1, "", "cpc1"));
    Bytes flood;
    for (int i = 0; i < 1000; ++i)
        flood = std::move(flood) + frame;
    server.send_bytes(flood);
    EXPECT_TRUE(loop->run_until([&] { return lnk.rx_queue.count == 1000; }));
}

TEST_F(ZebmsgLink, AMessageLargerThanTheSendBufferLeavesInSlices) {
    open();
    ZEBMSG_writemonitor(&lnk, 2, 1400000000.5, "%s", std::string(8000, 'x').c_str());
    EXPECT_TRUE(loop->cycle());
    EXPECT_LE(server.received_bytes().size() + lnk.tx_buff_size, 4096U);
    EXPECT_EQ(next().type, MSG_LOG_MONITOR);
}

TEST_F(ZebmsgLink, AServerThatDoesNotReadDoesNotBlockTheLoop) {
    open();
    const int size = 4096;
    setsockopt(lnk.fh, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
    const std::string text(8000, 'x');
    for (int i = 0; i < 50; ++i)
        ZEBMSG_writemonitor(&lnk, 0, 0, "%s", text.c_str());
    fd_set none, ready;
    FD_ZERO(&none);
    FD_ZERO(&ready);
    FD_SET(lnk.fh, &ready);
    // As if the select had reported the socket ready each time: once full it takes nothing any
    // more.
    auto serve = [&] {
        return ZEBMSG_dispatch_post_select(&lnk, &loop->rx, &loop->tx, &none, &ready,
                                           &loop->fd_max);
    };
    while (lnk.tx_queue.count > 0 && lnk.tx_buff_size < sizeof lnk.tx_buff)
        ASSERT_TRUE(serve());
    ASSERT_GT(lnk.tx_queue.count, 0);
    EXPECT_TRUE(serve());
    EXPECT_EQ(lnk.tx_buff_size, 256U);
    for (int i = 0; i < 50; ++i)
        EXPECT_EQ(next().type, MSG_LOG_MONITOR);
}

TEST_F(ZebmsgLink, WritingIsOfInterestOnlyWhileSomethingWaits) {
    open();
    ASSERT_TRUE(loop->run_until([&] { return lnk.tx_queue.count == 0 && lnk.tx_buff_size == 0; }));
    ZEBMSG_dispatch_pre_select(&lnk, &loop->rx, &loop->tx, &loop->fd_max);
    EXPECT_TRUE(FD_ISSET(lnk.fh, &loop->rx));
    EXPECT_FALSE(FD_ISSET(lnk.fh, &loop->tx));
    ZEBMSG_queue_message(&lnk, MSG_LOG_FLUSH, 1, nullptr, nullptr, 0, nullptr);
    ZEBMSG_dispatch_pre_select(&lnk, &loop->rx, &loop->tx, &loop->fd_max);
    EXPECT_TRUE(FD_ISSET(lnk.fh, &loop->tx));
    EXPECT_GE(loop->fd_max, lnk.fh);
}

TEST_F(ZebmsgLink, DispatchInitKeepsAThreadThatIsAlreadyKnown) {
    pthread_t one = pthread_self();
    pthread_t two = pthread_self();
    ZEBMSG_dispatch_init(&lnk, &loop->rx, &loop->tx, &loop->fd_max, &one);
    ZEBMSG_dispatch_init(&lnk, &loop->rx, &loop->tx, &loop->fd_max, &two);
    EXPECT_EQ(lnk.thd, &one);
}

// ---- Disconnecting ----

TEST(Zebmsg, DisconnectingANeverConnectedLinkDoesNothing) {
    StderrCapture err;
    ZEBMSG_link lnk = {};
    ZEBMSG_disconnect(&lnk);
    ZEBMSG_multi_disconnect(&lnk);
    EXPECT_EQ(lnk.stat, ZEBMSG_S_UNINITIALIZED);
    EXPECT_EQ(err.finish(), "");
}

TEST_F(ZebmsgLink, DisconnectDiscardsTheQueueAndSendsTheFarewell) {
    open();
    ZEBMSG_queue_message(&lnk, MSG_LOG_FLUSH, 1, nullptr, nullptr, 0, nullptr);
    std::thread closing([&] { ZEBMSG_multi_disconnect(&lnk); });
    EXPECT_TRUE(wait_until([&] { return lnk_is_closing(); }));
    const ServerMessage last = next();
    closing.join();
    EXPECT_EQ(last.type, MSG_SERVER_TERMINATE);
    EXPECT_THAT(err.text(), HasSubstr("Notifying server of socket closing"));
    EXPECT_EQ(lnk.fh, -1);
    EXPECT_TRUE(server.client_gone());
}

TEST_F(ZebmsgLink, TheFarewellIsTheseBytes) {
    open();
    const size_t before = server.received_bytes().size();
    std::thread closing([&] { ZEBMSG_multi_disconnect(&lnk); });
    next();
    closing.join();
    const Bytes &all = server.received_bytes();
    EXPECT_EQ(Bytes(all.begin() + static_cast<long>(before), all.end()),
              from_hex("\"2BEZ\" 01 01  20 00 00 00  00 00 00 00"
                       "14 00 \"MSG_SERVER_TERMINATE\" 00 00 00 00 00 00"));
}

TEST_F(ZebmsgLink, DisconnectWaitsAtMostTwoSecondsForTheFarewellToLeave) {
    open(); // nobody runs the hooks from here on
    ZEBMSG_multi_disconnect(&lnk);
    EXPECT_EQ(lnk.fh, -1);
    EXPECT_EQ(lnk.tx_queue.count, 1);
    EXPECT_TRUE(server.client_gone());
}

TEST_F(ZebmsgLink, DestroyEmptiesTheLink) {
    open();
    NET_SERVER_InstrumentInfo info = {};
    server.announce("cpc1", info);
    settle(2);
    ZEBMSG_queue_message(&lnk, MSG_LOG_FLUSH, 1, nullptr, nullptr, 0, nullptr);
    ZEBMSG_multi_destroy(&lnk);
    EXPECT_EQ(lnk.stat, ZEBMSG_S_UNINITIALIZED);
    EXPECT_EQ(lnk.fh, -1);
    EXPECT_NE(lnk.clear_fh, -1);
    EXPECT_STREQ(lnk.name, "");
    EXPECT_EQ(lnk.tx_queue.count + lnk.rx_queue.count + lnk.rx_lib_queue.count, 0);
    EXPECT_EQ(lnk.known_insts.count, 0);
    EXPECT_EQ(lnk.rx_stream.buff, nullptr);
    EXPECT_THAT(err.text(), HasSubstr("Disconnected socket"));
}

// ---- The link's own thread ----

class ZebmsgOwnThread : public testing::Test {
  protected:
    void SetUp() override {
        ZEBMSG_connect_params cp = params_of("neph1");
        ASSERT_TRUE(ZEBMSG_connect(&cp, &lnk));
        ASSERT_TRUE(server.accept());
    }
    void TearDown() override { ZEBMSG_disconnect(&lnk); }
    bool is_closed() {
        pthread_mutex_lock(&lnk.mtx);
        const bool closed = lnk.fh == -1;
        pthread_mutex_unlock(&lnk.mtx);
        return closed;
    }

    StderrCapture err;
    ScopedEnv no_server{"ZEB2SERVER", nullptr};
    ScriptedServer server;
    ZEBMSG_link lnk = {};
};

TEST_F(ZebmsgOwnThread, OpensSendsAndDisconnects) {
    server.handshake(1);
    EXPECT_TRUE(ZEBMSG_wait_connected(&lnk));
    ZEBMSG_queue_message(&lnk, MSG_LOG_FLUSH, 1, nullptr, nullptr, 0, nullptr);
    for (NETMSG_type type : {MSG_SERVER_CLIENTHANDSHAKE, MSG_NOTIFY_CLIENT_CONNECT, MSG_LOG_FLUSH})
        EXPECT_EQ(server.wait_next().value().type, type);
    ZEBMSG_disconnect(&lnk);
    EXPECT_EQ(server.wait_next().value().type, MSG_SERVER_TERMINATE);
    EXPECT_TRUE(server.client_gone());
    EXPECT_EQ(lnk.thd, nullptr);
    EXPECT_EQ(lnk.stat, ZEBMSG_S_UNINITIALIZED);
    EXPECT_THAT(err.text(), Not(HasSubstr("Select failed")));
}

TEST_F(ZebmsgOwnThread, EndsWithTheLinkAndKeepsTheStatus) {
    server.handshake(1);
    ASSERT_TRUE(ZEBMSG_wait_connected(&lnk));
    server.send(MSG_SERVER_TERMINATE);
    ASSERT_TRUE(wait_until([&] { return is_closed(); }));
    EXPECT_EQ(ZEBMSG_test_connected_ext(&lnk), 1);
    ZEBMSG_disconnect(&lnk); // the thread has ended by itself
    EXPECT_EQ(lnk.stat, ZEBMSG_S_UNINITIALIZED);
    EXPECT_THAT(err.text(), Not(HasSubstr("system call failed")));
}

TEST_F(ZebmsgOwnThread, WaitingEndsWhenTheServerLeavesBeforeTheHandshake) {
    server.close_client();
    EXPECT_FALSE(ZEBMSG_wait_connected(&lnk));
}

TEST_F(ZebmsgOwnThread, WaitingEndsWhenTheServerStaysSilentForTooLong) {
    pthread_mutex_lock(&lnk.mtx);
    lnk.last_rx_time -= 31;
    pthread_mutex_unlock(&lnk.mtx);
    EXPECT_FALSE(ZEBMSG_wait_connected(&lnk));
    EXPECT_THAT(err.text(), HasSubstr("Socket timeout - closing"));
}

TEST_F(ZebmsgOwnThread, DisconnectsFromAServerThatNeverReads) {
    const int size = 4096;
    setsockopt(lnk.fh, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
    const std::string text(8000, 'x');
    for (int i = 0; i < 100; ++i)
        ZEBMSG_writemonitor(&lnk, 0, 0, "%s", text.c_str());
    ZEBMSG_disconnect(&lnk);
    EXPECT_EQ(lnk.stat, ZEBMSG_S_UNINITIALIZED);
}

TEST_F(ZebmsgOwnThread, ConnectsAgainAfterADisconnect) {
    ZEBMSG_disconnect(&lnk);
    server.close_client();
    ZEBMSG_connect_params cp = params_of("neph1");
    ASSERT_TRUE(ZEBMSG_connect(&cp, &lnk));
    ASSERT_TRUE(server.accept());
    server.handshake(1);
    EXPECT_TRUE(ZEBMSG_wait_connected(&lnk));
}

} // namespace

#include "zebmsgd/protocol.h"

#include "support.h"
#include "zebmsgd_support.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace zebmsgd;
using namespace zebmsgd_test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

struct ProtocolTest : testing::Test {
    Limits limits;
    Router router{limits};
    Protocol protocol{router, limits};
    Peer a{1 << 20}, b{1 << 20}, c{1 << 20};
    zeb::test::StderrCapture errors;

    void give(Peer &from, const std::string &payload, double now = 1) {
        protocol.receive(from, payload, now);
    }

    void open_all() {
        give(a, handshake("a"));
        give(b, handshake("b"));
        give(c, handshake("c"));
        for (Peer *peer : {&a, &b, &c})
            take(*peer);
    }
};

TEST_F(ProtocolTest, AHandshakeIsAnsweredWithTheIndexOfTheLatestHeartbeat) {
    protocol.beat(0);
    protocol.beat(0);
    give(a, handshake("cpc1"));
    EXPECT_TRUE(a.open);
    EXPECT_EQ(a.name, "cpc1");
    const auto got = take(a);
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].name, "MSG_SERVER_SERVERHANDSHAKE");
    EXPECT_EQ(got[0].flags, 0u);
    EXPECT_EQ(got[0].source, "");
    EXPECT_EQ(got[0].rest, package("NET_SERVER_ServerHandshake", {field("hb_idx", 6, u32(2))}));
}

TEST_F(ProtocolTest, AnythingButAHandshakeFirstEndsTheConnection) {
    give(a, packed(1, "MSG_X"));
    EXPECT_NE(a.doom, nullptr);
    give(b, "garbage");
    EXPECT_NE(b.doom, nullptr);
    EXPECT_FALSE(a.open);
}

TEST_F(ProtocolTest, AHandshakeWithoutItsRecordEndsTheConnection) {
    give(a, packed(0, "MSG_SERVER_CLIENTHANDSHAKE"));
    EXPECT_NE(a.doom, nullptr);
    EXPECT_FALSE(a.open);
}

TEST_F(ProtocolTest, AnOverlongHandshakeIsNotEvenUnpacked) {
    give(a, handshake("a") + std::string(5000, 'x'));
    EXPECT_NE(a.doom, nullptr);
}

TEST_F(ProtocolTest, ANameIsCutToThirtyOneCharacters) {
    give(a, handshake(std::string(60, 'n')));
    EXPECT_EQ(a.name, std::string(31, 'n'));
}

TEST_F(ProtocolTest, ASecondHandshakeIsDroppedAndChangesNothing) {
    open_all();
    give(a, handshake("other"));
    EXPECT_EQ(a.name, "a");
    EXPECT_EQ(a.traffic.dropped, 1u);
}

TEST_F(ProtocolTest, TheNoticeOfConnectingIsRelayedAndStartsTheReplay) {
    give(a, handshake("a"));
    give(a, packed(3, "MSG_STATE"));
    give(b, handshake("b"));
    give(c, handshake("c"));
    for (Peer *peer : {&a, &b, &c})
        take(*peer);
    give(b, packed(1, "MSG_NOTIFY_CLIENT_CONNECT"));
    EXPECT_THAT(take_names(b), ElementsAre("MSG_STATE from a"));
    EXPECT_THAT(take_names(a), ElementsAre("MSG_NOTIFY_CLIENT_CONNECT from b"));
    EXPECT_THAT(take_names(c), ElementsAre("MSG_NOTIFY_CLIENT_CONNECT from b"));
}

TEST_F(ProtocolTest, ANameInUseIsTakenOver) {
    open_all();
    Peer newer{1 << 20};
    give(newer, handshake("A"));
    EXPECT_TRUE(newer.open);
    EXPECT_EQ(router.find("a"), &newer);
    EXPECT_NE(a.doom, nullptr);
    EXPECT_THAT(take_names(a), ElementsAre("MSG_SERVER_TERMINATE"));
    EXPECT_THAT(take_names(b), ElementsAre("MSG_NOTIFY_CLIENT_TERMINATE from a"));
    EXPECT_THAT(take_names(newer), ElementsAre("MSG_SERVER_SERVERHANDSHAKE"));
    router.leave(newer);
}

TEST_F(ProtocolTest, ATakeOverForgetsWhatTheOlderOneRetained) {
    open_all();
    give(a, packed(3, "MSG_STATE"));
    Peer newer{1 << 20};
    give(newer, handshake("a"));
    EXPECT_EQ(router.retained(), 0u);
    router.leave(newer);
}

TEST_F(ProtocolTest, TheLimitOfClientsHoldsButForAnOlderNamesake) {
    Limits two;
    two.clients = 2;
    Router small(two);
    Protocol server(small, two);
    Peer third{1 << 20}, again{1 << 20};
    server.receive(a, handshake("a"), 0);
    server.receive(b, handshake("b"), 0);
    server.receive(third, handshake("third"), 0);
    EXPECT_NE(third.doom, nullptr);
    server.receive(again, handshake("b"), 0);
    EXPECT_TRUE(again.open);
}

TEST_F(ProtocolTest, ATerminateMessageMeansThatTheClientLeaves) {
    open_all();
    give(a, packed(0, "MSG_SERVER_TERMINATE"));
    EXPECT_NE(a.doom, nullptr);
    EXPECT_FALSE(a.at_fault);
}

TEST_F(ProtocolTest, AHeartbeatGoesToEveryClientWithARunningIndex) {
    open_all();
    b.filters.add(Filter());
    protocol.beat(0);
    protocol.beat(0);
    const auto got = take(b);
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[1].name, "MSG_SERVER_HEARTBEAT");
    EXPECT_EQ(got[1].rest, package("NET_SERVER_Heartbeat", {field("hb_idx", 6, u32(2))}));
}

TEST_F(ProtocolTest, AnEchoIsNotedAndRelayedToNobody) {
    open_all();
    protocol.beat(5);
    EXPECT_EQ(a.unanswered_since, 5);
    protocol.beat(10);
    EXPECT_EQ(a.unanswered_since, 5);
    for (Peer *peer : {&a, &b, &c})
        take(*peer);
    give(a, packed(1, "MSG_SERVER_HEARTBEAT"), 11);
    EXPECT_EQ(a.unanswered_since, 0);
    EXPECT_EQ(a.last_echo, 11);
    EXPECT_THAT(take_names(b), IsEmpty());
}

TEST_F(ProtocolTest, AnAnnouncementIsRelayedAndRemembered) {
    open_all();
    give(a, announcement("cpc_3010", "inlet"));
    EXPECT_TRUE(a.announced.made);
    EXPECT_EQ(a.announced.type, "cpc_3010");
    EXPECT_EQ(a.announced.display_name, "Display");
    EXPECT_EQ(a.announced.id, "A");
    EXPECT_THAT(a.announced.tags, ElementsAre("inlet"));
    EXPECT_THAT(take_names(b), ElementsAre("MSG_SERVER_INSTRUMENTINFO from a"));
    EXPECT_EQ(router.retained(), 1u);
}

TEST_F(ProtocolTest, FiltersLookAtTheSourcesAnnouncement) {
    open_all();
    FilterText only_inlet;
    only_inlet.tag = "inlet";
    give(b, add_filter(only_inlet));
    give(a, announcement("cpc_3010", "inlet"));
    give(a, packed(1, "MSG_X"));
    give(c, packed(1, "MSG_Y"));
    EXPECT_THAT(take_names(b), ElementsAre("MSG_SERVER_INSTRUMENTINFO from a", "MSG_X from a"));
}

TEST_F(ProtocolTest, FiltersComeAndGoByTheirNumbers) {
    open_all();
    FilterText none_from_a{.accept = false, .uid = 7, .source = "a"};
    FilterText none_from_c{.accept = false, .uid = 8, .source = "c"};
    give(b, add_filter(none_from_a));
    give(b, add_filter(none_from_c));
    give(b, delete_filter(false, 7));
    give(a, packed(1, "MSG_X"));
    give(c, packed(1, "MSG_Y"));
    EXPECT_THAT(take_names(b), ElementsAre("MSG_X from a"));
    give(b, delete_filter(true, 0));
    give(c, packed(1, "MSG_Y"));
    EXPECT_THAT(take_names(b), ElementsAre("MSG_Y from c"));
}

TEST_F(ProtocolTest, FiltersBeyondTheLimitAreDropped) {
    Limits one;
    one.filters = 1;
    Router small(one);
    Protocol server(small, one);
    server.receive(a, handshake("a"), 0);
    server.receive(a, add_filter({}), 0);
    server.receive(a, add_filter({}), 0);
    EXPECT_EQ(a.filters.size(), 1u);
    EXPECT_EQ(a.traffic.dropped, 1u);
}

TEST_F(ProtocolTest, AFilterThatCannotBeReadIsDropped) {
    open_all();
    give(a, packed(0, "NET_SERVER_ADDFILTER", "", "", "NET_SERVER_FilterAdd", "\x01\xff\xff"));
    give(a, packed(0, "NET_SERVER_DELETFILTER"));
    EXPECT_EQ(a.filters.size(), 0u);
    EXPECT_EQ(a.traffic.dropped, 2u);
    EXPECT_EQ(a.doom, nullptr);
}

TEST_F(ProtocolTest, MessagesOfTheServerAreNotRelayedForAClient) {
    open_all();
    give(a, packed(1, "MSG_SERVER_SERVERHANDSHAKE"));
    give(a, packed(1, "MSG_NOTIFY_CLIENT_TERMINATE"));
    give(a, packed(1, "MSG_SERVER_CLIENTHANDSHAKE"));
    EXPECT_THAT(take_names(b), IsEmpty());
    EXPECT_EQ(a.traffic.dropped, 3u);
}

TEST_F(ProtocolTest, AMalformedMessageIsDroppedAndTheClientStays) {
    open_all();
    give(a, "x");
    give(a, packed(1, "MSG_X", std::string(32, 'd')));
    give(a, packed(1, "MSG_X", std::string_view("b\0c", 3)));
    EXPECT_EQ(a.traffic.dropped, 3u);
    EXPECT_EQ(a.doom, nullptr);
    EXPECT_THAT(take_names(b), IsEmpty());
}

TEST_F(ProtocolTest, ANameOfControlCharactersIsShownEscaped) {
    protocol.verbose = true;
    give(a, handshake("a\n\x1b[31m"));
    EXPECT_THAT(errors.finish(), HasSubstr("client \"a\\x0a\\x1b[31m\" connected"));
}

TEST_F(ProtocolTest, AClientWithoutANameTakesPart) {
    give(a, handshake(""));
    give(b, handshake(""));
    take(a);
    take(b);
    give(a, packed(1, "MSG_X"));
    EXPECT_EQ(a.doom, nullptr);
    EXPECT_THAT(take_names(b), ElementsAre("MSG_X"));
}

} // namespace

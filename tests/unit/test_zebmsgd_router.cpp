#include "zebmsgd/router.h"

#include "support.h"
#include "zebmsgd_support.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace zebmsgd;
using namespace zebmsgd_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct RouterTest : testing::Test {
    Limits limits;
    Router router{limits};
    Peer a{1 << 20}, b{1 << 20}, c{1 << 20};
    zeb::test::StderrCapture errors;

    RouterTest() {
        a.name = "a";
        b.name = "b";
        c.name = "c";
        router.join(a);
        router.join(b);
        router.join(c);
    }

    void route(Peer &from, const std::string &payload) {
        router.route(from, *parse_message(payload));
    }

    // A client that comes after what was routed so far.
    void join_late(const std::string &name = "late") {
        late.name = name;
        router.join(late);
    }

    Peer late{1 << 20};
};

TEST_F(RouterTest, APublishedMessageGoesToEveryOtherClient) {
    route(a, packed(1, "MSG_X"));
    EXPECT_THAT(take_names(a), IsEmpty());
    EXPECT_THAT(take_names(b), ElementsAre("MSG_X from a"));
    EXPECT_THAT(take_names(c), ElementsAre("MSG_X from a"));
}

TEST_F(RouterTest, TheRestOfAMessageIsRelayedUntouched) {
    route(a, packed(1, "MSG_UNKNOWN", "", "someone else", "NET_Unknown", "\x01garbage"));
    const auto got = take(b);
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].flags, 1u);
    EXPECT_EQ(got[0].source, "a");
    EXPECT_EQ(got[0].record, "NET_Unknown");
    EXPECT_EQ(got[0].rest, "\x01garbage");
}

TEST_F(RouterTest, AllReceiversShareOneBlock) {
    route(a, packed(1, "MSG_X"));
    iovec for_b, for_c;
    b.out.gather(&for_b, 1);
    c.out.gather(&for_c, 1);
    EXPECT_EQ(for_b.iov_base, for_c.iov_base);
}

TEST_F(RouterTest, AMessageWithADestinationGoesToThatClientOnly) {
    route(a, packed(0, "MSG_X", "c"));
    EXPECT_THAT(take_names(b), IsEmpty());
    EXPECT_THAT(take_names(c), ElementsAre("MSG_X from a"));
}

TEST_F(RouterTest, DestinationsAreComparedWithoutRegardToCase) {
    route(a, packed(0, "MSG_X", "C"));
    EXPECT_THAT(take_names(c), ElementsAre("MSG_X from a"));
}

TEST_F(RouterTest, AMessageToItselfArrives) {
    route(a, packed(0, "MSG_X", "a"));
    EXPECT_THAT(take_names(a), ElementsAre("MSG_X from a"));
}

TEST_F(RouterTest, AMessageToNobodyIsCountedAndReportedOnce) {
    route(a, packed(0, "MSG_X", "nobody"));
    route(a, packed(0, "MSG_X", "nobody"));
    EXPECT_EQ(a.traffic.dropped, 2u);
    const std::string text = errors.finish();
    EXPECT_EQ(text.find("not connected"), text.rfind("not connected"));
    EXPECT_NE(text.find("not connected"), std::string::npos);
}

TEST_F(RouterTest, AMessageToTheServerIsRelayedToNobody) {
    route(a, packed(0, "MSG_X"));
    EXPECT_THAT(take_names(b), IsEmpty());
    EXPECT_EQ(a.traffic.dropped, 1u);
}

TEST_F(RouterTest, APublishedMessageWithADestinationGoesToAllAndKeepsIt) {
    route(a, packed(1, "MSG_X", "c"));
    EXPECT_EQ(take(b).at(0).destination, "c");
    EXPECT_EQ(take(c).at(0).destination, "c");
}

TEST_F(RouterTest, FiltersDecideForTheirOwnClientOnly) {
    Filter none_from_a;
    none_from_a.source = "a";
    b.filters.add(none_from_a);
    route(a, packed(1, "MSG_X"));
    route(c, packed(1, "MSG_Y"));
    EXPECT_THAT(take_names(b), ElementsAre("MSG_Y from c"));
    EXPECT_THAT(take_names(c), ElementsAre("MSG_X from a"));
    EXPECT_EQ(b.traffic.filtered, 1u);
}

TEST_F(RouterTest, FiltersHoldForMessagesWithADestinationToo) {
    b.filters.add(Filter());
    route(a, packed(0, "MSG_X", "b"));
    EXPECT_THAT(take_names(b), IsEmpty());
}

TEST_F(RouterTest, TheServersOwnMessagesAreNotFiltered) {
    b.filters.add(Filter());
    router.leave(a);
    EXPECT_THAT(take_names(b), ElementsAre("MSG_NOTIFY_CLIENT_TERMINATE from a"));
}

TEST_F(RouterTest, RetainedMessagesAreReplayedInTheOrderOfTheirFirstAppearance) {
    route(a, packed(3, "MSG_ONE", "", "", "", "old"));
    route(b, packed(3, "MSG_ONE"));
    route(a, packed(3, "MSG_TWO"));
    route(a, packed(3, "MSG_ONE", "", "", "", "new"));
    join_late();
    EXPECT_THAT(take_names(late), IsEmpty());
    router.begin_replay(late);
    const auto got = take(late);
    ASSERT_EQ(got.size(), 3u);
    EXPECT_EQ(got[0].name + " from " + got[0].source + " " + got[0].rest, "MSG_ONE from a new");
    EXPECT_EQ(got[1].source, "b");
    EXPECT_EQ(got[2].name, "MSG_TWO");
}

TEST_F(RouterTest, AClientGetsOneReplayAndNotItsOwnMessages) {
    route(a, packed(3, "MSG_ONE"));
    join_late();
    router.begin_replay(late);
    router.begin_replay(late);
    EXPECT_THAT(take_names(late), ElementsAre("MSG_ONE from a"));
    router.begin_replay(a);
    EXPECT_THAT(take_names(a), IsEmpty());
}

TEST_F(RouterTest, WhatPassedBeforeTheNoticeOfConnectingIsNotReplayed) {
    route(a, packed(3, "MSG_OLD"));
    route(a, packed(3, "MSG_BOTH"));
    route(a, packed(2, "MSG_KEPT"));
    join_late();
    route(a, packed(3, "MSG_NEW"));
    route(a, packed(3, "MSG_BOTH"));
    route(a, packed(2, "MSG_MINE", "late"));
    route(a, packed(2, "MSG_KEPT"));
    EXPECT_THAT(take_names(late),
                ElementsAre("MSG_NEW from a", "MSG_BOTH from a", "MSG_MINE from a"));
    router.begin_replay(late);
    EXPECT_THAT(take_names(late), ElementsAre("MSG_OLD from a", "MSG_KEPT from a"));
}

TEST_F(RouterTest, AClientsRetainedMessagesGoWhenItGoes) {
    route(a, packed(3, "MSG_ONE"));
    route(b, packed(3, "MSG_TWO"));
    router.leave(a);
    EXPECT_EQ(router.retained(), 1u);
    join_late();
    router.begin_replay(late);
    EXPECT_THAT(take_names(late), ElementsAre("MSG_TWO from b"));
}

TEST_F(RouterTest, AMessageRetainedWithoutPublishingWaitsForLaterClients) {
    route(a, packed(2, "MSG_ONE"));
    EXPECT_THAT(take_names(b), IsEmpty());
    router.begin_replay(b);
    EXPECT_THAT(take_names(b), ElementsAre("MSG_ONE from a"));
}

TEST_F(RouterTest, AMessageRetainedForOneClientIsReplayedToThatClient) {
    route(a, packed(2, "MSG_ONE", "late"));
    join_late("LATE");
    router.begin_replay(late);
    router.begin_replay(b);
    EXPECT_THAT(take_names(late), ElementsAre("MSG_ONE from a"));
    EXPECT_THAT(take_names(b), IsEmpty());
}

TEST_F(RouterTest, ReplaysAreFilteredLikeAnythingElse) {
    route(a, packed(3, "MSG_ONE"));
    join_late();
    late.filters.add(Filter());
    router.begin_replay(late);
    EXPECT_THAT(take_names(late), IsEmpty());
}

TEST_F(RouterTest, AReplayLargerThanTheQueueIsContinuedAsItEmpties) {
    for (int i = 0; i < 40; ++i)
        route(a, packed(2, "MSG_" + std::to_string(i), "", "", "", std::string(1000, 'x')));
    Peer small{16384};
    small.name = "late";
    router.join(small);
    router.begin_replay(small);
    size_t got = 0;
    while (small.doom == nullptr && small.replay_next < small.replay_end) {
        got += take(small).size();
        router.continue_replay(small);
    }
    got += take(small).size();
    EXPECT_EQ(small.doom, nullptr);
    EXPECT_EQ(got, 40u);
    router.leave(small);
}

TEST_F(RouterTest, TheOthersHearWhoLeft) {
    router.leave(b);
    EXPECT_THAT(take_names(a), ElementsAre("MSG_NOTIFY_CLIENT_TERMINATE from b"));
    EXPECT_THAT(take_names(b), IsEmpty());
    EXPECT_THAT(take_names(c), ElementsAre("MSG_NOTIFY_CLIENT_TERMINATE from b"));
    EXPECT_EQ(router.find("b"), nullptr);
}

TEST_F(RouterTest, AFullQueueDoomsItsClientAndNobodyElse) {
    Peer slow{4096};
    slow.name = "slow";
    router.join(slow);
    for (int i = 0; i < 10; ++i)
        route(a, packed(1, "MSG_X", "", "", "", std::string(1000, 'x')));
    EXPECT_NE(slow.doom, nullptr);
    EXPECT_EQ(b.doom, nullptr);
    EXPECT_EQ(take(b).size(), 10u);
    router.leave(slow);
}

TEST_F(RouterTest, AFullQueueIsRelievedFirst) {
    Peer quick{4096};
    quick.name = "quick";
    router.join(quick);
    size_t got = 0;
    router.relieve = [&](Peer &peer) { got += take(peer).size(); };
    for (int i = 0; i < 10; ++i)
        route(a, packed(1, "MSG_X", "", "", "", std::string(1000, 'x')));
    EXPECT_EQ(quick.doom, nullptr);
    EXPECT_EQ(got + take(quick).size(), 10u);
    router.leave(quick);
}

TEST_F(RouterTest, TooManyRetainedMessagesAreRelayedButNotKept) {
    Limits few;
    few.retained = 2;
    Router small(few);
    Peer x{1 << 20}, y{1 << 20};
    x.name = "x";
    small.join(x);
    small.join(y);
    for (const char *name : {"MSG_1", "MSG_2", "MSG_3", "MSG_2"})
        small.route(x, *parse_message(packed(3, name)));
    EXPECT_EQ(take(y).size(), 4u);
    EXPECT_EQ(small.retained(), 2u);
    EXPECT_EQ(x.traffic.dropped, 1u);
}

TEST_F(RouterTest, RetainedBytesAreLimitedAndAReplacementFreesItsOwn) {
    Limits few;
    few.retained_bytes = 1000;
    Router small(few);
    Peer x{1 << 20};
    x.name = "x";
    small.join(x);
    const auto keep = [&](const char *name, size_t size) {
        small.route(x, *parse_message(packed(2, name, "", "", "", std::string(size, 'x'))));
    };
    keep("MSG_1", 800);
    keep("MSG_1", 850);
    EXPECT_EQ(x.traffic.dropped, 0u);
    keep("MSG_2", 800);
    EXPECT_EQ(x.traffic.dropped, 1u);
    keep("MSG_1", 10);
    keep("MSG_2", 800);
    EXPECT_EQ(x.traffic.dropped, 1u);
    EXPECT_EQ(small.retained(), 2u);
}

TEST_F(RouterTest, TouchedPeersAreTakenOnceEach) {
    route(a, packed(1, "MSG_X"));
    route(a, packed(1, "MSG_X"));
    int count = 0;
    while (router.take_touched() != nullptr)
        ++count;
    EXPECT_EQ(count, 2);
}

} // namespace

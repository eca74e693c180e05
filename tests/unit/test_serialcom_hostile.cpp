// A serial server that does what it must not, and callers that pass what they must not.
#include "serialcom_testing.h"

using namespace zeb::test;
using testing::HasSubstr;
using testing::Not;

namespace {

// ---- Records ----

TEST_F(SerialLink, RecordsShorterThan4BytesAreReportedAndIgnored) {
    open();
    send(SERIALD_REQUEST_READNEW);
    for (size_t size : {0U, 1U, 2U, 3U})
        client->send_bytes(wire_frame(Bytes(size, 1)));
    settle();
    for (const char *text : {"Serial server reply to small: 0 ", "Serial server reply to small: 2 ",
                             "Serial server reply to small: 3 "})
        EXPECT_EQ(occurrences(err.text(), text), 1U) << text;
    EXPECT_EQ(lnk.rq_stat, SERIALCOM_RS_SENT);
    EXPECT_EQ(lnk.stat, SERIALCOM_S_OPEN);
}

TEST_F(SerialLink, AShortRecordIsNoAnswerToTheHandshake) {
    introduce();
    client->send_bytes(wire_frame({1, 0, 0}));
    settle();
    EXPECT_EQ(lnk.stat, SERIALCOM_S_AWAITING_HANDSHAKE);
    client->success();
    EXPECT_TRUE(loop->run_until([&] { return lnk.stat == SERIALCOM_S_OPEN; }));
}

TEST_F(SerialLink, TheHandshakeMayBeAnsweredWithDataAndAtOnceWithMore) {
    introduce();
    client->send_bytes(wire_frame(wire_u32(1) + Bytes(100, 'x')) + wire_frame(wire_u32(0)) +
                       wire_frame(wire_u32(1)));
    ASSERT_TRUE(loop->run_until([&] { return lnk.stat == SERIALCOM_S_OPEN; }));
    settle();
    EXPECT_EQ(lnk.rq_stat, SERIALCOM_RS_SUCCESS);
}

TEST_F(SerialLink, WhatFollowsARefusalInTheSamePieceIsIgnored) {
    introduce();
    client->send_bytes(wire_frame(wire_u32(2)) + wire_frame(wire_u32(1)) +
                       wire_frame(wire_u32(1) + Bytes(9, 'x')));
    expect_lost("Error in serial server handsake, disconnecting");
    EXPECT_EQ(lnk.rq_stat, SERIALCOM_RS_NONE);
    EXPECT_EQ(lnk.r_buffer, nullptr);
    EXPECT_EQ(occurrences(err.text(), "before the handshake sequeuence started"), 2U);
}

TEST_F(SerialLink, AnAnswerWithoutARequestIsTaken) {
    open();
    client->success(bytes_of("unasked"));
    settle();
    EXPECT_EQ(lnk.rq_stat, SERIALCOM_RS_SUCCESS);
    BYTE to[16];
    EXPECT_EQ(SERIALCOM_retrive_request_data(&lnk, to, sizeof to), 7U);
}

TEST_F(SerialLink, OfTwoAnswersTheSecondCounts) {
    open();
    send(SERIALD_REQUEST_READNEW);
    client->success(bytes_of("one"));
    client->success(bytes_of("second"));
    settle();
    BYTE to[16];
    EXPECT_EQ(SERIALCOM_retrive_request_data(&lnk, to, sizeof to), 6U);
    EXPECT_STREQ(reinterpret_cast<char *>(to), "second");
    client->failure();
    settle();
    EXPECT_FALSE(SERIALCOM_wait_request_done(&lnk));
}

TEST_F(SerialLink, AnAnswerBetweenIssueAndSendingReplacesTheRequest) {
    open();
    issue(SERIALD_REQUEST_WRITE, "abc");
    client->success(bytes_of("early"));
    fd_set ready, none;
    FD_ZERO(&ready);
    FD_ZERO(&none);
    FD_SET(lnk.fh, &ready);
    EXPECT_TRUE(
        SERIALCOM_dispatch_post_select(&lnk, &loop->rx, &loop->tx, &ready, &none, &loop->fd_max));
    EXPECT_EQ(lnk.rq_stat, SERIALCOM_RS_SUCCESS);
    EXPECT_EQ(lnk.r_buffer_size, 5U);
    EXPECT_FALSE(wants_to_write());
}

// ---- Bytes ----

TEST_F(SerialLink, HalfARecordWaitsForTheOtherHalf) {
    open();
    send(SERIALD_REQUEST_READNEW);
    const Bytes frame = wire_frame(wire_u32(1) + bytes_of("whole"));
    for (size_t i = 0; i + 1 < frame.size(); ++i) {
        client->send_bytes({frame[i]});
        ASSERT_TRUE(loop->run_until([&] { return lnk.rx.start_buff > i || i < 6; }));
        ASSERT_EQ(lnk.rq_stat, SERIALCOM_RS_SENT);
    }
    client->send_bytes({frame.back()});
    ASSERT_TRUE(loop->run_until([&] { return SERIALCOM_poll_request_done(&lnk); }));
    BYTE to[16];
    EXPECT_EQ(SERIALCOM_retrive_request_data(&lnk, to, sizeof to), 5U);
}

TEST_F(SerialLink, HalfARecordAndTheEndOfTheStreamDropTheLink) {
    open();
    send(SERIALD_REQUEST_READNEW);
    const Bytes frame = wire_frame(wire_u32(1) + bytes_of("whole"));
    client->send_bytes(Bytes(frame.begin(), frame.begin() + 15));
    ASSERT_TRUE(loop->run_until([&] { return lnk.rx.start_buff == 15; }));
    client->close_client();
    expect_lost("Zero length read on serial server socket");
    EXPECT_EQ(lnk.rq_stat, SERIALCOM_RS_SENT);
}

TEST_F(SerialLink, GarbageBeforeARecordIsSkipped) {
    open();
    send(SERIALD_REQUEST_READNEW);
    client->send_bytes(from_hex("00 FF \"2BEZ2BE\" 01 01 \"GET / HTTP/1.0\" 0D 0A"));
    client->send_bytes(Bytes(3000, 0xFF));
    client->success(bytes_of("x"));
    settle();
    EXPECT_TRUE(SERIALCOM_wait_request_done(&lnk));
}

TEST_F(SerialLink, ARecordTooLargeForAFrameIsReportedAndSkipped) {
    open();
    send(SERIALD_REQUEST_READNEW);
    client->send_bytes(from_hex("\"2BEZ\" 01 01  FF FF FF FF  01 00 00 00"));
    client->send_bytes(from_hex("\"2BEZ\" 01 01  FF FF 0F 00  01 00 00 00"));
    client->success(bytes_of("x"));
    settle();
    EXPECT_THAT(err.text(),
                HasSubstr("Oversized packet recieved (size specified as 0xFFFFFFFF bytes)"));
    EXPECT_TRUE(SERIALCOM_wait_request_done(&lnk));
}

TEST_F(SerialLink, AFloodOfAnswersDoesNotMakeTheLinkGrow) {
    open();
    Bytes flood;
    for (int i = 0; i < 200; ++i)
        flood = std::move(flood) + wire_frame(wire_u32(1) + Bytes(200, 'x'));
    client->send_bytes(flood);
    settle();
    EXPECT_EQ(lnk.r_buffer_max, 256U);
    EXPECT_LE(lnk.rx.sz_buff, 1024U);
}

// ---- Callers ----

TEST_F(SerialLink, DataThatNoPacketHoldsIsReportedAndTheRequestFails) {
    open();
    const BYTE one = 1;
    const std::string much(0xFFFFF - 20, 'x');
    for (size_t size : {static_cast<size_t>(-1), much.size()}) {
        const void *data = size == much.size() ? static_cast<const void *>(much.data()) : &one;
        SERIALCOM_issue_request(&lnk, SERIALD_REQUEST_WRITE, 0, 0, data, size);
        EXPECT_EQ(lnk.rq_stat, SERIALCOM_RS_FAILURE);
        EXPECT_FALSE(SERIALCOM_wait_request_done(&lnk));
        EXPECT_EQ(lnk.r_buffer, nullptr);
        EXPECT_FALSE(wants_to_write());
    }
    EXPECT_EQ(occurrences(err.text(), "Maxium packet size exceeded, packet will not be sent"), 2U);
}

TEST_F(SerialLink, NoRoomForTheResponseIsReportedAndNothingIsWritten) {
    open();
    client->success(bytes_of("abc"));
    settle();
    BYTE to[1] = {'a'};
    EXPECT_EQ(SERIALCOM_retrive_request_data(&lnk, to, 0), 0U);
    EXPECT_EQ(to[0], 'a');
    EXPECT_EQ(SERIALCOM_retrive_request_data(&lnk, nullptr, 8), 0U);
    EXPECT_EQ(occurrences(err.text(), "assertion failed (serialcom_request.cpp:"), 2U);
}

TEST_F(SerialLink, NullTextsAndRecordsAreReportedAndNothingIsIssued) {
    open();
    BYTE to[4];
    EXPECT_FALSE(SERIALCOM_issue_write_string(&lnk, nullptr));
    EXPECT_FALSE(SERIALCOM_write_string_blocking(&lnk, nullptr, 1));
    SERIALCOM_issue_read_until_string(&lnk, nullptr, 1, 1);
    SERIALCOM_issue_read_until_empty_string(&lnk, nullptr, 1, 1);
    EXPECT_EQ(SERIALCOM_read_until_string(&lnk, nullptr, 1, 1, to, sizeof to), -1);
    EXPECT_EQ(SERIALCOM_read_until_empty_string(&lnk, nullptr, 1, 1, to, sizeof to), -1);
    SERIALCOM_set_port_params(&lnk, nullptr);
    SERIALCOM_set_int_params(&lnk, nullptr);
    SERIALCOM_add_repeater(&lnk, nullptr, 1, TRUE);
    SERIALCOM_delete_repeater(&lnk, nullptr);
    EXPECT_EQ(occurrences(err.text(), "assertion failed (serialcom_request.cpp:"), 10U);
    EXPECT_EQ(lnk.rq_stat, SERIALCOM_RS_NONE);
}

TEST(Serialcom, ANullLinkIsReported) {
    StderrCapture err;
    SERIALD_connect_params cp = port_of("ttyS0");
    SERIALCOM_link lnk = {};
    BYTE to[4];
    fd_set set;
    FD_ZERO(&set);
    int fd_max = -1;
    EXPECT_FALSE(SERIALCOM_multi_connect(&cp, nullptr));
    EXPECT_FALSE(SERIALCOM_connect(nullptr, &lnk));
    EXPECT_FALSE(SERIALCOM_test_connected(nullptr));
    EXPECT_EQ(SERIALCOM_test_connected_ext(nullptr), -1);
    EXPECT_FALSE(SERIALCOM_wait_connected(nullptr));
    SERIALCOM_multi_disconnect(nullptr);
    SERIALCOM_multi_destroy(nullptr);
    SERIALCOM_disconnect(nullptr);
    EXPECT_DOUBLE_EQ(SERIALCOM_burst_timeout(nullptr), 0.02);
    EXPECT_TRUE(SERIALCOM_dispatch_init(nullptr, &set, &set, &fd_max, nullptr));
    EXPECT_TRUE(SERIALCOM_dispatch_pre_select(nullptr, &set, &set, &fd_max));
    EXPECT_TRUE(SERIALCOM_dispatch_post_select(nullptr, &set, &set, &set, &set, &fd_max));
    EXPECT_TRUE(SERIALCOM_dispatch_loop_continue(nullptr, &set, &set, &fd_max));
    EXPECT_FALSE(SERIALCOM_reset(nullptr));
    EXPECT_TRUE(SERIALCOM_poll_request_done(nullptr));
    EXPECT_FALSE(SERIALCOM_poll_request_success(nullptr));
    EXPECT_EQ(SERIALCOM_retrive_request_data(nullptr, to, sizeof to), static_cast<size_t>(-1));
    EXPECT_EQ(SERIALCOM_read_new(nullptr, to, sizeof to), -1);
    EXPECT_GE(occurrences(err.finish(), "assertion failed (serialcom"), 18U);
}

TEST_F(SerialLink, NullSetsAreReportedAndNothingHappens) {
    fd_set set;
    FD_ZERO(&set);
    int fd_max = -1;
    EXPECT_TRUE(SERIALCOM_dispatch_init(&lnk, nullptr, &set, &fd_max, nullptr));
    EXPECT_TRUE(SERIALCOM_dispatch_init(&lnk, &set, &set, nullptr, nullptr));
    EXPECT_TRUE(SERIALCOM_dispatch_pre_select(&lnk, &set, nullptr, &fd_max));
    EXPECT_TRUE(SERIALCOM_dispatch_pre_select(&lnk, &set, &set, nullptr));
    EXPECT_TRUE(SERIALCOM_dispatch_post_select(&lnk, &set, &set, nullptr, &set, nullptr));
    EXPECT_TRUE(SERIALCOM_dispatch_loop_continue(&lnk, &set, nullptr, nullptr));
    EXPECT_EQ(fd_max, -1);
    EXPECT_EQ(occurrences(err.text(), "assertion failed (serialcom_hooks.cpp:"), 6U);
}

} // namespace

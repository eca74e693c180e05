// Requests on a serial link: what goes out, what the answers make of it.
#include "serialcom_testing.h"

#include "dispatch.h"

#include <atomic>
#include <sys/socket.h>
#include <thread>
#include <time.h>

using namespace zeb::test;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr size_t k_none = static_cast<size_t>(-1);

// ---- The bytes ----

class SerialBytes : public SerialThread {
  protected:
    // Everything sent so far but the handshake, the heartbeats left out.
    Bytes sent() {
        const Bytes all = without_heartbeats(client->received_bytes());
        return Bytes(all.begin() + 266, all.end());
    }
    void finish() { EXPECT_TRUE(SERIALCOM_wait_request_done(&lnk)); }
};

TEST_F(SerialBytes, EachRequestIsTheseBytes) {
    open();
    answer_all();
    BYTE to[16];
    const BYTE three[] = {'A', 0, 'B'};
    const BYTE stops[] = {0, '\r'};
    SERIALCOM_issue_flush(&lnk, 2.5, 0.25);
    finish();
    EXPECT_TRUE(SERIALCOM_flush(&lnk, 0.25, -1));
    EXPECT_TRUE(SERIALCOM_reset(&lnk));
    EXPECT_TRUE(SERIALCOM_issue_write(&lnk, three, 3));
    EXPECT_TRUE(SERIALCOM_issue_write_string(&lnk, "V?"));
    EXPECT_TRUE(SERIALCOM_write_blocking(&lnk, "\x02", 1, 2.5));
    EXPECT_TRUE(SERIALCOM_write_string_blocking(&lnk, "Q\r", 0.25));
    EXPECT_EQ(SERIALCOM_read_new(&lnk, to, sizeof to), 0);
    EXPECT_EQ(SERIALCOM_read_new_echo(&lnk, to, sizeof to), 0);
    SERIALCOM_issue_read_until(&lnk, stops, 2, 2.5, 0.25);
    finish();
    SERIALCOM_issue_read_until_string(&lnk, "\r\n", 2.5, 0.25);
    finish();
    EXPECT_EQ(SERIALCOM_read_until(&lnk, "\r", 1, 0.25, -1, to, sizeof to), 0);
    EXPECT_EQ(SERIALCOM_read_until_string(&lnk, "\n", 0.25, -1, to, sizeof to), 0);
    SERIALCOM_issue_read_until_empty(&lnk, ">", 1, 2.5, 0.25);
    finish();
    SERIALCOM_issue_read_until_empty_string(&lnk, "#", 2.5, 0.25);
    finish();
    EXPECT_EQ(SERIALCOM_read_until_empty(&lnk, "!", 1, 0.25, -1, to, sizeof to), 0);
    EXPECT_EQ(SERIALCOM_read_until_empty_string(&lnk, ";", 0.25, -1, to, sizeof to), 0);
    SERIALCOM_issue_read_burst(&lnk, 2.5, 0.25);
    finish();
    EXPECT_EQ(SERIALCOM_read_burst(&lnk, 0.25, 2.5, to, sizeof to), 0);
    const SERIALD_port_params port = {19200, 7, 2, 2, 1};
    SERIALCOM_set_port_params(&lnk, &port);
    const SERIALD_int_params own = {65536, 512, TRUE, {0, 0, 0}};
    SERIALCOM_set_int_params(&lnk, &own);
    SERIALCOM_disconnect(&lnk);
    responder->stop();
    EXPECT_EQ(sent(), load_hex("serial_requests.frames.hex"));
}

TEST_F(SerialBytes, RepeatersAreTheseBytes) {
    open();
    answer_all();
    SERIALCOM_add_repeater(&lnk, "/log", 3, TRUE);
    SERIALCOM_delete_repeater(&lnk, "/log");
    responder->stop();
    EXPECT_EQ(sent(), load_hex("serial_repeaters.frames.hex"));
}

TEST_F(SerialThread, ARepeaterFileNameOf300CharactersIsCutTo255) {
    open();
    answer_all();
    const std::string name(300, 'f');
    SERIALCOM_add_repeater(&lnk, name.c_str(), 1, FALSE);
    SERIALCOM_delete_repeater(&lnk, name.c_str());
    const std::vector<SerialRequest> &seen = responder->stop();
    ASSERT_EQ(seen.size(), 2U);
    const Bytes field = bytes_of(name.substr(0, 255)) + Bytes{0};
    EXPECT_EQ(seen[0].data, Bytes{1} + field + Bytes{0});
    EXPECT_EQ(seen[1].data, field);
}

// ---- Answers ----

TEST_F(SerialThread, ReadNewWithADestinationOf1ReturnsZeroAndWritesOnlyTheNul) {
    open();
    answer_all("something");
    char to[3] = {'a', 'b', 'c'};
    EXPECT_EQ(SERIALCOM_read_new(&lnk, to, 1), 0);
    EXPECT_EQ(to[0], '\0');
    EXPECT_EQ(to[1], 'b');
}

TEST_F(SerialThread, AReadReturnsTheDataWithATerminator) {
    open();
    answer_all("1.23E-5\r");
    char to[16];
    memset(to, 'x', sizeof to);
    EXPECT_EQ(SERIALCOM_read_until_string(&lnk, "\r", 1, -1, to, sizeof to), 8);
    EXPECT_STREQ(to, "1.23E-5\r");
    EXPECT_EQ(to[9], 'x');
}

TEST_F(SerialThread, DataLongerThanTheDestinationIsCutWithoutNotice) {
    open();
    answer_all("0123456789");
    char to[5];
    const std::string before = err.text();
    EXPECT_EQ(SERIALCOM_read_new(&lnk, to, sizeof to), 4);
    EXPECT_STREQ(to, "0123");
    EXPECT_EQ(SERIALCOM_read_new(&lnk, to, sizeof to), 4); // cut data is not kept
    EXPECT_EQ(err.text(), before);
}

TEST_F(SerialThread, AReadAnsweredWithFailureReturnsMinusOne) {
    open();
    answer([](SerialClient &c, const SerialRequest &) { c.failure(bytes_of("why")); });
    char to[16] = "as it was";
    EXPECT_EQ(SERIALCOM_read_new(&lnk, to, sizeof to), -1);
    EXPECT_EQ(SERIALCOM_read_new_echo(&lnk, to, sizeof to), -1);
    EXPECT_EQ(SERIALCOM_read_until(&lnk, "\r", 1, 0, 0, to, sizeof to), -1);
    EXPECT_EQ(SERIALCOM_read_until_string(&lnk, "\r", 0, 0, to, sizeof to), -1);
    EXPECT_EQ(SERIALCOM_read_until_empty(&lnk, "\r", 1, 0, 0, to, sizeof to), -1);
    EXPECT_EQ(SERIALCOM_read_until_empty_string(&lnk, "\r", 0, 0, to, sizeof to), -1);
    EXPECT_EQ(SERIALCOM_read_burst(&lnk, 0, 0, to, sizeof to), -1);
    EXPECT_EQ(SERIALCOM_retrive_request_data(&lnk, reinterpret_cast<BYTE *>(to), sizeof to),
              k_none);
    EXPECT_STREQ(to, "as it was");
}

TEST_F(SerialThread, AWriteAnsweredWithFailureReturnsFalse) {
    open();
    answer([](SerialClient &c, const SerialRequest &) { c.failure(); });
    EXPECT_FALSE(SERIALCOM_issue_write(&lnk, "x", 1));
    EXPECT_FALSE(SERIALCOM_issue_write_string(&lnk, "x"));
    EXPECT_FALSE(SERIALCOM_write_blocking(&lnk, "x", 1, 1));
    EXPECT_FALSE(SERIALCOM_write_string_blocking(&lnk, "x", 1));
    EXPECT_FALSE(SERIALCOM_flush(&lnk, 1, 1));
    EXPECT_FALSE(SERIALCOM_reset(&lnk));
}

TEST_F(SerialThread, IssueWriteDoesNotReturnBeforeTheServerAnswered) {
    open();
    std::atomic<bool> returned = false;
    bool returned_early = true;
    answer([&](SerialClient &c, const SerialRequest &) {
        returned_early = returned;
        c.success();
    });
    EXPECT_TRUE(SERIALCOM_issue_write(&lnk, "x", 1));
    returned = true;
    responder->stop();
    EXPECT_FALSE(returned_early);
}

TEST_F(SerialThread, SetPortParamsDoesNotChangeTheLinksOwn) {
    open();
    answer_all();
    const SERIALD_port_params pps = {300, 7, 1, 2, 0};
    SERIALCOM_set_port_params(&lnk, &pps);
    EXPECT_EQ(lnk.pps.baud, 9600U);
    EXPECT_EQ(lnk.pps.bits, 8);
    EXPECT_DOUBLE_EQ(SERIALCOM_burst_timeout(&lnk), 0.0209375);
}

TEST_F(SerialThread, AnAnswerOfAnUnknownTypeIsASuccess) {
    open();
    answer([](SerialClient &c, const SerialRequest &) { c.respond(77, bytes_of("odd")); });
    char to[8];
    EXPECT_EQ(SERIALCOM_read_new(&lnk, to, sizeof to), 3);
    EXPECT_STREQ(to, "odd");
}

TEST_F(SerialThread, ManyRequestsFollowEachOther) {
    open();
    answer([](SerialClient &c, const SerialRequest &request) { c.success(request.data); });
    for (int i = 0; i < 200; ++i) {
        const std::string text = std::to_string(i * 7919);
        char to[16];
        EXPECT_EQ(SERIALCOM_read_until_string(&lnk, text.c_str(), 1, -1, to, sizeof to),
                  static_cast<long>(text.size()));
        EXPECT_EQ(to, text);
    }
}

TEST_F(SerialThread, TheLargestRequestAndTheLargestAnswerPass) {
    open();
    // Frames stay below 0xFFFFF bytes; 20 of a request and 4 of a response are its header.
    const std::string most(0xFFFFE - 20, 'w');
    answer([](SerialClient &c, const SerialRequest &) { c.success(Bytes(0xFFFFE - 4, 'r')); });
    EXPECT_TRUE(SERIALCOM_issue_write_string(&lnk, most.c_str()));
    std::vector<BYTE> to(0x100000);
    EXPECT_EQ(SERIALCOM_retrive_request_data(&lnk, to.data(), to.size()), 0xFFFFEU - 4);
    EXPECT_EQ(to[0xFFFFE - 5], 'r');
    EXPECT_EQ(to[0xFFFFE - 4], '\0');
    EXPECT_EQ(responder->stop().at(0).data.size(), most.size());
}

// ---- Waiting ----

TEST_F(SerialLink, ARequestWhileAwaitingTheHandshakeIsRefusedAndTheWaitReturnsFalse) {
    introduce();
    char to[8];
    EXPECT_FALSE(SERIALCOM_issue_write_string(&lnk, "x")); // nobody services the link meanwhile
    EXPECT_EQ(SERIALCOM_read_new(&lnk, to, sizeof to), -1);
    EXPECT_THAT(err.text(), HasSubstr("Tried to issue a request while the serial server link is "
                                      "down, ignored 3"));
    EXPECT_EQ(lnk.rq_stat, SERIALCOM_RS_NONE);
    EXPECT_EQ(lnk.r_buffer, nullptr);
}

TEST_F(SerialLink, ARefusedRequestLeavesTheLastOneAsItIs) {
    open();
    send(SERIALD_REQUEST_READNEW);
    client->success(bytes_of("abc"));
    settle();
    lnk.stat = SERIALCOM_S_UNLINKED;
    issue(SERIALD_REQUEST_WRITE, "longer than before");
    EXPECT_THAT(err.text(), HasSubstr("ignored 1"));
    EXPECT_EQ(lnk.rq_stat, SERIALCOM_RS_SUCCESS);
    EXPECT_EQ(lnk.rq_header.type, SERIALD_REQUEST_READNEW);
    EXPECT_EQ(lnk.r_buffer_size, 3U);
    lnk.stat = SERIALCOM_S_OPEN;
    BYTE to[8];
    EXPECT_EQ(SERIALCOM_retrive_request_data(&lnk, to, sizeof to), 3U);
}

TEST_F(SerialThread, TheLossOfTheLinkEndsTheWaitAndKeepsTheRequest) {
    open();
    answer([](SerialClient &c, const SerialRequest &) {
        shutdown(c.client(), SHUT_RDWR); // end of stream
    });
    char to[8];
    EXPECT_EQ(SERIALCOM_read_new(&lnk, to, sizeof to), -1);
    EXPECT_EQ(lnk.stat, SERIALCOM_S_UNLINKED);
    EXPECT_EQ(lnk.rq_stat, SERIALCOM_RS_SENT);
    EXPECT_FALSE(SERIALCOM_poll_request_done(&lnk)); // which does not look at the link
    EXPECT_FALSE(SERIALCOM_wait_request_done(&lnk));
}

TEST_F(SerialThread, ThirtySecondsOfSilenceEndTheWaitInTheMiddleOfARequest) {
    open();
    answer([&](SerialClient &, const SerialRequest &) {
        locked<FTIME>([&] { return lnk.last_rx_time -= 30; });
    });
    EXPECT_FALSE(SERIALCOM_write_string_blocking(&lnk, "x", -1));
    EXPECT_THAT(err.text(), HasSubstr("Serial server socket timeout - closing"));
    EXPECT_EQ(SERIALCOM_test_connected_ext(&lnk), -1);
}

TEST_F(SerialThread, AnExitRequestEndsTheWait) {
    open();
    answer([](SerialClient &, const SerialRequest &) {
        __atomic_store_n(&g_util_in_signal_exit, TRUE, __ATOMIC_SEQ_CST);
    });
    char to[8];
    EXPECT_EQ(SERIALCOM_read_new(&lnk, to, sizeof to), -1);
    EXPECT_EQ(SERIALCOM_test_connected_ext(&lnk), 1);
    EXPECT_FALSE(SERIALCOM_wait_request_done(&lnk)); // at once, also with an answer
    __atomic_store_n(&g_util_in_signal_exit, FALSE, __ATOMIC_SEQ_CST);
}

TEST_F(SerialLink, WaitingWithoutARequestReturnsFalseAtOnce) {
    open();
    EXPECT_FALSE(SERIALCOM_wait_request_done(&lnk));
    EXPECT_TRUE(SERIALCOM_poll_request_done(&lnk));
    EXPECT_FALSE(SERIALCOM_poll_request_success(&lnk));
}

TEST_F(SerialLink, PollingTellsTheRequestStatesApart) {
    const bool done[] = {true, false, false, true, true, true};
    open();
    for (int stat = SERIALCOM_RS_NONE; stat <= SERIALCOM_RS_SUCCESS; ++stat) {
        lnk.rq_stat = static_cast<SERIALCOM_REQUEST_STATUS>(stat);
        EXPECT_EQ(SERIALCOM_poll_request_done(&lnk), done[stat]) << stat;
        EXPECT_EQ(SERIALCOM_poll_request_success(&lnk), stat == SERIALCOM_RS_SUCCESS) << stat;
    }
    EXPECT_TRUE(SERIALCOM_wait_request_done(&lnk));
    lnk.rq_stat = SERIALCOM_RS_DONE;
    EXPECT_FALSE(SERIALCOM_wait_request_done(&lnk));
    lnk.rq_stat = SERIALCOM_RS_SUCCESS;
    lnk.stat = SERIALCOM_S_UNLINKED;
    EXPECT_FALSE(SERIALCOM_poll_request_success(&lnk));
    EXPECT_TRUE(SERIALCOM_poll_request_done(&lnk));
    EXPECT_FALSE(SERIALCOM_wait_request_done(&lnk));
    lnk.rq_stat = SERIALCOM_RS_SENT;
    EXPECT_FALSE(SERIALCOM_wait_request_done(&lnk));
}

TEST_F(SerialLink, IssuedRequestsArePolled) {
    open();
    SERIALCOM_issue_read_burst(&lnk, 1.0, 0.5);
    EXPECT_EQ(lnk.rq_stat, SERIALCOM_RS_START);
    EXPECT_FALSE(SERIALCOM_poll_request_done(&lnk));
    const SerialRequest request = next();
    EXPECT_EQ(request.timeout, 1.0);
    EXPECT_EQ(request.burst_timeout, 0.5);
    EXPECT_EQ(lnk.rq_stat, SERIALCOM_RS_SENT);
    client->success(bytes_of("burst"));
    EXPECT_TRUE(loop->run_until([&] { return SERIALCOM_poll_request_done(&lnk); }));
    EXPECT_TRUE(SERIALCOM_poll_request_success(&lnk));
    BYTE to[8];
    EXPECT_EQ(SERIALCOM_retrive_request_data(&lnk, to, sizeof to), 5U);
    EXPECT_EQ(SERIALCOM_retrive_request_data(&lnk, to, sizeof to), 5U); // stays until the next
}

TEST_F(SerialLink, SettingTheClockWakesWhoeverWaits) {
    open();
    // The clock is about to be set back by an hour; a deadline of before would be an hour away.
    SERIALCOM_issue_read_burst(&lnk, 1.0, 0.5);
    next();
    std::atomic<bool> woken = false;
    std::thread waiting([&] {
        pthread_mutex_lock(&lnk.mtx);
        timespec far;
        clock_gettime(CLOCK_REALTIME, &far);
        far.tv_sec += 3600;
        EXPECT_EQ(pthread_cond_timedwait(&lnk.req_cond, &lnk.mtx, &far), 0);
        woken = true;
        pthread_mutex_unlock(&lnk.mtx);
    });
    EXPECT_TRUE(loop->run_until([&] {
        pthread_mutex_lock(&lnk.mtx);
        lnk.clock_offset += 3600;
        lnk.last_rx_time += 3600;
        pthread_mutex_unlock(&lnk.mtx);
        return woken.load();
    }));
    waiting.join();
}

// ---- The one buffer of request and response ----

TEST_F(SerialLink, WithoutABufferThereIsNothingToRetrieve) {
    open();
    BYTE to[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(SERIALCOM_retrive_request_data(&lnk, to, sizeof to), k_none); // no request yet
    send(SERIALD_REQUEST_READNEW);
    EXPECT_EQ(SERIALCOM_retrive_request_data(&lnk, to, sizeof to), k_none); // none finished
    client->success();
    settle();
    EXPECT_TRUE(SERIALCOM_wait_request_done(&lnk));
    EXPECT_EQ(SERIALCOM_retrive_request_data(&lnk, to, sizeof to), k_none); // no data ever
    EXPECT_EQ(to[0], 'a');
}

TEST_F(SerialLink, AResponseWithoutDataYieldsAnEmptyString) {
    open();
    send(SERIALD_REQUEST_READUNTIL, "\r");
    client->success();
    settle();
    BYTE to[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(lnk.r_buffer_size, 0U);
    EXPECT_EQ(SERIALCOM_retrive_request_data(&lnk, to, sizeof to), 0U);
    EXPECT_EQ(to[0], '\0');
    EXPECT_EQ(to[1], 'b');
}

TEST_F(SerialLink, TheBufferOnlyGrowsToThePowerOfTwoAboveTheNeed) {
    open();
    issue(SERIALD_REQUEST_WRITE, "abc");
    EXPECT_EQ(lnk.r_buffer_max, 4U);
    EXPECT_EQ(lnk.r_buffer_size, 3U);
    const BYTE *before = lnk.r_buffer;
    issue(SERIALD_REQUEST_WRITE, "abcd"); // fits
    EXPECT_EQ(lnk.r_buffer, before);
    EXPECT_EQ(lnk.r_buffer_max, 4U);
    EXPECT_EQ(lnk.r_buffer_size, 4U);
    issue(SERIALD_REQUEST_WRITE, "abcde");
    EXPECT_EQ(lnk.r_buffer_max, 8U);
    issue(SERIALD_REQUEST_READNEW);
    EXPECT_EQ(lnk.r_buffer_max, 8U);
    EXPECT_EQ(lnk.r_buffer_size, 0U);
    next();
    client->success(Bytes(100, 'r'));
    settle();
    EXPECT_EQ(lnk.r_buffer_max, 128U);
    EXPECT_EQ(lnk.r_buffer_size, 100U);
    send(SERIALD_REQUEST_READNEW);
    client->success(bytes_of("r"));
    settle();
    EXPECT_EQ(lnk.r_buffer_max, 128U);
    EXPECT_EQ(lnk.r_buffer_size, 1U);
}

TEST_F(SerialLink, AFailureEmptiesTheBuffer) {
    open();
    send(SERIALD_REQUEST_WRITE, "abc");
    client->failure(bytes_of("reasons"));
    settle();
    EXPECT_EQ(lnk.rq_stat, SERIALCOM_RS_FAILURE);
    EXPECT_EQ(lnk.r_buffer_size, 0U);
}

TEST_F(SerialLink, APointerWithoutASizeOrASizeWithoutAPointerIsNoData) {
    open();
    SERIALCOM_issue_request(&lnk, SERIALD_REQUEST_WRITE, 0, 0, "abc", 0);
    EXPECT_TRUE(next().data.empty());
    SERIALCOM_issue_request(&lnk, SERIALD_REQUEST_WRITE, 0, 0, nullptr, 3);
    EXPECT_TRUE(next().data.empty());
    EXPECT_EQ(lnk.r_buffer, nullptr);
}

TEST_F(SerialLink, ASecondRequestOverwritesTheFirstAndTakesItsAnswer) {
    open();
    send(SERIALD_REQUEST_READNEW);
    EXPECT_EQ(send(SERIALD_REQUEST_WRITE, "second").data, bytes_of("second"));
    client->success(bytes_of("first's"));
    settle();
    EXPECT_TRUE(SERIALCOM_wait_request_done(&lnk));
    EXPECT_EQ(lnk.rq_header.type, SERIALD_REQUEST_WRITE);
    client->failure(); // the second's own answer comes too late, and counts
    settle();
    EXPECT_FALSE(SERIALCOM_wait_request_done(&lnk));
}

// ---- The dialogue of docs/formats/serial.md ----

struct DialogueStep {
    bool from_client;
    Bytes bytes;
};

// The fenced blocks "client" and "server" of the page, in their order.
std::vector<DialogueStep> documented_dialogue() {
    const std::string page = read_file(source_path("docs/formats/serial.md"));
    std::vector<DialogueStep> steps;
    for (size_t at = page.find("```"); at != std::string::npos; at = page.find("```", at)) {
        const size_t line_end = page.find('\n', at);
        const std::string kind = page.substr(at + 3, line_end - at - 3);
        const size_t end = page.find("```", line_end);
        if (kind == "client" || kind == "server")
            steps.push_back({kind == "client", from_hex(page.substr(line_end, end - line_end))});
        at = end + 3;
    }
    return steps;
}

TEST(SerialcomDialogue, ThePageShowsTheseBytes) {
    Bytes all;
    for (const DialogueStep &step : documented_dialogue())
        all = std::move(all) + step.bytes;
    EXPECT_EQ(all, load_hex("serial_dialogue.frames.hex"));
}

class SerialDialogue : public SerialLink {
  protected:
    // What makes the link send each of the client's records.
    void act(int step) {
        const SERIALD_port_params port = {9600, 8, 0, 1, 0};
        switch (step) {
        case 1:
            return SERIALCOM_issue_request(&lnk, SERIALD_REQUEST_SET_PORT_PARAMS, 0, 0, &port,
                                           sizeof port);
        case 2:
            return SERIALCOM_issue_request(&lnk, SERIALD_REQUEST_WRITE, -1, -1, "RD\r", 3);
        case 3:
            return SERIALCOM_issue_read_until_string(&lnk, "\r", 2.0, -1.0);
        case 4:
            lnk.next_hb_time = UTIL_ftime();
            return;
        case 5:
            return SERIALCOM_issue_read_burst(&lnk, 0.5, 0.25);
        case 6:
            lnk.stat = SERIALCOM_S_NOTIFY_CLOSE;
            return;
        }
    }
};

TEST_F(SerialDialogue, TheLinkSpeaksAsThePageSays) {
    size_t seen = 0;
    int acts = 0;
    std::vector<int> outcomes;
    for (const DialogueStep &step : documented_dialogue()) {
        silence_heartbeats();
        if (!step.from_client) {
            client->send_bytes(step.bytes);
            settle();
            outcomes.push_back(lnk.rq_stat);
            continue;
        }
        act(acts++);
        ASSERT_TRUE(loop->run_until(
            [&] { return client->received_bytes().size() >= seen + step.bytes.size(); }));
        const Bytes &all = client->received_bytes();
        EXPECT_EQ(Bytes(all.begin() + static_cast<long>(seen), all.end()), step.bytes) << acts;
        seen = all.size();
    }
    EXPECT_EQ(acts, 7);
    EXPECT_EQ(outcomes,
              (std::vector<int>{SERIALCOM_RS_NONE, SERIALCOM_RS_SUCCESS, SERIALCOM_RS_SUCCESS,
                                SERIALCOM_RS_SENT, SERIALCOM_RS_SUCCESS, SERIALCOM_RS_FAILURE}));
}

} // namespace

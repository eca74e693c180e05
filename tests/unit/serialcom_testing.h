// serialcom_testing.h - links to a scripted serial server, serviced by the test's own loop or by
// the link's own thread, and what both were sent.
#pragma once

#include "scripted_serial_server.h"
#include "serialcom.h"
#include "util.h"

#include <cstdlib>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace zeb::test {

inline SERIALD_connect_params port_of(const std::string &name) {
    SERIALD_connect_params cp = {};
    strncpy(cp.port_name, name.c_str(), sizeof cp.port_name);
    return cp;
}

inline Bytes bytes_of(const std::string &text) {
    return Bytes(text.begin(), text.end());
}

inline const Bytes &heartbeat_frame() {
    static const Bytes frame = from_hex("\"2BEZ\" 01 01  14 00 00 00  00 00 00 00"
                                        "00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00");
    return frame;
}

// A stream of whole frames without its heartbeats, which come when a second has passed.
inline Bytes without_heartbeats(const Bytes &stream) {
    Bytes result;
    for (size_t at = 0, size = 0; at + 10 <= stream.size(); at += size) {
        size = 10 + (stream[at + 6] | stream[at + 7] << 8 | stream[at + 8] << 16);
        const auto start = stream.begin() + static_cast<long>(at);
        const Bytes frame(start, start + static_cast<long>(std::min(size, stream.size() - at)));
        if (frame != heartbeat_frame())
            result.insert(result.end(), frame.begin(), frame.end());
    }
    return result;
}

// A link that the test's own loop services, connected, nothing sent yet.
class SerialLink : public testing::Test {
  protected:
    void SetUp() override {
        SERIALD_connect_params cp = port_of("ttyS0");
        ASSERT_TRUE(SERIALCOM_multi_connect(&cp, &lnk));
        client = &server.accept();
        loop.emplace(std::vector<SERIALCOM_link *>{&lnk});
    }
    void TearDown() override { SERIALCOM_multi_destroy(&lnk); }

    // Cycles until the handshake is out.
    void introduce() {
        ASSERT_TRUE(loop->run_until([&] { return client->received_bytes().size() == 266; }));
        ASSERT_EQ(client->wait_handshake(), "ttyS0");
    }
    void open() {
        introduce();
        client->success();
        ASSERT_TRUE(loop->run_until([&] { return lnk.stat == SERIALCOM_S_OPEN; }));
        silence_heartbeats();
    }
    // For tests that count what is sent.
    void silence_heartbeats() { lnk.next_hb_time = UTIL_ftime() + 1e6; }
    void issue(SERIALD_REQUEST_TYPE type, const std::string &data = "") {
        SERIALCOM_issue_request(&lnk, type, 0, 0, data.data(), data.size());
    }
    // Issues a request and cycles until the server has it.
    SerialRequest send(SERIALD_REQUEST_TYPE type, const std::string &data = "") {
        issue(type, data);
        return next();
    }
    // What the client sends next; cycles until it is there.
    SerialRequest next() {
        std::optional<SerialRequest> request;
        EXPECT_TRUE(loop->run_until([&] { return (request = client->next()).has_value(); }));
        return request.value_or(SerialRequest{});
    }
    // Cycles until every byte the server sent has been received.
    void settle() {
        client->send_bytes(wire_frame({0xEE}));
        const std::string mark = "Serial server reply to small: 1 ";
        const std::string before = err.text();
        ASSERT_TRUE(loop->run_until(
            [&] { return err.text().find(mark, before.size()) != std::string::npos; }));
    }
    bool pre_select() {
        return SERIALCOM_dispatch_pre_select(&lnk, &loop->rx, &loop->tx, &loop->fd_max);
    }
    bool wants_to_write() {
        pre_select();
        return FD_ISSET(lnk.fh, &loop->tx);
    }
    void expect_lost(const std::string &text) {
        const int fh = lnk.fh;
        EXPECT_TRUE(loop->run_until_lost());
        EXPECT_EQ(lnk.fh, -1);
        EXPECT_EQ(lnk.clear_fh, fh);
        EXPECT_EQ(lnk.stat, SERIALCOM_S_UNLINKED);
        EXPECT_FALSE(FD_ISSET(fh, &loop->rx));
        EXPECT_FALSE(FD_ISSET(fh, &loop->tx));
        EXPECT_THAT(err.text(), testing::HasSubstr(text));
    }

    StderrCapture err;
    ScriptedSerialServer server;
    SERIALCOM_link lnk = {};
    SerialClient *client = nullptr;
    std::optional<SerialHookLoop> loop;
};

// A link with its own thread, whose requests a responder answers.
class SerialThread : public testing::Test {
  protected:
    void SetUp() override {
        SERIALD_connect_params cp = port_of("ttyS0");
        ASSERT_TRUE(SERIALCOM_connect(&cp, &lnk));
        client = &server.accept();
    }
    void TearDown() override {
        SERIALCOM_disconnect(&lnk);
        responder.reset();
        // What a link leaves behind that was lost before it was disconnected.
        if (lnk.thd != nullptr)
            pthread_join(*lnk.thd, nullptr);
        free(lnk.thd);
        lnk.thd = nullptr;
    }

    void open() {
        ASSERT_EQ(client->wait_handshake(), "ttyS0");
        client->success();
        ASSERT_TRUE(SERIALCOM_wait_connected(&lnk));
    }
    void answer(SerialResponder::Answer with) { responder.emplace(*client, std::move(with)); }
    void answer_all(const std::string &data = "") {
        answer([data](SerialClient &c, const SerialRequest &) { c.success(bytes_of(data)); });
    }
    template <typename T> T locked(const std::function<T()> &look) {
        pthread_mutex_lock(&lnk.mtx);
        const T value = look();
        pthread_mutex_unlock(&lnk.mtx);
        return value;
    }
    bool wait_for(SERIALCOM_LINK_STATUS stat) {
        return wait_until(
            [&] { return locked<SERIALCOM_LINK_STATUS>([&] { return lnk.stat; }) == stat; });
    }

    StderrCapture err;
    ScriptedSerialServer server;
    SERIALCOM_link lnk = {};
    SerialClient *client = nullptr;
    std::optional<SerialResponder> responder;
};

} // namespace zeb::test

// io_testing.h - what the tests of shared variables have in common: the tables, a link to a
// scripted server, and the messages as bytes.
#pragma once

#include "io_int.h"
#include "packets.h"
#include "scripted_server.h"
#include "support.h"

#include <algorithm>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <utility>

namespace zeb::test {

// ---- Messages as they pass on the wire ----

inline std::string f64(double value) {
    std::string bytes(sizeof value, '\0');
    memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

using Channels = std::vector<std::pair<std::string, double>>;

inline std::string real_package(const std::string &name, double value) {
    return package("NET_IO_Real", {field("name", 28, text16(name)), field("val", 12, f64(value))});
}

inline std::string set_real_message(const std::string &name, double value, unsigned flags,
                                    const std::string &dest, const std::string &src) {
    return packed(flags, "MSG_IO_SET_REAL", dest, src, "NET_IO_Real", real_package(name, value));
}

// A record of 64 channels, those beyond the given ones without names and missing.
inline std::string reals_message(const char *message, Channels channels, unsigned n, FTIME time,
                                 unsigned flags, const std::string &src) {
    channels.resize(64, {"", MVC});
    std::string described, memory;
    for (const auto &[name, value] : channels) {
        const std::string one = real_package(name, value);
        described += u32(one.size()) + one;
        memory += padded(name, 32) + f64(value);
    }
    return packed(flags, message, "", src, "NET_IO_MultiReal",
                  package("NET_IO_MultiReal",
                          {field("chans", 29, u16(64) + "\x01" + u32(40) + described + memory),
                           field("curtime", 11, f64(time)), field("n", 6, u32(n))}));
}

inline std::string digital_names(std::vector<std::string> names) {
    names.resize(32);
    std::string described, memory;
    for (const std::string &name : names) {
        const std::string one = package("NET_IO_DigitalInfo", {field("name", 28, text16(name))});
        described += u32(one.size()) + one;
        memory += padded(name, 32);
    }
    return field("info", 29, u16(32) + "\x01" + u32(32) + described + memory);
}

inline std::string set_digital_message(const std::vector<std::string> &names, unsigned val,
                                       unsigned mask, unsigned flags, const std::string &dest) {
    return packed(flags, "MSG_IO_SET_DIGITAL", dest, "", "NET_IO_DigitalOut",
                  package("NET_IO_DigitalOut", {digital_names(names), field("mask", 6, u32(mask)),
                                                field("val", 6, u32(val))}));
}

inline std::string state_digital_message(const std::vector<std::string> &names, unsigned val,
                                         const std::string &src) {
    return packed(1, "MSG_IO_STATE_DIGITAL", "", src, "NET_IO_DigitalIn",
                  package("NET_IO_DigitalIn", {digital_names(names), field("val", 6, u32(val))}));
}

// ---- Fixtures ----

class IoTables : public testing::Test {
  protected:
    IoTables() { IO_init(); }
    ~IoTables() override { IO_cleanup(); }
    size_t lines_with(const std::string &text) const {
        const std::string all = err.text();
        size_t lines = 0;
        for (size_t at = 0; (at = all.find(text, at)) != std::string::npos; ++at)
            ++lines;
        return lines;
    }
    StderrCapture err;
};

// An open link to a scripted server, serviced by the test.
class IoLink : public IoTables {
  protected:
    void SetUp() override {
        ZEBMSG_connect_params params = {"daemon", nullptr};
        ASSERT_TRUE(ZEBMSG_multi_connect(&params, &lnk));
        ASSERT_TRUE(server.accept());
        loop.emplace(&lnk);
        server.handshake(1);
        ASSERT_TRUE(loop->run_until([this] { return lnk.stat == ZEBMSG_S_OPEN; }));
        sent();
        IO_register_link(&lnk);
    }
    void TearDown() override { ZEBMSG_multi_destroy(&lnk); }

    // Delivers a packed message to the library.
    void receive(const std::string &payload) {
        const std::string frame = framed(payload);
        server.send_bytes(Bytes(frame.begin(), frame.end()));
        deliver();
    }
    void deliver() {
        ASSERT_TRUE(loop->run_until([this] { return lnk.rx_lib_queue.count > 0; }));
        ZEBMSG_process_messages(&lnk, nullptr, nullptr);
    }
    void receive_terminate(const std::string &src) {
        server.send(MSG_NOTIFY_CLIENT_TERMINATE, src);
        deliver();
    }
    // Delivers a record that the library's own sender would not write.
    void receive_reals(NETMSG_type type, const std::string &src, const NET_IO_MultiReal &record) {
        server.send(type, src, &record, sizeof record, "NET_IO_MultiReal", 1);
        deliver();
    }

    // Serves the link until all has left, while the server reads.
    void flush() {
        EXPECT_TRUE(loop->run_until([this] {
            server.received_bytes();
            return lnk.tx_queue.count == 0 && lnk.tx_buff_size == 0 &&
                   !NETMSG_buffer_pending(&lnk.tx_stream);
        }));
    }
    // What has left for the server since the last call, as messages ...
    std::vector<ServerMessage> sent() {
        flush();
        seen = server.received_bytes().size();
        std::vector<ServerMessage> messages;
        while (auto message = server.next())
            messages.push_back(*message);
        return messages;
    }
    // ... and as bytes: whether they are the frames of these packed messages.
    testing::AssertionResult sent_is(const std::vector<std::string> &payloads) {
        const size_t before = seen;
        sent();
        const Bytes &all = server.received_bytes();
        const std::string fresh(all.begin() + static_cast<ptrdiff_t>(before), all.end());
        std::string expected;
        for (const std::string &payload : payloads)
            expected += framed(payload);
        if (fresh == expected)
            return testing::AssertionSuccess();
        const auto [at, _] =
            std::mismatch(fresh.begin(), fresh.end(), expected.begin(), expected.end());
        return testing::AssertionFailure()
               << fresh.size() << " bytes, " << expected.size() << " expected, differing from byte "
               << at - fresh.begin();
    }

    ScopedEnv no_server{"ZEB2SERVER", nullptr};
    ScriptedServer server;
    ZEBMSG_link lnk = {};
    std::optional<HookLoop> loop;
    size_t seen = 0;
};

// A tree of channels, each a name and the texts of its keys "chan" and "cal" (null: not set).
struct Channel {
    const char *name, *chan, *cal;
};

class ChannelTree {
  public:
    ChannelTree(std::initializer_list<Channel> channels) {
        for (const Channel &channel : channels)
            add(channel);
    }
    ~ChannelTree() { CONF_free(root_); }
    void add(const Channel &channel) {
        if (channel.chan == nullptr && channel.cal == nullptr)
            CONF_set(root_, channel.name, nullptr);
        if (channel.chan != nullptr)
            CONF_set_va(root_, channel.chan, channel.name, "chan", nullptr);
        if (channel.cal != nullptr)
            CONF_set_va(root_, channel.cal, channel.name, "cal", nullptr);
    }
    CONF_node *get() { return root_; }
    ChannelTree(const ChannelTree &) = delete;
    ChannelTree &operator=(const ChannelTree &) = delete;

  private:
    CONF_node *root_ = CONF_alloc();
};

} // namespace zeb::test

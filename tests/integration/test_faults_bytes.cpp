// Faults: bytes that are cut, damaged, or far too many.

#include "faults.h"
#include "flow_station.h"
#include "terminal.h"
#include "zebmsgd_peer.h"

#include <gmock/gmock.h>
#include <random>
#include <sys/stat.h>

using namespace zeb::test;
using testing::HasSubstr;

namespace {

constexpr size_t k_modest_kib = 100 * 1024;

// A program that was built with a sanitizer keeps what it frees.
void expect_modest(const Process &process) {
    if (!is_sanitized()) {
        EXPECT_LT(resident_kib(process.pid()), k_modest_kib);
    }
}

class FaultBytes : public Zebmsgd {
  protected:
    std::mt19937 random_{20};
    size_t up_to(size_t most) { return std::uniform_int_distribution<size_t>(0, most)(random_); }
};

TEST_F(FaultBytes, MessagesCutAnywhereArriveWholeAndInOrder) {
    start();
    Wire a = client("a");
    Wire b = client_seen_by(a, "b");
    std::string stream;
    for (size_t i = 0; i < 500; ++i)
        stream +=
            framed(packed(1, "MSG_" + std::to_string(i), "", "", "R", std::string(up_to(60), 'x')));
    for (size_t at = 0, size; at < stream.size(); at += size) {
        size = 1 + up_to(30);
        ASSERT_TRUE(b.send_raw(std::string_view(stream).substr(at, size)));
    }
    for (size_t i = 0; i < 500; ++i)
        ASSERT_EQ(a.next_name(), "MSG_" + std::to_string(i) + " from b");
}

TEST_F(FaultBytes, DamagedStreamsHurtNobodyElse) {
    start();
    Wire a = client("a");
    for (int round = 0; round < 100; ++round) {
        Wire b = raw();
        std::string stream = framed(handshake("b"));
        for (int i = 0; i < 50; ++i)
            stream += framed(packed(static_cast<unsigned>(up_to(3)), "MSG_X", up_to(1) ? "a" : "",
                                    "", "R", "12345"));
        for (int i = 0; i < 5; ++i)
            stream[up_to(stream.size() - 1)] = static_cast<char>(up_to(255));
        b.send_raw(stream);
    }
    Wire c = client("c");
    std::string heard;
    while (heard != "MSG_NOTIFY_CLIENT_CONNECT from c" && heard != "end")
        heard = a.next_name();
    c.send(packed(1, "MSG_AFTER"));
    while (heard != "MSG_AFTER from c" && heard != "end")
        heard = a.next_name();
    EXPECT_EQ(heard, "MSG_AFTER from c");
    expect_modest(*server);
}

class FaultFloods : public Flow {
  protected:
    FaultFloods() : flooder_(connect_local(dir_ / ".mainsocket")) {}
    // A client that reads nothing it need not.
    void enter() {
        flooder_.send(handshake("flooder"));
        ASSERT_EQ(flooder_.next_name(), "MSG_SERVER_SERVERHANDSHAKE");
    }
    std::unique_ptr<Process> waypoint() {
        auto daemon = run({"waypoint"});
        EXPECT_TRUE(wait_for_daemons(1));
        return daemon;
    }
    static void stop(Process &daemon) {
        daemon.signal(SIGTERM);
        EXPECT_EQ(daemon.wait(), 0) << daemon.errors();
    }
    Wire flooder_;
};

// A daemon that cannot follow is cut off when its queue is full, and started again by its launcher.
TEST_F(FaultFloods, AFloodOfMessagesIsBorneOrEndsTheLink) {
    ASSERT_TRUE(ready_);
    const auto daemon = waypoint();
    enter();
    const std::string big = packed(1, "MSG_GPS_INSTANT", "", "", "R", std::string(10000, 'x'));
    const std::string small = packed(1, "MSG_LOG_FLUSH");
    for (int i = 0; i < 3000; ++i) {
        ASSERT_TRUE(flooder_.send(big));
        for (int j = 0; j < 10; ++j)
            ASSERT_TRUE(flooder_.send(small));
    }
    expect_modest(*server_);
    flooder_.hang_up();
    EXPECT_TRUE(wait_until([&] { return !daemon->running() || clients().size() == 1; }));
    if (daemon->running()) {
        expect_modest(*daemon);
        stop(*daemon);
    } else {
        EXPECT_EQ(daemon->wait(), 1);
        EXPECT_TRUE(says(*server_, "it does not read and its queue is full"));
    }
    const auto next = waypoint();
    stop(*next);
}

TEST_F(FaultFloods, RecordsOfRandomBytesAreBorneByDaemons) {
    ASSERT_TRUE(ready_);
    const auto instrument = pump();
    const auto flow = run({"flow"});
    const auto conductor = run({"zeblogd"});
    const auto other = run({"waypoint"});
    ASSERT_TRUE(wait_for_daemons(3));
    enter();
    static const char *const k_kinds[][2] = {
        {"MSG_GPS_INSTANT", "NET_GPS_Fixinfo"},
        {"MSG_GENERICPID_SET", "NET_GENERICPID_Setpoint"},
        {"MSG_LOG_NEW_AVERAGE", "NET_LOG_NewAverage"},
        {"MSG_LOG_MONITOR", "NET_LOG_MonitorMessage"},
        {"MSG_SERVER_INSTRUMENTINFO", "NET_SERVER_InstrumentInfo"},
        {"MSG_LOG_SET_INTERVAL_MON", "NET_LOG_SetInterval"},
        {"MSG_IO_INPUT_REAL", "NET_IO_RealIn"}};
    std::mt19937 random(21);
    for (int i = 0; i < 3000; ++i) {
        const auto &kind = k_kinds[random() % std::size(k_kinds)];
        std::string bytes(random() % 300, '\0');
        for (char &byte : bytes)
            byte = static_cast<char>(random() % 4 == 0 ? random() : random() % 8);
        if (random() % 2 == 0) // a package with a beginning that is good
            bytes = "\x01" + text16(kind[1]) + u16(random() % 5) + bytes;
        ASSERT_TRUE(flooder_.send(
            packed(static_cast<unsigned>(random() % 4), kind[0], "", "", kind[1], bytes)));
    }
    flooder_.hang_up();
    EXPECT_TRUE(wait_for_clients(3));
    for (Process *daemon : {flow.get(), conductor.get(), other.get()})
        EXPECT_TRUE(daemon->running()) << daemon->errors();
    EXPECT_EQ(watch("MSG_TSITMF_INSTANT", 3).size(), 3u);
    for (Process *daemon : {flow.get(), conductor.get(), other.get()})
        stop(*daemon);
}

TEST_F(FaultFloods, ALineThatBabblesIsBorneByPortServerAndDaemon) {
    ASSERT_TRUE(ready_);
    Terminal line;
    ASSERT_EQ(symlink(line.path().c_str(), (dir_ / "receiver").c_str()), 0);
    const auto daemon = run({"gps"});
    ASSERT_TRUE(wait_for_daemons(1));
    std::mt19937 random(22);
    std::string block(4096, '\0');
    for (int i = 0; i < 1000; ++i) {
        for (char &byte : block)
            byte = static_cast<char>(random());
        line.send(block);
    }
    const auto watch = run({"zebctl", "watch", "--json", "--type", "MSG_GPS_INSTANT", "--count", "1"});
    EXPECT_TRUE(wait_until([&] {
        line.send("\r\n$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47\r\n"
                  "$GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W*6A\r\n");
        // A fix is whole when nothing follows for a while.
        return wait_until([&] { return !daemon->running() || !watch->running(); }, 1);
    }));
    EXPECT_EQ(lines_of(watch->output()).size(), 1u);
    EXPECT_TRUE(daemon->running()) << daemon->errors();
    expect_modest(*daemon);
    expect_modest(*serial_);
    stop(*daemon);
}

} // namespace

// What a serial-port server must survive: bad records, clients that do not read or say nothing,
// many of them, signals.

#include "zebseriald_peer.h"

#include <cmath>
#include <csignal>
#include <gmock/gmock.h>
#include <list>
#include <sys/resource.h>
#include <sys/stat.h>

using namespace zeb::test;
using testing::HasSubstr;

namespace {

TEST_F(Zebseriald, ARecordOfAnyLengthIsAnsweredWithFailureAndFewLines) {
    start();
    Peer peer = opened();
    for (size_t length = 0; length < 20; ++length) {
        peer.send(std::string(length, '\2'));
        EXPECT_EQ(peer.answer(), "failure") << length;
    }
    for (const unsigned type : {15u, 16u, 255u, 0x80000000u, 0xffffffffu})
        EXPECT_EQ(peer.ask({type, NAN, NAN, std::string(1000, 'x')}), "failure") << type;
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(peer.ask({77}), "failure");
    EXPECT_EQ(peer.ask({k_read_new, 0, 0, std::string(100000, 'x')}), "success");
    EXPECT_LE(count_lines("\n"), 31);
}

TEST_F(Zebseriald, RecordsWithTheWrongDataFail) {
    start();
    Peer peer = opened();
    for (const unsigned type :
         {k_set_port_params, k_set_int_params, k_add_repeater, k_del_repeater})
        for (const size_t length : {0u, 1u, 7u, 11u, 13u, 255u, 257u, 259u, 100000u})
            EXPECT_EQ(peer.ask({type, 0, 0, std::string(length, '\0')}), "failure") << type;
    EXPECT_EQ(peer.ask({k_del_repeater, 0, 0, std::string(256, 'x')}), "failure");
    EXPECT_EQ(peer.ask({k_heartbeat, NAN, HUGE_VAL, "with data"}), "heartbeat");
}

TEST_F(Zebseriald, EveryRequestWithRandomBytesIsAnswered) {
    start();
    Peer peer = opened();
    unsigned seed = 1;
    const auto random = [&] { return seed = seed * 1664525 + 1013904223, seed >> 16; };
    for (int i = 0; i < 2000; ++i) {
        Ask ask{2 + random() % 16, 0, 0, ""};
        if (ask.type == k_write || ask.type == k_blocking_write)
            continue; // nobody takes it off the terminal
        for (unsigned n = random() % 300; n > 0; --n)
            ask.data += static_cast<char>(random());
        EXPECT_THAT(peer.ask(ask), testing::AnyOf("success", "failure")) << ask.type;
    }
}

TEST_F(Zebseriald, AStreamOfGarbageIsSkipped) {
    start();
    Peer peer = opened();
    std::string garbage;
    for (int i = 0; i < 50000; ++i)
        garbage += static_cast<char>(i * 37);
    peer.send_raw(garbage + "2BEZ\x01\x01" + std::string("\xff\xff\x0f\0", 4));
    EXPECT_EQ(peer.ask({k_read_new}), "success");
    EXPECT_EQ(count_lines("sends bytes that are no packet"), 1);
}

TEST_F(Zebseriald, APacketMayComeByteByByte) {
    start();
    Peer peer = opened();
    for (const char c : framed(record_of({k_write, -1, -1, "slowly"})))
        peer.send_raw({&c, 1});
    EXPECT_EQ(peer.answer(), "success");
    EXPECT_EQ(terminal.receive(6), "slowly");
}

TEST_F(Zebseriald, HalfAPacketAndTheEndHarmNobody) {
    start();
    Peer other = opened();
    for (const size_t cut : {1u, 9u, 10u, 20u, 29u, 34u}) {
        Peer peer = opened();
        peer.send_raw(framed(record_of({k_write, -1, -1, "never"})).substr(0, cut));
    }
    EXPECT_EQ(other.ask({k_read_new_echo}), "success");
    EXPECT_FALSE(terminal.has_input());
}

TEST_F(Zebseriald, TheLongestRecordIsTaken) {
    start();
    Peer peer = opened();
    const std::string block(0xFFFFE - 20, 'x');
    EXPECT_EQ(peer.ask({k_write, -1, -1, block}), "success");
    EXPECT_EQ(terminal.receive(block.size()), block);
}

TEST_F(Zebseriald, TheLongestAnswerIsGiven) {
    start(port("A", terminal.path()) + "Port;A;MaxBuffer,1048570\n");
    Peer peer = opened("=A");
    Peer mover = opened("=A");
    const std::string block(4096, 'x');
    size_t sent = 0;
    while (sent < 1100000) { // the server takes it off the terminal whoever reads
        terminal.send(block);
        sent += block.size();
    }
    terminal.send("\n");
    EXPECT_TRUE(wait_until([&] { return mover.ask({k_read_until, 1, -1, "\n"}) != "failure"; }));
    EXPECT_EQ(peer.ask({k_read_new}), "success " + std::string(1048569, 'x') + "\n");
}

TEST_F(Zebseriald, AClientThatNeverReadsIsDroppedAndTheOthersGoOn) {
    start("Serial;Limit;QueueBytes,2097152\n");
    Peer other = opened();
    Peer deaf = opened();
    const std::string beat = framed(record_of({k_heartbeat}));
    std::string many;
    for (int i = 0; i < 1000; ++i)
        many += beat;
    while (deaf.send_raw(many))
        ;
    EXPECT_TRUE(says("it does not read its answers"));
    EXPECT_EQ(other.ask({k_read_new}), "success");
}

TEST_F(Zebseriald, AClientThatSendsMoreRequestsThanItWaitsForIsDropped) {
    start("Serial;Limit;Requests,10\n");
    Peer peer = opened();
    for (int i = 0; i < 12; ++i)
        peer.request({k_read_until, -1, -1, "\n"});
    EXPECT_TRUE(peer.sees_end());
    EXPECT_TRUE(says("it sends more requests than it waits for"));
}

TEST_F(Zebseriald, ASilentClientIsDroppedAndOneThatBeatsIsNot) {
    start("Serial;Heartbeat;Timeout,0.3\n");
    Peer silent = opened();
    Peer alive = opened();
    alive.request({k_read_until, -1, -1, "\n"});
    bool dropped = false;
    EXPECT_TRUE(wait_until([&] {
        EXPECT_EQ(alive.ask({k_heartbeat}), "heartbeat");
        pollfd wait{silent.fd(), POLLIN, 0};
        dropped = poll(&wait, 1, 10) > 0;
        return dropped;
    }));
    EXPECT_TRUE(silent.sees_end());
    EXPECT_TRUE(says("it is silent"));
    terminal.send("x\n");
    EXPECT_EQ(alive.answer(), "success x\n");
}

TEST_F(Zebseriald, AClientWhoseLongRequestComesSlowlyIsNotSilent) {
    start("Serial;Heartbeat;Timeout,0.5\n");
    Peer slow = opened();
    Peer silent = opened();
    const std::string block(10000, 'x');
    const std::string packet = framed(record_of({k_write, -1, -1, block}));
    size_t sent = 0;
    EXPECT_TRUE(wait_until([&] {
        slow.send_raw(packet.substr(sent++, 1));
        pollfd wait{silent.fd(), POLLIN, 0};
        return poll(&wait, 1, 10) > 0;
    }));
    EXPECT_TRUE(silent.sees_end());
    EXPECT_TRUE(slow.send_raw(packet.substr(sent)));
    EXPECT_EQ(slow.answer(), "success");
    EXPECT_EQ(terminal.receive(block.size()).size(), block.size());
}

TEST_F(Zebseriald, AHandshakeThatComesSlowlyIsStillTooLate) {
    start("Serial;Handshake;Timeout,0.3\n");
    Peer peer = connect();
    const std::string packet = framed(padded("=" + terminal.path(), 256));
    size_t sent = 0;
    EXPECT_TRUE(wait_until([&] {
        peer.send_raw(packet.substr(std::min(sent++, packet.size() - 2), 1));
        pollfd wait{peer.fd(), POLLIN, 0};
        return poll(&wait, 1, 10) > 0;
    }));
    EXPECT_TRUE(peer.sees_end());
    EXPECT_TRUE(says("it made no handshake in time"));
}

TEST_F(Zebseriald, ClosingTheLinkEndsWhatWaitsAndTheLink) {
    start();
    Peer peer = opened();
    Peer other = opened();
    EXPECT_EQ(peer.ask(settings(0, 0, true)), "success");
    peer.request({k_read_until, -1, -1, "\n"});
    peer.request({k_write, -1, -1, "never"});
    peer.request({k_close});
    EXPECT_TRUE(wait_until([&] { return other.ask({k_read_new}) == "success"; }));
    peer.request({k_write, -1, -1, "too late"});
    EXPECT_EQ(peer.answer(), "end");
    EXPECT_FALSE(terminal.has_input());
}

TEST_F(Zebseriald, AClientThatGoesWhileItsRequestWaitsIsForgotten) {
    start();
    Peer other = opened();
    for (int i = 0; i < 50; ++i) {
        Peer peer = opened();
        peer.request({k_read_until, -1, -1, "\n"});
        peer.request({k_write, -1, -1, "never"});
    }
    terminal.send("x\n");
    EXPECT_EQ(other.ask({k_read_until, 20, -1, "\n"}), "success x\n");
}

TEST_F(Zebseriald, MoreClientsThanAllowedAreRefused) {
    start("Serial;Limit;Clients,1\n");
    std::list<Peer> peers;
    for (int i = 0; i < 40; ++i)
        peers.push_back(connect());
    EXPECT_TRUE(says("too many connections"));
    peers.clear();
    std::optional<Peer> only;
    EXPECT_TRUE(wait_until([&] {
        only.emplace(open("=" + terminal.path()));
        return only->answer() == "success";
    }));
    EXPECT_EQ(open("=" + terminal.path()).answer(), "failure");
    EXPECT_TRUE(says("too many clients are connected"));
}

TEST_F(Zebseriald, ElevenHundredClientsAreServed) {
    constexpr rlim_t k_wanted = 1300;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_max < k_wanted)
        GTEST_SKIP() << "only " << limit.rlim_max << " descriptors";
    const rlimit before = limit;
    limit.rlim_cur = std::max(limit.rlim_cur, k_wanted);
    setrlimit(RLIMIT_NOFILE, &limit);
    start("Serial;Limit;Clients,1100\n");
    {
        std::list<Peer> peers;
        for (int i = 0; i < 1100; ++i)
            peers.push_back(opened());
        for (Peer &peer : peers)
            peer.request({k_read_until, -1, -1, "\n"});
        EXPECT_EQ(peers.back().ask({k_heartbeat}), "heartbeat");
        terminal.send("line\n");
        for (Peer &peer : peers)
            EXPECT_EQ(peer.answer(), "success line\n");
    }
    setrlimit(RLIMIT_NOFILE, &before);
}

TEST_F(Zebseriald, WithoutDescriptorsNewConnectionsWait) {
    start("", 24);
    std::list<Peer> peers;
    for (int i = 0; i < 40; ++i)
        peers.push_back(connect());
    EXPECT_TRUE(says("cannot accept connections for now"));
    Peer last = std::move(peers.back());
    peers.clear();
    last.send(padded("=" + terminal.path(), 256));
    EXPECT_EQ(last.answer(), "success");
}

TEST_F(Zebseriald, StopsOnASignalAndTakesItsSocketAway) {
    for (const int number : {SIGTERM, SIGINT}) {
        start();
        Peer peer = opened();
        peer.request({k_read_until, -1, -1, "\n"});
        EXPECT_EQ(peer.ask({k_heartbeat}), "heartbeat");
        server->signal(number);
        EXPECT_EQ(peer.answer(), "end");
        EXPECT_EQ(server->wait(), 0);
        struct stat info;
        EXPECT_NE(lstat(socket_path().c_str(), &info), 0);
    }
}

TEST_F(Zebseriald, StopsAlthoughTheLineTakesNothing) {
    start();
    Peer peer = opened();
    EXPECT_EQ(peer.ask({k_write, -1, -1, std::string(300000, 'x')}), "success");
    server->signal(SIGTERM);
    EXPECT_EQ(server->wait(), 0);
}

TEST_F(Zebseriald, ReplacesAStaleSocketAndLeavesALiveOne) {
    start();
    server->signal(SIGKILL);
    server->wait();
    start();
    Process second(dir.path(), {built_path("bin/zebseriald"), "--config", dir / "zeb.conf"},
                   {{{"ZEB2RUN", dir.path()}}, 0});
    EXPECT_EQ(second.wait(), 1);
    EXPECT_THAT(second.errors(), HasSubstr("already listening"));
    EXPECT_EQ(open("=" + terminal.path()).answer(), "success");
}

TEST_F(Zebseriald, TheSocketHasTheConfiguredMode) {
    start("Serial;Socket;Mode,600\n");
    struct stat info {};
    ASSERT_EQ(stat(socket_path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
}

TEST_F(Zebseriald, ABadConfigurationIsAFailureAndABadCommandLineAnotherOne) {
    write_file(dir / "zeb.conf", "Port;A;Baud,1\n");
    Process bad(dir.path(), {built_path("bin/zebseriald"), "--config", dir / "zeb.conf"}, {});
    EXPECT_EQ(bad.wait(), 1);
    EXPECT_THAT(bad.errors(), HasSubstr("Port;A;Device"));
    Process wrong(dir.path(), {built_path("bin/zebseriald"), "--wrong"}, {});
    EXPECT_EQ(wrong.wait(), 2);
    Process version(dir.path(), {built_path("bin/zebseriald"), "--version"}, {});
    EXPECT_EQ(version.wait(), 0);
    EXPECT_THAT(version.output(), HasSubstr("zebseriald "));
    Process help(dir.path(), {built_path("bin/zebseriald"), "--help"}, {});
    EXPECT_EQ(help.wait(), 0);
}

TEST_F(Zebseriald, TellsItsLauncherThatItIsReady) {
    write_file(dir / "zeb.conf", "");
    server.emplace(dir.path(),
                   std::vector<std::string>{built_path("bin/zebseriald"), "-c", dir / "zeb.conf"},
                   Process::Options{{{"ZEB2RUN", dir.path()}, {"ZEB2STARTUP", "T"}}, 0});
    EXPECT_TRUE(wait_until([&] { return server->output() == "STARTUP OKAY\n"; }));
    server->signal(SIGTERM);
    EXPECT_EQ(server->wait(), 0);
}

} // namespace

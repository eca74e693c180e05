// The real serial-port server in a private run directory, on pseudo terminals, talked to by peers
// that write and read the bytes themselves.

#include "zebseriald_peer.h"

#include <cmath>
#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <termios.h>

using namespace zeb::test;
using testing::HasSubstr;
using testing::Not;

namespace {

// --- the handshake -----------------------------------------------------------------------------

TEST_F(Zebseriald, AConfiguredPortIsFoundByItsNameInAnyCase) {
    start(port("GPS", terminal.path()));
    EXPECT_EQ(open("=GPS").answer(), "success");
    EXPECT_EQ(open("=gps").answer(), "success");
}

TEST_F(Zebseriald, ADeviceIsFoundByItsPathAndByItsNameUnderDev) {
    start();
    EXPECT_EQ(open("=" + terminal.path()).answer(), "success");
    EXPECT_EQ(open(terminal.path().substr(strlen("/dev/"))).answer(), "success");
}

TEST_F(Zebseriald, WhatIsNoTerminalIsRefusedWithALine) {
    write_file(dir / "file", "");
    start();
    const std::pair<std::string, std::string> cases[] = {
        {"=" + (dir / "file"), "it is a regular file"},
        {"=" + dir.path(), "it is a directory"},
        {"null", "it is no terminal"},
        {"=/dev/ptmx", "it is no terminal"},
        {"=/dev/../dev/tty", "it leads upwards"},
        {"../etc/passwd", "it leads upwards"},
        {"no-such-device", "No such file or directory"},
        {"=" + (dir / "nothing"), "No such file or directory"},
        {"=nobody", "the configuration has no such port"},
        {"", "it is empty"},
        {"=", "the configuration has no such port"}};
    for (const auto &[name, why] : cases) {
        Peer peer = open(name);
        EXPECT_EQ(peer.answer(), "failure") << name;
        EXPECT_TRUE(peer.sees_end()) << name;
        EXPECT_TRUE(says("refused: " + why)) << name << server->errors();
    }
}

TEST_F(Zebseriald, AConfiguredDeviceThatIsNoTerminalIsRefused) {
    write_file(dir / "file", "");
    start(port("A", dir / "file"));
    EXPECT_EQ(open("=A").answer(), "failure");
}

TEST_F(Zebseriald, ADeviceWithoutPermissionIsRefusedUnlessItIsConfigured) {
    if (geteuid() == 0)
        GTEST_SKIP() << "root may open everything";
    chmod(terminal.path().c_str(), 0);
    start(port("A", terminal.path()));
    EXPECT_EQ(open("=" + terminal.path()).answer(), "success"); // it is the configured one
    EXPECT_TRUE(says("Permission denied"));
    Terminal other;
    chmod(other.path().c_str(), 0);
    EXPECT_EQ(open("=" + other.path()).answer(), "failure");
}

TEST_F(Zebseriald, AHandshakeOfAnotherSizeOrWithoutAnEndIsRefused) {
    start();
    for (const std::string &record :
         {std::string(), std::string("=GPS"), std::string(255, '\0'), std::string(257, '\0'),
          std::string(256, 'x'), std::string(100000, '\0')}) {
        Peer peer = connect();
        peer.send(record);
        EXPECT_EQ(peer.answer(), "failure") << record.size();
        EXPECT_TRUE(peer.sees_end());
    }
}

TEST_F(Zebseriald, AConnectionWithoutHandshakeIsDropped) {
    start("Serial;Handshake;Timeout,0.05\n");
    Peer peer = connect();
    EXPECT_TRUE(peer.sees_end());
    EXPECT_TRUE(says("it made no handshake in time"));
}

TEST_F(Zebseriald, TheLineHasTheConfiguredSettings) {
    start(port("A", terminal.path()) + "Port;A;Baud,57600\nPort;A;StopBits,2\n");
    Peer peer = opened("=A");
    const termios set = line();
    EXPECT_EQ(cfgetospeed(&set), static_cast<speed_t>(B57600));
    EXPECT_NE(set.c_cflag & CSTOPB, 0u);
    EXPECT_EQ(set.c_lflag & (ICANON | ECHO), 0u);
}

TEST_F(Zebseriald, AConfiguredDeviceHasItsSettingsByWhateverName) {
    ASSERT_EQ(symlink(terminal.path().c_str(), (dir / "by-id").c_str()), 0);
    start(port("A", dir / "by-id") + "Port;A;Baud,19200\n");
    Peer plain = opened("=" + terminal.path());
    const termios set = line();
    EXPECT_EQ(cfgetospeed(&set), static_cast<speed_t>(B19200));
    Peer named = opened("=A");
    EXPECT_EQ(plain.ask({k_write, -1, -1, "x"}), "success");
    EXPECT_EQ(named.ask({k_read_new_echo}), "success x"); // one port
}

// --- reading -----------------------------------------------------------------------------------

TEST_F(Zebseriald, ReadNewBringsWhatCameSinceTheLastRead) {
    start();
    Peer peer = opened();
    EXPECT_EQ(peer.ask({k_read_new, -1, -1}), "success");
    terminal.send("abc");
    EXPECT_EQ(peer.read_all(3), "abc");
    EXPECT_EQ(peer.ask({k_read_new, -1, -1}), "success");
}

TEST_F(Zebseriald, ReadUntilBringsALineWithItsEnd) {
    start();
    Peer peer = opened();
    terminal.send("first\r\nsecond\r\nrest");
    EXPECT_EQ(peer.ask({k_read_until, 20, -1, "\n"}), "success first\r\n");
    EXPECT_EQ(peer.ask({k_read_until, 20, -1, "\n"}), "success second\r\n");
    EXPECT_EQ(peer.ask({k_read_until, 0, -1, "\n"}), "failure");
    terminal.send("\n");
    EXPECT_EQ(peer.ask({k_read_until, 20, -1, "\n"}), "success rest\n");
}

TEST_F(Zebseriald, AReadThatWaitsIsAnsweredWhenTheBytesCome) {
    start();
    Peer peer = opened();
    peer.request({k_read_until, -1, -1, ";"});
    EXPECT_EQ(peer.ask({k_heartbeat}), "heartbeat"); // the request is in the server's hands
    terminal.send("ab");
    EXPECT_EQ(peer.ask({k_heartbeat}), "heartbeat");
    terminal.send("c;d");
    EXPECT_EQ(peer.answer(), "success abc;");
}

TEST_F(Zebseriald, ATimedOutReadFailsAndLeavesTheBytes) {
    start();
    Peer peer = opened();
    terminal.send("abc");
    EXPECT_EQ(peer.ask({k_read_until, 0.05, -1, "\n"}), "failure");
    EXPECT_EQ(peer.read_all(3), "abc");
    EXPECT_EQ(peer.ask({k_read_burst, 0.05, 0.01}), "failure");
}

TEST_F(Zebseriald, ASilenceEndsAReadOnceSomethingCame) {
    start();
    Peer peer = opened();
    terminal.send("abc");
    EXPECT_EQ(peer.ask({k_read_until, -1, 0.05, "\n"}), "success abc");
    terminal.send("def");
    EXPECT_EQ(peer.ask({k_read_burst, -1, 0.05}), "success def");
}

TEST_F(Zebseriald, ReadUntilEmptyForgetsWhatCameBefore) {
    start();
    Peer peer = opened();
    Peer other = opened();
    terminal.send("old\n");
    EXPECT_EQ(other.ask({k_read_until, 20, -1, "\n"}), "success old\n");
    peer.request({k_read_until_empty, 20, -1, "\n"});
    EXPECT_EQ(peer.ask({k_heartbeat}), "heartbeat");
    terminal.send("new\n");
    EXPECT_EQ(peer.answer(), "success new\n");
}

TEST_F(Zebseriald, FlushDiscardsForThisClientOnly) {
    start();
    Peer peer = opened();
    Peer other = opened();
    terminal.send("abc");
    EXPECT_EQ(other.read_all(3), "abc");
    EXPECT_EQ(peer.ask({k_flush, -1, 0.02}), "success");
    EXPECT_EQ(peer.ask({k_flush, 0.02, -1}), "success");
    EXPECT_EQ(peer.ask({k_read_new}), "success");
    terminal.send("d");
    EXPECT_EQ(other.read_all(1), "d");
    EXPECT_EQ(peer.read_all(1), "d");
}

TEST_F(Zebseriald, EachClientReadsAtItsOwnPlace) {
    start();
    Peer a = opened();
    Peer b = opened();
    terminal.send("one\ntwo\n");
    EXPECT_EQ(a.ask({k_read_until, 20, -1, "\n"}), "success one\n");
    EXPECT_EQ(b.ask({k_read_until, 20, -1, "\n"}), "success one\n");
    EXPECT_EQ(a.ask({k_read_until, 20, -1, "\n"}), "success two\n");
    Peer late = opened();
    EXPECT_EQ(late.ask({k_read_new}), "success"); // from its own beginning
    EXPECT_EQ(b.ask({k_read_until, 20, -1, "\n"}), "success two\n");
}

TEST_F(Zebseriald, TheOldestBytesGoWhenNobodyReads) {
    start(port("A", terminal.path()) + "Port;A;MaxBuffer,16\n");
    Peer slow = opened("=A");
    Peer quick = opened("=A");
    terminal.send("0123456789abcdefghij\n");
    EXPECT_EQ(quick.ask({k_read_until, 20, -1, "\n"}), "success 56789abcdefghij\n");
    EXPECT_EQ(slow.ask({k_read_new}), "success 56789abcdefghij\n");
}

TEST_F(Zebseriald, RequestsAreAnsweredInOrderOneAtATime) {
    start();
    Peer peer = opened();
    peer.request({k_read_until, 20, -1, "\n"});
    peer.request({k_write, -1, -1, "later"});
    peer.request({k_read_new});
    peer.request({99});
    EXPECT_EQ(peer.ask({k_heartbeat}), "heartbeat");
    EXPECT_FALSE(terminal.has_input());
    terminal.send("line\n");
    EXPECT_EQ(peer.answer(), "success line\n");
    EXPECT_EQ(peer.answer(), "success");
    EXPECT_EQ(peer.answer(), "success");
    EXPECT_EQ(peer.answer(), "failure");
    EXPECT_EQ(terminal.receive(5), "later");
}

TEST_F(Zebseriald, StrangeTimeOutsAreTakenAsTheyAreMeant) {
    start();
    Peer peer = opened();
    EXPECT_EQ(peer.ask({k_read_until, NAN, NAN, "\n"}), "failure"); // no time
    EXPECT_EQ(peer.ask({k_read_burst, -0.0, 0}), "failure");
    EXPECT_EQ(peer.ask({k_read_until, 1e-300, -1e300, "\n"}), "failure");
    for (const double forever : {-1.0, -1e300, 1e300, HUGE_VAL, -HUGE_VAL}) {
        peer.request({k_read_until, forever, forever, "\n"});
        EXPECT_EQ(peer.ask({k_heartbeat}), "heartbeat");
        terminal.send("x\n");
        EXPECT_EQ(peer.answer(), "success x\n") << forever;
    }
}

// --- writing -----------------------------------------------------------------------------------

TEST_F(Zebseriald, WrittenBytesGoOutAsTheyAre) {
    start();
    Peer peer = opened();
    std::string all;
    for (int i = 0; i < 256; ++i)
        all += static_cast<char>(i);
    EXPECT_EQ(peer.ask({k_write, -1, -1, all}), "success");
    EXPECT_EQ(terminal.receive(256), all);
    EXPECT_EQ(peer.ask({k_write, -1, -1, ""}), "success");
    EXPECT_EQ(peer.ask({k_blocking_write, 20, -1, "drained"}), "success");
    EXPECT_EQ(terminal.receive(7), "drained");
    terminal.send(all);
    EXPECT_EQ(peer.read_all(256), all);
}

TEST_F(Zebseriald, AWriteIsQueuedWhileTheLineTakesNothing) {
    start();
    Peer peer = opened();
    const std::string block(300000, 'x'); // far more than a terminal holds
    EXPECT_EQ(peer.ask({k_write, -1, -1, block}), "success");
    EXPECT_EQ(peer.ask({k_blocking_write, 0.05, -1, "end"}), "failure"); // still sent
    EXPECT_EQ(peer.ask({k_blocking_write, 0, -1, "!"}), "failure");
    peer.request({k_blocking_write, -1, -1, "."});
    EXPECT_EQ(terminal.receive(300005), block + "end!.");
    EXPECT_EQ(peer.answer(), "success");
}

TEST_F(Zebseriald, AFullQueueFailsTheWrite) {
    start("Serial;Limit;OutputBytes,100000\n");
    Peer peer = opened();
    EXPECT_EQ(peer.ask({k_write, -1, -1, std::string(100001, 'x')}), "failure");
    EXPECT_EQ(peer.ask({k_blocking_write, 20, -1, std::string(100001, 'x')}), "failure");
    EXPECT_FALSE(terminal.has_input());
    EXPECT_EQ(peer.ask({k_write, -1, -1, std::string(100000, 'x')}), "success");
    EXPECT_EQ(peer.ask({k_write, -1, -1, std::string(100000, 'y')}), "failure");
    EXPECT_EQ(terminal.receive(100000), std::string(100000, 'x'));
    EXPECT_TRUE(says("there is no room for 100001 more bytes"));
}

TEST_F(Zebseriald, TheLastWordsOfAClientAreSent) {
    start();
    const std::string block(100000, 'x');
    {
        Peer peer = opened();
        EXPECT_EQ(peer.ask({k_write, -1, -1, block}), "success");
        peer.request({k_close});
        EXPECT_TRUE(peer.sees_end());
    }
    EXPECT_EQ(terminal.receive(block.size()), block);
}

TEST_F(Zebseriald, OthersSeeWhatAClientWrote) {
    start();
    Peer a = opened();
    Peer b = opened();
    EXPECT_EQ(a.ask({k_write, -1, -1, "from a "}), "success");
    EXPECT_EQ(b.ask({k_write, -1, -1, "from b "}), "success");
    EXPECT_EQ(a.ask({k_blocking_write, 20, -1, "again a"}), "success");
    EXPECT_EQ(a.ask({k_read_new_echo}), "success from b ");
    EXPECT_EQ(b.ask({k_read_new_echo}), "success from a again a");
    EXPECT_EQ(b.ask({k_read_new_echo}), "success");
    Peer late = opened();
    EXPECT_EQ(late.ask({k_read_new_echo}), "success");
}

TEST_F(Zebseriald, TheOldestEchoGoesFirst) {
    start();
    Peer a = opened();
    Peer b = opened();
    EXPECT_EQ(a.ask(settings(0, 4, false)), "success");
    EXPECT_EQ(a.ask({k_write, -1, -1, "abcdef"}), "success");
    EXPECT_EQ(b.ask({k_read_new_echo}), "success cdef");
}

// --- settings ----------------------------------------------------------------------------------

TEST_F(Zebseriald, PortParametersAreSet) {
    start();
    Peer peer = opened();
    EXPECT_EQ(peer.ask(line_settings(115200, 8, 0, 2, 1)), "success");
    termios set = line();
    EXPECT_EQ(cfgetospeed(&set), static_cast<speed_t>(B115200));
    EXPECT_NE(set.c_cflag & CSTOPB, 0u);
    EXPECT_NE(set.c_iflag & IXON, 0u);
    EXPECT_EQ(peer.ask(line_settings(4000000, 7, 2, 1, 2)), "success");
    set = line();
    EXPECT_EQ(cfgetospeed(&set), static_cast<speed_t>(B4000000));
    EXPECT_NE(set.c_cflag & CRTSCTS, 0u);
    EXPECT_EQ(set.c_iflag & IXON, 0u);
}

TEST_F(Zebseriald, ParametersThatCannotBeUsedChangeNothing) {
    start();
    Peer peer = opened();
    EXPECT_EQ(peer.ask(line_settings(4800, 8, 0, 1, 0)), "success");
    for (const Ask &bad : {line_settings(4801, 8, 0, 1, 0), line_settings(9600, 9, 0, 1, 0),
                           line_settings(9600, 8, 3, 1, 0), line_settings(9600, 8, 0, 0, 0),
                           line_settings(9600, 8, 0, 1, 3), Ask{k_set_port_params, 0, 0, "short"},
                           Ask{k_set_port_params, 0, 0, std::string(9, '\0')}})
        EXPECT_EQ(peer.ask(bad), "failure");
    const termios set = line();
    EXPECT_EQ(cfgetospeed(&set), static_cast<speed_t>(B4800));
    EXPECT_TRUE(says("baud rate 4801 cannot be used"));
    EXPECT_TRUE(says("flow control 3 cannot be used"));
    EXPECT_TRUE(says("a request of type 9 with 5 bytes of data"));
}

TEST_F(Zebseriald, ParametersChangeBehindWhatWasWrittenBefore) {
    start();
    Peer peer = opened();
    const std::string block(100000, 'x');
    EXPECT_EQ(peer.ask({k_write, -1, -1, block}), "success");
    peer.request(line_settings(300, 8, 0, 1, 0));
    EXPECT_EQ(peer.ask({k_heartbeat}), "heartbeat");
    termios set = line();
    EXPECT_EQ(cfgetospeed(&set), static_cast<speed_t>(B9600));
    EXPECT_EQ(terminal.receive(block.size()), block);
    EXPECT_EQ(peer.answer(), "success");
    set = line();
    EXPECT_EQ(cfgetospeed(&set), static_cast<speed_t>(B300));
}

TEST_F(Zebseriald, ABufferIsResizedWithinTheLimit) {
    start("Serial;Limit;BufferBytes,1000\n");
    Peer peer = opened();
    EXPECT_EQ(peer.ask(settings(4, 0, false)), "success");
    terminal.send("0123456789\n");
    EXPECT_EQ(peer.ask({k_read_until, 20, -1, "\n"}), "success 789\n");
    EXPECT_EQ(peer.ask(settings(0, 0, false)), "success"); // as it is
    EXPECT_EQ(peer.ask(settings(1001, 0, false)), "failure");
    EXPECT_EQ(peer.ask(settings(0, 0xffffffff, false)), "failure");
    EXPECT_TRUE(says("a buffer may have at most 1000 bytes"));
}

TEST_F(Zebseriald, ExclusiveUseFailsTheOthersWhileItLasts) {
    start();
    Peer owner = opened();
    Peer other = opened();
    other.request({k_read_until, -1, -1, "\n"}); // also what waits
    EXPECT_EQ(other.ask({k_heartbeat}), "heartbeat");
    EXPECT_EQ(owner.ask(settings(0, 0, true)), "success");
    EXPECT_EQ(other.answer(), "failure");
    for (unsigned type = k_read_new; type <= k_del_repeater; ++type)
        EXPECT_EQ(other.ask({type, 0, 0, ""}), "failure") << type;
    EXPECT_EQ(other.ask(settings(0, 0, true)), "failure");
    EXPECT_EQ(other.ask({k_heartbeat}), "heartbeat");
    Peer third = opened();
    EXPECT_EQ(third.ask({k_read_new}), "failure");
    EXPECT_EQ(owner.ask({k_write, -1, -1, "mine"}), "success");
    EXPECT_EQ(owner.ask(settings(0, 0, false)), "success");
    EXPECT_EQ(other.ask({k_read_new_echo}), "success mine");
}

TEST_F(Zebseriald, ExclusiveUseEndsWithItsClient) {
    start();
    Peer other = opened();
    {
        Peer owner = opened();
        EXPECT_EQ(owner.ask(settings(0, 0, true)), "success");
        EXPECT_EQ(other.ask({k_read_new}), "failure");
    }
    EXPECT_TRUE(wait_until([&] { return other.ask({k_read_new}) == "success"; }));
}

// --- reset, unplugging, return -----------------------------------------------------------------

TEST_F(Zebseriald, ResetReopensAndEndsTheWaitsOfOthers) {
    start();
    Peer a = opened();
    Peer b = opened();
    EXPECT_EQ(a.ask(line_settings(1200, 8, 0, 1, 0)), "success");
    b.request({k_read_until, -1, -1, "\n"});
    EXPECT_EQ(b.ask({k_heartbeat}), "heartbeat");
    EXPECT_EQ(a.ask({k_reset, -1, -1}), "success");
    EXPECT_EQ(b.answer(), "failure");
    const termios set = line();
    EXPECT_EQ(cfgetospeed(&set), static_cast<speed_t>(B1200)); // its present settings
    terminal.send("x\n");
    EXPECT_EQ(a.ask({k_read_until, 20, -1, "\n"}), "success x\n");
    EXPECT_EQ(b.ask({k_read_until, 20, -1, "\n"}), "success x\n");
}

TEST_F(Zebseriald, AnUnpluggedDeviceFailsRequestsUntilItIsBack) {
    auto first = std::make_unique<Terminal>();
    plug(*first);
    start(port("A", dir / "device"));
    Peer a = opened("=A");
    Peer b = opened("=A");
    EXPECT_EQ(a.ask(line_settings(2400, 8, 0, 1, 0)), "success");
    a.request({k_read_until, -1, -1, "\n"});
    EXPECT_EQ(a.ask({k_heartbeat}), "heartbeat");
    first->unplug();
    EXPECT_EQ(a.answer(), "failure");
    for (unsigned type = k_read_new; type <= k_reset; ++type)
        EXPECT_EQ(b.ask({type, -1, -1, ""}), "failure") << type;
    EXPECT_EQ(b.ask({k_write, -1, -1, "x"}), "failure");
    EXPECT_EQ(b.ask({k_blocking_write, -1, -1, "x"}), "failure");
    EXPECT_EQ(b.ask({k_heartbeat}), "heartbeat"); // the link stays

    plug(terminal);
    EXPECT_TRUE(wait_until([&] { return a.ask({k_read_new}) == "success"; }));
    const termios set = line();
    EXPECT_EQ(cfgetospeed(&set), static_cast<speed_t>(B2400));
    EXPECT_EQ(b.ask({k_write, -1, -1, "back"}), "success");
    EXPECT_EQ(terminal.receive(4), "back");
    EXPECT_EQ(count_lines("it is lost"), 1);
    EXPECT_EQ(count_lines("it is open"), 1);
    EXPECT_EQ(count_lines("zebseriald: "), 2) << server->errors();
}

TEST_F(Zebseriald, ADeviceThatComesLaterIsFound) {
    start(port("A", dir / "device"));
    Peer peer = opened("=A");
    EXPECT_EQ(peer.ask({k_read_new}), "failure");
    EXPECT_EQ(peer.ask({k_reset}), "failure");
    EXPECT_EQ(peer.ask(line_settings(1200, 8, 0, 1, 0)), "success"); // kept for it
    EXPECT_EQ(peer.ask(line_settings(1201, 8, 0, 1, 0)), "failure");
    plug(terminal);
    EXPECT_TRUE(wait_until([&] { return peer.ask({k_read_new}) == "success"; }));
    const termios set = line();
    EXPECT_EQ(cfgetospeed(&set), static_cast<speed_t>(B1200));
    EXPECT_EQ(count_lines("cannot be opened: No such file"), 1);
    EXPECT_EQ(count_lines("it is open"), 1);
}

TEST_F(Zebseriald, TwoNamesOfADeviceThatComesLaterShareIt) {
    start(port("A", dir / "device") + port("B", dir / "other"));
    Peer a = opened("=A");
    Peer b = opened("=B");
    plug(terminal);
    ASSERT_EQ(symlink("device", (dir / "other").c_str()), 0);
    for (Peer *peer : {&a, &b})
        EXPECT_TRUE(wait_until([&] { return peer->ask({k_read_new}) == "success"; }));
    terminal.send("line\n");
    EXPECT_EQ(a.ask({k_read_until, 20, -1, "\n"}), "success line\n");
    EXPECT_EQ(b.ask({k_read_until, 20, -1, "\n"}), "success line\n");
    EXPECT_EQ(a.ask({k_write, -1, -1, "a"}), "success");
    EXPECT_EQ(b.ask({k_read_new_echo}), "success a");
}

TEST_F(Zebseriald, ExclusiveUseAndRepeatersOutliveTheMeetingOfTwoNames) {
    start(repeaters() + port("A", dir / "device") + port("B", dir / "other"));
    Peer a = opened("=A");
    Peer b = opened("=B");
    EXPECT_EQ(a.ask(add_repeater("of-a", 2, false)), "success");
    EXPECT_EQ(b.ask(add_repeater("of-b", 2, false)), "success");
    EXPECT_EQ(b.ask(settings(0, 0, true)), "success");
    plug(terminal);
    ASSERT_EQ(symlink("device", (dir / "other").c_str()), 0);
    // It needs no device: it fails when the other's exclusive use counts here.
    EXPECT_TRUE(wait_until([&] { return a.ask(settings(0, 0, false)) == "failure"; }));
    EXPECT_EQ(b.ask({k_write, -1, -1, "out"}), "success");
    EXPECT_EQ(read_file(dir / "of-a"), "out");
    EXPECT_EQ(read_file(dir / "of-b"), "out");
    EXPECT_EQ(b.ask(settings(0, 0, false)), "success");
    EXPECT_EQ(a.ask({k_read_new_echo}), "success out");
}

TEST_F(Zebseriald, APortForgetsItsSettingsWithItsLastClient) {
    start();
    {
        Peer peer = opened();
        EXPECT_EQ(peer.ask(line_settings(300, 8, 0, 1, 0)), "success");
    }
    EXPECT_TRUE(wait_until([&] {
        Peer peer = opened();
        const termios set = line();
        return cfgetospeed(&set) == B9600;
    }));
}

// --- repeaters ---------------------------------------------------------------------------------

TEST_F(Zebseriald, ARepeaterCopiesTheTrafficToAFile) {
    start(repeaters());
    Peer peer = opened();
    EXPECT_EQ(peer.ask(add_repeater("all", 3, false)), "success");
    EXPECT_EQ(peer.ask(add_repeater(dir / "in", 1, false)), "success");
    EXPECT_EQ(peer.ask(add_repeater("lines", 1, true)), "success");
    EXPECT_EQ(peer.ask({k_write, -1, -1, "question "}), "success");
    terminal.send("answer\nmore");
    EXPECT_EQ(peer.read_all(11), "answer\nmore");
    EXPECT_EQ(read_file(dir / "all"), "question answer\nmore");
    EXPECT_EQ(read_file(dir / "in"), "answer\nmore");
    EXPECT_EQ(read_file(dir / "lines"), "answer\n");
    EXPECT_EQ(peer.ask(delete_repeater("all")), "success");
    EXPECT_EQ(peer.ask(delete_repeater("all")), "failure");
    EXPECT_EQ(peer.ask({k_write, -1, -1, "unseen"}), "success");
    EXPECT_EQ(read_file(dir / "all"), "question answer\nmore");
}

TEST_F(Zebseriald, ARepeaterElsewhereIsRefusedWithALine) {
    TempDir other;
    start(repeaters() + "Serial;Limit;Repeaters,1\n");
    Peer peer = opened();
    for (const std::string &name : {std::string("../x"), other / "x", std::string(), dir.path()})
        EXPECT_EQ(peer.ask(add_repeater(name, 3, false)), "failure") << name;
    EXPECT_EQ(peer.ask(add_repeater("x", 4, false)), "failure");
    Ask endless = add_repeater("x", 3, false);
    endless.data.replace(1, 256, std::string(256, 'x'));
    EXPECT_EQ(peer.ask(endless), "failure");
    endless.data.pop_back();
    EXPECT_EQ(peer.ask(endless), "failure");
    EXPECT_EQ(peer.ask(add_repeater("x", 1, false)), "success");
    EXPECT_EQ(peer.ask(add_repeater("x", 3, false)), "success"); // the same anew
    EXPECT_EQ(peer.ask(add_repeater("y", 3, false)), "failure");
    EXPECT_TRUE(says("it is not below " + dir.path()));
    EXPECT_TRUE(says("mode 4"));
    EXPECT_TRUE(says("the port has 1 already"));
}

TEST_F(Zebseriald, APipeThatNobodyReadsHoldsNothingUp) {
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
    start(repeaters());
    Peer peer = opened();
    EXPECT_EQ(peer.ask(add_repeater(dir / "pipe", 2, false)), "success");
    const std::string block(10000, 'x');
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(peer.ask({k_write, -1, -1, block}), "success");
        EXPECT_EQ(terminal.receive(block.size()), block);
    }
    EXPECT_EQ(count_lines("it misses what comes"), 1);
}

TEST_F(Zebseriald, AFullPipeThatIsAddedOverAndOverWritesFewLines) {
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
    const int pipe = ::open((dir / "pipe").c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    while (write(pipe, "x", 1) == 1)
        ;
    start(repeaters());
    for (int i = 0; i < 10; ++i) {
        Peer peer = opened(); // its port goes with it
        for (int j = 0; j < 20; ++j) {
            EXPECT_EQ(peer.ask(add_repeater("pipe", 2, false)), "success");
            EXPECT_EQ(peer.ask({k_write, -1, -1, "x"}), "success");
        }
    }
    close(pipe);
    EXPECT_GE(count_lines("it misses what comes"), 1);
    EXPECT_LE(count_lines("\n"), 31);
}

} // namespace

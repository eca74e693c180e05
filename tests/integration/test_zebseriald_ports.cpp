// Ports and their clients' dialogues without a server, on pseudo terminals.

#include "zebseriald/dialogue.h"

#include "packets.h"
#include "support.h"
#include "terminal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

using namespace zebseriald;
using namespace zeb::test;
using testing::HasSubstr;

namespace {

struct PortTest : testing::Test {
    TempDir dir;
    serverkit::Complaints complaints;
    Limits limits;
    std::string why;

    bool add(Port &port, const std::string &name, unsigned char mode) {
        return port.add_repeater(name, mode, false, dir.path(), complaints, why);
    }
    bool exists(const std::string &name) const { return access((dir / name).c_str(), F_OK) == 0; }
    std::string content(const std::string &name) const { return read_file(dir / name); }
};

TEST_F(PortTest, WithoutRoomForARepeaterNoFileIsMade) {
    limits.repeaters = 0;
    Port none({"/dev/none"}, limits);
    EXPECT_FALSE(add(none, "x", 3));
    EXPECT_FALSE(exists("x"));
    limits.repeaters = 1;
    Port one({"/dev/none"}, limits);
    EXPECT_TRUE(add(one, "x", 3));
    EXPECT_FALSE(add(one, "y", 3));
    EXPECT_THAT(why, HasSubstr("has 1 already"));
    EXPECT_FALSE(exists("y"));
}

TEST_F(PortTest, ARepeaterThatCannotBeAddedAgainGoesOnAsItIs) {
    Port port({"/dev/none"}, limits);
    EXPECT_TRUE(add(port, "x", 2));
    EXPECT_FALSE(add(port, "x", 4));
    EXPECT_TRUE(port.queue(1, "still", 0));
    EXPECT_EQ(content("x"), "still");
}

// Two clients at two terminals, the first of which is unplugged and comes back as the second.
struct Merging : PortTest {
    Terminal lost, kept;
    std::vector<PortConfig> configured{{"A", dir / "device"}, {"B", kept.path()}};
    Ports ports{configured, limits};
    Surroundings around{ports, limits, complaints, dir.path()};
    Dialogue first{around, 1, "test"}, second{around, 2, "test"};
    StderrCapture errors;

    void SetUp() override {
        ports.on_close = [](Port &) {};
        link_to(lost);
        first.receive(padded("=A", 256), 1);
        second.receive(padded("=B", 256), 1);
        ASSERT_TRUE(first.port() != nullptr && second.port() != nullptr);
    }
    void link_to(const Terminal &which) {
        unlink((dir / "device").c_str());
        ASSERT_EQ(symlink(which.path().c_str(), (dir / "device").c_str()), 0);
    }
    void merge() {
        lost.unplug();
        ASSERT_TRUE(wait_until(
            [&] { return !first.port()->read_input(3, Port::Depth::once); })); // it is lost
        link_to(kept);
        ports.run_timers(3);
        ASSERT_EQ(first.port(), second.port());
    }
    static void ask(Dialogue &dialogue, SERIALD_REQUEST_TYPE type, const std::string &data) {
        const SERIALD_request_header header{type, -1, -1};
        const std::string fixed(reinterpret_cast<const char *>(&header), sizeof header);
        dialogue.receive(fixed + data, 2);
    }
    static std::string answers(const Dialogue &dialogue) {
        iovec blocks[16];
        std::string all;
        for (size_t i = 0, count = dialogue.out.gather(blocks, 16); i < count; ++i)
            all.append(static_cast<const char *>(blocks[i].iov_base), blocks[i].iov_len);
        return all;
    }
};

TEST_F(Merging, AReadThatWaitsForTheLostDeviceFails) {
    ask(first, SERIALD_REQUEST_READUNTIL, "\n");
    const std::string success = framed(u32(SERIALD_RESP_SUCCESS));
    EXPECT_EQ(answers(first), success);
    merge();
    EXPECT_EQ(answers(first), success + framed(u32(SERIALD_RESP_FAILURE)));
}

TEST_F(Merging, ExclusiveUseIsKeptUnlessTheOpenPortIsTaken) {
    first.port()->claim(first, true);
    merge();
    EXPECT_TRUE(second.port()->blocked_for(second));
    EXPECT_FALSE(first.port()->blocked_for(first));
}

TEST_F(Merging, TheOpenPortStaysWithTheClientThatHasIt) {
    first.port()->claim(first, true);
    second.port()->claim(second, true);
    merge();
    EXPECT_TRUE(first.port()->blocked_for(first));
    ports.detach(second, 3);
    EXPECT_FALSE(first.port()->blocked_for(first));
}

TEST_F(Merging, RepeatersAreKeptWithinTheLimit) {
    limits.repeaters = 3;
    EXPECT_TRUE(add(*second.port(), "a", 1));
    EXPECT_TRUE(add(*second.port(), "b", 2));
    EXPECT_TRUE(add(*first.port(), "a", 2)); // takes the other's place
    EXPECT_TRUE(add(*first.port(), "c", 2));
    EXPECT_TRUE(add(*first.port(), "d", 2));
    merge();
    EXPECT_TRUE(second.port()->queue(1, "out", 3));
    for (const char *name : {"a", "b", "c"})
        EXPECT_EQ(content(name), "out") << name;
    EXPECT_EQ(content("d"), "");
    EXPECT_THAT(errors.finish(), HasSubstr("repeater \"d\" has ended: the port has 3 already"));
}

} // namespace

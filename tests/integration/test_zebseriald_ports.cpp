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

} // namespace

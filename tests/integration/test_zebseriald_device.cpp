#include "zebseriald/device.h"

#include "support.h"
#include "terminal.h"

#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

using namespace zebseriald;
using namespace zeb::test;

namespace {

// Whether the terminal is marked for the exclusive use of one opener.
bool is_marked(int fd) {
    int mark = 0;
    EXPECT_EQ(ioctl(fd, TIOCGEXCL, &mark), 0);
    return mark != 0;
}

TEST(Device, APseudoTerminalStaysOpenToOthers) {
    Terminal terminal;
    OpenFailure failure;
    auto device = open_device(terminal.path(), k_standard_line, failure);
    ASSERT_TRUE(device) << failure.why;
    EXPECT_TRUE(device->pseudo);
    EXPECT_FALSE(is_marked(device->fd.get()));
}

TEST(Device, ClosingALineGivesItBackToThoseWhoHaveItOpen) {
    Terminal terminal;
    OpenFailure failure;
    auto other = open_device(terminal.path(), k_standard_line, failure);
    auto device = open_device(terminal.path(), k_standard_line, failure);
    ASSERT_TRUE(other && device) << failure.why;
    device->pseudo = false; // as if it were a line of its own
    ASSERT_EQ(ioctl(device->fd.get(), TIOCEXCL), 0);
    ASSERT_TRUE(is_marked(other->fd.get()));
    close_device(*device);
    EXPECT_FALSE(is_marked(other->fd.get()));
}

TEST(Device, WhatIsNoTerminalIsRefusedForGood) {
    const TempDir dir;
    write_file(dir / "file", "");
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
    const std::pair<std::string, std::string> refused[] = {{dir.path(), "it is a directory"},
                                                           {dir / "file", "it is a regular file"},
                                                           {dir / "pipe", "it is no terminal"},
                                                           {"/dev/null", "it is no terminal"},
                                                           {"/dev/ptmx", "it is no terminal"}};
    for (const auto &[path, why] : refused) {
        OpenFailure failure;
        EXPECT_FALSE(open_device(path, k_standard_line, failure)) << path;
        EXPECT_EQ(failure.why, why) << path;
        EXPECT_TRUE(failure.lasting) << path;
        EXPECT_FALSE(failure.absent) << path;
    }
}

TEST(Device, OneThatIsNotThereMayComeAndAPathThatCannotLeadAnywhereMayNot) {
    const TempDir dir;
    OpenFailure failure;
    EXPECT_FALSE(open_device(dir / "missing", k_standard_line, failure));
    EXPECT_TRUE(failure.absent);
    EXPECT_FALSE(failure.lasting);
    ASSERT_EQ(symlink("loop", (dir / "loop").c_str()), 0);
    EXPECT_FALSE(open_device(dir / "loop", k_standard_line, failure));
    EXPECT_FALSE(failure.absent);
    EXPECT_TRUE(failure.lasting);
    EXPECT_FALSE(open_device("/dev/" + std::string(300, 'x'), k_standard_line, failure));
    EXPECT_FALSE(failure.absent);
    EXPECT_TRUE(failure.lasting);
}

TEST(Device, IsClosedOnce) {
    Terminal terminal;
    OpenFailure failure;
    auto device = open_device(terminal.path(), k_standard_line, failure);
    ASSERT_TRUE(device) << failure.why;
    close_device(*device);
    EXPECT_FALSE(device->fd);
    close_device(*device); // nothing is left to close
    EXPECT_FALSE(device->fd);
}

} // namespace

#include "zebseriald/device.h"

#include "terminal.h"

#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <termios.h>

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

} // namespace

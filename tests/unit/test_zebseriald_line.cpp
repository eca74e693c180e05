#include "zebseriald/line.h"

#include "support.h"

#include <cerrno>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

using namespace zebseriald;
using testing::HasSubstr;

namespace {

// A driver that takes settings as it likes: what it is asked for is answered with these changes.
struct Driver {
    tcflag_t other_line = 0;  // of c_cflag
    tcflag_t other_input = 0; // of c_iflag
    speed_t input_speed = 0;  // 0: as asked
    int set_error = 0;
    termios now{};
};
Driver *g_driver = nullptr;

} // namespace

extern "C" {
int __real_tcgetattr(int fd, termios *settings);
int __wrap_tcgetattr(int fd, termios *settings);
int __wrap_tcgetattr(int fd, termios *settings) {
    if (g_driver == nullptr)
        return __real_tcgetattr(fd, settings);
    *settings = g_driver->now;
    return 0;
}
int __real_tcsetattr(int fd, int when, const termios *settings);
int __wrap_tcsetattr(int fd, int when, const termios *settings);
int __wrap_tcsetattr(int fd, int when, const termios *settings) {
    if (g_driver == nullptr)
        return __real_tcsetattr(fd, when, settings);
    errno = g_driver->set_error;
    if (g_driver->set_error != 0)
        return -1;
    g_driver->now = *settings;
    g_driver->now.c_cflag ^= g_driver->other_line;
    g_driver->now.c_iflag ^= g_driver->other_input;
    if (g_driver->input_speed != 0)
        cfsetispeed(&g_driver->now, g_driver->input_speed);
    return 0;
}
}

namespace {

// Why 9600 baud, 8n1 cannot be set on this driver; "" when it can.
std::string refusal_of(Driver driver) {
    g_driver = &driver;
    std::string why;
    const bool set = apply_line(0, {9600, 8, 0, 1, 0}, false, why);
    g_driver = nullptr;
    EXPECT_EQ(set, why.empty());
    return why;
}

TEST(Line, KnowsEveryEveryStandardRateFrom300To4000000) {
    for (const DWORD baud :
         {300u,     600u,     1200u,    1800u,    2400u,    4800u,    9600u,    19200u,
          38400u,   57600u,   115200u,  230400u,  460800u,  500000u,  576000u,  921600u,
          1000000u, 1152000u, 1500000u, 2000000u, 2500000u, 3000000u, 3500000u, 4000000u})
        EXPECT_TRUE(speed_of(baud)) << baud;
    EXPECT_EQ(speed_of(4800), B4800);
    EXPECT_EQ(speed_of(4000000), B4000000);
    for (const DWORD baud : {0u, 50u, 299u, 9601u, 31250u, 4000001u, 4294967295u})
        EXPECT_FALSE(speed_of(baud)) << baud;
}

TEST(Line, NamesTheFirstSettingThatCannotBeUsed) {
    EXPECT_EQ(fault_of({9600, 8, 0, 1, 0}), "");
    EXPECT_EQ(fault_of({4000000, 5, 2, 2, 2}), "");
    EXPECT_EQ(fault_of({9601, 8, 0, 1, 0}), "baud rate 9601");
    EXPECT_EQ(fault_of({9600, 4, 0, 1, 0}), "number of data bits 4");
    EXPECT_EQ(fault_of({9600, 9, 0, 1, 0}), "number of data bits 9");
    EXPECT_EQ(fault_of({9600, 8, 3, 1, 0}), "parity 3");
    EXPECT_EQ(fault_of({9600, 8, 0, 0, 0}), "number of stop bits 0");
    EXPECT_EQ(fault_of({9600, 8, 0, 3, 0}), "number of stop bits 3");
    EXPECT_EQ(fault_of({9600, 8, 0, 1, 3}), "flow control 3");
}

TEST(Line, IsRawAndIgnoresTheModem) {
    termios before{};
    before.c_lflag = ICANON | ECHO | ISIG;
    before.c_iflag = ICRNL | IXON | ISTRIP;
    before.c_oflag = OPOST;
    const termios set = with_line(before, {9600, 8, 0, 1, 0});
    EXPECT_EQ(set.c_lflag & (ICANON | ECHO | ISIG | IEXTEN), 0u);
    EXPECT_EQ(set.c_iflag & (ICRNL | INLCR | IGNCR | IXON | IXOFF | ISTRIP), 0u);
    EXPECT_EQ(set.c_oflag & OPOST, 0u);
    EXPECT_EQ(set.c_cflag & (CLOCAL | CREAD), static_cast<tcflag_t>(CLOCAL | CREAD));
    EXPECT_EQ(set.c_cc[VMIN], 1);
    EXPECT_EQ(set.c_cc[VTIME], 0);
}

TEST(Line, SizesParityStopBitsAndFlowControl) {
    const auto flags = [](const Line &line) { return with_line(termios{}, line).c_cflag; };
    EXPECT_EQ(flags({9600, 5, 0, 1, 0}) & CSIZE, static_cast<tcflag_t>(CS5));
    EXPECT_EQ(flags({9600, 6, 0, 1, 0}) & CSIZE, static_cast<tcflag_t>(CS6));
    EXPECT_EQ(flags({9600, 7, 0, 1, 0}) & CSIZE, static_cast<tcflag_t>(CS7));
    EXPECT_EQ(flags({9600, 8, 0, 1, 0}) & CSIZE, static_cast<tcflag_t>(CS8));
    EXPECT_EQ(flags({9600, 8, 0, 1, 0}) & (PARENB | PARODD | CSTOPB), 0u);
    EXPECT_EQ(flags({9600, 8, 1, 1, 0}) & (PARENB | PARODD),
              static_cast<tcflag_t>(PARENB | PARODD));
    EXPECT_EQ(flags({9600, 8, 2, 1, 0}) & (PARENB | PARODD), static_cast<tcflag_t>(PARENB));
    EXPECT_NE(flags({9600, 8, 0, 2, 0}) & CSTOPB, 0u);
    EXPECT_EQ(flags({9600, 8, 0, 1, 1}) & CRTSCTS, 0u);
    EXPECT_NE(flags({9600, 8, 0, 1, 2}) & CRTSCTS, 0u);
    const tcflag_t software = IXON | IXOFF;
    EXPECT_EQ(with_line(termios{}, {9600, 8, 0, 1, 1}).c_iflag & software, software);
    EXPECT_EQ(with_line(termios{}, {9600, 8, 0, 1, 2}).c_iflag & software, 0u);
    EXPECT_EQ(cfgetospeed([] {
                  static termios t;
                  t = with_line(termios{}, {921600, 8, 0, 1, 0});
                  return &t;
              }()),
              static_cast<speed_t>(B921600));
}

TEST(Line, ACharacterTakesItsBitsAndAStartBit) {
    EXPECT_DOUBLE_EQ(character_time({9600, 8, 0, 1, 0}), 10.0 / 9600);
    EXPECT_DOUBLE_EQ(character_time({300, 7, 2, 2, 0}), 11.0 / 300);
}

TEST(Line, IsDescribedForPeople) {
    EXPECT_EQ(describe({9600, 8, 0, 1, 0}), "9600 baud, 8n1");
    EXPECT_EQ(describe({300, 7, 2, 2, 2}), "300 baud, 7e2, hardware flow control");
    EXPECT_EQ(describe({300, 5, 1, 1, 1}), "300 baud, 5o1, software flow control");
}

TEST(Line, ATerminalIsToldAndWhatAPseudoTerminalIgnoresIsNoFault) {
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(master, 0);
    grantpt(master);
    unlockpt(master);
    const int slave = open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(slave, 0);
    std::string why;
    EXPECT_TRUE(apply_line(slave, {57600, 7, 2, 2, 0}, true, why)) << why;
    termios set;
    ASSERT_EQ(tcgetattr(slave, &set), 0);
    EXPECT_EQ(cfgetospeed(&set), static_cast<speed_t>(B57600));
    EXPECT_EQ(set.c_lflag & ICANON, 0u);
    // A driver that had a line and did the same would be refused, and left as it was.
    EXPECT_TRUE(apply_line(slave, {9600, 8, 0, 1, 0}, true, why)) << why;
    EXPECT_FALSE(apply_line(slave, {19200, 7, 0, 1, 0}, false, why));
    EXPECT_THAT(why, HasSubstr("the number of data bits of 19200 baud, 7n1"));
    ASSERT_EQ(tcgetattr(slave, &set), 0);
    EXPECT_EQ(cfgetospeed(&set), static_cast<speed_t>(B9600));
    close(slave);
    close(master);
}

TEST(Line, WhatIsNoTerminalIsNotSet) {
    std::string why;
    const int fd = open("/dev/null", O_RDWR | O_CLOEXEC);
    EXPECT_FALSE(apply_line(fd, k_standard_line, false, why));
    EXPECT_NE(why, "");
    close(fd);
}

TEST(Line, WhatADriverDoesNotAcceptIsNamed) {
    EXPECT_EQ(refusal_of({}), "");
    const std::string of = " of 9600 baud, 8n1";
    EXPECT_EQ(refusal_of({.input_speed = B300}), "the driver does not accept the baud rate" + of);
    EXPECT_EQ(refusal_of({.other_line = CS7 ^ CS8}),
              "the driver does not accept the number of data bits" + of);
    EXPECT_EQ(refusal_of({.other_line = PARENB}), "the driver does not accept the parity" + of);
    EXPECT_EQ(refusal_of({.other_line = CSTOPB}),
              "the driver does not accept the number of stop bits" + of);
    EXPECT_EQ(refusal_of({.other_line = CRTSCTS}),
              "the driver does not accept the flow control" + of);
    EXPECT_EQ(refusal_of({.other_input = IXON}),
              "the driver does not accept the flow control" + of);
}

TEST(Line, ADriverThatFailsIsToldByItsError) {
    EXPECT_EQ(refusal_of({.set_error = EIO}), "Input/output error");
}

TEST(Line, APseudoTerminalMayDisagree) {
    Driver driver{.other_line = PARENB};
    g_driver = &driver;
    std::string why;
    EXPECT_TRUE(apply_line(0, {9600, 8, 0, 1, 0}, true, why)) << why;
    g_driver = nullptr;
}

} // namespace

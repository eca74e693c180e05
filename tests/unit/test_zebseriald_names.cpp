#include "zebseriald/names.h"

#include <gtest/gtest.h>

using namespace zebseriald;

namespace {

std::vector<PortConfig> ports() {
    PortConfig gps;
    gps.name = "GPS";
    gps.device = "/dev/serial/by-id/receiver";
    PortConfig neph;
    neph.name = "Neph";
    neph.device = "/dev/ttyS1";
    return {gps, neph};
}

struct Resolved {
    std::string device, configured, why;
    bool operator==(const Resolved &) const = default;
};

Resolved resolved(std::string_view name) {
    const auto all = ports();
    std::string why;
    const auto target = resolve_name(name, all, why);
    if (!target)
        return {"", "", why};
    return {target->device, target->configured == nullptr ? "" : target->configured->name, ""};
}

TEST(Names, AnEqualSignMeansAPortOfTheConfiguration) {
    EXPECT_EQ(resolved("=Neph"), (Resolved{"/dev/ttyS1", "Neph", ""}));
    EXPECT_EQ(resolved("=gps"), (Resolved{"/dev/serial/by-id/receiver", "GPS", ""}));
}

TEST(Names, AnEqualSignAndASlashMeanAPath) {
    EXPECT_EQ(resolved("=/dev/ttyUSB0"), (Resolved{"/dev/ttyUSB0", "", ""}));
    EXPECT_EQ(resolved("=/some/link"), (Resolved{"/some/link", "", ""}));
}

TEST(Names, AnyOtherNameIsUnderDev) {
    EXPECT_EQ(resolved("ttyS0"), (Resolved{"/dev/ttyS0", "", ""}));
    EXPECT_EQ(resolved("serial/by-id/x"), (Resolved{"/dev/serial/by-id/x", "", ""}));
    EXPECT_EQ(resolved("GPS"), (Resolved{"/dev/GPS", "", ""}));
}

TEST(Names, WhatIsNotConfiguredIsRefused) {
    EXPECT_EQ(resolved("=other").why, "the configuration has no such port");
    EXPECT_EQ(resolved("=").why, "the configuration has no such port");
}

TEST(Names, AnEmptyNameIsRefused) {
    EXPECT_EQ(resolved("").why, "it is empty");
}

TEST(Names, WhatLeadsUpwardsIsRefused) {
    for (const char *name : {"..", "../etc/passwd", "serial/../../etc", "=/dev/../etc", "=/..",
                             "pts/..", "=/dev/ttyS0/.."})
        EXPECT_EQ(resolved(name).why, "it leads upwards") << name;
    EXPECT_EQ(resolved("..ttyS0").device, "/dev/..ttyS0");
    EXPECT_EQ(resolved("tty..").device, "/dev/tty..");
}

} // namespace

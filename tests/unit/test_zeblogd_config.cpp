#include "zeblogd/config.h"

#include "support.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace zeb::test;
using namespace zeblogd;
using testing::HasSubstr;

namespace {

struct Tree {
    CONF_node *root = CONF_alloc();
    ~Tree() { CONF_free(root); }
    Tree &set(const char *key, const char *value) {
        CONF_set(root, key, value);
        return *this;
    }
};

std::string directory(Tree &tree) {
    const auto config = read_config(tree.root);
    return config ? config->directory : "refused";
}

TEST(ZeblogdConfig, WithoutKeysEverythingHasItsDefault) {
    const ScopedEnv db("DB", nullptr);
    const auto config = read_config(nullptr);
    ASSERT_TRUE(config);
    EXPECT_EQ(config->intervals, (std::array<double, 4>{86400, 60, 300, 60}));
    EXPECT_EQ(config->directory, "/oru/db/stn/nil/log");
}

TEST(ZeblogdConfig, EveryIntervalIsRead) {
    Tree tree;
    tree.set("Log;Interval;Switch", "1:00:00").set("Log;Interval;Average", "2:30");
    tree.set("Log;Interval;Monitor", "0.5").set("Log;Interval;Flush", "0");
    const auto config = read_config(tree.root);
    ASSERT_TRUE(config);
    EXPECT_EQ(config->intervals, (std::array<double, 4>{3600, 150, 0.5, 0}));
}

TEST(ZeblogdConfig, IntervalsAreReadAsPeopleWriteThem) {
    EXPECT_EQ(parse_interval("60"), 60);
    EXPECT_EQ(parse_interval("1:00"), 60);
    EXPECT_EQ(parse_interval("1:00:00"), 3600);
    EXPECT_EQ(parse_interval("0.25"), 0.25);
    EXPECT_EQ(parse_interval("1:30.5"), 90.5);
    EXPECT_EQ(parse_interval("5."), 5);
    EXPECT_EQ(parse_interval("90:00"), 5400);
    EXPECT_EQ(parse_interval("0"), 0);
}

TEST(ZeblogdConfig, WhatIsNoIntervalIsNotTakenForZero) {
    for (const char *text : {"",
                             " ",
                             "off",
                             "10 minutes",
                             "-5",
                             "+5",
                             "1e3",
                             "nan",
                             "inf",
                             "0x10",
                             ":",
                             "1:",
                             ":30",
                             "1::2",
                             "1:2:3:4",
                             ".",
                             "1.2.3",
                             "60s",
                             "11111111111111111",
                             "1;2"})
        EXPECT_EQ(parse_interval(text), std::nullopt) << text;
}

TEST(ZeblogdConfig, IntervalsHaveLimits) {
    const Duty &average = *find_duty("average");
    EXPECT_TRUE(is_interval(average, 0));
    EXPECT_TRUE(is_interval(average, 0.1));
    EXPECT_TRUE(is_interval(average, 31 * 86400));
    for (const double bad : {-1.0, 0.09, MVC, std::nan(""), HUGE_VAL, -HUGE_VAL, 31 * 86400.0 + 1})
        EXPECT_FALSE(is_interval(average, bad)) << bad;
    EXPECT_FALSE(is_interval(*find_duty("switch"), 4.9));
    EXPECT_TRUE(is_interval(*find_duty("switch"), 5));
}

TEST(ZeblogdConfig, ABadIntervalIsRefusedWithItsKeyAndValue) {
    Tree tree;
    tree.set("Log;Interval;Average", "often").set("Log;Interval;Switch", "1");
    StderrCapture capture;
    EXPECT_FALSE(read_config(tree.root));
    const std::string report = capture.finish();
    EXPECT_THAT(report, HasSubstr("Log;Interval;Average: \"often\" is not 0 (off) or 0.1 s"));
    EXPECT_THAT(report, HasSubstr("Log;Interval;Switch: \"1\" is not 0 (off) or 5 s"));
}

TEST(ZeblogdConfig, EachDefaultIsAllowed) {
    const auto config = read_config(nullptr);
    ASSERT_TRUE(config);
    for (size_t i = 0; i < k_duty_count; ++i)
        EXPECT_TRUE(is_interval(k_duties[i], config->intervals[i])) << k_duties[i].name;
}

TEST(ZeblogdConfig, TheDirectoryIsThatOfTheLogFiles) {
    const ScopedEnv zeb2("ZEB2", "/station");
    const ScopedEnv db("DB", "/data");
    Tree tree;
    EXPECT_EQ(directory(tree), "/data/stn/nil/log");
    tree.set("Disk;StationID", "BRW");
    EXPECT_EQ(directory(tree), "/data/stn/brw/log");
    tree.set("Disk;StationID", "A2345678901234567890123456789012");
    EXPECT_EQ(directory(tree), "/data/stn/a234567890123456789012345678901/log");
    tree.set("Disk;LogDir", "log");
    EXPECT_EQ(directory(tree), "/station/log");
    tree.set("Disk;LogDir", "/var/log/zeb");
    EXPECT_EQ(directory(tree), "/var/log/zeb");
}

TEST(ZeblogdConfig, DutiesAreFoundByName) {
    EXPECT_EQ(find_duty("flush")->setting, MSG_LOG_SET_INTERVAL_FLS);
    EXPECT_EQ(find_duty("Flush"), nullptr);
    EXPECT_EQ(find_duty(""), nullptr);
}

} // namespace

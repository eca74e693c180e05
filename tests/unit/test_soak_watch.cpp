// What a soak takes for a rise, and what it reads in /proc.
#include "watch.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// A point each second.
std::vector<soak::Point> series(int length, double (*value)(int)) {
    std::vector<soak::Point> points;
    for (int second = 0; second < length; ++second)
        points.push_back({static_cast<double>(second), value(second)});
    return points;
}

} // namespace

TEST(SoakWatch, ASteadySeriesDoesNotRise) {
    EXPECT_EQ(soak::rise_of(series(80, [](int) { return 5000.0; })), 0);
}

TEST(SoakWatch, ALeakIsItsRateTimesTheTime) {
    const auto rise = soak::rise_of(series(101, [](int second) { return 4000.0 + 3 * second; }));
    ASSERT_TRUE(rise.has_value());
    EXPECT_NEAR(*rise, 300, 1e-9);
}

TEST(SoakWatch, ALeakUnderBurstsIsSeen) {
    const auto rise = soak::rise_of(
        series(121, [](int second) { return 4000.0 + 10 * second + (second % 7 < 5 ? 2000 : 0); }));
    ASSERT_TRUE(rise.has_value());
    EXPECT_NEAR(*rise, 1200, 150);
}

TEST(SoakWatch, QueuesThatGrowAndEmptyAreNoRise) {
    const auto rise =
        soak::rise_of(series(120, [](int second) { return 4000.0 + second % 10 * 100 * second; }));
    EXPECT_EQ(rise, 0);
}

TEST(SoakWatch, AFewOddPartsAreNoRise) {
    EXPECT_EQ(soak::rise_of(series(120, [](int second) { return second >= 105 ? 9000.0 : 5000; })),
              0);
}

TEST(SoakWatch, TooFewPointsTellNothing) {
    EXPECT_FALSE(soak::rise_of({}));
    EXPECT_FALSE(soak::rise_of(series(2, [](int) { return 1.0; })));
}

TEST(SoakWatch, TellsWhatThisProcessTakes) {
    const auto before = soak::usage_of(getpid());
    ASSERT_TRUE(before.has_value());
    EXPECT_GT(before->resident, 0);
    EXPECT_GE(before->threads, 1);
    const int fd = dup(0);
    const auto after = soak::usage_of(getpid());
    close(fd);
    ASSERT_TRUE(after.has_value());
    EXPECT_EQ(after->descriptors, before->descriptors + 1);
    EXPECT_GE(after->processor, before->processor);
}

TEST(SoakWatch, AProcessThatHasEndedTakesNothing) {
    const pid_t child = fork();
    if (child == 0)
        _exit(0);
    siginfo_t ended;
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT), 0);
    EXPECT_FALSE(soak::usage_of(child)) << "nobody has waited for it yet";
    waitpid(child, nullptr, 0);
    EXPECT_FALSE(soak::usage_of(child));
}

#include "zeblogd/schedule.h"

#include <gtest/gtest.h>
#include <set>
#include <vector>

using zeblogd::Schedule;

namespace {

constexpr FTIME k_noon = 1416571200; // 2014-11-21T12:00:00Z

// What the schedule gives out while the clock stands at each of the times.
std::vector<FTIME> given(Schedule schedule, const std::vector<FTIME> &clock) {
    std::vector<FTIME> result;
    for (const FTIME now : clock)
        if (const auto time = schedule.due(now))
            result.push_back(*time);
    return result;
}

using Times = std::vector<FTIME>;

TEST(ZeblogdSchedule, GivesOutEachWholeMinuteOnce) {
    Times clock;
    for (int i = 1; i <= 1300; ++i)
        clock.push_back(k_noon + 5 + i * 0.125); // 162.5 s
    EXPECT_EQ(given(Schedule(60, k_noon + 5), clock), (Times{k_noon + 60, k_noon + 120}));
}

TEST(ZeblogdSchedule, ATimeIsDueAtItselfAndNotBefore) {
    EXPECT_EQ(given(Schedule(60, k_noon + 1), {k_noon + 59.999}), Times{});
    EXPECT_EQ(given(Schedule(60, k_noon + 1), {k_noon + 60}), Times{k_noon + 60});
}

TEST(ZeblogdSchedule, TheTimeAtWhichItBeginsIsPast) {
    EXPECT_EQ(given(Schedule(60, k_noon), {k_noon, k_noon + 59}), Times{});
}

TEST(ZeblogdSchedule, DaysBeginAtMidnightUTC) {
    const FTIME midnight = 1416614400; // 2014-11-22T00:00:00Z
    EXPECT_EQ(given(Schedule(86400, k_noon), {midnight - 1, midnight + 0.5}), Times{midnight});
}

TEST(ZeblogdSchedule, ALateCallGivesOutTheLatestAndSkipsTheOthers) {
    EXPECT_EQ(given(Schedule(60, k_noon), {k_noon + 200, k_noon + 210, k_noon + 240}),
              (Times{k_noon + 180, k_noon + 240}));
}

TEST(ZeblogdSchedule, AClockSetBackByLessThanTheIntervalRepeatsNothing) {
    EXPECT_EQ(given(Schedule(60, k_noon), {k_noon + 60, k_noon + 30, k_noon + 60, k_noon + 120}),
              (Times{k_noon + 60, k_noon + 120}));
}

TEST(ZeblogdSchedule, AClockSetBackByJustTheIntervalRepeatsNothing) {
    EXPECT_EQ(given(Schedule(60, k_noon - 10), {k_noon, k_noon - 60, k_noon, k_noon + 60}),
              (Times{k_noon, k_noon + 60}));
}

TEST(ZeblogdSchedule, AClockSetBackFurtherGoesOnWithTheNextTime) {
    EXPECT_EQ(given(Schedule(60, k_noon), {k_noon + 60, k_noon - 3590, k_noon - 3540}),
              (Times{k_noon + 60, k_noon - 3540}));
}

TEST(ZeblogdSchedule, AClockSetBackBeforeTheFirstTimeLosesNone) {
    EXPECT_EQ(given(Schedule(60, k_noon + 5), {k_noon - 5, k_noon + 5}), Times{k_noon});
}

TEST(ZeblogdSchedule, AClockSetFromTheEpochToThePresentGivesOutOneTime) {
    EXPECT_EQ(given(Schedule(3600, 12), {13, k_noon + 5, k_noon + 6}), Times{k_noon});
}

TEST(ZeblogdSchedule, AnIntervalOfZeroGivesOutNothing) {
    Schedule schedule(0, k_noon);
    EXPECT_EQ(given(schedule, {k_noon + 1, k_noon + 1e6, 0}), Times{});
    EXPECT_EQ(schedule.wait(k_noon), HUGE_VAL);
}

TEST(ZeblogdSchedule, AnotherIntervalCountsFromTheChange) {
    Schedule schedule(3600, k_noon);
    schedule.set_interval(60, k_noon + 90);
    EXPECT_EQ(schedule.interval(), 60);
    EXPECT_EQ(given(schedule, {k_noon + 100, k_noon + 120}), Times{k_noon + 120});
}

TEST(ZeblogdSchedule, AChangeAtATimeDoesNotGiveItOutAgain) {
    Schedule schedule(60, k_noon);
    EXPECT_EQ(schedule.due(k_noon + 60), k_noon + 60);
    schedule.set_interval(30, k_noon + 60);
    EXPECT_EQ(given(schedule, {k_noon + 60, k_noon + 45, k_noon + 60, k_noon + 90}),
              Times{k_noon + 90});
}

TEST(ZeblogdSchedule, SwitchedOffAndOnItGoesOn) {
    Schedule schedule(60, k_noon);
    schedule.set_interval(0, k_noon + 10);
    EXPECT_EQ(schedule.due(k_noon + 100), std::nullopt);
    schedule.set_interval(60, k_noon + 130);
    EXPECT_EQ(given(schedule, {k_noon + 131, k_noon + 180}), Times{k_noon + 180});
}

TEST(ZeblogdSchedule, WaitsUntilTheNextTime) {
    const Schedule schedule(60, k_noon);
    EXPECT_EQ(schedule.wait(k_noon), 60);
    EXPECT_EQ(schedule.wait(k_noon + 59.75), 0.25);
    EXPECT_EQ(schedule.wait(k_noon + 120), 60) << "the time itself has come";
}

TEST(ZeblogdSchedule, FractionsOfASecondNeitherRepeatNorSkip) {
    Schedule schedule(0.1, k_noon);
    int count = 0;
    for (int i = 1; i <= 10000; ++i) // 100 s
        count += schedule.due(k_noon + i * 0.01) ? 1 : 0;
    EXPECT_GE(count, 999);
    EXPECT_LE(count, 1000);
}

// The rule in other words: the latest multiple is given out when the clock has come to it from
// below, unless it was given out before. What was given out is forgotten when the clock stands more
// than an interval before the latest of it.
class Rule {
  public:
    Rule(int interval, int now) : interval_(interval), before_(now) {}

    std::optional<FTIME> due(int now) {
        const int latest = now / interval_ * interval_;
        const bool has_come = before_ < latest;
        before_ = now;
        if (!given_.empty() && *given_.rbegin() - now > interval_)
            given_.clear();
        if (!has_come || !given_.insert(latest).second)
            return std::nullopt;
        return latest;
    }

  private:
    int interval_, before_;
    std::set<int> given_;
};

struct Walk {
    Schedule schedule;
    Rule rule;
    int now;
};

constexpr int k_interval = 4;
constexpr int k_steps[] = {-9, -5, -4, -3, -1, 0, 1, 2, 4, 7, 13};

// Every way in which the clock can go on from here, so many steps far.
int walk(const Walk &from, int steps) {
    int wrong = 0;
    for (const int step : k_steps) {
        Walk walker = from;
        walker.now += step;
        wrong += walker.schedule.due(walker.now) != walker.rule.due(walker.now);
        if (steps > 1)
            wrong += walk(walker, steps - 1);
    }
    return wrong;
}

TEST(ZeblogdSchedule, FollowsTheRuleHoweverTheClockIsSet) {
    for (int start = 1000; start < 1000 + k_interval; ++start)
        EXPECT_EQ(walk({Schedule(k_interval, start), Rule(k_interval, start), start}, 5), 0);
}

} // namespace

#include "eventat.h"

#include "support.h"
#include "util.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using zeb::test::StderrCapture;

namespace {

// What the callbacks saw, newest last. The parameter of an event is its number.
struct Call {
    int number;
    double sched_time;
    double cur_time;
    bool operator==(const Call &other) const = default;
};
std::vector<Call> g_runs;

int number_of(void *param) {
    return param != nullptr ? *static_cast<int *>(param) : 0;
}

void once(EVENTAT_params *p, EVENTAT_action *, void *param) {
    g_runs.push_back({number_of(param), p->sched_time, p->cur_time});
}

void every_minute(EVENTAT_params *p, EVENTAT_action *a, void *param) {
    once(p, a, param);
    EXPECT_EQ(a->repeat_time, -1.0);
    a->repeat_time = p->sched_time + 60.0;
}

EVENTAT_event *add(double at, EVENTAT_callback cb, int number) {
    return EVENTAT_add(at, cb, &number, sizeof number);
}

BOOL any(EVENTAT_matchparams *, void *) {
    return TRUE;
}

BOOL has_number(EVENTAT_matchparams *mps, void *pd) {
    return number_of(mps->ev_pd) == *static_cast<int *>(pd);
}

class Events : public testing::Test {
  protected:
    Events() {
        g_runs.clear();
        EXPECT_TRUE(EVENTAT_init());
    }
    ~Events() override { EVENTAT_cleanup(); }

    // The numbers of the events that run at a time.
    static std::vector<int> run(double time) {
        g_runs.clear();
        EVENTAT_run(time);
        std::vector<int> numbers;
        for (const Call &r : g_runs)
            numbers.push_back(r.number);
        return numbers;
    }
};

} // namespace

TEST_F(Events, ARunAtZeroUsesTheCurrentTime) {
    const FTIME before = UTIL_ftime();
    add(before, once, 1);
    add(before + 3600.0, once, 2);
    EXPECT_THAT(run(0.0), ElementsAre(1));
    EXPECT_GE(g_runs[0].cur_time, before);
    EXPECT_LT(g_runs[0].cur_time, before + 3600.0);
    add(before, once, 3);
    EXPECT_THAT(run(-5.0), ElementsAre(3));
}

TEST_F(Events, ExactlyDueRunsAndAMicrosecondLaterDoesNot) {
    add(1000.0, once, 1);
    add(1000.000001, once, 2);
    EXPECT_THAT(run(1000.0), ElementsAre(1));
    EXPECT_EQ(g_runs[0], (Call{1, 1000.0, 1000.0}));
    EXPECT_THAT(run(1000.000001), ElementsAre(2));
}

TEST_F(Events, ARepeatingEventRunsOncePerMinuteWithoutDrift) {
    add(600.0, every_minute, 1);
    EXPECT_THAT(run(603.5), ElementsAre(1));
    EXPECT_EQ(g_runs[0], (Call{1, 600.0, 603.5}));
    EXPECT_THAT(run(659.9), IsEmpty());
    EXPECT_THAT(run(662.0), ElementsAre(1));
    EXPECT_EQ(g_runs[0], (Call{1, 660.0, 662.0}));
    EXPECT_THAT(run(719.9), IsEmpty());
    EXPECT_THAT(run(720.0), ElementsAre(1));
}

TEST_F(Events, AnEventThatDoesNotRepeatRunsOnceAndIsGone) {
    add(100.0, once, 1); // its parameter copy: the leak checker's to judge
    EXPECT_THAT(run(100.0), ElementsAre(1));
    EXPECT_EQ(EVENTAT_findnext(any, nullptr), nullptr);
    EXPECT_THAT(run(200.0), IsEmpty());
}

TEST_F(Events, ARepeatTimeOfZeroStillRepeats) {
    EVENTAT_event *ev = EVENTAT_add(
        100.0, [](EVENTAT_params *, EVENTAT_action *a, void *) { a->repeat_time = 0.0; }, nullptr,
        0);
    EVENTAT_run(100.0);
    EXPECT_EQ(EVENTAT_timeofevent(ev), 0.0);
}

TEST_F(Events, OnePassRunsAnEventOnceThoughItRepeatsInThePast) {
    add(100.0, every_minute, 1);
    EXPECT_THAT(run(1000.0), ElementsAre(1));
    EXPECT_THAT(run(1000.0), ElementsAre(1));
    EXPECT_EQ(g_runs[0].sched_time, 160.0);
}

TEST_F(Events, RunInTheOrderTheyWereAdded) {
    add(300.0, once, 1);
    add(100.0, once, 2);
    add(200.0, once, 3);
    EXPECT_THAT(run(300.0), ElementsAre(1, 2, 3));
}

TEST_F(Events, AddedDuringThePassRunInItWhenDue) {
    EVENTAT_add(
        100.0,
        [](EVENTAT_params *p, EVENTAT_action *, void *) {
            add(p->cur_time, once, 1);
            add(p->cur_time + 1.0, once, 2);
        },
        nullptr, 0);
    EXPECT_THAT(run(100.0), ElementsAre(1));
    EXPECT_THAT(run(101.0), ElementsAre(2));
}

TEST_F(Events, TheParameterIsTheEventsOwnCopy) {
    int number = 1;
    EVENTAT_event *ev = EVENTAT_add(100.0, once, &number, sizeof number);
    number = 2;
    EXPECT_NE(EVENTAT_paramofevent(ev), &number);
    EXPECT_EQ(number_of(EVENTAT_paramofevent(ev)), 1);
    EXPECT_THAT(run(100.0), ElementsAre(1));
}

TEST_F(Events, WithoutAParameterTheCallbackGetsNull) {
    int number = 1;
    EXPECT_EQ(EVENTAT_paramofevent(EVENTAT_add(100.0, once, nullptr, 8)), nullptr);
    EXPECT_EQ(EVENTAT_paramofevent(EVENTAT_add(100.0, once, &number, 0)), nullptr);
    EXPECT_THAT(run(100.0), ElementsAre(0, 0));
}

TEST_F(Events, ANullCallbackAddsNothing) {
    StderrCapture capture;
    EXPECT_EQ(EVENTAT_add(100.0, nullptr, nullptr, 0), nullptr);
    EXPECT_EQ(capture.finish(), "");
    EXPECT_EQ(EVENTAT_findnext(any, nullptr), nullptr);
}

TEST_F(Events, ADeletedEventNeverRuns) {
    EVENTAT_event *ev = add(100.0, once, 1);
    add(100.0, once, 2);
    EVENTAT_delete(ev);
    EXPECT_EQ(EVENTAT_paramofevent(ev), nullptr);
    EXPECT_THAT(run(100.0), ElementsAre(2));
}

TEST_F(Events, TheTimeOfADeletedEventIsMinusOneBeforeTheNextRun) {
    EVENTAT_event *ev = add(100.0, once, 1);
    EXPECT_EQ(EVENTAT_timeofevent(ev), 100.0);
    EVENTAT_delete(ev);
    EXPECT_EQ(EVENTAT_timeofevent(ev), -1.0);
}

TEST_F(Events, ReschedulingMovesAnEventButRevivesNone) {
    EVENTAT_event *moved = add(100.0, once, 1);
    EVENTAT_event *deleted = add(100.0, once, 2);
    EVENTAT_reschedule(moved, 200.0);
    EVENTAT_delete(deleted);
    EVENTAT_reschedule(deleted, 200.0);
    EXPECT_EQ(EVENTAT_timeofevent(moved), 200.0);
    EXPECT_THAT(run(100.0), IsEmpty());
    EXPECT_THAT(run(200.0), ElementsAre(1));
}

TEST_F(Events, NullHandlesAreHarmless) {
    StderrCapture capture;
    EVENTAT_delete(nullptr);
    EVENTAT_reschedule(nullptr, 1.0);
    EXPECT_EQ(EVENTAT_timeofevent(nullptr), -1.0);
    EXPECT_EQ(EVENTAT_paramofevent(nullptr), nullptr);
    EXPECT_EQ(capture.finish(), "");
}

TEST_F(Events, FindnextFindsTheEarliestThatMatches) {
    EVENTAT_event *late = add(300.0, once, 1);
    EVENTAT_event *early = add(100.0, once, 2);
    add(200.0, once, 1);
    EXPECT_EQ(EVENTAT_findnext(any, nullptr), early);
    int number = 2;
    EXPECT_EQ(EVENTAT_findnext(has_number, &number), early);
    number = 3;
    EXPECT_EQ(EVENTAT_findnext(has_number, &number), nullptr);
    number = 1;
    EVENTAT_delete(EVENTAT_findnext(has_number, &number));
    EXPECT_EQ(EVENTAT_findnext(has_number, &number), late);
}

TEST_F(Events, FindnextTellsMatchAllAboutTheEvent) {
    EVENTAT_event *ev = add(100.0, once, 7);
    EVENTAT_matchparams seen = {};
    EVENTAT_findnext(
        [](EVENTAT_matchparams *mps, void *pd) -> BOOL {
            *static_cast<EVENTAT_matchparams *>(pd) = *mps;
            return FALSE;
        },
        &seen);
    EXPECT_EQ(seen.ev, ev);
    EXPECT_EQ(seen.ev_cb, once);
    EXPECT_EQ(seen.ev_pd, EVENTAT_paramofevent(ev));
    EXPECT_EQ(seen.ev_sched_time, 100.0);
}

TEST_F(Events, FindnextDoesNotOfferEventsLaterThanTheBest) {
    add(100.0, once, 1);
    add(200.0, once, 2);
    add(50.0, once, 3);
    std::vector<int> offered;
    EVENTAT_findnext(
        [](EVENTAT_matchparams *mps, void *pd) -> BOOL {
            static_cast<std::vector<int> *>(pd)->push_back(number_of(mps->ev_pd));
            return TRUE;
        },
        &offered);
    EXPECT_THAT(offered, ElementsAre(1, 3));
}

TEST_F(Events, OfTwoAtTheSameTimeFindnextReturnsTheOneAddedLater) {
    add(100.0, once, 1);
    EVENTAT_event *second = add(100.0, once, 2);
    EXPECT_EQ(EVENTAT_findnext(any, nullptr), second);
}

TEST_F(Events, FindnextFromWithinACallbackDoesNotFindTheRunningEvent) {
    static EVENTAT_event *found;
    found = nullptr;
    const EVENTAT_callback look = [](EVENTAT_params *, EVENTAT_action *a, void *) {
        found = EVENTAT_findnext(any, nullptr);
        a->repeat_time = 200.0;
    };
    EVENTAT_event *running = EVENTAT_add(100.0, look, nullptr, 0);
    EVENTAT_run(100.0);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(EVENTAT_findnext(any, nullptr), running);
    EVENTAT_event *other = add(300.0, once, 1);
    EVENTAT_run(200.0);
    EXPECT_EQ(found, other);
}

TEST_F(Events, MatchCallbackAcceptsTheEventsOfOneCallback) {
    add(100.0, every_minute, 1);
    EVENTAT_event *ev = add(200.0, once, 2);
    EXPECT_EQ(EVENTAT_findnext(EVENTAT_match_callback, reinterpret_cast<void *>(once)), ev);
    EVENTAT_delete(ev);
    EXPECT_EQ(EVENTAT_findnext(EVENTAT_match_callback, reinterpret_cast<void *>(once)), nullptr);
}

TEST_F(Events, FindnextWithoutAMatchIsReported) {
    StderrCapture capture;
    add(100.0, once, 1);
    EXPECT_EQ(EVENTAT_findnext(nullptr, nullptr), nullptr);
    EXPECT_THAT(capture.finish(), HasSubstr("assertion failed (eventat.cpp:"));
}

TEST_F(Events, ACallbackMayDeleteItselfAndOthers) {
    static EVENTAT_event *self, *other;
    self = EVENTAT_add(
        100.0,
        [](EVENTAT_params *p, EVENTAT_action *a, void *) {
            EVENTAT_delete(self);
            EVENTAT_delete(other);
            a->repeat_time = p->cur_time;
        },
        nullptr, 0);
    other = add(100.0, once, 1);
    EXPECT_THAT(run(100.0), IsEmpty());
    EXPECT_EQ(EVENTAT_timeofevent(self), -1.0);
    EXPECT_THAT(run(100.0), IsEmpty());
    EXPECT_EQ(EVENTAT_findnext(any, nullptr), nullptr);
}

TEST_F(Events, ReschedulingTheRunningEventDoesNotRepeatIt) {
    static EVENTAT_event *self;
    self = EVENTAT_add(
        100.0,
        [](EVENTAT_params *p, EVENTAT_action *a, void *param) {
            once(p, a, param);
            EVENTAT_reschedule(self, 200.0);
        },
        nullptr, 0);
    EVENTAT_run(100.0);
    EXPECT_THAT(run(200.0), IsEmpty());
}

TEST_F(Events, WhatACallbackWritesIntoItsParametersStaysItsOwn) {
    EVENTAT_add(
        100.0, [](EVENTAT_params *p, EVENTAT_action *, void *) { p->cur_time = 1e9; }, nullptr, 0);
    add(200.0, once, 1);
    EXPECT_THAT(run(100.0), IsEmpty());
}

TEST_F(Events, ARunFromWithinACallbackIsReportedAndDoesNothing) {
    EVENTAT_add(
        100.0,
        [](EVENTAT_params *p, EVENTAT_action *a, void *param) {
            once(p, a, param);
            EVENTAT_run(p->cur_time);
        },
        nullptr, 0);
    add(100.0, once, 1);
    StderrCapture capture;
    EXPECT_THAT(run(100.0), ElementsAre(0, 1));
    EXPECT_THAT(capture.finish(), HasSubstr("EVENTAT_run called from within an event (eventat"));
}

TEST_F(Events, ACleanUpFromWithinACallbackEndsAllEvents) {
    add(100.0, every_minute, 1);
    EVENTAT_add(
        100.0, [](EVENTAT_params *, EVENTAT_action *, void *) { EVENTAT_cleanup(); }, nullptr, 0);
    add(100.0, once, 2);
    EXPECT_THAT(run(100.0), ElementsAre(1));
    EXPECT_THAT(run(1000.0), IsEmpty());
}

TEST_F(Events, CleanUpReleasesEverything) {
    add(100.0, once, 1);
    EVENTAT_add(100.0, once, nullptr, 0);
    EVENTAT_cleanup();
    EXPECT_EQ(EVENTAT_findnext(any, nullptr), nullptr);
    EXPECT_THAT(run(100.0), IsEmpty());
}

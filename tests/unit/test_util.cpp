#include "util.h"

#include "support.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using testing::HasSubstr;
using testing::Not;
using zeb::test::ScopedEnv;
using zeb::test::StderrCapture;

namespace {

// Puts the signal mask and the handlers that the set-ups change back.
class Signals : public testing::Test {
  protected:
    Signals() {
        pthread_sigmask(SIG_SETMASK, nullptr, &mask_);
        for (size_t i = 0; i < std::size(k_signals); ++i)
            sigaction(k_signals[i], nullptr, &actions_[i]);
    }
    ~Signals() override {
        for (size_t i = 0; i < std::size(k_signals); ++i)
            sigaction(k_signals[i], &actions_[i], nullptr);
        pthread_sigmask(SIG_SETMASK, &mask_, nullptr);
        g_util_in_signal_exit = FALSE;
    }

    static bool blocked(int signal) {
        sigset_t now;
        pthread_sigmask(SIG_SETMASK, nullptr, &now);
        return sigismember(&now, signal) == 1;
    }

  private:
    static constexpr int k_signals[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};
    sigset_t mask_;
    struct sigaction actions_[4];
};

std::string field(const char *text, const char *separators, int item) {
    char out[64] = "untouched";
    return UTIL_stringfield(text, separators, item, out, sizeof out) ? out
                                                                     : std::string("none:") + out;
}

std::string field_consec(const char *text, const char *separators, int item) {
    char out[64] = "untouched";
    return UTIL_stringfield_consec(text, separators, item, out, sizeof out)
               ? out
               : std::string("none:") + out;
}

std::string time_text(time_t t) {
    char text[17];
    memset(text, '#', sizeof text);
    UTIL_time2string(t, text);
    EXPECT_EQ(text[16], '#') << "written beyond 16 bytes";
    return text;
}

std::string ftime_text(FTIME t) {
    char text[21];
    memset(text, '#', sizeof text);
    UTIL_ftime2string(t, text);
    EXPECT_EQ(text[20], '#') << "written beyond 20 bytes";
    return text;
}

} // namespace

// ---- Process and signals

TEST_F(Signals, InitFillsTheSetOfAllSignals) {
    UTIL_init();
    for (const int signal : {SIGHUP, SIGINT, SIGUSR1, SIGPIPE, SIGTERM})
        EXPECT_EQ(sigismember(&g_util_all_signals, signal), 1) << signal;
}

TEST_F(Signals, AtexitMaskBlocksEverySignal) {
    UTIL_atexit_set_signal_mask();
    for (const int signal : {SIGHUP, SIGINT, SIGUSR1, SIGTERM, SIGPIPE})
        EXPECT_TRUE(blocked(signal)) << signal;
}

TEST_F(Signals, PollSetupUnblocksTheExitSignalsOnly) {
    UTIL_exit_signal_poll_setup();
    EXPECT_FALSE(blocked(SIGINT));
    EXPECT_FALSE(blocked(SIGTERM));
    for (const int signal : {SIGHUP, SIGUSR1, SIGPIPE, SIGALRM, SIGCHLD})
        EXPECT_TRUE(blocked(signal)) << signal;
}

TEST_F(Signals, PollSetupHandlesWithAllSignalsBlockedAndIgnoresSigpipe) {
    UTIL_exit_signal_poll_setup();
    struct sigaction action;
    sigaction(SIGTERM, nullptr, &action);
    EXPECT_NE(action.sa_handler, SIG_DFL);
    EXPECT_EQ(sigismember(&action.sa_mask, SIGUSR1), 1);
    EXPECT_EQ(sigismember(&action.sa_mask, SIGALRM), 1);
    sigaction(SIGPIPE, nullptr, &action);
    EXPECT_EQ(action.sa_handler, SIG_IGN);
    sigaction(SIGHUP, nullptr, &action);
    EXPECT_EQ(action.sa_handler, SIG_DFL);
}

TEST_F(Signals, ExitSignalsRaiseTheFlagAndASetupClearsIt) {
    for (const int signal : {SIGINT, SIGTERM}) {
        UTIL_exit_signal_poll_setup();
        EXPECT_FALSE(UTIL_exit_poll());
        raise(signal);
        EXPECT_TRUE(UTIL_exit_poll());
        EXPECT_TRUE(UTIL_exit_poll());
    }
    UTIL_exit_signal_poll_setup();
    EXPECT_FALSE(UTIL_exit_poll());
}

TEST_F(Signals, HupSetupTakesSighupAsWell) {
    UTIL_exit_signal_poll_setup_hup();
    EXPECT_FALSE(blocked(SIGHUP));
    EXPECT_FALSE(UTIL_exit_poll());
    raise(SIGHUP);
    EXPECT_TRUE(UTIL_exit_poll());
}

TEST_F(Signals, ExitPollRestoresTheMask) {
    UTIL_exit_signal_poll_setup();
    UTIL_exit_poll();
    EXPECT_FALSE(blocked(SIGINT));
    EXPECT_TRUE(blocked(SIGUSR1));
}

TEST_F(Signals, AnotherThreadSeesTheFlag) {
    UTIL_exit_signal_poll_setup();
    bool seen = false;
    std::thread poller([&] { seen = zeb::test::wait_until([] { return UTIL_exit_poll() != 0; }); });
    kill(getpid(), SIGTERM);
    poller.join();
    EXPECT_TRUE(seen);
}

TEST_F(Signals, ExitSetupEndsTheProcessWithStatusZero) {
    for (const int signal : {SIGINT, SIGTERM}) {
        const pid_t child = fork();
        if (child == 0) {
            UTIL_exit_signal_setup();
            raise(signal);
            _exit(7);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 0);
    }
}

TEST_F(Signals, EmptyHandlerOnlyInterrupts) {
    struct sigaction action = {};
    action.sa_handler = UTIL_empty_sighandler;
    struct sigaction old;
    sigaction(SIGUSR1, &action, &old);
    raise(SIGUSR1);
    sigaction(SIGUSR1, &old, nullptr);
    EXPECT_FALSE(UTIL_exit_poll());
}

// ---- Start-up handshake: in a child, whose streams it changes

namespace {

struct Handshake {
    std::string output; // what the launching process reads
    int status;         // the child's own checks, as an exit status
};

bool is_null_device(int fd) {
    struct stat ours, null;
    return fstat(fd, &ours) == 0 && stat("/dev/null", &null) == 0 && ours.st_rdev == null.st_rdev &&
           S_ISCHR(ours.st_mode);
}

int check_handshake_done() {
    if (getsid(0) != getpid())
        return 2;
    for (int fd = 0; fd <= 2; ++fd) {
        if (!is_null_device(fd))
            return 3 + fd;
    }
    return 0;
}

int check_handshake_not_done() {
    return is_null_device(1) || getsid(0) == getpid() ? 1 : 0;
}

Handshake run_handshake(const char *value, int (*check)()) {
    const ScopedEnv env("ZEB2STARTUP", value);
    int ends[2];
    if (pipe(ends) != 0)
        return {"no pipe", -1};
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], 1);
        close(ends[0]);
        close(ends[1]);
        UTIL_startupokay();
        _exit(check());
    }
    close(ends[1]);
    Handshake result{"", -1};
    char block[64];
    for (ssize_t n; (n = read(ends[0], block, sizeof block)) > 0;)
        result.output.append(block, static_cast<size_t>(n));
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

} // namespace

TEST(Startup, SaysOkayAndLeavesTheTerminal) {
    for (const char *value : {"1", "true", "T", "-3", "12abc"}) {
        const Handshake result = run_handshake(value, check_handshake_done);
        EXPECT_EQ(result.output, "STARTUP OKAY\n") << value;
        EXPECT_EQ(result.status, 0) << value;
    }
}

TEST(Startup, DoesNothingUnasked) {
    for (const char *value : {static_cast<const char *>(nullptr), "", "0", "no", "false"}) {
        const Handshake result = run_handshake(value, check_handshake_not_done);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.status, 0);
    }
}

TEST(Startup, AFailingSetsidIsReportedAndPassedOver) {
    // A session leader cannot start another session.
    const StderrCapture capture;
    const ScopedEnv env("ZEB2STARTUP", "1");
    const pid_t child = fork();
    if (child == 0) {
        setsid();
        close(STDOUT_FILENO);
        (void)!open("/dev/zero", O_WRONLY); // swallows the greeting, yet is not the null device
        UTIL_startupokay();
        _exit(is_null_device(1) ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_THAT(capture.text(), HasSubstr("assertion failed (util_signal.cpp:"));
    EXPECT_THAT(capture.text(), HasSubstr(": setsid() != -1: Operation not permitted\n"));
}

TEST(Startup, StopsWithoutANullDevice) {
    const StderrCapture capture;
    const ScopedEnv env("ZEB2STARTUP", "1");
    const pid_t child = fork();
    if (child == 0) {
        const rlimit none = {3, 3};
        setrlimit(RLIMIT_NOFILE, &none);
        UTIL_startupokay();
        _exit(is_null_device(1) ? 1 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_THAT(capture.text(), HasSubstr(": Too many open files\n"));
}

TEST(MakeRelative, CopiesAnAbsolutePath) {
    const ScopedEnv env("ZEB2", "/opt/zeb");
    char out[64];
    UTIL_make_relative("/etc/zeb.conf", out);
    EXPECT_STREQ(out, "/etc/zeb.conf");
}

TEST(MakeRelative, PutsTheInstallationRootInFront) {
    const ScopedEnv env("ZEB2", "/opt/zeb");
    char out[64];
    UTIL_make_relative("etc/zeb.conf", out);
    EXPECT_STREQ(out, "/opt/zeb/etc/zeb.conf");
}

TEST(MakeRelative, PutsASlashInFrontWithoutARoot) {
    char out[64];
    {
        const ScopedEnv env("ZEB2", nullptr);
        UTIL_make_relative("etc/zeb.conf", out);
        EXPECT_STREQ(out, "/etc/zeb.conf");
    }
    const ScopedEnv env("ZEB2", "");
    UTIL_make_relative("etc", out);
    EXPECT_STREQ(out, "/etc");
    UTIL_make_relative("", out);
    EXPECT_STREQ(out, "/");
}

TEST(MakeRelative, WritesNoMoreThanItSays) {
    const ScopedEnv env("ZEB2", "/opt");
    char out[4 + 3 + 2 + 1];
    memset(out, '#', sizeof out);
    UTIL_make_relative("etc", out);
    EXPECT_STREQ(out, "/opt/etc");
    EXPECT_EQ(out[9], '#');
}

TEST(MakeRelative, WorksInPlace) {
    const ScopedEnv env("ZEB2", "/opt");
    char path[16] = "etc";
    UTIL_make_relative(path, path);
    EXPECT_STREQ(path, "/opt/etc");
    UTIL_make_relative(path, path);
    EXPECT_STREQ(path, "/opt/etc");
}

// ---- Time

TEST(Time, FtimeIsTheCurrentTime) {
    const double before = static_cast<double>(time(nullptr));
    const FTIME now = UTIL_ftime();
    EXPECT_GE(now, before);
    EXPECT_LE(now, static_cast<double>(time(nullptr)) + 1.0);
}

TEST(Time, FsleepSleepsAtLeastAsLong) {
    timespec begin, end;
    clock_gettime(CLOCK_MONOTONIC, &begin);
    UTIL_fsleep(0.005);
    clock_gettime(CLOCK_MONOTONIC, &end);
    EXPECT_GE((end.tv_sec - begin.tv_sec) * 1000000000LL + (end.tv_nsec - begin.tv_nsec), 5000000);
}

TEST(Time, FsleepReturnsAtOnceWithoutATime) {
    UTIL_fsleep(0.0);
    UTIL_fsleep(-5.0);
    UTIL_fsleep(std::nan(""));
    UTIL_fsleep(-std::numeric_limits<double>::infinity());
    UTIL_sched_yield();
}

TEST(Time, ASignalEndsAnFsleepOfAnyLength) {
    struct sigaction action = {};
    action.sa_handler = UTIL_empty_sighandler;
    struct sigaction old;
    sigaction(SIGUSR1, &action, &old);
    std::atomic<bool> awake = false;
    std::thread sleeper([&] {
        UTIL_fsleep(std::numeric_limits<double>::infinity());
        awake = true;
    });
    EXPECT_TRUE(zeb::test::wait_until([&] {
        pthread_kill(sleeper.native_handle(), SIGUSR1);
        return awake.load();
    }));
    sleeper.join();
    sigaction(SIGUSR1, &old, nullptr);
}

TEST(Time, TimegmConvertsUtc) {
    struct tm parts = {};
    parts.tm_year = 114;
    parts.tm_mon = 7;
    parts.tm_mday = 21;
    parts.tm_hour = 14;
    parts.tm_min = 24;
    parts.tm_sec = 1;
    EXPECT_EQ(UTIL_timegm(&parts), 1408631041.0);
}

TEST(Time, WritesSecondsForm) {
    EXPECT_EQ(time_text(1408631041), "20140821_142401");
    EXPECT_EQ(time_text(0), "19700101_000000");
    EXPECT_EQ(time_text(-2), "19691231_235958");
}

TEST(Time, MinusOneSecondIsInvalid) {
    EXPECT_EQ(time_text(-1), "INVALID");
}

TEST(Time, WritesMillisecondsFormWithFourDigits) {
    EXPECT_EQ(ftime_text(1408631041.25), "20140821_1424010250");
    EXPECT_EQ(ftime_text(0.0), "19700101_0000000000");
    EXPECT_EQ(ftime_text(0.9999), "19700101_0000000999");
}

TEST(Time, MinusOneIsInvalidAndMinusTwoADate) {
    EXPECT_EQ(ftime_text(-1.0), "INVALID");
    EXPECT_EQ(ftime_text(-2.0), "19691231_2359580000");
}

TEST(Time, OnlyExactlyMinusOneIsInvalid) {
    EXPECT_EQ(ftime_text(-0.5), "19691231_2359590500");
    EXPECT_EQ(ftime_text(-1.25), "19691231_2359580750");
}

TEST(Time, YearsBeyondFourDigitsStopAtTheEdgeAndAreReported) {
    if (sizeof(time_t) < 8)
        GTEST_SKIP() << "this host's time_t ends in 2038";
    StderrCapture capture;
    // 1 January 10000; and 15 February -1199, 14:13:20: 8 cycles of 400 years before one of 2001.
    EXPECT_EQ(time_text(static_cast<time_t>(253402300800LL)), "100000101_00000");
    EXPECT_EQ(ftime_text(253402300800.0), "100000101_000000000");
    EXPECT_EQ(time_text(static_cast<time_t>(-100000000000LL)), "-11990215_14132");
    const std::string text = capture.finish();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3);
    EXPECT_THAT(text, HasSubstr("Time 253402300800 does not fit its text and is cut to 10000"));
}

TEST(Time, WhatHasNoDateIsInvalidAndReported) {
    StderrCapture capture;
    EXPECT_EQ(ftime_text(std::nan("")), "INVALID");
    EXPECT_EQ(ftime_text(std::numeric_limits<double>::infinity()), "INVALID");
    EXPECT_EQ(ftime_text(-1e300), "INVALID");
    if (sizeof(time_t) == 8) {
        EXPECT_EQ(time_text(std::numeric_limits<time_t>::max()), "INVALID");
    }
    EXPECT_THAT(capture.finish(), HasSubstr("No date for time "));
}

TEST(Time, ReadsBothForms) {
    EXPECT_EQ(UTIL_string2time("20140821_142401"), 1408631041);
    EXPECT_EQ(UTIL_string2ftime("20140821_1424010250"), 1408631041.25);
    EXPECT_EQ(UTIL_string2ftime("19691231_2359580000"), -2.0);
}

TEST(Time, ShortTextsTakeTheRestFromTheEpoch) {
    EXPECT_EQ(UTIL_string2time("2014"), 1388534400);
    EXPECT_EQ(UTIL_string2time("20140821"), 1408579200);
    EXPECT_EQ(UTIL_string2time(""), 0);
    EXPECT_EQ(UTIL_string2time("INVALID"), 0);
    EXPECT_EQ(UTIL_string2ftime("20140821_142401"), 1408631041.0);
    EXPECT_EQ(UTIL_string2ftime(""), 0.0);
}

TEST(Time, DayOfYearAtNoonOfTheFirstIsOneAndAHalf) {
    EXPECT_EQ(UTIL_fdoy(1388534400.0 + 43200.0), 1.5); // 2014-01-01T12:00:00Z
}

TEST(Time, DayOfYearHasTheFractionOfTheSecond) {
    // 2012-12-31T06:00:00.5Z, the 366th day of a leap year
    EXPECT_DOUBLE_EQ(UTIL_fdoy(1356933600.5), 366.25 + 0.5 / 86400.0);
    EXPECT_DOUBLE_EQ(UTIL_fdoy(1408631041.0), 233.0 + 14 / 24.0 + 24 / 1440.0 + 1 / 86400.0);
}

TEST(Time, DayOfYearOfNoTimeIsMissing) {
    EXPECT_EQ(UTIL_fdoy(MVC), MVC);
    EXPECT_EQ(UTIL_fdoy(0.0), MVC);
    EXPECT_EQ(UTIL_fdoy(-1.0), MVC);
    EXPECT_EQ(UTIL_fdoy(std::nan("")), MVC);
    EXPECT_EQ(UTIL_fdoy(1e300), MVC);
}

// ---- Text

TEST(Strncpynt, FillsWithZerosAndTerminates) {
    char out[8];
    memset(out, '#', sizeof out);
    UTIL_strncpynt(out, "abc", sizeof out);
    EXPECT_EQ(memcmp(out, "abc\0\0\0\0\0", 8), 0);
    UTIL_strncpynt(out, "abcdefghij", sizeof out);
    EXPECT_EQ(memcmp(out, "abcdefg\0", 8), 0);
}

TEST(Strncpynt, ADestinationOfNoBytesIsReported) {
    StderrCapture capture;
    char out = '#';
    UTIL_strncpynt(&out, "abc", 0);
    EXPECT_EQ(out, '#');
    EXPECT_THAT(capture.finish(), HasSubstr("assertion failed (util_text.cpp:"));
}

TEST(Strcasecmp, IgnoresCase) {
    EXPECT_EQ(UTIL_strcasecmp("ABC", "abc"), 0);
    EXPECT_EQ(UTIL_strcasecmp("", ""), 0);
}

TEST(Strcasecmp, OrdersByTheFirstDifference) {
    EXPECT_EQ(UTIL_strcasecmp("abD", "abc"), 1);
    EXPECT_EQ(UTIL_strcasecmp("abC", "abd"), -1);
    EXPECT_EQ(UTIL_strcasecmp("b", "aaa"), 1);
}

TEST(Strcasecmp, TheLongerOfTwoWithACommonBeginningIsTheLesser) {
    EXPECT_EQ(UTIL_strcasecmp("abcd", "ABC"), -1);
    EXPECT_EQ(UTIL_strcasecmp("abc", "abcd"), 1);
    EXPECT_EQ(UTIL_strcasecmp("a", ""), -1);
    EXPECT_EQ(UTIL_strcasecmp("", "a"), 1);
}

TEST(StripSpace, RemovesBothEndsOnly) {
    char text[] = " \t a b\r\n ";
    UTIL_strip_lead_trail_space(text);
    EXPECT_STREQ(text, "a b");
    UTIL_strip_lead_trail_space(text);
    EXPECT_STREQ(text, "a b");
}

TEST(StripSpace, WhiteSpaceOnlyBecomesEmpty) {
    char text[] = " \t\n ";
    UTIL_strip_lead_trail_space(text);
    EXPECT_STREQ(text, "");
    UTIL_strip_lead_trail_space(text);
    EXPECT_STREQ(text, "");
}

TEST(ReplaceChar, ReplacesAllOrTheFirst) {
    char all[] = "a,b,c";
    UTIL_replace_char(all, ',', ';');
    EXPECT_STREQ(all, "a;b;c");
    char once[] = "a,b,c";
    UTIL_replace_char_once(once, ',', ';');
    EXPECT_STREQ(once, "a;b,c");
    UTIL_replace_char_once(once, 'x', 'y');
    EXPECT_STREQ(once, "a;b,c");
}

TEST(ReplaceChar, ReplacingByItselfEnds) {
    char text[] = "aaa";
    UTIL_replace_char(text, 'a', 'a');
    EXPECT_STREQ(text, "aaa");
}

TEST(Stringfield, CountsEmptyFields) {
    EXPECT_EQ(field("a,,c", ",", 0), "a");
    EXPECT_EQ(field("a,,c", ",", 1), "");
    EXPECT_EQ(field("a,,c", ",", 2), "c");
    EXPECT_EQ(field(",a", ",", 0), "");
    EXPECT_EQ(field(",a", ",", 1), "a");
}

TEST(Stringfield, HasAnEmptyFieldBehindAFinalSeparatorAndNoneBehindThat) {
    EXPECT_EQ(field("a,b,", ",", 1), "b");
    EXPECT_EQ(field("a,b,", ",", 2), "");
    EXPECT_EQ(field("a,b,", ",", 3), "none:");
}

TEST(Stringfield, SeparatesAtAnyOfTheCharacters) {
    EXPECT_EQ(field("a;b:c", ":;", 1), "b");
    EXPECT_EQ(field("a;b:c", ":;", 2), "c");
    EXPECT_EQ(field("a;b:c", ":;", 3), "none:");
    EXPECT_EQ(field("a;b", "", 0), "a;b");
}

TEST(Stringfield, AnEmptyTextHasNoField) {
    EXPECT_EQ(field("", ",", 0), "none:");
    EXPECT_EQ(field_consec("", ",", 0), "none:");
}

TEST(Stringfield, ANegativeItemIsNoField) {
    EXPECT_EQ(field("a,b", ",", -1), "none:");
}

TEST(Stringfield, CutsToTheDestination) {
    char out[4] = {'#', '#', '#', '#'};
    EXPECT_TRUE(UTIL_stringfield("x,abcdef", ",", 1, out, 3));
    EXPECT_STREQ(out, "ab");
    EXPECT_EQ(out[3], '#');
    EXPECT_TRUE(UTIL_stringfield("x,abcdef", ",", 1, out, 1));
    EXPECT_STREQ(out, "");
}

TEST(Stringfield, WritesNothingIntoADestinationOfNoBytes) {
    char out = '#';
    EXPECT_TRUE(UTIL_stringfield("a,b", ",", 1, &out, 0));
    EXPECT_FALSE(UTIL_stringfield("a,b", ",", 2, &out, 0));
    EXPECT_TRUE(UTIL_stringfield_consec("a,b", ",", 1, nullptr, 0));
    EXPECT_EQ(out, '#');
}

TEST(StringfieldConsec, ARunOfSeparatorsCountsAsOne) {
    EXPECT_EQ(field_consec("a, ,b", ", ", 0), "a");
    EXPECT_EQ(field_consec("a, ,b", ", ", 1), "b");
    EXPECT_EQ(field_consec("a, ,b", ", ", 2), "none:");
}

TEST(StringfieldConsec, ARunAtTheEndOpensNoField) {
    EXPECT_EQ(field_consec("a,b,,", ",", 1), "b");
    EXPECT_EQ(field_consec("a,b,,", ",", 2), "none:");
    EXPECT_EQ(field_consec("a,b,", ",", 2), "none:");
}

TEST(StringfieldConsec, ARunAtTheBeginningFollowsAnEmptyField) {
    EXPECT_EQ(field_consec(",,a", ",", 0), "");
    EXPECT_EQ(field_consec(",,a", ",", 1), "a");
}

TEST(ParseDelimited, WeighsFieldByField) {
    EXPECT_EQ(UTIL_parse_delimited_inc("12:30:15", ":", 60.0), 45015.0);
    EXPECT_EQ(UTIL_parse_delimited_inc("90", ":", 60.0), 90.0);
    EXPECT_EQ(UTIL_parse_delimited_inc("5:00", ":", 60.0), 300.0);
    EXPECT_EQ(UTIL_parse_delimited_inc("", ":", 60.0), 0.0);
}

TEST(ParseDelimited, EmptyAndUnreadableFieldsAddNothing) {
    EXPECT_EQ(UTIL_parse_delimited_inc("1::", ":", 60.0), 3600.0);
    EXPECT_EQ(UTIL_parse_delimited_inc("1:inf:nan", ":", 60.0), 3600.0);
    EXPECT_EQ(UTIL_parse_delimited_inc("1:x", ":", 60.0), 60.0);
}

TEST(ParseDelimited, ReadsSixtyThreeCharactersOfAField) {
    const std::string text = std::string(62, '0') + "12";
    EXPECT_EQ(UTIL_parse_delimited_inc(text.c_str(), ":", 60.0), 1.0);
}

TEST(Atofv, GivesTheMissingValueForWhatIsNotFinite) {
    EXPECT_EQ(UTIL_atofv("-1.5e3"), -1500.0);
    EXPECT_EQ(UTIL_atofv("none"), 0.0);
    EXPECT_EQ(UTIL_atofv("nan"), MVC);
    EXPECT_EQ(UTIL_atofv("-inf"), MVC);
    EXPECT_EQ(UTIL_atofv("1e999"), MVC);
}

// ---- Wildcards

TEST(Wildcard, AStarInsideMatchesOneOrMore) {
    EXPECT_TRUE(UTIL_wildcard_match("abc", "a*c"));
    EXPECT_FALSE(UTIL_wildcard_match("abc", "a*bc"));
    EXPECT_FALSE(UTIL_wildcard_match("ab", "a*b"));
    EXPECT_TRUE(UTIL_wildcard_match("axb", "a*b"));
    EXPECT_TRUE(UTIL_wildcard_match("axbxb", "a*b"));
    EXPECT_FALSE(UTIL_wildcard_match("abc", "*abc"));
    EXPECT_TRUE(UTIL_wildcard_match("xabc", "*abc"));
}

TEST(Wildcard, AStarAtTheEndMatchesZeroOrMore) {
    EXPECT_TRUE(UTIL_wildcard_match("abc", "ab*"));
    EXPECT_TRUE(UTIL_wildcard_match("ab", "ab*"));
    EXPECT_TRUE(UTIL_wildcard_match("", "*"));
    EXPECT_TRUE(UTIL_wildcard_match("", "***"));
    EXPECT_FALSE(UTIL_wildcard_match("a", "ab*"));
}

TEST(Wildcard, AnEscapedStarIsLiteral) {
    EXPECT_FALSE(UTIL_wildcard_match("abc", "a\\*c"));
    EXPECT_TRUE(UTIL_wildcard_match("a*c", "a\\*c"));
    EXPECT_FALSE(UTIL_wildcard_match("a", "a\\*"));
    EXPECT_TRUE(UTIL_wildcard_match("x*y", "*\\*y"));
    EXPECT_FALSE(UTIL_wildcard_match("xxy", "*\\*y"));
}

TEST(Wildcard, AnEscapedQuestionMarkIsLiteral) {
    EXPECT_TRUE(UTIL_wildcard_match("a?", "a\\?"));
    EXPECT_FALSE(UTIL_wildcard_match("ab", "a\\?"));
}

TEST(Wildcard, ABackslashElsewhereIsOrdinary) {
    EXPECT_TRUE(UTIL_wildcard_match("a\\b", "a\\b"));
    EXPECT_FALSE(UTIL_wildcard_match("ab", "a\\b"));
    EXPECT_TRUE(UTIL_wildcard_match("\\*", "\\\\*"));
    EXPECT_TRUE(UTIL_wildcard_match("a\\", "a\\"));
}

TEST(Wildcard, AQuestionMarkMatchesExactlyOne) {
    EXPECT_TRUE(UTIL_wildcard_match("abc", "a?c"));
    EXPECT_FALSE(UTIL_wildcard_match("ac", "a?c"));
    EXPECT_FALSE(UTIL_wildcard_match("", "?"));
}

TEST(Wildcard, CaseMattersAndAllMustMatch) {
    EXPECT_FALSE(UTIL_wildcard_match("abc", "ABC"));
    EXPECT_FALSE(UTIL_wildcard_match("abc", "ab"));
    EXPECT_FALSE(UTIL_wildcard_match("ab", "abc"));
    EXPECT_TRUE(UTIL_wildcard_match("", ""));
    EXPECT_FALSE(UTIL_wildcard_match("a", ""));
}

TEST(Wildcard, TwoStarsNeedTwoCharactersOrNone) {
    EXPECT_TRUE(UTIL_wildcard_match("", "**"));
    EXPECT_FALSE(UTIL_wildcard_match("a", "**"));
    EXPECT_TRUE(UTIL_wildcard_match("ab", "**"));
    // The last b ends the string, where trailing stars match nothing; the first does not.
    EXPECT_TRUE(UTIL_wildcard_match("xbb", "*b**"));
}

namespace {

// The rule as one would write it down, in exponential time.
bool reference_match(const char *s, const char *t) {
    for (; *s != '\0' && *t != '\0'; ++s, ++t) {
        if (*t == '*') {
            if (t[1] == '\0')
                return true;
            for (const char *from = s + strlen(s) - 1; from > s; --from) {
                if (reference_match(from, t + 1))
                    return true;
            }
            return false;
        }
        if (*t == '?')
            continue;
        if (*t == '\\' && (t[1] == '*' || t[1] == '?'))
            ++t;
        if (*t != *s)
            return false;
    }
    while (*t == '*')
        ++t;
    return *s == '\0' && *t == '\0';
}

std::string random_text(std::mt19937 &random, const char *alphabet, size_t max_length) {
    std::string text(random() % (max_length + 1), ' ');
    const size_t letters = strlen(alphabet);
    for (char &c : text)
        c = alphabet[random() % letters];
    return text;
}

} // namespace

TEST(Wildcard, EqualsThePlainRecursiveRuleOnRandomInput) {
    std::mt19937 random(20140821);
    int matched = 0;
    for (int i = 0; i < 200000; ++i) {
        const std::string string = random_text(random, "aab*\\?", 9);
        const std::string pattern = random_text(random, "aab**?\\", 8);
        const bool expected = reference_match(string.c_str(), pattern.c_str());
        matched += expected;
        ASSERT_EQ(UTIL_wildcard_match(string.c_str(), pattern.c_str()) != 0, expected)
            << "\"" << string << "\" against \"" << pattern << "\"";
    }
    EXPECT_GT(matched, 1000);
}

TEST(Wildcard, HostilePatternsTakeBoundedWork) {
    // Recursion would need more steps than there are atoms in the station.
    std::string pattern;
    for (int i = 0; i < 100; ++i)
        pattern += "a*";
    const std::string string(255, 'a');
    EXPECT_FALSE(UTIL_wildcard_match(string.c_str(), (pattern + "b").c_str()));
    EXPECT_TRUE(UTIL_wildcard_match(string.c_str(), (pattern + "a").c_str()));
}

TEST(Wildcard, TakesPatternsOfAnyLength) {
    const std::string text(1000, 'a');
    EXPECT_TRUE(UTIL_wildcard_match(("x" + text).c_str(), ("*" + text).c_str()));
    EXPECT_FALSE(UTIL_wildcard_match(text.c_str(), ("*" + text).c_str()));
}

// ---- Arrays and sizes

TEST(MatchAny, FindsAnElementByItsBytes) {
    const int32_t elements[] = {3, 5, 8};
    const int32_t five = 5, four = 4;
    EXPECT_TRUE(UTIL_match_any(&five, elements, 3, sizeof five));
    EXPECT_FALSE(UTIL_match_any(&four, elements, 3, sizeof four));
    EXPECT_FALSE(UTIL_match_any(&five, elements, 1, sizeof five));
    EXPECT_FALSE(UTIL_match_any(&five, nullptr, 0, sizeof five));
}

TEST(ShiftArray, TowardsTheStartKeepsTheBytesAtTheEnd) {
    char array[] = "abcdef";
    UTIL_shift_array(array, 6, -2);
    EXPECT_STREQ(array, "cdefef");
}

TEST(ShiftArray, TowardsTheEndKeepsTheBytesAtTheStart) {
    char array[] = "abcdef";
    UTIL_shift_array(array, 6, 2);
    EXPECT_STREQ(array, "ababcd");
}

TEST(ShiftArray, MovesNothingByZeroOrByAllAndMore) {
    char array[] = "abcdef";
    for (const long offset :
         {0L, -6L, 6L, -100L, std::numeric_limits<long>::min(), std::numeric_limits<long>::max()}) {
        UTIL_shift_array(array, 6, offset);
        EXPECT_STREQ(array, "abcdef") << offset;
    }
}

TEST(Roundup, IsThePowerOfTwoAboveAndAtLeastTwo) {
    EXPECT_EQ(UTIL_roundup_p2(0), 2u);
    EXPECT_EQ(UTIL_roundup_p2(1), 2u);
    EXPECT_EQ(UTIL_roundup_p2(2), 4u);
    EXPECT_EQ(UTIL_roundup_p2(3), 4u);
    EXPECT_EQ(UTIL_roundup_p2(4), 8u);
    EXPECT_EQ(UTIL_roundup_p2(256), 512u);
    EXPECT_EQ(UTIL_roundup_p2(1000), 1024u);
    EXPECT_EQ(UTIL_roundup_p2(0x7FFFFFFFu), 0x80000000u);
}

TEST(Roundup, WithoutAPowerAboveReportsAndGivesTheLargest) {
    StderrCapture capture;
    EXPECT_EQ(UTIL_roundup_p2(0x80000000u), 0xFFFFFFFFu);
    EXPECT_EQ(UTIL_roundup_p2(0xFFFFFFFFu), 0xFFFFFFFFu);
    EXPECT_THAT(capture.finish(), HasSubstr("No power of two above 4294967295 fits 32 bits"));
}

TEST(Hstrerror, NamesTheErrors) {
    EXPECT_STREQ(UTIL_hstrerror(1), "Unkown host");
    EXPECT_STREQ(UTIL_hstrerror(2), "Host name lookup failure");
    EXPECT_STREQ(UTIL_hstrerror(3), "Unknown server error");
    EXPECT_STREQ(UTIL_hstrerror(4), "No address associated with name");
    EXPECT_STREQ(UTIL_hstrerror(0), "Resolver internal error");
    EXPECT_STREQ(UTIL_hstrerror(5), "Resolver internal error");
    EXPECT_STREQ(UTIL_hstrerror(-1), "Resolver internal error");
}

// ---- Pruning of select sets

namespace {

class Trim : public testing::Test {
  protected:
    Trim() {
        FD_ZERO(&rx);
        FD_ZERO(&tx);
        EXPECT_EQ(pipe(ends), 0);
        // A number above both ends that is surely closed.
        closed = fcntl(ends[0], F_DUPFD, 50);
        close(closed);
    }
    ~Trim() override {
        close(ends[0]);
        close(ends[1]);
    }

    std::string trim() {
        StderrCapture capture;
        UTIL_trim_select_badfd(&rx, &tx, &max);
        return capture.finish();
    }

    fd_set rx, tx;
    int max = -1;
    int ends[2];
    int closed;
};

} // namespace

TEST_F(Trim, NothingWithoutDescriptors) {
    EXPECT_EQ(trim(), "");
    EXPECT_EQ(max, -1);
}

TEST_F(Trim, KeepsWhatWorks) {
    FD_SET(ends[0], &rx);
    FD_SET(ends[1], &tx);
    max = std::max(ends[0], ends[1]);
    const int before = max;
    EXPECT_EQ(trim(), "");
    EXPECT_EQ(max, before);
    EXPECT_TRUE(FD_ISSET(ends[0], &rx));
    EXPECT_TRUE(FD_ISSET(ends[1], &tx));
}

TEST_F(Trim, RemovesAClosedDescriptorFromTheReadSet) {
    FD_SET(ends[0], &rx);
    FD_SET(closed, &rx);
    max = closed;
    const std::string text = trim();
    EXPECT_FALSE(FD_ISSET(closed, &rx));
    EXPECT_TRUE(FD_ISSET(ends[0], &rx));
    EXPECT_EQ(max, ends[0]);
    EXPECT_THAT(text, HasSubstr("WARNING: Pruned file " + std::to_string(closed) +
                                " from read list (util.cpp:"));
    EXPECT_THAT(text, HasSubstr("WARNING: Maxium file descriptor changed from " +
                                std::to_string(closed) + " to " + std::to_string(ends[0]) + " ("));
}

TEST_F(Trim, AClosedDescriptorOfTheWriteSetStaysThere) {
    FD_SET(closed, &tx);
    max = closed;
    const std::string text = trim();
    EXPECT_TRUE(FD_ISSET(closed, &tx));
    EXPECT_EQ(max, -1);
    EXPECT_THAT(text, HasSubstr("WARNING: Pruned file " + std::to_string(closed) +
                                " from write list (util.cpp:"));
    EXPECT_THAT(text, Not(HasSubstr("read list")));
}

TEST_F(Trim, StopsAtTheEndOfTheSets) {
    FD_SET(ends[0], &rx);
    max = FD_SETSIZE + 5;
    const std::string text = trim();
    EXPECT_EQ(max, ends[0]);
    EXPECT_THAT(text, HasSubstr("WARNING: Files 1024 to 1029 are beyond what select can hold ("));
}

// ---- Numerics

TEST(Derivatives, AreExactForLowPolynomials) {
    const double square[] = {1.0, 2.25, 4.0};            // x^2 at 1, 1.5, 2
    EXPECT_DOUBLE_EQ(UTIL_df1_three(square, 0.5), 3.0);  // 2x at 1.5
    EXPECT_DOUBLE_EQ(UTIL_df2_three(square, 0.5), 2.0);  // 2
    const double fourth[] = {16.0, 1.0, 0.0, 1.0, 16.0}; // x^4 at -2 ... 2
    EXPECT_DOUBLE_EQ(UTIL_df1_five(fourth, 1.0), 0.0);   // 4x^3 at 0
    const double cube[] = {0.0, 1.0, 8.0, 27.0, 64.0};   // x^3 at 0 ... 4
    EXPECT_DOUBLE_EQ(UTIL_df1_five(cube, 1.0), 12.0);    // 3x^2 at 2
}

TEST(Wrap, KeepsTheUpperEdgeAndWrapsTheRest) {
    EXPECT_EQ(UTIL_wrap(360.0, 0.0, 360.0), 360.0);
    EXPECT_EQ(UTIL_wrap(720.0, 0.0, 360.0), 0.0);
    EXPECT_EQ(UTIL_wrap(-10.0, 0.0, 360.0), 350.0);
    EXPECT_EQ(UTIL_wrap(0.0, 0.0, 360.0), 0.0);
    EXPECT_EQ(UTIL_wrap(370.0, 0.0, 360.0), 10.0);
    EXPECT_EQ(UTIL_wrap(190.0, -180.0, 180.0), -170.0);
    EXPECT_EQ(UTIL_wrap(12.5, 0.0, 360.0), 12.5);
}

#include "diag.h"

#include "support.h"

#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <thread>

using testing::MatchesRegex;
using testing::StartsWith;
using zeb::test::StderrCapture;

namespace {

class Diagnostics : public testing::Test {
  protected:
    ~Diagnostics() override { g_dbg_msg_title = title_; }
    const char *title_ = g_dbg_msg_title;
};

class Locks : public Diagnostics {
  protected:
    Locks() {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
        pthread_mutex_init(&mutex, &attributes);
        pthread_mutexattr_destroy(&attributes);
    }
    ~Locks() override { pthread_mutex_destroy(&mutex); }

    pthread_mutex_t mutex;
};

} // namespace

TEST_F(Diagnostics, ALineBeforeStartUpBeginsWithPreinit) {
    StderrCapture capture;
    ZEB_REPORT("Unable to read from file %d", 7);
    EXPECT_THAT(capture.finish(), StartsWith("PREINIT: Unable to read from file 7 ("));
}

TEST_F(Diagnostics, AFailedCheckIsReportedWithItsPlaceAndCondition) {
    StderrCapture capture;
    const int *list = nullptr;
    const int line = __LINE__ + 1;
    EXPECT_FALSE(ZEB_CHECK(list != nullptr));
    EXPECT_EQ(capture.finish(), "PREINIT: assertion failed (test_diag.cpp:" + std::to_string(line) +
                                    "): list != nullptr\n");
}

TEST_F(Diagnostics, ACheckThatHoldsIsSilent) {
    StderrCapture capture;
    EXPECT_TRUE(ZEB_CHECK(1 + 1 == 2));
    EXPECT_TRUE(ZEB_CHECK_ERRNO(1 + 1 == 2));
    EXPECT_TRUE(ZEB_CHECK_CALL(0));
    EXPECT_EQ(capture.finish(), "");
}

TEST_F(Diagnostics, AFailedCheckWithAnErrorEndsInItsText) {
    StderrCapture capture;
    const void *block = nullptr;
    errno = ENOMEM;
    EXPECT_FALSE(ZEB_CHECK_ERRNO(block != nullptr));
    EXPECT_THAT(capture.finish(), MatchesRegex("PREINIT: assertion failed \\(test_diag.cpp:[0-9]+"
                                               "\\): block != nullptr: Cannot allocate memory\n"));
}

TEST_F(Diagnostics, AFailedSingleCallIsASystemCall) {
    StderrCapture capture;
    const auto create = [] { return EAGAIN; };
    EXPECT_FALSE(ZEB_CHECK_CALL(create()));
    EXPECT_THAT(
        capture.finish(),
        MatchesRegex("PREINIT: system call failed \\(test_diag.cpp:[0-9]+\\): create\\(\\): "
                     "Resource temporarily unavailable\n"));
}

TEST_F(Diagnostics, AMessageEndsInItsPlace) {
    StderrCapture capture;
    const int line = __LINE__ + 1;
    ZEB_REPORT("Unable to read from file %d", 7);
    EXPECT_EQ(capture.finish(),
              "PREINIT: Unable to read from file 7 (test_diag.cpp:" + std::to_string(line) + ")\n");
}

TEST_F(Diagnostics, AMessageWithAnErrorHasItsTextBeforeThePlace) {
    StderrCapture capture;
    errno = EBADF;
    const int line = __LINE__ + 1;
    ZEB_REPORT_ERRNO("Select failed");
    EXPECT_EQ(capture.finish(), "PREINIT: Select failed: Bad file descriptor (test_diag.cpp:" +
                                    std::to_string(line) + ")\n");
}

TEST_F(Diagnostics, TheTitleOfAMessageIsAFormatAndThatOfACheckIsText) {
    g_dbg_msg_title = "50%% %s %n: ";
    StderrCapture capture;
    ZEB_REPORT("message");
    ZEB_CHECK(false);
    const std::string text = capture.finish();
    EXPECT_THAT(text, StartsWith("50% %s %n: message ("));
    EXPECT_THAT(text, testing::HasSubstr("\n50%% %s %n: assertion failed ("));
}

TEST_F(Diagnostics, ALongTitleIsCutInMessages) {
    const std::string title(1000, 'x');
    g_dbg_msg_title = title.c_str();
    StderrCapture capture;
    ZEB_REPORT("message");
    EXPECT_THAT(capture.finish(), StartsWith(std::string(255, 'x') + "message ("));
}

TEST_F(Locks, ALockThatWorksIsHeldForTheScope) {
    StderrCapture capture;
    {
        ZEB_LOCK(guard, &mutex);
        EXPECT_EQ(pthread_mutex_trylock(&mutex), EBUSY);
    }
    EXPECT_EQ(pthread_mutex_trylock(&mutex), 0);
    EXPECT_EQ(pthread_mutex_unlock(&mutex), 0);
    EXPECT_EQ(capture.finish(), "");
}

TEST_F(Diagnostics, LinesOfSeveralThreadsStayWhole) {
    constexpr int k_lines = 500;
    const auto report = [](char sign) {
        const std::string text(100, sign);
        for (int i = 0; i < k_lines; ++i)
            ZEB_REPORT("%s", text.c_str());
    };
    StderrCapture capture;
    std::thread a(report, 'a'), b(report, 'b');
    a.join();
    b.join();
    std::istringstream lines(capture.finish());
    int whole = 0;
    for (std::string line; std::getline(lines, line);)
        whole +=
            testing::Matches(MatchesRegex("PREINIT: (a+|b+) \\(test_diag.cpp:[0-9]+\\)"))(line);
    EXPECT_EQ(whole, 2 * k_lines);
}

TEST_F(Locks, ALockThatFailsIsReportedAndTheProtectedWorkStillRuns) {
    ASSERT_EQ(pthread_mutex_lock(&mutex), 0);
    StderrCapture capture;
    bool worked = false;
    {
        ZEB_LOCK(guard, &mutex);
        worked = true;
    }
    EXPECT_TRUE(worked);
    EXPECT_THAT(capture.finish(),
                MatchesRegex("PREINIT: syscall failed \\(test_diag.cpp:[0-9]+\\): "
                             "pthread_mutex_lock\\(&mutex\\): Resource deadlock avoided\n"));
    // An unlock follows all the same: here it has ended the first lock.
    EXPECT_EQ(pthread_mutex_unlock(&mutex), EPERM);
}

TEST_F(Locks, AnUnlockThatFailsIsReported) {
    StderrCapture capture;
    {
        ZEB_LOCK(guard, &mutex);
        ASSERT_EQ(pthread_mutex_unlock(&mutex), 0);
    }
    EXPECT_THAT(capture.finish(),
                MatchesRegex("PREINIT: syscall failed \\(test_diag.cpp:[0-9]+\\): "
                             "pthread_mutex_unlock\\(&mutex\\): Operation not permitted\n"));
}

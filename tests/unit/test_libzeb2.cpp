#include <zeb2/libzeb2.h>

#include "diag.h"
#include "support.h"

#include <cerrno>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

using testing::HasSubstr;
using testing::StartsWith;
using zeb::test::StderrCapture;

namespace {

class Library : public testing::Test {
  protected:
    ~Library() override { LIBZEB_cleanup(); }
};

BOOL any(EVENTAT_matchparams *, void *) {
    return TRUE;
}
void nothing(EVENTAT_params *, EVENTAT_action *, void *) {}

} // namespace

TEST_F(Library, SetsTheTitleOfDiagnosticLines) {
    EXPECT_TRUE(LIBZEB_init("gps"));
    EXPECT_STREQ(g_dbg_msg_title, "gps: ");
    EXPECT_EQ(g_dbg_msg_title, g_dbg_msg_title_static);
    StderrCapture capture;
    LL_init(nullptr);
    EXPECT_THAT(capture.finish(), StartsWith("gps: assertion failed (ll.cpp:"));
}

TEST_F(Library, AnIdentifierOf300CharactersGivesATitleOf255) {
    const std::string id(300, 'x');
    EXPECT_TRUE(LIBZEB_init(id.c_str()));
    EXPECT_EQ(g_dbg_msg_title, std::string(255, 'x'));
    EXPECT_TRUE(LIBZEB_init(std::string(254, 'y').c_str()));
    EXPECT_EQ(g_dbg_msg_title, std::string(254, 'y') + ":");
}

TEST_F(Library, AMissingIdentifierIsReported) {
    StderrCapture capture;
    EXPECT_TRUE(LIBZEB_init(nullptr));
    EXPECT_STREQ(g_dbg_msg_title, ": ");
    EXPECT_THAT(capture.finish(), HasSubstr("assertion failed (libzeb2.cpp:"));
}

TEST_F(Library, BuildsTheCrcTable) {
    LIBZEB_init("test");
    EXPECT_EQ(CRC16_calccrc("123456789", 9), 0xBB3D);
}

TEST_F(Library, FillsTheSetOfAllSignals) {
    LIBZEB_init("test");
    EXPECT_EQ(sigismember(&g_util_all_signals, SIGTERM), 1);
}

TEST_F(Library, UnblocksTheWakeUpSignalAndHandlesItWithoutRestart) {
    sigset_t wake_up;
    sigemptyset(&wake_up);
    sigaddset(&wake_up, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &wake_up, nullptr);
    LIBZEB_init("test");
    sigset_t now;
    pthread_sigmask(SIG_SETMASK, nullptr, &now);
    EXPECT_EQ(sigismember(&now, SIGUSR1), 0);
    struct sigaction action;
    sigaction(SIGUSR1, nullptr, &action);
    EXPECT_EQ(action.sa_handler, UTIL_empty_sighandler);
    EXPECT_EQ(action.sa_flags & SA_RESTART, 0);
    EXPECT_EQ(sigismember(&action.sa_mask, SIGUSR1), 1);
    EXPECT_EQ(sigismember(&action.sa_mask, SIGTERM), 0);
}

TEST_F(Library, AWakeUpInterruptsSelectAndWritesNoLine) {
    LIBZEB_init("test");
    sigset_t wake_up, before;
    sigemptyset(&wake_up);
    sigaddset(&wake_up, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &wake_up, &before);
    raise(SIGUSR1); // pending until pselect lets it through
    StderrCapture capture;
    const timespec limit = {30, 0};
    EXPECT_EQ(pselect(0, nullptr, nullptr, nullptr, &limit, &before), -1);
    EXPECT_EQ(errno, EINTR);
    EXPECT_EQ(capture.finish(), "");
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST_F(Library, CleanUpReleasesTheEventsAndKeepsTitleAndHandler) {
    LIBZEB_init("test");
    EVENTAT_add(1e12, nothing, "block", 6);
    LIBZEB_cleanup();
    EXPECT_EQ(EVENTAT_findnext(any, nullptr), nullptr);
    EXPECT_STREQ(g_dbg_msg_title, "test: ");
    struct sigaction action;
    sigaction(SIGUSR1, nullptr, &action);
    EXPECT_EQ(action.sa_handler, UTIL_empty_sighandler);
}

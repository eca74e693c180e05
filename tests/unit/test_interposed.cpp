// Start-up and clean-up with the timed events replaced: this program's own EVENTAT_init and
// EVENTAT_cleanup come before those of the shared library that it links.
#include <zeb2/libzeb2.h>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

BOOL g_init_result = TRUE;
int g_inits = 0;
int g_cleanups = 0;

class Interposed : public testing::Test {
  protected:
    Interposed() {
        LIBZEB_cleanup();
        signal(SIGUSR1, SIG_DFL);
        g_init_result = TRUE;
        g_inits = 0;
        g_cleanups = 0;
    }
};

} // namespace

BOOL EVENTAT_init(void) {
    ++g_inits;
    return g_init_result;
}

void EVENTAT_cleanup(void) {
    ++g_cleanups;
}

TEST_F(Interposed, TwoStartUpsAndTwoCleanUpsReleaseTheEventsOnce) {
    EXPECT_TRUE(LIBZEB_init("test"));
    EXPECT_TRUE(LIBZEB_init("test"));
    EXPECT_EQ(g_inits, 2);
    LIBZEB_cleanup();
    EXPECT_EQ(g_cleanups, 1);
    LIBZEB_cleanup();
    EXPECT_EQ(g_cleanups, 1);
}

TEST_F(Interposed, CleanUpWithoutAStartUpDoesNothing) {
    LIBZEB_cleanup();
    EXPECT_EQ(g_cleanups, 0);
}

TEST_F(Interposed, FailsWhenTheTimedEventsFail) {
    g_init_result = FALSE;
    EXPECT_FALSE(LIBZEB_init("failing"));
    EXPECT_STREQ(g_dbg_msg_title, "failing: ");
    LIBZEB_cleanup();
    EXPECT_EQ(g_cleanups, 0);
}

TEST_F(Interposed, AFailedStartUpForgetsAnEarlierOne) {
    EXPECT_TRUE(LIBZEB_init("test"));
    g_init_result = FALSE;
    EXPECT_FALSE(LIBZEB_init("test"));
    LIBZEB_cleanup();
    EXPECT_EQ(g_cleanups, 0);
}

TEST_F(Interposed, WhenTheTimedEventsFailTheWakeUpSignalKeepsItsDefault) {
    sigset_t wake_up, before, after;
    sigemptyset(&wake_up);
    sigaddset(&wake_up, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &wake_up, &before);
    g_init_result = FALSE;
    EXPECT_FALSE(LIBZEB_init("test"));
    pthread_sigmask(SIG_SETMASK, &before, &after);
    EXPECT_EQ(sigismember(&after, SIGUSR1), 1) << "unblocked by a failed start-up";
    const pid_t child = fork();
    if (child == 0) {
        raise(SIGUSR1);
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGUSR1);
}

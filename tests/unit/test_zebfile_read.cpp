// Taking pieces out of what has arrived.
#include "zebfile_testing.h"

#include "util.h"

#include <csignal>
#include <thread>

using namespace zeb;
using namespace zeb::test;
using testing::HasSubstr;

namespace {

class ZebfileRead : public ZebfileTable {
  protected:
    ZebfileRead() : fh(reading(&p)) { memset(pd, '?', sizeof pd); }

    size_t until(size_t max_read, const char *stop_chars) {
        return ZEBFILE_readuntil_int(fh, pd, max_read, stop_chars, TRUE);
    }
    int fh;
    char pd[64];
};

class ZebfileReadThread : public ZebfileThread {
  protected:
    void SetUp() override {
        ZebfileThread::SetUp();
        fh = p.give(0);
        ASSERT_TRUE(ZEBFILE_associate_fh(fh, ZEBFILE_READ));
    }
    size_t wait_line(double timeout) {
        return ZEBFILE_readuntil_blocking(fh, pd, sizeof pd, "\n", timeout);
    }
    int fh = -1;
    char pd[64];
};

} // namespace

TEST_F(ZebfileRead, UntilALineFeedTakesThePieceAndTheDelimiter) {
    fill(fh, "abc\ndef");
    EXPECT_EQ(until(64, "\n"), 3U);
    EXPECT_STREQ(pd, "abc");
    EXPECT_EQ(buffered(fh), "def");
}

TEST_F(ZebfileRead, APieceLongerThanTheRoomIsCutAndTheByteUnderTheTerminatorLost) {
    fill(fh, "abcdef");
    EXPECT_EQ(until(2, "\n"), 1U);
    EXPECT_STREQ(pd, "a");
    EXPECT_EQ(buffered(fh), "cdef");
}

TEST_F(ZebfileRead, WithoutADelimiterThereIsNoResultAndTheBufferStays) {
    fill(fh, "abc");
    EXPECT_EQ(until(10, "\n"), k_none);
    EXPECT_EQ(buffered(fh), "abc");
}

TEST_F(ZebfileRead, APieceThatJustFillsTheRoomWaitsForItsDelimiter) {
    fill(fh, "abc");
    EXPECT_EQ(until(3, "\n"), k_none);
    EXPECT_EQ(buffered(fh), "abc");
    fill(fh, "ab\n");
    EXPECT_EQ(until(3, "\n"), 2U);
    EXPECT_STREQ(pd, "ab");
    EXPECT_EQ(buffered(fh), "");
}

TEST_F(ZebfileRead, RoomForOneByteTakesOneByteAtATime) {
    fill(fh, "ab\n");
    EXPECT_EQ(until(1, "\n"), 0U);
    EXPECT_EQ(pd[0], '\0');
    EXPECT_EQ(pd[1], '?');
    EXPECT_EQ(buffered(fh), "b\n");
}

TEST_F(ZebfileRead, RoomForNoByteIsReportedAndTakesNothing) {
    fill(fh, "ab\n");
    EXPECT_EQ(until(0, "\n"), k_none);
    EXPECT_EQ(pd[0], '?');
    EXPECT_THAT(err.text(), HasSubstr("assertion failed (zebfile_read.cpp:"));
    EXPECT_EQ(ZEBFILE_readuntil_blocking(fh, pd, 0, "\n", 0), k_none);
}

TEST_F(ZebfileRead, AnyStopCharacterEndsAPiece) {
    fill(fh, "a\r\nb");
    EXPECT_EQ(until(64, "\n\r"), 1U);
    EXPECT_EQ(until(64, "\n\r"), 0U) << "an empty piece between two of them";
    EXPECT_EQ(until(64, "\n\r"), k_none);
    EXPECT_EQ(buffered(fh), "b");
}

TEST_F(ZebfileRead, NullArgumentsGiveNoResult) {
    fill(fh, "a\n");
    EXPECT_EQ(ZEBFILE_readuntil_int(fh, nullptr, 10, "\n", TRUE), k_none);
    EXPECT_EQ(ZEBFILE_readuntil_blocking(fh, nullptr, 10, "\n", 0), k_none);
    EXPECT_EQ(ZEBFILE_read_atmost(fh, nullptr, 10), 0U);
    EXPECT_EQ(err.text(), "");
    EXPECT_EQ(until(10, nullptr), k_none);
    EXPECT_EQ(ZEBFILE_read_offsetof(fh, nullptr), k_none);
    EXPECT_EQ(occurrences(err.text(), "assertion failed"), 2U);
    EXPECT_EQ(buffered(fh), "a\n");
}

TEST_F(ZebfileRead, AnEmptyBufferHasNothing) {
    EXPECT_EQ(until(10, "\n"), k_none);
    EXPECT_EQ(ZEBFILE_read_atmost(fh, pd, 10), 0U);
    EXPECT_EQ(ZEBFILE_read_offsetof(fh, "\n"), k_none);
    EXPECT_EQ(err.text(), "");
}

TEST_F(ZebfileRead, AWritingEntryIsReported) {
    Pipe q;
    const int out = writing(&q);
    EXPECT_EQ(ZEBFILE_readuntil_int(out, pd, 10, "\n", TRUE), k_none);
    EXPECT_EQ(ZEBFILE_read_atmost(out, pd, 10), 0U);
    EXPECT_EQ(ZEBFILE_read_offsetof(out, "\n"), k_none);
    EXPECT_EQ(occurrences(err.text(), "Unable to read from file " + number(out)), 3U);
}

TEST_F(ZebfileRead, AtMostTakesFromTheFront) {
    fill(fh, "abcdef");
    EXPECT_EQ(ZEBFILE_read_atmost(fh, pd, 4), 4U);
    EXPECT_EQ(memcmp(pd, "abcd?", 5), 0);
    EXPECT_EQ(buffered(fh), "ef");
    EXPECT_EQ(ZEBFILE_read_atmost(fh, pd, 0), 0U);
    EXPECT_EQ(ZEBFILE_read_atmost(fh, pd, 10), 2U);
    EXPECT_EQ(buffered(fh), "");
}

TEST_F(ZebfileRead, OffsetofFindsTheFirstStopCharacterAndTakesNothing) {
    fill(fh, "ab;c\n");
    EXPECT_EQ(ZEBFILE_read_offsetof(fh, "\n"), 4U);
    EXPECT_EQ(ZEBFILE_read_offsetof(fh, "\n;"), 2U);
    EXPECT_EQ(ZEBFILE_read_offsetof(fh, "x"), k_none);
    EXPECT_EQ(buffered(fh), "ab;c\n");
}

TEST_F(ZebfileRead, WithATimeoutAnEmptyBufferGivesNoResultAtOnce) {
    const double start = steady_time();
    EXPECT_EQ(ZEBFILE_readuntil_blocking(fh, pd, sizeof pd, "\n", 5.0), k_none);
    EXPECT_LT(steady_time() - start, 5.0);
}

TEST_F(ZebfileRead, WithATimeoutACompletePieceIsTaken) {
    fill(fh, "abc\n");
    EXPECT_EQ(ZEBFILE_readuntil_blocking(fh, pd, sizeof pd, "\n", 5.0), 3U);
    EXPECT_STREQ(pd, "abc");
}

TEST_F(ZebfileRead, WhileTheProcessExitsNothingIsWaitedFor) {
    sigset_t before;
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    UTIL_exit_signal_poll_setup();
    raise(SIGTERM);
    EXPECT_EQ(ZEBFILE_readuntil_blocking(fh, pd, sizeof pd, "\n", 0), k_none);
    UTIL_exit_signal_poll_setup(); // lowers the flag
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST_F(ZebfileReadThread, WithoutATimeoutTheCallReturnsWhenADelimiterArrives) {
    std::thread peer([&] {
        p.put("ab");
        wait_until([&] { return ZEBFILE_read_offsetof(fh, "b") != k_none; });
        p.put("c\nd");
    });
    EXPECT_EQ(wait_line(0), 3U);
    EXPECT_STREQ(pd, "abc");
    peer.join();
    std::thread rest([&] { p.put("e\n"); });
    EXPECT_EQ(wait_line(-1.0), 2U);
    EXPECT_STREQ(pd, "de");
    rest.join();
}

TEST_F(ZebfileReadThread, AWaitingReaderReturnsWhenTheWriterGoes) {
    std::thread peer([&] {
        p.put("incomplete");
        wait_until([&] { return ZEBFILE_read_offsetof(fh, "e") != k_none; });
        p.close_end(1);
    });
    EXPECT_EQ(wait_line(0), k_none);
    peer.join();
    EXPECT_FALSE(has_entry(fh));
}

TEST_F(ZebfileReadThread, ACancelledReaderLeavesTheTableUsable) {
    struct Reader {
        int fh;
        char pd[64];
    } waiting = {fh, {}};
    pthread_t reader;
    const auto wait_for_ever = [](void *param) -> void * {
        auto *r = static_cast<Reader *>(param);
        ZEBFILE_readuntil_blocking(r->fh, r->pd, sizeof r->pd, "\n", 0);
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&reader, nullptr, wait_for_ever, &waiting), 0);
    EXPECT_TRUE(wait_until([&] { return waiters_of(fh) == 1; }));
    pthread_cancel(reader);
    void *result = nullptr;
    pthread_join(reader, &result);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_EQ(waiters_of(fh), 0U);
    p.put("abc\n");
    EXPECT_EQ(wait_line(0), 3U);
}

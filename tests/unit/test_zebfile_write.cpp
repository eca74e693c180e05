// Queueing, formatting, holding back and flushing.
#include "zebfile_testing.h"

#include <clocale>
#include <cwchar>
#include <thread>

using namespace zeb;
using namespace zeb::test;
using testing::HasSubstr;

namespace {

class ZebfileWrite : public ZebfileTable {
  protected:
    ZebfileWrite() : fh(writing(&p)) {}
    int fh;
};

class ZebfileWriteThread : public ZebfileThread {
  protected:
    void SetUp() override {
        ZebfileThread::SetUp();
        fh = p.give(1);
        ASSERT_TRUE(ZEBFILE_associate_fh(fh, ZEBFILE_WRITE));
    }
    int fh = -1;
};

} // namespace

TEST_F(ZebfileWrite, QueuesAndGrowsByPowersOfTwoStrictlyAbove) {
    ZEBFILE_write(fh, "abc", 3);
    EXPECT_EQ(buffered(fh), "abc");
    EXPECT_EQ(entry(fh)->buffer_max, 4U);
    ZEBFILE_write(fh, "d", 1);
    EXPECT_EQ(entry(fh)->buffer_max, 4U);
    ZEBFILE_write(fh, "efgh", 4);
    EXPECT_EQ(entry(fh)->buffer_max, 16U) << "8 bytes, doubled on purpose";
    EXPECT_EQ(buffered(fh), "abcdefgh");
    EXPECT_EQ(p.take(), "") << "nothing moves before a cycle";
    cycle();
    EXPECT_EQ(p.take(), "abcdefgh");
    EXPECT_EQ(entry(fh)->buffer_off, 0U);
    EXPECT_EQ(entry(fh)->buffer_max, 16U) << "buffers never shrink";
}

TEST_F(ZebfileWrite, NullAndNoBytesQueueNothing) {
    ZEBFILE_write(fh, nullptr, 0);
    ZEBFILE_write(fh, "", 0);
    EXPECT_EQ(err.text(), "");
    ZEBFILE_write(fh, nullptr, 3);
    EXPECT_THAT(err.text(), HasSubstr("assertion failed"));
    ZEBFILE_printf(fh, "%s", "");
    EXPECT_EQ(entry(fh)->buffer_off, 0U);
}

TEST_F(ZebfileWrite, AReadingEntryTakesNothing) {
    Pipe q;
    const int in = reading(&q);
    ZEBFILE_write(in, "x", 1);
    ZEBFILE_printf(in, "x");
    EXPECT_EQ(occurrences(err.text(), "Unable to write to file " + number(in)), 2U);
    EXPECT_EQ(entry(in)->buffer_off, 0U);
}

TEST_F(ZebfileWrite, PrintfOfAThousandCharactersGoesBy512To1024) {
    ZEBFILE_printf(fh, "%s", "");
    EXPECT_EQ(entry(fh)->buffer_max, 512U) << "the first guess of 256, rounded up";
    ZEBFILE_printf(fh, "%1000d", 7);
    EXPECT_EQ(entry(fh)->buffer_max, 1024U);
    EXPECT_EQ(entry(fh)->buffer_off, 1000U);
    EXPECT_EQ(buffered(fh), std::string(999, ' ') + "7");
}

TEST_F(ZebfileWrite, PrintfIntoAFreshEntryEndsWith1024And1000) {
    ZEBFILE_printf(fh, "%1000d", 7);
    EXPECT_EQ(entry(fh)->buffer_max, 1024U);
    EXPECT_EQ(entry(fh)->buffer_off, 1000U);
}

TEST_F(ZebfileWrite, PrintfAppendsAndDoesNotCountItsTerminator) {
    ZEBFILE_printf(fh, "%s,%d", "a", 1);
    ZEBFILE_printf(fh, ";%d%%", 2);
    EXPECT_EQ(buffered(fh), "a,1;2%");
}

TEST_F(ZebfileWrite, PrintfIntoAFullBufferMakesRoomFor256More) {
    ZEBFILE_write(fh, "abcdefg", 7);
    ASSERT_EQ(entry(fh)->buffer_max, 8U);
    ZEBFILE_write(fh, "h", 1);
    ZEBFILE_printf(fh, "i");
    EXPECT_EQ(buffered(fh), "abcdefghi");
    EXPECT_EQ(entry(fh)->buffer_max, 512U) << "8 + 256, rounded up";
}

TEST_F(ZebfileWrite, ATextThatCannotBeFormattedIsReportedAndTheQueueStays) {
    ZEBFILE_printf(fh, "before");
    const wchar_t odd[] = {static_cast<wchar_t>(0x20AC), 0}; // no character of the C locale
    setlocale(LC_ALL, "C");
    ZEBFILE_printf(fh, "%ls", odd);
    EXPECT_THAT(err.text(), HasSubstr("Unable to format a text for file " + number(fh) + ": "));
    EXPECT_EQ(buffered(fh), "before");
}

TEST_F(ZebfileWrite, ALimitOf100Holds99BytesAndThe100thSendsThemInOneWrite) {
    ZEBFILE_setbuffer(fh, 100);
    ZEBFILE_write(fh, std::string(99, 'x').data(), 99);
    cycle();
    EXPECT_EQ(p.take(), "");
    EXPECT_FALSE(FD_ISSET(fh, &tx));
    ZEBFILE_write(fh, "y", 1);
    cycle();
    EXPECT_EQ(p.take(), std::string(99, 'x') + "y");
    EXPECT_FALSE(entry(fh)->in_flush);
    ZEBFILE_write(fh, "z", 1);
    cycle();
    EXPECT_EQ(p.take(), "") << "held anew";
}

TEST_F(ZebfileWrite, ALimitWithAllBitsSetHoldsNothing) {
    ZEBFILE_setbuffer(fh, static_cast<size_t>(-1));
    ZEBFILE_write(fh, "x", 1);
    cycle();
    EXPECT_EQ(p.take(), "x");
}

TEST_F(ZebfileWrite, LoweringTheLimitReleasesWhatWasHeld) {
    ZEBFILE_setbuffer(fh, 100);
    ZEBFILE_write(fh, "x", 1);
    cycle();
    EXPECT_EQ(p.take(), "");
    ZEBFILE_setbuffer(fh, 0);
    cycle();
    EXPECT_EQ(p.take(), "x");
}

TEST_F(ZebfileWrite, AFlushOfAReadingEntryEmptiesItsBuffer) {
    Pipe q;
    const int in = reading(&q);
    fill(in, "unread");
    ZEBFILE_flush(in);
    EXPECT_EQ(entry(in)->buffer_off, 0U);
}

TEST_F(ZebfileWrite, AFlushOfAnEmptyBufferReturnsAtOnce) {
    ZEBFILE_flush(fh);
    EXPECT_FALSE(entry(fh)->in_flush);
}

TEST_F(ZebfileWrite, APartialWriteKeepsTheRestInFront) {
    const std::string first(65536, 'a'), second(65536, 'b');
    ZEBFILE_write(fh, first.data(), first.size());
    ZEBFILE_write(fh, second.data(), second.size());
    cycle();
    EXPECT_EQ(entry(fh)->buffer_off, 65536U) << "what a pipe holds has gone";
    EXPECT_TRUE(FD_ISSET(fh, &tx));
    EXPECT_EQ(p.take(), first);
    cycle();
    EXPECT_EQ(p.take(), second);
    EXPECT_EQ(entry(fh)->buffer_off, 0U);
}

TEST_F(ZebfileWrite, AReaderThatStopsMakesTheQueueRefuseAtItsLimitAndReportOnce) {
    const std::string block(1024 * 1024, 'b');
    ZEBFILE_write(fh, block.data(), block.size());
    cycle(); // the pipe is full from here on
    for (int i = 0; i < 70; ++i)
        ZEBFILE_write(fh, block.data(), block.size());
    ZEBFILE_printf(fh, "lost");
    EXPECT_GE(entry(fh)->buffer_off, k_file_limit);
    EXPECT_LT(entry(fh)->buffer_off, k_file_limit + block.size());
    EXPECT_EQ(occurrences(err.text(), "File " + number(fh) + " takes no data: refusing more"), 1U);
    entry(fh)->buffer_off = k_file_resume;
    ZEBFILE_write(fh, "x", 1);
    EXPECT_EQ(entry(fh)->buffer_off, k_file_resume) << "refused until half of it has left";
    entry(fh)->buffer_off = k_file_resume - 1;
    ZEBFILE_write(fh, "x", 1);
    EXPECT_EQ(entry(fh)->buffer_off, k_file_resume);
    // 71 MiB were offered; after the first write left 64 KiB, 65 of them fit: 7 - 1 writes, the
    // text and the byte were refused.
    EXPECT_THAT(err.text(), HasSubstr("File " + number(fh) + " takes data again, 8 writes were "));
}

TEST_F(ZebfileWrite, RefusedWritesAreCountedWhenTheEntryEnds) {
    fill(fh, std::string(k_file_limit, 'b'));
    ZEBFILE_write(fh, "x", 1);
    ZEBFILE_multi_destroy();
    EXPECT_THAT(err.text(), HasSubstr("closes, 1 writes were refused"));
}

TEST_F(ZebfileWrite, ALimitAboveWhatIsEverQueuedHoldsNothingForEver) {
    ZEBFILE_setbuffer(fh, 2 * k_file_limit);
    fill(fh, std::string(k_file_limit - 1, 'b'));
    cycle();
    EXPECT_EQ(p.take(), "");
    ZEBFILE_write(fh, "b", 1);
    cycle();
    EXPECT_NE(p.take(), "");
}

TEST_F(ZebfileWriteThread, WhatIsQueuedLeavesByItself) {
    ZEBFILE_printf(fh, "n=%d", 5);
    std::string got;
    EXPECT_TRUE(wait_until([&] { return (got += p.take()) == "n=5"; }));
    EXPECT_EQ(err.text(), "");
}

TEST_F(ZebfileWriteThread, FlushForcesOut99BytesUnderALimitOf100) {
    ZEBFILE_setbuffer(fh, 100);
    ZEBFILE_write(fh, std::string(99, 'x').data(), 99);
    ZEBFILE_flush(fh);
    EXPECT_EQ(p.take(), std::string(99, 'x'));
}

TEST_F(ZebfileWriteThread, AFlusherBehindAReaderThatStopsReturnsWhenTheReaderGoes) {
    const std::string much(300000, 'x');
    ZEBFILE_write(fh, much.data(), much.size());
    std::atomic<bool> flushed = false;
    std::thread flusher([&] {
        ZEBFILE_flush(fh);
        flushed = true;
    });
    // Others are served meanwhile.
    Pipe q;
    const int other = q.give(1);
    ASSERT_TRUE(ZEBFILE_associate_fh(other, ZEBFILE_WRITE));
    for (int i = 0; i < 20; ++i) {
        ZEBFILE_write(other, "y", 1);
        ZEBFILE_flush(other);
        EXPECT_EQ(q.take(), "y");
    }
    EXPECT_FALSE(flushed);
    p.close_end(0);
    flusher.join();
    EXPECT_THAT(err.text(), HasSubstr("Error writing to file " + number(fh) +
                                      ", flagged for closing: Broken pipe (zebfile_dispatch.cpp"));
    EXPECT_FALSE(has_entry(fh));
}

TEST_F(ZebfileWriteThread, CloseLeavesNothingQueuedBehind) {
    const std::string much(300000, 'x');
    std::string got;
    std::thread reader(
        [&] { wait_until([&] { return (got += p.take()).size() == much.size(); }); });
    ZEBFILE_write(fh, much.data(), much.size());
    ZEBFILE_close(fh);
    reader.join();
    EXPECT_EQ(got, much);
}

TEST_F(ZebfileWriteThread, AFileGetsEverythingOfManyWriters) {
    TempDir dir;
    const int file = ZEBFILE_open((dir / "log").c_str(), ZEBFILE_WRITE, O_APPEND);
    ASSERT_NE(file, -1);
    std::vector<std::thread> writers;
    for (int w = 0; w < 4; ++w)
        writers.emplace_back([file, w] {
            for (int i = 0; i < 500; ++i)
                ZEBFILE_printf(file, "%d:%d\n", w, i);
        });
    for (std::thread &writer : writers)
        writer.join();
    ZEBFILE_flush(file);
    const std::string text = read_file(dir / "log");
    EXPECT_EQ(occurrences(text, "\n"), 2000U);
    for (int w = 0; w < 4; ++w)
        EXPECT_EQ(occurrences("\n" + text, "\n" + number(w) + ":"), 500U);
}

// ---- Entries known by their id ----

TEST_F(ZebfileTable, AnIdTellsAnEntryFromALaterOneWithItsNumber) {
    const int fh = writing(&p);
    const QWORD id = file_id(fh);
    EXPECT_TRUE(file_write(fh, id, "ab", 2));
    file_abandon(fh, id);
    EXPECT_FALSE(file_write(fh, id, "cd", 2));
    fd_max = fh;
    pre_select();
    EXPECT_EQ(file_id(fh), 0U);
    EXPECT_EQ(p.take(), "");

    Pipe other;
    ASSERT_EQ(dup2(other.reader(), fh), fh);
    other.put("unread");
    ASSERT_TRUE(ZEBFILE_associate_fh(fh, ZEBFILE_READ));
    cycle();
    EXPECT_NE(file_id(fh), id);
    EXPECT_FALSE(file_write(fh, id, "ef", 2));
    file_flush(fh, id);
    file_close(fh, id);
    file_abandon(fh, id);
    cycle();
    EXPECT_EQ(buffered(fh), "unread");
    EXPECT_EQ(err.text(), "");
}

TEST_F(ZebfileTable, AnEntryFlaggedForItsEndTakesNothingMore) {
    const int fh = writing(&p);
    FD_SET(fh, &g_zebfile_close_files);
    EXPECT_FALSE(file_write(fh, file_id(fh), "ab", 2));
    EXPECT_EQ(buffered(fh), "");
}

TEST_F(ZebfileTable, AClaimedEntryLeavesWhatAnErrorKeptFromBeingWritten) {
    const int fh = writing(&p);
    const QWORD id = file_claim(fh);
    EXPECT_EQ(id, file_id(fh));
    EXPECT_TRUE(file_write(fh, id, "ab", 2));
    cycle();
    cycle();
    EXPECT_EQ(p.take(), "ab");
    p.close_end(0);
    EXPECT_TRUE(file_write(fh, id, "cdef", 4));
    cycle();
    cycle();
    pre_select();
    EXPECT_EQ(file_id(fh), 0U);
    size_t left;
    bool failed;
    BYTE *rest = file_take(fh, id, &left, &failed);
    EXPECT_TRUE(failed);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(rest), left), "cdef");
    free(rest);
    EXPECT_EQ(file_take(fh, id, &left, &failed), nullptr) << "taken once";
    EXPECT_EQ(left, 0U);
}

TEST_F(ZebfileTable, WhatNobodyTakesIsFreedWithTheTable) {
    const int fh = writing(&p);
    const QWORD id = file_claim(fh);
    p.close_end(0);
    EXPECT_TRUE(file_write(fh, id, "cdef", 4));
    ZEBFILE_multi_destroy();
    size_t left;
    bool failed;
    EXPECT_EQ(file_take(fh, id, &left, &failed), nullptr);
    EXPECT_EQ(file_claim(fh), 0U);
}

TEST_F(ZebfileWriteThread, ClosingByIdLeavesNothingQueuedBehind) {
    const QWORD id = file_id(fh);
    ZEBFILE_setbuffer(fh, 100);
    EXPECT_TRUE(file_write(fh, id, "queued", 6));
    file_flush(fh, id);
    EXPECT_EQ(p.take(), "queued");
    EXPECT_TRUE(file_write(fh, id, "more", 4));
    file_close(fh, id);
    EXPECT_EQ(p.take(), "more");
    EXPECT_FALSE(file_write(fh, id, "late", 4));
}

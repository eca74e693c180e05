// Entries: making, changing and giving them up.
#include "zebfile_testing.h"

#include "util.h"

#include <fstream>
#include <sys/resource.h>
#include <sys/stat.h>

using namespace zeb;
using namespace zeb::test;
using testing::HasSubstr;

namespace {

class ZebfileEntries : public ZebfileTable {};

// Every descriptor below FD_SETSIZE taken, and more allowed.
class DescriptorsTaken {
  public:
    DescriptorsTaken() {
        getrlimit(RLIMIT_NOFILE, &before_);
        rlimit more = before_;
        more.rlim_cur = FD_SETSIZE + 64;
        possible = before_.rlim_max >= more.rlim_cur && setrlimit(RLIMIT_NOFILE, &more) == 0;
        while (possible && (taken_.empty() || taken_.back() < FD_SETSIZE - 1))
            taken_.push_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
    }
    ~DescriptorsTaken() {
        for (int fh : taken_)
            close(fh);
        setrlimit(RLIMIT_NOFILE, &before_);
    }
    DescriptorsTaken(const DescriptorsTaken &) = delete;
    DescriptorsTaken &operator=(const DescriptorsTaken &) = delete;

    bool possible = false;

  private:
    rlimit before_;
    std::vector<int> taken_;
};

} // namespace

TEST_F(ZebfileEntries, AFreshEntryIsNotInUse) {
    ZEBFILE_entry e;
    memset(&e, 0xA5, sizeof e);
    ASSERT_TRUE(ZEBFILE_init_entry(&e));
    EXPECT_EQ(e.fh, -1);
    EXPECT_EQ(e.dettached, 0xA5) << "left to the caller";
    EXPECT_EQ(e.mode, ZEBFILE_READ);
    EXPECT_EQ(e.buffer, nullptr);
    EXPECT_EQ(e.buffer_off, 0U);
    EXPECT_EQ(e.buffer_max, 0U);
    EXPECT_FALSE(e.in_flush);
    EXPECT_EQ(e.buffer_flush_limit, 0U);
    EXPECT_EQ(pthread_cond_destroy(&e.nd_cond), 0);
}

TEST_F(ZebfileEntries, OpenForWritingCreatesTheFileByTheUmask) {
    TempDir dir;
    const mode_t umask_before = umask(027);
    const int fh = ZEBFILE_open((dir / "log").c_str(), ZEBFILE_WRITE, 0);
    umask(umask_before);
    ASSERT_NE(fh, -1);
    struct stat info;
    ASSERT_EQ(fstat(fh, &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0640U);
    EXPECT_EQ(fcntl(fh, F_GETFL) & (O_ACCMODE | O_NONBLOCK), O_WRONLY | O_NONBLOCK);
    EXPECT_TRUE(fcntl(fh, F_GETFD) & FD_CLOEXEC);
    ASSERT_NE(entry(fh), nullptr);
    EXPECT_EQ(entry(fh)->mode, ZEBFILE_WRITE);
    EXPECT_FALSE(entry(fh)->dettached);
    EXPECT_EQ(err.text(), "");
}

TEST_F(ZebfileEntries, OpenPassesFlagsOn) {
    TempDir dir;
    write_file(dir / "log", "old");
    ASSERT_NE(ZEBFILE_open((dir / "log").c_str(), ZEBFILE_WRITE, O_APPEND), -1);
    EXPECT_EQ(read_file(dir / "log"), "old");
    ASSERT_NE(ZEBFILE_open((dir / "log").c_str(), ZEBFILE_WRITE, O_TRUNC), -1);
    EXPECT_EQ(read_file(dir / "log"), "");
}

TEST_F(ZebfileEntries, OpenForReadingIsReadOnlyAndCreatesNothing) {
    TempDir dir;
    EXPECT_EQ(ZEBFILE_open((dir / "none").c_str(), ZEBFILE_READ, 0), -1);
    EXPECT_FALSE(std::ifstream(dir / "none").good());
    EXPECT_THAT(err.text(), HasSubstr("PREINIT: Unable to open file " + (dir / "none") +
                                      ": No such file or directory (zebfile.cpp:"));
    write_file(dir / "in", "x");
    const int fh = ZEBFILE_open((dir / "in").c_str(), ZEBFILE_READ, 0);
    ASSERT_NE(fh, -1);
    EXPECT_EQ(fcntl(fh, F_GETFL) & O_ACCMODE, O_RDONLY);
    EXPECT_EQ(entry(fh)->mode, ZEBFILE_READ);
}

TEST_F(ZebfileEntries, OpenWithoutANameIsReported) {
    EXPECT_EQ(ZEBFILE_open(nullptr, ZEBFILE_READ, 0), -1);
    EXPECT_THAT(err.text(), HasSubstr("assertion failed"));
}

TEST_F(ZebfileEntries, AssociatingMakesTheDescriptorNonBlockingAndClosedOnExec) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_TRUE(ZEBFILE_associate_fh(ends[0], ZEBFILE_READ));
    EXPECT_TRUE(fcntl(ends[0], F_GETFL) & O_NONBLOCK);
    EXPECT_TRUE(fcntl(ends[0], F_GETFD) & FD_CLOEXEC);
    EXPECT_FALSE(fcntl(ends[1], F_GETFL) & O_NONBLOCK);
    close(ends[1]);
}

TEST_F(ZebfileEntries, AssociatingAClosedDescriptorFailsWithAReport) {
    EXPECT_FALSE(ZEBFILE_associate_fh(900, ZEBFILE_READ));
    EXPECT_THAT(err.text(), HasSubstr("Unable to get flags on file 900: Bad file descriptor"));
    EXPECT_EQ(entry(900), nullptr);
}

TEST_F(ZebfileEntries, AssociatingWithTheOtherModeDropsTheBufferedBytes) {
    const int fh = reading(&p);
    fill(fh, "abc");
    EXPECT_TRUE(ZEBFILE_associate_fh(fh, ZEBFILE_WRITE));
    EXPECT_EQ(entry(fh)->mode, ZEBFILE_WRITE);
    EXPECT_EQ(entry(fh)->buffer_off, 0U);
    EXPECT_EQ(g_zebfile_open_files.count, 1);
}

TEST_F(ZebfileEntries, AssociatingWithTheSameModeChangesNothing) {
    const int fh = reading(&p);
    fill(fh, "abc");
    EXPECT_TRUE(ZEBFILE_associate_fh(fh, ZEBFILE_READ));
    EXPECT_EQ(buffered(fh), "abc");
    EXPECT_EQ(g_zebfile_open_files.count, 1);
}

TEST_F(ZebfileEntries, DescriptorMinusOneIsRefusedWithoutAWord) {
    char c;
    EXPECT_FALSE(ZEBFILE_associate_fh(-1, ZEBFILE_READ));
    ZEBFILE_disassociate_fh(-1);
    ZEBFILE_close(-1);
    ZEBFILE_setbuffer(-1, 1);
    ZEBFILE_write(-1, "x", 1);
    ZEBFILE_printf(-1, "x");
    ZEBFILE_flush(-1);
    EXPECT_EQ(ZEBFILE_readuntil_int(-1, &c, 1, "\n", TRUE), k_none);
    EXPECT_EQ(ZEBFILE_readuntil_blocking(-1, &c, 1, "\n", 0), k_none);
    EXPECT_EQ(ZEBFILE_read_atmost(-1, &c, 1), k_none);
    EXPECT_EQ(ZEBFILE_read_offsetof(-1, "\n"), k_none);
    EXPECT_EQ(err.text(), "");
}

TEST_F(ZebfileEntries, UnknownDescriptorsAreReportedExceptBySetbufferCloseAndDisassociate) {
    char c;
    ZEBFILE_setbuffer(900, 1);
    ZEBFILE_close(900);
    ZEBFILE_disassociate_fh(900);
    ZEBFILE_flush(900);
    EXPECT_EQ(err.text(), "");
    ZEBFILE_write(900, "x", 1);
    ZEBFILE_printf(900, "x");
    EXPECT_EQ(occurrences(err.text(), "Unable to write to file 900 (zebfile.cpp:"), 2U);
    EXPECT_EQ(ZEBFILE_readuntil_int(900, &c, 1, "\n", TRUE), k_none);
    EXPECT_EQ(ZEBFILE_read_atmost(900, &c, 1), 0U);
    EXPECT_EQ(ZEBFILE_read_offsetof(900, "\n"), k_none);
    EXPECT_EQ(occurrences(err.text(), "Unable to read from file 900"), 3U);
    EXPECT_EQ(ZEBFILE_readuntil_blocking(900, &c, 1, "\n", 0), k_none);
    EXPECT_EQ(occurrences(err.text(), "Unable to read from file 900"), 3U);
}

TEST_F(ZebfileEntries, CloseEndsTheEntryAndTheDescriptorInTheNextCycle) {
    const int fh = reading(&p);
    cycle();
    ZEBFILE_close(fh);
    EXPECT_NE(entry(fh), nullptr);
    EXPECT_TRUE(is_open(fh));
    pre_select();
    EXPECT_EQ(entry(fh), nullptr);
    EXPECT_FALSE(is_open(fh));
    EXPECT_FALSE(FD_ISSET(fh, &rx));
    EXPECT_EQ(err.text(), "");
}

TEST_F(ZebfileEntries, ADisassociatedDescriptorStaysOpen) {
    const int fh = reading(&p);
    cycle();
    ZEBFILE_disassociate_fh(fh);
    pre_select();
    EXPECT_EQ(entry(fh), nullptr);
    EXPECT_TRUE(is_open(fh));
    close(fh);
}

TEST_F(ZebfileEntries, ANumberUsedAgainBeforeTheCycleMeetsItsOldEntry) {
    const int fh = reading(&p);
    cycle();
    ZEBFILE_disassociate_fh(fh);
    EXPECT_TRUE(ZEBFILE_associate_fh(fh, ZEBFILE_READ));
    EXPECT_EQ(g_zebfile_open_files.count, 1);
    pre_select();
    EXPECT_EQ(entry(fh), nullptr);
    close(fh);
}

TEST_F(ZebfileEntries, DescriptorsBeyondASetAreRefusedWithAReport) {
    TempDir dir;
    DescriptorsTaken taken;
    if (!taken.possible)
        GTEST_SKIP() << "this host allows too few descriptors";
    EXPECT_EQ(ZEBFILE_open((dir / "log").c_str(), ZEBFILE_WRITE, 0), -1);
    EXPECT_EQ(occurrences(err.text(), "Descriptor 1024 does not fit a descriptor set"), 1U);
    EXPECT_FALSE(is_open(FD_SETSIZE));
    const int fh = dup(p.reader());
    ASSERT_GE(fh, FD_SETSIZE);
    EXPECT_FALSE(ZEBFILE_associate_fh(fh, ZEBFILE_READ));
    EXPECT_EQ(occurrences(err.text(), "Descriptor 1024 does not fit a descriptor set"), 2U);
    EXPECT_TRUE(is_open(fh)) << "the caller's, still";
    ZEBFILE_close(fh);
    EXPECT_EQ(g_zebfile_open_files.count, 0);
    close(fh);
}

TEST_F(ZebfileEntries, TheEndOfTheTableWritesOnceMoreAndClosesWhatIsNotDetached) {
    Pipe q;
    const int fh = writing(&p);
    const int kept = reading(&q);
    ZEBFILE_write(fh, "last", 4);
    entry(kept)->dettached = TRUE;
    ZEBFILE_multi_destroy();
    EXPECT_EQ(p.take(), "last");
    EXPECT_FALSE(is_open(fh));
    EXPECT_TRUE(is_open(kept));
    EXPECT_EQ(g_zebfile_open_files.count, 0);
    close(kept);
}

TEST_F(ZebfileEntries, TheLastWriteToAPeerThatIsGoneRaisesNoSignal) {
    const int fh = writing(&p);
    ZEBFILE_write(fh, "last", 4);
    p.close_end(0);
    ZEBFILE_multi_destroy(); // SIGPIPE would end the test
    EXPECT_FALSE(is_open(fh));
    EXPECT_EQ(err.text(), "");
}

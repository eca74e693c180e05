// The hooks of a select loop, and the module's own thread.
#include "zebfile_testing.h"

#include "util.h"

#include <csignal>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <time.h>

using namespace zeb;
using namespace zeb::test;
using testing::HasSubstr;

namespace {

class ZebfileHooks : public ZebfileTable {
  protected:
    // What post-select does with a descriptor that is said to be ready.
    void ready_to_write(int fh) {
        fd_set none, ready;
        FD_ZERO(&none);
        FD_ZERO(&ready);
        FD_SET(fh, &ready);
        ZEBFILE_dispatch_post_select(&rx, &tx, &none, &ready, &fd_max);
    }
};

class ZebfileOwnThread : public ZebfileThread {};

// The two sides of a pseudo-terminal.
struct Terminal {
    Terminal() : master(posix_openpt(O_RDWR | O_NOCTTY)) {
        grantpt(master);
        unlockpt(master);
        line = open(ptsname(master), O_RDWR | O_NOCTTY);
    }
    int master;
    int line;
};

double processor_time() {
    timespec used;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

} // namespace

// ---- Before the select ----

TEST_F(ZebfileHooks, AReadingEntryIsOfReadInterestOnly) {
    const int fh = reading(&p);
    FD_SET(fh, &tx);
    pre_select();
    EXPECT_TRUE(FD_ISSET(fh, &rx));
    EXPECT_FALSE(FD_ISSET(fh, &tx));
    EXPECT_EQ(fd_max, fh);
}

TEST_F(ZebfileHooks, AWritingEntryIsOfWriteInterestWhenBytesAreQueued) {
    const int fh = writing(&p);
    FD_SET(fh, &rx);
    FD_SET(fh, &tx);
    pre_select();
    EXPECT_FALSE(FD_ISSET(fh, &rx));
    EXPECT_FALSE(FD_ISSET(fh, &tx));
    EXPECT_EQ(fd_max, -1);
    ZEBFILE_write(fh, "x", 1);
    pre_select();
    EXPECT_FALSE(FD_ISSET(fh, &rx));
    EXPECT_TRUE(FD_ISSET(fh, &tx));
    EXPECT_EQ(fd_max, fh);
}

TEST_F(ZebfileHooks, TheHighestDescriptorIsRaisedAndNeverLowered) {
    const int fh = reading(&p);
    fd_max = fh + 10;
    pre_select();
    EXPECT_EQ(fd_max, fh + 10);
}

TEST_F(ZebfileHooks, OtherDescriptorsInTheSetsAreLeftAlone) {
    FD_SET(p.reader(), &rx);
    FD_SET(p.writer(), &tx);
    pre_select();
    EXPECT_TRUE(FD_ISSET(p.reader(), &rx));
    EXPECT_TRUE(FD_ISSET(p.writer(), &tx));
}

TEST_F(ZebfileHooks, ACloseRequestAboveTheHighestDescriptorWaitsUntilThatReachesIt) {
    const int fh = writing(&p); // nothing queued: of no interest, so it raises nothing
    ZEBFILE_close(fh);
    fd_max = fh - 1;
    pre_select();
    pre_select();
    EXPECT_NE(entry(fh), nullptr);
    EXPECT_TRUE(is_open(fh));
    fd_max = fh;
    pre_select();
    EXPECT_EQ(entry(fh), nullptr);
    EXPECT_FALSE(is_open(fh));
}

TEST_F(ZebfileHooks, ACloseRequestWithoutAnEntryIsReportedOnceAndCleared) {
    const int fh = reading(&p);
    cycle();
    ZEBFILE_close(fh);
    ZEBFILE_multi_destroy();
    pre_select();
    pre_select();
    EXPECT_EQ(occurrences(err.text(), "Unable to find file entry for handle " + number(fh) +
                                          " (zebfile_dispatch.cpp:"),
              1U);
}

TEST_F(ZebfileHooks, AHighestDescriptorBeyondASetIsHarmless) {
    const int fh = reading(&p);
    cycle();
    ZEBFILE_close(fh);
    fd_max = FD_SETSIZE + 1000;
    pre_select();
    EXPECT_EQ(entry(fh), nullptr);
}

TEST_F(ZebfileHooks, EveryEntryOfAClosedDescriptorEnds) {
    TempDir dir;
    const int fh = reading(&p);
    close(fh); // behind the module's back, so that the number is used again
    write_file(dir / "in", "x");
    ASSERT_EQ(ZEBFILE_open((dir / "in").c_str(), ZEBFILE_READ, 0), fh);
    EXPECT_EQ(g_zebfile_open_files.count, 2);
    pre_select();
    ZEBFILE_close(fh);
    pre_select();
    EXPECT_EQ(g_zebfile_open_files.count, 0);
}

TEST_F(ZebfileHooks, EndingAWritingEntryTriesToWriteWhatIsQueued) {
    const int fh = writing(&p);
    ZEBFILE_write(fh, "late", 4);
    pre_select();
    entry(fh)->dettached = TRUE;
    FD_SET(fh, &g_zebfile_close_files);
    pre_select();
    EXPECT_EQ(p.take(), "late");
    EXPECT_TRUE(is_open(fh));
    close(fh);
}

// ---- After the select ----

TEST_F(ZebfileHooks, AtMost256BytesAreReadPerCycle) {
    const int fh = reading(&p);
    p.put(std::string(300, 'x'));
    cycle();
    EXPECT_EQ(entry(fh)->buffer_off, 256U);
    EXPECT_EQ(entry(fh)->buffer_max, 512U) << "256 is doubled on purpose";
    cycle();
    EXPECT_EQ(buffered(fh), std::string(300, 'x'));
}

TEST_F(ZebfileHooks, ARegularFileIsReadToItsEnd) {
    TempDir dir;
    write_file(dir / "in", std::string(600, 'x'));
    const int fh = ZEBFILE_open((dir / "in").c_str(), ZEBFILE_READ, 0);
    for (int i = 0; i < 3; ++i)
        cycle();
    EXPECT_EQ(entry(fh)->buffer_off, 600U);
    EXPECT_EQ(err.text(), "");
    cycle();
    EXPECT_THAT(err.text(), HasSubstr("Zero length read on file " + number(fh)));
}

TEST_F(ZebfileHooks, EndOfFileIsReportedOnceAndTheEntryGoesInTheNextCycle) {
    const int fh = reading(&p);
    p.put("abc\n");
    p.close_end(1);
    cycle();
    EXPECT_EQ(err.text(), "");
    cycle();
    EXPECT_THAT(err.text(), HasSubstr("Zero length read on file " + number(fh) +
                                      ", assuming EOF, flagged for closing (zebfile_dispatch.cpp"));
    EXPECT_NE(entry(fh), nullptr) << "what it has read can be taken until the next cycle";
    cycle();
    EXPECT_EQ(entry(fh), nullptr);
    EXPECT_FALSE(is_open(fh));
    cycle();
    EXPECT_EQ(occurrences(err.text(), "Zero length read"), 1U);
}

TEST_F(ZebfileHooks, AReadErrorEndsTheEntryWithAReport) {
    Terminal terminal;
    ASSERT_TRUE(ZEBFILE_associate_fh(terminal.master, ZEBFILE_READ));
    close(terminal.line); // the master then reads an error
    cycle();
    EXPECT_THAT(err.text(), HasSubstr("Error reading from file " + number(terminal.master) +
                                      ", flagged for closing: Input/output error"));
    cycle();
    EXPECT_EQ(entry(terminal.master), nullptr);
    EXPECT_FALSE(is_open(terminal.master));
}

TEST_F(ZebfileHooks, AWriteErrorEndsTheEntryWithAReportAndNoSignal) {
    const int fh = writing(&p);
    ZEBFILE_write(fh, "x", 1);
    p.close_end(0);
    cycle();
    EXPECT_THAT(err.text(), HasSubstr("Error writing to file " + number(fh) +
                                      ", flagged for closing: Broken pipe (zebfile_dispatch.cpp:"));
    sigset_t pending;
    sigpending(&pending);
    EXPECT_FALSE(sigismember(&pending, SIGPIPE));
    cycle();
    EXPECT_EQ(entry(fh), nullptr);
}

TEST_F(ZebfileHooks, AFullPipeIsNoError) {
    const int fh = writing(&p);
    const std::string much(65536, 'x');
    ZEBFILE_write(fh, much.data(), much.size());
    cycle();
    ZEBFILE_write(fh, "y", 1);
    ready_to_write(fh); // it is not
    EXPECT_EQ(buffered(fh), "y");
    EXPECT_EQ(err.text(), "");
}

TEST_F(ZebfileHooks, EverythingWrittenEndsTheInterestAndTheFlush) {
    const int fh = writing(&p);
    ZEBFILE_write(fh, "x", 1);
    entry(fh)->in_flush = TRUE;
    pre_select();
    ready_to_write(fh);
    EXPECT_EQ(p.take(), "x");
    EXPECT_FALSE(entry(fh)->in_flush);
    EXPECT_FALSE(FD_ISSET(fh, &tx));
}

TEST_F(ZebfileHooks, AnEmptyBufferInAFlushEndsTheFlush) {
    const int fh = writing(&p);
    entry(fh)->in_flush = TRUE;
    pre_select();
    EXPECT_TRUE(FD_ISSET(fh, &tx));
    ready_to_write(fh);
    EXPECT_FALSE(entry(fh)->in_flush);
    EXPECT_FALSE(FD_ISSET(fh, &tx));
}

TEST_F(ZebfileHooks, PostSelectHoldsBackWhatIsBelowTheLimit) {
    const int fh = writing(&p);
    ZEBFILE_setbuffer(fh, 10);
    ZEBFILE_write(fh, "x", 1);
    ready_to_write(fh);
    EXPECT_EQ(p.take(), "");
    EXPECT_EQ(buffered(fh), "x");
}

TEST_F(ZebfileHooks, OnlyDescriptorsThatAreReadyAreServed) {
    Pipe q;
    const int out = writing(&p);
    const int in = reading(&q);
    ZEBFILE_write(out, "x", 1);
    q.put("y");
    fd_set none;
    FD_ZERO(&none);
    pre_select();
    ZEBFILE_dispatch_post_select(&rx, &tx, &none, &none, &fd_max);
    ZEBFILE_dispatch_loop_continue(&rx, &tx, &fd_max);
    EXPECT_EQ(buffered(out), "x");
    EXPECT_EQ(buffered(in), "");
}

TEST_F(ZebfileHooks, InputThatNobodyTakesStopsBeingReadAtTheLimitAndGoesOnBelowHalfOfIt) {
    const int fh = reading(&p);
    fill(fh, std::string(k_file_limit, 'x'));
    p.put("y");
    cycle();
    cycle();
    EXPECT_FALSE(FD_ISSET(fh, &rx));
    EXPECT_EQ(entry(fh)->buffer_off, k_file_limit);
    const std::string paused = "Input of file " + number(fh) + " is not taken: reading no more";
    EXPECT_EQ(occurrences(err.text(), paused), 1U);
    entry(fh)->buffer_off = k_file_resume;
    cycle();
    EXPECT_EQ(entry(fh)->buffer_off, k_file_resume);
    entry(fh)->buffer_off = k_file_resume - 1;
    cycle();
    EXPECT_EQ(entry(fh)->buffer_off, k_file_resume);
    EXPECT_EQ(entry(fh)->buffer[k_file_resume - 1], 'y') << "nothing is lost";
    EXPECT_THAT(err.text(), HasSubstr("Input of file " + number(fh) + " is taken again"));
}

TEST_F(ZebfileHooks, LoopContinueDoesNothing) {
    const int fh = reading(&p);
    pre_select();
    const int before = fd_max;
    ZEBFILE_dispatch_loop_continue(&rx, &tx, &fd_max);
    EXPECT_EQ(fd_max, before);
    EXPECT_TRUE(FD_ISSET(fh, &rx));
}

// ---- Who is woken ----

TEST_F(ZebfileHooks, TheFirstParentGivenIsTheOneToWake) {
    pthread_t first = pthread_self(), second = pthread_self();
    ZEBFILE_dispatch_init(&rx, &tx, &fd_max, nullptr);
    EXPECT_EQ(g_zebfile_signal_thread, nullptr);
    ZEBFILE_dispatch_init(&rx, &tx, &fd_max, &first);
    EXPECT_EQ(g_zebfile_signal_thread, &first);
    ZEBFILE_dispatch_init(&rx, &tx, &fd_max, &second);
    EXPECT_EQ(g_zebfile_signal_thread, &first);
    EXPECT_EQ(fd_max, -1) << "the sets are not touched";
    ZEBFILE_multi_destroy();
    EXPECT_EQ(g_zebfile_signal_thread, nullptr) << "the handle may go with its owner";
}

namespace {

volatile sig_atomic_t g_wake_ups;

// Counts the wake-ups that calls send to this thread.
class WakeUps {
  public:
    WakeUps() {
        struct sigaction action = {};
        action.sa_handler = [](int) { g_wake_ups = g_wake_ups + 1; };
        sigaction(SIGUSR1, &action, &before_);
        g_wake_ups = 0;
    }
    ~WakeUps() { sigaction(SIGUSR1, &before_, nullptr); }
    WakeUps(const WakeUps &) = delete;
    WakeUps &operator=(const WakeUps &) = delete;
    // Since the last look.
    int count() {
        const int seen = g_wake_ups;
        g_wake_ups = 0;
        return seen;
    }

  private:
    struct sigaction before_;
};

} // namespace

TEST_F(ZebfileHooks, EveryChangeWakesTheServicingThreadAndFlushDoesNot) {
    TempDir dir;
    pthread_t self = pthread_self();
    ZEBFILE_dispatch_init(&rx, &tx, &fd_max, &self);
    WakeUps wake_ups;
    const int fh = writing(&p);
    EXPECT_EQ(wake_ups.count(), 1) << "associate";
    const int log = ZEBFILE_open((dir / "log").c_str(), ZEBFILE_WRITE, 0);
    EXPECT_EQ(wake_ups.count(), 1) << "open";
    ZEBFILE_setbuffer(fh, 0);
    EXPECT_EQ(wake_ups.count(), 1) << "setbuffer";
    ZEBFILE_write(fh, "x", 1);
    EXPECT_EQ(wake_ups.count(), 1) << "write";
    ZEBFILE_printf(fh, "x");
    EXPECT_EQ(wake_ups.count(), 1) << "printf";
    cycle();
    ZEBFILE_flush(fh);
    EXPECT_EQ(wake_ups.count(), 0) << "flush";
    ZEBFILE_disassociate_fh(fh);
    EXPECT_EQ(wake_ups.count(), 1) << "disassociate";
    ZEBFILE_close(log);
    EXPECT_EQ(wake_ups.count(), 1) << "close";
    cycle();
    close(fh);
}

TEST_F(ZebfileHooks, AWriteByIdWakesTheServicingThreadOnlyWhenItGetsSomethingToDo) {
    pthread_t self = pthread_self();
    ZEBFILE_dispatch_init(&rx, &tx, &fd_max, &self);
    WakeUps wake_ups;
    const int fh = writing(&p);
    const QWORD id = file_id(fh);
    wake_ups.count();
    EXPECT_TRUE(file_write(fh, id, "x", 1));
    EXPECT_EQ(wake_ups.count(), 1) << "the first byte";
    EXPECT_TRUE(file_write(fh, id, "x", 1));
    EXPECT_EQ(wake_ups.count(), 0) << "one wake-up is under way";
    cycle();
    EXPECT_EQ(p.take(), "xx");
    EXPECT_TRUE(file_write(fh, id, "x", 1));
    EXPECT_EQ(wake_ups.count(), 1) << "the first byte after a cycle";
    cycle();

    ZEBFILE_setbuffer(fh, 3);
    wake_ups.count();
    EXPECT_TRUE(file_write(fh, id, "y", 1));
    EXPECT_TRUE(file_write(fh, id, "y", 1));
    EXPECT_EQ(wake_ups.count(), 0) << "held back";
    EXPECT_TRUE(file_write(fh, id, "y", 1));
    EXPECT_EQ(wake_ups.count(), 1) << "the limit";
    EXPECT_TRUE(file_write(fh, id, "y", 1));
    EXPECT_EQ(wake_ups.count(), 0);
    cycle();
    EXPECT_EQ(p.take(), "xyyyy");
    ZEBFILE_disassociate_fh(fh);
    cycle();
}

// ---- The module's own thread ----

TEST_F(ZebfileOwnThread, ServesPipesSocketsAndTerminals) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    Terminal terminal;
    ASSERT_TRUE(ZEBFILE_associate_fh(ends[0], ZEBFILE_WRITE));
    ASSERT_TRUE(ZEBFILE_associate_fh(ends[1], ZEBFILE_READ));
    ASSERT_TRUE(ZEBFILE_associate_fh(terminal.master, ZEBFILE_WRITE));
    ASSERT_TRUE(ZEBFILE_associate_fh(terminal.line, ZEBFILE_READ));
    char line[64];
    for (int i = 0; i < 100; ++i) {
        ZEBFILE_printf(ends[0], "socket %d\n", i);
        ASSERT_NE(ZEBFILE_readuntil_blocking(ends[1], line, sizeof line, "\n", 0), k_none);
        EXPECT_EQ(line, "socket " + number(i));
        ZEBFILE_printf(terminal.master, "line %d\n", i);
        ASSERT_NE(ZEBFILE_readuntil_blocking(terminal.line, line, sizeof line, "\n", 0), k_none);
        EXPECT_EQ(line, "line " + number(i));
    }
    EXPECT_EQ(err.text(), "") << "wake-ups are no errors";
}

TEST_F(ZebfileOwnThread, EndOfFileEndsTheEntryByItself) {
    const int fh = p.give(0);
    ASSERT_TRUE(ZEBFILE_associate_fh(fh, ZEBFILE_READ));
    p.close_end(1);
    EXPECT_TRUE(wait_until([&] { return !has_entry(fh); }));
    EXPECT_EQ(occurrences(err.text(), "Zero length read on file " + number(fh)), 1U);
}

TEST_F(ZebfileOwnThread, ADescriptorClosedBehindItsBackIsPrunedAndOthersGoOn) {
    Pipe q;
    // A number that nothing else is given when it is free, below one that stays.
    const int low = p.give(1), second = q.give(0);
    const int bad = fcntl(low, F_DUPFD_CLOEXEC, 50), good = fcntl(second, F_DUPFD_CLOEXEC, 60);
    ASSERT_TRUE(bad != -1 && good != -1);
    close(low);
    close(second);
    ASSERT_TRUE(ZEBFILE_associate_fh(bad, ZEBFILE_WRITE)); // of no interest yet, so in no select
    ASSERT_TRUE(ZEBFILE_associate_fh(good, ZEBFILE_READ));
    close(bad);
    ZEBFILE_associate_fh(bad, ZEBFILE_READ);
    const std::string pruned = "WARNING: Pruned file " + number(bad) + " from read list";
    EXPECT_TRUE(wait_until([&] { return err.text().find(pruned) != std::string::npos; }));
    EXPECT_THAT(err.text(), HasSubstr("Select failed: Bad file descriptor (zebfile_dispatch.cpp:"));
    EXPECT_THAT(err.text(),
                HasSubstr("CRITICAL: bad file descriptor, atempting to prune (zebfile"));
    EXPECT_TRUE(has_entry(bad)) << "the owner's to close";
    ZEBFILE_close(bad);
    EXPECT_TRUE(wait_until([&] { return !has_entry(bad); }));
    q.put("abc\n");
    char line[64];
    EXPECT_EQ(ZEBFILE_readuntil_blocking(good, line, sizeof line, "\n", 0), 3U);
}

TEST_F(ZebfileOwnThread, WithoutInterestItSpinsOnAShortSleepAndNoticesWorkAtOnce) {
    const double start = processor_time();
    EXPECT_TRUE(wait_until([&] { return processor_time() - start > 0.001; }));
    const int fh = p.give(1);
    ASSERT_TRUE(ZEBFILE_associate_fh(fh, ZEBFILE_WRITE));
    ZEBFILE_write(fh, "x", 1);
    EXPECT_TRUE(wait_until([&] { return p.take() == "x"; }));
}

TEST_F(ZebfileOwnThread, StopsAndStartsAgain) {
    const int fh = p.give(0);
    ASSERT_TRUE(ZEBFILE_associate_fh(fh, ZEBFILE_READ));
    ZEBFILE_destroy();
    EXPECT_FALSE(is_open(fh));
    EXPECT_EQ(g_zebfile_signal_thread, nullptr);
    ZEBFILE_destroy(); // nothing to stop
    ASSERT_TRUE(ZEBFILE_init());
    const int out = p.give(1);
    ASSERT_TRUE(ZEBFILE_associate_fh(out, ZEBFILE_WRITE));
    EXPECT_TRUE(has_entry(out));
    EXPECT_EQ(err.text(), "");
}

TEST_F(ZebfileOwnThread, StoppingWritesWhatIsQueued) {
    const int fh = p.give(1);
    ASSERT_TRUE(ZEBFILE_associate_fh(fh, ZEBFILE_WRITE));
    ZEBFILE_setbuffer(fh, 100);
    ZEBFILE_write(fh, "held", 4);
    ZEBFILE_destroy();
    EXPECT_EQ(p.take(), "held");
}

TEST_F(ZebfileOwnThread, ManyThreadsOpenWriteReadAndCloseAtOnce) {
    std::vector<std::thread> users;
    std::atomic<int> lines = 0;
    for (int u = 0; u < 4; ++u)
        users.emplace_back([&lines] {
            for (int i = 0; i < 25; ++i) {
                Pipe q;
                const int out = q.give(1), in = q.give(0);
                ZEBFILE_associate_fh(in, ZEBFILE_READ);
                ZEBFILE_associate_fh(out, ZEBFILE_WRITE);
                ZEBFILE_printf(out, "line %d\n", i);
                char line[64];
                if (ZEBFILE_readuntil_blocking(in, line, sizeof line, "\n", 0) != k_none)
                    ++lines;
                ZEBFILE_close(in);
                ZEBFILE_close(out);
            }
        });
    for (std::thread &user : users)
        user.join();
    EXPECT_EQ(lines, 100);
    EXPECT_EQ(err.text(), "");
}

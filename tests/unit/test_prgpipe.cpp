#include "prgpipe_testing.h"
#include "util.h"

#include <climits>
#include <sys/stat.h>

using namespace zeb;
using namespace zeb::test;
using testing::HasSubstr;
using testing::Not;

namespace {

class Prgpipe : public PrgpipeThread {
  protected:
    void make_program(const std::string &path, const std::string &script) {
        write_file(path, "#!/bin/sh\n" + script);
        chmod(path.c_str(), 0700);
    }
    // What the table says of a descriptor at this moment.
    static ZEBFILE_entry seen(int fh) {
        pthread_mutex_lock(&g_zebfile_open_files_mutex);
        const ZEBFILE_entry copy = *entry(fh);
        pthread_mutex_unlock(&g_zebfile_open_files_mutex);
        return copy;
    }
    // A signal's bit in a mask of /proc.
    static bool is_blocked(unsigned long long mask, int signal) {
        return (mask >> (signal - 1) & 1) != 0;
    }
};

} // namespace

// ---- Starting ----

TEST_F(Prgpipe, TheChildReadsItsInputAndItsOutputIsRead) {
    ASSERT_TRUE(run("/bin/cat", {}));
    EXPECT_GT(child.child_pid, 0);
    EXPECT_EQ(child.read_stderr, -1);
    ZEBFILE_printf(child.write_stdin, "one\ntwo\n");
    EXPECT_EQ(line(), "one");
    EXPECT_EQ(line(), "two");
    expect_report("Created child process /bin/cat: " + number(child.child_pid) + " (prgpipe.cpp:");
}

TEST_F(Prgpipe, WritesGoOutWithoutHolding) {
    ASSERT_TRUE(run("/bin/cat", {}));
    EXPECT_EQ(seen(child.write_stdin).buffer_flush_limit, 0U);
    EXPECT_EQ(seen(child.write_stdin).mode, ZEBFILE_WRITE);
    EXPECT_EQ(seen(child.read_stdout).mode, ZEBFILE_READ);
}

TEST_F(Prgpipe, TheLastElementOfTheArgumentsIsNotPassed) {
    TempDir dir;
    make_program(dir / "show", "echo \"$#: $*\"; exec cat\n");
    char verbose[] = "-v", last[] = "x";
    char *args[] = {verbose, last, nullptr};
    ASSERT_TRUE(PRGPIPE_createchild((dir / "show").c_str(), &child, FALSE, args));
    EXPECT_EQ(line(), "1: -v");
}

TEST_F(Prgpipe, ASingleArgumentIsThePlaceholderAlone) {
    TempDir dir;
    make_program(dir / "show", "echo \"$#\"; exec cat\n");
    char last[] = "x";
    char *args[] = {last, nullptr};
    ASSERT_TRUE(PRGPIPE_createchild((dir / "show").c_str(), &child, FALSE, args));
    EXPECT_EQ(line(), "0");
}

TEST_F(Prgpipe, WithoutArgumentsTheProgramGetsItsNameOnly) {
    TempDir dir;
    make_program(dir / "show", "tr '\\0' '|' </proc/$$/cmdline; echo; exec cat\n");
    char *none[] = {nullptr};
    for (char **args : {static_cast<char **>(nullptr), none}) {
        ASSERT_TRUE(PRGPIPE_createchild((dir / "show").c_str(), &child, FALSE, args));
        EXPECT_EQ(line(), "/bin/sh|" + (dir / "show") + "|")
            << "the script is the shell's argument";
        kill_child();
    }
}

TEST_F(Prgpipe, ARelativeCommandIsFoundBelowTheZeb2Directory) {
    TempDir dir;
    mkdir((dir / "bin").c_str(), 0700);
    make_program(dir / "bin/cat", "echo mine\nexec /bin/cat\n");
    ScopedEnv root("ZEB2", dir.path().c_str());
    ASSERT_TRUE(run("bin/cat", {}));
    EXPECT_EQ(line(), "mine");
}

TEST_F(Prgpipe, ACommandThatIsNotBelowTheZeb2DirectoryIsFoundThroughTheSearchPath) {
    TempDir dir;
    ScopedEnv root("ZEB2", dir.path().c_str());
    ASSERT_TRUE(run("cat", {}));
    ZEBFILE_printf(child.write_stdin, "found\n");
    EXPECT_EQ(line(), "found");
}

TEST_F(Prgpipe, WithoutAZeb2DirectoryACommandIsTakenBelowTheRoot) {
    ScopedEnv root("ZEB2", nullptr);
    ScopedEnv path("PATH", "/nowhere");
    ASSERT_TRUE(run("bin/cat", {}));
    ZEBFILE_printf(child.write_stdin, "found\n");
    EXPECT_EQ(line(), "found");
}

TEST_F(Prgpipe, AZeb2DirectoryBeyondAnyPathIsReportedAndTheSearchPathTried) {
    ScopedEnv root("ZEB2", std::string(PATH_MAX, 'z').c_str());
    ASSERT_TRUE(run("cat", {}));
    expect_report("Path of cat below ZEB2 is longer than 4095 characters, trying the search path");
    ZEBFILE_printf(child.write_stdin, "found\n");
    EXPECT_EQ(line(), "found");
}

TEST_F(Prgpipe, StandardErrorIsTheDaemonsUnlessItIsAskedFor) {
    ASSERT_TRUE(start("echo complaint >&2; echo done; exec cat"));
    EXPECT_EQ(line(), "done");
    expect_report("complaint\n");
}

TEST_F(Prgpipe, StandardErrorIsAPipeWhenItIsAskedFor) {
    ASSERT_TRUE(start("echo complaint >&2; exec cat", true));
    EXPECT_EQ(line(child.read_stderr), "complaint");
    EXPECT_EQ(seen(child.read_stderr).mode, ZEBFILE_READ);
    EXPECT_THAT(err.text(), Not(HasSubstr("complaint")));
}

TEST_F(Prgpipe, EverySignalButSigintIsBlockedInTheChild) {
    ASSERT_TRUE(start("exec grep --line-buffered SigBlk /proc/self/status -"));
    const std::string text = line();
    ASSERT_THAT(text, HasSubstr("SigBlk:"));
    const unsigned long long mask =
        std::stoull(text.substr(text.find_last_of("\t ") + 1), nullptr, 16);
    for (int signal = 1; signal < 32; ++signal) {
        const bool may_come = signal == SIGINT || signal == SIGKILL || signal == SIGSTOP;
        EXPECT_EQ(is_blocked(mask, signal), !may_come) << strsignal(signal);
    }
}

TEST_F(Prgpipe, TheDaemonsOwnMaskStays) {
    sigset_t before, after;
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    ASSERT_TRUE(run("/bin/cat", {}));
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    for (int signal = 1; signal < 32; ++signal)
        EXPECT_EQ(sigismember(&after, signal), sigismember(&before, signal));
}

TEST_F(Prgpipe, TheDaemonsEndsAreClosedOnExecAndNonBlocking) {
    ASSERT_TRUE(start("exec cat", true));
    for (const int fh : {child.write_stdin, child.read_stdout, child.read_stderr}) {
        EXPECT_TRUE(fcntl(fh, F_GETFD) & FD_CLOEXEC);
        EXPECT_TRUE(fcntl(fh, F_GETFL) & O_NONBLOCK);
    }
}

TEST_F(Prgpipe, AnotherChildDoesNotKeepTheInputOfTheFirstOpen) {
    ASSERT_TRUE(run("/bin/cat", {}));
    const PRGPIPE_link first = child;
    PRGPIPE_link other;
    ASSERT_TRUE(PRGPIPE_createchild("/bin/cat", &other, FALSE, nullptr));
    PRGPIPE_disconnectchild(&child);
    EXPECT_TRUE(wait_until([&] { return has_ended(first.child_pid); })) << "end of file for cat";
    EXPECT_FALSE(has_ended(other.child_pid));
    child = other;
}

TEST_F(Prgpipe, AChildHasNoDescriptorOfThePipesButItsStreams) {
    ASSERT_TRUE(start("exec cat", true));
    const std::string fds = "/proc/" + number(child.child_pid) + "/fd/";
    ZEBFILE_printf(child.write_stdin, "running\n");
    ASSERT_EQ(line(), "running");
    char ours[64], theirs[64];
    std::set<std::string> streams;
    for (int fh = 0; fh < 64; ++fh) {
        const std::string name = fds + number(fh);
        const ssize_t size = readlink(name.c_str(), theirs, sizeof theirs);
        if (size > 0 && std::string(theirs, static_cast<size_t>(size)).starts_with("pipe:"))
            streams.insert(std::string(theirs, static_cast<size_t>(size)) + (fh > 2 ? "+" : ""));
    }
    for (const int fh : {child.write_stdin, child.read_stdout, child.read_stderr}) {
        const std::string name = "/proc/self/fd/" + number(fh);
        const ssize_t size = readlink(name.c_str(), ours, sizeof ours);
        ASSERT_GT(size, 0);
        const std::string pipe(ours, static_cast<size_t>(size));
        EXPECT_TRUE(streams.contains(pipe));
        EXPECT_FALSE(streams.contains(pipe + "+"));
    }
}

TEST_F(Prgpipe, TheLinkIsEmptyAfterAFailureWhateverItHeld) {
    child = {7, 8, 9, 10};
    EXPECT_FALSE(PRGPIPE_createchild(nullptr, &child, FALSE, nullptr));
    expect_empty_link();
    expect_report("assertion failed (prgpipe.cpp:");
    EXPECT_FALSE(PRGPIPE_createchild("/bin/cat", nullptr, FALSE, nullptr));
}

TEST_F(Prgpipe, ACommandOf255CharactersIsTheLongest) {
    TempDir dir;
    std::string path = dir / "";
    while (path.size() + 100 < 255) {
        path += std::string(99, 'd') + "/";
        mkdir(path.c_str(), 0700);
    }
    path += std::string(255 - path.size(), 'p');
    make_program(path, "echo long\nexec cat\n");
    ASSERT_TRUE(run(path.c_str(), {}));
    EXPECT_EQ(line(), "long");
    kill_child();
    EXPECT_FALSE(run((path + "x").c_str(), {}));
    expect_report("Command of 256 characters is longer than 255, not started: /");
    expect_empty_link();
}

TEST_F(Prgpipe, AProgramThatDoesNotExistIsTheChildsFailure) {
    ASSERT_TRUE(run("no-such-program", {}));
    EXPECT_EQ(exit_status(child.child_pid), 255);
    expect_report("execvp: No such file or directory\n");
}

TEST_F(Prgpipe, AFailureInTheChildAppearsOnItsStandardError) {
    // Nobody services the descriptors, so that nothing is lost when the child ends.
    ZEBFILE_destroy();
    ZEBFILE_multi_init();
    ASSERT_TRUE(run("/no/such/program", {}, true));
    EXPECT_EQ(exit_status(child.child_pid), 255);
    char text[64] = {};
    EXPECT_GT(read(child.read_stderr, text, sizeof text - 1), 0);
    EXPECT_STREQ(text, "execvp: No such file or directory\n");
    EXPECT_THAT(err.text(), Not(HasSubstr("execvp")));
}

// ---- Stopping ----

TEST_F(Prgpipe, AChildIsStoppedBySigint) {
    ASSERT_TRUE(run("/bin/cat", {}));
    const PRGPIPE_link was = child;
    kill_child();
    expect_empty_link();
    EXPECT_EQ(t_yields.count, 1);
    expect_report("Child process " + number(was.child_pid) + " terminated by SIGINT (prgpipe.cpp:");
    EXPECT_EQ(waitpid(was.child_pid, nullptr, WNOHANG), -1) << "it has been waited for";
    EXPECT_TRUE(wait_until([&] { return !has_entry(was.read_stdout); }));
}

TEST_F(Prgpipe, AChildThatIgnoresSigintIsKilledAfterTenYields) {
    ASSERT_TRUE(start("trap '' INT; echo ready; exec sleep 1000"));
    ASSERT_EQ(line(), "ready");
    const pid_t pid = child.child_pid;
    kill_child(10);
    EXPECT_EQ(t_yields.count, 11);
    EXPECT_EQ(child.child_pid, -1);
    expect_report("Child process " + number(pid) + " terminated by SIGKILL (prgpipe.cpp:");
    EXPECT_EQ(waitpid(pid, nullptr, WNOHANG), -1);
}

TEST_F(Prgpipe, AChildThatOutlivesBothSignalsIsTakenForDeadAfterTwentyYields) {
    ASSERT_TRUE(run("/bin/cat", {}));
    const pid_t pid = child.child_pid;
    t_failing.kill = true;
    kill_child(20);
    t_failing.kill = false;
    EXPECT_EQ(t_yields.count, 20);
    expect_empty_link();
    expect_report("Child process " + number(pid) +
                  " didn't respond to SIGINT or SIGKILL, assuming it's dead (prgpipe.cpp:");
    child.child_pid = pid;
}

TEST_F(Prgpipe, AStopBeforeTheProgramRunsFindsNoHandlerOfTheDaemon) {
    const auto before = signal(SIGINT, UTIL_empty_sighandler);
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(run("/bin/cat", {}));
        const pid_t pid = child.child_pid;
        kill_child();
        EXPECT_EQ(child.child_pid, -1);
        expect_report("Child process " + number(pid) + " terminated by SIGINT");
    }
    signal(SIGINT, before);
}

TEST_F(Prgpipe, AChildThatEndedBeforeItsStopCountsAsStoppedBySigint) {
    ASSERT_TRUE(run("/bin/true", {}));
    EXPECT_EQ(exit_status(child.child_pid), 0);
    const pid_t pid = child.child_pid;
    kill_child();
    expect_report("Child process " + number(pid) + " terminated by SIGINT");
}

TEST_F(Prgpipe, ABareProcessIsStoppedAndNothingElseTouched) {
    ASSERT_TRUE(run("/bin/cat", {}));
    const PRGPIPE_link before = child;
    t_yields.child = child.child_pid;
    PRGPIPE_kill_child_proc(child.child_pid);
    expect_report("Child process " + number(child.child_pid) + " terminated by SIGINT");
    EXPECT_EQ(child.child_pid, before.child_pid);
    EXPECT_EQ(child.write_stdin, before.write_stdin);
    EXPECT_TRUE(is_open(child.write_stdin));
}

TEST_F(Prgpipe, NoProcessIsStoppedForMinusOne) {
    PRGPIPE_kill_child_proc(-1);
    EXPECT_EQ(err.text(), "");
    EXPECT_EQ(t_yields.count, 0);
}

TEST_F(Prgpipe, GroupsOfProcessesAreNotStopped) {
    PRGPIPE_kill_child_proc(0);
    PRGPIPE_kill_child_proc(-getpid());
    EXPECT_EQ(occurrences(err.text(), "assertion failed (prgpipe.cpp:"), 2U);
    EXPECT_EQ(t_yields.count, 0);
    child.child_pid = 0;
    EXPECT_TRUE(PRGPIPE_test_dead(&child));
}

TEST_F(Prgpipe, AnEmptyLinkIsStoppedWithoutAWord) {
    PRGPIPE_killchild(&child);
    PRGPIPE_killchild(&child);
    PRGPIPE_disconnectchild(&child);
    EXPECT_EQ(err.text(), "");
    PRGPIPE_killchild(nullptr);
    PRGPIPE_disconnectchild(nullptr);
    EXPECT_TRUE(PRGPIPE_test_dead(nullptr));
    EXPECT_EQ(occurrences(err.text(), "assertion failed (prgpipe.cpp:"), 3U);
}

// ---- Ending by itself ----

TEST_F(Prgpipe, ARunningChildIsNotDead) {
    ASSERT_TRUE(run("/bin/cat", {}));
    const pid_t pid = child.child_pid;
    EXPECT_FALSE(PRGPIPE_test_dead(&child));
    EXPECT_EQ(child.child_pid, pid);
    EXPECT_TRUE(is_open(child.write_stdin));
}

TEST_F(Prgpipe, AChildThatEndedIsNoticedOnceAndItsPipesAreClosedOnce) {
    ASSERT_TRUE(run("/bin/cat", {}));
    const PRGPIPE_link was = child;
    kill(was.child_pid, SIGKILL);
    EXPECT_EQ(exit_status(was.child_pid), -1);
    EXPECT_TRUE(PRGPIPE_test_dead(&child));
    expect_empty_link();
    EXPECT_TRUE(PRGPIPE_test_dead(&child));
    EXPECT_TRUE(PRGPIPE_test_dead(&child));
    const std::string text = "Child process " + number(was.child_pid) +
                             " died without intervention, closing pipes (prgpipe.cpp:";
    EXPECT_EQ(occurrences(err.text(), text), 1U);
    EXPECT_TRUE(wait_until([&] { return !is_open(was.read_stdout); }));
}

TEST_F(Prgpipe, NoChildIsDead) {
    EXPECT_TRUE(PRGPIPE_test_dead(&child));
    EXPECT_EQ(err.text(), "");
}

TEST_F(Prgpipe, DescriptorsDoNotPileUpOverManyChildren) {
    const size_t before = open_descriptors().size();
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(run("/bin/cat", {}));
        ZEBFILE_printf(child.write_stdin, "hello\n");
        EXPECT_EQ(line(), "hello");
        EXPECT_TRUE(wait_until([&] { return open_descriptors().size() <= before + 4; }))
            << "the ends of this child, and those of the last whose turn has not come";
        kill(child.child_pid, SIGKILL);
        EXPECT_EQ(exit_status(child.child_pid), -1);
        EXPECT_TRUE(PRGPIPE_test_dead(&child));
    }
}

TEST_F(Prgpipe, WritingToAChildThatDiedEndsTheEntryAndNotTheDaemon) {
    ASSERT_TRUE(run("/bin/true", {}));
    EXPECT_EQ(exit_status(child.child_pid), 0);
    const int in = child.write_stdin;
    ZEBFILE_write(in, "hello", 5);
    ZEBFILE_flush(in);
    expect_report("Error writing to file " + number(in) + ", flagged for closing: Broken pipe");
    EXPECT_TRUE(PRGPIPE_test_dead(&child));
}

// ---- Letting go ----

TEST_F(Prgpipe, ADisconnectedChildRunsOn) {
    TempDir dir;
    ASSERT_TRUE(
        start("cat >" + (dir / "in") + "; echo end >" + (dir / "end") + "; exec sleep 1000"));
    const PRGPIPE_link was = child;
    ZEBFILE_write(child.write_stdin, "all of it", 9);
    PRGPIPE_disconnectchild(&child);
    EXPECT_EQ(child.write_stdin, -1);
    EXPECT_EQ(child.read_stdout, -1);
    EXPECT_EQ(child.read_stderr, -1);
    EXPECT_EQ(child.child_pid, was.child_pid);
    EXPECT_TRUE(wait_until([&] { return access((dir / "end").c_str(), F_OK) == 0; }))
        << "its input has ended";
    EXPECT_EQ(read_file(dir / "in"), "all of it");
    EXPECT_FALSE(has_ended(was.child_pid));
    EXPECT_FALSE(PRGPIPE_test_dead(&child));
}

// ---- Children that behave badly ----

TEST_F(Prgpipe, AChildThatFloodsItsOutputIsStopped) {
    ASSERT_TRUE(start("exec yes flood"));
    EXPECT_TRUE(
        wait_until([&] { return ZEBFILE_read_offsetof(child.read_stdout, "f") != k_none; }));
    std::string text(100000, '\0');
    size_t got = 0;
    while (got < text.size())
        got += ZEBFILE_read_atmost(child.read_stdout, text.data() + got, text.size() - got);
    EXPECT_EQ(text.substr(0, 12), "flood\nflood\n");
    const pid_t pid = child.child_pid;
    kill_child();
    expect_report("Child process " + number(pid) + " terminated by SIGINT");
    expect_empty_link();
}

TEST_F(Prgpipe, AChildThatNeverReadsItsInputIsStopped) {
    ASSERT_TRUE(run("/bin/sleep", {"1000"}));
    const std::string much(1000000, 'x');
    ZEBFILE_write(child.write_stdin, much.data(), much.size());
    EXPECT_FALSE(PRGPIPE_test_dead(&child));
    const pid_t pid = child.child_pid;
    kill_child();
    expect_report("Child process " + number(pid) + " terminated by SIGINT");
    expect_empty_link();
}

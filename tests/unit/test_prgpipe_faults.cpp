// Starting children when memory or a system call fails.
#include "fail_alloc.h"
#include "prgpipe_testing.h"

#include <cerrno>
#include <sys/resource.h>
#include <tuple>

using namespace zeb::test;
using testing::HasSubstr;

namespace {

class PrgpipeFaults : public PrgpipeThread {
  protected:
    // Every descriptor that this process had before is all that it has.
    void expect_nothing_left(const std::set<int> &before) {
        EXPECT_TRUE(wait_until([&] { return open_descriptors() == before; }))
            << testing::PrintToString(open_descriptors());
    }
};

// Leaves the process no more than `free` new descriptors.
class FewDescriptors {
  public:
    explicit FewDescriptors(int free) {
        getrlimit(RLIMIT_NOFILE, &before_);
        const std::set<int> open = open_descriptors();
        const rlimit low = {*open.rbegin() + 20UL, before_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &low);
        for (rlim_t left = low.rlim_cur - open.size(); left > rlim_t(free); --left)
            held_.push_back(dup(0));
    }
    ~FewDescriptors() {
        for (const int fh : held_)
            close(fh);
        setrlimit(RLIMIT_NOFILE, &before_);
    }
    FewDescriptors(const FewDescriptors &) = delete;
    FewDescriptors &operator=(const FewDescriptors &) = delete;

  private:
    rlimit before_;
    std::vector<int> held_;
};

// What the undefined behaviour sanitizer may borrow while a thread looks at its first objects.
#ifdef __SANITIZE_ADDRESS__
constexpr int k_borrowed = 2;
#else
constexpr int k_borrowed = 0;
#endif

} // namespace

// Without descriptors the undefined behaviour sanitizer cannot look at an object, so what runs then
// is no member; and it borrows some at times, so no thread runs that might.
TEST(PrgpipeWithoutThread, APipeThatCannotBeCreatedIsReportedAndLeavesNothing) {
    const std::set<int> before = open_descriptors();
    for (const int free : {0, 1, 2, 3, 4, 5}) {
        StderrCapture step;
        PRGPIPE_link link = {7, 8, 9, 10};
        BOOL started;
        {
            FewDescriptors few(free);
            started = run_program(&link, "/bin/cat", {}, free > 3);
        }
        EXPECT_FALSE(started) << free;
        expect_empty(link);
        EXPECT_THAT(step.finish(),
                    HasSubstr("Unable to create pipe: Too many open files (prgpipe"));
        EXPECT_EQ(open_descriptors(), before) << free;
    }
}

TEST_F(PrgpipeFaults, TwoDescriptorsAPipeAreEnough) {
    PRGPIPE_link link;
    BOOL started;
    {
        FewDescriptors few(4 + k_borrowed);
        started = run_program(&link, "/bin/cat", {});
    }
    child = link;
    EXPECT_TRUE(started);
    ZEBFILE_printf(child.write_stdin, "here\n");
    EXPECT_EQ(line(), "here");
}

TEST_F(PrgpipeFaults, FlagsThatCannotBeHadAreReportedAndLeaveNothing) {
    const std::tuple<int, int, std::string> steps[] = {
        {F_GETFD, 0, "Unable to get flags on new stdout"},
        {F_SETFD, 0, "Unable to set close-on-exec flag on new stdout"},
        {F_GETFD, 1, "Unable to get flags on new stdin"},
        {F_SETFD, 1, "Unable to set close-on-exec flag on new stdin"},
    };
    const std::set<int> before = open_descriptors();
    for (const auto &[command, after, text] : steps) {
        StderrCapture step;
        t_failing.fcntl_command = command;
        t_failing.fcntl_after = after;
        EXPECT_FALSE(start("exec cat", true));
        t_failing = {};
        EXPECT_THAT(step.finish(), HasSubstr(text + ": Operation not permitted (prgpipe.cpp:"));
        expect_empty_link();
        EXPECT_EQ(open_descriptors(), before);
    }
}

TEST_F(PrgpipeFaults, FlagsOfTheErrorPipeThatCannotBeHadLeaveWhatWasOpened) {
    const std::pair<int, std::string> steps[] = {
        {F_GETFD, "Unable to get flags on new stderr"},
        {F_SETFD, "Unable to set close-on-exec flag on new stderr"},
    };
    const std::set<int> before = open_descriptors();
    for (const auto &[command, text] : steps) {
        StderrCapture step;
        t_failing.fcntl_command = command;
        t_failing.fcntl_after = 2;
        EXPECT_FALSE(start("exec cat", true));
        t_failing = {};
        EXPECT_THAT(step.finish(), HasSubstr(text + ": Operation not permitted (prgpipe.cpp:"));
        EXPECT_EQ(open_descriptors().size(), before.size() + 6);
        EXPECT_TRUE(is_open(child.read_stdout));
        EXPECT_TRUE(is_open(child.write_stdin));
        EXPECT_TRUE(is_open(child.read_stderr));
        EXPECT_EQ(child.child_pid, -1);
        for (const int fh : open_descriptors())
            if (!before.contains(fh))
                close(fh);
    }
}

TEST_F(PrgpipeFaults, AForkThatFailsIsReportedAndLeavesNothing) {
    const std::set<int> before = open_descriptors();
    t_failing.fork = EAGAIN;
    EXPECT_FALSE(start("exec cat", true));
    expect_report("Unable to fork: Resource temporarily unavailable (prgpipe.cpp:");
    expect_empty_link();
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(PrgpipeFaults, ARegistrationThatFailsStopsTheChildAndLeavesNothing) {
    const std::set<int> before = open_descriptors();
    // Three allocations make an entry.
    const std::pair<int, std::string> steps[] = {{1, "stdout"}, {3, "stdout"}, {4, "stdin"},
                                                 {6, "stdin"},  {7, "stderr"}, {9, "stderr"}};
    for (const auto &[n, stream] : steps) {
        StderrCapture step;
        {
            FailingAlloc failing(Alloc::fresh, n);
            EXPECT_FALSE(PRGPIPE_createchild("/bin/cat", &child, TRUE, nullptr));
            EXPECT_TRUE(failing.failed());
        }
        const std::string text = step.finish();
        EXPECT_THAT(text, HasSubstr("Error associating " + stream + " (prgpipe.cpp:"));
        EXPECT_THAT(text, HasSubstr("Created child process /bin/cat: "));
        EXPECT_THAT(text, HasSubstr("Child process "));
        expect_empty_link();
    }
    EXPECT_TRUE(run("/bin/cat", {})) << "which has the remaining requests to close served";
    EXPECT_TRUE(wait_until([&] { return open_descriptors().size() <= before.size() + 2; }));
}

TEST_F(PrgpipeFaults, DescriptorsThatNoSetHoldsAreRefused) {
    std::vector<int> held;
    while (held.empty() || held.back() < FD_SETSIZE)
        held.push_back(dup(0));
    EXPECT_FALSE(start("exec cat"));
    expect_report("does not fit a descriptor set (0 to 1023)");
    expect_report("Error associating stdout (prgpipe.cpp:");
    expect_empty_link();
    for (const int fh : held)
        close(fh);
}

TEST_F(PrgpipeFaults, ArgumentsThatFindNoMemoryAreTheChildsFailure) {
    {
        FailingAlloc failing(Alloc::fresh, 1);
        char arg[] = "-u", last[] = "x";
        char *args[] = {arg, last, nullptr};
        EXPECT_TRUE(PRGPIPE_createchild("/bin/cat", &child, FALSE, args));
        EXPECT_TRUE(failing.failed());
    }
    EXPECT_EQ(exit_status(child.child_pid), 255);
    expect_report("malloc: Cannot allocate memory\n");
}

TEST_F(PrgpipeFaults, AStreamThatCannotBeMadeEndsTheChildWithAReport) {
    const std::pair<int, std::string> steps[] = {
        {0, "stdin dup2"}, {1, "stdout dup2"}, {2, "stderr dup2"}};
    for (const auto &[stream, text] : steps) {
        StderrCapture step;
        t_failing.dup2_stream = stream;
        ASSERT_TRUE(start("exec cat", true));
        t_failing = {};
        EXPECT_EQ(exit_status(child.child_pid), 255);
        EXPECT_TRUE(PRGPIPE_test_dead(&child));
        EXPECT_THAT(step.finish(), HasSubstr(text + ": Device or resource busy\n"));
    }
}

// ---- A daemon without standard streams ----

namespace {

// In a process of its own, in which some standard streams are closed: a child answers. The exit
// status is 0 when it did.
int run_without(const std::vector<int> &streams, bool grab_stderr, bool lifts = true) {
    const pid_t pid = fork();
    if (pid != 0) {
        int status = -1;
        waitpid(pid, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    for (const int fh : streams)
        close(fh);
    ZEBFILE_multi_init();
    if (!lifts)
        t_failing.fcntl_command = F_DUPFD_CLOEXEC;
    PRGPIPE_link link;
    const char *script = "cat; echo error >&2; exec sleep 1000";
    char option[] = "-c", command[64], last[] = "end";
    strcpy(command, script);
    char *args[] = {option, command, last, nullptr};
    if (!PRGPIPE_createchild("/bin/sh", &link, grab_stderr, args))
        _exit(1);
    for (const int fh : {link.write_stdin, link.read_stdout, link.read_stderr})
        if (fh != -1 && fh < 3)
            _exit(2);
    char text[16] = {};
    pollfd ready = {link.read_stdout, POLLIN, 0};
    if (write(link.write_stdin, "hello", 5) != 5 || poll(&ready, 1, 20000) != 1 ||
        read(link.read_stdout, text, 5) != 5 || strcmp(text, "hello") != 0)
        _exit(3);
    close(link.write_stdin);
    ready.fd = link.read_stderr;
    if (grab_stderr && (poll(&ready, 1, 20000) != 1 || read(link.read_stderr, text, 6) != 6 ||
                        strcmp(text, "error\n") != 0))
        _exit(4);
    kill(link.child_pid, SIGKILL);
    _exit(0);
}

} // namespace

TEST(PrgpipeStreams, PipesDoNotTakeThePlaceOfClosedStandardStreams) {
    const std::vector<int> closed[] = {{0}, {1}, {2}, {0, 1}, {0, 2}, {1, 2}, {0, 1, 2}};
    for (const std::vector<int> &streams : closed)
        for (const bool grab_stderr : {false, true})
            EXPECT_EQ(run_without(streams, grab_stderr), 0) << testing::PrintToString(streams);
}

TEST(PrgpipeStreams, APipeThatCannotLeaveThePlaceOfAStreamFails) {
    StderrCapture err;
    EXPECT_EQ(run_without({0}, false, false), 1);
    EXPECT_THAT(err.finish(), HasSubstr("Unable to create pipe: Operation not permitted (prgpipe"));
}

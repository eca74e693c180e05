// Buffered descriptors when memory or a system call fails.
#include "fail_alloc.h"
#include "zebfile_testing.h"

#include <cerrno>
#include <cstdarg>

using namespace zeb;
using namespace zeb::test;
using testing::HasSubstr;

namespace {

// What the replaced calls return instead of being made; 0: they are made.
int g_fail_cond_init;
int g_fail_cond_wait;
int g_fail_cond_destroy;
int g_fail_create;
int g_fail_fcntl_command = -1; // fcntl fails for this command

class ZebfileFaults : public ZebfileTable {
  protected:
    ~ZebfileFaults() override {
        g_fail_cond_init = g_fail_cond_wait = g_fail_cond_destroy = g_fail_create = 0;
        g_fail_fcntl_command = -1;
    }
    void expect_report(const std::string &text) { EXPECT_THAT(err.text(), HasSubstr(text)); }
};

int replaced_fcntl(int fh, int command, long argument);

} // namespace

extern "C" {
int __real_pthread_cond_init(pthread_cond_t *cond, const pthread_condattr_t *attributes);
int __real_pthread_cond_timedwait(pthread_cond_t *cond, pthread_mutex_t *mutex,
                                  const timespec *deadline);
int __real_pthread_cond_destroy(pthread_cond_t *cond);
int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                          void *(*function)(void *), void *param);
int __real_fcntl(int fh, int command, ...);
int __wrap_pthread_cond_init(pthread_cond_t *cond, const pthread_condattr_t *attributes);
int __wrap_pthread_cond_timedwait(pthread_cond_t *cond, pthread_mutex_t *mutex,
                                  const timespec *deadline);
int __wrap_pthread_cond_destroy(pthread_cond_t *cond);
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                          void *(*function)(void *), void *param);
int __wrap_fcntl(int fh, int command, ...);
int __wrap_fcntl64(int fh, int command, ...);

int __wrap_pthread_cond_init(pthread_cond_t *cond, const pthread_condattr_t *attributes) {
    return g_fail_cond_init != 0 ? g_fail_cond_init : __real_pthread_cond_init(cond, attributes);
}
int __wrap_pthread_cond_timedwait(pthread_cond_t *cond, pthread_mutex_t *mutex,
                                  const timespec *deadline) {
    return g_fail_cond_wait != 0 ? g_fail_cond_wait
                                 : __real_pthread_cond_timedwait(cond, mutex, deadline);
}
int __wrap_pthread_cond_destroy(pthread_cond_t *cond) {
    const int result = __real_pthread_cond_destroy(cond);
    return g_fail_cond_destroy != 0 ? g_fail_cond_destroy : result;
}
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                          void *(*function)(void *), void *param) {
    return g_fail_create != 0 ? g_fail_create
                              : __real_pthread_create(thread, attributes, function, param);
}
int __wrap_fcntl(int fh, int command, ...) {
    va_list args;
    va_start(args, command);
    const int result = replaced_fcntl(fh, command, va_arg(args, long));
    va_end(args);
    return result;
}
int __wrap_fcntl64(int fh, int command, ...) {
    va_list args;
    va_start(args, command);
    const int result = replaced_fcntl(fh, command, va_arg(args, long));
    va_end(args);
    return result;
}
}

namespace {

int replaced_fcntl(int fh, int command, long argument) {
    if (command == g_fail_fcntl_command) {
        errno = EPERM;
        return -1;
    }
    return __real_fcntl(fh, command, argument);
}

} // namespace

// ---- Making entries ----

TEST_F(ZebfileFaults, AFileWhoseFlagsCannotBeReadIsClosedAndReported) {
    TempDir dir;
    const std::string name = dir / "log";
    const int next = dup(0);
    close(next);
    g_fail_fcntl_command = F_GETFD;
    EXPECT_EQ(ZEBFILE_open(name.c_str(), ZEBFILE_WRITE, 0), -1);
    expect_report("Unable to get flags on file " + name + ": Operation not permitted (zebfile");
    g_fail_fcntl_command = F_SETFD;
    EXPECT_EQ(ZEBFILE_open(name.c_str(), ZEBFILE_WRITE, 0), -1);
    expect_report("Unable to set close-on-exec flag on file " + name + ": Operation not permitted");
    g_fail_fcntl_command = -1;
    EXPECT_FALSE(is_open(next));
    EXPECT_EQ(g_zebfile_open_files.count, 0);
}

TEST_F(ZebfileFaults, AnAssociationThatFailsIsReportedAndLeavesTheDescriptorOpen) {
    const std::string fh = number(p.reader());
    const std::pair<int, std::string> steps[] = {
        {F_GETFL, "Unable to get flags on file "},
        {F_SETFL, "Unable to set non-blocking flag on file "},
        {F_GETFD, "Unable to get flags on file "},
        {F_SETFD, "Unable to set close-on-exec flag on file "},
    };
    for (const auto &[command, text] : steps) {
        StderrCapture step;
        g_fail_fcntl_command = command;
        EXPECT_FALSE(ZEBFILE_associate_fh(p.reader(), ZEBFILE_READ));
        EXPECT_THAT(step.finish(), HasSubstr(text + fh + ": Operation not permitted (zebfile.cpp"));
        g_fail_fcntl_command = -1;
        EXPECT_TRUE(is_open(p.reader()));
        EXPECT_EQ(g_zebfile_open_files.count, 0);
    }
}

TEST_F(ZebfileFaults, AConditionThatCannotBeMadeIsReportedAndLeavesTheDescriptorOpen) {
    TempDir dir;
    const int next = dup(0);
    close(next);
    g_fail_cond_init = EAGAIN;
    EXPECT_EQ(ZEBFILE_open((dir / "log").c_str(), ZEBFILE_WRITE, 0), -1);
    EXPECT_FALSE(ZEBFILE_associate_fh(p.reader(), ZEBFILE_READ));
    g_fail_cond_init = 0;
    EXPECT_EQ(occurrences(err.text(), "system call failed (zebfile.cpp:"), 2U);
    expect_report("pthread_cond_init(&pf->nd_cond, nullptr): Resource temporarily unavailable");
    EXPECT_TRUE(is_open(next));
    EXPECT_EQ(g_zebfile_open_files.count, 0);
    close(next);
}

TEST_F(ZebfileFaults, AnEntryThatFindsNoMemoryClosesItsFileAndLeavesTheTableAsItWas) {
    TempDir dir;
    const std::string name = dir / "log";
    const int next = dup(0);
    close(next);
    int failures = 0;
    for (;; ++failures) {
        FailingAlloc failing(Alloc::fresh, failures + 1);
        const int fh = ZEBFILE_open(name.c_str(), ZEBFILE_WRITE, 0);
        if (!failing.failed())
            break;
        EXPECT_EQ(fh, -1);
        EXPECT_FALSE(is_open(next));
        EXPECT_EQ(g_zebfile_open_files.count, 0);
    }
    EXPECT_EQ(failures, 3) << "the entry, its node and the node's data";
    EXPECT_EQ(g_zebfile_open_files.count, 1);
    EXPECT_EQ(occurrences(err.text(), "Cannot allocate memory"), 3U);
}

TEST_F(ZebfileFaults, AConditionThatCannotBeDestroyedIsReportedAndNothingMore) {
    const int fh = reading(&p);
    cycle();
    ZEBFILE_close(fh);
    g_fail_cond_destroy = EBUSY;
    cycle();
    g_fail_cond_destroy = 0;
    expect_report("system call failed (zebfile.cpp:");
    expect_report("pthread_cond_destroy(&file->nd_cond): Device or resource busy");
    EXPECT_EQ(entry(fh), nullptr);
    EXPECT_FALSE(is_open(fh));
}

// ---- Buffers ----

TEST_F(ZebfileFaults, AWriteThatFindsNoMemoryLosesWhatWasQueuedAndIsReported) {
    const int fh = writing(&p);
    ZEBFILE_write(fh, "old", 3);
    {
        FailingAlloc failing(Alloc::fresh, 1);
        ZEBFILE_write(fh, "much more", 9);
        EXPECT_TRUE(failing.failed());
    }
    expect_report("malloc of 16 bytes for file " + number(fh) +
                  " failed: Cannot allocate memory (zebfile.cpp:");
    EXPECT_EQ(entry(fh)->buffer, nullptr);
    EXPECT_EQ(entry(fh)->buffer_off, 0U);
    EXPECT_EQ(entry(fh)->buffer_max, 0U);
    ZEBFILE_write(fh, "new", 3);
    cycle();
    EXPECT_EQ(p.take(), "new");
}

TEST_F(ZebfileFaults, APrintfThatFindsNoMemoryLosesWhatWasQueuedAndIsReported) {
    const int fh = writing(&p);
    ZEBFILE_printf(fh, "old");
    {
        FailingAlloc failing(Alloc::fresh, 1);
        ZEBFILE_printf(fh, "%600d", 1);
        EXPECT_TRUE(failing.failed());
    }
    expect_report("malloc of 1024 bytes for file " + number(fh) + " failed: Cannot allocate");
    EXPECT_EQ(entry(fh)->buffer, nullptr);
    ZEBFILE_printf(fh, "new");
    cycle();
    EXPECT_EQ(p.take(), "new");
}

TEST_F(ZebfileFaults, InputThatFindsNoMemoryIsLostWithWhatWasUnreadAndIsReported) {
    const int fh = reading(&p);
    fill(fh, "old");
    p.put("lost");
    {
        FailingAlloc failing(Alloc::fresh, 1);
        cycle();
        EXPECT_TRUE(failing.failed());
    }
    expect_report("assertion failed (zebfile_dispatch.cpp:");
    expect_report("calloc(size, 1))) != nullptr: Cannot allocate memory");
    EXPECT_EQ(entry(fh)->buffer, nullptr);
    EXPECT_EQ(entry(fh)->buffer_off, 0U);
    p.put("new");
    cycle();
    EXPECT_EQ(buffered(fh), "new");
}

// ---- Waits and threads ----

TEST_F(ZebfileFaults, AnUnknownErrorOfAWaitEndsTheProcess) {
    const int in = reading(&p);
    Pipe q;
    const int out = writing(&q);
    ZEBFILE_write(out, "x", 1);
    err.finish(); // the dying process is looked at instead
    const std::string panic =
        "Unknown error on pthread_cond_timedwait: 22:Invalid argument.  Inconsistant sycronization "
        "\\(I'm going to deadlock!\\), panic! \\(zebfile.cpp:";
    g_fail_cond_wait = EINVAL;
    EXPECT_EXIT(ZEBFILE_flush(out), testing::ExitedWithCode(1), panic);
    char line[8];
    EXPECT_EXIT(ZEBFILE_readuntil_blocking(in, line, sizeof line, "\n", 0),
                testing::ExitedWithCode(1), panic);
}

TEST_F(ZebfileFaults, AThreadThatCannotBeMadeFailsTheStart) {
    g_fail_create = EAGAIN;
    EXPECT_FALSE(ZEBFILE_init());
    expect_report("system call failed (zebfile_dispatch.cpp:");
    expect_report("pthread_create(&g_zebfile_dispatcher_thread, nullptr, serve_files, nullptr): "
                  "Resource temporarily unavailable");
    EXPECT_EQ(g_zebfile_signal_thread, nullptr);
}

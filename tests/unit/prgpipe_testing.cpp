#include "prgpipe_testing.h"

#include <cerrno>
#include <cstdarg>
#include <sys/wait.h>

using namespace zeb::test;

namespace zeb::test {

thread_local FailingCalls t_failing;
thread_local Yields t_yields;

bool has_ended(pid_t child) {
    siginfo_t info = {};
    return waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT) == -1 ||
           info.si_pid == child;
}

int exit_status(pid_t child) {
    siginfo_t info = {};
    if (waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT) == -1)
        throw std::runtime_error("no such child");
    return info.si_code == CLD_EXITED ? info.si_status : -1;
}

void PrgpipeThread::TearDown() {
    if (child.child_pid > 0) {
        kill(child.child_pid, SIGKILL);
        waitpid(child.child_pid, nullptr, 0);
    }
    ZebfileThread::TearDown();
}

BOOL PrgpipeThread::start(const std::string &script, bool grab_stderr) {
    return run("/bin/sh", {"-c", script}, grab_stderr);
}

BOOL run_program(PRGPIPE_link *child, const char *cmd, std::vector<std::string> args,
                 bool grab_stderr) {
    std::vector<char *> vector;
    for (std::string &arg : args)
        vector.push_back(arg.data());
    char placeholder[] = "end";
    vector.push_back(placeholder);
    vector.push_back(nullptr);
    return PRGPIPE_createchild(cmd, child, grab_stderr, args.empty() ? nullptr : vector.data());
}

std::string PrgpipeThread::line(int fh) const {
    char text[1024];
    const size_t size = ZEBFILE_readuntil_blocking(fh, text, sizeof text, "\n", 0);
    return size == k_none ? "(none)" : text;
}

void PrgpipeThread::kill_child(int impatient) {
    t_yields = {child.child_pid, impatient, 0};
    PRGPIPE_killchild(&child);
}

void expect_empty(const PRGPIPE_link &link) {
    EXPECT_EQ(link.write_stdin, -1);
    EXPECT_EQ(link.read_stdout, -1);
    EXPECT_EQ(link.read_stderr, -1);
    EXPECT_EQ(link.child_pid, -1);
}

} // namespace zeb::test

namespace {

int replaced_fcntl(int fh, int command, long argument);

} // namespace

extern "C" {
pid_t __real_fork();
int __real_fcntl(int fh, int command, ...);
int __real_dup2(int from, int to);
int __real_kill(pid_t pid, int signal);
void __real_UTIL_sched_yield();
pid_t __wrap_fork();
int __wrap_fcntl(int fh, int command, ...);
int __wrap_fcntl64(int fh, int command, ...);
int __wrap_dup2(int from, int to);
int __wrap_kill(pid_t pid, int signal);
void __wrap_UTIL_sched_yield();

pid_t __wrap_fork() {
    if (t_failing.fork == 0)
        return __real_fork();
    errno = t_failing.fork;
    return -1;
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
int __wrap_dup2(int from, int to) {
    if (to != t_failing.dup2_stream)
        return __real_dup2(from, to);
    errno = EBUSY;
    return -1;
}
int __wrap_kill(pid_t pid, int signal) {
    return t_failing.kill ? 0 : __real_kill(pid, signal);
}
void __wrap_UTIL_sched_yield() {
    __real_UTIL_sched_yield();
    if (t_yields.child > 0 && ++t_yields.count > t_yields.impatient)
        wait_until([] { return has_ended(t_yields.child); });
}
}

namespace {

int replaced_fcntl(int fh, int command, long argument) {
    if (command == t_failing.fcntl_command && t_failing.fcntl_after-- <= 0) {
        errno = EPERM;
        return -1;
    }
    return __real_fcntl(fh, command, argument);
}

} // namespace

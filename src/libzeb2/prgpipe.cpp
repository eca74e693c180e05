#include "prgpipe.h"

#include "diag.h"
#include "dispatch.h"
#include "util.h"
#include "zebfile.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr PRGPIPE_link k_nothing = {-1, -1, -1, -1};
constexpr size_t k_command_size = 256; // with the terminator
constexpr int k_looks = 10;            // for a child's end, after each signal
constexpr int k_above_streams = 3;     // the lowest descriptor that is no standard stream

// ---- Pipes ----

void close_end(int *fh) {
    if (*fh != -1)
        close(*fh);
    *fh = -1;
}

int take_end(int *fh) {
    const int taken = *fh;
    *fh = -1;
    return taken;
}

// One pipe; what is not taken out is closed.
struct Pipe {
    Pipe() = default;
    ~Pipe() {
        close_end(&daemon_end);
        close_end(&child_end);
    }
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;

    int daemon_end = -1;
    int child_end = -1;
};

struct ChildPipes {
    Pipe out, in, err;
};

enum class Opened { yes, no_pipe, no_flags };
enum class ChildEnd { reading = 0, writing = 1 };

// Gives the descriptor a number not below `lowest`.
bool lift(int *fh, int lowest) {
    if (*fh >= lowest)
        return true;
    const int lifted = fcntl(*fh, F_DUPFD_CLOEXEC, lowest);
    if (lifted == -1)
        return false;
    close(*fh);
    *fh = lifted;
    return true;
}

// Closed on exec from the start: children that other threads start meanwhile must not get the ends.
// A daemon may run without standard streams; were a pipe to take their place, its diagnostics would
// go to the child, and the child's own streams would overwrite each other.
bool make_pipe(Pipe *p, ChildEnd child_end) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) == -1)
        return false;
    p->child_end = ends[static_cast<int>(child_end)];
    p->daemon_end = ends[1 - static_cast<int>(child_end)];
    return lift(&p->daemon_end, k_above_streams) && lift(&p->child_end, k_above_streams);
}

Opened open_pipe(Pipe *p, ChildEnd child_end, const char *stream) {
    if (!make_pipe(p, child_end)) {
        ZEB_REPORT_ERRNO("Unable to create pipe");
        return Opened::no_pipe;
    }
    const int flags = fcntl(p->child_end, F_GETFD);
    if (flags == -1) {
        ZEB_REPORT_ERRNO("Unable to get flags on new %s", stream);
        return Opened::no_flags;
    }
    if (fcntl(p->child_end, F_SETFD, flags & ~FD_CLOEXEC) == -1) {
        ZEB_REPORT_ERRNO("Unable to set close-on-exec flag on new %s", stream);
        return Opened::no_flags;
    }
    return Opened::yes;
}

// A request to close is served only while a descriptor not below it is of interest. The input's end
// seldom is, the output's always: that one gets the higher number, when there is one.
void put_output_above_input(ChildPipes *pipes) {
    (void)lift(&pipes->out.daemon_end, pipes->in.daemon_end + 1);
}

// The settled course when the error pipe has no flags: everything stays open, for the link's owner
// to see.
void leave_open(ChildPipes *pipes, PRGPIPE_link *lnk) {
    lnk->read_stdout = take_end(&pipes->out.daemon_end);
    lnk->write_stdin = take_end(&pipes->in.daemon_end);
    lnk->read_stderr = take_end(&pipes->err.daemon_end);
    for (Pipe *p : {&pipes->out, &pipes->in, &pipes->err})
        take_end(&p->child_end);
}

bool open_pipes(ChildPipes *pipes, bool grab_stderr, PRGPIPE_link *lnk) {
    if (open_pipe(&pipes->out, ChildEnd::writing, "stdout") != Opened::yes ||
        open_pipe(&pipes->in, ChildEnd::reading, "stdin") != Opened::yes)
        return false;
    put_output_above_input(pipes);
    if (!grab_stderr)
        return true;
    const Opened err = open_pipe(&pipes->err, ChildEnd::writing, "stderr");
    if (err == Opened::no_flags)
        leave_open(pipes, lnk);
    return err == Opened::yes;
}

// ---- The program ----

struct FreeDeleter {
    void operator()(void *block) const { free(block); }
};

// What the child needs, prepared before the fork: between fork and exec another thread's lock, as
// that of malloc, might be held by nobody.
struct Program {
    char command[k_command_size];
    char path[PATH_MAX]; // empty when no such path can exist
    char *bare[2];       // the argument vector of a command without arguments
    std::unique_ptr<char *[], FreeDeleter> vector;
    char **argv; // null when no memory was found: that is the child's failure
    int error;
};

void resolve(Program *program) {
    const char *root = getenv("ZEB2");
    const size_t size = (root != nullptr ? strlen(root) : 0) + 1 + strlen(program->command) + 1;
    program->path[0] = '\0';
    if (program->command[0] == '/' || size <= sizeof program->path)
        UTIL_make_relative(program->command, program->path);
    else
        ZEB_REPORT("Path of %s below ZEB2 is longer than %zu characters, trying the search path",
                   program->command, sizeof program->path - 1);
}

size_t count_of(char *const *args) {
    size_t count = 0;
    while (args != nullptr && args[count] != nullptr)
        ++count;
    return count;
}

// The command takes the first place and the last argument loses its own, so the count stays.
void build_arguments(Program *program, char *const *args) {
    const size_t count = count_of(args);
    program->bare[0] = program->command;
    program->bare[1] = nullptr;
    program->argv = program->bare;
    if (count == 0)
        return;
    program->vector.reset(static_cast<char **>(malloc((count + 1) * sizeof(char *))));
    program->argv = program->vector.get();
    program->error = errno;
    if (program->argv == nullptr)
        return;
    program->argv[0] = program->command;
    memcpy(program->argv + 1, args, (count - 1) * sizeof(char *));
    program->argv[count] = nullptr;
}

bool prepare(Program *program, const char *cmd, char *const *args) {
    if (strlen(cmd) >= sizeof program->command) {
        ZEB_REPORT("Command of %zu characters is longer than %zu, not started: %.40s...",
                   strlen(cmd), sizeof program->command - 1, cmd);
        return false;
    }
    UTIL_strncpynt(program->command, cmd, sizeof program->command);
    resolve(program);
    build_arguments(program, args);
    return true;
}

// ---- In the child: nothing but calls that are safe after the fork of a process with threads ----

iovec piece(const char *text) {
    return {const_cast<char *>(text), strlen(text)};
}

// What perror writes, without its locks.
[[noreturn]] void give_up(const char *what) {
    const char *reason = strerrordesc_np(errno);
    const iovec line[] = {piece(what), piece(": "), piece(reason != nullptr ? reason : "?"),
                          piece("\n")};
    [[maybe_unused]] const ssize_t written = writev(STDERR_FILENO, line, 4);
    _exit(-1);
}

// The mask lasts beyond the exec. The daemon's handler for SIGINT would not, and must not meet a
// stop that comes before.
void set_child_signals() {
    struct sigaction action = {};
    if (sigaction(SIGINT, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) {
        action = {};
        action.sa_handler = SIG_DFL;
        sigaction(SIGINT, &action, nullptr);
    }
    sigset_t mask;
    sigfillset(&mask);
    sigdelset(&mask, SIGINT);
    sigprocmask(SIG_SETMASK, &mask, nullptr);
}

void become_stream(int fh, int stream, const char *what) {
    if (fh != -1 && dup2(fh, stream) == -1)
        give_up(what);
}

[[noreturn]] void run_child(const Program &program, ChildPipes *pipes) {
    set_child_signals();
    if (program.argv == nullptr) {
        errno = program.error;
        give_up("malloc");
    }
    become_stream(pipes->in.child_end, STDIN_FILENO, "stdin dup2");
    become_stream(pipes->out.child_end, STDOUT_FILENO, "stdout dup2");
    become_stream(pipes->err.child_end, STDERR_FILENO, "stderr dup2");
    for (Pipe *p : {&pipes->out, &pipes->in, &pipes->err}) {
        close_end(&p->daemon_end);
        close_end(&p->child_end);
    }
    execv(program.path, program.argv);
    execvp(program.command, program.argv);
    give_up("execvp");
}

// ---- The daemon's side ----

// Signals wait: a handler of the daemon's must not run in the child.
pid_t start_child(const Program &program, ChildPipes *pipes) {
    const zeb::SignalsBlocked blocked;
    const pid_t pid = fork();
    if (pid == 0)
        run_child(program, pipes);
    return pid;
}

bool associate(int *end, ZEBFILE_mode mode, const char *stream, int *registered) {
    if (*end == -1)
        return true;
    if (!ZEBFILE_associate_fh(*end, mode)) {
        ZEB_REPORT("Error associating %s", stream);
        return false;
    }
    *registered = take_end(end);
    return true;
}

bool associate_all(ChildPipes *pipes, PRGPIPE_link *lnk) {
    return associate(&pipes->out.daemon_end, ZEBFILE_READ, "stdout", &lnk->read_stdout) &&
           associate(&pipes->in.daemon_end, ZEBFILE_WRITE, "stdin", &lnk->write_stdin) &&
           associate(&pipes->err.daemon_end, ZEBFILE_READ, "stderr", &lnk->read_stderr);
}

void close_pipes(PRGPIPE_link *lnk) {
    for (int *fh : {&lnk->write_stdin, &lnk->read_stdout, &lnk->read_stderr}) {
        ZEBFILE_close(*fh);
        *fh = -1;
    }
}

// Whether one of the next looks finds the child ended, or no child at all.
bool ends_soon(pid_t child_pid) {
    for (int look = 0; look < k_looks; ++look) {
        UTIL_sched_yield();
        if (waitpid(child_pid, nullptr, WNOHANG) != 0)
            return true;
    }
    return false;
}

// 0 and below would reach whole groups of processes, the daemon's own among them.
bool is_child(pid_t child_pid) {
    return child_pid != -1 && ZEB_CHECK(child_pid > 0);
}

void stop_child(PRGPIPE_link *lnk) {
    PRGPIPE_kill_child_proc(lnk->child_pid);
    lnk->child_pid = -1;
}

} // namespace

BOOL PRGPIPE_createchild(const char *cmd, PRGPIPE_link *lnk, BOOL grab_stderr, char **args) {
    if (!ZEB_CHECK(lnk != nullptr))
        return FALSE;
    *lnk = k_nothing;
    Program program = {};
    ChildPipes pipes;
    if (!ZEB_CHECK(cmd != nullptr) || !prepare(&program, cmd, args) ||
        !open_pipes(&pipes, grab_stderr, lnk))
        return FALSE;
    const pid_t pid = start_child(program, &pipes);
    if (pid == -1) {
        ZEB_REPORT_ERRNO("Unable to fork");
        return FALSE;
    }
    lnk->child_pid = pid;
    ZEB_REPORT("Created child process %s: %d", cmd, static_cast<int>(pid));
    if (!associate_all(&pipes, lnk)) {
        close_pipes(lnk);
        stop_child(lnk);
        return FALSE;
    }
    ZEBFILE_setbuffer(lnk->write_stdin, 0);
    return TRUE;
}

void PRGPIPE_killchild(PRGPIPE_link *lnk) {
    if (!ZEB_CHECK(lnk != nullptr))
        return;
    stop_child(lnk);
    close_pipes(lnk);
}

BOOL PRGPIPE_test_dead(PRGPIPE_link *lnk) {
    if (!ZEB_CHECK(lnk != nullptr) || !is_child(lnk->child_pid))
        return TRUE;
    if (waitpid(lnk->child_pid, nullptr, WNOHANG) == 0)
        return FALSE;
    ZEB_REPORT("Child process %d died without intervention, closing pipes",
               static_cast<int>(lnk->child_pid));
    lnk->child_pid = -1;
    close_pipes(lnk);
    return TRUE;
}

void PRGPIPE_kill_child_proc(pid_t child_pid) {
    if (!is_child(child_pid))
        return;
    const int number = static_cast<int>(child_pid);
    kill(child_pid, SIGINT);
    if (ends_soon(child_pid)) {
        ZEB_REPORT("Child process %d terminated by SIGINT", number);
        return;
    }
    kill(child_pid, SIGKILL);
    if (ends_soon(child_pid))
        ZEB_REPORT("Child process %d terminated by SIGKILL", number);
    else
        ZEB_REPORT("Child process %d didn't respond to SIGINT or SIGKILL, assuming it's dead",
                   number);
}

void PRGPIPE_disconnectchild(PRGPIPE_link *lnk) {
    if (ZEB_CHECK(lnk != nullptr))
        close_pipes(lnk);
}

#include "util.h"

#include "diag.h"
#include "util_int.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <initializer_list>
#include <unistd.h>

sigset_t g_util_all_signals;
BOOL g_util_in_signal_exit = FALSE;

namespace {

using Handler = void (*)(int);

sigset_t every_signal() {
    sigset_t set;
    sigfillset(&set);
    return set;
}

// Blocks every signal in this thread for a scope.
class SignalBlock {
  public:
    SignalBlock() {
        const sigset_t all = every_signal();
        pthread_sigmask(SIG_SETMASK, &all, &saved_);
    }
    ~SignalBlock() { pthread_sigmask(SIG_SETMASK, &saved_, nullptr); }
    SignalBlock(const SignalBlock &) = delete;
    SignalBlock &operator=(const SignalBlock &) = delete;

  private:
    sigset_t saved_;
};

// One byte, but another thread may poll while the handler runs here.
void set_exit_flag(BOOL value) {
    __atomic_store_n(&g_util_in_signal_exit, value, __ATOMIC_SEQ_CST);
}

void exit_poll_handler(int) {
    const SignalBlock block;
    set_exit_flag(TRUE);
}

void exit_now_handler(int) {
    exit(0);
}

void install(int signal, Handler handler) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_mask = every_signal();
    ZEB_CHECK_ERRNO(sigaction(signal, &action, nullptr) == 0);
}

// Handles the exit signals and leaves them, and nothing else, deliverable.
void set_up_exit_signals(Handler handler, std::initializer_list<int> exit_signals) {
    set_exit_flag(FALSE);
    sigset_t mask = every_signal();
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    for (const int signal : exit_signals) {
        install(signal, handler);
        sigdelset(&mask, signal);
    }
    install(SIGPIPE, SIG_IGN);
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
}

bool handshake_wanted() {
    const char *value = getenv("ZEB2STARTUP");
    return value != nullptr && zeb::reads_as_true(value);
}

} // namespace

void UTIL_init(void) {
    g_util_all_signals = every_signal();
}

void UTIL_empty_sighandler(int) {}

void UTIL_atexit_set_signal_mask(void) {
    const sigset_t all = every_signal();
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
}

void UTIL_exit_signal_poll_setup(void) {
    set_up_exit_signals(exit_poll_handler, {SIGINT, SIGTERM});
}

void UTIL_exit_signal_poll_setup_hup(void) {
    set_up_exit_signals(exit_poll_handler, {SIGINT, SIGTERM, SIGHUP});
}

void UTIL_exit_signal_setup(void) {
    set_up_exit_signals(exit_now_handler, {SIGINT, SIGTERM});
}

BOOL UTIL_exit_poll(void) {
    const SignalBlock block;
    return __atomic_load_n(&g_util_in_signal_exit, __ATOMIC_SEQ_CST);
}

void UTIL_startupokay(void) {
    if (!handshake_wanted())
        return;
    ZEB_CHECK_ERRNO(setsid() != -1);
    const int null = open("/dev/null", O_RDWR);
    if (!ZEB_CHECK_ERRNO(null >= 0))
        return;
    if (dup2(null, STDIN_FILENO) < 0) {
        perror("stdin dup2");
        close(null);
        return;
    }
    if (dup2(null, STDERR_FILENO) < 0) {
        perror("stderr dup2");
        return;
    }
    fputs("STARTUP OKAY\n", stdout);
    fflush(stdout);
    if (dup2(null, STDOUT_FILENO) < 0)
        perror("stdout dup2");
}

void UTIL_make_relative(const char *in, char *out) {
    const size_t length = strlen(in);
    if (in[0] == '/') {
        memmove(out, in, length + 1);
        return;
    }
    const char *root = getenv("ZEB2");
    const size_t root_length = root != nullptr ? strlen(root) : 0;
    // The tail first: `in` may be `out`.
    memmove(out + root_length + 1, in, length + 1);
    if (root_length != 0)
        // NOLINTNEXTLINE(bugprone-not-null-terminated-result): the tail ends it
        memcpy(out, root, root_length);
    out[root_length] = '/';
}

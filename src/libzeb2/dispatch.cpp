#include "dispatch.h"

#include "diag.h"
#include "util.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

namespace zeb {
namespace {

constexpr double k_smallest_step = 1.0; // s; smaller differences of the clocks are slewing
constexpr int k_highest_port = 65535;
constexpr double k_wait_slice = 0.05;               // s
constexpr timespec k_service_cycle = {0, 50000000}; // pselect time-out of a service loop

const char *run_directory() {
    const char *directory = getenv("ZEB2RUN");
    return directory != nullptr && directory[0] != '\0' ? directory : k_run_directory;
}

bool holds(int fh) {
    return fh >= 0 && fh < FD_SETSIZE;
}

// After an interruption the attempt goes on by itself; repeating the call finds out how it went.
bool connect_stays_interrupted(int fh) {
    if (UTIL_exit_poll()) {
        errno = EINTR;
        return true;
    }
    pollfd wait = {fh, POLLOUT, 0};
    poll(&wait, 1, k_connect_limit * 1000);
    return false;
}

bool connect_socket(int fh, const sockaddr *address, socklen_t length) {
    const timeval limit = {k_connect_limit, 0};
    setsockopt(fh, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    while (connect(fh, address, length) == -1) {
        if (errno == EISCONN)
            return true;
        if (errno != EINTR && errno != EALREADY)
            return false;
        if (connect_stays_interrupted(fh))
            return false;
    }
    return true;
}

sigset_t all_signals() {
    sigset_t set;
    sigfillset(&set);
    return set;
}

void install_wakeup_handler() {
    struct sigaction action = {};
    action.sa_handler = UTIL_empty_sighandler;
    action.sa_mask = wakeup_mask();
    ZEB_CHECK_ERRNO(sigaction(SIGUSR1, &action, nullptr) == 0);
}

// A thread that has ended by itself is not running any more, which is all that is wanted.
bool cancel_thread(pthread_t thread, Caller caller) {
    const int result = pthread_cancel(thread);
    if (result == 0 || result == ESRCH)
        return true;
    diag_single_call(caller.file, caller.line, "pthread_cancel(thread)", result);
    return false;
}

timespec deadline_after(double seconds) {
    const FTIME at = UTIL_ftime() + seconds;
    const double whole = std::floor(at);
    timespec deadline;
    deadline.tv_sec = static_cast<time_t>(whole);
    deadline.tv_nsec = static_cast<long>((at - whole) * 1e9);
    return deadline;
}

} // namespace

bool local_address(const char *name, sockaddr_un *address, socklen_t *length) {
    *address = {};
    address->sun_family = AF_UNIX;
    const char *directory = run_directory();
    const size_t size_directory = strlen(directory);
    const size_t size = size_directory + 1 + strlen(name);
    if (size >= sizeof address->sun_path) {
        ZEB_REPORT("Socket path \"%s/%s\" is longer than the %zu characters of a socket address",
                   directory, name, sizeof address->sun_path - 1);
        errno = ENAMETOOLONG;
        return false;
    }
    memcpy(address->sun_path, directory, size_directory);
    address->sun_path[size_directory] = '/';
    memcpy(address->sun_path + size_directory + 1, name, strlen(name));
    *length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + size);
    return true;
}

int stream_socket(int domain) {
    return socket(domain, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

bool connect_local(int fh, const char *name) {
    sockaddr_un address;
    socklen_t length = 0;
    return local_address(name, &address, &length) &&
           connect_socket(fh, reinterpret_cast<const sockaddr *>(&address), length);
}

bool connect_host(int fh, in_addr host, int port) {
    if (port < 1 || port > k_highest_port) {
        errno = EINVAL;
        return false;
    }
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr = host;
    return connect_socket(fh, reinterpret_cast<const sockaddr *>(&address), sizeof address);
}

bool resolve_host(const char *host, in_addr *address) {
    const hostent *entry = gethostbyname(host);
    if (entry == nullptr)
        return false;
    if (entry->h_addrtype != AF_INET || entry->h_length != static_cast<int>(sizeof *address) ||
        entry->h_addr_list[0] == nullptr) {
        h_errno = NO_DATA;
        return false;
    }
    memcpy(address, entry->h_addr_list[0], sizeof *address);
    return true;
}

bool select_fits(int fh) {
    if (holds(fh))
        return true;
    ZEB_REPORT("Descriptor %d does not fit a descriptor set (0 to %d)", fh, FD_SETSIZE - 1);
    return false;
}

void select_add(int fh, fd_set *set, int *fd_max) {
    if (!holds(fh))
        return;
    FD_SET(fh, set);
    if (*fd_max < fh)
        *fd_max = fh;
}

void select_remove(int fh, fd_set *set) {
    if (holds(fh))
        FD_CLR(fh, set);
}

bool select_contains(int fh, const fd_set *set) {
    return holds(fh) && FD_ISSET(fh, set);
}

void close_socket(int *fh, int *clear_fh) {
    if (*fh == -1)
        return;
    *clear_fh = *fh;
    close(*fh);
    *fh = -1;
}

bool select_forget(int *clear_fh, fd_set *rx_fds, fd_set *tx_fds) {
    if (*clear_fh == -1)
        return false;
    select_remove(*clear_fh, rx_fds);
    select_remove(*clear_fh, tx_fds);
    *clear_fh = -1;
    return true;
}

int select_highest(const fd_set *rx_fds, const fd_set *tx_fds, int fd_max) {
    int fh = fd_max < FD_SETSIZE ? fd_max : FD_SETSIZE - 1;
    while (fh >= 0 && !FD_ISSET(fh, rx_fds) && !FD_ISSET(fh, tx_fds))
        --fh;
    return fh < 0 ? -1 : fh;
}

void prepare_thread(Wakeups wakeups) {
    // The handler first: a wake-up may be pending already, and its default ends the process.
    if (wakeups != Wakeups::never)
        install_wakeup_handler();
    const sigset_t mask = wakeups == Wakeups::always ? wakeup_mask() : all_signals();
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, nullptr);
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
}

sigset_t wakeup_mask() {
    sigset_t set = all_signals();
    sigdelset(&set, SIGUSR1);
    return set;
}

SignalsBlocked::SignalsBlocked() {
    const sigset_t all = all_signals();
    pthread_sigmask(SIG_SETMASK, &all, &before_);
}

void wake_thread(const pthread_t *thread) {
    if (thread != nullptr)
        pthread_kill(*thread, SIGUSR1);
}

bool start_thread(pthread_t **thread, void *(*run)(void *), void *param, Caller caller) {
    *thread = static_cast<pthread_t *>(malloc(sizeof **thread));
    if (*thread == nullptr) {
        diag_assertion_error(caller.file, caller.line, "*thread != nullptr", errno);
        return false;
    }
    const SignalsBlocked blocked;
    const int result = pthread_create(*thread, nullptr, run, param);
    if (result == 0)
        return true;
    diag_single_call(caller.file, caller.line, "pthread_create(*thread, nullptr, run, param)",
                     result);
    free(*thread);
    *thread = nullptr;
    return false;
}

bool stop_thread(pthread_t **thread, Caller caller) {
    if (!cancel_thread(**thread, caller))
        return false;
    const int result = pthread_join(**thread, nullptr);
    if (result != 0) {
        diag_single_call(caller.file, caller.line, "pthread_join(**thread, nullptr)", result);
        return false;
    }
    free(*thread);
    *thread = nullptr;
    return true;
}

// A cancelled thread unwinds this frame without running anything in it, and the address sanitizer
// takes the remains of a frame that it watches for a fault of the next.
[[gnu::no_sanitize_address]] void wait_slice(pthread_cond_t *cond, pthread_mutex_t *mutex,
                                             Caller caller) {
    const timespec deadline = deadline_after(k_wait_slice);
    const int result = pthread_cond_timedwait(cond, mutex, &deadline);
    if (result == 0 || result == ETIMEDOUT || result == EINTR)
        return;
    diag_message(caller.file, caller.line,
                 "Unknown error on pthread_cond_timedwait: %d:%s.  Inconsistant sycronization (I'm "
                 "going to deadlock!), panic!",
                 result, strerror(result));
    _exit(1);
}

// How long a loop did not run before the present pass, when that is out of all proportion.
class Stall {
  public:
    void look() {
        const double now = steady_time();
        seconds_ = gap(now);
        last_ = now;
    }
    double seconds() const { return seconds_; }
    bool is_overdue() const { return seconds_ == 0.0 && gap(steady_time()) != 0.0; }

  private:
    static constexpr double k_longest_pass = 15.0; // s, half of the silence that ends a link
    double gap(double now) const {
        return last_ != 0.0 && now - last_ > k_longest_pass ? now - last_ : 0.0;
    }

    double last_ = 0.0, seconds_ = 0.0;
};

thread_local Stall g_stall;

void loop_begins() {
    g_stall = {};
}

void pass_begins() {
    g_stall.look();
}

bool pass_was_stopped() {
    return g_stall.is_overdue();
}

void report_failed_select(SelectSets *sets, int error, Caller caller) {
    errno = error;
    diag_message_errno(caller.file, caller.line, "Select failed");
    if (error != EBADF)
        return;
    diag_message(caller.file, caller.line, "CRITICAL: bad file descriptor, atempting to prune");
    UTIL_trim_select_badfd(&sets->rx, &sets->tx, &sets->fd_max);
}

void ServiceLoop::run(const sigset_t *select_mask) {
    loop_begins();
    for (;;) {
        pthread_testcancel();
        if (!prepare_select())
            continue;
        const int result = pselect(sets_.fd_max + 1, &sets_.sel_rx, &sets_.sel_tx, nullptr,
                                   &k_service_cycle, select_mask);
        serve_selected(result, errno);
    }
}

// False when there is nothing to select.
bool ServiceLoop::prepare_select() {
    const CancelGuard uncancelled;
    pre_select();
    sets_.fd_max = select_highest(&sets_.rx, &sets_.tx, sets_.fd_max);
    if (sets_.fd_max == -1) {
        pass_begins();
        loop_continue();
        UTIL_sched_yield();
        return false;
    }
    sets_.sel_rx = sets_.rx;
    sets_.sel_tx = sets_.tx;
    return true;
}

void ServiceLoop::serve_selected(int result, int error) {
    const CancelGuard uncancelled;
    pass_begins();
    if (result > 0) {
        post_select();
    } else if (result == 0) {
        loop_continue();
    } else {
        select_failed(error);
        UTIL_sched_yield();
    }
}

Io receive_step(int fh, void *data, size_t size, size_t *received) {
    *received = 0;
    const ssize_t count = recv(fh, data, size, MSG_DONTWAIT);
    if (count > 0) {
        *received = static_cast<size_t>(count);
        return Io::moved;
    }
    if (count == 0)
        return Io::closed;
    return errno == EINTR || errno == EAGAIN ? Io::nothing : Io::failed;
}

Io send_step(int fh, BYTE *data, size_t *size) {
    const ssize_t count = send(fh, data, *size, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (count < 0)
        return errno == EINTR || errno == EAGAIN ? Io::nothing : Io::failed;
    if (count == 0)
        return Io::nothing;
    UTIL_shift_array(data, *size, -static_cast<long>(count));
    *size -= static_cast<size_t>(count);
    return Io::moved;
}

double steady_time() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

double clock_step(FTIME now, double *offset) {
    const double present = now - steady_time();
    const double step = *offset == 0.0 ? 0.0 : present - *offset;
    if (*offset != 0.0 && std::fabs(step) < k_smallest_step)
        return g_stall.seconds();
    *offset = present;
    return step + g_stall.seconds();
}

} // namespace zeb

#include "loop.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <ctime>
#include <sys/signalfd.h>
#include <unistd.h>

namespace serverkit {
namespace {

constexpr double k_longest_wait_ms = 60000;

epoll_event event_for(int fd, uint32_t kind, uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.u64 = static_cast<uint64_t>(kind) << 32 | static_cast<uint32_t>(fd);
    return event;
}

} // namespace

double monotonic() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

bool Watch::open() {
    epoll_.reset(epoll_create1(EPOLL_CLOEXEC));
    if (!epoll_)
        report_errno("cannot create the event loop");
    return static_cast<bool>(epoll_);
}

bool Watch::add(int fd, uint32_t kind, uint32_t events) {
    epoll_event event = event_for(fd, kind, events);
    if (epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &event) == 0) {
        fault_.over();
        return true;
    }
    if (fault_.occurred())
        report_errno("cannot watch a descriptor");
    return false;
}

bool Watch::change(int fd, uint32_t kind, uint32_t events) {
    epoll_event event = event_for(fd, kind, events);
    return epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, fd, &event) == 0;
}

void Watch::remove(int fd) {
    epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, fd, nullptr);
}

int Watch::wait(epoll_event *events, int most, double seconds) {
    const double ms = std::clamp(std::ceil(seconds * 1000), 0.0, k_longest_wait_ms);
    const int count = epoll_wait(epoll_.get(), events, most, static_cast<int>(ms));
    if (count >= 0 || errno == EINTR)
        return std::max(count, 0);
    report_errno("the event loop failed");
    return -1;
}

UniqueFd catch_stop_signals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    signal(SIGPIPE, SIG_IGN);
    UniqueFd signals(signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC));
    if (!signals)
        report_errno("cannot wait for signals");
    return signals;
}

bool take_signal(const UniqueFd &signals) {
    signalfd_siginfo info{};
    return read(signals.get(), &info, sizeof info) == sizeof info;
}

void raise_descriptor_limit(rlim_t wanted) {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= wanted)
        return;
    limit.rlim_cur = std::min(wanted, limit.rlim_max);
    setrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur < wanted)
        report("only %lu descriptors are allowed; the configured limits need %lu",
               static_cast<unsigned long>(limit.rlim_cur), static_cast<unsigned long>(wanted));
}

Acceptor::Result Acceptor::accept(int listener, UniqueFd &connection, sockaddr_storage &address) {
    socklen_t size = sizeof address;
    connection.reset(accept4(listener, reinterpret_cast<sockaddr *>(&address), &size,
                             SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (connection)
        return Result::accepted;
    if (errno == EINTR || errno == ECONNABORTED)
        return Result::again;
    if (errno == EAGAIN) { // nobody waits: only now a fault is over
        if (const size_t failures = fault_.over())
            report("connections are accepted again, after %zu failures", failures);
        return Result::none;
    }
    ++failures_;
    if (fault_.occurred())
        report_errno("cannot accept connections for now");
    return Result::pause;
}

} // namespace serverkit

// dispatch.h - what the modules that live in a select loop share. Internal, ground floor.
//
// Sockets to the station's servers, descriptor sets that never overrun, the set-up, the waking and
// the loop of servicing threads, one bounded step of input or output, and the clock behind the
// silence rule.
//
//   int fh = zeb::stream_socket(AF_UNIX);
//   if (fh == -1 || !zeb::select_fits(fh) || !zeb::connect_local(fh, ".mainsocket")) ...
//   zeb::select_add(fh, rx_fds, fd_max);
#ifndef ZEB2_DISPATCH_H
#define ZEB2_DISPATCH_H

#include "diag.h"
#include "port.h"

#include <cerrno>
#include <netinet/in.h>
#include <pthread.h>
#include <signal.h>
#include <sys/select.h>
#include <sys/un.h>

namespace zeb {

// ---- Sockets ----

// Where the servers' sockets live, unless the environment variable ZEB2RUN names another directory.
constexpr char k_run_directory[] = "/var/run/zeb";
// A connection attempt to a server that accepts nobody ends after this time (s).
constexpr int k_connect_limit = 30;

// The address of the socket `name` in the run directory; its length counts the path without its
// terminator. Too long a path is reported, errno becomes ENAMETOOLONG and the result is false.
bool local_address(const char *name, sockaddr_un *address, socklen_t *length);
// A blocking stream socket, closed on exec; -1 with errno on failure.
int stream_socket(int domain);
// Connect and, when a signal interrupts the attempt, go on unless the process was told to exit.
// False with errno on failure; the socket stays open.
bool connect_local(int fh, const char *name);
bool connect_host(int fh, in_addr host, int port);
// The first IPv4 address of a host; on failure h_errno says why.
bool resolve_host(const char *host, in_addr *address);

// ---- Descriptor sets ----

// True when a set can hold the descriptor; reports when it cannot.
bool select_fits(int fh);
// Adds and raises *fd_max; removes; looks. A descriptor that no set can hold is left out.
void select_add(int fh, fd_set *set, int *fd_max);
void select_remove(int fh, fd_set *set);
bool select_contains(int fh, const fd_set *set);
// Closes the socket *fh, if there is one, and leaves its number in *clear_fh for the loop.
void close_socket(int *fh, int *clear_fh);
// Takes a socket that was closed out of both sets; false when there is none.
bool select_forget(int *clear_fh, fd_set *rx_fds, fd_set *tx_fds);
// The highest descriptor up to fd_max that either set holds, or -1.
int select_highest(const fd_set *rx_fds, const fd_set *tx_fds, int fd_max);

// ---- Servicing threads ----

// When SIGUSR1 may interrupt a servicing thread.
enum class Wakeups {
    never,     // all signals blocked
    always,    // only SIGUSR1 unblocked, its empty handler installed
    in_select, // all signals blocked, the handler installed: pselect gets wakeup_mask()
};

// To be called first in a servicing thread: its signal mask, the handler, deferred cancellation.
void prepare_thread(Wakeups wakeups);
// Every signal but SIGUSR1.
sigset_t wakeup_mask();
// Interrupts the thread's pselect; null wakes nobody. Not to be called with a module's mutex held.
void wake_thread(const pthread_t *thread);

// Blocks every signal for a scope. A thread created meanwhile is not reached by any before it has
// set its own mask.
class SignalsBlocked {
  public:
    SignalsBlocked();
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked &) = delete;
    SignalsBlocked &operator=(const SignalsBlocked &) = delete;

  private:
    sigset_t before_;
};

// Keeps the thread from being cancelled for a scope, so that it never leaves a mutex locked.
class CancelGuard {
  public:
    CancelGuard() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    ~CancelGuard() { pthread_setcancelstate(before_, nullptr); }
    CancelGuard(const CancelGuard &) = delete;
    CancelGuard &operator=(const CancelGuard &) = delete;

  private:
    int before_ = PTHREAD_CANCEL_ENABLE;
};

// Where a report is to say that it comes from: the module, not this one.
struct Caller {
    const char *file;
    int line;
};
#define ZEB_HERE (zeb::Caller{__FILE_NAME__, __LINE__})

// Starts a thread whose handle *thread, allocated here, then owns; it is not reached by any signal
// before it has set its own mask. False, reported and with *thread null, on failure.
bool start_thread(pthread_t **thread, void *(*run)(void *), void *param, Caller caller);
// Cancels a thread of start_thread, or finds it ended, joins it, frees the handle and makes it
// null. False, reported and with everything left, on failure.
bool stop_thread(pthread_t **thread, Caller caller);

// Waits with the mutex held for news, 0.05 s at most: callers look at the exit poll that often. An
// unknown error would leave them waiting for ever and ends the process.
void wait_slice(pthread_cond_t *cond, pthread_mutex_t *mutex, Caller caller);

// The four hooks of a link, and what its own thread does when the select has failed.
template <class Link> struct LinkHooks {
    BOOL (*init)(Link *, fd_set *, fd_set *, int *, pthread_t *);
    BOOL (*pre_select)(Link *, fd_set *, fd_set *, int *);
    BOOL (*post_select)(Link *, fd_set *, fd_set *, fd_set *, fd_set *, int *);
    BOOL (*loop_continue)(Link *, fd_set *, fd_set *, int *);
    void (*select_failed)(Link *, int error);
};

// A process, or the whole machine, may stand still for longer than a peer may be silent. What came
// in meanwhile is still to be read, and the peer may have stood still, too: that is no silence. A
// loop says on its thread when it begins, and when the hooks of a pass do.
void loop_begins();
void pass_begins();
// Whether this thread stood still since its pass began: times taken in the pass may be of before or
// of after that. A hook then leaves everything to the next pass, which gives the time of the
// standstill to all links alike (clock_step). False again in a pass that follows such a one: where
// all passes are as long, every link is served.
bool pass_was_stopped();

// One link in the select loop of its own thread, which prepare_thread has set up.
template <class Link> class LinkLoop {
  public:
    LinkLoop(Link *lnk, const LinkHooks<Link> &hooks, const timespec &cycle)
        : lnk_(lnk), hooks_(hooks), cycle_(cycle) {}
    // Returns when the link is lost. Cancellation can happen between the hooks only.
    void run() {
        loop_begins();
        bool served = start();
        while (served) {
            pthread_testcancel();
            served = serve_cycle();
        }
    }

  private:
    bool start() {
        const CancelGuard uncancelled;
        {
            ZEB_LOCK(guard, &lnk_->mtx);
            if (!ZEB_CHECK(lnk_->fh != -1))
                return false;
        }
        FD_ZERO(&rx_);
        FD_ZERO(&tx_);
        return hooks_.init(lnk_, &rx_, &tx_, &fd_max_, nullptr);
    }
    bool serve_cycle() {
        if (!pre_select())
            return false;
        fd_set sel_rx = rx_;
        fd_set sel_tx = tx_;
        const int result = pselect(fd_max_ + 1, &sel_rx, &sel_tx, nullptr, &cycle_, nullptr);
        return serve_selected(result, errno, &sel_rx, &sel_tx);
    }
    bool pre_select() {
        const CancelGuard uncancelled;
        return hooks_.pre_select(lnk_, &rx_, &tx_, &fd_max_);
    }
    bool serve_selected(int result, int error, fd_set *sel_rx, fd_set *sel_tx) {
        const CancelGuard uncancelled;
        pass_begins();
        if (result > 0)
            return hooks_.post_select(lnk_, &rx_, &tx_, sel_rx, sel_tx, &fd_max_);
        if (result == 0 || error == EINTR)
            return hooks_.loop_continue(lnk_, &rx_, &tx_, &fd_max_);
        hooks_.select_failed(lnk_, error);
        return false;
    }

    Link *lnk_;
    const LinkHooks<Link> &hooks_;
    const timespec &cycle_;
    fd_set rx_, tx_;
    int fd_max_ = 0;
};

// A servicing loop's descriptors.
struct SelectSets {
    fd_set rx, tx;         // of interest
    fd_set sel_rx, sel_tx; // copies for the select, which leaves what is ready
    int fd_max;            // the highest of interest, or -1
};

// What follows a failed select: the report and, when a descriptor was bad, its removal.
void report_failed_select(SelectSets *sets, int error, Caller caller);

// The loop of a thread that services as long as it is not cancelled, whatever links it loses. Each
// function is called with cancellation disabled.
class ServiceLoop {
  public:
    // With the mask inside the select, or with the thread's own when it is null.
    [[noreturn]] void run(const sigset_t *select_mask);

  protected:
    ~ServiceLoop() = default;
    virtual void pre_select() = 0;
    virtual void post_select() = 0;
    virtual void loop_continue() = 0;
    // The select ended with an error, EINTR among them: reports, then does as loop_continue.
    virtual void select_failed(int error) = 0;

    SelectSets sets_ = {};

  private:
    bool prepare_select();
    void serve_selected(int result, int error);
};

// ---- One step of input or output on a socket ----

constexpr size_t k_io_step = 256; // bytes received per readable descriptor and cycle

enum class Io {
    moved,   // at least one byte
    nothing, // interrupted, or not ready after all
    closed,  // the peer is gone (receiving only)
    failed,  // see errno
};

// One receive of at most `size` bytes; *received is their number. Never waits.
Io receive_step(int fh, void *data, size_t size, size_t *received);
// One send of the *size bytes at `data`; what was sent is removed from the front and from *size.
// Never waits and raises no SIGPIPE.
Io send_step(int fh, BYTE *data, size_t *size);

// ---- Clock ----

// Seconds of a clock that nobody sets.
double steady_time();
// How far the wall clock was set since the last call, for carrying along what was stamped by it:
//   lnk->last_rx_time += clock_step(now, &lnk->clock_offset);
// `now` is the wall clock's present time; *offset belongs to the caller and starts at 0. Below a
// second the result is 0: slewing is not a step, and what builds up is given out later. On the
// thread of a loop that stood still before its present pass, that time is part of the step.
double clock_step(FTIME now, double *offset);

} // namespace zeb

#endif

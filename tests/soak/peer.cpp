// soak_peer - sends numbered messages to everyone at the station and checks the numbers of the
// others' that arrive.
//
//   soak_peer NAME RATE
//
// Each second it prints one line: messages sent, received, lost and doubled so far, and the longest
// time in milliseconds between two cycles of its dispatch thread since the line before. When the
// message server goes it connects again.
//
// Numbers count from 1 within a run, which is one connection of a sender. Between the first and the
// last number that one connection of a receiver sees of a run, none may be missing or come twice,
// whatever happens to the station meanwhile.

#include <zeb2/libzeb2.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <map>
#include <string>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

constexpr double k_cycle = 0.05;
constexpr double k_most_behind = 1;          // seconds of messages made up for after a pause
constexpr size_t k_most_unsent = 256 * 1024; // bytes; no more are queued meanwhile

double now() {
    return std::chrono::duration<double>(Clock::now().time_since_epoch()).count();
}

// ---- The dispatch thread's cycles

std::atomic<double> g_last_cycle = 0;
std::atomic<double> g_worst_gap = 0;

void note_cycle() {
    const double time = now();
    const double before = g_last_cycle.exchange(time);
    if (before > 0 && time - before > g_worst_gap)
        g_worst_gap = time - before;
}

} // namespace

// In place of the shared library's own: every cycle of its dispatch thread comes by here.
BOOL ZEBMSG_dispatch_pre_select(ZEBMSG_link *lnk, fd_set *rx_fds, fd_set *tx_fds, int *fd_max) {
    using Hook = BOOL (*)(ZEBMSG_link *, fd_set *, fd_set *, int *);
    static const auto original =
        reinterpret_cast<Hook>(dlsym(RTLD_NEXT, "ZEBMSG_dispatch_pre_select"));
    note_cycle();
    return original(lnk, rx_fds, tx_fds, fd_max);
}

namespace {

struct Totals {
    unsigned long sent = 0, received = 0, lost = 0, doubled = 0;
};

// The numbers of every run that one connection has seen.
class Numbers {
  public:
    void arrived(const std::string &sender, DWORD run, DWORD number, Totals &totals) {
        ++totals.received;
        const auto [at, is_new] = last_.try_emplace({sender, run}, number);
        if (is_new)
            return;
        DWORD &last = at->second;
        if (number != last + 1)
            fprintf(stderr, "run %u of %s: %u came after %u\n", run, sender.c_str(), number, last);
        if (number <= last)
            ++totals.doubled;
        else
            totals.lost += number - last - 1;
        last = number > last ? number : last;
    }
    void forget() { last_.clear(); }

  private:
    std::map<std::pair<std::string, DWORD>, DWORD> last_;
};

class Peer {
  public:
    Peer(const char *name, double rate) : name_(name), rate_(rate) {}

    // One connection, to its end.
    void serve() {
        ZEBMSG_connect_params params;
        ZEBMSG_init_params(&params);
        params.id_str = name_;
        INST_link inst = {};
        SERIALCOM_link *const no_more = nullptr;
        if (INST_connect(&inst, &params, nullptr, nullptr, no_more, no_more) &&
            INST_wait_connected(&inst)) {
            begin();
            while (INST_sleep(&inst, k_cycle)) {
                send_due(&inst.msg_lnk);
                ZEBMSG_process_messages(&inst.msg_lnk, received, this);
                report_when_due();
            }
        }
        INST_disconnect(&inst);
        g_last_cycle = 0;
    }

    void report_when_due() {
        if (now() < next_report_)
            return;
        next_report_ = now() + 1;
        printf("%lu %lu %lu %lu %.1f\n", totals_.sent, totals_.received, totals_.lost,
               totals_.doubled, 1000 * g_worst_gap.exchange(0));
        fflush(stdout);
    }

  private:
    void begin() {
        run_ = static_cast<DWORD>(getpid()) << 8 | (++connections_ & 0xFF);
        number_ = 0;
        sent_until_ = now();
        numbers_.forget();
    }

    // A machine that is too busy to send so many messages must not look like a leak.
    static bool is_backed_up(ZEBMSG_link *link) {
        pthread_mutex_lock(&link->mtx);
        const size_t unsent = link->tx_load.bytes;
        pthread_mutex_unlock(&link->mtx);
        return unsent > k_most_unsent;
    }

    void send_due(ZEBMSG_link *link) {
        const double time = now();
        if (is_backed_up(link))
            sent_until_ = time;
        if (time - sent_until_ > k_most_behind)
            sent_until_ = time - k_most_behind;
        for (; rate_ > 0 && sent_until_ + 1 / rate_ <= time; sent_until_ += 1 / rate_)
            send(link);
    }

    // The record has two running numbers; what they mean to others is of no account here.
    void send(ZEBMSG_link *link) {
        NET_RAWDATAREC_Info record = {};
        record.lines = ++number_;
        record.bytes = run_;
        record.last_line = UTIL_ftime();
        ZEBMSG_queue_message(link, MSG_RAWDATAREC_INFO, 1, nullptr, &record, sizeof record,
                             "NET_RAWDATAREC_Info");
        ++totals_.sent;
    }

    static void received(ZEBMSG_proc_msg *message, void *param) {
        if (message->msg == nullptr || message->msg->msg != MSG_RAWDATAREC_INFO ||
            message->pds == nullptr || message->src_name == nullptr)
            return;
        Peer &self = *static_cast<Peer *>(param);
        const auto &record = *static_cast<NET_RAWDATAREC_Info *>(message->pds);
        self.numbers_.arrived(message->src_name, record.bytes, record.lines, self.totals_);
    }

    const char *name_;
    double rate_;
    DWORD run_ = 0, number_ = 0, connections_ = 0;
    double sent_until_ = 0, next_report_ = 0;
    Totals totals_;
    Numbers numbers_;
};

} // namespace

int main(int argc, char **argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: soak_peer NAME RATE\n");
        return 2;
    }
    if (!LIBZEB_init(argv[1]))
        return 1;
    UTIL_exit_signal_poll_setup();
    Peer peer(argv[1], strtod(argv[2], nullptr));
    while (!UTIL_exit_poll()) {
        peer.serve();
        peer.report_when_due();
        if (!UTIL_exit_poll())
            UTIL_fsleep(0.25);
    }
    LIBZEB_cleanup();
    return 0;
}

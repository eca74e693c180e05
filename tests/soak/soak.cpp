// soak - a whole station under load while everything that can befall it does; fails when it loses
// or doubles a message, takes ever more of anything, or does not recover.
//
//   soak --minutes 60 --log FILE
//
// Programs are killed and servers restarted in the first third of the time. After that only one
// daemon still is, so that the others live long enough to show a leak; everything else goes on to
// the end. The log is a log file like those of the station's daemons: zebctl logfile plots it.

#include "crew.h"
#include "faults.h"
#include "judge.h"

#include "command_line/command_line.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <thread>

namespace soak {
namespace {

using Clock = std::chrono::steady_clock;
using zeb::test::Process;
using zeb::test::TempDir;
using zeb::test::wait_until;

constexpr double k_calm = 15;     // seconds without new faults at the end
constexpr double k_carried = 0.8; // of the rate; the rest goes with what stands still
constexpr double k_warm_up = 5;   // seconds after a program's start that are not judged
constexpr auto k_tick = std::chrono::milliseconds(100);

struct Options {
    double minutes = 2;
    double rate = 1000;
    unsigned seed = static_cast<unsigned>(time(nullptr));
    std::string log = "soak.log";
    std::string bin = zeb::test::built_path("bin");
    std::string peer = SOAK_PEER;
};

volatile std::sig_atomic_t g_interrupted = 0;

class Soak {
  public:
    Soak(const Options &options, const std::string &home)
        : options_(options), crew_(home, options.bin, options.peer, options.rate / 2),
          faults_(crew_, options.peer, options.seed), peers_{{crew_, "peer1"}, {crew_, "peer2"}},
          length_(60 * options.minutes), log_(options.log, crew_) {}

    // What is wrong, nothing when all is well.
    std::vector<std::string> run() {
        if (!crew_.start())
            return {"the servers do not listen"};
        while (now() < length_ && g_interrupted == 0)
            tick();
        length_ = std::min(length_, now());
        faults_.end_all();
        complain_unless(recovers(), "the station did not recover from the last faults");
        judge();
        add(crew_.end());
        add(damaged_logs(crew_, options_.bin));
        return complaints_;
    }

  private:
    double now() const { return std::chrono::duration<double>(Clock::now() - start_).count(); }

    void tick() {
        if (now() > length_ / 3)
            faults_.spare_programs();
        faults_.tick(now(), now() > length_ - k_calm);
        crew_.look_after(now());
        if (now() >= next_sample_) {
            next_sample_ += 1;
            sample();
        }
        std::this_thread::sleep_for(k_tick);
    }

    void sample() {
        for (PeerReports &peer : peers_)
            peer.read(now());
        log_.write(now(), peers_, faults_.active());
    }

    bool recovers() {
        const unsigned long before[] = {peers_[0].totals().received, peers_[1].totals().received};
        return wait_until(
                   [&] {
                       crew_.look_after(now());
                       for (PeerReports &peer : peers_)
                           peer.read(now());
                       return peers_[0].totals().received > before[0] &&
                              peers_[1].totals().received > before[1];
                   },
                   60) &&
               hears("MSG_GPS_INSTANT") && hears("MSG_TSITMF_INSTANT");
    }

    bool hears(const std::string &type) {
        Process::Options options;
        options.environment = {{"ZEB2RUN", crew_.run()}};
        Process watch(
            crew_.home(),
            {options_.bin + "/zebctl", "watch", "--type", type, "--count", "1", "--timeout", "60"},
            options);
        return wait_until(
                   [&] {
                       crew_.look_after(now());
                       return !watch.running();
                   },
                   70) &&
               watch.wait() == 0;
    }

    void judge() {
        const double begin = length_ / 3;
        const bool carried =
            std::all_of(peers_.begin(), peers_.end(), [&](const PeerReports &peer) {
                return peer.rate_between(begin, length_) > k_carried * options_.rate / 2;
            });
        print_heading();
        if (!carried)
            printf("The machine was too busy for %.0f messages a second: memory and gaps are not "
                   "judged.\n",
                   options_.rate);
        for (const auto &each : crew_.members()) {
            add(each->crashes());
            const auto life = each->samples_since(0);
            const double born = life.empty() ? length_ : life.front().time + k_warm_up;
            add(judge_usage(*each, std::max(begin, born), length_, carried));
        }
        for (const PeerReports &peer : peers_)
            add(peer.judge(begin, now(), carried));
        printf("%d faults, seed %u\n", faults_.begun(), options_.seed);
    }

    void complain_unless(bool is_well, const std::string &complaint) {
        if (!is_well)
            complaints_.push_back(complaint);
    }
    void add(const std::vector<std::string> &more) {
        complaints_.insert(complaints_.end(), more.begin(), more.end());
    }

    const Options &options_;
    Crew crew_;
    Faults faults_;
    std::vector<PeerReports> peers_;
    double length_;
    UsageLog log_;
    std::vector<std::string> complaints_;
    Clock::time_point start_ = Clock::now();
    double next_sample_ = 0;
};

int run(const Options &options) {
    const TempDir home;
    const auto complaints = Soak(options, home.path()).run();
    for (const std::string &complaint : complaints)
        printf("FAILED: %s\n", complaint.c_str());
    if (complaints.empty())
        printf("All is well.\n");
    return complaints.empty() ? 0 : 1;
}

} // namespace
} // namespace soak

int main(int argc, char **argv) {
    soak::Options options;
    command_line::Parser app(
        "A whole station under load and faults; fails when it loses messages or grows.");
    app.add_option("--minutes", options.minutes, "how long")
        .check(command_line::in_range(1.0, 100000.0))
        .capture_default_str();
    app.add_option("--rate", options.rate, "messages a second").capture_default_str();
    app.add_option("--seed", options.seed,
                   "of the order of the faults (default: another each time)");
    app.add_option("--log", options.log, "log file of what every program takes")
        .capture_default_str();
    if (const auto status = app.parse(argc, argv))
        return *status;
    // An interrupted soak is judged as far as it came, and takes its programs along.
    for (const int signal : {SIGINT, SIGTERM})
        std::signal(signal, [](int) { soak::g_interrupted = 1; });
    std::signal(SIGPIPE, SIG_IGN);
    return soak::run(options);
}

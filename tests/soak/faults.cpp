#include "faults.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <numeric>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace soak {

using zeb::test::Process;

namespace {

// Seconds from the beginning of one fault to that of the next, at least and at most.
constexpr double k_least_pause = 4, k_most_pause = 12;

enum Kind {
    k_message_server,
    k_serial_server,
    k_kill,
    k_receiver,
    k_pump,
    k_log_directory,
    k_stop,
    k_never_reads,
    k_garbage,
    k_kinds
};

// A connection over which random bytes go until the server has had enough, and then another.
class Vandal {
  public:
    Vandal(std::string path, unsigned seed) : path_(std::move(path)), random_(seed) {}
    ~Vandal() { drop(); }
    Vandal(const Vandal &) = delete;
    Vandal &operator=(const Vandal &) = delete;

    void tick() {
        if (fd_ == -1)
            connect();
        if (fd_ == -1)
            return;
        std::string bytes(4096, '\0');
        for (char &byte : bytes)
            byte = static_cast<char>(random_());
        // Now and then the beginning of a frame, so that more than its first four bytes is wrong.
        if (random_() % 2 == 0)
            bytes.replace(0, 4, "2BEZ");
        if (send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT) < 0 &&
            errno != EAGAIN)
            drop();
    }

  private:
    void connect() {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path_.copy(address.sun_path, sizeof address.sun_path - 1);
        fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        if (::connect(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
            drop();
    }
    void drop() {
        if (fd_ != -1)
            close(fd_);
        fd_ = -1;
    }

    std::string path_;
    std::mt19937 random_;
    int fd_ = -1;
};

} // namespace

Faults::Faults(Crew &crew, std::string peer, unsigned seed)
    : crew_(crew), peer_(std::move(peer)), random_(seed), next_(k_least_pause) {}

Faults::~Faults() {
    end_all();
}

double Faults::between(double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random_);
}

std::string Faults::any_of(std::vector<std::string> names) {
    return names[random_() % names.size()];
}

Fault Faults::restarted(const std::string &server) {
    const int signal = random_() % 2 == 0 ? SIGTERM : SIGKILL;
    return {server + (signal == SIGTERM ? " is restarted" : " is killed and restarted"), 3,
            [this, server, signal] { crew_.member(server).end(signal, false); }};
}

Fault Faults::killed() {
    const std::string name =
        spares_ ? "waypoint" : any_of({"zeblogd", "gps", "flow", "waypoint", "peer1", "peer2"});
    return {name + " is killed and restarted", 2,
            [this, name] { crew_.member(name).end(SIGKILL, false); }};
}

Fault Faults::unplugged(const std::string &simulator) {
    return {"the line of the " + simulator + " is unplugged", between(2, 6),
            [this, simulator] { crew_.member(simulator).end(SIGTERM, true); }, [] {},
            [this, simulator] { crew_.member(simulator).release(); }};
}

// Moved, since root may write into any directory whatever its mode.
Fault Faults::log_directory_gone() {
    const std::string log = crew_.log();
    return {"the log directory is gone", between(3, 8),
            [log] { std::filesystem::rename(log, log + ".away"); }, [] {},
            [log] { std::filesystem::rename(log + ".away", log); }};
}

Fault Faults::stopped() {
    const std::string name = any_of({"zebmsgd", "zebseriald", "receiver", "pump", "zeblogd", "gps",
                                     "flow", "waypoint", "peer1", "peer2"});
    return {name + " stands still", between(2, 6), [this, name] { crew_.member(name).stop(true); },
            [] {}, [this, name] { crew_.member(name).stop(false); }};
}

// A peer that says its name and is stopped as soon as it has heard something.
Fault Faults::never_reads() {
    struct Mute {
        std::unique_ptr<Process> process;
        bool stopped = false;
    };
    const auto mute = std::make_shared<Mute>();
    return {"a client never reads", 20,
            [this, mute] {
                const std::string own = crew_.home() + "/mute" + std::to_string(begun_);
                std::filesystem::create_directory(own);
                Process::Options options;
                options.environment = {{"ZEB2RUN", crew_.run()}};
                mute->process = std::make_unique<Process>(
                    own, std::vector<std::string>{peer_, "mute", "0"}, options);
            },
            [mute] {
                if (!mute->stopped && !mute->process->output().empty()) {
                    mute->process->signal(SIGSTOP);
                    mute->stopped = true;
                }
            },
            [mute] { mute->process.reset(); }};
}

Fault Faults::sends_garbage() {
    const auto main = std::make_shared<Vandal>(crew_.run() + "/.mainsocket", random_());
    const auto serial = std::make_shared<Vandal>(crew_.run() + "/.serialdsocket", random_());
    return {"clients send garbage", between(2, 6), [] {},
            [main, serial] {
                main->tick();
                serial->tick();
            }};
}

// Each kind once before any comes again.
Fault Faults::next() {
    if (bag_.empty()) {
        bag_.resize(k_kinds);
        std::iota(bag_.begin(), bag_.end(), 0);
        std::shuffle(bag_.begin(), bag_.end(), random_);
        // The server has had its longest queue before its memory is judged.
        if (begun_ == 0)
            std::swap(*std::find(bag_.begin(), bag_.end(), k_never_reads), bag_.back());
    }
    const int kind = bag_.back();
    bag_.pop_back();
    switch (kind) {
    case k_message_server:
        return spares_ ? stopped() : restarted("zebmsgd");
    case k_serial_server:
        return spares_ ? sends_garbage() : restarted("zebseriald");
    case k_kill:
        return killed();
    case k_receiver:
        return unplugged("receiver");
    case k_pump:
        return unplugged("pump");
    case k_log_directory:
        return log_directory_gone();
    case k_stop:
        return stopped();
    case k_never_reads:
        return never_reads();
    default:
        return sends_garbage();
    }
}

void Faults::tick(double time, bool calm) {
    for (auto each = active_.begin(); each != active_.end();) {
        if (time < each->until) {
            each++->fault.tick();
            continue;
        }
        each->fault.end();
        each = active_.erase(each);
    }
    if (calm || time < next_)
        return;
    next_ = time + between(k_least_pause, k_most_pause);
    Fault fault = next();
    const bool is_on = std::any_of(active_.begin(), active_.end(), [&](const Active &each) {
        return each.fault.what == fault.what;
    });
    if (is_on)
        return;
    ++begun_;
    printf("%7.1f s  %s\n", time, fault.what.c_str());
    fflush(stdout);
    fault.begin();
    active_.push_back({std::move(fault), time});
    active_.back().until += active_.back().fault.lasts;
}

void Faults::end_all() {
    for (Active &each : active_)
        each.fault.end();
    active_.clear();
}

} // namespace soak

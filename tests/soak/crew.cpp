#include "crew.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <stdexcept>

namespace soak {

using zeb::test::is_listening;
using zeb::test::Process;
using zeb::test::read_file;
using zeb::test::wait_until;
using zeb::test::write_file;

namespace {

constexpr double k_restart_delay = 1; // s

} // namespace

Member::Member(std::string name, std::vector<std::string> command, const std::string &home)
    : name_(std::move(name)), command_(std::move(command)), home_(home) {}

void Member::start(double time) {
    Process::Options options;
    options.environment = {{"ZEB2", home_}, {"ZEB2RUN", home_ + "/run"}};
    const std::string own = home_ + "/" + name_ + std::to_string(++starts_);
    std::filesystem::create_directory(own);
    process_ = std::make_unique<Process>(own, command_, options);
    ended_ = asked_ = stopped_ = false;
    started_ = time;
    samples_.clear();
}

void Member::end(int signal, bool held) {
    asked_ = true;
    held_ = held;
    kills_ += signal == SIGKILL ? 1 : 0;
    stop(false);
    process_->signal(signal);
}

void Member::stop(bool stopped) {
    if (stopped != stopped_)
        process_->signal(stopped ? SIGSTOP : SIGCONT);
    stopped_ = stopped;
}

void Member::note_end() {
    const int status = process_->wait();
    if (!asked_ && status > 1)
        crashes_.push_back(name_ + " ended with status " + std::to_string(status) + ":\n" +
                           process_->errors());
}

void Member::look_after(double time) {
    if (process_->running())
        return;
    if (!ended_) {
        ended_ = true;
        note_end();
        next_start_ = time + k_restart_delay;
    }
    if (!held_ && time >= next_start_)
        start(time);
}

const Sample *Member::sample(double time) {
    const auto usage = process_->running() ? usage_of(process_->pid()) : std::nullopt;
    if (!usage)
        return nullptr;
    double share = 0;
    if (!samples_.empty() && time > samples_.back().time)
        share = 100 * (usage->processor - samples_.back().usage.processor) /
                (time - samples_.back().time);
    samples_.push_back({time, *usage, share});
    return &samples_.back();
}

std::vector<Sample> Member::samples_since(double begin) const {
    std::vector<Sample> wanted;
    std::copy_if(samples_.begin(), samples_.end(), std::back_inserter(wanted),
                 [&](const Sample &sample) { return sample.time >= begin; });
    return wanted;
}

Crew::Crew(const std::string &home, const std::string &bin, const std::string &peer, double rate)
    : home_(home), bin_(bin) {
    for (const char *directory : {"/etc", "/run", "/log"})
        std::filesystem::create_directory(home_ + directory);
    configure();
    add("zebmsgd", {"zebmsgd"});
    add("zebseriald", {"zebseriald"});
    add("receiver", {"zeb-nmea-sim", "--link", run() + "/receiver"});
    add("pump", {"zeb-flow-sim", "--link", run() + "/pump", "--valve", "40"});
    for (const char *daemon : {"zeblogd", "gps", "flow", "waypoint"})
        add(daemon, {daemon});
    for (const char *name : {"peer1", "peer2"})
        members_.push_back(std::make_unique<Member>(
            name, std::vector<std::string>{peer, name, std::to_string(rate)}, home_));
}

void Crew::configure() const {
    write_file(home_ + "/etc/zeb.conf",
               read_file(zeb::test::source_path("etc/zeb.conf")) + "Port;gps;Device," + run() +
                   "/receiver\nPort;flow;Device," + run() +
                   "/pump\nDisk;LogDir,log\nDisk;StationID,soa\n"
                   "Log;Interval;Average,0:02\nLog;Interval;Monitor,0:05\n"
                   "Log;Interval;Flush,0:05\nLog;Interval;Switch,1:00\n"
                   // So that a client that does not read meets it within a fault.
                   "Server;Limit;QueueBytes,1048576\n");
}

void Crew::add(const std::string &name, std::vector<std::string> command) {
    command[0] = bin_ + "/" + command[0];
    members_.push_back(std::make_unique<Member>(name, std::move(command), home_));
}

bool Crew::start() {
    for (const auto &each : members_) {
        each->start(0);
        if (each->name() == "zebseriald" && !wait_until([&] {
                return is_listening(run() + "/.mainsocket") &&
                       is_listening(run() + "/.serialdsocket");
            }))
            return false;
    }
    return true;
}

void Crew::look_after(double time) {
    for (const auto &each : members_)
        each->look_after(time);
}

std::vector<std::string> Crew::end() {
    std::vector<std::string> faults;
    for (auto each = members_.rbegin(); each != members_.rend(); ++each) {
        Process &process = (*each)->process();
        if (!process.running())
            continue; // between two starts
        process.signal(SIGTERM);
        if (const int status = process.wait(); status != 0)
            faults.push_back((*each)->name() + ", told to stop, ended with status " +
                             std::to_string(status));
    }
    return faults;
}

Member &Crew::member(const std::string &name) {
    const auto at = std::find_if(members_.begin(), members_.end(),
                                 [&](const auto &each) { return each->name() == name; });
    if (at == members_.end())
        throw std::logic_error("no program " + name);
    return **at;
}

} // namespace soak

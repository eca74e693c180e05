// crew.h - the programs of a station that is soaked, each started again when it has ended, as an
// init system would.
#pragma once

#include "process.h"
#include "support.h"
#include "watch.h"

#include <memory>
#include <string>
#include <vector>

namespace soak {

// What a program took at one moment; the processor's share since the moment before.
struct Sample {
    double time; // of the run, s
    Usage usage;
    double share; // % of one processor
};

class Member {
  public:
    Member(std::string name, std::vector<std::string> command, const std::string &home);

    const std::string &name() const { return name_; }
    zeb::test::Process &process() { return *process_; }

    void start(double time);
    // Ends it on purpose; `held` keeps it from being started again until release().
    void end(int signal, bool held);
    void release() { held_ = false; }
    void stop(bool stopped);
    bool is_stopped() const { return stopped_; }
    // Starts it again, one second after it has ended, unless held.
    void look_after(double time);
    // Nothing when it is not running.
    const Sample *sample(double time);

    // Of the process that runs now, from `begin` on.
    std::vector<Sample> samples_since(double begin) const;
    int starts() const { return starts_; }
    int kills() const { return kills_; }
    // Ends that nobody asked for and no missing server explains: signals, and exit statuses
    // above 1.
    const std::vector<std::string> &crashes() const { return crashes_; }

  private:
    void note_end();
    std::string name_;
    std::vector<std::string> command_;
    std::string home_;
    std::unique_ptr<zeb::test::Process> process_;
    bool ended_ = false, asked_ = false, held_ = false, stopped_ = false;
    double next_start_ = 0, started_ = 0;
    int starts_ = 0, kills_ = 0;
    std::vector<Sample> samples_;
    std::vector<std::string> crashes_;
};

class Crew {
  public:
    // The sample configuration, the programs of `bin` and two peers of `rate` messages a second
    // each; their directories are below `home`.
    Crew(const std::string &home, const std::string &bin, const std::string &peer, double rate);

    // Servers first. False when they do not listen within a while.
    bool start();
    void look_after(double time);
    // Daemons first, servers last; what did not end as it should.
    std::vector<std::string> end();

    std::vector<std::unique_ptr<Member>> &members() { return members_; }
    Member &member(const std::string &name);
    const std::string &home() const { return home_; }
    std::string run() const { return home_ + "/run"; }
    std::string log() const { return home_ + "/log"; }

  private:
    void configure() const;
    void add(const std::string &name, std::vector<std::string> command);
    std::string home_, bin_;
    std::vector<std::unique_ptr<Member>> members_;
};

} // namespace soak

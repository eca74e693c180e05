// judge.h - what a soak watches beside /proc, the log of it, and what counts as failed.
#pragma once

#include "crew.h"

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace soak {

struct PeerTotals {
    unsigned long sent = 0, received = 0, lost = 0, doubled = 0;
};

// What a peer prints, over all its lives.
class PeerReports {
  public:
    PeerReports(Crew &crew, const std::string &name) : member_(&crew.member(name)) {}

    void read(double time);
    const PeerTotals &totals() const { return totals_; }
    double received_per_second() const { return received_per_second_; }
    double gap() const { return gap_; } // ms, of the last second
    const std::string &name() const { return member_->name(); }
    // Messages received a second between the two times, pauses of every kind included.
    double rate_between(double begin, double end) const;
    // The numbers, and the cycles of the dispatch thread from `begin` on; prints a line.
    std::vector<std::string> judge(double begin, double end, bool carried) const;

  private:
    Member *member_;
    int life_ = 0;
    PeerTotals before_, totals_; // of the lives before, and of all
    double received_per_second_ = 0, read_ = 0;
    double gap_ = 0, worst_gap_ = 0; // the worst while the peer was not stopped
    bool was_stopped_ = false;
    std::vector<Point> gaps_;
    std::vector<Point> arrivals_; // messages received up to each report
};

void print_heading();
// Whether a program took ever more between the two times; prints a line. Memory is not judged where
// the machine did not carry the load: queues then grow, and a heap that has grown stays so.
std::vector<std::string> judge_usage(const Member &member, double begin, double end, bool carried);

// Log files that hold anything but whole lines. The last line of a daemon that was killed may be
// torn.
std::vector<std::string> damaged_logs(Crew &crew, const std::string &bin);

// One line a second, in the format of the station's log files.
class UsageLog {
  public:
    UsageLog(const std::string &path, Crew &crew);
    void write(double time, const std::vector<PeerReports> &peers, size_t faults);

  private:
    void write_header(const std::string &name);
    Crew &crew_;
    std::unique_ptr<FILE, int (*)(FILE *)> file_;
};

} // namespace soak

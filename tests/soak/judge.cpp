#include "judge.h"

#include <algorithm>
#include <cmath>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <sstream>
#include <stdexcept>

namespace soak {

using zeb::test::occurrences;
using zeb::test::Process;

namespace {

struct Quantity {
    const char *code; // of its columns in the log
    const char *what;
    double (*of)(const Sample &);
    double limit; // of its rise
};

// The heap of a program that stood still stays as large as what waited for it, within the first
// limit; a leak of a hundred bytes a message passes it within two minutes, one of three bytes within
// an hour. The others count things that a program at work has the same number of.
const Quantity k_quantities[] = {
    {"rss", "resident memory (KiB)", [](const Sample &s) { return s.usage.resident; }, 6144},
    {"fds", "open descriptors", [](const Sample &s) { return s.usage.descriptors; }, 1.5},
    {"thr", "threads", [](const Sample &s) { return s.usage.threads; }, 0.9},
    {"cpu", "share of a processor (%)", [](const Sample &s) { return s.share; }, 15},
};

// A link is given up after 30 s without service.
constexpr double k_longest_gap = 10000; // ms
constexpr double k_gap_rise = 500;      // ms

std::string last_line(const std::string &text) {
    const size_t end = text.rfind('\n');
    if (end == std::string::npos || end == 0)
        return "";
    const size_t before = text.rfind('\n', end - 1);
    return text.substr(before == std::string::npos ? 0 : before + 1, end);
}

std::string text_of(double value) {
    char text[32];
    snprintf(text, sizeof text, "%.1f", value);
    return text;
}

} // namespace

void PeerReports::read(double time) {
    if (life_ != member_->starts()) {
        life_ = member_->starts();
        before_ = totals_;
    }
    std::istringstream line(last_line(member_->process().output()));
    PeerTotals life;
    double gap = 0;
    if (!(line >> life.sent >> life.received >> life.lost >> life.doubled >> gap))
        return;
    const unsigned long received = totals_.received;
    totals_ = {before_.sent + life.sent, before_.received + life.received, before_.lost + life.lost,
               before_.doubled + life.doubled};
    received_per_second_ =
        static_cast<double>(totals_.received - received) / std::max(0.5, time - read_);
    read_ = time;
    gap_ = gap;
    gaps_.push_back({time, gap});
    arrivals_.push_back({time, static_cast<double>(totals_.received)});
    // The report of the second in which it went on tells of the time before.
    if (!member_->is_stopped() && !was_stopped_)
        worst_gap_ = std::max(worst_gap_, gap);
    was_stopped_ = member_->is_stopped();
}

double PeerReports::rate_between(double begin, double end) const {
    const auto first = std::find_if(arrivals_.begin(), arrivals_.end(),
                                    [&](const Point &point) { return point.time >= begin; });
    return first == arrivals_.end() ? 0 : (arrivals_.back().value - first->value) / (end - begin);
}

std::vector<std::string> PeerReports::judge(double begin, double end, bool carried) const {
    std::vector<std::string> complaints;
    const auto complain_if = [&](bool is_wrong, const std::string &what) {
        if (is_wrong)
            complaints.push_back(name() + ": " + what);
    };
    std::vector<Point> late;
    std::copy_if(gaps_.begin(), gaps_.end(), std::back_inserter(late),
                 [&](const Point &gap) { return gap.time >= begin; });
    const double rise = rise_of(late).value_or(0);
    printf("%s: %lu sent, %lu received (%.0f/s), %lu lost, %lu doubled; worst gap of the dispatch "
           "loop %.0f ms\n",
           name().c_str(), totals_.sent, totals_.received,
           static_cast<double>(totals_.received) / end, totals_.lost, totals_.doubled, worst_gap_);
    complain_if(totals_.received == 0, "nothing was received");
    complain_if(totals_.lost > 0, std::to_string(totals_.lost) + " messages lost");
    complain_if(totals_.doubled > 0, std::to_string(totals_.doubled) + " messages doubled");
    complain_if(carried && worst_gap_ > k_longest_gap,
                "its dispatch loop stood still for " + text_of(worst_gap_) + " ms");
    complain_if(carried && rise > k_gap_rise,
                "the gaps of its dispatch loop have risen by " + text_of(rise) + " ms");
    if (!complaints.empty())
        complaints.push_back(name() + " said:\n" + member_->process().errors());
    return complaints;
}

void print_heading() {
    printf("\n%-11s %6s  %s\n", "program", "starts", "at the end (rise since the first third)");
}

std::vector<std::string> judge_usage(const Member &member, double begin, double end, bool carried) {
    const auto samples = member.samples_since(begin);
    printf("%-11s %6d ", member.name().c_str(), member.starts());
    if (samples.size() < 3 || begin > (end + end / 3) / 2) {
        printf(" started too late to be judged\n");
        return {};
    }
    std::vector<std::string> complaints;
    for (const Quantity &quantity : k_quantities) {
        std::vector<Point> points;
        for (const Sample &sample : samples)
            points.push_back({sample.time, quantity.of(sample)});
        const double rise = rise_of(points).value_or(0);
        printf(" %s %.0f (%+.1f)", quantity.code, points.back().value, rise);
        const bool is_judged = carried || &quantity != &k_quantities[0];
        if (is_judged && rise > quantity.limit)
            complaints.push_back(member.name() + ": " + quantity.what + " rose by " +
                                 text_of(rise) + ", more than " + text_of(quantity.limit));
    }
    printf("\n");
    return complaints;
}

std::vector<std::string> damaged_logs(Crew &crew, const std::string &bin) {
    std::vector<std::string> damaged;
    size_t files = 0, torn = 0, kills = 0;
    for (const auto &each : crew.members())
        kills += static_cast<size_t>(each->kills());
    for (const auto &entry : std::filesystem::directory_iterator(crew.log())) {
        if (!entry.path().filename().string().ends_with("Z")) // the monitor's texts
            continue;
        ++files;
        Process reader(crew.home(), {bin + "/zebctl", "logfile", "--summary", entry.path()}, {});
        const int status = reader.wait();
        const std::string said = reader.errors();
        const bool is_torn =
            occurrences(said, "\n") == 1 && occurrences(said, "a torn line, the last one") == 1;
        torn += is_torn ? 1 : 0;
        if (!is_torn && (status != 0 || !said.empty()))
            damaged.push_back(entry.path().filename().string() + ": " + said);
    }
    if (torn > kills)
        damaged.push_back(std::to_string(torn) + " log files have a torn line");
    printf("%zu log files, %zu with a torn last line (%zu kills)\n", files, torn, kills);
    return damaged;
}

UsageLog::UsageLog(const std::string &path, Crew &crew)
    : crew_(crew), file_(fopen(path.c_str(), "we"), fclose) {
    if (file_ == nullptr)
        throw std::runtime_error("cannot write " + path);
    write_header(std::filesystem::path(path).filename());
}

void UsageLog::write_header(const std::string &name) {
    std::string columns = "STN;EPOCH;DateTime", missing = "ZZZ;0;9999-99-99T99:99:99Z",
                formats = "%s;%u;%04d-%02d-%02dT%02d:%02d:%02dZ", descriptions;
    const auto add = [&](const std::string &column, const std::string &description) {
        columns += ";" + column;
        missing += ";-1.0";
        formats += ";%.1f";
        descriptions += "!var;" + column + ";FieldDesc," + description + "\n";
    };
    for (const auto &each : crew_.members())
        for (const Quantity &quantity : k_quantities)
            add(std::string(quantity.code) + "_" + each->name(),
                each->name() + ": " + quantity.what);
    add("faults", "faults in effect");
    for (const char *peer : {"peer1", "peer2"}) {
        const std::string prefix = std::string(peer) + ": ";
        add(std::string("rate_") + peer, prefix + "messages received (1/s)");
        add(std::string("lost_") + peer, prefix + "messages lost so far");
        add(std::string("doubled_") + peer, prefix + "messages doubled so far");
        add(std::string("gap_") + peer, prefix + "longest gap of the dispatch loop (ms)");
    }
    fprintf(file_.get(),
            "!fil;FileName,%s\n!fil;ProcessedBy;soak,zeb\n!fil;version,zeb2\n"
            "!row;colhdr;soak,soak;%s\n!row;mvc;soak,soak;%s\n!row;varfmt;soak,soak;%s\n%s",
            name.c_str(), columns.c_str(), missing.c_str(), formats.c_str(), descriptions.c_str());
}

void UsageLog::write(double time, const std::vector<PeerReports> &peers, size_t faults) {
    const std::time_t wall = std::time(nullptr);
    tm parts = {};
    gmtime_r(&wall, &parts);
    char text[64];
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    std::string line = "soak,SOA," + std::to_string(wall) + "," + text;
    for (const auto &each : crew_.members()) {
        const Sample *sample = each->sample(time);
        for (const Quantity &quantity : k_quantities)
            line += "," + (sample != nullptr ? text_of(quantity.of(*sample)) : "-1.0");
    }
    line += "," + std::to_string(faults) + ".0";
    for (const PeerReports &peer : peers)
        line += "," + text_of(peer.received_per_second()) + "," +
                text_of(static_cast<double>(peer.totals().lost)) + "," +
                text_of(static_cast<double>(peer.totals().doubled)) + "," + text_of(peer.gap());
    fprintf(file_.get(), "%s\n", line.c_str());
    fflush(file_.get());
}

} // namespace soak

// Faults: the station's clock is set, or stands still, while real programs run. Lines, files and
// links must not notice more than they have to.

#include "faults.h"
#include "flow_station.h"

#include <cmath>
#include <gmock/gmock.h>
#include <set>
#include <sstream>

using namespace zeb::test;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr double k_hour = 3600, k_year = 365.25 * 86400;
constexpr double k_interval = 0.5;
constexpr double k_begin = 1781525400; // 2026-06-15 12:10: no file is due within the next minutes

class FaultClock : public Flow {
  protected:
    FaultClock() : seam_(dir_ / "seam") {
        std::filesystem::create_directory(dir_ / "log");
        configure("Disk;LogDir,log\nflow;Interval,0.05\nflow;Timeout,3\nLog;Interval;Average,0.5\n"
                  "Log;Interval;Monitor,0\nLog;Interval;Flush,1\n");
        environment_ = seam_.environment();
        seam_.set_wall(k_begin);
    }
    // The whole station, its programs connected and its first lines written.
    void start() {
        ASSERT_TRUE(start_servers());
        programs_.push_back(pump({"--valve", "50"}));
        programs_.push_back(run({"flow"}));
        programs_.push_back(run({"zeblogd"}));
        ASSERT_TRUE(goes_on());
    }
    std::set<std::string> files() {
        std::set<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator(dir_ / "log"))
            if (entry.path().filename().string().rfind("flow_", 0) == 0)
                names.insert(entry.path());
        return names;
    }
    // The times of the averages, file after file as begun.
    std::vector<double> times() {
        std::vector<std::pair<std::filesystem::file_time_type, std::string>> by_time;
        for (const std::string &name : files())
            by_time.emplace_back(std::filesystem::last_write_time(name), name);
        std::sort(by_time.begin(), by_time.end());
        std::vector<double> result;
        for (const auto &[time, name] : by_time) {
            std::istringstream in(read_file(name));
            for (std::string line; std::getline(in, line);)
                if (line.rfind("flowA,", 0) == 0)
                    result.push_back(std::stod(line.substr(sizeof "flowA,NIL," - 1)));
        }
        return result;
    }
    bool goes_on() {
        const size_t before = times().size();
        return wait_until([&] { return times().size() >= before + 3; });
    }
    void expect_all_alive() {
        EXPECT_TRUE(server_->running()) << server_->errors();
        EXPECT_TRUE(serial_->running()) << serial_->errors();
        for (const auto &program : programs_)
            EXPECT_TRUE(program->running()) << program->errors();
    }
    // What the clock does to the lines: none fails to come, none comes more than once for its time.
    void survive_step(double seconds) {
        ASSERT_NO_FATAL_FAILURE(start());
        const size_t before = times().size();
        const double begun = seam_.wall();
        seam_.step(seconds);
        ASSERT_TRUE(goes_on());
        expect_all_alive();
        const auto all = times();
        const double took = seam_.wall() - begun - seconds;
        EXPECT_LE(static_cast<double>(all.size() - before), took / k_interval + 3);
        EXPECT_LE(std::abs(all.back() - seam_.wall()), 5 + took);
        EXPECT_LE(files().size(), 2u);
        programs_[1]->signal(SIGTERM);
        EXPECT_EQ(programs_[1]->wait(), 0) << programs_[1]->errors();
        EXPECT_THAT(programs_[1]->errors(), Not(HasSubstr("does not answer")));
    }
    Seam seam_;
    std::vector<std::unique_ptr<Process>> programs_;
};

} // namespace

TEST_F(FaultClock, SetForwardByAnHourKeepsEveryLink) {
    survive_step(k_hour);
}

TEST_F(FaultClock, SetBackByAnHourKeepsEveryLink) {
    survive_step(-k_hour);
}

TEST_F(FaultClock, SetForwardByAYearKeepsEveryLink) {
    survive_step(k_year);
}

TEST_F(FaultClock, SetBackByAYearKeepsEveryLink) {
    survive_step(-k_year);
}

TEST_F(FaultClock, AStationThatStartsIn1970GoesOnWhenTheClockIsSet) {
    const double present = seam_.wall();
    seam_.set_wall(100);
    ASSERT_NO_FATAL_FAILURE(start());
    EXPECT_THAT(*files().begin(), HasSubstr("/flow_19700101T0001"));
    EXPECT_LT(times().back(), 200);
    seam_.set_wall(present);
    ASSERT_TRUE(goes_on());
    expect_all_alive();
    EXPECT_LE(std::abs(times().back() - seam_.wall()), 10);
}

TEST_F(FaultClock, AStationLivesThrough2038) {
    if (sizeof(time_t) == 4)
        GTEST_SKIP() << "the time of a 32-bit host ends in 2038";
    seam_.set_wall(2147483648.0 - 8);
    ASSERT_NO_FATAL_FAILURE(start());
    ASSERT_TRUE(wait_until([&] { return times().back() > 2147483648.0 + 1; }));
    expect_all_alive();
    std::string text;
    for (const std::string &name : files())
        text += read_file(name);
    EXPECT_THAT(text, HasSubstr("flowA,NIL,2147483648,2038-01-19T03:14:08Z,"));
    EXPECT_THAT(*files().begin(), HasSubstr("/flow_20380119T03"));
    ask({"log", "switch"});
    ASSERT_TRUE(wait_until([&] { return files().size() == 2; }));
}

// As when the machine itself is stopped: nobody can have heard anything meanwhile.
TEST_F(FaultClock, AStationThatIsStoppedForTenMinutesGoesOnWithEveryLink) {
    ASSERT_NO_FATAL_FAILURE(start());
    std::vector<Process *> all = {server_.get(), serial_.get()};
    for (const auto &program : programs_)
        all.push_back(program.get());
    for (Process *program : all)
        program->signal(SIGSTOP);
    const size_t before = times().size();
    const double begun = seam_.wall();
    seam_.pass(600);
    for (Process *program : all)
        program->signal(SIGCONT);
    EXPECT_TRUE(goes_on());
    expect_all_alive();
    const double took = seam_.wall() - begun - 600;
    EXPECT_LE(static_cast<double>(times().size() - before), took / k_interval + 3);
    EXPECT_EQ(files().size(), 1u);
}

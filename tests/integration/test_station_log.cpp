// What the example daemons log, and the flow that follows its set point: variables, averages and
// log files of real programs under a real message server.

#include "flow_station.h"

#include <cmath>
#include <csignal>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>

using namespace zeb::test;
using nlohmann::json;

namespace {

class Logged : public Flow {
  protected:
    Logged() {
        std::filesystem::create_directory(dir_ / "log");
        keep("");
    }

    // Gains for an instrument that answers within milliseconds.
    void keep(const std::string &lines) {
        configure("Disk;LogDir,log\nDisk;StationID,abc\nflow;Interval,0.05\nflow;Timeout,3\n"
                  "flow;PID;P,1\nflow;PID;I,0.2\n" +
                  lines);
    }

    // The log files of a daemon, by name and so by time.
    std::set<std::string> files(const std::string &daemon) {
        std::set<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator(dir_ / "log"))
            if (entry.path().filename().string().rfind(daemon + "_", 0) == 0)
                names.insert(entry.path());
        return names;
    }
    // The lines of all its files that begin so.
    std::vector<std::string> lines(const std::string &daemon, const std::string &beginning) {
        std::vector<std::string> found;
        for (const std::string &name : files(daemon)) {
            std::istringstream in(read_file(name));
            for (std::string line; std::getline(in, line);)
                if (line.rfind(beginning, 0) == 0)
                    found.push_back(line);
        }
        return found;
    }
    // Ends an average of at least one reading, and waits for its line.
    std::string average() {
        const size_t before = lines("flow", "flowA,").size();
        EXPECT_EQ(watch("MSG_TSITMF_INSTANT", 2).size(), 2u);
        ask({"log", "average"});
        EXPECT_TRUE(wait_until([&] { return lines("flow", "flowA,").size() > before; }));
        const auto all = lines("flow", "flowA,");
        return all.empty() ? "" : all.back();
    }
    bool flow_reaches(double wanted) {
        return wait_until([&] {
            const auto meter = watch("MSG_TSITMF_INSTANT", 1);
            return meter.size() == 1 && meter[0]["record"]["Q"].is_number() &&
                   std::abs(meter[0]["record"]["Q"].get<double>() - wanted) < 0.05;
        });
    }
};

// What follows the four columns that every line has.
std::string columns(const std::string &line) {
    size_t at = 0;
    for (int i = 0; i < 4 && at != std::string::npos; ++i)
        at = line.find(',', at == 0 ? 0 : at + 1);
    return at == std::string::npos ? "" : line.substr(at + 1);
}

} // namespace

TEST_F(Logged, FlowsFileHasAHeaderAndLinesOfAveragesAndForTheMonitor) {
    ASSERT_TRUE(ready_);
    const auto instrument = pump({"--valve", "50"});
    const auto daemon = run({"flow"});
    // 20 (0.35 * 0.5 + 0.65 * 0.25) l/min, 830 - 2.5 * 6.75 hPa; no set point; no flags.
    EXPECT_EQ(columns(average()), " 813.13,  6.750,999.999, 21.00, 50.00,0000");
    ask({"log", "monitor"});
    ASSERT_TRUE(wait_until([&] { return lines("flow", "flowM,ABC,").size() == 1; }));
    EXPECT_EQ(columns(lines("flow", "flowM,ABC,")[0]).rfind(" 813.13,  6.750,999.999, 21.00, ", 0),
              0u);
    ASSERT_EQ(files("flow").size(), 1u);
    EXPECT_EQ(lines("flow", "!row;colhdr;flowA"),
              std::vector<std::string>{"!row;colhdr;flowA,flowA;STN;EPOCH;DateTime;P_flow;Q_flow;"
                                       "Set_flow;T_flow;V_flow;Flags_flow"});
    EXPECT_EQ(lines("flow", "!row;colhdr;flowM").size(), 1u);
    daemon->signal(SIGTERM);
    EXPECT_EQ(daemon->wait(), 0);
}

TEST_F(Logged, TheConductorGivesTheBeat) {
    ASSERT_TRUE(ready_);
    keep("Log;Interval;Average,0.5\nLog;Interval;Monitor,0.5\nLog;Interval;Flush,0\n"
         "Log;Interval;Switch,0\n");
    const auto instrument = pump({"--valve", "50"});
    const auto daemon = run({"flow"});
    const auto conductor = run({"zeblogd"});
    EXPECT_TRUE(wait_until([&] {
        return lines("flow", "flowA,").size() >= 3 && lines("flow", "flowM,").size() >= 2;
    }));
    EXPECT_EQ(columns(lines("flow", "flowA,")[2]), " 813.13,  6.750,999.999, 21.00, 50.00,0000");
}

TEST_F(Logged, FlowFollowsTheSetPointThatAVariableGives) {
    ASSERT_TRUE(ready_);
    const auto instrument = pump({"--valve", "50"});
    const auto daemon = run({"flow"});
    EXPECT_TRUE(flow_reaches(6.75));
    ask({"io", "set", "Set_flow", "8"});
    EXPECT_TRUE(says(*daemon, "the set point is 8 l/min"));
    EXPECT_TRUE(flow_reaches(8));
    const auto told = watch("MSG_GENERICPID_SETPOINT", 1);
    ASSERT_EQ(told.size(), 1u);
    EXPECT_EQ(told[0]["record"]["setpoint"], 8.0);
    EXPECT_EQ(told[0]["record"]["manual"], false);
    EXPECT_EQ(ask({"io", "get", "set_flow"}).find("8"), 0u);
    ask({"io", "set", "Set_flow", "4"});
    EXPECT_TRUE(flow_reaches(4));
    order({"name=flow", "manual=true", "output=50"});
    EXPECT_TRUE(flow_reaches(6.75));
    EXPECT_TRUE(says(*daemon, "the valve is to stay at 50 %"));
}

TEST_F(Logged, ASetPointOfTheConfigurationHoldsFromTheStart) {
    ASSERT_TRUE(ready_);
    keep("flow;Setpoint,5\n");
    const auto instrument = pump({"--valve", "50"});
    const auto daemon = run({"flow"});
    EXPECT_TRUE(flow_reaches(5));
}

TEST_F(Logged, ASetPointOutOfReachIsToldOnceAndWhenItIsOver) {
    ASSERT_TRUE(ready_);
    keep("flow;MaxFlow,40\n");
    const auto instrument = pump({"--valve", "50"});
    const auto daemon = run({"flow"});
    EXPECT_TRUE(flow_reaches(6.75));
    ask({"io", "set", "Set_flow", "41"});
    EXPECT_TRUE(says(*daemon, "an order is refused"));
    ask({"io", "set", "Set_flow", "30"});
    EXPECT_TRUE(says(*daemon, "the valve is at its end: the flow is 20.00 l/min instead of 30"));
    ask({"io", "set", "Set_flow", "5"});
    EXPECT_TRUE(says(*daemon, "the valve is within its range again"));
    EXPECT_EQ(occurrences(daemon->errors(), "the valve is at its end"), 1u);
}

TEST_F(Logged, FlowIsCalibratedBeforeItIsSharedHeldAndLogged) {
    ASSERT_TRUE(ready_);
    keep("flow;PID;cal;PV,0;2\nflow;analog;Q_Q1;chan,flow\nflow;analog;Q_Q1;cal,0;2\n");
    const auto instrument = pump({"--valve", "50"});
    const auto daemon = run({"flow"});
    EXPECT_TRUE(flow_reaches(13.5));
    EXPECT_EQ(columns(average()), " 13.500,0000");
    ask({"io", "set", "Set_flow", "10"});
    EXPECT_TRUE(flow_reaches(10));
}

TEST_F(Logged, ContaminationStopsTheAverages) {
    ASSERT_TRUE(ready_);
    keep("flow;AverageOnContam,false\n");
    const auto instrument = pump({"--valve", "50"});
    const auto daemon = run({"flow"});
    EXPECT_EQ(columns(average()).find(" 813.13,  6.750"), 0u);
    ask({"send", "MSG_LOG_AVG_CONTAMINATION", "contaminated=true", "flush_until=-1"});
    average(); // it began with good air
    EXPECT_EQ(columns(average()).find("9999.99,999.999"), 0u);
    ask({"send", "MSG_LOG_AVG_CONTAMINATION", "contaminated=false", "flush_until=-1"});
    EXPECT_EQ(columns(average()).find(" 813.13,  6.750"), 0u);
}

TEST_F(Logged, ASwitchBeginsANewFileWithAHeader) {
    ASSERT_TRUE(ready_);
    const auto instrument = pump({"--valve", "50"});
    const auto daemon = run({"flow"});
    average();
    // Within a second the new file has the old one's name.
    ASSERT_TRUE(wait_until([&] {
        ask({"log", "switch"});
        return files("flow").size() == 2;
    }));
    average();
    const std::string newest = read_file(*files("flow").rbegin());
    EXPECT_NE(newest.find("!row;colhdr;flowA,"), std::string::npos);
    EXPECT_NE(newest.find("\nflowA,ABC,"), std::string::npos);
}

TEST_F(Logged, ADaemonWithoutALogDirectoryMeasuresAndLogsOnceThereIsOne) {
    ASSERT_TRUE(ready_);
    std::filesystem::remove(dir_ / "log");
    const auto instrument = pump({"--valve", "50"});
    const auto daemon = run({"flow"});
    EXPECT_TRUE(says(*daemon, "no log file; its directory is missing?"));
    EXPECT_TRUE(flow_reaches(6.75));
    std::filesystem::create_directory(dir_ / "log");
    ask({"log", "on"});
    ask({"log", "switch"});
    ASSERT_TRUE(wait_until([&] { return files("flow").size() == 1; }));
    EXPECT_EQ(columns(average()).find(" 813.13,  6.750"), 0u);
}

TEST_F(Logged, TheLinesOfADaemonThatLosesItsServerAreInTheFile) {
    ASSERT_TRUE(ready_);
    const auto instrument = pump({"--valve", "50"});
    const auto daemon = run({"flow"});
    average();
    server_->signal(SIGTERM);
    EXPECT_EQ(server_->wait(), 0);
    EXPECT_EQ(daemon->wait(), 1);
    EXPECT_EQ(lines("flow", "flowA,").size(), 1u);
}

TEST_F(Logged, AKilledDaemonLosesTheAverageBegunAndNoLine) {
    ASSERT_TRUE(ready_);
    auto instrument = pump({"--valve", "50"});
    auto daemon = run({"flow"});
    average();
    average();
    ASSERT_EQ(watch("MSG_TSITMF_INSTANT", 5).size(), 5u);
    unplug(*daemon);
    const std::string first = *files("flow").begin();
    const auto written = lines("flow", "flowA,");
    EXPECT_EQ(written.size(), 2u);
    unplug(*instrument);
    instrument = pump({"--valve", "100"});
    // Within a second the new file has the old one's name.
    const time_t now = time(nullptr);
    ASSERT_TRUE(wait_until([&] { return time(nullptr) != now; }));
    daemon = run({"flow"});
    EXPECT_TRUE(flow_reaches(20));
    average(); // the flow may have been on its way
    // 20 (0.35 + 0.65) l/min, 830 - 2.5 * 20 hPa
    EXPECT_EQ(columns(average()), " 780.00, 20.000,999.999, 21.00,100.00,0000");
    EXPECT_EQ(lines("flow", "flowA,").size(), 4u);
    EXPECT_EQ(files("flow").size(), 2u);
    EXPECT_NE(read_file(first).find(written[1] + "\n"), std::string::npos);
}

TEST_F(Logged, GpsWritesALineForEachInstant) {
    ASSERT_TRUE(ready_);
    const auto receiver = run({"zeb-nmea-sim", "--link", dir_ / "receiver", "--interval", "0.1",
                               "--latitude", "40", "--longitude", "-105", "--radius", "1000"});
    const auto daemon = run({"gps"});
    ASSERT_TRUE(wait_until([&] { return lines("gps", "gpsS,ABC,").size() >= 2; }));
    const std::string line = columns(lines("gps", "gpsS,ABC,")[0]);
    EXPECT_NEAR(std::stod(line), 40, 0.01) << line;
    EXPECT_NEAR(std::stod(line.substr(line.find(',') + 1)), -105, 0.02) << line;
    EXPECT_EQ(lines("gps", "!row;colhdr;gpsS"),
              std::vector<std::string>{"!row;colhdr;gpsS,gpsS;STN;EPOCH;DateTime;Lat_gps;Lon_gps;"
                                       "Alt_gps;Speed_gps;Track_gps;Quality_gps;Nsat_gps"});
}

// ---- The files of the daemons, read by the tool ----

namespace {

class LogTool : public Logged {
  protected:
    // Two averages and a line for the monitor, by a flow daemon that has ended.
    std::string file_of_flow() {
        const auto instrument = pump({"--valve", "50"});
        const auto daemon = run({"flow"});
        average();
        average();
        ask({"log", "monitor"});
        EXPECT_TRUE(wait_until([&] { return lines("flow", "flowM,ABC,").size() == 1; }));
        daemon->signal(SIGTERM);
        EXPECT_EQ(daemon->wait(), 0);
        EXPECT_EQ(files("flow").size(), 1u);
        return *files("flow").begin();
    }
    // What the tool prints of the averages, as lines; the file is in order.
    std::vector<std::string> shown(const std::string &file, std::vector<std::string> options) {
        options.insert(options.begin(), {"logfile", "--records", "flowA", file});
        std::istringstream in(ask(options));
        EXPECT_EQ(errors_, "");
        std::vector<std::string> result;
        for (std::string line; std::getline(in, line);)
            result.push_back(line);
        return result;
    }
};

// The time of a data line as text.
std::string time_of(const std::string &line) {
    return line.substr(line.find('T') - sizeof "YYYY-MM-DD" + 1, sizeof "YYYY-MM-DDThh:mm:ssZ" - 1);
}

} // namespace

TEST_F(LogTool, FindsAFileOfFlowInOrderAndShowsItsColumns) {
    ASSERT_TRUE(ready_);
    const std::string file = file_of_flow();
    const auto written = lines("flow", "flowA,");
    ASSERT_EQ(written.size(), 2u);
    const auto table = shown(file, {"--columns", "Q_flow,Set_flow,P_flow"});
    ASSERT_EQ(table.size(), 3u);
    EXPECT_NE(table[0].find("Q_flow"), std::string::npos);
    EXPECT_LT(table[0].find("Set_flow"), table[0].find("P_flow"));
    for (size_t i = 0; i < 2; ++i) {
        std::istringstream fields(table[i + 1]);
        std::string time, flow, set, pressure;
        fields >> time >> flow >> set >> pressure;
        EXPECT_EQ(time, time_of(written[i]));
        EXPECT_EQ(flow + " " + set + " " + pressure, "6.750 - 813.13");
    }
    // The time comes first unless it is chosen.
    EXPECT_EQ(shown(file, {"--csv", "--columns", "STN,Q_flow"})[1],
              time_of(written[0]) + ",ABC,6.750");
}

TEST_F(LogTool, GivesAFileOfFlowToPrograms) {
    ASSERT_TRUE(ready_);
    const std::string file = file_of_flow();
    const auto objects = shown(file, {"--json"});
    ASSERT_EQ(objects.size(), 2u);
    for (const std::string &text : objects) {
        const json line = json::parse(text);
        EXPECT_EQ(line["type"], "flowA");
        EXPECT_EQ(line["station"], "ABC");
        EXPECT_EQ(line["record"]["Q_flow"], 6.75);
        EXPECT_EQ(line["record"]["P_flow"], 813.13);
        EXPECT_TRUE(line["record"]["Set_flow"].is_null());
    }
    const json header = json::parse(ask({"logfile", "--header", "--json", file}));
    EXPECT_EQ(header["records"].size(), 2u);
}

TEST_F(LogTool, SumsUpAndPlotsAFileOfFlow) {
    ASSERT_TRUE(ready_);
    const std::string file = file_of_flow();
    std::map<std::string, json> columns;
    for (const std::string &text : shown(file, {"--summary", "--json"})) {
        const json column = json::parse(text);
        columns[column["column"]] = column;
    }
    EXPECT_EQ(columns["Q_flow"]["count"], 2);
    EXPECT_EQ(columns["Q_flow"]["mean"], 6.75);
    EXPECT_EQ(columns["Set_flow"]["count"], 0);
    EXPECT_EQ(columns["Set_flow"]["missing"], 2);
    const auto drawn = shown(file, {"--plot", "Q_flow"});
    ASSERT_FALSE(drawn.empty());
    EXPECT_EQ(drawn[0].rfind("Q_flow", 0), 0u);
    EXPECT_GT(drawn.size(), 10u);
}

TEST_F(LogTool, DrawsAFileOfFlowAsAPicture) {
    if (system("gnuplot --version >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "gnuplot is not installed";
    ASSERT_TRUE(ready_);
    const std::string file = file_of_flow(), one = dir_ / "one.svg", other = dir_ / "other.svg";
    shown(file, {"--columns", "Q_flow,V_flow", "--plot", one});
    shown(file, {"--plot", "Q_flow,V_flow", "--plot-file", other});
    EXPECT_NE(read_file(one).find("</svg>"), std::string::npos);
    EXPECT_EQ(read_file(one), read_file(other));
    ask({"logfile", "--columns", "Q_flow", "--plot", "V_flow", file}, 2);
    EXPECT_NE(errors_.find("names a .png or .svg file"), std::string::npos) << errors_;
}

TEST_F(LogTool, TellsATornLastLineOfAFileOfFlow) {
    ASSERT_TRUE(ready_);
    const std::string file = file_of_flow();
    const std::string text = read_file(file);
    std::filesystem::resize_file(file, text.size() - 5);
    ask({"logfile", "--json", file}, 1);
    EXPECT_NE(errors_.find(": a torn line, the last one, \"flowM,ABC,"), std::string::npos)
        << errors_;
}

TEST_F(LogTool, ReadsAFileOfGps) {
    ASSERT_TRUE(ready_);
    const auto receiver = run({"zeb-nmea-sim", "--link", dir_ / "receiver", "--interval", "0.1",
                               "--latitude", "40", "--longitude", "-105", "--radius", "1000"});
    const auto daemon = run({"gps"});
    ASSERT_TRUE(wait_until([&] { return lines("gps", "gpsS,ABC,").size() >= 2; }));
    daemon->signal(SIGTERM);
    EXPECT_EQ(daemon->wait(), 0);
    const json line =
        lines_of(ask({"logfile", "--records", "gpsS", "--json", *files("gps").begin()}))[0];
    EXPECT_NEAR(line["record"]["Lat_gps"].get<double>(), 40, 0.01);
    EXPECT_NEAR(line["record"]["Lon_gps"].get<double>(), -105, 0.02);
    EXPECT_EQ(errors_, "");
}

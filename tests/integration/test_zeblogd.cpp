// The conductor at work on a real message server, at intervals of fractions of a second.

#include "station.h"

#include <cmath>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>

using namespace zeb::test;
using nlohmann::json;

namespace {

class Conducted : public Station {
  protected:
    Conducted() {
        std::filesystem::create_directory(dir_ / "log");
        conduct("");
    }

    // Everything is off but what the lines say.
    void conduct(const std::string &lines) {
        configure("Disk;LogDir,log\nLog;Interval;Average,0\nLog;Interval;Monitor,0\n"
                  "Log;Interval;Flush,0\nLog;Interval;Switch,0\n" +
                  lines);
    }

    // A conductor that has announced itself.
    std::unique_ptr<Process> conductor() {
        auto process = run({"zeblogd"});
        EXPECT_TRUE(wait_until([&] { return ask({"instruments"}).find("zeblogd") != npos; }));
        return process;
    }

    // The file to which the conductor writes monitor messages, or nothing.
    std::string monitor_text() {
        for (const auto &entry : std::filesystem::directory_iterator(dir_ / "log"))
            return read_file(entry.path());
        return "";
    }
    bool keeps(const std::string &line) {
        return wait_until([&] { return monitor_text().find(line) != npos; });
    }

    static constexpr size_t npos = std::string::npos;
};

// One time after the other, each a multiple of the interval, none before it has come.
void expect_beat(const std::vector<json> &messages, const char *field, double interval) {
    double before = 0;
    for (const json &message : messages) {
        const double time = message["record"][field].get<double>();
        EXPECT_EQ(std::fmod(time, interval), 0) << time;
        EXPECT_GT(time, before);
        EXPECT_LE(time, message["time"].get<double>());
        EXPECT_EQ(message["from"], "zeblogd");
        EXPECT_EQ(message["flags"], 1) << "published, not retained";
        EXPECT_EQ(message["to"], nullptr);
        before = time;
    }
}

TEST_F(Conducted, AveragesBeginAtMultiplesOfTheirInterval) {
    ASSERT_TRUE(ready_);
    conduct("Log;Interval;Average,0.5\n");
    const auto zeblogd = conductor();
    const auto messages = watch("MSG_LOG_*", 3);
    ASSERT_EQ(messages.size(), 3u);
    for (const json &message : messages)
        EXPECT_EQ(message["type"], "MSG_LOG_NEW_AVERAGE") << "the others are off";
    expect_beat(messages, "starttime", 0.5);
}

TEST_F(Conducted, MonitorRecordsAndFlushesHaveIntervalsOfTheirOwn) {
    ASSERT_TRUE(ready_);
    conduct("Log;Interval;Monitor,0.25\nLog;Interval;Flush,0.5\n");
    const auto zeblogd = conductor();
    const auto records = watch("MSG_LOG_MONITOR_RECORD", 3);
    ASSERT_EQ(records.size(), 3u);
    expect_beat(records, "montime", 0.25);
    const auto flushes = watch("MSG_LOG_FLUSH", 1);
    ASSERT_EQ(flushes.size(), 1u);
    EXPECT_EQ(flushes[0]["record"], nullptr);
    EXPECT_EQ(flushes[0]["flags"], 1);
}

TEST_F(Conducted, FilesAreSwitchedBeforeTheRecordsOfThatTime) {
    ASSERT_TRUE(ready_);
    conduct("Log;Interval;Switch,0:05\nLog;Interval;Average,0:05\n");
    const auto zeblogd = conductor();
    const auto messages = watch("MSG_LOG_*", 2);
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0]["type"], "MSG_LOG_SWITCHFILES");
    expect_beat({messages[0]}, "switchtime", 5);
    EXPECT_EQ(messages[1]["type"], "MSG_LOG_NEW_AVERAGE");
    EXPECT_EQ(messages[1]["record"]["starttime"], messages[0]["record"]["switchtime"]);
}

TEST_F(Conducted, NothingButTheAnnouncementIsRetained) {
    ASSERT_TRUE(ready_);
    conduct("Log;Interval;Average,0.1\nLog;Interval;Flush,0.1\n");
    const auto zeblogd = conductor();
    EXPECT_EQ(watch("MSG_LOG_NEW_AVERAGE", 1).size(), 1u);
    EXPECT_EQ(watch("MSG_LOG_FLUSH", 1).size(), 1u);
    const json status = json::parse(ask({"status", "--json"}));
    for (const json &client : status["clients"])
        EXPECT_EQ(client["retained"], client["name"] == "zeblogd" ? 1 : 0) << client;
}

TEST_F(Conducted, AMessageChangesAnInterval) {
    ASSERT_TRUE(ready_);
    const auto zeblogd = conductor();
    const std::pair<const char *, const char *> settings[] = {
        {"MSG_LOG_SET_INTERVAL_AVG", "average"},
        {"MSG_LOG_SET_INTERVAL_MON", "monitor"},
        {"MSG_LOG_SET_INTERVAL_FLS", "flush"},
        {"MSG_LOG_SET_INTERVAL_ROT", "switch"}};
    for (const auto &[message, duty] : settings) {
        ask({"send", "--name", "boss", message, "interval=5"});
        EXPECT_TRUE(
            says(*zeblogd, std::string(duty) + " interval: every 5 s, as boss asks; it was off"));
        EXPECT_TRUE(keeps(std::string("Z zeblogd ") + duty + " interval: every 5 s"));
    }
    ask({"send", "--name", "boss", "--to", "zeblogd", "MSG_LOG_SET_INTERVAL_AVG", "interval=0.25"});
    const auto averages = watch("MSG_LOG_NEW_AVERAGE", 2);
    ASSERT_EQ(averages.size(), 2u);
    expect_beat(averages, "starttime", 0.25);
    ask({"send", "--name", "boss", "MSG_LOG_SET_INTERVAL_AVG", "interval=0"});
    EXPECT_TRUE(says(*zeblogd, "average interval: off, as boss asks; it was every 0.25 s"));
}

TEST_F(Conducted, ABadIntervalIsRefusedAndChangesNothing) {
    ASSERT_TRUE(ready_);
    conduct("Log;Interval;Average,0.5\n");
    const auto zeblogd = conductor();
    const std::pair<const char *, const char *> settings[] = {
        {"-1", "-1"},       {"1e300", "1e+300"},     {"0.01", "0.01"},
        {"\"NaN\"", "nan"}, {"\"Infinity\"", "inf"}, {"null", "9.999e-99"}};
    for (const auto &[given, shown] : settings) {
        ask({"send", "--name", "boss", "MSG_LOG_SET_INTERVAL_AVG",
             std::string("interval=") + given});
        EXPECT_TRUE(says(*zeblogd, std::string("average interval: ") + shown +
                                       " s, as boss asks, is not 0 (off) or 0.1 s"))
            << given << ": " << zeblogd->errors();
    }
    EXPECT_TRUE(keeps("it stays every 0.5 s\n"));
    const auto averages = watch("MSG_LOG_NEW_AVERAGE", 2);
    ASSERT_EQ(averages.size(), 2u);
    expect_beat(averages, "starttime", 0.5);
}

TEST_F(Conducted, MonitorMessagesAreKeptByTheDay) {
    ASSERT_TRUE(ready_);
    const auto zeblogd = conductor();
    ask({"send", "--name", "probe", "MSG_LOG_MONITOR", "msgtime=1000.5", "msg=all is well"});
    ask({"send", "--name", "probe", "MSG_LOG_MONITOR", "msgtime=1001",
         R"(msg="two\nlines\u001b[2J\n")"});
    ASSERT_TRUE(keeps("1970-01-01T00:16:41.000Z"));
    EXPECT_EQ(monitor_text(), "1970-01-01T00:16:40.500Z probe all is well\n"
                              "1970-01-01T00:16:41.000Z probe two\\x0alines\\x1b[2J\n");
    for (const auto &entry : std::filesystem::directory_iterator(dir_ / "log")) {
        const std::string name = entry.path().filename();
        EXPECT_TRUE(name.starts_with("monitor_2") && name.ends_with(".txt")) << name;
    }
}

TEST_F(Conducted, AMonitorMessageWithoutATimeHasThatOfItsArrival) {
    ASSERT_TRUE(ready_);
    const auto zeblogd = conductor();
    ask({"send", "--name", "probe", "MSG_LOG_MONITOR", "msg=now"});
    ASSERT_TRUE(keeps("Z probe now\n"));
    EXPECT_TRUE(monitor_text().starts_with("2")) << monitor_text();
}

TEST_F(Conducted, ALogDirectoryThatVanishesIsSurvived) {
    ASSERT_TRUE(ready_);
    const auto zeblogd = conductor();
    std::filesystem::remove(dir_ / "log");
    ask({"send", "MSG_LOG_MONITOR", "msg=lost"});
    ASSERT_TRUE(says(*zeblogd, "cannot write to the monitor file"));
    std::filesystem::create_directory(dir_ / "log");
    ask({"send", "MSG_LOG_MONITOR", "msg=kept"});
    EXPECT_TRUE(keeps(" kept\n"));
    EXPECT_TRUE(says(*zeblogd, "is written to again; lines lost: 1"));
    EXPECT_TRUE(zeblogd->running());
}

TEST_F(Conducted, SaysThatItHasStartedWhenItsLauncherAsks) {
    ASSERT_TRUE(ready_);
    const auto zeblogd = run({"zeblogd"}, {{"ZEB2STARTUP", "1"}});
    EXPECT_TRUE(wait_until([&] { return zeblogd->output() == "STARTUP OKAY\n"; }));
    zeblogd->signal(SIGTERM);
    EXPECT_EQ(zeblogd->wait(), 0);
}

TEST_F(Conducted, EndsWithAFailureWithoutAServer) {
    ASSERT_TRUE(ready_);
    server_->signal(SIGTERM);
    EXPECT_EQ(server_->wait(), 0);
    const auto zeblogd = run({"zeblogd"});
    EXPECT_EQ(zeblogd->wait(), 1);
    EXPECT_NE(zeblogd->errors().find("is the server running?"), npos) << zeblogd->errors();
}

TEST_F(Conducted, EndsWithAFailureWhenTheServerIsGone) {
    ASSERT_TRUE(ready_);
    const auto zeblogd = conductor();
    server_->signal(SIGKILL);
    EXPECT_EQ(zeblogd->wait(), 1);
    EXPECT_NE(zeblogd->errors().find("the message server is gone"), npos) << zeblogd->errors();
}

TEST_F(Conducted, StopsThoughTheServerHangs) {
    ASSERT_TRUE(ready_);
    conduct("Log;Interval;Average,0.1\n");
    const auto zeblogd = conductor();
    server_->signal(SIGSTOP);
    zeblogd->signal(SIGTERM);
    EXPECT_EQ(zeblogd->wait(), 0);
    server_->signal(SIGCONT);
}

TEST_F(Conducted, ABadIntervalOfTheConfigurationKeepsItFromStarting) {
    ASSERT_TRUE(ready_);
    conduct("Log;Interval;Average,often\n");
    const auto zeblogd = run({"zeblogd"});
    EXPECT_EQ(zeblogd->wait(), 1);
    EXPECT_NE(zeblogd->errors().find("Log;Interval;Average: \"often\" is not"), npos)
        << zeblogd->errors();
}

TEST_F(Conducted, TheCommandLineIsChecked) {
    EXPECT_EQ(run({"zeblogd", "--help"})->wait(), 0);
    EXPECT_EQ(run({"zeblogd", "--version"})->wait(), 0);
    EXPECT_EQ(run({"zeblogd", "--nonsense"})->wait(), 2);
}

} // namespace

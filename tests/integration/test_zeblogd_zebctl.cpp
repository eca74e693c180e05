// Loggers commanded and the monitor followed from the shell.

#include "station.h"

#include <csignal>
#include <gtest/gtest.h>

using namespace zeb::test;
using nlohmann::json;

namespace {

class FromTheShell : public Station {
  protected:
    // What the others see of a zebctl command.
    json seen(const std::vector<std::string> &command) {
        const auto watch = run({"zebctl", "watch", "--json", "--type", "MSG_LOG_*", "--count", "1",
                                "--timeout", "20"});
        EXPECT_TRUE(wait_for_clients(1));
        ask(command);
        EXPECT_EQ(watch->wait(), 0) << watch->errors();
        const auto messages = lines_of(watch->output());
        EXPECT_TRUE(wait_for_clients(0));
        return messages.size() == 1 ? messages[0] : json();
    }

    // A `zebctl monitor` that is connected.
    std::unique_ptr<Process> monitor(std::vector<std::string> options) {
        options.insert(options.begin(), {"zebctl", "monitor", "--timeout", "20"});
        auto process = run(options);
        EXPECT_TRUE(wait_for_clients(1));
        return process;
    }

    static constexpr size_t npos = std::string::npos;
};

void expect_now(const json &message, const char *field) {
    EXPECT_NEAR(message["record"][field].get<double>(), message["time"].get<double>(), 20);
}

TEST_F(FromTheShell, LogTellsEveryLogger) {
    ASSERT_TRUE(ready_);
    json message = seen({"log", "average"});
    EXPECT_EQ(message["type"], "MSG_LOG_NEW_AVERAGE");
    EXPECT_EQ(message["flags"], 1);
    expect_now(message, "starttime");
    message = seen({"log", "monitor"});
    EXPECT_EQ(message["type"], "MSG_LOG_MONITOR_RECORD");
    expect_now(message, "montime");
    message = seen({"log", "switch"});
    EXPECT_EQ(message["type"], "MSG_LOG_SWITCHFILES");
    expect_now(message, "switchtime");
    EXPECT_EQ(seen({"log", "flush"})["type"], "MSG_LOG_FLUSH");
}

TEST_F(FromTheShell, LogSwitchesLoggingOnAndOff) {
    ASSERT_TRUE(ready_);
    json message = seen({"log", "off"});
    EXPECT_EQ(message["type"], "MSG_LOG_SET_STATE");
    EXPECT_EQ(message["record"]["enable"], false);
    EXPECT_EQ(message["flags"], 1);
    message = seen({"log", "on"});
    EXPECT_EQ(message["type"], "MSG_LOG_SET_STATE");
    EXPECT_EQ(message["record"]["enable"], true);
}

TEST_F(FromTheShell, LogTellsOneProgramWhenAsked) {
    ASSERT_TRUE(ready_);
    const auto zeblogd = run({"zeblogd"});
    ASSERT_TRUE(wait_for_clients(1));
    const auto bystander = run({"zebctl", "watch", "--json", "--type", "MSG_LOG_SET_*", "--count",
                                "1", "--timeout", "20"});
    ASSERT_TRUE(wait_for_clients(2));
    ask({"log", "interval", "flush", "0:30", "--to", "zeblogd"});
    EXPECT_TRUE(says(*zeblogd, "flush interval: every 30 s"));
    ask({"log", "off"});
    EXPECT_EQ(bystander->wait(), 0);
    EXPECT_NE(bystander->output().find("MSG_LOG_SET_STATE"), npos) << bystander->output();
}

TEST_F(FromTheShell, LogSetsIntervalsAsPeopleWriteThem) {
    ASSERT_TRUE(ready_);
    json message = seen({"log", "interval", "switch", "1:00:00"});
    EXPECT_EQ(message["type"], "MSG_LOG_SET_INTERVAL_ROT");
    EXPECT_EQ(message["record"]["interval"], 3600.0);
    message = seen({"log", "interval", "average", "0"});
    EXPECT_EQ(message["type"], "MSG_LOG_SET_INTERVAL_AVG");
    EXPECT_EQ(message["record"]["interval"], 0.0);
}

TEST_F(FromTheShell, LogRefusesWhatZeblogdWouldRefuse) {
    ask({"log"}, 2);
    ask({"log", "interval", "average"}, 2);
    ask({"log", "interval", "averages", "60"}, 2);
    EXPECT_NE(errors_.find("\"averages\" is none of switch, average, monitor, flush"), npos)
        << errors_;
    for (const char *interval : {"often", "0.01", "1e9", "800:00:00", "nan"}) {
        ask({"log", "interval", "average", interval}, 2);
        EXPECT_NE(errors_.find("is not 0 (off) or 0.1 s to 31 days"), npos) << errors_;
    }
}

TEST_F(FromTheShell, MonitorShowsMessagesAsTheyCome) {
    ASSERT_TRUE(ready_);
    const auto viewer = monitor({"--count", "2"});
    ask({"send", "--name", "probe", "MSG_LOG_MONITOR", "msgtime=1000.5", "msg=all is well"});
    ASSERT_TRUE(wait_until([&] { return viewer->output().find("well\n") != npos; }));
    EXPECT_EQ(viewer->output(), "1970-01-01T00:16:40.500Z probe all is well\n");
    ask({"send", "--name", "probe", "MSG_LOG_MONITOR", "msgtime=1001",
         R"(msg="two\nlines\u001b[2J\n")"});
    EXPECT_EQ(viewer->wait(), 0) << viewer->errors();
    EXPECT_NE(viewer->output().find("1970-01-01T00:16:41.000Z probe two\n    lines?[2J\n"), npos)
        << viewer->output();
}

TEST_F(FromTheShell, MonitorShowsObjectsForPrograms) {
    ASSERT_TRUE(ready_);
    const auto viewer = monitor({"--json", "--count", "1"});
    ask({"send", "--name", "probe", "MSG_LOG_MONITOR", "flags=3", "msgtime=1000.5",
         R"(msg="a \"b\"\nc\n")"});
    EXPECT_EQ(viewer->wait(), 0) << viewer->errors();
    const auto lines = lines_of(viewer->output());
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0],
              json::parse(R"({"time":1000.5,"from":"probe","flags":3,"text":"a \"b\"\nc"})"));
}

TEST_F(FromTheShell, MonitorShowsOnlyWhoIsAskedFor) {
    ASSERT_TRUE(ready_);
    const auto viewer = monitor({"--from", "p*", "--count", "1"});
    ask({"monitor", "--send", "not this", "--name", "gps"});
    ask({"monitor", "--send", "but this", "--name", "probe"});
    EXPECT_EQ(viewer->wait(), 0) << viewer->errors();
    EXPECT_EQ(viewer->output().find("not this"), npos);
    EXPECT_NE(viewer->output().find("Z probe but this\n"), npos) << viewer->output();
}

TEST_F(FromTheShell, MonitorSendsATextAsItIs) {
    ASSERT_TRUE(ready_);
    const json message =
        seen({"monitor", "--send", "100 %s of \"it\"", "--name", "probe", "--flags", "5"});
    EXPECT_EQ(message["type"], "MSG_LOG_MONITOR");
    EXPECT_EQ(message["from"], "probe");
    EXPECT_EQ(message["flags"], 1);
    EXPECT_EQ(message["record"]["msg"], "100 %s of \"it\"");
    EXPECT_EQ(message["record"]["flags"], 5);
    expect_now(message, "msgtime");
}

TEST_F(FromTheShell, MonitorRefusesWhatIsTooLongOrMakesNoSense) {
    ask({"monitor", "--send", std::string(8192, 'x')}, 2);
    EXPECT_NE(errors_.find("a text has at most 8191 characters"), npos);
    ask({"monitor", "--send", "x", "--json"}, 2);
    ask({"monitor", "--flags", "1"}, 2);
    ask({"monitor", "--send", "x", "--flags", "256"}, 2);
}

TEST_F(FromTheShell, MonitorEndsWithTimeSignalOrServer) {
    ASSERT_TRUE(ready_);
    ask({"monitor", "--timeout", "0.1"}, 0);
    ask({"monitor", "--timeout", "0.1", "--count", "1"}, 1);
    auto viewer = monitor({});
    viewer->signal(SIGINT);
    EXPECT_EQ(viewer->wait(), 0);
    ASSERT_TRUE(wait_for_clients(0));
    viewer = monitor({});
    server_->signal(SIGTERM);
    EXPECT_EQ(viewer->wait(), 1);
    // On a busy machine it may have found out about its link only now.
    EXPECT_TRUE(viewer->errors().find("the message server is gone") != npos ||
                viewer->errors().find("the message server closed the link") != npos)
        << viewer->errors();
    EXPECT_EQ(server_->wait(), 0);
    ask({"log", "flush"}, 1);
    ask({"monitor", "--send", "x"}, 1);
}

} // namespace

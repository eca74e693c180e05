// zebctl io on a real message server, with programs that share variables.

#include "io_station.h"

#include <nlohmann/json.hpp>
#include <sstream>

using namespace zeb::test;
using nlohmann::json;
using testing::AnyOf;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

class IoTool : public IoStation {
  protected:
    void SetUp() override { ASSERT_TRUE(ready_) << server_->errors(); }

    std::unique_ptr<Process> tool(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {built_path("bin/zebctl"), "io"});
        return start(arguments);
    }
    // Runs zebctl io to its end and returns what it printed.
    std::string ask(const std::vector<std::string> &arguments, int expected = 0) {
        const auto process = tool(arguments);
        EXPECT_EQ(process->wait(), expected) << process->errors();
        errors_ = process->errors();
        return process->output();
    }
    static json event_named(const std::string &output, const std::string &name) {
        std::istringstream lines(output);
        for (std::string line; std::getline(lines, line);)
            if (const json event = json::parse(line); event["name"] == name)
                return event;
        return nullptr;
    }
    // True once zebctl io fails with this; before, the programs may not have published yet.
    bool explains(const std::vector<std::string> &arguments, const std::string &error) {
        return wait_until([&] {
            ask(arguments, 1);
            return errors_.find(error) != std::string::npos;
        });
    }
    // What is listed once there are so many variables and outputs.
    json list(size_t variables, size_t outputs) {
        json all;
        wait_until([&] {
            all = json::parse(ask({"list", "--json", "--timeout", "2"}));
            return all["variables"].size() == variables && all["outputs"].size() == outputs;
        });
        return all;
    }
    std::string errors_;
};

// ---- get ----

TEST_F(IoTool, GetPrintsTheValueAsSoonAsItIsPublished) {
    const auto provider = peer({"ain1", "real=T1:21.5", "state=door:1"});
    EXPECT_EQ(ask({"get", "t1"}), "21.5\n");
    EXPECT_EQ(ask({"get", "T1", "--average"}), "21.5\n");
    EXPECT_EQ(ask({"get", "T1", "--running"}), "21.5\n");
    EXPECT_EQ(ask({"get", "door"}), "true\n");
}

TEST_F(IoTool, GetPrintsAllThatIsKnownAsJson) {
    const auto provider = peer({"ain1", "real=T1:21.5", "state=door:0"});
    const json real = json::parse(ask({"get", "t1", "--json", "--average"}));
    EXPECT_EQ(real["name"], "T1");
    EXPECT_EQ(real["kind"], "real");
    EXPECT_EQ(real["from"], "ain1");
    EXPECT_EQ(real["average"], 21.5);
    EXPECT_EQ(json::parse(ask({"get", "door", "--json"})),
              json::parse(R"({"name":"door","kind":"digital","from":"ain1","value":false})"));
}

TEST_F(IoTool, GetFailsWhenNobodyPublishesTheVariable) {
    EXPECT_EQ(ask({"get", "T1", "--timeout", "0.2"}, 1), "");
    EXPECT_THAT(errors_, HasSubstr("zebctl: nobody published \"T1\" within 0.2 s"));
}

TEST_F(IoTool, GetTellsAVariableWithoutAValueFromAnUnknownOne) {
    // Its publisher states the missing value itself.
    const auto provider = peer({"ain1", "real=T1:9.999e-99", "state=door:1"});
    const auto user = peer({"user", "input=door"});
    ASSERT_TRUE(prints(*user, "door 1"));
    EXPECT_TRUE(explains({"get", "T1", "--timeout", "2"},
                         "zebctl: \"T1\" of ain1 had no value within 2 s"));
    EXPECT_TRUE(explains({"get", "door", "--average", "--timeout", "2"},
                         "zebctl: \"door\" is a digital, which has no average"));
}

// ---- list ----

TEST_F(IoTool, ListShowsWhatIsPublishedAndWhatIsAskedFor) {
    const auto provider = peer({"ain1", "real=T1:21.5", "state=door:1"});
    const auto user = peer({"user", "set=V1:3", "switch=R1:0", "input=door"});
    ASSERT_TRUE(prints(*user, "door 1"));
    const json all = list(2, 2);
    EXPECT_EQ(all["variables"][0]["name"], "T1");
    EXPECT_EQ(all["variables"][0]["from"], "ain1");
    EXPECT_EQ(all["variables"][0]["value"], 21.5);
    EXPECT_EQ(all["variables"][1],
              json::parse(R"({"name":"door","kind":"digital","from":"ain1","value":true})"));
    EXPECT_EQ(all["outputs"], json::parse(R"([{"name":"V1","kind":"real","value":3.0,"by":"user"},
                              {"name":"R1","kind":"digital","value":false,"by":"user"}])"));
    std::string text;
    EXPECT_TRUE(wait_until([&] {
        text = ask({"list"});
        return text.find("variable  value  average  running  published by\n"
                         "T1        21.5   21.5     21.5     ain1\n"
                         "door      true                     ain1\n") != std::string::npos &&
               text.find("output  last request  requested by\n"
                         "V1      3             user\n"
                         "R1      false         user\n") != std::string::npos;
    })) << text;
}

TEST_F(IoTool, ListOfAQuietStationIsEmpty) {
    EXPECT_EQ(json::parse(ask({"list", "--json", "--timeout", "0.1"})),
              json::parse(R"({"variables":[],"outputs":[]})"));
    EXPECT_EQ(ask({"list", "--timeout", "0.1"}),
              "variable  value  average  running  published by\n");
}

// ---- set ----

TEST_F(IoTool, SetReachesTheProgramsOutputs) {
    const auto provider = peer({"pump", "output=V1", "relay=R1", "show=alive"});
    ASSERT_TRUE(prints(*provider, "alive missing missing missing"));
    EXPECT_EQ(ask({"set", "v1", "3.25"}), "");
    EXPECT_TRUE(prints(*provider, "V1 3.25"));
    ask({"set", "V1", "-1e3"});
    EXPECT_TRUE(prints(*provider, "V1 -1000"));
    ask({"set", "R1", "on"});
    EXPECT_TRUE(prints(*provider, "R1 1"));
    ask({"set", "R1", "FALSE"});
    EXPECT_TRUE(prints(*provider, "R1 0"));
}

TEST_F(IoTool, SetFailsWhenTheServerDoesNotTakeIt) {
    server_->signal(SIGTERM);
    server_->wait();
    ask({"set", "V1", "1"}, 1);
    EXPECT_THAT(errors_, HasSubstr("is the server running?"));
}

// ---- watch ----

TEST_F(IoTool, WatchShowsValuesAndRequestsAsTheyPass) {
    const auto provider = peer({"ain1", "real=T1:21.5", "state=door:1"});
    const std::string text = ask({"watch", "T*", "--count", "3", "--timeout", "20"});
    EXPECT_THAT(text, MatchesRegex("(20[0-9T:.-]+Z ain1 (value|average|running) T1 21.5\n)+"));
    const auto watch = tool({"watch", "--json", "v?", "r1", "--count", "2", "--timeout", "20"});
    ASSERT_TRUE(wait_until(
        [&] { return watch->errors().find("Received handshake") != std::string::npos; }));
    const auto user = peer({"user", "set=V1:3", "switch=R1:1"});
    ASSERT_EQ(watch->wait(), 0) << watch->errors();
    json set = event_named(watch->output(), "V1");
    EXPECT_GT(set["time"], 1.7e9);
    set.erase("time");
    EXPECT_EQ(set, json::parse(R"({"from":"user","what":"set","name":"V1","value":3.0})"));
    EXPECT_EQ(event_named(watch->output(), "R1")["value"], true);
}

TEST_F(IoTool, WatchEndsWithTheTimeAndFailsWhenLessCameThanWanted) {
    EXPECT_EQ(ask({"watch", "--timeout", "0.2"}), "");
    ask({"watch", "--timeout", "0.2", "--count", "1"}, 1);
}

TEST_F(IoTool, WatchFailsWhenTheServerGoes) {
    const auto watch = tool({"watch"});
    ASSERT_TRUE(wait_until(
        [&] { return watch->errors().find("Received handshake") != std::string::npos; }));
    server_->signal(SIGTERM);
    EXPECT_EQ(watch->wait(), 1);
    // It may not yet have noticed that it was connected.
    EXPECT_THAT(watch->errors(), AnyOf(HasSubstr("zebctl: the message server is gone"),
                                       HasSubstr("zebctl: the message server closed the link")));
}

TEST_F(IoTool, WatchEndsWellWhenItIsInterrupted) {
    const auto watch = tool({"watch"});
    ASSERT_TRUE(wait_until(
        [&] { return watch->errors().find("Received handshake") != std::string::npos; }));
    watch->signal(SIGINT);
    EXPECT_EQ(watch->wait(), 0) << watch->errors();
}

// ---- The command line ----

TEST_F(IoTool, WrongCommandLinesAreExplainedWithStatus2) {
    ask({}, 2);
    ask({"get"}, 2);
    ask({"set", "V1"}, 2);
    ask({"get", "T1", "--timeout", "-1"}, 2);
    ask({"get", "T1", "--average", "--running"}, 2);
    ask({"get", std::string(32, 'n')}, 2);
    EXPECT_THAT(errors_, HasSubstr("a name has 1 to 31 characters"));
    for (const char *value : {"", "warm", "1x", "nan", "inf", "1e999"}) {
        ask({"set", "V1", value}, 2);
        EXPECT_THAT(errors_, HasSubstr("is neither a number nor true, on, false or off")) << value;
    }
    ask({"set", "a;b", "on"}, 2);
    EXPECT_THAT(errors_, HasSubstr("the name of a digital has no"));
    EXPECT_THAT(ask({"--help"}), HasSubstr("watch"));
}

} // namespace

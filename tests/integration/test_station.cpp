// The example daemons, the simulator and the command-line tool, at work on a real message server.

#include "pty.h"
#include "station.h"

#include <csignal>
#include <filesystem>

using namespace zeb::test;
using nlohmann::json;

namespace {

std::string sentence(const std::string &body) {
    int sum = 0;
    for (const char c : body)
        sum ^= c;
    char tail[8];
    snprintf(tail, sizeof tail, "*%02X\r\n", static_cast<unsigned>(sum));
    return "$" + body + tail;
}

// Two instants with a fix, one without, and noise of every kind between them.
std::string short_drive() {
    return "noise at power-up\r\n" +
           sentence("GPRMC,120000.00,A,4000.0000,N,10500.0000,W,10.0,90.0,010203,,") +
           sentence("GPGGA,120000.00,4000.0000,N,10500.0000,W,1,08,1.1,1650.0,M,-16.2,M,,") +
           "$GPVTG,1,T*00\r\n" + sentence("PUBX,00,whatever") +
           sentence("GPRMC,120001.00,V,,,,,,,010203,,") + std::string(2000, 'x') + "\r\n" +
           sentence("GPRMC,120002.00,A,4000.6000,N,10500.0000,W,10.0,90.0,010203,,");
}

// A receiver that says what the test wants.
class Receiver {
  public:
    explicit Receiver(const std::string &name) : link_(terminal_.path(), name) {}

    // What was sent before is taken first. What the system has not handed on to the terminal yet
    // looks as if it were taken; when too much of that waits, the rest is not sent.
    void say(const std::string &text) {
        size_t at = 0;
        EXPECT_TRUE(wait_until(
            [&] {
                at += terminal_.send(text.substr(at, 2000));
                terminal_.drain(20);
                return at == text.size();
            },
            60));
    }

  private:
    pty::Terminal terminal_;
    pty::Link link_;
};

} // namespace

TEST_F(Station, GpsPublishesWhatItsReceiverSays) {
    ASSERT_TRUE(ready_);
    const auto watch = run({"zebctl", "watch", "--json", "--type", "MSG_GPS_INSTANT", "--count",
                            "3", "--timeout", "20"});
    ASSERT_TRUE(wait_for_clients(1));
    Receiver receiver(dir_ / "receiver");
    const auto gps = run({"gps"});
    receiver.say(short_drive());
    ASSERT_EQ(watch->wait(), 0) << watch->errors() << watch->output() << gps->errors();
    gps->signal(SIGTERM);
    EXPECT_EQ(gps->wait(), 0) << gps->errors();
    EXPECT_TRUE(says(*gps, "5 sentences, 3 refused, 3 instants, 2 with a fix")) << gps->errors();
    const auto fixes = lines_of(watch->output());
    ASSERT_EQ(fixes.size(), 3u);
    EXPECT_EQ(fixes[0]["from"], "gps");
    EXPECT_EQ(fixes[0]["record_type"], "NET_GPS_Fixinfo");
    EXPECT_EQ(fixes[0]["record"]["fix_time"], 1044100800.0); // 2003-02-01T12:00:00Z
    EXPECT_EQ(fixes[0]["record"]["lat"], 40.0);
    EXPECT_EQ(fixes[0]["record"]["lon"], -105.0);
    EXPECT_EQ(fixes[0]["record"]["alt"], 1650.0);
    EXPECT_EQ(fixes[1]["record"]["lat"], nullptr) << "a void position is missing";
    EXPECT_EQ(fixes[1]["record"]["valid"], false);
    EXPECT_EQ(fixes[2]["record"]["alt"], nullptr) << "RMC gives no altitude";
}

TEST_F(Station, GpsDigestsEveryCapturedSentence) {
    ASSERT_TRUE(ready_);
    const std::string folder = source_path("../shared/data/nmea/");
    if (!std::filesystem::exists(folder))
        GTEST_SKIP() << "no captured sentences in ../shared/data/nmea beside the checkout";
    const std::tuple<const char *, const char *, const char *> captured[] = {
        {"haicom-305N.nmea", "74", "325 sentences, 0 refused, 74 instants, 68 with a fix"},
        {"ublox-neo-m9n-nmea.nmea", "61", "1403 sentences, 0 refused, 61 instants, 61 with a fix"}};
    for (const auto &[name, instants, counted] : captured) {
        Receiver receiver(dir_ / "receiver");
        // A request for each sentence takes its time on a busy machine.
        const auto watch = run({"zebctl", "watch", "--type", "MSG_GPS_INSTANT", "--count", instants,
                                "--timeout", "55"});
        ASSERT_TRUE(wait_for_clients(1));
        const auto gps = run({"gps"});
        ASSERT_TRUE(says(*gps, "Serial server handshake complete")); // its line is read from now on
        // A pause of ours must not look like the end of an instant.
        gps->signal(SIGSTOP);
        receiver.say(read_file(folder + name));
        gps->signal(SIGCONT);
        EXPECT_TRUE(wait_until([&] { return !watch->running(); }, 55));
        EXPECT_EQ(watch->wait(), 0) << watch->errors();
        gps->signal(SIGTERM);
        EXPECT_EQ(gps->wait(), 0) << gps->errors();
        EXPECT_TRUE(says(*gps, counted)) << gps->errors();
        ASSERT_TRUE(wait_for_clients(0));
    }
}

TEST_F(Station, GpsSurvivesALineThatGoesAndComesBack) {
    ASSERT_TRUE(ready_);
    const auto gps = run({"gps"});
    ASSERT_TRUE(says(*gps, "the line =gps is gone"));
    for (size_t round = 1; round <= 2; ++round) {
        const auto receiver =
            run({"zeb-nmea-sim", "--link", dir_ / "receiver", "--interval", "0.1"});
        EXPECT_EQ(watch("MSG_GPS_INSTANT", 2).size(), 2u);
        EXPECT_EQ(occurrences(gps->errors(), "the line =gps is back"), round);
        receiver->signal(SIGTERM);
        EXPECT_EQ(receiver->wait(), 0);
        EXPECT_TRUE(wait_until(
            [&] { return occurrences(gps->errors(), "the line =gps is gone") == round + 1; }));
    }
    EXPECT_TRUE(gps->running());
    gps->signal(SIGTERM);
    EXPECT_EQ(gps->wait(), 0);
    EXPECT_EQ(occurrences(gps->errors(), "the line =gps is gone"), 3u) << gps->errors();
}

TEST_F(Station, GpsSaysThatItHasStartedWhenItsLauncherAsks) {
    ASSERT_TRUE(ready_);
    const auto gps = run({"gps"}, {{"ZEB2STARTUP", "1"}});
    EXPECT_TRUE(wait_until([&] { return gps->output() == "STARTUP OKAY\n"; }));
    gps->signal(SIGTERM);
    EXPECT_EQ(gps->wait(), 0);
}

TEST_F(Station, DaemonsEndWithAFailureWhenTheMessageServerIsGone) {
    ASSERT_TRUE(ready_);
    const std::unique_ptr<Process> daemons[] = {run({"gps"}), run({"flow"}), run({"waypoint"})};
    ASSERT_TRUE(wait_for_daemons(3));
    server_->signal(SIGTERM);
    EXPECT_EQ(server_->wait(), 0);
    for (const auto &daemon : daemons) {
        EXPECT_EQ(daemon->wait(), 1);
        EXPECT_TRUE(says(*daemon, "the message server is gone")) << daemon->errors();
    }
}

TEST_F(Station, DaemonsEndWithAFailureWhenTheSerialServerIsGone) {
    ASSERT_TRUE(ready_);
    const std::unique_ptr<Process> daemons[] = {run({"gps"}), run({"flow"})};
    const auto waypoint = run({"waypoint"});
    ASSERT_TRUE(wait_for_daemons(3));
    for (const auto &daemon : daemons)
        ASSERT_TRUE(wait_until([&] { return says(*daemon, "is gone; "); })) << daemon->errors();
    serial_->signal(SIGKILL);
    for (const auto &daemon : daemons) {
        EXPECT_EQ(daemon->wait(), 1);
        EXPECT_TRUE(says(*daemon, "the serial server is gone")) << daemon->errors();
        EXPECT_EQ(occurrences(daemon->errors(), "the line"), 1u) << "their lines were never there";
    }
    EXPECT_TRUE(waypoint->running()) << "it has no line";
}

TEST_F(Station, DaemonsWithoutServersSayWhatTheyNeed) {
    server_->signal(SIGTERM);
    EXPECT_EQ(server_->wait(), 0);
    for (const char *name : {"gps", "flow"}) {
        const auto daemon = run({name});
        EXPECT_EQ(daemon->wait(), 1);
        EXPECT_TRUE(says(*daemon, "are the message and the serial server running?"));
    }
    const auto waypoint = run({"waypoint"});
    EXPECT_EQ(waypoint->wait(), 1);
    EXPECT_TRUE(says(*waypoint, "is the message server running?"));
}

TEST_F(Station, ADaemonWithoutTheSerialServerSaysWhatItNeeds) {
    ASSERT_TRUE(ready_);
    serial_->signal(SIGTERM);
    EXPECT_EQ(serial_->wait(), 0);
    const auto gps = run({"gps"});
    EXPECT_EQ(gps->wait(), 1);
    EXPECT_TRUE(says(*gps, "are the message and the serial server running?"));
}

TEST_F(Station, APortThatTheSerialServerDoesNotKnowEndsTheStart) {
    ASSERT_TRUE(ready_);
    configure("gps;Port,=mast\n");
    const auto gps = run({"gps"});
    EXPECT_EQ(gps->wait(), 1);
    EXPECT_TRUE(says(*gps, "does it know the port =mast?")) << gps->errors();
}

TEST_F(Station, APortThatIsNoneIsNamed) {
    configure("gps;Port,ttyS0\n");
    const auto gps = run({"gps"});
    EXPECT_EQ(gps->wait(), 1);
    EXPECT_TRUE(says(*gps, "\"ttyS0\" is no port")) << gps->errors();
}

TEST_F(Station, WaypointWithoutAPlaceSaysWhatToSet) {
    write_file(dir_ / "etc/zeb.conf", "waypoint;Latitude,40\n");
    const auto waypoint = run({"waypoint"});
    EXPECT_EQ(waypoint->wait(), 1);
    EXPECT_TRUE(says(*waypoint, "set waypoint;Latitude and waypoint;Longitude"));
}

TEST_F(Station, WaypointFindsThePositionByItsTagAndAnswers) {
    ASSERT_TRUE(ready_);
    const auto receiver = run({"zeb-nmea-sim", "--link", dir_ / "receiver", "--interval", "0.1",
                               "--latitude", "40", "--longitude", "-105", "--radius", "1000"});
    const auto gps = run({"gps"});
    const auto waypoint = run({"waypoint"});
    const auto answers = lines_of(ask({"watch", "--json", "--type", "MSG_GPS_WAYPOINT_STATUS",
                                       "--from", "waypoint", "--count", "1", "--timeout", "20"}));
    ASSERT_EQ(answers.size(), 1u);
    const json &status = answers[0]["record"]["waypoints"][0];
    EXPECT_EQ(status["name"], "home");
    // The circle is drawn with a degree of 111,320 m, the answer with the Earth's mean radius.
    EXPECT_NEAR(status["distance"].get<double>(), 1000, 5);
    EXPECT_NE(waypoint->errors().find("the position comes from gps"), std::string::npos);
}

TEST_F(Station, InstrumentsListsWhoAnnouncedItself) {
    ASSERT_TRUE(ready_);
    configure("gps;DisplayName,Mast\n");
    const auto gps = run({"gps"});
    ASSERT_TRUE(wait_for_daemons(1));
    EXPECT_EQ(json::parse(ask({"instruments", "--json"})),
              json::parse(R"([{"name":"gps","type":"gps","display_name":"Mast","id":"G",
                               "tags":["position"]}])"));
    EXPECT_NE(ask({"instruments"}).find("Mast"), std::string::npos);
}

TEST_F(Station, SentFieldsArriveAndWhatWatchPrintsCanBeSentAgain) {
    ASSERT_TRUE(ready_);
    const std::vector<std::string> watch_one = {
        "zebctl", "watch", "--json", "--type", "MSG_LOG_*", "--count", "1", "--timeout", "20"};
    auto watch = run(watch_one);
    ASSERT_TRUE(wait_for_clients(1));
    ask({"send", "--name", "probe", "MSG_LOG_MONITOR", "flags=3", "msgtime=1000.5",
         "msg=all is well"});
    ASSERT_EQ(watch->wait(), 0) << watch->errors();
    const json first = lines_of(watch->output())[0];
    EXPECT_EQ(first["from"], "probe");
    EXPECT_EQ(first["record"], json::parse(R"({"flags":3,"msg":"all is well","msgtime":1000.5})"));

    ASSERT_TRUE(wait_for_clients(0));
    watch = run(watch_one);
    ASSERT_TRUE(wait_for_clients(1));
    write_file(dir_ / "line", first.dump() + "\n");
    const auto again = shell("zebctl send --json --name probe < " + (dir_ / "line"));
    EXPECT_EQ(again->wait(), 0) << again->errors();
    ASSERT_EQ(watch->wait(), 0) << watch->errors();
    json second = lines_of(watch->output())[0];
    second["time"] = first["time"];
    EXPECT_EQ(second, first);
}

TEST_F(Station, SendRefusesWhatTheCatalogueDoesNotKnow) {
    ASSERT_TRUE(ready_);
    ask({"send", "MSG_NO_SUCH"}, 1);
    EXPECT_NE(errors_.find("the catalogue has no message \"MSG_NO_SUCH\""), std::string::npos);
    ask({"send", "MSG_LOG_SET_INTERVAL_AVG", "period=1"}, 1);
    EXPECT_NE(errors_.find("NET_LOG_SetInterval has no field \"period\"; it has interval"),
              std::string::npos);
    ask({"send", "MSG_LOG_MONITOR", "flags=256"}, 1);
    EXPECT_NE(errors_.find("flags: 256 is outside 0 to 255"), std::string::npos);
    ask({"send", "MSG_LOG_FLUSH", "x=1"}, 1);
    EXPECT_NE(errors_.find("carries no record"), std::string::npos);
    ask({"send"}, 2);
}

TEST_F(Station, SentLinesWithImpossibleFlagsAreRefused) {
    ASSERT_TRUE(ready_);
    for (const char *flags : {"\"1\"", "-1", "4", "1.5"}) {
        write_file(dir_ / "line",
                   std::string("{\"type\":\"MSG_LOG_FLUSH\",\"flags\":") + flags + "}\n");
        const auto tool = shell("zebctl send --json < " + (dir_ / "line"));
        EXPECT_EQ(tool->wait(), 1) << flags;
        EXPECT_NE(tool->errors().find("\"flags\" is 0 to 3"), std::string::npos) << tool->errors();
    }
}

TEST_F(Station, WatchEndsWhenNobodyReadsIt) {
    ASSERT_TRUE(ready_);
    const auto watch = shell("zebctl watch --type MSG_LOG_FLUSH | true");
    ASSERT_TRUE(wait_for_clients(1));
    ask({"send", "MSG_LOG_FLUSH"});
    EXPECT_EQ(watch->wait(), 0) << watch->errors();
    EXPECT_TRUE(wait_for_clients(0));
}

TEST_F(Station, DaemonsStopThoughAServerHangs) {
    ASSERT_TRUE(ready_);
    const auto receiver = run({"zeb-nmea-sim", "--link", dir_ / "receiver", "--interval", "0.05"});
    for (Process *server : {server_.get(), serial_.get()}) {
        const std::unique_ptr<Process> daemons[] = {run({"gps"}), run({"flow"})};
        ASSERT_TRUE(wait_for_daemons(2));
        server->signal(SIGSTOP);
        for (const auto &daemon : daemons) {
            daemon->signal(SIGTERM);
            EXPECT_EQ(daemon->wait(), 0) << daemon->errors();
        }
        server->signal(SIGCONT);
        ASSERT_TRUE(wait_for_clients(0));
    }
}

TEST_F(Station, DaemonsStopThoughAServerHangsAtTheirStart) {
    ASSERT_TRUE(ready_);
    for (Process *server : {server_.get(), serial_.get()}) {
        server->signal(SIGSTOP);
        const auto gps = run({"gps"});
        ASSERT_TRUE(says(*gps, "begining handshake"));
        gps->signal(SIGTERM);
        EXPECT_EQ(gps->wait(), 0) << gps->errors();
        server->signal(SIGCONT);
    }
}

TEST_F(Station, ADirectoryIsNoConfiguration) {
    ask({"conf", "check", dir_.path()}, 1);
    EXPECT_NE(errors_.find("Is a directory"), std::string::npos) << errors_;
    const auto gps = run({"gps", "--config", dir_.path()});
    EXPECT_EQ(gps->wait(), 1);
    EXPECT_NE(gps->errors().find("Is a directory"), std::string::npos) << gps->errors();
}

TEST_F(Station, AToolThatCannotPrintFails) {
    ASSERT_TRUE(ready_);
    const auto tool = shell("zebctl status > /dev/full");
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_NE(tool->errors().find("No space left"), std::string::npos) << tool->errors();
}

TEST_F(Station, WatchFailsWhenFewerMessagesComeThanWanted) {
    ASSERT_TRUE(ready_);
    ask({"watch", "--count", "1", "--timeout", "0.2"}, 1);
    ask({"watch", "--timeout", "0.2"}, 0);
}

TEST_F(Station, ToolsSayThatNoServerIsThere) {
    server_->signal(SIGTERM);
    EXPECT_EQ(server_->wait(), 0);
    for (const char *command : {"status", "instruments"}) {
        ask({command}, 1);
        EXPECT_NE(errors_.find("is the message server running?"), std::string::npos) << errors_;
    }
    ask({"watch", "--timeout", "1"}, 1);
    EXPECT_NE(errors_.find("is the server running?"), std::string::npos) << errors_;
}

TEST_F(Station, DescribeShowsARecordAndAMessage) {
    const json record = json::parse(ask({"describe", "NET_SERVER_Heartbeat", "--json"}));
    EXPECT_EQ(record["size"], 4);
    EXPECT_EQ(record["fields"][0]["name"], "hb_idx");
    EXPECT_EQ(record["fields"][0]["code"], 6);
    const json message = json::parse(ask({"describe", "MSG_LOG_FLUSH", "--json"}));
    EXPECT_EQ(message, json::parse(R"({"message":"MSG_LOG_FLUSH","number":159,"class":"log",
                                       "carries":null})"));
    EXPECT_NE(ask({"describe", "MSG_GPS_INSTANT"}).find("NET_GPS_Fixinfo"), std::string::npos);
    ask({"describe", "heartbeat"}, 1);
    EXPECT_NE(errors_.find("did you mean MSG_SERVER_HEARTBEAT?"), std::string::npos);
    EXPECT_EQ(json::parse(ask({"describe", "--list", "--json"}))["messages"].size(), 294u);
}

TEST_F(Station, ConfChecksReadsAndDumpsAFile) {
    const std::string name = dir_ / "test.conf";
    write_file(name,
               "Disk;LogDir, /data\n# remark\nno comma here\nDisk;MaxFileSize,4000 # bytes\n");
    EXPECT_EQ(ask({"conf", "get", "--file", name, "disk;logdir"}), "/data\n");
    ask({"conf", "get", "--file", name, "Disk;None"}, 1);
    EXPECT_EQ(ask({"conf", "dump", name}), "Disk;LogDir,/data\nDisk;MaxFileSize,4000\n");
    const std::string findings = ask({"conf", "check", name}, 1);
    EXPECT_NE(findings.find(name + ":3: "), std::string::npos) << findings;
    EXPECT_EQ(findings.find(name + ":1: "), std::string::npos) << findings;
    ask({"conf", "check", dir_ / "absent"}, 1);
    EXPECT_NE(errors_.find("No such file"), std::string::npos);
}

// The flow daemon, its simulated instrument and the servers, through everything that can go wrong
// with a line.

#include "flow_station.h"

#include <csignal>

using namespace zeb::test;
using nlohmann::json;

TEST_F(Flow, PublishesWhatTheInstrumentAnswers) {
    ASSERT_TRUE(ready_);
    const auto instrument = pump({"--valve", "50"});
    const auto daemon = run({"flow"});
    const auto meter = watch("MSG_TSITMF_INSTANT", 1);
    ASSERT_EQ(meter.size(), 1u);
    EXPECT_EQ(meter[0]["from"], "flow");
    EXPECT_EQ(meter[0]["record"]["Q"], 6.75);    // 20 (0.35 * 0.5 + 0.65 * 0.25)
    EXPECT_EQ(meter[0]["record"]["P"], 813.125); // 830 - 2.5 * 6.75
    EXPECT_EQ(meter[0]["record"]["T"], 21.0);
    const auto loop = watch("MSG_GENERICPID_INSTANT", 1);
    ASSERT_EQ(loop.size(), 1u);
    EXPECT_EQ(loop[0]["record"]["name"], "flow");
    EXPECT_EQ(loop[0]["record"]["input"], 6.75);
    EXPECT_EQ(loop[0]["record"]["output"], 50.0);
}

TEST_F(Flow, PublishesWhoTheInstrumentIs) {
    ASSERT_TRUE(ready_);
    const auto status = run({"zebctl", "watch", "--json", "--type", "MSG_TSITMF_STATUS", "--count",
                             "1", "--timeout", "20"});
    ASSERT_TRUE(wait_for_clients(1));
    const auto instrument = pump();
    const auto daemon = run({"flow"});
    ASSERT_EQ(status->wait(), 0);
    const json record = lines_of(status->output())[0]["record"];
    EXPECT_EQ(record["state"], 1);
    EXPECT_EQ(record["model"], "Simulated flow controller");
    EXPECT_EQ(record["serial_number"], "SIM-0001");
    EXPECT_EQ(record["firmware"], "1.0");
}

TEST_F(Flow, OpensTheValveAsItIsTold) {
    ASSERT_TRUE(ready_);
    const auto instrument = pump();
    const auto daemon = run({"flow"});
    EXPECT_TRUE(comes("MSG_TSITMF_INSTANT", "Q", 0.0));
    order({"name=FLOW", "manual=true", "output=50"});
    EXPECT_TRUE(comes("MSG_GENERICPID_INSTANT", "output", 50.0));
    EXPECT_TRUE(comes("MSG_TSITMF_INSTANT", "Q", 6.75));
    const auto told = watch("MSG_GENERICPID_SETPOINT", 1); // retained
    ASSERT_EQ(told.size(), 1u);
    EXPECT_EQ(told[0]["record"]["name"], "flow");
    EXPECT_EQ(told[0]["record"]["output"], 50.0);
    EXPECT_EQ(told[0]["record"]["manual"], true);
}

TEST_F(Flow, RefusesOrdersThatItCannotObey) {
    ASSERT_TRUE(ready_);
    const auto instrument = pump({"--valve", "20"});
    const auto daemon = run({"flow"});
    ASSERT_EQ(watch("MSG_TSITMF_INSTANT", 1).size(), 1u);
    size_t refused = 0;
    for (const auto &fields : {std::vector<std::string>{"name=flow", "manual=true", "output=101"},
                               {"name=flow", "manual=true", "output=-1"},
                               {"name=flow", "manual=true"},
                               {"name=flow", "manual=false", "output=50"}}) {
        order(fields);
        ++refused;
        EXPECT_TRUE(wait_until(
            [&] { return occurrences(daemon->errors(), "an order is refused") == refused; }));
    }
    order({"name=flow2", "manual=true", "output=50"}); // for another
    order({"name=flow", "manual=true", "output=30"});
    EXPECT_TRUE(comes("MSG_GENERICPID_INSTANT", "output", 30.0));
    EXPECT_EQ(occurrences(daemon->errors(), "an order is refused"), refused);
}

TEST_F(Flow, SurvivesALineThatIsPulledAndTellsTheValveAgain) {
    ASSERT_TRUE(ready_);
    auto instrument = pump();
    const auto daemon = run({"flow"});
    order({"name=flow", "manual=true", "output=50"});
    ASSERT_TRUE(comes("MSG_GENERICPID_INSTANT", "output", 50.0));
    for (size_t round = 1; round <= 2; ++round) {
        const auto monitor = run({"zebctl", "watch", "--json", "--type", "MSG_LOG_MONITOR",
                                  "--count", "2", "--timeout", "20"});
        const auto status = run({"zebctl", "watch", "--json", "--type", "MSG_TSITMF_STATUS",
                                 "--count", "2", "--timeout", "20"});
        ASSERT_TRUE(wait_for_clients(3));
        unplug(*instrument);
        ASSERT_TRUE(wait_until(
            [&] { return occurrences(daemon->errors(), "the line =flow is gone") == round; }));
        instrument = pump(); // its valve is closed
        EXPECT_TRUE(comes("MSG_GENERICPID_INSTANT", "output", 50.0));
        ASSERT_EQ(monitor->wait(), 0) << monitor->output();
        const auto said = lines_of(monitor->output());
        EXPECT_EQ(said[0]["record"]["msg"],
                  "the line =flow is gone; the serial server waits for it");
        EXPECT_EQ(said[1]["record"]["msg"], "the line =flow is back");
        ASSERT_EQ(status->wait(), 0) << status->output();
        const auto states = lines_of(status->output());
        EXPECT_EQ(states[0]["record"]["state"], 2);
        EXPECT_EQ(states[0]["record"]["model"], "");
        EXPECT_EQ(states[1]["record"]["state"], 1);
        EXPECT_EQ(states[1]["record"]["model"], "Simulated flow controller");
        ASSERT_TRUE(wait_for_clients(1));
    }
    EXPECT_EQ(occurrences(daemon->errors(), "the line =flow is gone"), 2u);
    EXPECT_EQ(occurrences(daemon->errors(), "the line =flow is back"), 2u);
    daemon->signal(SIGTERM);
    EXPECT_EQ(daemon->wait(), 0);
}

TEST_F(Flow, WaitsForALineThatIsNotThereAtTheStart) {
    ASSERT_TRUE(ready_);
    const auto daemon = run({"flow"});
    ASSERT_TRUE(says(*daemon, "the line =flow is gone"));
    const auto instrument = pump();
    EXPECT_EQ(watch("MSG_TSITMF_INSTANT", 1).size(), 1u);
    EXPECT_TRUE(says(*daemon, "the line =flow is back"));
}

TEST_F(Flow, TellsASilentInstrumentOnceAndWhenItAnswersAgain) {
    ASSERT_TRUE(ready_);
    configure("flow;Interval,0.05\nflow;Timeout,1\n");
    const auto status = run({"zebctl", "watch", "--json", "--type", "MSG_TSITMF_STATUS", "--count",
                             "2", "--timeout", "20"});
    ASSERT_TRUE(wait_for_clients(1));
    auto instrument = pump({"--mute-after", "20"});
    const auto daemon = run({"flow"});
    ASSERT_TRUE(says(*daemon, "the instrument does not answer"));
    ASSERT_EQ(status->wait(), 0);
    EXPECT_EQ(lines_of(status->output())[1]["record"]["state"], 2);
    unplug(*instrument);
    instrument = pump();
    EXPECT_TRUE(says(*daemon, "the instrument answers again"));
    EXPECT_EQ(occurrences(daemon->errors(), "does not answer"), 1u) << daemon->errors();
}

TEST_F(Flow, TellsDamagedAnswersOnceAndGoesOnWithTheOthers) {
    ASSERT_TRUE(ready_);
    // A reading is four answers, so that of two in a row one holds a damaged one.
    auto instrument = pump({"--wrong-checksum-every", "6"});
    const auto daemon = run({"flow"});
    ASSERT_TRUE(says(*daemon, "the instrument gives damaged answers"));
    const auto readings = watch("MSG_TSITMF_INSTANT", 12);
    ASSERT_EQ(readings.size(), 12u);
    int missing = 0, good = 0;
    for (const json &reading : readings)
        for (const char *field : {"Q", "P", "T"})
            ++(reading["record"][field].is_null() ? missing : good);
    EXPECT_GE(missing, 1);
    EXPECT_GE(good, 24);
    EXPECT_EQ(occurrences(daemon->errors(), "damaged answers"), 1u) << daemon->errors();
    EXPECT_EQ(occurrences(daemon->errors(), "answers again"), 0u) << daemon->errors();
    unplug(*instrument);
    instrument = pump();
    EXPECT_TRUE(says(*daemon, "the instrument answers again"));
    daemon->signal(SIGTERM);
    EXPECT_EQ(daemon->wait(), 0);
    EXPECT_EQ(occurrences(daemon->errors(), " 0 damaged"), 0u) << daemon->errors();
}

TEST_F(Flow, HearsAnInstrumentThatTakesItsTime) {
    ASSERT_TRUE(ready_);
    configure("flow;Interval,0.05\nflow;Timeout,10\n");
    const auto instrument = pump({"--late", "0.2", "--valve", "50"});
    const auto daemon = run({"flow"});
    EXPECT_TRUE(comes("MSG_TSITMF_INSTANT", "Q", 6.75));
    EXPECT_EQ(occurrences(daemon->errors(), "the instrument"), 0u) << daemon->errors();
}

TEST_F(Flow, ReportsAnInstrumentThatIsTooLate) {
    ASSERT_TRUE(ready_);
    configure("flow;Interval,0.05\nflow;Timeout,0.05\n");
    const auto instrument = pump({"--late", "5"});
    const auto daemon = run({"flow"});
    EXPECT_TRUE(says(*daemon, "the instrument does not answer"));
}

TEST_F(Flow, AsksTheAddressThatIsConfigured) {
    ASSERT_TRUE(ready_);
    configure("flow;Interval,0.05\nflow;Timeout,3\nflow;Address,7\n");
    const auto instrument = pump({"--address", "7", "--valve", "50"});
    const auto daemon = run({"flow"});
    EXPECT_TRUE(comes("MSG_TSITMF_INSTANT", "Q", 6.75));
}

TEST_F(Flow, ASettingOutsideItsLimitsIsReportedAndItsDefaultTaken) {
    ASSERT_TRUE(ready_);
    configure("flow;Address,100\nflow;Interval,0\n");
    const auto instrument = pump({"--valve", "50"});
    const auto daemon = run({"flow"});
    EXPECT_TRUE(says(*daemon, "flow;Address: \"100\" is not a whole number from 0 to 99; using 1"));
    EXPECT_TRUE(says(*daemon, "flow;Interval: \"0\" is not a number of seconds from 0.05"));
    EXPECT_TRUE(comes("MSG_TSITMF_INSTANT", "Q", 6.75));
}

TEST_F(Flow, TheSimulatorsRefuseAWrongCommandLine) {
    for (const char *name : {"zeb-flow-sim", "zeb-nmea-sim"}) {
        EXPECT_EQ(run({name})->wait(), 2);
        const auto help = run({name, "--help"});
        EXPECT_EQ(help->wait(), 0);
        EXPECT_NE(help->output().find("--link"), std::string::npos);
    }
    EXPECT_EQ(run({"zeb-flow-sim", "--link", dir_ / "pump", "--valve", "101"})->wait(), 2);
    EXPECT_EQ(run({"zeb-flow-sim", "--link", "/no/such/place"})->wait(), 1);
}

// Messages of shared variables as they arrive, good and bad.
#include "io_testing.h"

#include <cmath>
#include <limits>

using namespace zeb::test;
using testing::HasSubstr;

namespace {

const IO_var_real *real_named(const std::string &name) {
    for (const LL_NODE *node = g_io_real.head; node != nullptr; node = node->next)
        if (name == static_cast<IO_var_real *>(node->data)->name)
            return static_cast<IO_var_real *>(node->data);
    return nullptr;
}

// ---- Published values ----

TEST_F(IoLink, InstantValuesGoIntoTheValue) {
    receive(reals_message("MSG_IO_INSTANT", {{"T1", 21.5}, {"P1", 850}}, 2, 1000, 1, "ain"));
    EXPECT_EQ(IO_lookup("T1"), 21.5);
    EXPECT_EQ(IO_lookup("p1"), 850.0);
    EXPECT_EQ(IO_lookup_avg("T1"), MVC);
    EXPECT_EQ(IO_lookup_runningavg("T1"), MVC);
    ASSERT_NE(real_named("T1"), nullptr);
    EXPECT_STREQ(real_named("T1")->clname, "ain");
}

TEST_F(IoLink, AveragesGoIntoTheAverage) {
    receive(reals_message("MSG_IO_AVG", {{"T1", 21.5}}, 1, 1000, 1, "ain"));
    EXPECT_EQ(IO_lookup_avg("T1"), 21.5);
    EXPECT_EQ(IO_lookup("T1"), MVC);
    EXPECT_EQ(IO_lookup_runningavg("T1"), MVC);
}

TEST_F(IoLink, RunningAveragesGoIntoTheRunningAverage) {
    receive(reals_message("MSG_IO_RUNNINGAVG", {{"T1", 21.5}}, 1, 1000, 1, "ain"));
    EXPECT_EQ(IO_lookup_runningavg("T1"), 21.5);
    EXPECT_EQ(IO_lookup("T1"), MVC);
    EXPECT_EQ(IO_lookup_avg("T1"), MVC);
}

TEST_F(IoLink, ALaterValueOfTheSameNameReplacesTheFirstInPlace) {
    receive(reals_message("MSG_IO_INSTANT", {{"T1", 1}, {"T2", 2}}, 2, 1000, 1, "ain"));
    receive(reals_message("MSG_IO_INSTANT", {{"t1", MVC}}, 1, 1001, 1, "other"));
    EXPECT_EQ(IO_lookup("T1"), MVC);
    EXPECT_EQ(g_io_real.count, 5);
    EXPECT_STREQ(real_named("T1")->clname, "ain") << "it belongs to who published it first";
}

TEST_F(IoLink, DigitalStatesAreTheBitsOfTheNamedChannels) {
    receive(state_digital_message({"door", "", "valve"}, 6, "dio"));
    EXPECT_FALSE(IO_lookup_digital("door"));
    EXPECT_TRUE(IO_lookup_digital("VALVE"));
    EXPECT_EQ(g_io_digital.count, 4) << "a channel without a name is none";
    EXPECT_EQ(IO_digital_in("door,valve"), 2U);
    receive(state_digital_message({"valve", "door"}, 2, "dio"));
    EXPECT_EQ(IO_digital_in("door,valve"), 1U);
    EXPECT_EQ(g_io_digital.count, 4);
}

TEST_F(IoLink, TheThirtySecondDigitalIsBit31) {
    std::vector<std::string> names(32);
    names[31] = "last";
    receive(state_digital_message(names, 0x80000000U, "dio"));
    EXPECT_EQ(IO_lookup_digital("last"), TRUE);
}

TEST_F(IoLink, TheCountOfChannelsIsUsedAsItStands) {
    receive(reals_message("MSG_IO_INSTANT", {{"T1", 1}, {"T2", 2}, {"T3", 3}}, 2, 1000, 1, "ain"));
    EXPECT_EQ(IO_lookup("T2"), 2.0);
    EXPECT_EQ(IO_lookup("T3"), MVC);
    receive(reals_message("MSG_IO_INSTANT", {{"T1", 5}}, 0, 1001, 1, "ain"));
    EXPECT_EQ(IO_lookup("T1"), 1.0);
    EXPECT_EQ(g_io_real.count, 5);
}

TEST_F(IoLink, ChannelsWithinTheCountAreVariablesAlsoWithoutAName) {
    receive(reals_message("MSG_IO_INSTANT", {{"", 7}, {"T1", 1}}, 2, 1000, 1, "ain"));
    EXPECT_EQ(IO_lookup(""), 7.0);
    EXPECT_EQ(IO_lookup("T1"), 1.0);
}

TEST_F(IoLink, SixtyFourChannelsAreTakenFromOneRecord) {
    Channels channels;
    for (int i = 0; i < 64; ++i)
        channels.emplace_back("c" + std::to_string(i), i);
    receive(reals_message("MSG_IO_AVG", channels, 64, 1000, 1, "ain"));
    EXPECT_EQ(g_io_real.count, 3 + 64);
    EXPECT_EQ(IO_lookup_avg("c63"), 63.0);
}

TEST_F(IoLink, ABuiltInVariableCanBePublishedLikeAnyOther) {
    receive(reals_message("MSG_IO_INSTANT", {{"one", 11}}, 1, 1000, 1, "ain"));
    EXPECT_EQ(IO_lookup("ONE"), 11.0);
    EXPECT_EQ(IO_lookup_avg("ONE"), 1.0);
    receive_terminate("ain");
    EXPECT_EQ(IO_lookup("ONE"), 11.0);
}

TEST_F(IoLink, MessagesThatMeanNothingHereAreIgnored) {
    receive(set_real_message("T1", 5, 1, "", "other"));
    receive(packed(1, "MSG_LOG_FLUSH", "", "other"));
    EXPECT_EQ(g_io_real.count, 3);
    EXPECT_EQ(g_io_real_out.count, 0);
}

// ---- Programs that leave ----

TEST_F(IoLink, ATerminationRemovesExactlyTheClientsOwnValuesAndALaterMessageCreatesThemAgain) {
    receive(reals_message("MSG_IO_INSTANT", {{"T1", 1}}, 1, 1000, 1, "ain1"));
    receive(reals_message("MSG_IO_INSTANT", {{"T2", 2}}, 1, 1000, 1, "ain2"));
    receive(state_digital_message({"door"}, 1, "ain1"));
    receive(state_digital_message({"valve"}, 1, "ain2"));
    receive_terminate("ain1");
    EXPECT_EQ(IO_lookup("T1"), MVC);
    EXPECT_EQ(IO_lookup("T2"), 2.0);
    EXPECT_EQ(IO_digital_in("door,valve"), 2U);
    EXPECT_EQ(IO_lookup("ONE"), 1.0);
    EXPECT_TRUE(IO_lookup_digital("TRUE"));
    EXPECT_EQ(g_io_real.count, 4);
    EXPECT_EQ(g_io_digital.count, 3);
    receive(reals_message("MSG_IO_AVG", {{"T1", 3}}, 1, 1001, 1, "ain1"));
    receive(state_digital_message({"door"}, 1, "ain1"));
    EXPECT_EQ(IO_lookup_avg("T1"), 3.0);
    EXPECT_EQ(IO_lookup("T1"), MVC) << "the old value does not come back";
    EXPECT_TRUE(IO_lookup_digital("door"));
}

TEST_F(IoLink, ATerminationOfNobodyRemovesNothing) {
    receive(reals_message("MSG_IO_INSTANT", {{"T1", 1}}, 1, 1000, 1, ""));
    receive_terminate("");
    receive_terminate("ain");
    EXPECT_EQ(IO_lookup("T1"), 1.0);
    EXPECT_EQ(IO_lookup("ONE"), 1.0);
    EXPECT_STREQ(real_named("T1")->clname, "");
}

TEST_F(IoLink, AClientWithALongNameIsRecognisedWhenItLeaves) {
    const std::string client(100, 'c');
    receive(reals_message("MSG_IO_INSTANT", {{"T1", 1}}, 1, 1000, 1, client));
    EXPECT_EQ(real_named("T1")->clname, client.substr(0, 31));
    receive_terminate(client);
    EXPECT_EQ(IO_lookup("T1"), MVC);
}

TEST_F(IoLink, ATerminationLeavesWhatThisProgramAskedFor) {
    IO_set(&lnk, "flow", 1);
    receive_terminate("daemon");
    EXPECT_EQ(g_io_real_out.count, 1);
}

// ---- Requests to send outputs again ----

TEST_F(IoLink, RealOutputsAreSentAgainToWhoAsks) {
    IO_set(&lnk, "flow", 1.5);
    IO_set(&lnk, "fan", 2);
    sent();
    receive(packed(1, "MSG_IO_RESEND_REAL", "", "pump"));
    EXPECT_TRUE(sent_is(
        {set_real_message("flow", 1.5, 0, "pump", ""), set_real_message("fan", 2, 0, "pump", "")}));
}

TEST_F(IoLink, DigitalOutputsAreSentAgainWithAFullMask) {
    IO_set_digital(&lnk, "a,b,c", 5, 7);
    sent();
    receive(packed(1, "MSG_IO_RESEND_DIGITAL", "", "relays"));
    EXPECT_TRUE(sent_is({set_digital_message({"a", "b", "c"}, 5, 0xFFFFFFFFU, 0, "relays")}));
}

TEST_F(IoLink, DigitalOutputsAreSentAgainThirtyTwoToAMessage) {
    std::vector<std::string> first, second;
    for (int i = 0; i < 40; ++i) {
        const std::string name = "d" + std::to_string(i);
        (i < 32 ? first : second).push_back(name);
        IO_set_digital(&lnk, name.c_str(), i == 31 || i == 33 ? 1 : 0, 1);
    }
    sent();
    receive(packed(1, "MSG_IO_RESEND_DIGITAL", "", "relays"));
    EXPECT_TRUE(sent_is({set_digital_message(first, 0x80000000U, 0xFFFFFFFFU, 0, "relays"),
                         set_digital_message(second, 2, 0xFFFFFFFFU, 0, "relays")}));
}

TEST_F(IoLink, ExactlyThirtyTwoDigitalOutputsAreSentAgainInOneMessage) {
    std::string chans;
    for (int i = 0; i < 32; ++i)
        chans += "d" + std::to_string(i) + (i < 31 ? "," : "");
    IO_set_digital(&lnk, chans.c_str(), 0, 0xFFFFFFFFU);
    sent();
    receive(packed(1, "MSG_IO_RESEND_DIGITAL", "", "relays"));
    EXPECT_EQ(sent().size(), 1U);
}

TEST_F(IoLink, NothingIsSentAgainWhenNothingWasAsked) {
    receive(packed(1, "MSG_IO_RESEND_REAL", "", "pump"));
    receive(packed(1, "MSG_IO_RESEND_DIGITAL", "", "pump"));
    EXPECT_TRUE(sent_is({}));
}

TEST_F(IoLink, NothingIsSentAgainToNobody) {
    IO_set(&lnk, "flow", 1);
    IO_set_digital(&lnk, "a", 1, 1);
    sent();
    receive(packed(1, "MSG_IO_RESEND_REAL"));
    receive(packed(1, "MSG_IO_RESEND_DIGITAL"));
    EXPECT_TRUE(sent_is({}));
}

// ---- Whatever another program sends ----

TEST_F(IoLink, ACountBeyondTheRecordStopsAtItsEdgeAndIsReportedAtBeginAndEnd) {
    NET_IO_MultiReal record = {};
    for (int i = 0; i < 64; ++i)
        snprintf(record.chans[i].name, sizeof record.chans[i].name, "c%d", i);
    for (const unsigned n : {65U, 1000000U, 0xFFFFFFFFU}) {
        record.n = n;
        receive_reals(MSG_IO_INSTANT, "mad", record);
    }
    EXPECT_EQ(g_io_real.count, 3 + 64);
    EXPECT_EQ(lines_with("A record of \"mad\" states 65 channels, the 64 that it has are used"),
              1U);
    EXPECT_EQ(lines_with("states"), 1U);
    receive(reals_message("MSG_IO_INSTANT", {{"T1", 1}}, 1, 1000, 1, "sane"));
    EXPECT_EQ(lines_with("stated more"), 0U) << "another program's record ends nothing";
    record.n = 64;
    receive_reals(MSG_IO_AVG, "mad", record);
    EXPECT_EQ(lines_with("No more channels than there are from \"mad\", 3 records stated more"),
              1U);
}

TEST_F(IoLink, ABadCountEndsWithTheProgramThatSentIt) {
    NET_IO_MultiReal record = {};
    record.n = 65;
    receive_reals(MSG_IO_INSTANT, "mad", record);
    receive_terminate("mad");
    EXPECT_EQ(lines_with("1 records stated more"), 1U);
    receive_reals(MSG_IO_INSTANT, "madder", record);
    EXPECT_EQ(lines_with("A record of \"madder\" states 65 channels"), 1U);
}

TEST_F(IoLink, NamesWithoutATerminatorEndWithTheirField) {
    NET_IO_MultiReal record = {};
    memset(record.chans[0].name, 'x', sizeof record.chans[0].name);
    record.chans[0].val = 1;
    memset(record.chans[1].name, 'x', sizeof record.chans[1].name);
    record.chans[1].val = 2;
    record.n = 2;
    receive_reals(MSG_IO_INSTANT, "mad", record);
    EXPECT_EQ(g_io_real.count, 4);
    EXPECT_EQ(IO_lookup(std::string(31, 'x').c_str()), 2.0);
    EXPECT_EQ(IO_lookup(std::string(50, 'x').c_str()), 2.0);
    NET_IO_DigitalIn digitals = {};
    memset(digitals.info, 'y', sizeof digitals.info);
    digitals.val = 0x80000000U;
    server.send(MSG_IO_STATE_DIGITAL, "mad", &digitals, sizeof digitals, "NET_IO_DigitalIn", 1);
    deliver();
    EXPECT_EQ(g_io_digital.count, 3);
    EXPECT_TRUE(IO_lookup_digital(std::string(31, 'y').c_str()));
}

TEST_F(IoLink, ValuesThatAreNoNumbersAreKeptAsTheyAre) {
    constexpr double k_infinity = std::numeric_limits<double>::infinity();
    receive(reals_message("MSG_IO_INSTANT", {{"T1", std::nan("")}, {"T2", -k_infinity}}, 2,
                          std::nan(""), 1, "mad"));
    EXPECT_TRUE(std::isnan(IO_lookup("T1")));
    EXPECT_EQ(IO_lookup("T2"), -k_infinity);
}

TEST_F(IoLink, MessagesWithoutTheirRecordAreIgnored) {
    for (const char *name : {"MSG_IO_AVG", "MSG_IO_INSTANT", "MSG_IO_RUNNINGAVG"})
        receive(packed(1, name, "", "mad", "NET_IO_MultiReal"));
    receive(packed(1, "MSG_IO_STATE_DIGITAL", "", "mad", "NET_IO_DigitalIn"));
    EXPECT_EQ(g_io_real.count, 3);
    EXPECT_EQ(g_io_digital.count, 2);
}

TEST_F(IoLink, ARecordOfAnotherKindOrCutShortDoesNoHarm) {
    const std::string heartbeat = package("NET_SERVER_Heartbeat", {field("hb_idx", 6, u32(1))});
    const std::string whole = reals_message("MSG_IO_INSTANT", {{"T1", 1}}, 1, 1000, 1, "mad");
    std::string bytes =
        framed(packed(1, "MSG_IO_INSTANT", "", "mad", "NET_SERVER_Heartbeat", heartbeat));
    for (size_t cut = 100; cut < whole.size(); cut += 97)
        bytes += framed(whole.substr(0, cut));
    bytes += framed(reals_message("MSG_IO_INSTANT", {{"T2", 2}}, 1, 1000, 1, "sane"));
    server.send_bytes(Bytes(bytes.begin(), bytes.end()));
    EXPECT_TRUE(loop->run_until([this] {
        ZEBMSG_process_messages(&lnk, nullptr, nullptr);
        return IO_lookup("T2") == 2.0;
    }));
}

TEST_F(IoLink, AFloodOfNamesIsBoundedAndReportedAtBeginAndEnd) {
    NET_IO_MultiReal record = {};
    record.n = 64;
    int made = 0;
    while (made < zeb::io::k_table_limit + 64) {
        for (NET_IO_Real &channel : record.chans)
            snprintf(channel.name, sizeof channel.name, "n%d", made++);
        receive_reals(MSG_IO_INSTANT, "mad", record);
    }
    // Three built-in ones, 4093 of the 4160.
    EXPECT_EQ(g_io_real.count, zeb::io::k_table_limit);
    EXPECT_EQ(lines_with("More than 4096 reals are known, \"n4093\" and later ones are ignored"),
              1U);
    EXPECT_EQ(lines_with("More than"), 1U);
    receive(reals_message("MSG_IO_INSTANT", {{"n7", 7}}, 1, 1000, 1, "mad"));
    EXPECT_EQ(IO_lookup("n7"), 7.0) << "a known one is still kept up to date";
    receive_terminate("mad");
    EXPECT_EQ(g_io_real.count, 3);
    receive(reals_message("MSG_IO_INSTANT", {{"T1", 1}}, 1, 1000, 1, "ain"));
    EXPECT_EQ(IO_lookup("T1"), 1.0);
    EXPECT_EQ(lines_with("There is room for reals again, 67 were ignored"), 1U);
}

TEST_F(IoLink, AFloodOfDigitalsIsBounded) {
    NET_IO_DigitalIn record = {};
    for (int made = 0; made < zeb::io::k_table_limit + 32;) {
        for (NET_IO_DigitalInfo &info : record.info)
            snprintf(info.name, sizeof info.name, "n%d", made++);
        server.send(MSG_IO_STATE_DIGITAL, "mad", &record, sizeof record, "NET_IO_DigitalIn", 1);
        deliver();
    }
    EXPECT_EQ(g_io_digital.count, zeb::io::k_table_limit);
    EXPECT_EQ(lines_with("More than 4096 digitals are known"), 1U);
}

// ---- With the link's own thread ----

TEST_F(IoTables, ALinkWithItsOwnThreadSharesVariablesWithTheThreadThatProcessesMessages) {
    ScopedEnv no_server("ZEB2SERVER", nullptr);
    ScriptedServer server;
    ZEBMSG_link lnk = {};
    ZEBMSG_connect_params params = {"daemon", nullptr};
    ASSERT_TRUE(ZEBMSG_connect(&params, &lnk));
    ASSERT_TRUE(server.accept());
    server.handshake(1);
    ASSERT_TRUE(ZEBMSG_wait_connected(&lnk));
    IO_register_link(&lnk);
    const std::string frame =
        framed(reals_message("MSG_IO_INSTANT", {{"T1", 21.5}}, 1, 1000, 1, "ain"));
    server.send_bytes(Bytes(frame.begin(), frame.end()));
    EXPECT_TRUE(wait_until([&] {
        ZEBMSG_process_messages(&lnk, nullptr, nullptr);
        return IO_lookup("T1") == 21.5;
    }));
    IO_set(&lnk, "flow", 1.5);
    std::optional<ServerMessage> message;
    while ((message = server.wait_next()).has_value() && message->type != MSG_IO_SET_REAL)
        ;
    ASSERT_TRUE(message.has_value());
    EXPECT_EQ(message->as<NET_IO_Real>().val, 1.5);
    server.close_client();
    ZEBMSG_disconnect(&lnk);
}

} // namespace

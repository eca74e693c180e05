// What zebctl io makes of messages, tables and arguments.
#include "io_values.h"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>

#include <zeb2/libzeb2.h>

using namespace zebctl;

namespace {

ZEBMSG_proc_msg message_of(NETMSG_type type, const char *record_name, void *record) {
    return {
        NETPACK_find_msg_by_type(type), NETPACK_find_ds(record_name), 1, nullptr, nullptr, record};
}

std::string names_of(const std::vector<IoEvent> &events) {
    std::string names;
    for (const IoEvent &event : events)
        names += event.name + " ";
    return names;
}

TEST(ZebctlIo, RealsOfARecordAreEventsUpToItsCount) {
    NET_IO_MultiReal record = {};
    record.curtime = 1000.5;
    strcpy(record.chans[0].name, "T1");
    record.chans[0].val = 21.5;
    strcpy(record.chans[2].name, "T2");
    record.chans[2].val = MVC;
    strcpy(record.chans[3].name, "T3");
    record.n = 3;
    const auto events = io_events(message_of(MSG_IO_INSTANT, "NET_IO_MultiReal", &record));
    ASSERT_EQ(names_of(events), "T1 T2 ");
    EXPECT_STREQ(events[0].what, "value");
    EXPECT_EQ(events[0].value, 21.5);
    EXPECT_EQ(events[0].time, 1000.5);
    EXPECT_TRUE(events[1].value.is_null());
    EXPECT_STREQ(io_events(message_of(MSG_IO_AVG, "NET_IO_MultiReal", &record))[0].what, "average");
    EXPECT_STREQ(io_events(message_of(MSG_IO_RUNNINGAVG, "NET_IO_MultiReal", &record))[0].what,
                 "running");
}

TEST(ZebctlIo, ARecordThatIsMadeToHarmStopsAtItsEdge) {
    NET_IO_MultiReal record = {};
    memset(record.chans, 'x', sizeof record.chans);
    record.curtime = std::nan("");
    for (const unsigned n : {65U, 0x55555555U, 0xFFFFFFFFU}) {
        record.n = n;
        const auto events = io_events(message_of(MSG_IO_INSTANT, "NET_IO_MultiReal", &record));
        for (const IoEvent &event : events) {
            EXPECT_EQ(event.name, std::string(32, 'x'));
            EXPECT_EQ(event.time, -1.0);
        }
        EXPECT_TRUE(events.empty() || events.size() == 64);
    }
    NET_IO_DigitalOut digitals;
    memset(&digitals, 'y', sizeof digitals);
    digitals.val = digitals.mask = 0xFFFFFFFFU;
    const auto events = io_events(message_of(MSG_IO_SET_DIGITAL, "NET_IO_DigitalOut", &digitals));
    ASSERT_EQ(events.size(), 32U);
    EXPECT_EQ(events[31].name, std::string(32, 'y'));
}

TEST(ZebctlIo, DigitalStatesAreEventsAndRequestsThoseOfTheMask) {
    NET_IO_DigitalIn states = {};
    strcpy(states.info[0].name, "door");
    strcpy(states.info[31].name, "fan");
    states.val = 0x80000000U;
    auto events = io_events(message_of(MSG_IO_STATE_DIGITAL, "NET_IO_DigitalIn", &states));
    ASSERT_EQ(names_of(events), "door fan ");
    EXPECT_STREQ(events[0].what, "state");
    EXPECT_EQ(events[0].value, false);
    EXPECT_EQ(events[1].value, true);
    NET_IO_DigitalOut request = {};
    strcpy(request.info[0].name, "R1");
    strcpy(request.info[1].name, "R2");
    request.val = 3;
    request.mask = 0xFFFFFFFEU;
    events = io_events(message_of(MSG_IO_SET_DIGITAL, "NET_IO_DigitalOut", &request));
    ASSERT_EQ(names_of(events), "R2 ");
    EXPECT_STREQ(events[0].what, "set");
    EXPECT_EQ(events[0].value, true);
}

TEST(ZebctlIo, ARequestForARealIsAnEvent) {
    NET_IO_Real record = {};
    strcpy(record.name, "V1");
    record.val = 3;
    const auto events = io_events(message_of(MSG_IO_SET_REAL, "NET_IO_Real", &record));
    ASSERT_EQ(names_of(events), "V1 ");
    EXPECT_EQ(events[0].value, 3.0);
    EXPECT_EQ(events[0].time, -1.0);
}

TEST(ZebctlIo, OtherMessagesAndEmptyOnesAreNoEvents) {
    EXPECT_TRUE(io_events(message_of(MSG_IO_INSTANT, "NET_IO_MultiReal", nullptr)).empty());
    EXPECT_TRUE(io_events(ZEBMSG_proc_msg{}).empty());
    NET_SERVER_Heartbeat record = {};
    EXPECT_TRUE(
        io_events(message_of(MSG_SERVER_HEARTBEAT, "NET_SERVER_Heartbeat", &record)).empty());
}

TEST(ZebctlIo, RequestsAreNumbersOrWords) {
    EXPECT_EQ(parse_io_request("-1.5e3")->value, -1500.0);
    EXPECT_FALSE(parse_io_request("1")->digital);
    for (const char *text : {"true", "ON", "On"}) {
        EXPECT_TRUE(parse_io_request(text)->digital);
        EXPECT_TRUE(parse_io_request(text)->on);
    }
    for (const char *text : {"False", "off"}) {
        EXPECT_TRUE(parse_io_request(text)->digital);
        EXPECT_FALSE(parse_io_request(text)->on);
    }
    for (const char *text : {"", " 1", "1 ", "x", "1x", "nan", "inf", "-inf", "1e999", "yes"})
        EXPECT_FALSE(parse_io_request(text)) << text;
}

TEST(ZebctlIo, PublishedAreThoseThatSomebodyPublishes) {
    IO_init();
    EXPECT_TRUE(published_io().empty());
    EXPECT_EQ(find_io("one")->value, 1.0);
    EXPECT_EQ(find_io("TRUE")->value, true);
    EXPECT_TRUE(find_io("mvc")->value.is_null());
    EXPECT_FALSE(find_io("T1"));
    IO_var_real real = {"T1", 1, std::nan(""), MVC, "ain1"};
    LL_insert_tail(&g_io_real, &real, sizeof real);
    ASSERT_EQ(published_io().size(), 1U);
    EXPECT_EQ(published_io()[0].from, "ain1");
    EXPECT_EQ(io_text(published_io()[0].value), "1");
    EXPECT_EQ(io_text(published_io()[0].average), "NaN");
    EXPECT_EQ(io_text(published_io()[0].running), "-");
    IO_cleanup();
}

TEST(ZebctlIo, CaseDoesNotMatterInNamesAndPatterns) {
    EXPECT_TRUE(same_io_name("Flow", "fLOW"));
    EXPECT_FALSE(same_io_name("Flow", "Flow1"));
    EXPECT_TRUE(matches_io_name("t*", "T1"));
    EXPECT_TRUE(matches_io_name("T?", "t1"));
    EXPECT_FALSE(matches_io_name("T?", "T12"));
}

} // namespace

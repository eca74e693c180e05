#include "flow_record.h"

#include <cstring>
#include <gtest/gtest.h>

namespace {

NET_GENERICPID_Setpoint order(const std::string &name, bool manual, double output) {
    NET_GENERICPID_Setpoint record = {};
    strncpy(record.name, name.c_str(), sizeof record.name);
    record.manual = manual;
    record.output = output;
    return record;
}

} // namespace

// Records are packed: a plus makes a value of a field that need not be aligned.
TEST(FlowRecord, AReadingBecomesTheRecordOfAMeter) {
    const auto record = flow::to_instant({7.5, 811.25, 21.5, 55}, 1000.5);
    EXPECT_EQ(+record.time, 1000.5);
    EXPECT_EQ(+record.Q, 7.5);
    EXPECT_EQ(+record.P, 811.25);
    EXPECT_EQ(+record.T, 21.5);
    EXPECT_EQ(+record.volume, MVC);
}

TEST(FlowRecord, WhatWasNotAnsweredIsMissing) {
    const flow::Reading nothing;
    const auto meter = flow::to_instant(nothing, 1000);
    EXPECT_EQ(+meter.Q, MVC);
    EXPECT_EQ(+meter.P, MVC);
    EXPECT_EQ(+meter.T, MVC);
    const auto loop = flow::to_loop(nothing, {}, "flow", 1000);
    EXPECT_EQ(+loop.input, MVC);
    EXPECT_EQ(+loop.output, MVC);
    EXPECT_FALSE(loop.saturated);
}

TEST(FlowRecord, FlowAndValveAreALoopWhoseOutputIsHeld) {
    const auto record = flow::to_loop({7.5, 811.25, 21.5, 55}, {}, "flow", 1000.5);
    EXPECT_EQ(+record.time, 1000.5);
    EXPECT_STREQ(record.name, "flow");
    EXPECT_EQ(+record.input, 7.5);
    EXPECT_EQ(+record.output, 55);
    EXPECT_TRUE(record.manual);
    for (const double none : {record.setpoint, record.p, record.i, record.d})
        EXPECT_EQ(none, MVC);
}

TEST(FlowRecord, AValveAtItsEndSaturates) {
    for (const auto &[valve, saturated] : {std::pair(0.0, true), {0.01, false}, {100.0, true}})
        EXPECT_EQ(flow::to_loop({1, 1, 1, valve}, {}, "flow", 0).saturated != 0, saturated)
            << valve;
}

TEST(FlowRecord, TheSetpointTellsTheValveThatIsHeld) {
    const auto record = flow::to_setpoint({true, 55, MVC}, "flow");
    EXPECT_STREQ(record.name, "flow");
    EXPECT_TRUE(record.manual);
    EXPECT_EQ(+record.output, 55);
    EXPECT_EQ(+record.setpoint, MVC);
}

TEST(FlowRecord, TheStatusTellsStateAndIdentityCutToTheirFields) {
    const auto record =
        flow::to_status(flow::State::no_answer, {std::string(40, 'm'), "SIM-0001", "1.0"});
    EXPECT_EQ(record.state, 2);
    EXPECT_EQ(record.model, std::string(31, 'm'));
    EXPECT_STREQ(record.serial_number, "SIM-0001");
    EXPECT_STREQ(record.firmware, "1.0");
}

TEST(FlowRecord, AnOrderIsForTheLoopOfItsName) {
    EXPECT_TRUE(flow::is_for(order("flow", true, 50), "flow"));
    EXPECT_TRUE(flow::is_for(order("FLOW", true, 50), "flow"));
    EXPECT_FALSE(flow::is_for(order("flow2", true, 50), "flow"));
    EXPECT_FALSE(flow::is_for(order("", true, 50), "flow"));
    // The field is full and has no end.
    EXPECT_FALSE(flow::is_for(order(std::string(32, 'f'), true, 50), std::string(31, 'f')));
}

TEST(FlowRecord, AnOrderTakesWhatItsModeAsksFor) {
    auto record = order("flow", true, 50);
    record.setpoint = 8;
    EXPECT_EQ(flow::to_order(record).output, 50);
    EXPECT_EQ(flow::to_order(record).setpoint, MVC);
    record.manual = FALSE;
    EXPECT_EQ(flow::to_order(record).output, MVC);
    EXPECT_EQ(flow::to_order(record).setpoint, 8);
}

TEST(FlowRecord, ALoopThatRegulatesTellsItsSetpointAndTerms) {
    const auto record = flow::to_loop({7.5, 811, 21, 55}, {8, 1.5, 53, 0.5, false}, "flow", 0);
    EXPECT_FALSE(record.manual);
    EXPECT_EQ(+record.setpoint, 8);
    EXPECT_EQ(+record.p, 1.5);
    EXPECT_EQ(+record.i, 53);
    EXPECT_EQ(+record.d, 0.5);
}

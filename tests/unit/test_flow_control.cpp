#include "flow_control.h"

#include <cmath>
#include <gtest/gtest.h>
#include <memory>
#include <zeb2/conf.h>

using flow::Control;
using flow::Order;

namespace {

class FlowControl : public testing::Test {
  protected:
    FlowControl() {
        set("P", "2");
        set("I", "4");
    }
    ~FlowControl() override { CONF_free(root_); }
    void set(const char *key, const char *value) { CONF_set(root_, key, value); }

    CONF_node *root_ = CONF_alloc();
};

flow::Reading reading(double flow, double valve = 40) {
    return {flow, MVC, MVC, valve};
}
constexpr Order hold(double output) {
    return {true, output, MVC};
}
constexpr Order follow(double setpoint) {
    return {false, MVC, setpoint};
}

} // namespace

TEST_F(FlowControl, WithoutAnOrderTheValveIsLeftAlone) {
    Control control(root_);
    EXPECT_EQ(control.step(reading(5), 1), MVC);
    EXPECT_TRUE(control.terms().manual);
}

TEST_F(FlowControl, AHeldValveDoesNotFollowTheFlow) {
    Control control(root_);
    control.obey(hold(40));
    EXPECT_EQ(control.step(reading(5), 1), 40);
    EXPECT_EQ(control.step(reading(MVC), 1), 40);
    EXPECT_FALSE(control.is_saturated());
}

TEST_F(FlowControl, TheFirstStepBeginsWhereTheValveIs) {
    Control control(root_);
    control.obey(follow(8));
    EXPECT_EQ(control.step(reading(7), 1), 42);   // 2 (40 / 2 + 1)
    EXPECT_EQ(control.step(reading(7), 1), 42.5); // the error of before: 2 (20 + 1 / 4 + 1)
    EXPECT_EQ(control.terms().p, 2);
    EXPECT_EQ(control.terms().i, 40.5);
    EXPECT_EQ(control.terms().d, 0);
}

TEST_F(FlowControl, AnotherSetPointKeepsTheIntegral) {
    Control control(root_);
    control.obey(follow(8));
    control.step(reading(8), 1);
    control.obey(follow(9));
    EXPECT_EQ(control.step(reading(8, 10), 1), 42);
}

TEST_F(FlowControl, WithoutAFlowThereIsNoStep) {
    Control control(root_);
    control.obey(follow(8));
    EXPECT_EQ(control.step(reading(MVC), 1), MVC);
    EXPECT_EQ(control.step(reading(8), 1), 40);
}

TEST_F(FlowControl, FlowAndOutputAreCalibrated) {
    set("I", "0");
    set("cal;PV", "1;2");
    set("cal;Out", "10;1");
    Control control(root_);
    EXPECT_EQ(control.calibrated(3), 7);
    control.obey(follow(8));
    EXPECT_EQ(control.step(reading(3), 1), 12); // 10 + 2 (8 - 7)
}

TEST_F(FlowControl, TheOutputStaysWithinTheValvesRange) {
    Control control(root_);
    control.obey(follow(8));
    EXPECT_EQ(control.step(reading(7, 100), 1), 100);
    EXPECT_TRUE(control.is_saturated());
    EXPECT_EQ(control.step(reading(100), 1), 0);
    EXPECT_TRUE(control.is_saturated());
}

TEST_F(FlowControl, AValveAtItsEndThatReachesTheSetPointIsNotSaturated) {
    Control control(root_);
    control.obey(follow(0));
    EXPECT_EQ(control.step(reading(0.05, 0), 1), 0);
    EXPECT_FALSE(control.is_saturated());
}

TEST_F(FlowControl, OrdersAreWithinTheirRanges) {
    for (const double valve : {0.0, 50.0, 100.0})
        EXPECT_TRUE(flow::is_possible(hold(valve), 20)) << valve;
    for (const double valve : {-0.01, 100.01, MVC, std::nan(""), HUGE_VAL})
        EXPECT_FALSE(flow::is_possible(hold(valve), 20)) << valve;
    for (const double setpoint : {0.0, 20.0})
        EXPECT_TRUE(flow::is_possible(follow(setpoint), 20)) << setpoint;
    for (const double setpoint : {-0.01, 20.01, MVC, std::nan(""), HUGE_VAL})
        EXPECT_FALSE(flow::is_possible(follow(setpoint), 20)) << setpoint;
}

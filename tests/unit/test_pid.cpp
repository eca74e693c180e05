#include "pid.h"

#include "support.h"
#include "util.h"

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

using testing::HasSubstr;
using zeb::test::StderrCapture;

namespace {

using Settings = std::vector<std::pair<const char *, const char *>>;

// A controller made from keys and values.
struct Controller : PID_controller {
    explicit Controller(const Settings &settings = {}) {
        CONF_node *local = CONF_alloc();
        for (const auto &[path, value] : settings)
            CONF_set(local, path, value);
        PID_control_build(this, local);
        CONF_free(local);
    }
    ~Controller() {
        PHYSUNITS_freepoly(&pv_cal);
        PHYSUNITS_freepoly(&out_cal);
    }
    double step(double pv, double sp, double dT) { return PID_control_process(this, pv, sp, dT); }
    Controller(const Controller &) = delete;
    Controller &operator=(const Controller &) = delete;
};

bool inverse_for(const char *value) {
    return Controller(Settings{{"Inverse", value}}).inverse != FALSE;
}

} // namespace

TEST(Pid, NoIntegralTimeResetsTheIntegralAtEveryStep) {
    Controller pid({{"P", "1"}, {"I", "0"}});
    pid.i_val = 5.0;
    EXPECT_EQ(pid.step(2.0, 5.0, 1.0), 3.0);
    EXPECT_EQ(pid.i_val, 0.0);
    pid.i_val = 5.0;
    pid.step(2.0, 5.0, 1.0);
    EXPECT_EQ(pid.i_val, 0.0);
}

TEST(Pid, FirstStepAfterResetHasNoIntegral) {
    Controller pid({{"P", "1"}, {"I", "2"}});
    EXPECT_EQ(pid.step(1.0, 5.0, 1.0), 4.0);
    EXPECT_EQ(pid.step(1.0, 5.0, 1.0), 6.0); // the 4 of before, times 1/2
    PID_control_reset(&pid);
    EXPECT_EQ(pid.step(1.0, 5.0, 1.0), 4.0);
    EXPECT_EQ(pid.i_val, 0.0);
}

TEST(Pid, NoTimeStepGivesNoDerivativeAndNoIntegralChange) {
    Controller pid({{"P", "1"}, {"I", "2"}, {"D", "8"}});
    pid.step(1.0, 5.0, 1.0);
    pid.step(1.0, 5.0, 1.0);
    EXPECT_EQ(pid.i_val, 2.0);
    EXPECT_EQ(pid.step(2.0, 5.0, 0.0), 5.0);
    EXPECT_EQ(pid.i_val, 2.0);
    EXPECT_EQ(pid.d_val, 0.0);
}

TEST(Pid, WithoutLimitsNothingIsClamped) {
    Controller pid({{"P", "1000"}, {"I", "0.001"}, {"D", "1000"}});
    // e = 1e6; d = 1e6 * (1000 / 1).
    EXPECT_EQ(pid.step(0.0, 1e6, 1.0), 1000.0 * (1e6 + 1e9));
    pid.step(0.0, 1e6, 1.0);
    EXPECT_EQ(pid.i_val, 1e6 * (1.0 / 0.001));
}

TEST(Pid, LimitOfTheMissingValueIsUnlimited) {
    Controller pid({{"P", "1"}, {"P;min", "9.999e-99"}, {"P;max", "9.999e-99"}});
    EXPECT_EQ(pid.step(8.0, 5.0, 1.0), -3.0);
    EXPECT_EQ(pid.step(2.0, 5.0, 1.0), 3.0);
    // A limit that is not finite reads as the missing value.
    Controller infinite({{"P", "1"}, {"P;max", "inf"}, {"P;min", "nan"}});
    EXPECT_EQ(infinite.P_max, MVC);
    EXPECT_EQ(infinite.P_min, MVC);
    EXPECT_EQ(infinite.step(8.0, 5.0, 1.0), -3.0);
}

TEST(Pid, InverseWithValueAboveSetPointGivesAPositiveError) {
    Controller pid({{"P", "2"}, {"Inverse", "TRUE"}});
    EXPECT_EQ(pid.step(8.0, 5.0, 1.0), 6.0);
    EXPECT_EQ(pid.e1, 3.0);
}

TEST(Pid, InitMakesAnUnlimitedControllerAtRest) {
    PID_controller pid;
    memset(&pid, 0x5a, sizeof pid);
    const FTIME before = UTIL_ftime();
    PID_control_init(&pid);
    EXPECT_GE(pid.last_itter, before);
    EXPECT_LE(pid.last_itter, UTIL_ftime());
    EXPECT_EQ(pid.inverse, FALSE);
    for (const double zero : {pid.params.p, pid.params.i, pid.params.d, pid.i_val, pid.e1})
        EXPECT_EQ(zero, 0.0);
    for (const double limit : {pid.P_min, pid.P_max, pid.I_min, pid.I_max, pid.D_min, pid.D_max})
        EXPECT_EQ(limit, MVC);
    EXPECT_EQ(pid.pv_cal.n_coeff, 0u);
    EXPECT_EQ(pid.out_cal.coeff, nullptr);
    EXPECT_EQ(PID_control_process(&pid, 3.0, 5.0, 1.0), 0.0);
}

TEST(Pid, ResetKeepsTheDerivative) {
    Controller pid({{"P", "1"}, {"D", "2"}});
    pid.step(1.0, 5.0, 1.0);
    EXPECT_EQ(pid.d_val, 8.0);
    pid.last_itter = 0.0;
    PID_control_reset(&pid);
    EXPECT_EQ(pid.d_val, 8.0);
    EXPECT_EQ(pid.e1, 0.0);
    EXPECT_GT(pid.last_itter, 0.0);
}

TEST(Pid, StepsByHand) {
    Controller pid({{"P", "0.5"}, {"I", "4"}, {"D", "1"}});
    // e 8; d (8 - 0) * 1/2 = 4; out 0.5 * (0 + 8 + 4).
    EXPECT_EQ(pid.step(2.0, 10.0, 2.0), 6.0);
    // e 4; i 0 + 8 * 2/4 = 4; d (4 - 8) * 1/2 = -2; out 0.5 * (4 + 4 - 2).
    EXPECT_EQ(pid.step(6.0, 10.0, 2.0), 3.0);
    EXPECT_EQ(pid.i_val, 4.0);
    EXPECT_EQ(pid.d_val, -2.0);
    EXPECT_EQ(pid.e1, 4.0);
    // e -2; i 4 + 4 * 1/4 = 5; d (-2 - 4) * 1/1 = -6; out 0.5 * (5 - 2 - 6).
    EXPECT_EQ(pid.step(12.0, 10.0, 1.0), -1.5);
}

TEST(Pid, LimitsApplyToIntegralDerivativeAndOutput) {
    Controller pid({{"P", "1"},
                    {"P;min", "-1"},
                    {"P;max", "9"},
                    {"I", "1"},
                    {"I;min", "-2"},
                    {"I;max", "3"},
                    {"D", "1"},
                    {"D;min", "-4"},
                    {"D;max", "5"}});
    // e 8, d 8 limited to 5, out 13 limited to 9.
    EXPECT_EQ(pid.step(2.0, 10.0, 1.0), 9.0);
    EXPECT_EQ(pid.d_val, 5.0);
    // i 8 limited to 3; e 1, d -7 limited to -4; out 0.
    EXPECT_EQ(pid.step(9.0, 10.0, 1.0), 0.0);
    EXPECT_EQ(pid.i_val, 3.0);
    EXPECT_EQ(pid.d_val, -4.0);
    // i 3 + 1 limited to 3; e -20, d -21 limited to -4; out -21 limited to -1.
    EXPECT_EQ(pid.step(30.0, 10.0, 1.0), -1.0);
    // i 3 - 20 limited to -2; e 0, d 20 limited to 5; out 3.
    EXPECT_EQ(pid.step(10.0, 10.0, 1.0), 3.0);
    EXPECT_EQ(pid.i_val, -2.0);
}

TEST(Pid, IntegralIsLimitedEvenWithoutAnIntegralTime) {
    Controller pid({{"P", "1"}, {"I;min", "2"}});
    EXPECT_EQ(pid.step(5.0, 5.0, 1.0), 2.0);
}

TEST(Pid, TermsAreSummedFromTheIntegralOn) {
    Controller pid({{"P", "1"}, {"I", "1"}, {"D", "-1"}});
    pid.i_val = 1.0;
    // 1 + 1e16 rounds to 1e16, minus 1e16 leaves nothing of the 1.
    EXPECT_EQ(pid.step(0.0, 1e16, 1.0), 0.0);
    EXPECT_EQ(pid.i_val, 1.0);
}

TEST(Pid, CalibrationsApplyFirstAndLast) {
    Controller pid({{"P", "1"}, {"P;max", "3"}, {"cal;PV", "1,2"}, {"cal;Out", "10;100"}});
    // pv 1 + 2*2 = 5; e 7 - 5 = 2; out 10 + 100*2.
    EXPECT_EQ(pid.step(2.0, 7.0, 1.0), 210.0);
    // The output is limited before it is calibrated: e 12, limited to 3.
    EXPECT_EQ(pid.step(2.0, 17.0, 1.0), 310.0);
}

TEST(Pid, BadCalibrationTextsReadAsZeros) {
    Controller pid({{"P", "1"}, {"cal;PV", "volts,2"}, {"cal;Out", ";"}});
    EXPECT_EQ(pid.pv_cal.n_coeff, 2u);
    EXPECT_EQ(pid.step(2.0, 7.0, 1.0), 0.0); // an output polynomial of zeros
    EXPECT_EQ(pid.e1, 3.0);
}

TEST(Pid, MissingProcessValueIsANumberLikeAnyOther) {
    Controller pid({{"P", "1"}, {"cal;PV", "1,2"}});
    EXPECT_EQ(pid.step(MVC, 7.0, 1.0), 7.0 - MVC);
}

TEST(Pid, NodeWithoutValueStillHasItsLimits) {
    Controller pid({{"P", "2"}, {"I;min", "-3"}, {"I;max", "4"}, {"D;max", "5"}});
    EXPECT_EQ(pid.params.i, 0.0);
    EXPECT_EQ(pid.params.d, 0.0);
    EXPECT_EQ(pid.I_min, -3.0);
    EXPECT_EQ(pid.I_max, 4.0);
    EXPECT_EQ(pid.D_min, MVC);
    EXPECT_EQ(pid.D_max, 5.0);
}

TEST(Pid, InverseReadsLettersAndNumbers) {
    for (const char *text : {"TRUE", "true", "T", "t", "tomorrow", "1", "-1", "2x", " 1"})
        EXPECT_TRUE(inverse_for(text)) << text;
    for (const char *text : {"FALSE", "no", "yes", "0", "0.5", "on", "x1"})
        EXPECT_FALSE(inverse_for(text)) << text;
    EXPECT_EQ(Controller().inverse, FALSE);
}

TEST(Pid, ConfigurationMayBeAbsent) {
    PID_controller pid;
    PID_control_build(&pid, nullptr);
    EXPECT_EQ(pid.params.p, 0.0);
    EXPECT_EQ(pid.P_max, MVC);
    EXPECT_EQ(PID_control_process(&pid, 1.0, 2.0, 1.0), 0.0);
}

TEST(Pid, MaximumWinsOverAGreaterMinimum) {
    Controller pid({{"P", "1"}, {"P;min", "5"}, {"P;max", "3"}});
    EXPECT_EQ(pid.step(0.0, 1.0, 1.0), 3.0);
}

TEST(Pid, AutomaticStepTakesTheTimeSinceTheLast) {
    Controller pid({{"P", "1"}, {"I", "1"}});
    pid.e1 = 2.0;
    pid.last_itter = UTIL_ftime() - 100.0;
    const FTIME last = pid.last_itter;
    const double out = PID_control_process_auto(&pid, 1.0, 4.0);
    const double dT = pid.last_itter - last;
    EXPECT_GE(dT, 100.0);
    EXPECT_LE(pid.last_itter, UTIL_ftime());
    EXPECT_EQ(out, 2.0 * dT + 3.0);
}

TEST(Pid, NullControllerIsReported) {
    StderrCapture errors;
    PID_control_init(nullptr);
    PID_control_reset(nullptr);
    PID_control_build(nullptr, nullptr);
    EXPECT_EQ(PID_control_process(nullptr, 1.0, 2.0, 1.0), MVC);
    EXPECT_EQ(PID_control_process_auto(nullptr, 1.0, 2.0), MVC);
    EXPECT_THAT(errors.finish(), HasSubstr("assertion failed (pid.cpp:"));
}

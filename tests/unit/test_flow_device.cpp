#include "flow_device.h"

#include <cmath>
#include <gtest/gtest.h>
#include <vector>

namespace {

using flow::Device;

flow::Device::Settings quiet() {
    Device::Settings settings;
    settings.noise = 0;
    return settings;
}

std::vector<std::string> answers(Device &device, const std::string &bytes) {
    std::vector<std::string> lines;
    device.receive(bytes, [&](const std::string &line) { lines.push_back(line); });
    return lines;
}

std::string answer(Device &device, const std::string &bytes) {
    const auto lines = answers(device, bytes);
    return lines.size() == 1 ? lines[0] : "";
}

double flow_of(Device &device) {
    const auto frame = flow::parse(answer(device, ":01F*E1\r"));
    return frame ? *flow::to_number(frame->value) : -1;
}

} // namespace

TEST(FlowDevice, AnswersEachQuestionOnItsOwnLine) {
    Device device(quiet());
    EXPECT_EQ(answers(device, ":01F*E1\r:01V*F1\r"),
              (std::vector<std::string>{">01F0.000*D3\r", ">01V0.00*B3\r"}));
}

TEST(FlowDevice, PutsAQuestionTogetherFromItsPieces) {
    Device device(quiet());
    EXPECT_TRUE(answers(device, ":01").empty());
    EXPECT_TRUE(answers(device, "F*E1").empty());
    EXPECT_EQ(answer(device, "\r"), ">01F0.000*D3\r");
}

TEST(FlowDevice, SetsItsValveAndRepeatsTheValue) {
    Device device(quiet());
    EXPECT_EQ(answer(device, ":01S100*7F\r"), ">01S100.00*11\r");
}

TEST(FlowDevice, RefusesWhatItCannotDo) {
    Device device(quiet());
    EXPECT_EQ(answer(device, ":01X*F3\r"), "!01X1*0B\r");
    EXPECT_EQ(answer(device, ":01Sabc*14\r"), "!01S2*07\r");
    EXPECT_EQ(answer(device, ":01S*EE\r"), "!01S2*07\r");
    EXPECT_EQ(answer(device, ":01S101*80\r"), "!01S3*08\r");
    EXPECT_EQ(answer(device, ":01S-0.01*DA\r"), "!01S3*08\r");
    EXPECT_EQ(answer(device, ":01V*F1\r"), ">01V0.00*B3\r");
}

TEST(FlowDevice, IsSilentToOthersAndToDamagedQuestions) {
    Device device(quiet());
    EXPECT_TRUE(answers(device, ":02F*E2\r").empty());
    EXPECT_TRUE(answers(device, ":01F*E2\r").empty());
    EXPECT_TRUE(answers(device, ">01F0.000*D3\r").empty());
    EXPECT_TRUE(answers(device, std::string(100000, 'x') + "\r").empty());
    EXPECT_EQ(answer(device, ":01F*E1\r"), ">01F0.000*D3\r");
}

TEST(FlowDevice, IdentifiesItselfInSeveralLines) {
    Device device(quiet());
    std::string all;
    for (const std::string &line : answers(device, ":01I*E4\r"))
        all += line;
    const flow::Identity identity = flow::parse_identity(all, 1);
    EXPECT_EQ(identity.model, "Simulated flow controller");
    EXPECT_EQ(identity.serial_number, "SIM-0001");
    EXPECT_EQ(identity.firmware, "1.0");
}

// 20 (0.35 x + 0.65 x^2): at 50 % 20 (0.175 + 0.1625) = 6.75.
TEST(FlowDevice, TheFlowRisesMoreThanLinearlyWithTheValve) {
    EXPECT_DOUBLE_EQ(Device::flow_at(0), 0);
    EXPECT_DOUBLE_EQ(Device::flow_at(50), 6.75);
    EXPECT_DOUBLE_EQ(Device::flow_at(100), 20);
}

TEST(FlowDevice, TheFlowFollowsTheValveWithALagOfFirstOrder) {
    Device device(quiet());
    answers(device, ":01S100*7F\r");
    EXPECT_EQ(flow_of(device), 0);
    device.advance(2);
    EXPECT_NEAR(flow_of(device), 20 * (1 - std::exp(-1.0)), 0.001);
    device.advance(1);
    device.advance(1);
    EXPECT_NEAR(flow_of(device), 20 * (1 - std::exp(-2.0)), 0.001);
    device.advance(-3600); // a clock that was set back
    EXPECT_NEAR(flow_of(device), 20 * (1 - std::exp(-2.0)), 0.001);
}

TEST(FlowDevice, ThePressureFallsWithTheFlow) {
    Device::Settings settings = quiet();
    settings.valve = 100;
    Device device(settings);
    EXPECT_EQ(answer(device, ":01P*EB\r"), ">01P780.000*4C\r"); // 830 - 2.5 * 20
    EXPECT_EQ(answer(device, ":01T*EF\r"), ">01T21.000*14\r");
}

TEST(FlowDevice, TheNoiseIsTheSameForTheSameSeedOnly) {
    Device::Settings settings;
    settings.valve = 50;
    Device one(settings), same(settings);
    settings.seed = 2;
    Device other(settings);
    double sum = 0;
    int differing = 0;
    for (int i = 0; i < 1000; ++i) {
        const double flow = flow_of(one);
        EXPECT_EQ(flow, flow_of(same));
        differing += flow != flow_of(other);
        sum += flow;
    }
    EXPECT_GT(differing, 500);
    EXPECT_NEAR(sum / 1000, 6.75, 0.002); // six standard deviations of the mean
}

TEST(FlowDevice, FallsSilentAfterSoManyAnswers) {
    Device::Settings settings = quiet();
    settings.mute_after = 2;
    Device device(settings);
    EXPECT_EQ(answers(device, ":01F*E1\r:01F*E1\r:01F*E1\r").size(), 2u);
    EXPECT_TRUE(answers(device, ":01F*E1\r").empty());
}

TEST(FlowDevice, DamagesEachNthAnswer) {
    Device::Settings settings = quiet();
    settings.wrong_checksum_every = 3;
    Device device(settings);
    for (int i = 1; i <= 9; ++i)
        EXPECT_EQ(flow::parse(answer(device, ":01F*E1\r")).has_value(), i % 3 != 0) << i;
}

#include "flow_protocol.h"

#include <gtest/gtest.h>

namespace {

using flow::Frame;
using flow::Verdict;

const Frame k_flow_question = {flow::k_question, 1, flow::k_read_flow, ""};

Verdict verdict_on(const std::string &line) {
    std::string value;
    return flow::check_answer(line, k_flow_question, value);
}

} // namespace

// The checksum: ':' 58 + '0' 48 + '1' 49 + 'F' 70 = 225 = E1.
TEST(FlowProtocol, WritesAQuestionWithItsChecksumAndACarriageReturn) {
    EXPECT_EQ(flow::to_line(k_flow_question), ":01F*E1\r");
}

TEST(FlowProtocol, WritesAValueAndAnAddressOfTwoDigits) {
    EXPECT_EQ(flow::to_line({flow::k_question, 1, flow::k_set_valve, "55.00"}), ":01S55.00*E6\r");
    EXPECT_EQ(flow::to_line({flow::k_question, 99, flow::k_read_valve, ""}), ":99V*02\r");
}

TEST(FlowProtocol, ReadsALineWithAndWithoutItsEnd) {
    for (const char *line : {">01F7.503*E2", ">01F7.503*E2\r"}) {
        const auto frame = flow::parse(line);
        ASSERT_TRUE(frame) << line;
        EXPECT_EQ(frame->kind, flow::k_answer);
        EXPECT_EQ(frame->address, 1);
        EXPECT_EQ(frame->command, flow::k_read_flow);
        EXPECT_EQ(frame->value, "7.503");
    }
}

TEST(FlowProtocol, RefusesEveryCutOfALine) {
    const std::string line = ">01F7.503*E2\r";
    for (size_t length = 0; length < line.size() - 1; ++length)
        EXPECT_FALSE(flow::parse(line.substr(0, length))) << length;
}

TEST(FlowProtocol, RefusesEveryChangedCharacter) {
    const std::string line = ">01F7.503*E2";
    for (size_t i = 0; i < line.size(); ++i)
        for (const char other : {'\0', '*', '7', 'x', '\xff'}) {
            std::string changed = line;
            changed[i] = other;
            EXPECT_TRUE(changed == line || !flow::parse(changed)) << i;
        }
}

TEST(FlowProtocol, RefusesAWrongKindAddressOrCharacterWhoseChecksumIsRight) {
    EXPECT_FALSE(flow::parse("?01F*E6"));   // '?' is ':' + 5
    EXPECT_FALSE(flow::parse(":0xF*28"));   // 'x' is '1' + 71
    EXPECT_FALSE(flow::parse(":01F\n*EB")); // 10 more
}

TEST(FlowProtocol, RefusesALineThatIsTooLong) {
    const std::string longest(flow::k_max_line - 7, '0');
    const Frame frame = {flow::k_answer, 1, flow::k_read_flow, longest};
    EXPECT_TRUE(flow::parse(flow::to_line(frame)));
    const Frame longer = {flow::k_answer, 1, flow::k_read_flow, longest + "0"};
    EXPECT_FALSE(flow::parse(flow::to_line(longer)));
}

TEST(FlowProtocol, AnAnswerToTheQuestionGivesItsValue) {
    std::string value;
    EXPECT_EQ(flow::check_answer(">01F7.503*E2\r", k_flow_question, value), Verdict::answered);
    EXPECT_EQ(value, "7.503");
}

TEST(FlowProtocol, ARefusalGivesItsReason) {
    std::string value;
    const Frame question = {flow::k_question, 1, flow::k_set_valve, "101"};
    EXPECT_EQ(flow::check_answer("!01S3*08\r", question, value), Verdict::refused);
    EXPECT_EQ(value, flow::k_out_of_range);
}

TEST(FlowProtocol, AnAnswerToSomethingElseIsStray) {
    EXPECT_EQ(verdict_on(">01P811.250*4E\r"), Verdict::stray); // another command
    EXPECT_EQ(verdict_on(":01F*E1\r"), Verdict::stray);        // the question itself, an echo
    const Frame to_another = {flow::k_question, 2, flow::k_read_flow, ""};
    std::string value;
    EXPECT_EQ(flow::check_answer(">01F7.503*E2\r", to_another, value), Verdict::stray);
}

TEST(FlowProtocol, ADamagedAnswerIsDamaged) {
    EXPECT_EQ(verdict_on(">01F7.503*E3\r"), Verdict::damaged);
    EXPECT_EQ(verdict_on("\r"), Verdict::damaged);
    EXPECT_EQ(verdict_on("\xff\x00garbage\r"), Verdict::damaged);
}

TEST(FlowProtocol, ANumberIsAWholeTextAndFinite) {
    EXPECT_EQ(flow::to_number("-7.5"), -7.5);
    EXPECT_EQ(flow::to_number("1e2"), 100.0);
    for (const char *text : {"", "x", "1x", " 1", "1 ", "inf", "nan", "1e999", "0x10"})
        EXPECT_FALSE(flow::to_number(text)) << text;
}

TEST(FlowProtocol, AnIdentityIsPutTogetherFromItsLines) {
    const flow::Identity identity =
        flow::parse_identity(">01IMODEL=Pump*38\r>01ISERIAL=7*1C\r>01IFIRMWARE=2.1*13\r", 1);
    EXPECT_EQ(identity.model, "Pump");
    EXPECT_EQ(identity.serial_number, "7");
    EXPECT_EQ(identity.firmware, "2.1");
}

TEST(FlowProtocol, AnIdentitySkipsWhatIsDamagedUnknownOrStray) {
    const flow::Identity identity = flow::parse_identity(
        "2.1*13\r>01IMODEL=Pump*39\r>01ICOLOUR=red*34\r>01P811.250*4E\r\r>01ISERIAL=7*1C", 1);
    EXPECT_EQ(identity.model, "");
    EXPECT_EQ(identity.serial_number, "7");
    EXPECT_EQ(identity.firmware, "");
    EXPECT_EQ(flow::parse_identity("", 1).model, "");
}

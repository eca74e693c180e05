#include "zebmsgd/wire.h"

#include "support.h"
#include "zebmsgd_support.h"

#include <gtest/gtest.h>

using namespace zebmsgd;
using namespace zebmsgd_test;

namespace {

std::string text_of(const zeb::test::Bytes &bytes) {
    return {bytes.begin(), bytes.end()};
}
std::string text_of(const Frame &frame) {
    return {frame.data(), frame.size()};
}

TEST(Wire, ReadsTheHeaderOfAMessageAndLeavesThePackageAlone) {
    const std::string payload = text_of(zeb::test::from_hex(
        "03 00 00 00  0c 00 \"MSG_TEST_ONE\"  03 00 \"dst\"  03 00 \"src\"  01 00 \"R\"  de ad"));
    const auto message = parse_message(payload);
    ASSERT_TRUE(message);
    EXPECT_EQ(message->flags, 3u);
    EXPECT_EQ(message->name, "MSG_TEST_ONE");
    EXPECT_EQ(message->destination, "dst");
    EXPECT_EQ(message->source, "src");
    EXPECT_EQ(message->record, "R");
    EXPECT_EQ(message->rest, "\xde\xad");
}

TEST(Wire, AMessageCutAnywhereInItsHeaderIsRefused) {
    const std::string payload = packed(1, "MSG_TEST_ONE", "dst", "src", "R");
    ASSERT_TRUE(parse_message(payload));
    for (size_t length = 0; length < payload.size(); ++length)
        EXPECT_FALSE(parse_message(payload.substr(0, length))) << length;
}

TEST(Wire, AMessageWithoutANameIsRefused) {
    EXPECT_FALSE(parse_message(packed(1, "")));
}

TEST(Wire, ALengthBeyondTheMessageIsRefused) {
    EXPECT_FALSE(parse_message(std::string("\0\0\0\0\xff\xff", 6) + "MSG"));
}

TEST(Wire, ARelayedMessageDiffersInItsSourceNameOnly) {
    const std::string payload = packed(0x80000001, "MSG_X", "d", "liar", "Rec", "package+trailer");
    const Frame frame = frame_message(*parse_message(payload), "cpc1");
    EXPECT_EQ(text_of(frame),
              framed(packed(0x80000001, "MSG_X", "d", "cpc1", "Rec", "package+trailer")));
}

TEST(Wire, AMessageThatItsSourceNameMakesTooLongIsNotFramed) {
    const std::string payload = packed(1, "M", "", "", "", std::string(0xFFFFE - 13, 'x'));
    ASSERT_EQ(payload.size(), 0xFFFFEu);
    EXPECT_TRUE(frame_message(*parse_message(payload), ""));
    EXPECT_FALSE(frame_message(*parse_message(payload), "n"));
}

} // namespace

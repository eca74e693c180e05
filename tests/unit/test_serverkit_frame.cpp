#include "serverkit/frame.h"

#include "support.h"

#include <gtest/gtest.h>
#include <string>

using serverkit::Frame;

namespace {

std::string text_of(const zeb::test::Bytes &bytes) {
    return {bytes.begin(), bytes.end()};
}
std::string text_of(const Frame &frame) {
    return {frame.data(), frame.size()};
}

TEST(Frame, AFrameIsTheHeaderAndThePayload) {
    EXPECT_EQ(text_of(Frame::of_payload("abc")),
              text_of(zeb::test::from_hex("32 42 45 5a 01 01 03 00 00 00 \"abc\"")));
}

TEST(Frame, AnEmptyPayloadMakesAFrameOfTenBytes) {
    EXPECT_EQ(Frame::of_payload("").size(), 10u);
}

TEST(Frame, APayloadOfTheLimitIsNotFramed) {
    EXPECT_TRUE(Frame::of_payload(std::string(0xFFFFE, 'x')));
    EXPECT_FALSE(Frame::of_payload(std::string(0xFFFFF, 'x')));
}

} // namespace

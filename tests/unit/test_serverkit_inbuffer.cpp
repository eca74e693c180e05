#include "serverkit/inbuffer.h"

#include "packets.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>

using zeb::test::framed;
using zeb::test::u32;
using serverkit::InBuffer;

namespace {

// Collects payloads.
struct Collector {
    std::vector<std::string> payloads;
    InBuffer::Sink sink = [this](std::string_view payload) {
        payloads.emplace_back(payload);
        return true;
    };
};

TEST(InBuffer, APacketSplitAtEveryByteBoundaryIsHandedOutOnceIntact) {
    const std::string bytes = framed("hello, station");
    for (size_t cut = 0; cut <= bytes.size(); ++cut) {
        InBuffer buffer;
        Collector got;
        EXPECT_TRUE(buffer.accept(bytes.substr(0, cut), got.sink));
        EXPECT_TRUE(buffer.accept(bytes.substr(cut), got.sink));
        EXPECT_EQ(got.payloads, std::vector<std::string>{"hello, station"}) << cut;
        EXPECT_EQ(buffer.pending(), 0u);
    }
}

TEST(InBuffer, PacketsByteByByteAreHandedOutInOrder) {
    InBuffer buffer;
    Collector got;
    for (const char c : framed("one") + framed("") + framed("three"))
        EXPECT_TRUE(buffer.accept({&c, 1}, got.sink));
    EXPECT_EQ(got.payloads, (std::vector<std::string>{"one", "", "three"}));
    EXPECT_EQ(buffer.garbage(), 0u);
}

TEST(InBuffer, ManyPacketsAtOnceAndAPieceOfTheNext) {
    InBuffer buffer;
    Collector got;
    const std::string last = framed("last");
    buffer.accept(framed("a") + framed("b") + last.substr(0, 12), got.sink);
    EXPECT_EQ(got.payloads, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(buffer.pending(), 12u);
    buffer.accept(last.substr(12) + framed("more"), got.sink);
    EXPECT_EQ(got.payloads, (std::vector<std::string>{"a", "b", "last", "more"}));
}

TEST(InBuffer, GarbageBeforeAPacketIsSkippedAndCounted) {
    for (const size_t cut : {0u, 1u, 5u, 9u, 12u, 15u}) {
        InBuffer buffer;
        Collector got;
        const std::string bytes = "GET 2BE2BEZ\x01/" + framed("x");
        buffer.accept(bytes.substr(0, cut), got.sink);
        buffer.accept(bytes.substr(cut), got.sink);
        EXPECT_EQ(got.payloads, std::vector<std::string>{"x"}) << cut;
        EXPECT_EQ(buffer.garbage(), 13u) << cut;
    }
}

TEST(InBuffer, AHeaderOfTheLimitIsSkippedAndTheNextPacketHandedOut) {
    const std::string lying = std::string("2BEZ\x01\x01", 6) + u32(0xFFFFF);
    for (size_t cut = 0; cut <= lying.size() + 10; ++cut) {
        InBuffer buffer;
        Collector got;
        const std::string bytes = lying + framed("x");
        buffer.accept(bytes.substr(0, cut), got.sink);
        buffer.accept(bytes.substr(cut), got.sink);
        EXPECT_EQ(got.payloads, std::vector<std::string>{"x"}) << cut;
        EXPECT_EQ(buffer.garbage(), lying.size()) << cut;
    }
}

TEST(InBuffer, AHeaderInsideAFalseHeaderIsFound) {
    // The length field of the false header begins the true one: the search goes on one byte later.
    InBuffer buffer;
    Collector got;
    buffer.accept(std::string("2BEZ\x01\x01", 6) + framed("x"), got.sink);
    EXPECT_EQ(got.payloads, std::vector<std::string>{"x"});
}

TEST(InBuffer, AnAnnouncedLengthAloneTakesNoMemoryOfThatSize) {
    InBuffer buffer;
    Collector got;
    buffer.accept(std::string("2BEZ\x01\x01", 6) + u32(0xFFFFE), got.sink);
    char scratch[64];
    iovec blocks[2];
    ASSERT_GE(buffer.prepare(blocks, scratch, sizeof scratch), 1);
    EXPECT_LE(blocks[0].iov_len, 65536u);
}

// Feeds through prepare() and commit(), `step` bytes at a time, as reading from a socket does.
void feed(InBuffer &buffer, std::string_view bytes, size_t step, const InBuffer::Sink &sink) {
    char scratch[512];
    while (!bytes.empty()) {
        iovec blocks[2];
        const int used = buffer.prepare(blocks, scratch, sizeof scratch);
        ASSERT_GE(used, 1);
        size_t count = 0;
        for (int i = 0; i < used && count < step; ++i) {
            const size_t part = std::min({blocks[i].iov_len, step - count, bytes.size()});
            memcpy(blocks[i].iov_base, bytes.data(), part);
            bytes.remove_prefix(part);
            count += part;
        }
        ASSERT_TRUE(buffer.commit(count, blocks, used, sink));
    }
}

TEST(InBuffer, ALongPacketIsReadInPlaceWhateverTheReadsBring) {
    std::string payload(0xFFFFE, '\0');
    for (size_t i = 0; i < payload.size(); ++i)
        payload[i] = static_cast<char>(i * 7);
    for (const size_t step : {4097u, 65536u, 2000000u}) {
        InBuffer buffer;
        Collector got;
        feed(buffer, framed("a") + framed(payload) + framed("z"), step, got.sink);
        ASSERT_EQ(got.payloads.size(), 3u) << step;
        EXPECT_TRUE(got.payloads[1] == payload) << step;
        EXPECT_EQ(got.payloads[2], "z");
    }
}

TEST(InBuffer, ASinkThatStopsGetsNothingMore) {
    InBuffer buffer;
    int count = 0;
    EXPECT_FALSE(buffer.accept(framed("a") + framed("b"), [&](std::string_view) {
        ++count;
        return false;
    }));
    EXPECT_EQ(count, 1);
}

} // namespace

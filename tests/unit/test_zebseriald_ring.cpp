#include "zebseriald/ring.h"

#include <gtest/gtest.h>

using namespace zebseriald;

namespace {

std::string held(const Ring &ring) {
    std::string text(static_cast<size_t>(ring.end() - ring.begin()), '\0');
    ring.copy(ring.begin(), text.size(), text.data());
    return text;
}

TEST(Ring, HoldsWhatWasAppended) {
    Ring ring(8);
    EXPECT_EQ(held(ring), "");
    ring.append("abc");
    ring.append("de");
    EXPECT_EQ(held(ring), "abcde");
    EXPECT_EQ(ring.begin(), 0u);
    EXPECT_EQ(ring.end(), 5u);
}

TEST(Ring, TheOldestBytesGoFirst) {
    Ring ring(4);
    std::string all;
    for (const char *text : {"ab", "cde", "f", "", "ghij", "klmnopq"}) {
        ring.append(text);
        all += text;
        EXPECT_EQ(held(ring), all.size() <= 4 ? all : all.substr(all.size() - 4));
        EXPECT_EQ(ring.end(), all.size());
    }
}

TEST(Ring, ResizingKeepsTheNewestAndThePositions) {
    Ring ring(5);
    ring.append("abcdefg");
    ring.resize(3);
    EXPECT_EQ(held(ring), "efg");
    EXPECT_EQ(ring.begin(), 4u);
    ring.resize(100);
    EXPECT_EQ(held(ring), "efg");
    ring.append("hij");
    EXPECT_EQ(held(ring), "efghij");
    EXPECT_EQ(ring.end(), 10u);
}

TEST(Ring, ResizingToTheSameSizeChangesNothing) {
    Ring ring(5);
    ring.append("abcdefg");
    ring.resize(5);
    EXPECT_EQ(held(ring), "cdefg");
    EXPECT_EQ(ring.end(), 7u);
}

TEST(Ring, WithoutRoomNothingIsHeldAndPositionsGoOn) {
    Ring ring(5);
    ring.append("abc");
    ring.resize(0);
    ring.append("de");
    EXPECT_EQ(held(ring), "");
    EXPECT_EQ(ring.end(), 5u);
    ring.resize(2);
    ring.append("f");
    EXPECT_EQ(held(ring), "f");
    EXPECT_EQ(ring.end(), 6u);
}

TEST(Ring, FindsTheFirstByteOfASetAcrossTheEdgeOfItsStorage) {
    Ring ring(6);
    ring.append("abcdefgh"); // "gh" lies in front of "cdef"
    const ByteSet set = bytes_of("hg");
    EXPECT_EQ(ring.find(set, 2), 7u); // behind the "g"
    EXPECT_EQ(ring.find(set, 7), 8u);
    EXPECT_EQ(ring.find(set, 8), std::nullopt);
    EXPECT_EQ(ring.find(bytes_of("ab"), 2), std::nullopt);
    EXPECT_EQ(ring.find(ByteSet(), 2), std::nullopt);
}

TEST(Ring, EveryByteValueIsAMember) {
    Ring ring(4);
    ring.append(std::string_view("\0\xff", 2));
    EXPECT_EQ(ring.find(bytes_of(std::string_view("\0", 1)), 0), 1u);
    EXPECT_EQ(ring.find(bytes_of("\xff"), 0), 2u);
}

TEST(EchoLog, AReaderGetsWhatTheOthersWrote) {
    EchoLog log(100);
    log.append(1, "one ");
    log.append(2, "two ");
    log.append(3, "three ");
    log.append(2, "more");
    EXPECT_EQ(log.of_others(1, 0), "two three more");
    EXPECT_EQ(log.of_others(2, 0), "one three ");
    EXPECT_EQ(log.of_others(9, 0), "one two three more");
    EXPECT_EQ(log.of_others(1, 6), "o three more");
    EXPECT_EQ(log.of_others(1, log.end()), "");
}

TEST(EchoLog, TheOldestBytesGoFirst) {
    EchoLog log(5);
    log.append(1, "abc");
    log.append(2, "def");
    EXPECT_EQ(log.of_others(9, 0), "bcdef");
    EXPECT_EQ(log.of_others(2, 0), "bc");
    log.append(1, "ghijklm");
    EXPECT_EQ(log.of_others(9, 0), "ijklm");
    EXPECT_EQ(log.of_others(1, 0), "");
}

TEST(EchoLog, WritersThatTakeTurnsByteByByteAreRememberedForFewerBytes) {
    EchoLog log(1600); // 100 changes of the writer
    for (int i = 0; i < 1000; ++i)
        log.append(static_cast<uint64_t>(i % 2), i % 2 == 0 ? "a" : "b");
    EXPECT_EQ(log.of_others(0, 0), std::string(50, 'b'));
}

TEST(EchoLog, ResizingKeepsTheNewest) {
    EchoLog log(100);
    log.append(1, "abc");
    log.append(2, "def");
    log.resize(4);
    EXPECT_EQ(log.of_others(9, 0), "cdef");
    EXPECT_EQ(log.of_others(2, 0), "c");
}

} // namespace

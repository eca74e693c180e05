#include "zebseriald/reads.h"

#include <cmath>
#include <gtest/gtest.h>

using namespace zebseriald;

namespace {

using Kind = Verdict::Kind;

// A reader at position 0 whose request began at second 100.
class Reads : public testing::Test {
  protected:
    Ring input{16};
    double last_input = 90;
    Read read;

    void request(SERIALD_REQUEST_TYPE type, double timeout, double burst,
                 std::string_view stops = "") {
        read = {type, bytes_of(stops), wait_of(timeout), wait_of(burst), 100, 0};
    }
    void arrives(const char *text, double when) {
        input.append(text);
        last_input = when;
    }
    Verdict at(double now) { return judge(read, 0, input, last_input, now); }
    void expect(double now, Kind kind, uint64_t upto) {
        const Verdict verdict = at(now);
        EXPECT_EQ(verdict.kind, kind) << now;
        EXPECT_EQ(verdict.upto, upto) << now;
    }
    void expect_pending(double now, double due) {
        const Verdict verdict = at(now);
        EXPECT_EQ(verdict.kind, Kind::pending) << now;
        EXPECT_EQ(verdict.due, due) << now;
    }
};

TEST(WaitOf, ANegativeTimeIsNoLimitAndNoNumberIsNoTime) {
    EXPECT_EQ(wait_of(0), 0);
    EXPECT_EQ(wait_of(2.5), 2.5);
    EXPECT_EQ(wait_of(-1), k_no_limit);
    EXPECT_EQ(wait_of(-INFINITY), k_no_limit);
    EXPECT_EQ(wait_of(INFINITY), k_no_limit);
    EXPECT_EQ(wait_of(1e300), k_no_limit);
    EXPECT_EQ(wait_of(NAN), 0);
    EXPECT_EQ(wait_of(-NAN), 0);
}

TEST_F(Reads, ReadNewTakesWhatIsThereAtOnce) {
    request(SERIALD_REQUEST_READNEW, -1, -1);
    expect(100, Kind::success, 0);
    arrives("abc", 100);
    expect(100, Kind::success, 3);
}

TEST_F(Reads, ReadUntilEndsBehindTheFirstStopCharacter) {
    request(SERIALD_REQUEST_READUNTIL, 5, -1, "\r\n");
    expect_pending(100, 105);
    arrives("ab", 101);
    expect_pending(101, 105);
    arrives("c\r\nd", 102);
    expect(102, Kind::success, 4);
}

TEST_F(Reads, ReadUntilFailsWhenItsTimeIsOver) {
    request(SERIALD_REQUEST_READUNTIL, 5, -1, "\n");
    arrives("abc", 101);
    EXPECT_EQ(at(104.9).kind, Kind::pending);
    EXPECT_EQ(at(105).kind, Kind::failure);
}

TEST_F(Reads, ReadUntilWithoutTimeTakesALineThatIsThereOrFails) {
    request(SERIALD_REQUEST_READUNTIL, 0, -1, "\n");
    EXPECT_EQ(at(100).kind, Kind::failure);
    arrives("a\n", 100);
    expect(100, Kind::success, 2);
}

TEST_F(Reads, ASilenceEndsReadUntilOnlyOnceSomethingCame) {
    request(SERIALD_REQUEST_READUNTIL, 5, 0.5, "\n");
    expect_pending(101, 105);
    arrives("ab", 102);
    expect_pending(102, 102.5);
    arrives("c", 102.25);
    expect_pending(102.5, 102.75);
    expect(102.75, Kind::success, 3);
}

TEST_F(Reads, ABurstTimeOfZeroOrLessEndsNoReadUntil) {
    for (const double burst : {0.0, -1.0}) {
        request(SERIALD_REQUEST_READUNTIL, 5, burst, "\n");
        arrives("a", 101);
        expect_pending(104, 105);
    }
}

TEST_F(Reads, ReadUntilWithoutStopCharactersEndsByTimeOnly) {
    request(SERIALD_REQUEST_READUNTIL, 5, -1);
    arrives("a\n", 101);
    expect_pending(101, 105);
    EXPECT_EQ(at(105).kind, Kind::failure);
}

TEST_F(Reads, WithoutALimitAReadWaitsForEver) {
    request(SERIALD_REQUEST_READUNTIL, -1, -1, "\n");
    expect_pending(1e9, k_no_limit);
}

TEST_F(Reads, ALineThatOverrunsTheBufferIsFoundByItsEnd) {
    request(SERIALD_REQUEST_READUNTIL, 5, -1, "\n");
    EXPECT_EQ(at(100).kind, Kind::pending);
    arrives("0123456789abcdefghij", 101); // more than the buffer holds
    EXPECT_EQ(at(101).kind, Kind::pending);
    arrives("\n", 102);
    expect(102, Kind::success, 21);
}

TEST_F(Reads, ReadBurstWaitsForTheFirstByteAndThenForSilence) {
    request(SERIALD_REQUEST_READBURST, 5, 0.5);
    expect_pending(104, 105);
    arrives("a", 104.75);
    expect_pending(104.75, 105.25); // the time-out is for the first byte
    arrives("b", 105.125);
    expect(105.625, Kind::success, 2);
}

TEST_F(Reads, ReadBurstFailsWhenNothingComes) {
    request(SERIALD_REQUEST_READBURST, 5, 0.5);
    EXPECT_EQ(at(105).kind, Kind::failure);
}

TEST_F(Reads, ReadBurstTakesAtOnceWhatEndedLongAgo) {
    arrives("old", 95);
    request(SERIALD_REQUEST_READBURST, 5, 0.5);
    expect(100, Kind::success, 3);
}

TEST_F(Reads, AFullBufferEndsReadBurst) {
    request(SERIALD_REQUEST_READBURST, 5, 0.5);
    arrives("0123456789abcdef", 101);
    expect(101, Kind::success, 16);
}

TEST_F(Reads, ReadBurstWithoutASilenceEndsWithItsTime) {
    request(SERIALD_REQUEST_READBURST, 5, -1);
    arrives("abc", 101);
    expect_pending(104, 105);
    expect(105, Kind::success, 3);
}

TEST_F(Reads, FlushEndsWithASilenceCountedFromTheRequest) {
    request(SERIALD_REQUEST_FLUSH, 5, 0.5);
    expect_pending(100, 100.5);
    arrives("abc", 100.25);
    expect_pending(100.5, 100.75);
    expect(100.75, Kind::success, 3);
}

TEST_F(Reads, FlushEndsWithItsTimeOnALineThatIsNeverSilent) {
    request(SERIALD_REQUEST_FLUSH, 1, 0.5);
    arrives("abc", 100.75);
    expect(101, Kind::success, 3);
}

} // namespace

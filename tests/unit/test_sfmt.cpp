#include "sfmt.h"

#include "sfmt_int.h"
#include "sfmt_testing.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

using testing::HasSubstr;
using testing::KilledBySignal;
using namespace zeb::test;

// ---- buffer

TEST(SfmtBuffer, GetBufferOnAFreshBufferIsEmptyAndAllocatesNothing) {
    Buffer b;
    EXPECT_STREQ(SFMT_get_buffer(&b), "");
    EXPECT_EQ(b.buffer, nullptr);
    EXPECT_EQ(b.sz_buffer, 0u);
}

TEST(SfmtBuffer, DestroyKeepsTheSizeField) {
    Buffer b("abc");
    SFMT_destroy_buffer(&b);
    EXPECT_EQ(b.buffer, nullptr);
    EXPECT_EQ(b.sz_buffer, 8u);
    EXPECT_EQ(b.text(), "");
}

TEST(SfmtBuffer, CopyStrOfAnEmptySourceAllocatesTwoBytes) {
    for (const char *source : {"", static_cast<const char *>(nullptr)}) {
        Buffer b;
        SFMT_copystr(&b, source);
        ASSERT_NE(b.buffer, nullptr);
        EXPECT_STREQ(b.buffer, "");
        EXPECT_EQ(b.sz_buffer, 2u);
    }
}

TEST(SfmtBuffer, CopyOfAnEmptyBufferAllocatesNothing) {
    Buffer source, dest;
    SFMT_copy(&dest, &source);
    EXPECT_EQ(dest.buffer, nullptr);
    SFMT_copy(&dest, nullptr);
    EXPECT_EQ(dest.buffer, nullptr);
}

TEST(SfmtBuffer, CopyOfAnEmptyBufferClearsAnExistingBlock) {
    Buffer source, dest("abc");
    SFMT_copy(&dest, &source);
    EXPECT_STREQ(dest.buffer, "");
    EXPECT_EQ(dest.sz_buffer, 8u);
}

TEST(SfmtBuffer, CopyingSevenCharactersAllocatesSixteenBytes) {
    Buffer b("1234567");
    EXPECT_EQ(b.text(), "1234567");
    EXPECT_EQ(b.sz_buffer, 16u);
}

TEST(SfmtBuffer, CopyInPlaceKeepsTheBlock) {
    Buffer b("1234567");
    SFMT_copystr(&b, "abcdefghijklmno"); // 15 characters and the terminator
    EXPECT_EQ(b.sz_buffer, 16u);
    SFMT_copystr(&b, "abcdefghijklmnop");
    EXPECT_EQ(b.sz_buffer, 32u);
    SFMT_copystr(&b, "x");
    EXPECT_EQ(b.text(), "x");
    EXPECT_EQ(b.sz_buffer, 32u);
}

TEST(SfmtBuffer, CopyTakesTheTextOfAnotherBuffer) {
    Buffer source("one"), dest("two plus two");
    SFMT_copy(&dest, &source);
    EXPECT_EQ(dest.text(), "one");
    EXPECT_NE(dest.buffer, source.buffer);
}

TEST(SfmtBuffer, CopyOfItselfOrOfItsTailIsItsOwnText) {
    Buffer b("abcdef");
    SFMT_copy(&b, &b);
    EXPECT_EQ(b.text(), "abcdef");
    SFMT_copystr(&b, b.buffer + 2);
    EXPECT_EQ(b.text(), "cdef");
}

TEST(SfmtBuffer, CopyStrNOfNothingIsEmpty) {
    Buffer fresh, used("abc");
    SFMT_copystrn(&fresh, "abc", 0);
    EXPECT_STREQ(fresh.buffer, "");
    EXPECT_EQ(fresh.sz_buffer, 2u);
    SFMT_copystrn(&used, nullptr, 3);
    EXPECT_EQ(used.text(), "");
}

TEST(SfmtBuffer, CopyStrNGrowsToTheCountedLength) {
    Buffer b;
    SFMT_copystrn(&b, "abcdefghij", 3);
    EXPECT_EQ(b.text(), "abc"); // the rest of a fresh block is clear
    EXPECT_EQ(b.sz_buffer, 8u);
}

TEST(SfmtBuffer, CopyStrNWritesNoTerminator) {
    Buffer b("abcdef");
    SFMT_copystrn(&b, "XYZW", 2);
    EXPECT_EQ(b.text(), "XYcdef");
    SFMT_copystrn(&b, "12", 10);
    EXPECT_EQ(b.text(), "12cdef");
}

TEST(SfmtBuffer, CopyStrNGrowingOverTheOldTextEndsWithTheNewOne) {
    Buffer b("abcdef"); // 8 bytes
    SFMT_copystrn(&b, "0123456789", 9);
    EXPECT_EQ(b.text(), "012345678");
    EXPECT_EQ(b.sz_buffer, 16u);
}

TEST(SfmtBuffer, CopyStrNOverTheOnlyTerminatorStillEndsWithinTheBlock) {
    Buffer b;
    b.buffer = static_cast<char *>(malloc(8));
    b.sz_buffer = 8;
    memcpy(b.buffer, "ab\0xxxxx", 8);
    SFMT_copystrn(&b, "12345", 5);
    EXPECT_EQ(b.text(), "12345xx");
}

TEST(SfmtBuffer, AppendingAnEmptyStringLeavesAFreshBufferUnallocated) {
    Buffer b, empty;
    SFMT_appendstr(&b, "");
    SFMT_appendstr(&b, nullptr);
    SFMT_append(&b, &empty);
    SFMT_append(&b, nullptr);
    SFMT_appendstrn(&b, "abc", 0);
    SFMT_appendstrn(&b, nullptr, 3);
    EXPECT_EQ(b.buffer, nullptr);
    EXPECT_EQ(b.sz_buffer, 0u);
}

TEST(SfmtBuffer, AppendGrowsOnlyWhenTheBlockIsFull) {
    Buffer b("abcdef"); // 8 bytes
    SFMT_appendstr(&b, "g");
    EXPECT_EQ(b.text(), "abcdefg");
    EXPECT_EQ(b.sz_buffer, 8u);
    SFMT_appendstr(&b, "h");
    EXPECT_EQ(b.text(), "abcdefgh");
    EXPECT_EQ(b.sz_buffer, 16u);
}

TEST(SfmtBuffer, AppendToAFreshBufferIsTheText) {
    Buffer b, other("tail");
    SFMT_append(&b, &other);
    EXPECT_EQ(b.text(), "tail");
    EXPECT_EQ(b.sz_buffer, 8u);
}

TEST(SfmtBuffer, AppendToItselfDoublesTheText) {
    Buffer b("abcd");
    SFMT_append(&b, &b);
    SFMT_append(&b, &b);
    EXPECT_EQ(b.text(), "abcdabcdabcdabcd");
}

TEST(SfmtBuffer, AppendStrNTerminates) {
    Buffer b("ab");
    SFMT_appendstrn(&b, "cdefgh", 2);
    EXPECT_EQ(b.text(), "abcd");
    SFMT_appendstrn(&b, "ef", 9);
    EXPECT_EQ(b.text(), "abcdef");
}

TEST(SfmtBuffer, PrintfOfTwoHundredCharactersGrowsTo256) {
    Buffer b;
    SFMT_printf(&b, "%0200i", 7);
    EXPECT_EQ(b.text(), std::string(199, '0') + "7");
    EXPECT_EQ(b.sz_buffer, 256u);
}

TEST(SfmtBuffer, PrintfTriesABlockOf128First) {
    Buffer b;
    SFMT_printf(&b, "%0127i", 7);
    EXPECT_EQ(b.sz_buffer, 128u);
    SFMT_printf(&b, "%0128i", 7);
    EXPECT_EQ(b.sz_buffer, 256u);
    SFMT_printf(&b, "%i", 7);
    EXPECT_EQ(b.text(), "7");
    EXPECT_EQ(b.sz_buffer, 256u);
}

TEST(SfmtBuffer, PrintfCatContinuesTheText) {
    Buffer b;
    SFMT_printfcat(&b, "%i", 12);
    SFMT_printfcat(&b, ",%s", "x");
    EXPECT_EQ(b.text(), "12,x");
    SFMT_printfcat(&b, "%0200i", 1);
    EXPECT_EQ(b.text(), "12,x" + std::string(199, '0') + "1");
    EXPECT_EQ(b.sz_buffer, 256u);
}

TEST(SfmtBuffer, PrintfAfterDestroyAllocatesAfresh) {
    Buffer b("a text of more than sixteen characters");
    SFMT_destroy_buffer(&b);
    SFMT_printfcat(&b, "%s", "new");
    EXPECT_EQ(b.text(), "new");
    EXPECT_EQ(b.sz_buffer, 128u);
}

TEST(SfmtBuffer, PrintfCatOnACorruptedBufferDiesWithSignal11) {
    Buffer b("abcdef");
    b.sz_buffer = 3;
    const auto corrupted = [&b] {
        signal(SIGSEGV, SIG_DFL); // a sanitizer may have its own handler
        SFMT_printfcat(&b, "x");
    };
    EXPECT_EXIT(corrupted(), KilledBySignal(SIGSEGV),
                "PREINIT: ERROR: offset .6. >= bf->sz_buffer .3. - abcdef .sfmt.cpp:[0-9]+.");
}

TEST(SfmtBuffer, PrintfCatOnACorruptedBufferWritesNothingWhenTheSignalIsIgnored) {
    Buffer b("abcdef");
    b.sz_buffer = 6;
    const auto before = signal(SIGSEGV, SIG_IGN);
    StderrCapture capture;
    SFMT_printfcat(&b, "x");
    signal(SIGSEGV, before);
    EXPECT_THAT(capture.finish(), HasSubstr("ERROR: offset (6) >= bf->sz_buffer (6) - abcdef"));
    EXPECT_EQ(b.text(), "abcdef");
}

TEST(SfmtBuffer, PrintfOfAnUnconvertibleCharacterGivesUp) {
    Buffer b("kept");
    StderrCapture capture;
    SFMT_printfcat(&b, " %ls", L"\x20ac"); // not in the C locale, at any length
    EXPECT_THAT(capture.finish(), HasSubstr("Unable to format a text in 1048576 bytes: "));
    EXPECT_EQ(b.text(), "kept");
    EXPECT_EQ(b.sz_buffer, size_t{1} << 20);
}

TEST(SfmtBuffer, AFailedReallocationLosesTheBlockAndKeepsTheNewSize) {
    if (k_sanitized)
        GTEST_SKIP() << "the sanitizer's allocator needs its address space";
    Buffer b("abc");
    rlimit before;
    getrlimit(RLIMIT_AS, &before);
    const rlimit low{rlim_t{512} << 20, before.rlim_max};
    StderrCapture capture;
    setrlimit(RLIMIT_AS, &low);
    SFMT_make_accessable(&b, (size_t{1} << 30) - 2);
    setrlimit(RLIMIT_AS, &before);
    EXPECT_THAT(capture.finish(), testing::ContainsRegex("PREINIT: assertion failed .sfmt.cpp:.*: "
                                                         "bf->buffer != nullptr: .* memory"));
    EXPECT_EQ(b.buffer, nullptr);
    EXPECT_EQ(b.sz_buffer, size_t{1} << 30);
    SFMT_make_accessable(&b, 10);
    EXPECT_EQ(b.buffer, nullptr);
}

TEST(SfmtBuffer, ATextBeyondTheLargestBlockIsRefused) {
    Buffer b("abc");
    StderrCapture capture;
    SFMT_make_accessable(&b, size_t{1} << 30);
    EXPECT_THAT(capture.finish(), HasSubstr("refused, the limit is 1073741824"));
    EXPECT_EQ(b.text(), "abc");
    EXPECT_EQ(b.sz_buffer, 8u);
}

// ---- make accessible

TEST(SfmtMakeAccessable, ReallocatesToTheIndexAtEveryCallAndMayShrink) {
    Buffer b;
    SFMT_make_accessable(&b, 0);
    EXPECT_EQ(b.sz_buffer, 2u);
    SFMT_make_accessable(&b, 7);
    EXPECT_EQ(b.sz_buffer, 16u);
    SFMT_make_accessable(&b, 300);
    EXPECT_EQ(b.sz_buffer, 512u);
    SFMT_make_accessable(&b, 2);
    EXPECT_EQ(b.sz_buffer, 4u);
}

TEST(SfmtMakeAccessable, DoesNothingWithoutABlockWhenTheStoredSizeIsLarger) {
    Buffer b;
    b.sz_buffer = 10;
    SFMT_make_accessable(&b, 9);
    EXPECT_EQ(b.buffer, nullptr);
    EXPECT_EQ(b.sz_buffer, 10u);
    SFMT_make_accessable(&b, 10);
    EXPECT_NE(b.buffer, nullptr);
    EXPECT_EQ(b.sz_buffer, 16u);
}

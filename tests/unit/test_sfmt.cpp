#include "sfmt.h"

#include "sfmt_int.h"
#include "sfmt_testing.h"

#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <random>
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

TEST(SfmtBuffer, PrintfCatOnACorruptedBufferDiesThoughSignalsAreBlocked) {
    Buffer b("abcdef");
    b.sz_buffer = 3;
    const auto corrupted = [&b] {
        signal(SIGSEGV, SIG_DFL);
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_SETMASK, &all, nullptr);
        SFMT_printfcat(&b, "x");
    };
    EXPECT_EXIT(corrupted(), KilledBySignal(SIGSEGV), "ERROR: offset");
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
                                                         "block != nullptr: .* memory"));
    EXPECT_EQ(b.buffer, nullptr);
    EXPECT_EQ(b.sz_buffer, size_t{1} << 30);
    SFMT_make_accessable(&b, 10);
    EXPECT_EQ(b.buffer, nullptr);
    SFMT_altprintf(&b, "again");
    EXPECT_EQ(b.text(), "again");
    EXPECT_EQ(b.sz_buffer, 8u);
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

// ---- driver

TEST(SfmtAltprintf, DoubledSignsWriteOne) {
    EXPECT_EQ(alt("100%%"), "100%");
    EXPECT_EQ(alt("2**3"), "2*3");
}

TEST(SfmtAltprintf, LeavesBlocksOfTheSizeOfTheText) {
    Buffer b;
    SFMT_altprintf(&b, "");
    EXPECT_STREQ(b.buffer, "");
    EXPECT_EQ(b.sz_buffer, 2u);
    SFMT_altprintf(&b, "abc");
    EXPECT_EQ(b.sz_buffer, 8u);
    SFMT_printf(&b, "%0200i", 1);
    SFMT_altprintf(&b, "a*3.2f", 1.0); // 7 characters
    EXPECT_EQ(b.text(), "a  1.00");
    EXPECT_EQ(b.sz_buffer, 16u);
    SFMT_altprintf(&b, "abcd%i", 123); // the conversion fits into the 8 bytes that "abcd" has
    EXPECT_EQ(b.text(), "abcd123");
    EXPECT_EQ(b.sz_buffer, 8u);
    SFMT_altprintf(&b, "abcd%i", 1234);
    EXPECT_EQ(b.sz_buffer, 16u);
}

TEST(SfmtAltprintf, CatAppendsAndTheOthersReplace) {
    Buffer b;
    SFMT_altprintfcat(&b, "*2.1f", 1.5);
    SFMT_altprintfcat(&b, ";%s", "x");
    EXPECT_EQ(b.text(), " 1.5;x");
    SFMT_altprintf(&b, "new");
    EXPECT_EQ(b.text(), "new");
}

TEST(SfmtAltprintf, WorksOnADestroyedBuffer) {
    Buffer b("a text of more than sixteen characters");
    SFMT_destroy_buffer(&b);
    SFMT_altprintf(&b, "new");
    EXPECT_EQ(b.text(), "new");
}

TEST(SfmtAltprintf, ANullFormatIsReportedAndEmpty) {
    Buffer b("old");
    StderrCapture capture;
    SFMT_altprintf(&b, nullptr);
    EXPECT_THAT(capture.finish(), HasSubstr("assertion failed (sfmt_altprintf.cpp:"));
    EXPECT_EQ(b.text(), "");
}

TEST(SfmtAltprintf, LongTextsKeepEveryCharacter) {
    std::string format, expected;
    for (int i = 0; i < 2000; ++i) {
        format += "x*3.1f%%";
        expected += "x  1.5%";
        if (i % 100 == 0)
            format += "%s", expected += "text";
    }
    Buffer b;
    SFMT_altprintf_cbs cbs = {[](void *) -> void * { return const_cast<char *>("text"); },
                              [](void *) { return 1.5; }, nullptr, nullptr};
    SFMT_cbaltprintf(&b, format.c_str(), &cbs, nullptr);
    EXPECT_EQ(b.text(), expected);
    EXPECT_EQ(b.sz_buffer, 16384u); // 14080 characters
}

// ---- "%" conversions

TEST(SfmtAltprintf, AFormatEndingInsideAConversionWritesNothingForIt) {
    EXPECT_EQ(alt("abc%5.1"), "abc");
    EXPECT_EQ(alt("abc%"), "abc");
    EXPECT_EQ(alt("abc*5.1"), "abc");
    EXPECT_EQ(alt("abc*"), "abc");
}

TEST(SfmtAltprintf, StandardConversionsPassFlagsWidthsAndPrecisions) {
    EXPECT_EQ(alt("%+08.2f|%-6d|%#x|%5.2s|%c|% d", 3.14159, 42, 255, "abc", 'z', 5),
              "+0003.14|42    |0xff|   ab|z| 5");
    EXPECT_EQ(alt("%e|%G|%o|%u|%i", 1.5, 0.5, 8, 9, -9), "1.500000e+00|0.5|10|9|-9");
    EXPECT_EQ(alt("%hd|%hhu", 65537, 257), "1|1");
    EXPECT_EQ(alt("%.f|%.0d|", 2.0, 0), "2||");
}

TEST(SfmtAltprintf, LMarksASixtyFourBitArgument) {
    EXPECT_EQ(alt("%ld|%i", 5000000000LL, 7), "5000000000|7");
    EXPECT_EQ(alt("%Lx|%llu|%li", 0x123456789LL, ~0LL, -1LL), "123456789|18446744073709551615|-1");
    EXPECT_EQ(alt("%lc%i", static_cast<long long>('A'), 7), "A7");
}

TEST(SfmtAltprintf, LengthsThatDoNotMatchTheArgumentAreNotPassedOn) {
    EXPECT_EQ(alt("%Lf|%lg|%i", 1.5, 2.5, 7), "1.500000|2.5|7");
    EXPECT_EQ(alt("%zu|%td|%i", 5, -5, 7), "5|-5|7");
    EXPECT_EQ(alt("%ls|%i", "text", 7), "text|7");
    EXPECT_EQ(alt("%hld|%i", 70000LL, 7), "70000|7");
}

TEST(SfmtAltprintf, PointersAndStrings) {
    int place = 0;
    char expected[32];
    snprintf(expected, sizeof expected, "%p", static_cast<void *>(&place));
    EXPECT_EQ(alt("%p", static_cast<void *>(&place)), expected);
    EXPECT_EQ(alt("%s|%i", static_cast<char *>(nullptr), 7), "(null)|7");
}

TEST(SfmtAltprintf, AConversionHasAtMost63Characters) {
    EXPECT_EQ(alt(("%" + std::string(61, '0') + "d|%d").c_str(), 5, 6), "5|6");
    // One more: the collected text is dropped, the rest is copied, no argument is taken.
    EXPECT_EQ(alt(("%" + std::string(62, '0') + "d|%d").c_str(), 5), "d|5");
}

TEST(SfmtAltprintf, WidthsOfConversionsAreLimited) {
    StderrCapture capture;
    EXPECT_EQ(alt("%2000000000d|", 1), std::string(4095, ' ') + "1|");
    EXPECT_EQ(alt("%99999999999999999999d|", 1), std::string(4095, ' ') + "1|");
    EXPECT_EQ(alt("%.2000000000f", 0.0).size(), 4098u);
    EXPECT_THAT(capture.finish(), HasSubstr("Too large a width in the format \"%2000000000d|\""));
}

TEST(SfmtAltprintf, ThePrecisionOfAStringIsNotLimited) {
    const std::string text(9000, 't');
    EXPECT_EQ(alt("%.8191s", text.c_str()), text.substr(0, 8191));
    EXPECT_EQ(alt("%.99999999999s", text.c_str()), text);
}

TEST(SfmtAltprintf, ConversionsThatWouldReachOtherArgumentsTakeTheirsAndWriteNothing) {
    StderrCapture capture;
    EXPECT_EQ(alt("%*d|%d", 1, 2), "|2");
    EXPECT_EQ(alt("%n %d|%d", 1, 2), "|2");
    EXPECT_EQ(alt("%1$s|%d", "x", 2), "|2");
    EXPECT_EQ(alt("%5%f|%d", 1.0, 2), "|2");
    EXPECT_EQ(alt("%5l6d|%d", 1LL, 2), "|2");
    EXPECT_THAT(capture.finish(), HasSubstr("Unusable conversion in the format \"%*d|%d\""));
}

TEST(SfmtAltprintf, AFormatIsReportedOnceInARow) {
    const char *format = "%*d";
    StderrCapture capture;
    alt(format, 1);
    alt(format, 1);
    const std::string text = capture.finish();
    EXPECT_NE(text.find("Unusable"), std::string::npos);
    EXPECT_EQ(text.find("Unusable"), text.rfind("Unusable"));
}

// ---- arguments

TEST(SfmtAltprintf, VaListFormsTakeTheListAsItIs) {
    const auto print = [](SFMT_buffer *bf, const char *format, ...) {
        va_list args;
        va_start(args, format);
        SFMT_valtprintf(bf, format, args);
        va_end(args);
        va_start(args, format);
        SFMT_valtprintfcat(bf, format, args);
        va_end(args);
    };
    Buffer b;
    print(&b, "%d *2.1f %ld %s;", 1, 2.5, 3LL, "four");
    EXPECT_EQ(b.text(), "1  2.5 3 four;1  2.5 3 four;");
}

TEST(SfmtAltprintf, CallbacksYieldTheArguments) {
    struct Calls {
        int ptr = 0, dbl = 0, i = 0, ll = 0;
    } calls;
    SFMT_altprintf_cbs cbs = {[](void *p) -> void * {
                                  ++static_cast<Calls *>(p)->ptr;
                                  return const_cast<char *>("text");
                              },
                              [](void *p) { return 0.5 + static_cast<Calls *>(p)->dbl++; },
                              [](void *p) { return 40 + static_cast<Calls *>(p)->i++; },
                              [](void *p) { return 5000000000LL + static_cast<Calls *>(p)->ll++; }};
    Buffer b("old");
    SFMT_cbaltprintf(&b, "%s %d *1.1f %f %lu %c *d *1.0.+02e", &cbs, &calls);
    EXPECT_EQ(b.text(), "text 40 0.5 1.500000 5000000000 )  3e+00");
    EXPECT_EQ(calls.ptr, 1);
    EXPECT_EQ(calls.dbl, 3);
    EXPECT_EQ(calls.i, 2);
    EXPECT_EQ(calls.ll, 1);
}

TEST(SfmtAltprintf, AbsentCallbacksAreReported) {
    SFMT_altprintf_cbs cbs = {};
    Buffer b;
    StderrCapture capture;
    SFMT_cbaltprintf(&b, "%s %d %ld *2.1f", &cbs, nullptr);
    SFMT_cbaltprintf(&b, "%s %d %ld *2.1f", &cbs, nullptr);
    EXPECT_EQ(b.text(), "(null) 0 0 99.9");
    SFMT_cbaltprintf(&b, "x", nullptr, nullptr);
    EXPECT_THAT(capture.finish(), HasSubstr("assertion failed"));
}

TEST(SfmtAltprintf, AnyFormatStaysWithinItsBlockAndItsLimits) {
    static const char letters[] = "%%%**00123456789...+-^ ~@#'lLhzdiufFeEgGaxXscpn$*%";
    static const double values[] = {0,      -1.5,      1e300,    -1e-300,
                                    5e-324, 9.999e-99, HUGE_VAL, 12345.678};
    struct Source {
        std::minstd_rand random;
        unsigned next() { return static_cast<unsigned>(random()); }
    } source;
    SFMT_altprintf_cbs cbs = {
        [](void *p) -> void * {
            return static_cast<Source *>(p)->next() % 4 ? const_cast<char *>("text") : nullptr;
        },
        [](void *p) { return values[static_cast<Source *>(p)->next() % std::size(values)]; },
        [](void *p) { return static_cast<int>(static_cast<Source *>(p)->next()); },
        [](void *p) { return static_cast<long long>(static_cast<Source *>(p)->next()) << 20; }};
    StderrCapture capture;
    Buffer b;
    for (int i = 0; i < 20000; ++i) {
        std::string format(source.next() % 24, ' ');
        for (char &c : format)
            c = letters[source.next() % (sizeof letters - 1)];
        SFMT_cbaltprintf(&b, format.c_str(), &cbs, &source);
        ASSERT_LT(strnlen(b.buffer, b.sz_buffer), b.sz_buffer) << format;
        ASSERT_LE(b.sz_buffer, size_t{1} << 17) << format;
    }
}

#include "netpack_samples.h"
#include "netpack_text.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

using namespace zeb::test;
using namespace zeb::netpack;
using testing::HasSubstr;

namespace {

std::string dump(const Catalogue &catalogue, const void *record, const char *type, size_t size,
                 const char *prefix = "", size_t print_recurse = 0) {
    return printed([&](FILE *stream) {
        print_ds_raw(catalogue, record, type, size, stream, prefix, print_recurse);
    });
}

std::string number(double value) {
    char bytes[sizeof value];
    char text[k_value_text];
    memcpy(bytes, &value, sizeof value);
    return {text, value_text(NETDSD_FT_DOUBLE, bytes, text)};
}

const Whole k_whole = {-2, {{1.5, "ab"}, {0.0, ""}}, 2.0};

} // namespace

TEST(PrintRaw, EveryTypeHasItsForm) {
    TestCatalogue catalogue(sample_structures());
    const Every e = sample_every();
    EXPECT_EQ(dump(catalogue.get(), &e, "Every", sizeof e, "# "),
              "# a_bin(BIN)[3]=0001020304,05060708,090A0B\n"
              "# a_bool(BOOL)[2]=FALSE,TRUE\n"
              "# a_byte(BIN)[3]=0102FF\n"
              "# a_char(BIN)[5]=FF41000102\n"
              "# a_double(FLOAT)[3]=+1.500000E+00,-2.250000E+00,+9.999000E-99\n"
              "# a_float(FLOAT)[2]=+5.000000E-01,-1.000000E+10\n"
              "# a_ftime(FTIME)[2]=19700101_0000000250,INVALID\n"
              "# a_int(INT)[2]=-1,2147483647\n"
              "# a_long(INT)[2]=-2147483648,5\n"
              "# a_short(INT)[3]=-1,0,32767\n"
              "# a_sizet(INT)[2]=0,4294967295\n"
              "# a_time(TIME)[2]=19700101_000000,INVALID\n"
              "# a_uint(INT)[2]=0,4294967295\n"
              "# a_ulong(INT)[2]=1,2\n"
              "# a_ushort(INT)[2]=65535,0\n"
              "# b(BOOL)=TRUE\n"
              "# byte(BIN)=0A\n"
              "# c(BIN)=7A\n"
              "# d(FLOAT)=+0.000000E+00\n"
              "# f(FLOAT)=+1.250000E-01\n"
              "# ft(FTIME)=20140821_1424010250\n"
              "# i(INT)=-7\n"
              "# l(INT)=-8\n"
              "# s(INT)=-9\n"
              "# sz(INT)=10\n"
              "# text(STRING)[6]=hello\n"
              "# tm(TIME)=20140821_142401\n"
              "# ui(INT)=3000000000\n"
              "# ul(INT)=4000000000\n"
              "# us(INT)=60000\n");
}

TEST(PrintRaw, NestedElementsAreIndentedBlocks) {
    TestCatalogue catalogue(sample_structures());
    EXPECT_EQ(dump(catalogue.get(), &k_whole, "Whole", sizeof k_whole, "> "),
              "> n(INT)=-2\n"
              "> parts(BIN)[2]=Part:{\n"
              "> \ttag(STRING)[4]=ab\n"
              "> \tv(FLOAT)=+1.500000E+00\n"
              "> \t},\n"
              "> \t{\n"
              "> \ttag(STRING)[4]=\n"
              "> \tv(FLOAT)=+0.000000E+00\n"
              "> \t}\n"
              "> when(FTIME)=19700101_0000020000\n");
}

TEST(PrintRaw, SingleNestedRecordHasNoCount) {
    TestCatalogue catalogue(sample_structures());
    const Ae33 record = {};
    EXPECT_THAT(dump(catalogue.get(), &record, "NET_AE33_Instant", sizeof record),
                HasSubstr("S(FLOAT)=+0.000000E+00\nin(BIN)=NET_AE33_Reading:{\n"
                          "\tATN_time(FLOAT)=+0.000000E+00\n"));
}

TEST(PrintRaw, NestingIndexOpensAndClosesTheBlock) {
    TestCatalogue catalogue(sample_structures());
    const Part part = {1.5, "x"};
    const char fields[] = "-tag(STRING)[4]=x\n-v(FLOAT)=+1.500000E+00\n";
    EXPECT_EQ(dump(catalogue.get(), &part, "Part", sizeof part, "-", 0), fields);
    EXPECT_EQ(dump(catalogue.get(), &part, "Part", sizeof part, "-", 1),
              "Part:{\n" + std::string(fields) + "-}");
    EXPECT_EQ(dump(catalogue.get(), &part, "Part", sizeof part, "-", 3),
              ",\n-{\n" + std::string(fields) + "-}");
}

TEST(PrintRaw, UnknownStructureIsOneLineOfHexDigits) {
    const unsigned char record[3] = {0x00, 0xAB, 0x1F};
    StderrCapture err;
    EXPECT_EQ(printed([&](FILE *stream) {
                  NETPACK_print_ds_raw(record, "NET_NOT_There", sizeof record, stream, "# ");
              }),
              "# *RawData=00AB1F\n");
    EXPECT_THAT(err.finish(),
                HasSubstr("WARNING: Bad structure description for \"NET_NOT_There\" ("));
}

TEST(PrintRaw, RecordOfAnotherSizeIsOneLineOfHexDigits) {
    StderrCapture err;
    EXPECT_EQ(printed([&](FILE *stream) {
                  NETPACK_print_ds_raw_lib("\1\2\3", "NET_SERVER_Heartbeat", 3, stream, "");
              }),
              "*RawData=010203\n");
    EXPECT_EQ(occurrences(err.finish(), "WARNING: Bad structure description"), 1u);
}

TEST(PrintRaw, NestedElementOfAnotherSizeIsRaw) {
    const std::vector<NETDSD_field> outer = {{NETDSD_FT_BIN, "w", 0, 1, "", 2, "Part"}};
    TestCatalogue catalogue(
        {entry_of("Outer", outer, 2), entry_of("Part", k_part_fields, sizeof(Part))});
    StderrCapture err;
    EXPECT_EQ(dump(catalogue.get(), "\1\2", "Outer", 2), "w(BIN)=\t*RawData=0102\n\n");
    EXPECT_EQ(occurrences(err.finish(), "WARNING: Bad structure description"), 1u);
}

TEST(PrintRaw, UnterminatedTextEndsWithItsMember) {
    OneField one(NETDSD_FT_STRING, 4, 1, "STRING");
    char *exact = static_cast<char *>(malloc(4));
    memcpy(exact, "abcd", 4);
    StderrCapture err;
    EXPECT_EQ(dump(one.get(), exact, "One", 4), "v(STRING)[4]=abcd\n");
    free(exact);
    EXPECT_THAT(err.finish(), HasSubstr("WARNING: Text of field \"v\" isn't terminated"));
}

TEST(PrintRaw, BytesOfOneByteElementsEndWithAComma) {
    OneField one(NETDSD_FT_BIN, 3, 1, "Opaque");
    EXPECT_EQ(dump(one.get(), "\1\2\3", "One", 3), "v(BIN)[3]=0102,03,\n");
}

TEST(PrintRaw, TimesOfOddYearsFitTheirTexts) {
    OneField one(NETDSD_FT_A_FTIME, 4, 8, "FTIME");
    const FTIME times[4] = {253402300800.0, 1e300, NAN, -62198755200.0};
    StderrCapture err;
    // The years 10000, cut at 19 characters, and -1, on hosts whose time_t holds them; what has no
    // date is "INVALID".
    EXPECT_EQ(dump(one.get(), times, "One", sizeof times),
              sizeof(time_t) > 4
                  ? "v(FTIME)[4]=100000101_000000000,INVALID,INVALID,-0010101_0000000000\n"
                  : "v(FTIME)[4]=INVALID,INVALID,INVALID,INVALID\n");
}

TEST(PrintRaw, ExtremeTimesFitTheirTexts) {
    OneField one(NETDSD_FT_A_TIME, 2, 4, "time_t");
    const TIME times[2] = {INT32_MAX, INT32_MIN};
    EXPECT_EQ(dump(one.get(), times, "One", sizeof times),
              "v(TIME)[2]=20380119_031407,19011213_204552\n");
}

TEST(PrintRaw, StructureWithinItselfEnds) {
    const std::vector<NETDSD_field> fields = {{NETDSD_FT_BIN, "v", 0, 1, "", 8, "Self"}};
    TestCatalogue catalogue({entry_of("Self", fields, 8)});
    const char record[8] = {};
    StderrCapture err;
    EXPECT_EQ(occurrences(dump(catalogue.get(), record, "Self", sizeof record), "Self:{"), 32u);
    EXPECT_EQ(occurrences(err.finish(), "Structure \"Self\" is nested too deeply ("), 1u);
}

TEST(PrintRaw, NullArgumentsAreReported) {
    StderrCapture err;
    const DWORD beat = 0;
    NETPACK_print_ds_raw(nullptr, "NET_SERVER_Heartbeat", 4, stdout, "");
    NETPACK_print_ds_raw(&beat, nullptr, 4, stdout, "");
    NETPACK_print_ds_raw(&beat, "NET_SERVER_Heartbeat", 4, nullptr, "");
    EXPECT_EQ(occurrences(err.finish(), "assertion failed (netpack_print.cpp:"), 3u);
    EXPECT_EQ(printed([&](FILE *stream) {
                  NETPACK_print_ds_raw(&beat, "NET_SERVER_Heartbeat", 4, stream, nullptr);
              }),
              "hb_idx(INT)=0\n");
}

TEST(ValueText, NumbersWithoutValue) {
    EXPECT_EQ(number(NAN), "        +NAN");
    EXPECT_EQ(number(-INFINITY), "        -INF");
    EXPECT_EQ(number(-0.0), "-0.000000E+00");
    EXPECT_EQ(number(9.9999995e9), "+1.000000E+10");
    EXPECT_EQ(number(1.7976931348623157e308), "+1.797693E+308");
    EXPECT_EQ(number(5e-324), "+4.940656E-324");
}

// The form is that of the platform's format, digit for digit.
TEST(ValueText, NumbersAreThoseOfTheFormat) {
    std::mt19937_64 random(1);
    for (int i = 0; i < 20000; ++i) {
        const uint64_t bits = random();
        double value;
        memcpy(&value, &bits, sizeof value);
        char expected[64];
        snprintf(expected, sizeof expected, "%+012E", value);
        ASSERT_EQ(number(value), expected);
    }
}

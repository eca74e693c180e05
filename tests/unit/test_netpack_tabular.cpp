#include "netpack_samples.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace zeb::test;
using namespace zeb::netpack;
using testing::HasSubstr;

namespace {

const std::vector<NETDSD_field> k_ab_fields = {{NETDSD_FT_INT, "a", 0, 1, "", 4, "int"},
                                               {NETDSD_FT_INT, "b", 4, 1, "", 4, "int"}};
const std::vector<NETDSD_field> k_w_fields = {{NETDSD_FT_BIN, "w", 0, 2, "", 8, "Ab"}};

class Tabular : public testing::Test {
  protected:
    std::string header(const Catalogue &catalogue, const char *type, const char *prefix = "") {
        print_tabular_header(catalogue, find_structure(catalogue, type), queue_.fh(), prefix);
        return queue_.take();
    }
    std::string row(const Catalogue &catalogue, const void *record, const char *type, size_t size) {
        print_tabular(catalogue, record, type, size, queue_.fh());
        return queue_.take();
    }

    QueuedText queue_;
    TestCatalogue samples_{sample_structures()};
    TestCatalogue nested_{{entry_of("Ab", k_ab_fields, 8), entry_of("W", k_w_fields, 16)}};
    StderrCapture err_;
};

// Written as one column, read from several.
bool has_array_of_bytes(const NETDSD_entry &entry) {
    for (size_t i = 0; i < entry.count_fields; ++i) {
        const NETDSD_field &field = entry.fields[i];
        const bool bytes = field.ft == NETDSD_FT_A_CHAR || field.ft == NETDSD_FT_A_BYTE;
        if ((bytes && field.count > 1) ||
            (field.ft == NETDSD_FT_BIN && has_array_of_bytes(*NETPACK_find_ds(field.type_name))))
            return true;
    }
    return false;
}

template <class T> void put(char *to, T value) {
    memcpy(to, &value, sizeof value);
}

// Values that their texts hold without loss.
void put_value(const NETDSD_field &field, char *to, size_t j) {
    switch (static_cast<unsigned>(scalar_of(field.ft))) {
    case NETDSD_FT_BOOL:
        return put(to, BOOL{TRUE});
    case NETDSD_FT_FTIME:
        return put(to, FTIME{k_sample_time + 0.25 + static_cast<double>(j)});
    case NETDSD_FT_TIME:
        return put(to, static_cast<TIME>(k_sample_time + j));
    case NETDSD_FT_DOUBLE:
        return put(to, j % 2 != 0 ? double{MVC} : -1.5e99);
    case NETDSD_FT_FLOAT:
        return put(to, 0.5f + static_cast<float>(j));
    default:
        memset(to, 0xA5 + static_cast<int>(j % 8), g_netpack_field_sizes[field.ft]);
    }
}

void fill(const NETDSD_entry &entry, char *record) {
    memset(record, 0, entry.total_size);
    for (size_t i = 0; i < entry.count_fields; ++i) {
        const NETDSD_field &field = entry.fields[i];
        char *to = record + field.offset;
        if (field.ft == NETDSD_FT_STRING) {
            memset(to, 'x', field.count - 1);
            continue;
        }
        for (size_t j = 0; j < element_count(field); ++j) {
            if (field.ft == NETDSD_FT_BIN)
                fill(*NETPACK_find_ds(field.type_name), to + j * field.size);
            else
                put_value(field, to + j * g_netpack_field_sizes[field.ft], j);
        }
    }
}

} // namespace

// ---- The header

TEST_F(Tabular, HeaderOfNoDescriptionIsRawContents) {
    NETPACK_print_tabular_header_zebfile(nullptr, queue_.fh(), "p_");
    EXPECT_EQ(queue_.take(), "RawContents");
}

TEST_F(Tabular, HeaderOfAnArrayOfThreeHasNumberedColumns) {
    OneField one(NETDSD_FT_A_INT, 3, 4, "int");
    EXPECT_EQ(header(one.get(), "One"), "v_1,v_2,v_3");
    EXPECT_EQ(header(one.get(), "One", "p_"), "p_v_1,p_v_2,p_v_3");
}

TEST_F(Tabular, HeaderOfNestedElementsJoinsTheirNames) {
    EXPECT_EQ(header(nested_.get(), "W"), "w_1_a,w_1_b,w_2_a,w_2_b");
    EXPECT_EQ(header(nested_.get(), "W", "p."), "p.w_1_a,p.w_1_b,p.w_2_a,p.w_2_b");
}

TEST_F(Tabular, HeaderOfASingleNestedRecordHasNoNumber) {
    const std::string text = header(samples_.get(), "NET_AE33_Instant");
    EXPECT_EQ(text.rfind("S,in_ATN_time,in_P,", 0), 0u);
    EXPECT_THAT(text, HasSubstr(",in_X_6,in_X_7,in_a1_1,"));
    EXPECT_THAT(text, HasSubstr(",ra_wavelengths_7,start_time"));
    EXPECT_EQ(occurrences(text, ","), 2 + 2 * (6 + 8 * 7) - 1);
}

TEST_F(Tabular, HeaderOfEveryType) {
    EXPECT_EQ(header(samples_.get(), "Every"),
              "a_bin_1,a_bin_2,a_bin_3,a_bool_1,a_bool_2,a_byte_1,a_byte_2,a_byte_3,a_char_1,"
              "a_char_2,a_char_3,a_char_4,a_char_5,a_double_1,a_double_2,a_double_3,a_float_1,"
              "a_float_2,a_ftime_1,a_ftime_2,a_int_1,a_int_2,a_long_1,a_long_2,a_short_1,a_short_2,"
              "a_short_3,a_sizet_1,a_sizet_2,a_time_1,a_time_2,a_uint_1,a_uint_2,a_ulong_1,"
              "a_ulong_2,a_ushort_1,a_ushort_2,b,byte,c,d,f,ft,i,l,s,sz,text,tm,ui,ul,us");
}

TEST_F(Tabular, HeaderLongerThanItsBufferIsWhole) {
    OneField one(NETDSD_FT_A_BYTE, 3000, 1, "BYTE");
    const std::string text = header(one.get(), "One", "a_long_prefix_");
    EXPECT_EQ(occurrences(text, "a_long_prefix_v_"), 3000u);
    EXPECT_THAT(text, testing::EndsWith(",a_long_prefix_v_2999,a_long_prefix_v_3000"));
}

TEST_F(Tabular, HeaderOfAStructureWithinItselfEnds) {
    const std::vector<NETDSD_field> fields = {{NETDSD_FT_BIN, "v", 0, 1, "", 8, "Self"}};
    TestCatalogue catalogue({entry_of("Self", fields, 8)});
    EXPECT_EQ(header(catalogue.get(), "Self"), "");
    EXPECT_THAT(err_.finish(), HasSubstr("Structure \"Self\" is nested too deeply ("));
}

// ---- Values

TEST_F(Tabular, ArrayOfThreeIntegersIsThreeColumns) {
    OneField one(NETDSD_FT_A_INT, 3, 4, "int");
    const int32_t values[3] = {1, 2, 3};
    EXPECT_EQ(row(one.get(), values, "One", sizeof values), "1,2,3");
}

TEST_F(Tabular, ArrayOfThreeBytesHasThreeNamesAndOneColumn) {
    OneField one(NETDSD_FT_A_BYTE, 3, 1, "BYTE");
    EXPECT_EQ(header(one.get(), "One"), "v_1,v_2,v_3");
    EXPECT_EQ(row(one.get(), "\x01\xAB\x0F", "One", 3), "01AB0F");
}

TEST_F(Tabular, EveryTypeHasItsForm) {
    const Every e = sample_every();
    EXPECT_EQ(row(samples_.get(), &e, "Every", sizeof e),
              "0001020304,05060708,090A0B,0,1,0102FF,FF41000102,"
              "+1.500000E+00,-2.250000E+00,+9.999000E-99,+5.000000E-01,-1.000000E+10,"
              "19700101_0000000250,INVALID,-1,2147483647,-2147483648,5,-1,0,32767,0,4294967295,"
              "19700101_000000,INVALID,0,4294967295,1,2,65535,0,1,0A,7A,+0.000000E+00,"
              "+1.250000E-01,20140821_1424010250,-7,-8,-9,10,hello,20140821_142401,3000000000,"
              "4000000000,60000");
}

TEST_F(Tabular, NestedElementsAreWrittenInPlace) {
    const int32_t values[4] = {1, 2, 3, 4};
    EXPECT_EQ(row(nested_.get(), values, "W", sizeof values), "1,2,3,4");
}

TEST_F(Tabular, UnknownStructureIsALineOfHexDigits) {
    NETPACK_print_ds_tabular_raw_zebfile("\x00\xAB", "NET_NOT_There", 2, queue_.fh());
    EXPECT_EQ(queue_.take(), "00AB\n");
    EXPECT_THAT(err_.finish(),
                HasSubstr("WARNING: Bad structure description for \"NET_NOT_There\" ("));
}

TEST_F(Tabular, RecordOfAnotherSizeIsALineOfHexDigits) {
    NETPACK_print_ds_tabular_raw_zebfile("\1\2\3", "NET_SERVER_Heartbeat", 3, queue_.fh());
    EXPECT_EQ(queue_.take(), "010203\n");
    EXPECT_EQ(occurrences(err_.finish(), "WARNING: Bad structure description"), 1u);
}

TEST_F(Tabular, NestedElementOfAnotherSizeEndsALine) {
    const std::vector<NETDSD_field> outer = {{NETDSD_FT_BIN, "w", 0, 1, "", 2, "Ab"},
                                             {NETDSD_FT_BYTE, "x", 2, 1, "", 1, "BYTE"}};
    TestCatalogue catalogue({entry_of("Ab", k_ab_fields, 8), entry_of("Outer", outer, 3)});
    EXPECT_EQ(row(catalogue.get(), "\1\2\3", "Outer", 3), "0102\n,03");
}

TEST_F(Tabular, CommaFollowsTheFirstByteOfOpaqueElements) {
    OneField pairs(NETDSD_FT_BIN, 2, 2, "Opaque");
    EXPECT_EQ(row(pairs.get(), "\1\2\3\4", "One", 4), "010203,04");
    OneField single(NETDSD_FT_BIN, 1, 4, "Opaque");
    EXPECT_EQ(row(single.get(), "\1\2\3\4", "One", 4), "01020304");
    OneField bytes(NETDSD_FT_BIN, 3, 1, "Opaque");
    EXPECT_EQ(row(bytes.get(), "\1\2\3", "One", 3), "0102,03,");
}

TEST_F(Tabular, UnterminatedTextEndsWithItsMember) {
    OneField one(NETDSD_FT_STRING, 4, 1, "STRING");
    char *exact = static_cast<char *>(malloc(4));
    memcpy(exact, "a%sd", 4);
    EXPECT_EQ(row(one.get(), exact, "One", 4), "a%sd");
    free(exact);
    EXPECT_THAT(err_.finish(), HasSubstr("WARNING: Text of field \"v\" isn't terminated"));
}

TEST_F(Tabular, TimesOfOddYearsFitTheirTexts) {
    OneField one(NETDSD_FT_A_FTIME, 3, 8, "FTIME");
    const FTIME times[3] = {253402300800.0, 1e300, NAN};
    EXPECT_EQ(row(one.get(), times, "One", sizeof times),
              sizeof(time_t) > 4 ? "100000101_000000000,INVALID,INVALID" // cut
                                 : "INVALID,INVALID,INVALID");
}

TEST_F(Tabular, UnknownDescriptorIsReported) {
    const NET_SERVER_Heartbeat beat = {5};
    NETPACK_print_ds_tabular_raw_zebfile(&beat, "NET_SERVER_Heartbeat", sizeof beat, 999);
    EXPECT_THAT(err_.finish(), HasSubstr("Unable to write to file 999 ("));
}

// ---- Reading

TEST_F(Tabular, ReadsAnArrayOfThreeIntegers) {
    OneField one(NETDSD_FT_A_INT, 3, 4, "int");
    int32_t values[3] = {};
    EXPECT_EQ(read_tabular(one.get(), values, "One", sizeof values, "1,2,3"), 3u);
    EXPECT_EQ(values[0], 1);
    EXPECT_EQ(values[1], 2);
    EXPECT_EQ(values[2], 3);
}

TEST_F(Tabular, ReadsThreeColumnsForAnArrayOfThreeBytes) {
    OneField one(NETDSD_FT_A_BYTE, 3, 1, "BYTE");
    BYTE values[3] = {};
    EXPECT_EQ(read_tabular(one.get(), values, "One", 3, "1,AB,0f"), 3u);
    EXPECT_EQ(values[0], 1);
    EXPECT_EQ(values[1], 0xAB);
    EXPECT_EQ(values[2], 15);
    EXPECT_EQ(err_.text(), "");
    // Its own single column is a number too large, of which the last byte stays.
    EXPECT_EQ(read_tabular(one.get(), values, "One", 3, "010203"), 1u);
    EXPECT_EQ(values[0], 3);
    EXPECT_THAT(err_.finish(), HasSubstr("Error parsing 010203 ("));
}

TEST_F(Tabular, TextLongerThanItsCapacityIsCut) {
    OneField one(NETDSD_FT_STRING, 4, 1, "STRING");
    char text[5] = {'#', '#', '#', '#', '#'};
    EXPECT_EQ(read_tabular(one.get(), text, "One", 4, "abcdef"), 1u);
    EXPECT_STREQ(text, "abc");
    EXPECT_EQ(text[4], '#');
    EXPECT_EQ(read_tabular(one.get(), text, "One", 4, ""), 1u);
    EXPECT_EQ(memcmp(text, "\0\0\0\0", 4), 0);
}

TEST_F(Tabular, EveryBooleanReadsAsTrue) {
    OneField one(NETDSD_FT_BOOL, 1, 1, "BOOL");
    for (const char *text : {"0", "1", "FALSE", "TRUE", "YES", "no", "nan", ""}) {
        BOOL value = 0;
        EXPECT_EQ(read_tabular(one.get(), &value, "One", 1, text), 1u);
        EXPECT_EQ(value, 1) << text;
    }
}

TEST_F(Tabular, IntegersAreReadInTheBaseTheyShow) {
    OneField one(NETDSD_FT_A_SHORT, 5, 2, "short");
    int16_t values[5] = {};
    EXPECT_EQ(read_tabular(one.get(), values, "One", sizeof values, "12,0x1F,010,-3, 65537x"), 5u);
    EXPECT_EQ(values[0], 12);
    EXPECT_EQ(values[1], 31);
    EXPECT_EQ(values[2], 8);
    EXPECT_EQ(values[3], -3);
    EXPECT_EQ(values[4], 1); // at the element's width
}

TEST_F(Tabular, UnsignedIntegersKeepTheirLargestValue) {
    OneField one(NETDSD_FT_UINT, 1, 4, "DWORD");
    DWORD value = 0;
    EXPECT_EQ(read_tabular(one.get(), &value, "One", 4, "4294967295"), 1u);
    EXPECT_EQ(value, 4294967295u);
}

TEST_F(Tabular, WordsInPlaceOfNumbersAreZero) {
    OneField integers(NETDSD_FT_A_LONG, 2, 4, "long");
    LONG values[2] = {9, 9};
    EXPECT_EQ(read_tabular(integers.get(), values, "One", sizeof values, "pump,"), 2u);
    EXPECT_EQ(values[0] | values[1], 0);
    OneField real(NETDSD_FT_DOUBLE, 1, 8, "double");
    double number = 9;
    EXPECT_EQ(read_tabular(real.get(), &number, "One", 8, "valve"), 1u);
    EXPECT_EQ(number, 0.0);
    OneField time(NETDSD_FT_TIME, 1, 4, "time_t");
    TIME seconds = 9;
    EXPECT_EQ(read_tabular(time.get(), &seconds, "One", 4, "INVALID"), 1u);
    EXPECT_EQ(seconds, 0);
}

TEST_F(Tabular, WordInPlaceOfASizeLeavesIt) {
    OneField one(NETDSD_FT_A_SIZET, 2, 4, "size_t");
    SIZET values[2] = {9, 9};
    EXPECT_EQ(read_tabular(one.get(), values, "One", sizeof values, "pump,4294967295"), 2u);
    EXPECT_EQ(values[0], 9u);
    EXPECT_EQ(values[1], 4294967295u);
}

TEST_F(Tabular, NestedRecordsAreReadInPlace) {
    int32_t values[4] = {};
    EXPECT_EQ(read_tabular(nested_.get(), values, "W", sizeof values, "1,2,3,4"), 4u);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(values[i], i + 1);
    EXPECT_EQ(err_.finish(), "");
}

TEST_F(Tabular, ShortLineIsReportedWithWhatItHad) {
    OneField one(NETDSD_FT_A_INT, 3, 4, "int");
    int32_t values[3] = {7, 8, 9};
    EXPECT_EQ(read_tabular(one.get(), values, "One", sizeof values, "1,2"), 2u);
    EXPECT_EQ(values[0], 1);
    EXPECT_EQ(values[1], 2);
    EXPECT_EQ(values[2], 9);
    const std::string text = err_.finish();
    EXPECT_THAT(text, HasSubstr("Error parsing 1,2 ("));
    EXPECT_EQ(occurrences(text, "Error parsing"), 1u);
}

// The nested record reports the part that was left for it, the outer one the line.
TEST_F(Tabular, LineThatEndsInANestedRecordIsReported) {
    int32_t values[4] = {};
    EXPECT_EQ(read_tabular(nested_.get(), values, "W", sizeof values, "1,2,3"), 3u);
    EXPECT_EQ(values[2], 3);
    EXPECT_EQ(occurrences(err_.text(), "Error parsing 3 ("), 1u);
    EXPECT_EQ(read_tabular(nested_.get(), values, "W", sizeof values, "5"), 1u);
    EXPECT_EQ(values[0], 5);
    EXPECT_EQ(occurrences(err_.finish(), "Error parsing 5 ("), 2u);
}

TEST_F(Tabular, ColumnsBeyondTheLastFieldAreLeftAlone) {
    OneField one(NETDSD_FT_A_INT, 3, 4, "int");
    int32_t values[3] = {};
    EXPECT_EQ(read_tabular(one.get(), values, "One", sizeof values, "1,2,3,4,5"), 3u);
    EXPECT_EQ(err_.finish(), "");
}

TEST_F(Tabular, UnknownStructureReadsHexPairs) {
    BYTE record[4] = {9, 9, 9, 9};
    EXPECT_EQ(NETPACK_read_ds_tabular_raw(record, "NET_NOT_There", 4, "01ab7"), 1u);
    EXPECT_EQ(record[0], 0x01);
    EXPECT_EQ(record[1], 0xAB);
    EXPECT_EQ(record[2], 0x07); // an odd digit at the end is a byte
    EXPECT_EQ(record[3], 9);
    EXPECT_THAT(err_.finish(),
                HasSubstr("WARNING: Bad structure description for \"NET_NOT_There\" ("));
}

TEST_F(Tabular, HexPairsOfAnUnknownStructureEndWithTheRecordOrAtOtherText) {
    BYTE record[2] = {9, 9};
    EXPECT_EQ(NETPACK_read_ds_tabular_raw(record, "NET_NOT_There", 1, "0102"), 1u);
    EXPECT_EQ(record[1], 9);
    EXPECT_EQ(NETPACK_read_ds_tabular_raw(record, "NET_NOT_There", 2, "07zz"), 1u);
    EXPECT_EQ(record[0], 7);
    EXPECT_EQ(record[1], 9);
    EXPECT_EQ(NETPACK_read_ds_tabular_raw(record, "NET_NOT_There", 2, ""), 1u);
    EXPECT_EQ(record[0], 7);
}

TEST_F(Tabular, BlanksBeforeAHexPairAreSkippedButNotCounted) {
    BYTE record[2] = {9, 9};
    EXPECT_EQ(NETPACK_read_ds_tabular_raw(record, "NET_NOT_There", 1, "  12"), 1u);
    EXPECT_EQ(record[0], 0x12);
    EXPECT_EQ(NETPACK_read_ds_tabular_raw(record, "NET_NOT_There", 2, " 12"), 1u);
    EXPECT_EQ(record[0], 0x12);
    EXPECT_EQ(record[1], 0x02); // two characters further stands the 2
}

TEST_F(Tabular, OpaqueElementsAreReadFromAColumnEach) {
    const std::vector<NETDSD_field> fields = {{NETDSD_FT_BIN, "o", 0, 2, "", 2, "Opaque"},
                                              {NETDSD_FT_BYTE, "p", 4, 1, "", 1, "BYTE"}};
    TestCatalogue catalogue({entry_of("Opaques", fields, 5)});
    BYTE record[5] = {};
    EXPECT_EQ(read_tabular(catalogue.get(), record, "Opaques", 5, "0102,0304,05"), 3u);
    EXPECT_EQ(memcmp(record, "\1\2\3\4\5", 5), 0);
    EXPECT_EQ(err_.finish(), "");
}

TEST_F(Tabular, OpaqueElementThatIsNoHexEndsItsField) {
    const std::vector<NETDSD_field> fields = {{NETDSD_FT_BIN, "o", 0, 2, "", 2, "Opaque"},
                                              {NETDSD_FT_BYTE, "p", 4, 1, "", 1, "BYTE"}};
    TestCatalogue catalogue({entry_of("Opaques", fields, 5)});
    BYTE record[5] = {};
    EXPECT_EQ(read_tabular(catalogue.get(), record, "Opaques", 5, "01zz,07"), 2u);
    EXPECT_EQ(memcmp(record, "\1\0\0\0\7", 5), 0);
    EXPECT_EQ(read_tabular(catalogue.get(), record, "Opaques", 5, "0,03,04"), 2u);
    EXPECT_EQ(record[1], 0); // a column is not left for the next
    EXPECT_EQ(record[4], 3);
}

TEST_F(Tabular, ReadingEndsAfterOneByteOfTheLastOpaqueColumn) {
    OneField one(NETDSD_FT_BIN, 2, 2, "Opaque");
    BYTE record[4] = {9, 9, 9, 9};
    EXPECT_EQ(read_tabular(one.get(), record, "One", 4, "0102,0304"), 2u);
    EXPECT_EQ(memcmp(record, "\1\2\3\11", 4), 0);
    EXPECT_EQ(read_tabular(one.get(), record, "One", 4, "0708"), 1u);
    EXPECT_EQ(memcmp(record, "\7\2\3\11", 4), 0);
    EXPECT_EQ(err_.finish(), "");
}

TEST_F(Tabular, NullArgumentsAreReported) {
    DWORD beat = 0;
    NETPACK_print_ds_tabular_raw_zebfile(nullptr, "NET_SERVER_Heartbeat", 4, queue_.fh());
    NETPACK_print_ds_tabular_raw_zebfile(&beat, nullptr, 4, queue_.fh());
    EXPECT_EQ(NETPACK_read_ds_tabular_raw(nullptr, "NET_SERVER_Heartbeat", 4, ""), 0u);
    EXPECT_EQ(NETPACK_read_ds_tabular_raw(&beat, nullptr, 4, ""), 0u);
    EXPECT_EQ(NETPACK_read_ds_tabular_raw(&beat, "NET_SERVER_Heartbeat", 4, nullptr), 0u);
    EXPECT_EQ(occurrences(err_.finish(), "assertion failed (netpack_tabular.cpp:"), 5u);
    NETPACK_print_tabular_header_zebfile(NETPACK_find_ds("NET_SERVER_Heartbeat"), queue_.fh(),
                                         nullptr);
    EXPECT_EQ(queue_.take(), "hb_idx");
}

// ---- Both ways

// docs/formats/tabular.md shows it.
TEST_F(Tabular, ExampleReadsAsDocumented) {
#pragma pack(push, 4)
    struct Pump {
        BOOL on;
        TIME since;
        int32_t n[3];
        Part parts[2];
    };
#pragma pack(pop)
    const std::vector<NETDSD_field> fields = {
        TEST_FIELD(NETDSD_FT_A_INT, Pump, n, 3, 4, "int"),
        TEST_FIELD(NETDSD_FT_BOOL, Pump, on, 1, 1, "BOOL"),
        TEST_FIELD(NETDSD_FT_BIN, Pump, parts, 2, sizeof(Part), "Part"),
        TEST_FIELD(NETDSD_FT_TIME, Pump, since, 1, 4, "time_t"),
    };
    TestCatalogue catalogue(
        {entry_of("Part", k_part_fields, sizeof(Part)), entry_of("Pump", fields, sizeof(Pump))});
    const Pump pump = {TRUE, k_sample_time, {1, 2, 3}, {{1.5, "ab"}, {MVC, ""}}};
    EXPECT_EQ(header(catalogue.get(), "Pump"),
              "n_1,n_2,n_3,on,parts_1_tag,parts_1_v,parts_2_tag,parts_2_v,since");
    const std::string line = "1,2,3,1,ab,+1.500000E+00,,+9.999000E-99,20140821_142401";
    EXPECT_EQ(row(catalogue.get(), &pump, "Pump", sizeof pump), line);
    Pump copy = {};
    EXPECT_EQ(read_tabular(catalogue.get(), &copy, "Pump", sizeof copy, line.c_str()), 9u);
    EXPECT_EQ(copy.on, TRUE);
    const size_t since = offsetof(Pump, since); // padding lies before it
    EXPECT_EQ(memcmp(&copy.since, &pump.since, sizeof pump - since), 0);
}

TEST_F(Tabular, EveryStructureComesBackButThoseWithArraysOfBytes) {
    size_t survivors = 0;
    for (size_t i = 0; i < _ndsd_structures_count_ext; ++i) {
        const NETDSD_entry &entry = _ndsd_structures_ext[i];
        if (has_array_of_bytes(entry))
            continue;
        ++survivors;
        std::vector<char> record(entry.total_size);
        std::vector<char> copy(entry.total_size);
        fill(entry, record.data());
        NETPACK_print_ds_tabular_raw_zebfile(record.data(), entry.name, record.size(), queue_.fh());
        const std::string line = queue_.take();
        NETPACK_print_tabular_header_zebfile(&entry, queue_.fh(), "");
        const size_t columns = occurrences(queue_.take(), ",") + 1;
        EXPECT_EQ(NETPACK_read_ds_tabular_raw(copy.data(), entry.name, copy.size(), line.c_str()),
                  columns)
            << entry.name;
        EXPECT_EQ(copy, record) << entry.name << ": " << line;
    }
    EXPECT_GT(survivors, 240u);
    EXPECT_EQ(err_.finish(), "");
}

TEST_F(Tabular, ArraysOfBytesDoNotComeBack) {
    for (const char *name : {"NET_NEPH_Instant", "NET_SERVER_FilterAdd", "NET_TEST_Test2"}) {
        const NETDSD_entry &entry = *NETPACK_find_ds(name);
        std::vector<char> record(entry.total_size);
        fill(entry, record.data());
        NETPACK_print_ds_tabular_raw_zebfile(record.data(), name, record.size(), queue_.fh());
        const std::string line = queue_.take();
        NETPACK_read_ds_tabular_raw(record.data(), name, record.size(), line.c_str());
        EXPECT_EQ(occurrences(err_.text(), "Error parsing " + line + " ("), 1u) << name;
    }
}

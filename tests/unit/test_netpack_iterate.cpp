#include "netpack_samples.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace zeb::test;
using namespace zeb::netpack;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

struct Value {
    std::string name;
    NETPACK_ds_iterator_types type;
    Bytes bytes;
    const void *place;
};

void collect(char *name, NETPACK_ds_iterator_types type, void *value, size_t size, void *param) {
    const auto *first = static_cast<const unsigned char *>(value);
    static_cast<std::vector<Value> *>(param)->push_back({name, type, {first, first + size}, value});
}

template <typename T> T as(const Bytes &bytes) {
    T value = {};
    EXPECT_EQ(bytes.size(), sizeof value);
    memcpy(&value, bytes.data(), std::min(bytes.size(), sizeof value));
    return value;
}

std::string text_of(const Value &value) {
    char text[64];
    switch (value.type) {
    case NETPACK_ITERATOR_LONG:
        snprintf(text, sizeof text, "%d", as<int32_t>(value.bytes));
        break;
    case NETPACK_ITERATOR_DOUBLE:
        snprintf(text, sizeof text, "%.10g", as<double>(value.bytes));
        break;
    case NETPACK_ITERATOR_STRING:
        return "\"" + std::string(value.bytes.begin(), value.bytes.end()) + "\"";
    case NETPACK_ITERATOR_BIN:
        return std::to_string(value.bytes.size()) + " bytes";
    }
    return text;
}

std::vector<Value> values_of(const Catalogue &catalogue, const void *record, const char *type,
                             size_t size, const char *prefix = "") {
    std::vector<Value> values;
    iterate_ds_raw(catalogue, record, type, size, collect, &values, prefix);
    return values;
}

std::vector<std::string> texts_of(const Catalogue &catalogue, const void *record, const char *type,
                                  size_t size, const char *prefix = "") {
    std::vector<std::string> texts;
    for (const Value &value : values_of(catalogue, record, type, size, prefix))
        texts.push_back(value.name + "=" + text_of(value));
    return texts;
}

std::vector<std::string> names_of(const std::vector<Value> &values) {
    std::vector<std::string> names;
    for (const Value &value : values)
        names.push_back(value.name);
    return names;
}

} // namespace

TEST(Iterate, KindsHaveTheirNumbers) {
    EXPECT_EQ(NETPACK_ITERATOR_LONG, 0);
    EXPECT_EQ(NETPACK_ITERATOR_DOUBLE, 1);
    EXPECT_EQ(NETPACK_ITERATOR_STRING, 2);
    EXPECT_EQ(NETPACK_ITERATOR_BIN, 3);
}

TEST(Iterate, EveryTypeIsHandedOutWidened) {
    TestCatalogue catalogue(sample_structures());
    const Every e = sample_every();
    EXPECT_THAT(
        texts_of(catalogue.get(), &e, "Every", sizeof e),
        ElementsAre("a_bin_1=4 bytes", "a_bin_2=4 bytes", "a_bin_3=4 bytes", "a_bool_1=0",
                    "a_bool_2=7", "a_byte_1=1", "a_byte_2=2", "a_byte_3=255", "a_char_1=-1",
                    "a_char_2=65", "a_char_3=0", "a_char_4=1", "a_char_5=2", "a_double_1=1.5",
                    "a_double_2=-2.25", "a_double_3=9.999e-99", "a_float_1=0.5", "a_float_2=-1e+10",
                    "a_ftime_1=0.25", "a_ftime_2=-1", "a_int_1=-1", "a_int_2=2147483647",
                    "a_long_1=-2147483648", "a_long_2=5", "a_short_1=-1", "a_short_2=0",
                    "a_short_3=32767", "a_sizet_1=0", "a_sizet_2=-1", "a_time_1=0", "a_time_2=-1",
                    "a_uint_1=0", "a_uint_2=-1", "a_ulong_1=1", "a_ulong_2=2", "a_ushort_1=65535",
                    "a_ushort_2=0", "b=1", "byte=10", "c=122", "d=0", "f=0.125", "ft=1408631041",
                    "i=-7", "l=-8", "s=-9", "sz=10", "text=\"hello\"", "tm=1408631041",
                    "ui=-1294967296", "ul=-294967296", "us=60000"));
}

TEST(Iterate, NestedNamesHavePrefixNumberAndField) {
    TestCatalogue catalogue(sample_structures());
    const Whole whole = {-2, {{1.5, "ab"}, {0.5, ""}}, 2.0};
    EXPECT_THAT(texts_of(catalogue.get(), &whole, "Whole", sizeof whole, "p."),
                ElementsAre("p.n=-2", "p.parts_1_tag=\"ab\"", "p.parts_1_v=1.5",
                            "p.parts_2_tag=\"\"", "p.parts_2_v=0.5", "p.when=2"));
}

TEST(Iterate, ElementOfAnArrayInANestedFieldIsNamedByBoth) {
    TestCatalogue catalogue(sample_structures());
    Ae33 record = {};
    record.in.X[2] = 7.5;
    const std::vector<Value> values =
        values_of(catalogue.get(), &record, "NET_AE33_Instant", sizeof record);
    EXPECT_EQ(values.size(), 2 + 2 * (6 + 8 * 7));
    EXPECT_EQ(values.front().name, "S");
    EXPECT_EQ(values.back().name, "start_time");
    size_t found = 0;
    for (const Value &value : values) {
        if (value.name != "in_X_3")
            continue;
        ++found;
        EXPECT_EQ(as<double>(value.bytes), 7.5);
    }
    EXPECT_EQ(found, 1u);
}

TEST(Iterate, ArrayOfOneElementHasNoNumber) {
    OneField one(NETDSD_FT_A_SHORT, 1, 2);
    const int16_t value = -3;
    EXPECT_THAT(texts_of(one.get(), &value, "One", sizeof value), ElementsAre("v=-3"));
}

TEST(Iterate, ArrayOfNoElementsHasNoValue) {
    OneField one(NETDSD_FT_A_SHORT, 0, 2);
    const int16_t value = -3;
    EXPECT_THAT(texts_of(one.get(), &value, "One", 0), ElementsAre());
}

TEST(Iterate, TextsAndBytesPointIntoTheRecord) {
    TestCatalogue catalogue(sample_structures());
    const Every e = sample_every();
    int seen = 0;
    for (const Value &value : values_of(catalogue.get(), &e, "Every", sizeof e)) {
        seen += value.name == "text" || value.name == "a_bin_2";
        if (value.name == "text") {
            EXPECT_EQ(value.place, &e.text);
        } else if (value.name == "a_bin_2") {
            EXPECT_EQ(value.place, &e.a_bin[4]);
            EXPECT_EQ(value.bytes, Bytes({4, 5, 6, 7}));
        }
    }
    EXPECT_EQ(seen, 2);
}

TEST(Iterate, NumbersAreReadFromUnalignedPlaces) {
    TestCatalogue catalogue(sample_structures());
    const Every e = sample_every();
    std::vector<char> shifted(sizeof e + 1);
    memcpy(shifted.data() + 1, &e, sizeof e);
    EXPECT_EQ(texts_of(catalogue.get(), shifted.data() + 1, "Every", sizeof e),
              texts_of(catalogue.get(), &e, "Every", sizeof e));
}

TEST(Iterate, UnterminatedTextIsHandedOutTerminated) {
    OneField one(NETDSD_FT_STRING, 4, 1, "STRING");
    char *exact = static_cast<char *>(malloc(4));
    memcpy(exact, "abcd", 4);
    StderrCapture err;
    struct Seen {
        std::string text;
        size_t size = 0;
    } got;
    iterate_ds_raw(
        one.get(), exact, "One", 4,
        [](char *, NETPACK_ds_iterator_types, void *value, size_t length, void *param) {
            static_cast<Seen *>(param)->text = static_cast<char *>(value);
            static_cast<Seen *>(param)->size = length;
        },
        &got, nullptr);
    free(exact);
    EXPECT_EQ(got.text, "abcd");
    EXPECT_EQ(got.size, 4u);
    EXPECT_THAT(err.finish(), HasSubstr("WARNING: Text of field \"v\" isn't terminated"));
}

TEST(Iterate, CallbackMayChangeTheName) {
    TestCatalogue catalogue(sample_structures());
    const Whole whole = {};
    std::vector<std::string> names;
    iterate_ds_raw(
        catalogue.get(), &whole, "Whole", sizeof whole,
        [](char *name, NETPACK_ds_iterator_types, void *, size_t, void *param) {
            static_cast<std::vector<std::string> *>(param)->emplace_back(name);
            memset(name, '#', strlen(name));
        },
        &names, "x");
    EXPECT_THAT(names, ElementsAre("xn", "xparts_1_tag", "xparts_1_v", "xparts_2_tag", "xparts_2_v",
                                   "xwhen"));
}

TEST(Iterate, UnknownStructureIsOneRawValue) {
    const char record[5] = {1, 2, 3, 4, 5};
    StderrCapture err;
    std::vector<Value> values;
    NETPACK_iterate_ds_raw(record, "NET_NOT_There", sizeof record, collect, &values, "x_");
    ASSERT_EQ(values.size(), 1u);
    EXPECT_EQ(values[0].name, "x_Raw");
    EXPECT_EQ(values[0].type, NETPACK_ITERATOR_BIN);
    EXPECT_EQ(values[0].bytes, Bytes({1, 2, 3, 4, 5}));
    EXPECT_EQ(values[0].place, record);
    EXPECT_THAT(err.finish(),
                HasSubstr("WARNING: Bad structure description for \"NET_NOT_There\" ("));
}

TEST(Iterate, RecordOfAnotherSizeIsOneRawValue) {
    const DWORD beat[2] = {};
    StderrCapture err;
    std::vector<Value> values;
    NETPACK_iterate_ds_raw_lib(beat, "NET_SERVER_Heartbeat", sizeof beat, collect, &values, "");
    EXPECT_THAT(names_of(values), ElementsAre("Raw"));
    EXPECT_EQ(occurrences(err.finish(), "WARNING: Bad structure description"), 1u);
}

TEST(Iterate, NestedElementOfAnotherSizeIsRaw) {
    const std::vector<NETDSD_field> outer = {{NETDSD_FT_BIN, "w", 0, 2, "", 6, "Part"}};
    TestCatalogue catalogue(
        {entry_of("Outer", outer, 12), entry_of("Part", k_part_fields, sizeof(Part))});
    const char record[12] = {};
    StderrCapture err;
    EXPECT_THAT(texts_of(catalogue.get(), record, "Outer", sizeof record),
                ElementsAre("w_1_Raw=6 bytes", "w_2_Raw=6 bytes"));
    EXPECT_EQ(occurrences(err.finish(), "WARNING: Bad structure description for \"Part\""), 2u);
}

TEST(Iterate, DescriptionBeyondTheRecordCountsAsNone) {
    const std::vector<NETDSD_field> fields = {{NETDSD_FT_A_INT, "v", 0, 3, "", 4, "int"}};
    TestCatalogue catalogue({entry_of("Lying", fields, 8)});
    const char record[8] = {};
    StderrCapture err;
    EXPECT_THAT(texts_of(catalogue.get(), record, "Lying", sizeof record),
                ElementsAre("Raw=8 bytes"));
}

TEST(Iterate, StructureWithinItselfEnds) {
    const std::vector<NETDSD_field> fields = {{NETDSD_FT_BIN, "v", 0, 1, "", 8, "Self"}};
    TestCatalogue catalogue({entry_of("Self", fields, 8)});
    const char record[8] = {};
    StderrCapture err;
    EXPECT_THAT(texts_of(catalogue.get(), record, "Self", sizeof record), ElementsAre());
    EXPECT_THAT(err.finish(), HasSubstr("Structure \"Self\" is nested too deeply ("));
}

TEST(Iterate, NullArgumentsAreReported) {
    StderrCapture err;
    const DWORD beat = 0;
    std::vector<Value> values;
    NETPACK_iterate_ds_raw(nullptr, "NET_SERVER_Heartbeat", 4, collect, &values, "");
    NETPACK_iterate_ds_raw(&beat, nullptr, 4, collect, &values, "");
    NETPACK_iterate_ds_raw(&beat, "NET_SERVER_Heartbeat", 4, nullptr, &values, "");
    EXPECT_TRUE(values.empty());
    EXPECT_EQ(occurrences(err.finish(), "assertion failed (netpack_iterate.cpp:"), 3u);
    NETPACK_iterate_ds_raw(&beat, "NET_SERVER_Heartbeat", 4, collect, &values, nullptr);
    EXPECT_THAT(names_of(values), ElementsAre("hb_idx"));
}

// Every record of the station has distinct names, also where an array meets a field with a number.
TEST(Iterate, EveryStructureOfTheCatalogueIsWalked) {
    for (size_t i = 0; i < _ndsd_structures_count_ext; ++i) {
        const NETDSD_entry &entry = _ndsd_structures_ext[i];
        std::vector<char> record(entry.total_size);
        std::vector<Value> values;
        NETPACK_iterate_ds_raw(record.data(), entry.name, record.size(), collect, &values, "");
        EXPECT_GE(values.size(), entry.count_fields) << entry.name;
        std::vector<std::string> names = names_of(values);
        std::sort(names.begin(), names.end());
        EXPECT_EQ(std::unique(names.begin(), names.end()), names.end()) << entry.name;
    }
}

#include "netpack_catalogue.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>

using namespace zeb::test;
using namespace zeb::netpack;

namespace {

bool has(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

// Fills with noise, keeping texts terminated and padding zero.
void fill_randomly(const Catalogue &catalogue, const NETDSD_entry &entry, char *record,
                   std::mt19937 &random) {
    memset(record, 0, entry.total_size);
    for (size_t i = 0; i < entry.count_fields; ++i) {
        const NETDSD_field &f = entry.fields[i];
        char *at = record + f.offset;
        const NETDSD_entry *nested =
            f.ft == NETDSD_FT_BIN ? find_structure(catalogue, f.type_name) : nullptr;
        if (nested != nullptr) {
            for (size_t j = 0; j < f.count; ++j)
                fill_randomly(catalogue, *nested, at + j * f.size, random);
        } else if (f.ft == NETDSD_FT_STRING) {
            const size_t size = random() % f.count;
            for (size_t j = 0; j < size; ++j)
                at[j] = static_cast<char>('!' + random() % 90);
        } else {
            for (size_t j = 0; j < field_bytes(f); ++j)
                at[j] = static_cast<char>(random());
        }
    }
}

void expect_survival(const Catalogue &catalogue) {
    std::mt19937 random(1);
    for (size_t row = 0; row < catalogue.count_structures; ++row) {
        const NETDSD_entry &entry = catalogue.structures[row];
        for (int round = 0; round < 5; ++round) {
            std::vector<char> record(entry.total_size), back(entry.total_size, 'z');
            fill_randomly(catalogue, entry, record.data(), random);
            const Bytes package = pack(catalogue, record.data(), entry.name, record.size());
            StderrCapture err;
            EXPECT_EQ(unpack(catalogue, package, back.data(), entry.name, back.size()),
                      package.size());
            EXPECT_EQ(err.finish(), "") << entry.name;
            EXPECT_EQ(back, record) << entry.name;
        }
    }
}

} // namespace

TEST(Unpack, HeartbeatFromItsBytes) {
    DWORD index = 0;
    const Bytes package = load_hex("heartbeat.package.hex");
    EXPECT_EQ(NETPACK_unpack_ds(package.data(), package.size(), &index, 4, "NET_SERVER_Heartbeat"),
              39u);
    EXPECT_EQ(index, 5u);
    index = 0;
    EXPECT_EQ(
        NETPACK_unpack_ds_lib(package.data(), package.size(), &index, 4, "NET_SERVER_Heartbeat"),
        39u);
    EXPECT_EQ(index, 5u);
}

TEST(Unpack, NestedElementsFromTheirBytes) {
    TestCatalogue catalogue(sample_structures());
    Whole whole;
    memset(&whole, 0xEE, sizeof whole);
    const Bytes package = load_hex("whole.package.hex");
    EXPECT_EQ(unpack(catalogue.get(), package, &whole, "Whole", sizeof whole), package.size());
    EXPECT_EQ(+whole.n, -2);
    EXPECT_EQ(+whole.parts[0].v, 1.5);
    EXPECT_STREQ(whole.parts[0].tag, "ab");
    EXPECT_EQ(+whole.parts[1].v, 0.0);
    EXPECT_STREQ(whole.parts[1].tag, "");
    EXPECT_EQ(+whole.when, 2.0);
}

TEST(Unpack, EveryStructureOfTheCataloguesSurvives) {
    expect_survival(public_catalogue());
    expect_survival(private_catalogue());
}

TEST(Unpack, EveryHandWrittenStructureSurvives) {
    TestCatalogue catalogue(sample_structures());
    StderrCapture err;
    std::mt19937 random(2);
    for (size_t row = 1; row < 5; ++row) {
        const NETDSD_entry &entry = catalogue.get().structures[row];
        std::vector<char> record(entry.total_size), back(entry.total_size, 'z');
        fill_randomly(catalogue.get(), entry, record.data(), random);
        const Bytes package = pack(catalogue.get(), record.data(), entry.name, record.size());
        EXPECT_EQ(unpack(catalogue.get(), package, back.data(), entry.name, back.size()),
                  package.size());
        EXPECT_EQ(back, record) << entry.name;
    }
    EXPECT_EQ(err.finish(), "");
}

TEST(Unpack, UndescribedElementsSurvive) {
    TestCatalogue catalogue(sample_structures());
    Every record = {}, back;
    memset(&back, 0xEE, sizeof back);
    memcpy(record.a_bin, "0123456789ab", 12);
    record.us = 77;
    const Bytes package = pack(catalogue.get(), &record, "Every", sizeof record);
    StderrCapture err;
    EXPECT_EQ(unpack(catalogue.get(), package, &back, "Every", sizeof back), package.size() - 4);
    EXPECT_EQ(memcmp(&back, &record, sizeof back), 0);
    EXPECT_TRUE(has(err.finish(), "WARNING: Package of type \"Every\" ran out of fields before the "
                                  "end of the package ("));
}

TEST(Unpack, UndescribedElementsWithTheirSizeAreUnderstood) {
    OneField local(NETDSD_FT_BIN, 2, 3, "Unheard");
    PackageText package;
    package.open("One", 1).field("v", 29, 2).u8(0).u32(3).raw("abcdef", 6);
    char record[6];
    StderrCapture err;
    EXPECT_EQ(unpack(local.get(), package.bytes(), record, "One", 6), package.bytes().size());
    EXPECT_EQ(std::string(record, 6), "abcdef");
    EXPECT_EQ(err.finish(), "");
}

TEST(Unpack, FloatIntervalArrivesAsDouble) {
    PackageText package;
    package.open("NET_LOG_SetInterval", 1).field("interval", NETDSD_FT_FLOAT).f32(2.5f);
    NET_LOG_SetInterval record;
    StderrCapture err;
    EXPECT_EQ(unpack(public_catalogue(), package.bytes(), &record, "NET_LOG_SetInterval", 8),
              package.bytes().size());
    EXPECT_EQ(+record.interval, 2.5);
    EXPECT_TRUE(has(err.finish(), "WARNING: Data type of field \"interval\" in package of type "
                                  "\"NET_LOG_SetInterval\" does not match the local description, "
                                  "but the types were close enough to translate ("));
}

TEST(Unpack, MissingFieldKeepsItsCodeAndIsReported) {
    PackageText package;
    package.open("NET_SERVER_FilterDelete", 1).field("all", NETDSD_FT_BOOL).u8(1);
    NET_SERVER_FilterDelete record;
    memset(&record, 0xEE, sizeof record);
    StderrCapture err;
    EXPECT_EQ(unpack(public_catalogue(), package.bytes(), &record, "NET_SERVER_FilterDelete", 8),
              package.bytes().size());
    EXPECT_EQ(record.all, 1);
    EXPECT_EQ(record.uid, 0x55555555u);
    EXPECT_TRUE(has(err.finish(),
                    "WARNING: Package of type \"NET_SERVER_FilterDelete\" doesn't contain the "
                    "field \"uid\"(DWORD) which is in the local description, it will be returned "
                    "as a MVC ("));
}

TEST(Unpack, AnotherStructureIsRefused) {
    const Bytes package = load_hex("heartbeat.package.hex");
    NET_SERVER_ServerHandshake record = {1};
    StderrCapture err;
    EXPECT_EQ(unpack(public_catalogue(), package, &record, "NET_SERVER_ServerHandshake", 4), 0u);
    EXPECT_EQ(record.hb_idx, 0x55555555u);
    EXPECT_TRUE(has(err.finish(),
                    "ERROR: Type (\"NET_SERVER_ServerHandshake\") passed for unpacking destination "
                    "doesn't match the type the package identifies itself as "
                    "(\"NET_SERVER_Heartbeat\") ("));
}

TEST(Unpack, RawPackageOfTheRightSizeIsAcceptedDespiteADescription) {
    DWORD index = 0;
    StderrCapture err;
    EXPECT_EQ(
        unpack(public_catalogue(), from_hex("00 05 00 00 00"), &index, "NET_SERVER_Heartbeat", 4),
        4u);
    EXPECT_EQ(index, 5u);
    EXPECT_TRUE(has(err.finish(),
                    "WARNING: A structure description for \"NET_SERVER_Heartbeat\" is "
                    "present but the package recieved isn't using it ("));
}

TEST(Unpack, RawPackageOfAnotherSizeIsRefused) {
    DWORD index = 0;
    StderrCapture err;
    EXPECT_EQ(
        unpack(public_catalogue(), from_hex("00 05 00 00"), &index, "NET_SERVER_Heartbeat", 4), 0u);
    EXPECT_EQ(index, 0x55555555u);
    EXPECT_TRUE(
        has(err.finish(), "ERROR: Raw package size (3) doesn't match destination size (4) ("));
}

TEST(Unpack, RawPackageWithoutADescription) {
    char record[3] = "zz";
    StderrCapture err;
    EXPECT_EQ(unpack(public_catalogue(), from_hex("00 \"abc\""), record, "NET_NOT_There", 3), 3u);
    EXPECT_EQ(std::string(record, 3), "abc");
    EXPECT_EQ(unpack(public_catalogue(), from_hex("00 \"abcd\""), record, "NET_NOT_There", 3), 0u);
    EXPECT_EQ(std::string(record, 3), std::string(3, '\0'));
    const std::string text = err.finish();
    EXPECT_TRUE(has(text,
                    "WARNING: Bad structure description for \"NET_NOT_There\", but recieved a "
                    "raw package, using it ("));
    EXPECT_TRUE(has(text, "ERROR: Raw package size (4) doesn't match destination size (3) ("));
}

TEST(Unpack, DescribedPackageWithoutADescriptionCountsAsConsumed) {
    char record[3] = "zz";
    StderrCapture err;
    EXPECT_EQ(unpack(public_catalogue(), from_hex("01"), record, "NET_NOT_There", 3), 3u);
    EXPECT_EQ(std::string(record, 3), std::string(3, '\0'));
    EXPECT_TRUE(has(err.finish(), "ERROR: Bad structure description for \"NET_NOT_There\" ("));
}

TEST(Unpack, EmptyPackage) {
    DWORD index = 0;
    StderrCapture err;
    EXPECT_EQ(unpack(public_catalogue(), {}, &index, "NET_SERVER_Heartbeat", 4), 0u);
    EXPECT_EQ(index, 0x55555555u);
    EXPECT_TRUE(
        has(err.finish(), "Structure \"NET_SERVER_Heartbeat\" ran out of data prematurely ("));
}

TEST(Unpack, EveryTruncationFailsAndLeavesAWholeRecord) {
    TestCatalogue catalogue(sample_structures());
    const Bytes package = load_hex("whole.package.hex");
    for (size_t size = 0; size < package.size(); ++size) {
        Whole whole;
        memset(&whole, 0xEE, sizeof whole);
        StderrCapture err;
        const Bytes cut(package.begin(), package.begin() + static_cast<long>(size));
        EXPECT_EQ(unpack(catalogue.get(), cut, &whole, "Whole", sizeof whole), 0u) << size;
        EXPECT_TRUE(has(err.finish(), "Structure \"Whole\" ran out of data prematurely ("));
        EXPECT_TRUE(+whole.n == -2 || whole.n == 0x55555555);
        EXPECT_TRUE(+whole.parts[0].v == 1.5 || whole.parts[0].v == 9.999e-99);
        EXPECT_TRUE(+whole.parts[1].v == 0.0 || whole.parts[1].v == 9.999e-99);
        EXPECT_EQ(+whole.when, -1.0);
    }
}

TEST(Unpack, TruncatedArrayKeepsTheElementsThatCame) {
    OneField local(NETDSD_FT_A_INT, 3, 4);
    PackageText package;
    package.open("One", 1).field("v", NETDSD_FT_A_INT, 3).i32(1).i32(2).u16(3);
    int32_t record[3] = {};
    StderrCapture err;
    EXPECT_EQ(unpack(local.get(), package.bytes(), record, "One", 12), 0u);
    EXPECT_EQ(record[0], 1);
    EXPECT_EQ(record[1], 2);
    EXPECT_EQ(record[2], 0x55555555);
}

TEST(Unpack, UnknownFieldsOfEveryKindAreSkipped) {
    TestCatalogue catalogue(sample_structures());
    PackageText nested;
    nested.open("Else", 0);
    PackageText package;
    package.open("Part", 7)
        .field("num", NETDSD_FT_INT)
        .i32(1)
        .field("arr", NETDSD_FT_A_SHORT, 2)
        .u32(1)
        .field("txt", NETDSD_FT_STRING)
        .text("skipped")
        .field("bin", NETDSD_FT_BIN, 2)
        .u8(1)
        .u32(3)
        .u32(static_cast<uint32_t>(nested.bytes().size()))
        .append(nested.bytes())
        .u32(0)
        .raw("abcdef", 6)
        .field("odd", 99)
        .field("v", NETDSD_FT_DOUBLE)
        .f64(4)
        .field("tag", NETDSD_FT_STRING)
        .text("ok");
    Part part;
    StderrCapture err;
    EXPECT_EQ(unpack(catalogue.get(), package.bytes(), &part, "Part", sizeof part),
              package.bytes().size());
    EXPECT_EQ(+part.v, 4.0);
    EXPECT_STREQ(part.tag, "ok");
    const std::string text = err.finish();
    for (const char *name : {"num", "arr", "txt", "bin", "odd"})
        EXPECT_TRUE(has(text, std::string("WARNING: Field \"") + name +
                                  "\" in package of type \"Part\" was present in the package but "
                                  "not in the local description, it will be ignored ("));
    EXPECT_TRUE(has(text, "BUG: Unknown type (99) in package \"Part\" field \"odd\" ("));
}

TEST(Unpack, FewerElementsLeaveTheRestMissing) {
    OneField local(NETDSD_FT_A_DOUBLE, 3, 8);
    PackageText package;
    package.open("One", 1).field("v", NETDSD_FT_A_DOUBLE, 2).f64(1).f64(2);
    double record[3];
    StderrCapture err;
    EXPECT_EQ(unpack(local.get(), package.bytes(), record, "One", 24), package.bytes().size());
    EXPECT_EQ(record[1], 2.0);
    EXPECT_EQ(record[2], 9.999e-99);
    EXPECT_TRUE(has(err.finish(),
                    "WARNING: Number of ellements in field \"v\" in package of type \"One\" does "
                    "not match the local description (package: 2 vs local: 3), the undefined "
                    "ellements will be returned as MVCs ("));
}

TEST(Unpack, ExcessElementsAreDroppedOneByOne) {
    OneField local(NETDSD_FT_A_SHORT, 1, 2);
    PackageText package;
    package.open("One", 1).field("v", NETDSD_FT_A_SHORT, 3).u16(1).u16(2).u16(3);
    int16_t record = 0;
    StderrCapture err;
    EXPECT_EQ(unpack(local.get(), package.bytes(), &record, "One", 2), package.bytes().size());
    EXPECT_EQ(record, 1);
    const std::string text = err.finish();
    EXPECT_TRUE(has(text, "(package: 3 vs local: 1), the excesses ellements will be ignored ("));
    EXPECT_EQ(occurrences(text, "WARNING: Field \"v\" skipped in package \"One\" ("), 2u);
}

TEST(Unpack, ScalarAndArrayOfOneAreCloseEnough) {
    OneField local(NETDSD_FT_A_INT, 1, 4);
    PackageText package;
    package.open("One", 1).field("v", NETDSD_FT_INT).i32(-7);
    int32_t record = 0;
    StderrCapture err;
    EXPECT_EQ(unpack(local.get(), package.bytes(), &record, "One", 4), package.bytes().size());
    EXPECT_EQ(record, -7);
    EXPECT_EQ(occurrences(err.finish(), "WARNING: "), 1u);
}

TEST(Unpack, LongerTextIsCutAndTerminated) {
    OneField local(NETDSD_FT_STRING, 4, 1);
    PackageText package;
    package.open("One", 1).field("v", NETDSD_FT_STRING).text("abcdefgh");
    char record[4];
    EXPECT_EQ(unpack(local.get(), package.bytes(), record, "One", 4), package.bytes().size());
    EXPECT_EQ(std::string(record, 4), std::string("abc\0", 4));
}

TEST(Unpack, TextEndsAtItsFirstNul) {
    OneField local(NETDSD_FT_STRING, 8, 1);
    PackageText package;
    package.open("One", 1).field("v", NETDSD_FT_STRING).text(std::string("ab\0cd", 5));
    char record[8] = {'z', 'z', 'z', 'z', 'z', 'z', 'z', 'z'};
    EXPECT_EQ(unpack(local.get(), package.bytes(), record, "One", 8), package.bytes().size());
    EXPECT_EQ(std::string(record, 8), std::string("ab\0\0\0\0\0\0", 8));
}

TEST(Unpack, EmptyTextLeavesZeros) {
    OneField local(NETDSD_FT_STRING, 3, 1);
    PackageText package;
    package.open("One", 1).field("v", NETDSD_FT_STRING).text("");
    char record[3] = {'z', 'z', 'z'};
    EXPECT_EQ(unpack(local.get(), package.bytes(), record, "One", 3), package.bytes().size());
    EXPECT_EQ(std::string(record, 3), std::string(3, '\0'));
}

TEST(Unpack, TextAgainstNumberIsUnrecoverable) {
    OneField local(NETDSD_FT_INT, 1, 4);
    PackageText package;
    package.open("One", 1).field("v", NETDSD_FT_STRING).text("12");
    int32_t record = 0;
    StderrCapture err;
    EXPECT_EQ(unpack(local.get(), package.bytes(), &record, "One", 4), package.bytes().size());
    EXPECT_EQ(record, 0x55555555);
    EXPECT_TRUE(has(err.finish(), "WARNING: Unrecoverable type mis-match on field \"v\" in package "
                                  "of type \"One\" this field returned as a MVC ("));
}

TEST(Unpack, NumberAgainstTextIsUnrecoverable) {
    OneField local(NETDSD_FT_STRING, 4, 1);
    PackageText package;
    package.open("One", 1).field("v", NETDSD_FT_DOUBLE).f64(1);
    char record[4] = {'z', 'z', 'z', 'z'};
    StderrCapture err;
    EXPECT_EQ(unpack(local.get(), package.bytes(), record, "One", 4), package.bytes().size());
    EXPECT_EQ(std::string(record, 4), std::string(4, '\0'));
    EXPECT_EQ(occurrences(err.finish(), "Unrecoverable type mis-match on field \"v\""), 1u);
}

TEST(Unpack, ElementsAgainstNumberAreUnrecoverable) {
    OneField local(NETDSD_FT_DOUBLE, 1, 8);
    PackageText package;
    package.open("One", 1).field("v", NETDSD_FT_BIN, 1).u8(1).u32(2).u32(3).raw("pkg", 3);
    package.raw("xy", 2);
    double record = 0;
    StderrCapture err;
    EXPECT_EQ(unpack(local.get(), package.bytes(), &record, "One", 8), package.bytes().size());
    EXPECT_EQ(record, 9.999e-99);
    EXPECT_TRUE(has(err.finish(), "Unrecoverable type mis-match on field \"v\""));
}

TEST(Unpack, RawElementsOfAnotherSizeAreUnrecoverable) {
    OneField local(NETDSD_FT_BIN, 2, 3, "Unheard");
    PackageText package;
    package.open("One", 1).field("v", NETDSD_FT_BIN, 2).u8(1).u32(2).u32(0).u32(0).raw("abcd", 4);
    char record[6];
    StderrCapture err;
    EXPECT_EQ(unpack(local.get(), package.bytes(), record, "One", 6), package.bytes().size());
    EXPECT_EQ(std::string(record, 6), std::string(6, '\0'));
    EXPECT_TRUE(has(err.finish(), "Unrecoverable type mis-match on field \"v\""));
}

TEST(Unpack, DescribedElementsUnknownHereComeFromTheirRawBytes) {
    OneField local(NETDSD_FT_BIN, 2, 3, "Unheard");
    PackageText package;
    package.open("One", 1).field("v", NETDSD_FT_BIN, 1).u8(1).u32(3).u32(2).raw("pk", 2);
    package.raw("abc", 3);
    char record[6];
    StderrCapture err;
    EXPECT_EQ(unpack(local.get(), package.bytes(), record, "One", 6), package.bytes().size());
    EXPECT_EQ(std::string(record, 6), std::string("abc\0\0\0", 6));
}

TEST(Unpack, FewerAndMoreNestedElements) {
    TestCatalogue catalogue(sample_structures());
    const Bytes part = load_hex("part.package.hex");
    for (unsigned count : {1u, 3u}) {
        PackageText package;
        package.open("Whole", 3).field("n", NETDSD_FT_INT).i32(1);
        package.field("parts", NETDSD_FT_BIN, count).u8(1).u32(12);
        for (unsigned i = 0; i < count; ++i)
            package.u32(static_cast<uint32_t>(part.size())).append(part);
        for (unsigned i = 0; i < count; ++i)
            package.raw("rawrawrawraw", 12);
        package.field("when", NETDSD_FT_FTIME).f64(3);
        Whole whole;
        StderrCapture err;
        EXPECT_EQ(unpack(catalogue.get(), package.bytes(), &whole, "Whole", sizeof whole),
                  package.bytes().size());
        EXPECT_EQ(+whole.parts[0].v, 1.5);
        EXPECT_EQ(+whole.parts[1].v, count == 1 ? 9.999e-99 : 1.5);
        EXPECT_EQ(+whole.when, 3.0);
        EXPECT_TRUE(has(err.finish(), "vs local: 2)"));
    }
}

TEST(Unpack, FailedNestedElementDoesNotSpoilTheRest) {
    TestCatalogue catalogue(sample_structures());
    const Bytes part = load_hex("part.package.hex");
    PackageText package;
    package.open("Whole", 3).field("n", NETDSD_FT_INT).i32(1);
    package.field("parts", NETDSD_FT_BIN, 2).u8(1).u32(12).u32(5).raw(part.data(), 5);
    package.u32(static_cast<uint32_t>(part.size())).append(part);
    package.raw("rawrawrawrawrawrawrawraw", 24).field("when", NETDSD_FT_FTIME).f64(3);
    Whole whole;
    StderrCapture err;
    EXPECT_EQ(unpack(catalogue.get(), package.bytes(), &whole, "Whole", sizeof whole),
              package.bytes().size());
    EXPECT_EQ(+whole.parts[0].v, 9.999e-99);
    EXPECT_EQ(+whole.parts[1].v, 1.5);
    EXPECT_EQ(+whole.when, 3.0);
    EXPECT_TRUE(has(err.finish(), "Structure \"Part\" ran out of data prematurely ("));
}

TEST(Unpack, FieldsInAnyOrder) {
    TestCatalogue catalogue(sample_structures());
    std::vector<NETDSD_field> reversed(k_ae33_fields.rbegin(), k_ae33_fields.rend());
    std::vector<NETDSD_field> inner(k_reading_fields.rbegin(), k_reading_fields.rend());
    TestCatalogue sender({entry_of("NET_AE33_Instant", reversed, sizeof(Ae33)),
                          entry_of("NET_AE33_Reading", inner, sizeof(Ae33Reading))});
    std::mt19937 random(3);
    Ae33 record, back;
    memset(&back, 0xEE, sizeof back);
    fill_randomly(catalogue.get(), catalogue.get().structures[1], reinterpret_cast<char *>(&record),
                  random);
    const Bytes package = pack(sender.get(), &record, "NET_AE33_Instant", sizeof record);
    StderrCapture err;
    EXPECT_EQ(unpack(catalogue.get(), package, &back, "NET_AE33_Instant", sizeof back),
              package.size());
    EXPECT_EQ(memcmp(&record, &back, sizeof back), 0);
    EXPECT_EQ(err.finish(), "");
}

// What the first revision of a daemon sends to the second, and the reverse.
TEST(Unpack, RevisionsOfOneStructure) {
#pragma pack(push, 4)
    struct Old {
        int32_t gone;
        float grown;
        int16_t list[2];
        STRING name[4];
    };
    struct New {
        double added;
        double grown;
        int16_t list[4];
        STRING name[8];
    };
#pragma pack(pop)
    const std::vector<NETDSD_field> old_fields = {
        TEST_FIELD(NETDSD_FT_INT, Old, gone, 1, 4, "int"),
        TEST_FIELD(NETDSD_FT_FLOAT, Old, grown, 1, 4, "float"),
        TEST_FIELD(NETDSD_FT_A_SHORT, Old, list, 2, 2, "short"),
        TEST_FIELD(NETDSD_FT_STRING, Old, name, 4, 1, "STRING")};
    const std::vector<NETDSD_field> new_fields = {
        TEST_FIELD(NETDSD_FT_DOUBLE, New, added, 1, 8, "double"),
        TEST_FIELD(NETDSD_FT_DOUBLE, New, grown, 1, 8, "double"),
        TEST_FIELD(NETDSD_FT_A_SHORT, New, list, 4, 2, "short"),
        TEST_FIELD(NETDSD_FT_STRING, New, name, 8, 1, "STRING")};
    TestCatalogue first({entry_of("Rev", old_fields, sizeof(Old))});
    TestCatalogue second({entry_of("Rev", new_fields, sizeof(New))});
    const Old old_record = {1, 0.5f, {7, 8}, "abc"};
    const New new_record = {2.0, -0.25, {1, 2, 3, 4}, "abcdefg"};
    Old old_back;
    New new_back;
    StderrCapture err;
    EXPECT_NE(unpack(second.get(), pack(first.get(), &old_record, "Rev", sizeof(Old)), &new_back,
                     "Rev", sizeof(New)),
              0u);
    EXPECT_EQ(+new_back.added, 9.999e-99);
    EXPECT_EQ(+new_back.grown, 0.5);
    EXPECT_EQ(+new_back.list[1], 8);
    EXPECT_EQ(+new_back.list[2], 0);
    EXPECT_STREQ(new_back.name, "abc");
    EXPECT_NE(unpack(first.get(), pack(second.get(), &new_record, "Rev", sizeof(New)), &old_back,
                     "Rev", sizeof(Old)),
              0u);
    EXPECT_EQ(+old_back.gone, 0x55555555);
    EXPECT_EQ(+old_back.grown, -0.25f);
    EXPECT_EQ(+old_back.list[1], 2);
    EXPECT_STREQ(old_back.name, "abc");
}

TEST(Hostile, LocalDescriptionWithAnUnknownType) {
    const std::vector<NETDSD_field> fields = {
        {static_cast<NETDSD_field_type>(31), "v", 0, 1, "", 4, "?"}};
    TestCatalogue catalogue({entry_of("One", fields, 4)});
    PackageText package;
    package.open("One", 1).field("v", NETDSD_FT_INT).i32(1);
    int32_t record = 1;
    StderrCapture err;
    EXPECT_EQ(unpack(catalogue.get(), package.bytes(), &record, "One", 4), package.bytes().size());
    EXPECT_EQ(record, 0);
    EXPECT_TRUE(
        has(err.finish(), "BUG: Unknown type (31) in local description \"One\" field \"v\" ("));
}

TEST(Hostile, CountsOf65535WithoutDataEndTheRecord) {
    TestCatalogue catalogue(sample_structures());
    for (unsigned type : {14u, 19u, 26u, 28u, 29u}) {
        for (const char *name : {"parts", "other"}) {
            PackageText package;
            package.open("Whole", 0xFFFF).field(name, type).u16(0xFFFF).u8(1).u32(0xFFFFFFFF);
            Whole whole;
            StderrCapture err;
            EXPECT_EQ(unpack(catalogue.get(), package.bytes(), &whole, "Whole", sizeof whole), 0u);
            EXPECT_TRUE(has(err.finish(), "Structure \"Whole\" ran out of data prematurely ("));
        }
    }
}

TEST(Hostile, OneWarningForEachOfManyUnknownFields) {
    TestCatalogue catalogue(sample_structures());
    PackageText package;
    package.open("Part", 0xFFFF);
    for (int i = 0; i < 0xFFFF; ++i)
        package.field("x", NETDSD_FT_BYTE).u8(1);
    Part part;
    StderrCapture err;
    EXPECT_EQ(unpack(catalogue.get(), package.bytes(), &part, "Part", sizeof part),
              package.bytes().size());
    EXPECT_EQ(occurrences(err.finish(), "it will be ignored ("), 0xFFFFu);
}

TEST(Hostile, DescriptionThatHoldsItselfStopsAtADepth) {
    const std::vector<NETDSD_field> fields = {{NETDSD_FT_BIN, "me", 0, 1, "", 8, "Self"}};
    TestCatalogue catalogue({entry_of("Self", fields, 8)});
    Bytes package;
    for (int depth = 0; depth < 5000; ++depth) {
        PackageText outer;
        outer.open("Self", 1).field("me", NETDSD_FT_BIN, 1).u8(1).u32(8);
        outer.u32(static_cast<uint32_t>(package.size())).append(package).raw("12345678", 8);
        package = outer.bytes();
    }
    char record[8];
    StderrCapture err;
    EXPECT_EQ(unpack(catalogue.get(), package, record, "Self", 8), package.size());
    EXPECT_TRUE(has(err.finish(), "Structure \"Self\" is nested too deeply ("));
}

TEST(Hostile, NoiseNeverReadsBeyondThePackage) {
    TestCatalogue catalogue(sample_structures());
    std::mt19937 random(4);
    const Bytes good = load_hex("whole.package.hex");
    StderrCapture err;
    for (int round = 0; round < 20000; ++round) {
        Bytes package = good;
        for (int i = 0; i < 3; ++i)
            package[random() % package.size()] = static_cast<unsigned char>(random());
        package.resize(random() % (package.size() + 1));
        Whole whole;
        const size_t consumed = unpack(catalogue.get(), package, &whole, "Whole", sizeof whole);
        ASSERT_LE(consumed, std::max(package.size(), sizeof whole));
    }
}

// Matching fields one after the other must give what matching them by name gives.
TEST(Unpack, ExpectedOrderAndSearchGiveTheSame) {
    TestCatalogue catalogue(sample_structures());
    std::mt19937 random(5);
    const NETDSD_entry &entry = *find_structure(catalogue.get(), "Every");
    for (int round = 0; round < 50; ++round) {
        std::vector<char> record(entry.total_size), straight(entry.total_size, 'z');
        std::vector<char> shuffled(entry.total_size, 'y');
        fill_randomly(catalogue.get(), entry, record.data(), random);
        std::vector<NETDSD_field> fields(k_every_fields);
        std::shuffle(fields.begin(), fields.end(), random);
        TestCatalogue sender({entry_of("Every", fields, entry.total_size)});
        StderrCapture err;
        const Bytes package = pack(catalogue.get(), record.data(), "Every", record.size());
        const Bytes other = pack(sender.get(), record.data(), "Every", record.size());
        EXPECT_EQ(package.size(), other.size());
        unpack(catalogue.get(), package, straight.data(), "Every", straight.size());
        unpack(catalogue.get(), other, shuffled.data(), "Every", shuffled.size());
        EXPECT_EQ(straight, record);
        EXPECT_EQ(shuffled, record);
    }
}

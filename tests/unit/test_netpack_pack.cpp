#include "netpack_catalogue.h"

#include <algorithm>
#include <gtest/gtest.h>

using namespace zeb::test;
using namespace zeb::netpack;

namespace {

struct OpaqueRecord {
    BYTE id;
    char raw[6];
};

const std::vector<NETDSD_field> k_opaque_fields = {
    TEST_FIELD(NETDSD_FT_BYTE, OpaqueRecord, id, 1, 1, "BYTE"),
    TEST_FIELD(NETDSD_FT_BIN, OpaqueRecord, raw, 2, 3, "Unheard"),
};

bool has(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

// Packs what the description tells, one byte after the other.
void reference_package(const Catalogue &catalogue, const char *record, const NETDSD_entry &entry,
                       PackageText &out) {
    out.open(entry.name, static_cast<unsigned>(entry.count_fields));
    size_t slack = 0;
    for (size_t i = 0; i < entry.count_fields; ++i) {
        const NETDSD_field &f = entry.fields[i];
        const char *at = record + f.offset;
        out.field(f.name, f.ft);
        if (g_netpack_field_send_count[f.ft])
            out.u16(static_cast<unsigned>(f.count));
        if (f.ft == NETDSD_FT_STRING) {
            out.text(at);
        } else if (f.ft != NETDSD_FT_BIN) {
            out.raw(at, f.count * g_netpack_field_sizes[f.ft]);
        } else if (const NETDSD_entry *nested = find_structure(catalogue, f.type_name)) {
            out.u8(1).u32(static_cast<uint32_t>(f.size));
            for (size_t j = 0; j < f.count; ++j) {
                PackageText element;
                reference_package(catalogue, at + j * f.size, *nested, element);
                out.u32(static_cast<uint32_t>(element.bytes().size())).append(element.bytes());
            }
            out.raw(at, f.count * f.size);
        } else {
            out.u8(0).raw(at, f.count * f.size);
            ++slack;
        }
    }
    for (; slack > 0; --slack)
        out.u32(0);
}

} // namespace

TEST(Pack, HeartbeatByteForByte) {
    const NET_SERVER_Heartbeat record = {5};
    const Bytes expected = load_hex("heartbeat.package.hex");
    ASSERT_EQ(expected.size(), 39u);
    EXPECT_EQ(pack(public_catalogue(), &record, "NET_SERVER_Heartbeat", sizeof record), expected);
    EXPECT_EQ(pack(private_catalogue(), &record, "NET_SERVER_Heartbeat", sizeof record), expected);
}

TEST(Pack, EntryPointsGiveTheExactLength) {
    const NET_SERVER_Heartbeat record = {5};
    size_t size = 0;
    void *package = NETPACK_package_ds(&record, "NET_SERVER_Heartbeat", sizeof record, &size);
    EXPECT_EQ(size, 39u);
    free(package);
    size = 0;
    package = NETPACK_package_ds_lib(&record, "NET_SERVER_Heartbeat", sizeof record, &size);
    EXPECT_EQ(size, 39u);
    free(package);
}

TEST(Pack, TextAndNumber) {
    TestCatalogue catalogue(sample_structures());
    const Part part = {1.5, "ab"};
    EXPECT_EQ(pack(catalogue.get(), &part, "Part", sizeof part), load_hex("part.package.hex"));
}

TEST(Pack, NestedElementsThenTheirRawBytes) {
    TestCatalogue catalogue(sample_structures());
    const Whole whole = {-2, {{1.5, "ab"}, {0.0, ""}}, 2.0};
    EXPECT_EQ(pack(catalogue.get(), &whole, "Whole", sizeof whole), load_hex("whole.package.hex"));
}

TEST(Pack, UndescribedElementsLeaveFourZeroBytesAtTheEnd) {
    TestCatalogue catalogue({entry_of("Opaque", k_opaque_fields, sizeof(OpaqueRecord))});
    const OpaqueRecord record = {7, {'a', 'b', 'c', 'd', 'e', 'f'}};
    EXPECT_EQ(pack(catalogue.get(), &record, "Opaque", sizeof record),
              load_hex("opaque.package.hex"));
}

TEST(Pack, InstrumentInfoTags) {
    NET_SERVER_InstrumentInfo info = {};
    strcpy(info.type, "neph");
    strcpy(info.tags[0].tag, "dry");
    const Bytes package = pack(public_catalogue(), &info, "NET_SERVER_InstrumentInfo", sizeof info);
    PackageText tags;
    tags.field("tags", NETDSD_FT_BIN, 8).u8(1).u32(32);
    for (int i = 0; i < 8; ++i) {
        PackageText tag;
        tag.open("NET_SERVER_InstrumentTag", 1).field("tag", NETDSD_FT_STRING);
        tag.text(i == 0 ? "dry" : "");
        tags.u32(static_cast<uint32_t>(tag.bytes().size())).append(tag.bytes());
    }
    tags.raw(info.tags, 256);
    EXPECT_NE(std::search(package.begin(), package.end(), tags.bytes().begin(), tags.bytes().end()),
              package.end());
}

TEST(Pack, EmptyTextIsNameTypeAndLengthZero) {
    const NET_SERVER_ClientHandshake record = {};
    PackageText expected;
    expected.open("NET_SERVER_ClientHandshake", 1).field("name", 28).u16(0);
    EXPECT_EQ(pack(public_catalogue(), &record, "NET_SERVER_ClientHandshake", sizeof record),
              expected.bytes());
}

TEST(Pack, SizeOffByOneGoesRawWithAWarning) {
    const unsigned char record[5] = {1, 2, 3, 4, 5};
    StderrCapture err;
    EXPECT_EQ(pack(public_catalogue(), record, "NET_SERVER_Heartbeat", 5),
              from_hex("00 01 02 03 04 05"));
    EXPECT_TRUE(has(err.finish(),
                    "WARNING: Bad structure description for \"NET_SERVER_Heartbeat\" (netpack_"));
}

TEST(Pack, UnknownStructureGoesRaw) {
    StderrCapture err;
    EXPECT_EQ(pack(public_catalogue(), "xy", "NET_NOT_There", 2), from_hex("00 \"xy\""));
    EXPECT_TRUE(has(err.finish(), "WARNING: Bad structure description for \"NET_NOT_There\" ("));
}

TEST(Pack, NestedElementOfAnotherSizeGoesRaw) {
    const std::vector<NETDSD_field> fields = {{NETDSD_FT_BIN, "p", 0, 1, "", 5, "Part"}};
    TestCatalogue catalogue(
        {entry_of("Part", k_part_fields, sizeof(Part)), entry_of("Wrong", fields, 5)});
    PackageText expected;
    expected.open("Wrong", 1).field("p", NETDSD_FT_BIN, 1).u8(1).u32(5);
    expected.u32(6).u8(0).raw("abcde", 5).raw("abcde", 5);
    StderrCapture err;
    EXPECT_EQ(pack(catalogue.get(), "abcde", "Wrong", 5), expected.bytes());
    EXPECT_TRUE(has(err.finish(), "WARNING: Bad structure description for \"Part\""));
}

TEST(Pack, EveryTypeMatchesThePlainWriter) {
    TestCatalogue catalogue(sample_structures());
    for (unsigned seed = 0; seed < 20; ++seed) {
        srand(seed);
        for (size_t row = 0; row < catalogue.get().count_structures; ++row) {
            const NETDSD_entry &entry = catalogue.get().structures[row];
            std::vector<char> record(entry.total_size);
            for (char &c : record)
                c = static_cast<char>(rand() | 1);
            if (entry.name == std::string("Every"))
                memset(record.data() + offsetof(Every, text) + seed % 6, 0, 6 - seed % 6);
            if (entry.name == std::string("Part"))
                record[offsetof(Part, tag) + seed % 4] = 0;
            if (entry.name == std::string("Whole"))
                for (size_t p : {0u, 1u})
                    record[offsetof(Whole, parts) + p * sizeof(Part) + offsetof(Part, tag) +
                           (seed + p) % 4] = 0;
            PackageText expected;
            reference_package(catalogue.get(), record.data(), entry, expected);
            EXPECT_EQ(pack(catalogue.get(), record.data(), entry.name, entry.total_size),
                      expected.bytes())
                << entry.name << " seed " << seed;
        }
    }
}

TEST(Pack, TextWithoutTerminatorStopsAtTheMember) {
    TestCatalogue catalogue(sample_structures());
    Part *part = static_cast<Part *>(malloc(sizeof(Part)));
    part->v = 0;
    memcpy(part->tag, "abcd", 4);
    PackageText expected;
    expected.open("Part", 2).field("tag", 28).text("abcd").field("v", 12).f64(0);
    StderrCapture err;
    EXPECT_EQ(pack(catalogue.get(), part, "Part", sizeof *part), expected.bytes());
    EXPECT_TRUE(has(err.finish(), "Text of field \"tag\" isn't terminated"));
    free(part);
}

TEST(Pack, TextAbove65535IsRefused) {
    const std::vector<NETDSD_field> fields = {{NETDSD_FT_STRING, "t", 0, 70000, "", 1, "STRING"}};
    TestCatalogue catalogue({entry_of("Long", fields, 70000)});
    std::string record(70000, 'x');
    record[65536] = '\0';
    StderrCapture err;
    EXPECT_TRUE(pack(catalogue.get(), record.data(), "Long", record.size()).empty());
    EXPECT_TRUE(has(err.finish(), "too long to pack (65536 bytes)"));
    record[65535] = '\0';
    EXPECT_EQ(pack(catalogue.get(), record.data(), "Long", record.size()).size(),
              1u + 2 + 4 + 2 + 2 + 1 + 2 + 2 + 65535);
}

TEST(Pack, CountAbove65535IsRefused) {
    const std::vector<NETDSD_field> fields = {{NETDSD_FT_A_BYTE, "b", 0, 65536, "", 1, "BYTE"}};
    TestCatalogue catalogue({entry_of("Many", fields, 65536)});
    const std::string record(65536, 'x');
    StderrCapture err;
    EXPECT_TRUE(pack(catalogue.get(), record.data(), "Many", record.size()).empty());
    EXPECT_TRUE(has(err.finish(), "Structure \"Many\" cannot be packed"));
}

TEST(Pack, NameAbove65535IsRefused) {
    const std::string name(65536, 'n');
    const std::vector<NETDSD_field> fields = {{NETDSD_FT_BYTE, name.c_str(), 0, 1, "", 1, "BYTE"}};
    TestCatalogue catalogue({entry_of("Named", fields, 1)});
    StderrCapture err;
    EXPECT_TRUE(pack(catalogue.get(), "x", "Named", 1).empty());
    EXPECT_TRUE(has(err.finish(), "Structure \"Named\" cannot be packed"));
}

TEST(Pack, UnknownTypeInADescriptionIsRefused) {
    const std::vector<NETDSD_field> fields = {
        {static_cast<NETDSD_field_type>(30), "odd", 0, 1, "", 1, "?"}};
    TestCatalogue catalogue({entry_of("Odd", fields, 1)});
    StderrCapture err;
    EXPECT_TRUE(pack(catalogue.get(), "x", "Odd", 1).empty());
    EXPECT_TRUE(has(err.finish(), "its type is unknown"));
}

TEST(Pack, FieldBeyondItsRecordMakesTheDescriptionBad) {
    const std::vector<NETDSD_field> fields = {{NETDSD_FT_A_DOUBLE, "d", 4, 2, "", 8, "double"}};
    TestCatalogue catalogue({entry_of("Beyond", fields, 19)});
    StderrCapture err;
    EXPECT_EQ(pack(catalogue.get(), "0123456789012345678", "Beyond", 19).size(), 20u);
    EXPECT_TRUE(has(err.finish(), "WARNING: Bad structure description for \"Beyond\""));
}

TEST(Pack, DescriptionThatHoldsItselfIsRefused) {
    const std::vector<NETDSD_field> fields = {{NETDSD_FT_BIN, "me", 0, 1, "", 8, "Self"}};
    TestCatalogue catalogue({entry_of("Self", fields, 8)});
    StderrCapture err;
    EXPECT_TRUE(pack(catalogue.get(), "12345678", "Self", 8).empty());
    EXPECT_TRUE(has(err.finish(), "nested too deeply"));
}

TEST(Pack, OverlappingAndSizelessElementsCannotGrowWithoutEnd) {
    const std::vector<NETDSD_field> twice = {{NETDSD_FT_BIN, "a", 0, 1, "", 8, "Twice"},
                                             {NETDSD_FT_BIN, "b", 0, 1, "", 8, "Twice"}};
    const std::vector<NETDSD_field> empty = {{NETDSD_FT_BIN, "e", 0, 65535, "", 0, "Void"}};
    TestCatalogue catalogue({entry_of("Twice", twice, 8), entry_of("Void", empty, 0)});
    StderrCapture err;
    EXPECT_EQ(pack(catalogue.get(), "12345678", "Twice", 8).size(), 9u);
    EXPECT_EQ(pack(catalogue.get(), "", "Void", 0).size(), 1u);
    char record[8];
    fill_mvc(catalogue.get(), record, "Twice", 8);
    EXPECT_TRUE(has(err.finish(), "Bad structure description for \"Twice\""));
}

TEST(Pack, MoreTextsThanTheInlineSumsHold) {
    constexpr size_t k_texts = 100;
    std::vector<std::string> names;
    for (size_t i = 0; i < k_texts; ++i)
        names.push_back("t" + std::to_string(1000 + i));
    std::vector<NETDSD_field> fields;
    for (size_t i = 0; i < k_texts; ++i)
        fields.push_back({NETDSD_FT_STRING, names[i].c_str(), i * 8, 8, "", 1, "STRING"});
    TestCatalogue catalogue({entry_of("Texts", fields, k_texts * 8)});
    std::vector<char> record(k_texts * 8);
    for (size_t i = 0; i < k_texts; ++i)
        memset(record.data() + i * 8, 'a', i % 8);
    PackageText expected;
    reference_package(catalogue.get(), record.data(), catalogue.get().structures[0], expected);
    EXPECT_EQ(pack(catalogue.get(), record.data(), "Texts", record.size()), expected.bytes());
    std::vector<char> back(record.size(), 'z');
    EXPECT_EQ(unpack(catalogue.get(), expected.bytes(), back.data(), "Texts", back.size()),
              expected.bytes().size());
    EXPECT_EQ(back, record);
}

TEST(Pack, MissingArgumentsAreReported) {
    StderrCapture err;
    size_t size = 0;
    EXPECT_EQ(NETPACK_package_ds(nullptr, "NET_SERVER_Heartbeat", 4, &size), nullptr);
    EXPECT_EQ(NETPACK_package_ds("1234", nullptr, 4, &size), nullptr);
    EXPECT_EQ(NETPACK_package_ds("1234", "NET_SERVER_Heartbeat", 4, nullptr), nullptr);
    EXPECT_TRUE(has(err.finish(), "assertion failed (netpack_pack.cpp:"));
}

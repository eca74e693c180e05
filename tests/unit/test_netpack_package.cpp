#include "netpack_samples.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

using namespace zeb::test;
using namespace zeb::netpack;
using testing::HasSubstr;

namespace {

// From a block of exactly the package's size, so that a sanitizer sees any read beyond it.
std::string dump(const Catalogue &catalogue, const Bytes &package, const char *prefix = "") {
    void *exact = malloc(package.size() + (package.empty() ? 1 : 0));
    if (!package.empty())
        memcpy(exact, package.data(), package.size());
    const std::string text =
        printed([&](FILE *stream) { print_ds(catalogue, exact, package.size(), stream, prefix); });
    free(exact);
    return text;
}

// Of one field "v" in a structure "S" that nobody knows.
PackageText one_field(unsigned type) {
    PackageText package;
    package.open("S", 1).field("v", type);
    return package;
}

class PackageOfAStranger : public testing::Test {
  protected:
    std::string dump_of(const PackageText &package) { return dump(nobody_.get(), package.bytes()); }

    TestCatalogue nobody_{std::vector<NETDSD_entry>{}};
    StderrCapture err_;
};

} // namespace

TEST(PrintPackage, HeartbeatReadsAsTheRecordWithItsStructure) {
    const NET_SERVER_Heartbeat beat = {5};
    size_t size = 0;
    void *package = NETPACK_package_ds(&beat, "NET_SERVER_Heartbeat", sizeof beat, &size);
    const char expected[] = "# *Structure=NET_SERVER_Heartbeat\n# hb_idx(INT)=5\n";
    EXPECT_EQ(printed([&](FILE *stream) { NETPACK_print_ds(package, size, stream, "# "); }),
              expected);
    EXPECT_EQ(printed([&](FILE *stream) { NETPACK_print_ds_lib(package, size, stream, "# "); }),
              expected);
    free(package);
}

TEST_F(PackageOfAStranger, EveryTypeReadsAsInTheRecordsDump) {
    TestCatalogue catalogue(sample_structures());
    const Every e = sample_every();
    const Bytes package = pack(catalogue.get(), &e, "Every", sizeof e);
    std::string expected = "*Structure=Every\n" + printed([&](FILE *stream) {
                               print_ds_raw(catalogue.get(), &e, "Every", sizeof e, stream, "", 0);
                           });
    const std::string capacity = "text(STRING)[6]"; // which a package does not carry
    expected.replace(expected.find(capacity), capacity.size(), "text(STRING)");
    EXPECT_EQ(dump(catalogue.get(), package), expected);
    EXPECT_EQ(err_.text(), "");
    // Without a catalogue the size of the opaque elements in front is nowhere to be had.
    EXPECT_THAT(dump(nobody_.get(), package),
                HasSubstr("*Structure=Every\na_bin(BIN)[3]=000102030405060708090A0B"));
    EXPECT_THAT(err_.finish(),
                HasSubstr("Size of the elements of field \"a_bin\" in package of type \"Every\" "
                          "is not known, the rest is printed as bytes ("));
}

TEST_F(PackageOfAStranger, NestedElementsAreIndentedBlocks) {
    EXPECT_EQ(dump(nobody_.get(), load_hex("whole.package.hex"), "> "),
              "> *Structure=Whole\n"
              "> n(INT)=-2\n"
              "> parts(BIN)[2]=Part:{\n"
              "> \ttag(STRING)=ab\n"
              "> \tv(FLOAT)=+1.500000E+00\n"
              "> \t},\n"
              "> \t{\n"
              "> \ttag(STRING)=\n"
              "> \tv(FLOAT)=+0.000000E+00\n"
              "> \t}\n"
              "> when(FTIME)=19700101_0000020000\n");
    EXPECT_EQ(err_.finish(), "");
}

TEST_F(PackageOfAStranger, LastOpaqueFieldIsWhatLiesBeforeTheSlack) {
    const PackageText package = one_field(NETDSD_FT_BIN).u16(2).u8(0).raw("\1\2\3\4", 4).u32(0);
    EXPECT_EQ(dump_of(package), "*Structure=S\nv(BIN)[2]=010203,04\n");
    EXPECT_EQ(err_.finish(), "");
}

TEST_F(PackageOfAStranger, OpaqueFieldWithoutElementsIsPassed) {
    PackageText package;
    package.open("S", 2).field("a", NETDSD_FT_BIN, 0).u8(0).field("b", NETDSD_FT_INT).u32(9);
    EXPECT_EQ(dump_of(package.u32(0)), "*Structure=S\na(BIN)=\nb(INT)=9\n");
    EXPECT_EQ(err_.finish(), "");
}

TEST_F(PackageOfAStranger, RawPackageIsOneLine) {
    EXPECT_EQ(dump(nobody_.get(), {0, 0xAB, 1}, "# "), "# *RawData=AB01\n");
    EXPECT_EQ(dump(nobody_.get(), {0}), "*RawData=\n");
}

TEST_F(PackageOfAStranger, NestedRawPackageIsABlock) {
    const PackageText package =
        one_field(NETDSD_FT_BIN).u16(1).u8(1).u32(2).u32(3).raw("\0\1\2", 3).raw("\1\2", 2);
    EXPECT_EQ(dump_of(package), "*Structure=S\nv(BIN)={\n\t*RawData=0102\n\t}\n");
}

TEST_F(PackageOfAStranger, ControlCharactersDoNotBreakLines) {
    PackageText package;
    package.open("S\n", 1).field("v\t", NETDSD_FT_STRING).text("a\nb\\\x7F \xC3\xA4\x1B[2J");
    EXPECT_EQ(dump_of(package),
              "*Structure=S\\x0A\nv\\x09(STRING)=a\\x0Ab\\x5C\\x7F \xC3\xA4\\x1B[2J\n");
}

TEST_F(PackageOfAStranger, EmptyPackageIsReported) {
    EXPECT_EQ(dump(nobody_.get(), {}), "*Structure=\n");
    EXPECT_THAT(err_.finish(), HasSubstr("Structure \"\" ran out of data prematurely ("));
}

TEST_F(PackageOfAStranger, ArrayThatClaimsTooMuchShowsWhatIsThere) {
    const PackageText package = one_field(NETDSD_FT_A_SHORT).u16(65535).u16(1).u16(2).u8(3);
    EXPECT_EQ(dump_of(package), "*Structure=S\nv(INT)[65535]=1,2\n");
    EXPECT_THAT(err_.finish(), HasSubstr("Structure \"S\" ran out of data prematurely ("));
}

TEST_F(PackageOfAStranger, TextThatClaimsTooMuchShowsWhatIsThere) {
    const PackageText package = one_field(NETDSD_FT_STRING).u16(500).raw("abc", 3);
    EXPECT_EQ(dump_of(package), "*Structure=S\nv(STRING)=abc\n");
    EXPECT_THAT(err_.finish(), HasSubstr("Structure \"S\" ran out of data prematurely ("));
}

TEST_F(PackageOfAStranger, ElementThatClaimsTooMuchIsReported) {
    const PackageText package = one_field(NETDSD_FT_BIN).u16(2).u8(1).u32(8).u32(0xFFFFFFFF).u8(1);
    EXPECT_EQ(dump_of(package), "*Structure=S\nv(BIN)[2]=\n");
    EXPECT_THAT(err_.finish(), HasSubstr("Structure \"S\" ran out of data prematurely ("));
}

TEST_F(PackageOfAStranger, ElementThatEndsEarlyLeavesTheOthers) {
    PackageText whole;
    whole.open("E", 1).field("x", NETDSD_FT_BYTE).u8(7);
    const auto size = static_cast<unsigned>(whole.bytes().size());
    PackageText package = one_field(NETDSD_FT_BIN);
    package.u16(2).u8(1).u32(1).u32(4).u8(1).text("E").u32(size).append(whole.bytes());
    package.raw("\7\7", 2);
    EXPECT_EQ(dump_of(package), "*Structure=S\nv(BIN)[2]=E:{\n\t},\n\t{\n\tx(BIN)=07\n\t}\n");
    EXPECT_THAT(err_.finish(), HasSubstr("Structure \"E\" ran out of data prematurely ("));
}

TEST_F(PackageOfAStranger, BytesBehindTheFieldsAreReported) {
    EXPECT_EQ(dump_of(one_field(NETDSD_FT_BYTE).u8(7).u8(9)), "*Structure=S\nv(BIN)=07\n");
    EXPECT_THAT(err_.finish(), HasSubstr("WARNING: Package of type \"S\" ran out of fields before "
                                         "the end of the package ("));
}

TEST_F(PackageOfAStranger, UnknownTypeIsReportedAndPassed) {
    PackageText package;
    package.open("S", 2).field("v", 30).field("w", NETDSD_FT_BOOL).u8(1);
    EXPECT_EQ(dump_of(package), "*Structure=S\nv(?)=\nw(BOOL)=TRUE\n");
    EXPECT_THAT(err_.finish(), HasSubstr("BUG: Unknown type (30) in package \"S\" field \"v\" ("));
}

TEST_F(PackageOfAStranger, NestingIsBounded) {
    PackageText inner;
    inner.open("S", 0);
    for (int i = 0; i < 100; ++i) {
        PackageText outer = one_field(NETDSD_FT_BIN);
        outer.u16(1).u8(1).u32(0).u32(static_cast<unsigned>(inner.bytes().size()));
        inner = outer.append(inner.bytes());
    }
    EXPECT_EQ(occurrences(dump_of(inner), "S:{"), 32u);
    EXPECT_EQ(occurrences(err_.finish(), "A package is nested too deeply ("), 1u);
}

TEST_F(PackageOfAStranger, EveryCutIsSurvivedAndReported) {
    const Bytes package = load_hex("whole.package.hex");
    for (size_t size = 0; size < package.size(); ++size) {
        const StderrCapture err;
        dump(nobody_.get(), Bytes(package.begin(), package.begin() + static_cast<long>(size)));
        EXPECT_THAT(err.text(), HasSubstr("ran out of data prematurely")) << size;
    }
}

TEST(PrintPackage, NoiseIsSurvived) {
    TestCatalogue catalogue(sample_structures());
    const Every e = sample_every();
    std::mt19937 random(1);
    const StderrCapture err;
    for (const Bytes &good :
         {pack(catalogue.get(), &e, "Every", sizeof e), load_hex("whole.package.hex")}) {
        for (int round = 0; round < 3000; ++round) {
            Bytes bad = good;
            for (unsigned change = random() % 8; change-- > 0;)
                bad[random() % bad.size()] = static_cast<unsigned char>(random());
            dump(catalogue.get(), bad);
        }
    }
}

TEST(PrintPackage, NullArgumentsAreReported) {
    StderrCapture err;
    NETPACK_print_ds(nullptr, 1, stdout, "");
    NETPACK_print_ds("", 1, nullptr, "");
    EXPECT_EQ(occurrences(err.finish(), "assertion failed (netpack_package.cpp:"), 2u);
}

// What decode shows of recordings, frames, messages and packages, and tables read back.

#include "decode.h"
#include "hex_text.h"
#include "package_show.h"
#include "packets.h"
#include "record_json.h"
#include "recording.h"
#include "support.h"
#include "table_columns.h"

#include <algorithm>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <zeb2/libzeb2.h>

using namespace zeb::test;
using namespace zebctl;
using testing::HasSubstr;

namespace {

ByteSource source_of(const std::string &bytes) {
    auto at = std::make_shared<size_t>(0);
    return [bytes, at](char *to, size_t size) -> ssize_t {
        const size_t count = std::min(size, bytes.size() - *at);
        memcpy(to, bytes.data() + *at, count);
        *at += count;
        return static_cast<ssize_t>(count);
    };
}

struct Shown {
    std::string text, errors;
    bool faulty = false;
};

Shown decode(const std::string &bytes, DecodeOptions options = {}) {
    Shown shown;
    StderrCapture errors;
    {
        ByteFaults faults("F");
        ByteWindow window(source_of(bytes));
        Decoder(options, faults, [&](std::string_view text) {
            shown.text += text;
            return true;
        }).decode(window);
        shown.faulty = faults.any();
    }
    shown.errors = errors.finish();
    return shown;
}

Json decode_json(const std::string &bytes, DecodeOptions options = {}) {
    options.json = true;
    const std::string text = decode(bytes, options).text;
    const Json line = Json::parse(text, nullptr, false);
    EXPECT_TRUE(line.is_object()) << text;
    return line;
}

std::string real(double value) {
    return {reinterpret_cast<const char *>(&value), sizeof value};
}

// A record that no catalogue has: two parts, a text, numbers of many kinds.
std::string foreign_package() {
    const std::string part = package("Part", {field("v", 12, real(1.5))});
    const std::string nothing = package("Part", {field("v", 12, real(MVC))});
    return package("Foreign", {field("flags", 4, u16(65535)), field("name", 28, text16("a\"b\xe9")),
                               field("on", 0, "\1"),
                               field("parts", 29,
                                     u16(2) + "\1" + u32(8) + u32(part.size()) + part +
                                         u32(nothing.size()) + nothing + std::string(16, 'x')),
                               field("t", 11, real(0.5)),
                               field("x", 26, u16(3) + real(1) + real(1e20) + real(MVC))});
}

} // namespace

TEST(Decode, ShowsAPackageThatTheCatalogueLacks) {
    const Json line = decode_json(foreign_package());
    EXPECT_EQ(line["record_type"], "Foreign");
    EXPECT_EQ(line["record"].dump(),
              "{\"flags\":65535,\"name\":\"a\\\"b\xc3\xa9\",\"on\":true,"
              "\"parts\":[{\"v\":1.5},{\"v\":null}],\"t\":0.5,\"x\":[1.0,1e+20,null]}");
    EXPECT_EQ(line["types"].dump(),
              "{\"flags\":\"USHORT\",\"name\":\"STRING\",\"on\":\"BOOL\","
              "\"parts\":{\"v\":\"DOUBLE\"},\"t\":\"FTIME\",\"x\":\"DOUBLE[3]\"}");
}

TEST(Decode, ShowsItForPeople) {
    EXPECT_EQ(decode(foreign_package()).text, "Foreign\n"
                                              "  flags USHORT = 65535\n"
                                              "  name STRING = a\"b\xe9\n"
                                              "  on BOOL = TRUE\n"
                                              "  parts BIN[2]\n"
                                              "    [1] Part\n"
                                              "      v DOUBLE = 1.5\n"
                                              "    [2] Part\n"
                                              "      v DOUBLE = -\n"
                                              "  t FTIME = 1970-01-01T00:00:00.500Z\n"
                                              "  x DOUBLE[3] = 1,1e+20,-\n");
}

TEST(Decode, AKnownRecordIsShownAsItIsWatched) {
    // One of each message that carries a record, as it is before anything is known.
    CRC16_inittable();
    for (size_t i = 0; i < _ndsd_structures_count_ext; ++i) {
        const NETDSD_entry &entry = _ndsd_structures_ext[i];
        std::string record(entry.total_size, '\0');
        NETPACK_fill_mvc(record.data(), entry.name, record.size());
        size_t size = 0;
        void *made = NETPACK_package_ds(record.data(), entry.name, record.size(), &size);
        const std::string bytes(static_cast<char *>(made), size);
        free(made);
        std::string text, error;
        PackageJson json(text);
        EXPECT_GT(read_package(bytes, entry.name, json, error), 0u) << entry.name << error;
        EXPECT_EQ(Json::parse(text, nullptr, false), to_json(entry, record.data())) << entry.name;
    }
}

TEST(Decode, ARawPackageTakesItsFieldsFromTheCatalogue) {
    const std::string payload = packed(1, "MSG_SERVER_HEARTBEAT", "", "s", "NET_SERVER_Heartbeat",
                                       std::string(1, '\0') + u32(7));
    EXPECT_EQ(decode_json(payload)["record"].dump(), "{\"hb_idx\":7}");
    EXPECT_EQ(
        decode_json(packed(1, "MSG_X", "", "s", "Foreign", std::string("\0\1\2", 3)))["record"]
            .dump(),
        "{\"raw\":[1,2]}");
}

TEST(Decode, APackageCutAnywhereIsNamedAndStillJson) {
    const std::string whole = foreign_package();
    for (size_t size = 1; size < whole.size(); ++size) {
        const std::string frame =
            framed(packed(1, "MSG_X", "to", "from", "Foreign", whole.substr(0, size)));
        DecodeOptions options;
        options.json = true;
        const Shown shown = decode(frame, options);
        const Json line = Json::parse(shown.text, nullptr, false);
        ASSERT_TRUE(line.is_object()) << shown.text;
        EXPECT_TRUE(line.contains("error")) << size;
        EXPECT_TRUE(shown.faulty);
        EXPECT_THAT(shown.errors, HasSubstr("F: byte 0: MSG_X: the package ends")) << size;
    }
}

TEST(Decode, APackageThatLiesAboutLengthsIsNamedAndTheNextFrameShown) {
    const std::string good = framed(packed(1, "MSG_LOG_FLUSH", "", "a"));
    const std::vector<std::string> lies = {
        "\x01" + u16(65535) + "Foreign",                                 // its name
        "\x01" + text16("Foreign") + u16(65535) + field("n", 5, u32(1)), // its fields
        package("Foreign", {field("x", 26, u16(65535) + real(1))}),      // elements
        package("Foreign", {field("s", 28, u16(60000) + "abc")}),        // a text
        package("Foreign", {field("p", 29,
                                  u16(2) + "\1" + u32(0xFFFFFFFF) + // a nested record,
                                      u32(0xFFFFFFFF) + "abc")}),   // an element's size
        package("Foreign", {field("p", 29, u16(65535) + std::string(1, '\0') + u32(0xFFFFFFFF))}),
        package("Foreign", {field("n", 30, "abc")}), // a type
    };
    for (const std::string &lie : lies) {
        const Shown shown = decode(framed(packed(1, "MSG_X", "", "b", "Foreign", lie)) + good);
        EXPECT_TRUE(shown.faulty);
        EXPECT_THAT(shown.errors, HasSubstr("MSG_X: ")) << shown.text;
        EXPECT_THAT(shown.text, HasSubstr(" a MSG_LOG_FLUSH flags 1\n"));
    }
}

TEST(Decode, RecordsNestNoDeeperThanTheLibraryGoes) {
    std::string bytes = package("Part", {});
    for (int depth = 0; depth < 40; ++depth)
        bytes =
            package("Part", {field("p", 29, u16(1) + "\1" + u32(0) + u32(bytes.size()) + bytes)});
    const Shown shown = decode(framed(packed(1, "MSG_X", "", "b", "Part", bytes)));
    EXPECT_THAT(shown.errors, HasSubstr("records nest too deep"));
}

TEST(Decode, TellsByThemselvesWhatFilesHold) {
    CRC16_inittable();
    const std::string payload = packed(1, "MSG_LOG_FLUSH", "", "a");
    std::string recording(k_recording_line);
    append_entry(recording, 1044100800.5, framed(payload));
    EXPECT_EQ(decode(recording).text, "2003-02-01T12:00:00.500Z @17 a MSG_LOG_FLUSH flags 1\n");
    EXPECT_EQ(decode("xx" + framed(payload)).text, "@2 a MSG_LOG_FLUSH flags 1\n");
    EXPECT_EQ(decode(payload).text, "@0 a MSG_LOG_FLUSH flags 1\n");
    EXPECT_EQ(decode("").text, "");
    EXPECT_TRUE(decode("nothing of the kind").faulty);
}

TEST(Decode, ChoosesByTypeSourceAndNumber) {
    std::string frames;
    for (const char *source : {"a", "b", "a"})
        frames += framed(packed(1, "MSG_LOG_FLUSH", "", source));
    frames += framed(packed(1, "MSG_TEST_THREE", "", "a"));
    DecodeOptions options;
    options.choice.sources = {"a"};
    options.choice.types = {"MSG_LOG_*"};
    EXPECT_EQ(occurrences(decode(frames, options).text, "MSG_LOG_FLUSH"), 2u);
    options.count = 1;
    EXPECT_EQ(decode(frames, options).text, "@0 a MSG_LOG_FLUSH flags 1\n");
}

TEST(Decode, ReadsHexadecimalTextAndNamesWhatIsNone) {
    EXPECT_TRUE(looks_like_hex("0x01 02:0a, \"text\" # comment\nff"));
    EXPECT_FALSE(looks_like_hex("1"));
    EXPECT_FALSE(looks_like_hex("no"));
    EXPECT_FALSE(looks_like_hex(std::string("01\0", 3)));
    std::string bytes, faults;
    HexText text([&](uint64_t line, const std::string &what) {
        faults += std::to_string(line) + ": " + what + "; ";
    });
    text.add("01 0x02\n\"a #\" # zz\nzz 3 4f", bytes);
    text.end();
    EXPECT_EQ(bytes, std::string("\1\2a #\x4f", 6));
    EXPECT_EQ(faults, "3: no hexadecimal digit: z; 3: no hexadecimal digit: z; "
                      "3: the digit 3 without a second; ");
}

// ---- Tables ----

namespace {

bool reads(const char *structure, const std::string &line, void *record, std::string &error) {
    return TableColumns(*NETPACK_find_ds(structure)).read(line, record, error);
}

} // namespace

TEST(Table, ReadsBackWhatTheReaderAloneWouldChange) {
    std::string error;
    NET_LOG_AVG_Bypass record;
    ASSERT_TRUE(reads("NET_LOG_AVG_Bypass", "0,INVALID", &record, error)) << error;
    EXPECT_EQ(record.bypassed, FALSE);
    EXPECT_EQ(FTIME{record.flush_until}, -1.0);
    ASSERT_TRUE(reads("NET_LOG_AVG_Bypass", "1,20140821_1424010500", &record, error)) << error;
    EXPECT_EQ(record.bypassed, TRUE);
    EXPECT_EQ(FTIME{record.flush_until}, 1408631041.5);
    NET_SERVER_InstrumentInfo info;
    ASSERT_TRUE(reads("NET_SERVER_InstrumentInfo", "Display,41,one,,,,,,,,gps", &info, error))
        << error;
    EXPECT_EQ(info.id_ch, 'A');
    EXPECT_STREQ(info.tags[0].tag, "one");
    EXPECT_STREQ(info.type, "gps");
    NET_SERVER_FilterAdd filter;
    const std::string pattern = "612A" + std::string(60, '0'), long_pattern(512, '0');
    ASSERT_TRUE(reads("NET_SERVER_FilterAdd",
                      "d," + pattern + "," + long_pattern + ",," + long_pattern + ",1,-1,7",
                      &filter, error))
        << error;
    EXPECT_STREQ(filter.inst_type_match, "a*");
    EXPECT_EQ(filter.type_match, -1);
    EXPECT_EQ(filter.uid, 7u);
}

TEST(Table, TakesAndRefusesEachKindOfCell) {
    // In the order of the columns: a value that is taken and one that is not.
    const TableColumns columns(*NETPACK_find_ds("NET_TEST_Test1"));
    EXPECT_EQ(
        static_cast<size_t>(std::count(columns.header().begin(), columns.header().end(), ',')),
        NETPACK_find_ds("NET_TEST_Test1")->count_fields - 1);
    std::vector<std::string> cells;
    const NETDSD_entry *entry = NETPACK_find_ds("NET_TEST_Test1");
    std::vector<std::string> wrong;
    for (size_t i = 0; i < entry->count_fields; ++i) {
        switch (static_cast<unsigned>(entry->fields[i].ft)) {
        case NETDSD_FT_BOOL:
            cells.push_back("no");
            wrong.push_back("maybe");
            break;
        case NETDSD_FT_CHAR:
        case NETDSD_FT_BYTE:
            cells.push_back("7f");
            wrong.push_back("7");
            break;
        case NETDSD_FT_SHORT:
            cells.push_back("-32768");
            wrong.push_back("32768");
            break;
        case NETDSD_FT_USHORT:
            cells.push_back("65535");
            wrong.push_back("-1");
            break;
        case NETDSD_FT_INT:
        case NETDSD_FT_LONG:
            cells.push_back("-2147483648");
            wrong.push_back("2147483648");
            break;
        case NETDSD_FT_UINT:
        case NETDSD_FT_ULONG:
            cells.push_back("4294967295");
            wrong.push_back("4294967296");
            break;
        case NETDSD_FT_SIZET:
            cells.push_back("10");
            wrong.push_back("0x10");
            break;
        case NETDSD_FT_TIME:
            cells.push_back("20140821_142401");
            wrong.push_back("20140821_1424010500");
            break;
        case NETDSD_FT_FTIME:
            cells.push_back("20140821_1424010500");
            wrong.push_back("noon");
            break;
        case NETDSD_FT_STRING:
            cells.push_back("text");
            wrong.push_back(std::string(entry->fields[i].count, 'x'));
            break;
        default:
            cells.push_back("+1.500000E+00");
            wrong.push_back("one");
        }
    }
    const auto line_of = [](const std::vector<std::string> &values) {
        std::string line;
        for (const std::string &value : values)
            line += (line.empty() ? "" : ",") + value;
        return line;
    };
    std::string record(entry->total_size, '\0'), error;
    EXPECT_TRUE(columns.read(line_of(cells), record.data(), error)) << error;
    for (size_t i = 0; i < cells.size(); ++i) {
        std::vector<std::string> bad = cells;
        bad[i] = wrong[i];
        error.clear();
        EXPECT_FALSE(columns.read(line_of(bad), record.data(), error)) << entry->fields[i].name;
        EXPECT_THAT(error, testing::StartsWith(std::string(entry->fields[i].name) + ": "));
    }
}

TEST(Table, NamesBadLines) {
    const std::vector<std::pair<std::string, std::string>> lines = {
        {"1", "1 columns, not 2"},
        {"1,INVALID,3", "3 columns, not 2"},
        {"maybe,INVALID", "bypassed: no truth value: maybe"},
        {"1,noon", "flush_until: no time: noon"},
        {"1,", "flush_until: no time: "}};
    NET_LOG_AVG_Bypass record;
    for (const auto &[line, expected] : lines) {
        std::string error;
        EXPECT_FALSE(reads("NET_LOG_AVG_Bypass", line, &record, error));
        EXPECT_EQ(error, expected);
    }
    std::string error;
    NET_SERVER_Heartbeat beat;
    for (const char *line : {"", "x", "5x", "4294967296", "-1"})
        EXPECT_FALSE(reads("NET_SERVER_Heartbeat", line, &beat, error)) << line;
    NET_LOG_SetInterval interval;
    EXPECT_FALSE(reads("NET_LOG_SetInterval", "soon", &interval, error));
    EXPECT_EQ(error, "interval: no number: soon");
    NET_SERVER_ClientHandshake name;
    EXPECT_TRUE(reads("NET_SERVER_ClientHandshake", std::string(31, 'x'), &name, error));
    EXPECT_FALSE(reads("NET_SERVER_ClientHandshake", std::string(32, 'x'), &name, error));
}

TEST(Table, TextsAreMadeToFit) {
    NET_SERVER_ClientHandshake name = {};
    strcpy(name.name, "a,b\nc");
    const TableColumns columns(*NETPACK_find_ds("NET_SERVER_ClientHandshake"));
    EXPECT_TRUE(columns.make_fit(&name));
    EXPECT_STREQ(name.name, "a;b c");
    EXPECT_FALSE(columns.make_fit(&name));
}

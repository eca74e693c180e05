// The station's own definitions, seen through the public catalogue: which records and messages
// there are, how they hang together, and the form of the comments that other programs read.
#include "support.h"

#include <zeb2/libzeb2.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Names = std::vector<std::string>;

Names lines_of(const std::string &file) {
    std::ifstream in(zeb::test::data_path(file));
    Names lines;
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

std::vector<const NETDSD_entry *> records() {
    std::vector<const NETDSD_entry *> all;
    for (size_t i = 0; i < _ndsd_structures_count_ext; i++)
        all.push_back(&_ndsd_structures_ext[i]);
    return all;
}

std::vector<const NETMSG_entry *> messages() {
    std::vector<const NETMSG_entry *> all;
    for (size_t i = 0; i < _nmsg_list_count_ext; i++)
        all.push_back(&_nmsg_list_ext[i]);
    return all;
}

struct Member {
    const NETDSD_entry *record;
    const NETDSD_field *field;

    std::string where() const { return std::string(record->name) + "." + field->name; }
    std::string comment() const { return field->comment; }
};

std::vector<Member> members() {
    std::vector<Member> all;
    for (const NETDSD_entry *record : records())
        for (size_t i = 0; i < record->count_fields; i++)
            all.push_back({record, &record->fields[i]});
    return all;
}

const NETDSD_field *field_of(const char *record, const std::string &name) {
    const NETDSD_entry *entry = NETPACK_find_ds(record);
    for (size_t i = 0; entry && i < entry->count_fields; i++)
        if (name == entry->fields[i].name)
            return &entry->fields[i];
    return nullptr;
}

bool ends_with(const std::string &text, const std::string &end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

bool is_real(const NETDSD_field &field) {
    return field.ft == NETDSD_FT_DOUBLE || field.ft == NETDSD_FT_FLOAT ||
           field.ft == NETDSD_FT_A_DOUBLE || field.ft == NETDSD_FT_A_FLOAT;
}

// The parts of "Description (unit) | Variable | low;high", by hand: the variable holds braces and
// colons of its own.
struct Comment {
    std::string description;
    std::string unit;
    std::string variable;
    std::string bounds;
};

bool split(const std::string &text, Comment &out) {
    static const std::regex form(R"(([^|]*[^ |]) \(([^()|]+)\) \| ([^ |]+)( \| ([^ |]+))?)");
    std::smatch match;
    if (!std::regex_match(text, match, form))
        return false;
    out = {match[1], match[2], match[3], match[5]};
    return true;
}

std::vector<std::pair<Member, Comment>> measured() {
    std::vector<std::pair<Member, Comment>> all;
    for (const Member &member : members()) {
        Comment comment;
        if (split(member.comment(), comment))
            all.emplace_back(member, comment);
    }
    return all;
}

// The words of "${INDEX:a:b:c}", none when there is no such part.
Names index_words(const std::string &variable) {
    static const std::regex form(R"(\$\{INDEX:([A-Za-z0-9:]+)\})");
    std::smatch match;
    if (!std::regex_search(variable, match, form))
        return {};
    Names words;
    std::istringstream list(match[1].str());
    for (std::string word; std::getline(list, word, ':');)
        words.push_back(word);
    return words;
}

// The identifier pattern of "${INST:A\d+}".
std::string identifier_pattern(const std::string &variable) {
    static const std::regex form(R"(\$\{INST:([^{}]+)\})");
    std::smatch match;
    return std::regex_search(variable, match, form) ? match[1].str() : "";
}

// The variables that a field feeds, one for each element.
Names expanded(const std::string &variable) {
    const Names words = index_words(variable);
    if (words.empty())
        return {variable};
    const size_t begin = variable.find("${INDEX:"), end = variable.find('}', begin);
    Names all;
    for (const std::string &word : words)
        all.push_back(variable.substr(0, begin) + word + variable.substr(end + 1));
    return all;
}

// The unit of a comment, measured or not; empty without one.
std::string unit_of(const std::string &comment) {
    static const std::regex in_parentheses(R"([^|]*\(([^()|]+)\)( \|.*)?)");
    std::smatch match;
    return std::regex_match(comment, match, in_parentheses) ? match[1].str() : "";
}

bool is_time(const NETDSD_field &field) {
    return field.ft == NETDSD_FT_FTIME || field.ft == NETDSD_FT_TIME ||
           field.ft == NETDSD_FT_A_FTIME || field.ft == NETDSD_FT_A_TIME;
}

// Records whose fields stand for their types alone.
bool is_of_the_tests(const NETDSD_entry &record) {
    return strncmp(record.name, "NET_TEST_", 9) == 0;
}

struct Pin {
    const char *name;
    NETDSD_field_type ft;
    size_t offset;
    size_t count;
    size_t size;
    const char *type_name;
};

void expect_fields(const char *record, size_t total_size, const std::vector<Pin> &pins) {
    const NETDSD_entry *entry = NETPACK_find_ds(record);
    ASSERT_NE(entry, nullptr) << record;
    EXPECT_EQ(entry->total_size, total_size) << record;
    for (const Pin &pin : pins) {
        const NETDSD_field *field = field_of(record, pin.name);
        ASSERT_NE(field, nullptr) << record << "." << pin.name;
        EXPECT_EQ(field->ft, pin.ft) << record << "." << pin.name;
        EXPECT_EQ(field->offset, pin.offset) << record << "." << pin.name;
        EXPECT_EQ(field->count, pin.count) << record << "." << pin.name;
        EXPECT_EQ(field->size, pin.size) << record << "." << pin.name;
        EXPECT_STREQ(field->type_name, pin.type_name) << record << "." << pin.name;
    }
}

void expect_message(NETMSG_type type, int number, const char *meta, const char *record) {
    const NETMSG_entry *entry = NETPACK_find_msg_by_type(type);
    ASSERT_NE(entry, nullptr) << number;
    EXPECT_EQ(static_cast<int>(type), number) << entry->name;
    EXPECT_STREQ(entry->meta_types, meta) << entry->name;
    EXPECT_STREQ(entry->ds_tie, record) << entry->name;
}

} // namespace

// Names are what travels on the wire, and a message more or less would renumber the others.
TEST(Definitions, RecordsAreExactlyTheStations) {
    Names names;
    for (const NETDSD_entry *record : records())
        names.push_back(record->name);
    EXPECT_EQ(names.size(), 254u);
    EXPECT_EQ(names, lines_of("record_names.txt"));
}

TEST(Definitions, MessagesAreExactlyTheStationsInTheirNumbers) {
    Names names;
    for (const NETMSG_entry *message : messages()) {
        EXPECT_EQ(static_cast<size_t>(message->msg), names.size()) << message->name;
        names.push_back(message->name);
    }
    EXPECT_EQ(names.size(), 294u);
    EXPECT_EQ(names, lines_of("message_names.txt"));
}

TEST(Definitions, FortyFourMessagesCarryNoRecord) {
    const auto all = messages();
    EXPECT_EQ(std::count_if(all.begin(), all.end(),
                            [](const NETMSG_entry *message) { return message->ds_tie == nullptr; }),
              44);
}

TEST(Definitions, NumbersKnownToTheLibrary) {
    expect_message(MSG_CUTPOINTS_STATUS, 98, "cutpoints", "NET_CUTPOINTS_Status");
    expect_message(MSG_IO_AVG, 143, "io", "NET_IO_MultiReal");
    expect_message(MSG_IO_INSTANT, 144, "io", "NET_IO_MultiReal");
    expect_message(MSG_IO_RESEND_DIGITAL, 145, "io", nullptr);
    expect_message(MSG_IO_RESEND_REAL, 146, "io", nullptr);
    expect_message(MSG_IO_RUNNINGAVG, 147, "io", "NET_IO_MultiReal");
    expect_message(MSG_IO_SET_DIGITAL, 148, "io", "NET_IO_DigitalOut");
    expect_message(MSG_IO_SET_REAL, 149, "io", "NET_IO_Real");
    expect_message(MSG_IO_STATE_DIGITAL, 150, "io", "NET_IO_DigitalIn");
    expect_message(MSG_LOG_AVG_BYPASS, 155, "log", "NET_LOG_AVG_Bypass");
    expect_message(MSG_LOG_MONITOR, 161, "monitor", "NET_LOG_MonitorMessage");
    expect_message(MSG_LOG_SWITCHFILES, 169, "log", "NET_LOG_SwitchFiles");
    expect_message(MSG_MESSAGING_MESSAGE, 179, "messaging", "NETDS_MESSAGE_OneMessage");
    expect_message(MSG_NOTIFY_CLIENT_CONNECT, 210, "*", nullptr);
    expect_message(MSG_SERVER_CLIENTHANDSHAKE, 251, "*", "NET_SERVER_ClientHandshake");
    expect_message(MSG_TEST_ONE, 259, "*", "NET_TEST_MsgTest1");
    expect_message(MSG_TEST_THREE, 260, "*", nullptr);
    expect_message(MSG_TEST_TWO, 261, "*", "NET_TEST_MsgTest2");
    expect_message(NET_SERVER_DELETFILTER, 293, "*", "NET_SERVER_FilterDelete");
}

TEST(Definitions, MetaTypesOfTheSharedClasses) {
    EXPECT_STREQ(NETPACK_find_msg_by_name("MSG_AE33_INSTANT")->meta_types, "ae33");
    EXPECT_STREQ(NETPACK_find_msg_by_name("MSG_COMMON_CNC_INSTANT")->meta_types, "cnc");
    EXPECT_STREQ(NETPACK_find_msg_by_name("MSG_CPC_3010_INSTANT")->meta_types, "cnc");
    EXPECT_STREQ(NETPACK_find_msg_by_name("MSG_COMMON_NEPH_INSTANT")->meta_types, "neph");
    EXPECT_STREQ(NETPACK_find_msg_by_name("MSG_NEPH_INSTANT")->meta_types, "neph");
    EXPECT_STREQ(NETPACK_find_msg_by_name("MSG_CONTAMINATION_BYPASS")->meta_types, "contamination");
}

TEST(Definitions, MetaTypesAreLowercaseWords) {
    for (const NETMSG_entry *message : messages())
        EXPECT_TRUE(std::regex_match(message->meta_types, std::regex("\\*|[a-z][a-z0-9_]*")))
            << message->name;
}

TEST(Definitions, EveryRecordIsCarriedOrNested) {
    std::set<std::string> used;
    for (const NETMSG_entry *message : messages())
        if (message->ds_tie)
            used.insert(message->ds_tie);
    for (const Member &member : members())
        if (member.field->ft == NETDSD_FT_BIN)
            used.insert(member.field->type_name);
    for (const NETDSD_entry *record : records())
        EXPECT_TRUE(used.count(record->name)) << record->name;
}

TEST(Definitions, CommentsThatNameAVariableHaveTheSettledForm) {
    for (const Member &member : members()) {
        Comment comment;
        if (member.comment().find('|') == std::string::npos)
            continue;
        EXPECT_TRUE(split(member.comment(), comment)) << member.where() << ": " << member.comment();
    }
    EXPECT_GT(measured().size(), 500u);
}

TEST(Definitions, VariablesEndWithTheInstrument) {
    static const std::regex form(
        R"([A-Za-z][A-Za-z0-9]*(\$\{INDEX:[A-Za-z0-9:]+\}[A-Za-z0-9]*)?_\$\{INST:[A-Z]\\d\+\})");
    for (const auto &[member, comment] : measured())
        EXPECT_TRUE(std::regex_match(comment.variable, form))
            << member.where() << ": " << comment.variable;
}

TEST(Definitions, IndexWordsAreAsManyAsElements) {
    for (const auto &[member, comment] : measured()) {
        const Names words = index_words(comment.variable);
        const size_t expected = member.field->count > 1 || !words.empty() ? member.field->count : 0;
        EXPECT_EQ(words.size(), expected) << member.where();
        EXPECT_EQ(std::set<std::string>(words.begin(), words.end()).size(), words.size())
            << member.where();
    }
}

TEST(Definitions, NoTwoFieldsOfARecordFeedOneVariable) {
    std::map<std::string, std::string> fed;
    for (const auto &[member, comment] : measured()) {
        for (const std::string &variable : expanded(comment.variable)) {
            const auto [other, fresh] =
                fed.emplace(std::string(member.record->name) + " " + variable, member.where());
            EXPECT_TRUE(fresh) << member.where() << " and " << other->second << ": " << variable;
        }
    }
}

// "A1" and "A12" are such identifiers; another letter is another kind of instrument.
TEST(Definitions, IdentifierPatternsMatchALetterAndANumber) {
    for (const auto &[member, comment] : measured()) {
        const std::string pattern = identifier_pattern(comment.variable);
        ASSERT_FALSE(pattern.empty()) << member.where();
        const std::regex identifier(pattern);
        const std::string letter = pattern.substr(0, 1);
        for (const char *number : {"1", "12", "345"})
            EXPECT_TRUE(std::regex_match(letter + number, identifier)) << member.where();
        for (const std::string &other :
             {letter, std::string("1"), letter + "x", "_" + letter + "1"})
            EXPECT_FALSE(std::regex_match(other, identifier)) << member.where() << ": " << other;
    }
}

TEST(Definitions, BoundsAreALowAndAHighValue) {
    for (const auto &[member, comment] : measured()) {
        if (comment.bounds.empty())
            continue;
        char *end = nullptr;
        const double low = strtod(comment.bounds.c_str(), &end);
        ASSERT_EQ(*end, ';') << member.where();
        const double high = strtod(end + 1, &end);
        EXPECT_EQ(*end, '\0') << member.where();
        EXPECT_LT(low, high) << member.where();
    }
}

// "1" is a plain ratio or number, "any" a channel whose unit its configuration names.
TEST(Definitions, EachUnitHasOneSpelling) {
    static const std::set<std::string> units = {
        "%",     "1",   "1/Mm", "1/cm3", "1/m",  "A",    "C",     "C/W",  "Hz",    "V",     "W",
        "W/m2",  "any", "bits", "cd/m2", "cm2",  "cm3",  "deg",   "g/kg", "g/cm3", "h",     "hPa",
        "count", "lpm", "m",    "m/s",   "m3",   "m2/g", "mA",    "mV",   "mm",    "mm/h",  "mm2",
        "nm",    "ppb", "ppm",  "s",     "slpm", "ug",   "ug/m3", "um",   "us",    "ml/min"};
    static const std::regex remark(R"(-?\d+: .*|s since 1970)");
    for (const Member &member : members()) {
        const std::string unit = unit_of(member.comment());
        // The one variable whose description the archive has always had in this form.
        if (unit.empty() || member.where() == "NET_AE33_Instant.S")
            continue;
        EXPECT_TRUE(units.count(unit) || std::regex_match(unit, remark))
            << member.where() << ": " << member.comment();
    }
}

TEST(Definitions, EveryRealHasAUnit) {
    // The one's comment is as the archive has always had it, the others' unit is their channel's.
    static const std::set<std::string> exempt = {"NET_AE33_Reading.wavelengths", "NET_IO_Real.val"};
    for (const Member &member : members()) {
        if (!is_real(*member.field) || is_of_the_tests(*member.record) ||
            exempt.count(member.where()))
            continue;
        EXPECT_NE(unit_of(member.comment()), "") << member.where() << ": " << member.comment();
    }
}

TEST(Definitions, TimesThatAreExplainedCountFrom1970) {
    for (const Member &member : members()) {
        if (!is_time(*member.field) || is_of_the_tests(*member.record) || member.comment().empty())
            continue;
        EXPECT_EQ(unit_of(member.comment()), "s since 1970") << member.where();
    }
}

TEST(Definitions, OneNameIsOneQuantityInEveryRecord) {
    static const std::vector<std::pair<std::regex, std::set<std::string>>> quantities = {
        {std::regex("N|Nt"), {"1/cm3"}},
        {std::regex("B[ase]|Bbs"), {"1/Mm"}},
        {std::regex("Ir"), {"1"}},
        {std::regex("P|Pd[0-9]?"), {"hPa"}},
        {std::regex("Q[0-9]?|Q_set"), {"lpm", "slpm", "ml/min"}},
        {std::regex("T[0-9]?|Td|T_set"), {"C"}},
        {std::regex("U"), {"%"}},
        {std::regex("[XL]|X[0-9]"), {"ug/m3", "ppb", "m"}},
        {std::regex("interval|duration"), {"s"}},
    };
    for (const Member &member : members()) {
        if (!is_real(*member.field) || is_of_the_tests(*member.record))
            continue;
        for (const auto &[names, units] : quantities) {
            if (!std::regex_match(member.field->name, names))
                continue;
            EXPECT_TRUE(units.count(unit_of(member.comment())))
                << member.where() << ": " << member.comment();
        }
    }
}

TEST(Definitions, StatesSayWhatTheirNumbersMean) {
    for (const Member &member : members()) {
        const std::string name = member.field->name;
        if ((name != "state" && name != "phase") || is_real(*member.field))
            continue;
        EXPECT_TRUE(std::regex_search(member.comment(), std::regex("^(.*: )?0 [a-z].*, 1 [a-z]")))
            << member.where() << ": " << member.comment();
    }
}

// A reading's flags are those of the status record of its instrument.
TEST(Definitions, StatusRecordsSayWhatTheBitsOfTheirFlagsMean) {
    static const std::regex listed(R"(.*\(bits\): \d+ [a-z].*|.*, bit i of .*\(bits\))");
    for (const Member &member : members()) {
        if (!ends_with(member.record->name, "_Status") || !ends_with(member.field->name, "flags"))
            continue;
        EXPECT_TRUE(std::regex_match(member.comment(), listed) ||
                    std::regex_search(member.comment(), std::regex(R"(\(bits\): i )")))
            << member.where() << ": " << member.comment();
    }
}

TEST(Definitions, EveryMeasuredFieldNamesItsVariable) {
    for (const Member &member : members()) {
        const std::string record = member.record->name;
        const bool measures = ends_with(record, "_Instant") || ends_with(record, "_Avg") ||
                              ends_with(record, "_Reading") || ends_with(record, "_Report");
        if (!measures || !is_real(*member.field) || !strcmp(member.field->name, "wavelengths"))
            continue;
        EXPECT_NE(member.comment().find('|'), std::string::npos) << member.where();
    }
}

TEST(Definitions, AveragesKeepTheNamesAndVariablesOfTheInstants) {
    size_t compared = 0;
    for (const auto &[member, comment] : measured()) {
        std::string instant = member.record->name;
        if (!ends_with(instant, "_Avg"))
            continue;
        instant.replace(instant.size() - 4, 4, "_Instant");
        if (!NETPACK_find_ds(instant.c_str()))
            continue;
        const NETDSD_field *field = field_of(instant.c_str(), member.field->name);
        ASSERT_NE(field, nullptr) << member.where();
        EXPECT_EQ(member.comment(), field->comment) << member.where();
        EXPECT_EQ(member.field->count, field->count) << member.where();
        compared++;
    }
    EXPECT_GT(compared, 100u);
}

TEST(Definitions, AveragesHaveAStartAndAnEnd) {
    for (const NETDSD_entry *record : records()) {
        if (!ends_with(record->name, "_Avg"))
            continue;
        for (const char *name : {"start_time", "end_time"}) {
            const NETDSD_field *field = field_of(record->name, name);
            ASSERT_NE(field, nullptr) << record->name;
            EXPECT_EQ(field->ft, NETDSD_FT_FTIME) << record->name << "." << name;
        }
    }
}

// One record's layout is older than the counts.
TEST(Definitions, AveragesCountTheirReadings) {
    size_t counted = 0;
    for (const NETDSD_entry *record : records()) {
        const bool running =
            field_of(record->name, "ra") && strcmp(record->name, "NET_AE33_Instant");
        if (!running && !ends_with(record->name, "_Avg"))
            continue;
        const NETDSD_field *field = field_of(record->name, "samples");
        ASSERT_NE(field, nullptr) << record->name;
        EXPECT_STREQ(field->type_name, "DWORD") << record->name;
        EXPECT_STREQ(field->comment, "Readings averaged (1)") << record->name;
        counted++;
    }
    EXPECT_GT(counted, 30u);
}

TEST(Definitions, OneNestedFieldAtMostIsTheMainReading) {
    std::map<std::string, int> main_readings;
    for (const Member &member : members()) {
        if (member.field->comment[0] != '*')
            continue;
        EXPECT_STREQ(member.field->comment, "*instant") << member.where();
        EXPECT_EQ(member.field->ft, NETDSD_FT_BIN) << member.where();
        EXPECT_EQ(++main_readings[member.record->name], 1) << member.where();
    }
}

// The largest and the deepest nested ones included.
TEST(Definitions, EveryRecordSurvivesTheWire) {
    for (const NETDSD_entry *record : records()) {
        std::vector<char> sent(record->total_size, '\0');
        NETPACK_fill_mvc(sent.data(), record->name, sent.size());
        size_t size = 0;
        void *package = NETPACK_package_ds(sent.data(), record->name, sent.size(), &size);
        ASSERT_NE(package, nullptr) << record->name;
        EXPECT_EQ(static_cast<char *>(package)[0], 1) << record->name;
        std::vector<char> received(record->total_size, '\0');
        NETPACK_unpack_ds(package, size, received.data(), received.size(), record->name);
        EXPECT_EQ(received, sent) << record->name;
        free(package);
    }
}

TEST(Definitions, MessageRecord) {
    expect_fields("NETDS_MESSAGE_OneMessage", 2056,
                  {{"contents", NETDSD_FT_STRING, 8, 2048, 1, "STRING"},
                   {"time_sent", NETDSD_FT_FTIME, 0, 1, 8, "FTIME"}});
}

TEST(Definitions, AbsorptionPhotometerRecords) {
    expect_fields("NET_AE33_Instant", 1000,
                  {{"S", NETDSD_FT_DOUBLE, 992, 1, 8, "double"},
                   {"in", NETDSD_FT_BIN, 8, 1, 492, "NET_AE33_Reading"},
                   {"ra", NETDSD_FT_BIN, 500, 1, 492, "NET_AE33_Reading"},
                   {"start_time", NETDSD_FT_FTIME, 0, 1, 8, "FTIME"}});
    expect_fields("NET_AE33_Reading", 492,
                  {{"X", NETDSD_FT_A_DOUBLE, 64, 7, 8, "double"},
                   {"Q1", NETDSD_FT_DOUBLE, 456, 1, 8, "double"},
                   {"flags", NETDSD_FT_USHORT, 488, 1, 2, "WORD"},
                   {"wavelengths", NETDSD_FT_A_DOUBLE, 8, 7, 8, "double"}});
    EXPECT_EQ(NETPACK_find_ds("NET_AE33_Reading")->count_fields, 14u);
}

TEST(Definitions, AbsorptionPhotometerFieldsAreInByteOrder) {
    const NETDSD_entry *entry = NETPACK_find_ds("NET_AE33_Instant");
    ASSERT_EQ(entry->count_fields, 4u);
    EXPECT_STREQ(entry->fields[0].name, "S");
    EXPECT_STREQ(entry->fields[1].name, "in");
    EXPECT_STREQ(entry->fields[2].name, "ra");
    EXPECT_STREQ(entry->fields[3].name, "start_time");
}

TEST(Definitions, AbsorptionPhotometerComments) {
    EXPECT_STREQ(field_of("NET_AE33_Instant", "S")->comment,
                 "Instrument time offset (sec) | S_${INST:A\\d+}");
    EXPECT_STREQ(field_of("NET_AE33_Instant", "in")->comment, "*instant");
    EXPECT_STREQ(field_of("NET_AE33_Instant", "ra")->comment, "");
    EXPECT_STREQ(field_of("NET_AE33_Reading", "X")->comment,
                 "Equivalent black carbon concentration (ug/m3) | "
                 "X${INDEX:1:2:3:4:5:6:7}c_${INST:A\\d+}");
    EXPECT_STREQ(field_of("NET_AE33_Reading", "Q1")->comment,
                 "Flow spot 1 (slpm) | Q1_${INST:A\\d+}");
    EXPECT_STREQ(field_of("NET_AE33_Reading", "wavelengths")->comment, "");
}

TEST(Definitions, AnalogueChannelRecords) {
    expect_fields("NET_IO_Real", 40,
                  {{"name", NETDSD_FT_STRING, 0, 32, 1, "STRING"},
                   {"val", NETDSD_FT_DOUBLE, 32, 1, 8, "double"}});
    expect_fields("NET_IO_MultiReal", 2572,
                  {{"chans", NETDSD_FT_BIN, 8, 64, 40, "NET_IO_Real"},
                   {"curtime", NETDSD_FT_FTIME, 0, 1, 8, "FTIME"},
                   {"n", NETDSD_FT_UINT, 2568, 1, 4, "unsigned int"}});
}

TEST(Definitions, DigitalChannelRecords) {
    expect_fields("NET_IO_DigitalInfo", 32, {{"name", NETDSD_FT_STRING, 0, 32, 1, "STRING"}});
    expect_fields("NET_IO_DigitalIn", 1028,
                  {{"info", NETDSD_FT_BIN, 0, 32, 32, "NET_IO_DigitalInfo"},
                   {"val", NETDSD_FT_UINT, 1024, 1, 4, "DWORD"}});
    expect_fields("NET_IO_DigitalOut", 1032,
                  {{"info", NETDSD_FT_BIN, 0, 32, 32, "NET_IO_DigitalInfo"},
                   {"mask", NETDSD_FT_UINT, 1028, 1, 4, "DWORD"},
                   {"val", NETDSD_FT_UINT, 1024, 1, 4, "DWORD"}});
}

TEST(Definitions, CutPointRecords) {
    expect_fields("NET_CUTPOINTS_Cutpoint", 4, {{"val", NETDSD_FT_INT, 0, 1, 4, "int"}});
    expect_fields("NET_CUTPOINTS_Status", 24,
                  {{"cp_cur", NETDSD_FT_BIN, 0, 1, 4, "NET_CUTPOINTS_Cutpoint"},
                   {"cp_next", NETDSD_FT_BIN, 12, 1, 4, "NET_CUTPOINTS_Cutpoint"},
                   {"time_cur", NETDSD_FT_FTIME, 4, 1, 8, "FTIME"},
                   {"time_next", NETDSD_FT_FTIME, 16, 1, 8, "FTIME"}});
}

TEST(Definitions, TestRecordsHaveAFieldOfEveryType) {
    std::set<int> types;
    for (const Member &member : members())
        if (strncmp(member.record->name, "NET_TEST_", 9) == 0)
            types.insert(member.field->ft);
    for (int type = NETDSD_FT_BOOL; type <= NETDSD_FT_BIN; type++)
        EXPECT_TRUE(types.count(type)) << type;
}

TEST(Definitions, HolderOfALockTravelsWithTheCommandsThatCountHolders) {
    for (const NETMSG_entry *message : messages()) {
        const std::string name = message->name;
        const bool counts_holders = ends_with(name, "MULTI") || ends_with(name, "MUTLI");
        if (!counts_holders && !ends_with(name, "OVERRIDE"))
            continue;
        EXPECT_STREQ(message->ds_tie, counts_holders ? "NET_IO_LockID" : nullptr) << name;
    }
}

// The generated catalogue: its order, and the rows that the library itself relies on. The numbers
// are those of the station computer and hold on every host.
#include "catalogue_int.h"
#include "libzeb2.h"

#include <cstring>
#include <gtest/gtest.h>
#include <regex>

namespace {

const NETDSD_entry *record_named(const std::string &name) {
    for (size_t i = 0; i < _ndsd_structures_count; i++)
        if (name == _ndsd_structures[i].name)
            return &_ndsd_structures[i];
    return nullptr;
}

const NETMSG_entry *message_named(const std::string &name) {
    for (size_t i = 0; i < _nmsg_list_count; i++)
        if (name == _nmsg_list[i].name)
            return &_nmsg_list[i];
    return nullptr;
}

struct FieldRow {
    const char *name;
    NETDSD_field_type ft;
    size_t offset;
    size_t count;
    size_t size;
    const char *type_name;
};

void expect_record(const char *name, size_t total_size, const std::vector<FieldRow> &rows) {
    const NETDSD_entry *entry = record_named(name);
    ASSERT_NE(entry, nullptr) << name;
    EXPECT_EQ(entry->total_size, total_size) << name;
    ASSERT_EQ(entry->count_fields, rows.size()) << name;
    for (size_t i = 0; i < rows.size(); i++) {
        const NETDSD_field &field = entry->fields[i];
        const std::string where = std::string(name) + "." + rows[i].name;
        EXPECT_STREQ(field.name, rows[i].name) << where;
        EXPECT_EQ(field.ft, rows[i].ft) << where;
        EXPECT_EQ(field.offset, rows[i].offset) << where;
        EXPECT_EQ(field.count, rows[i].count) << where;
        EXPECT_EQ(field.size, rows[i].size) << where;
        EXPECT_STREQ(field.type_name, rows[i].type_name) << where;
    }
}

void expect_message(const char *name, const char *meta, const char *record) {
    const NETMSG_entry *entry = message_named(name);
    ASSERT_NE(entry, nullptr) << name;
    EXPECT_STREQ(entry->meta_types, meta) << name;
    if (record)
        EXPECT_STREQ(entry->ds_tie, record) << name;
    else
        EXPECT_EQ(entry->ds_tie, nullptr) << name;
}

} // namespace

TEST(Catalogue, RecordsAreSortedByNameInByteOrder) {
    ASSERT_GT(_ndsd_structures_count, 1u);
    for (size_t i = 1; i < _ndsd_structures_count; i++)
        EXPECT_LT(strcmp(_ndsd_structures[i - 1].name, _ndsd_structures[i].name), 0)
            << _ndsd_structures[i].name;
}

TEST(Catalogue, FieldsAreSortedByNameInByteOrder) {
    for (size_t i = 0; i < _ndsd_structures_count; i++) {
        const NETDSD_entry &entry = _ndsd_structures[i];
        ASSERT_GT(entry.count_fields, 0u) << entry.name;
        for (size_t j = 1; j < entry.count_fields; j++)
            EXPECT_LT(strcmp(entry.fields[j - 1].name, entry.fields[j].name), 0)
                << entry.name << "." << entry.fields[j].name;
    }
}

TEST(Catalogue, FieldsLieWithinTheirRecordsAndHaveComments) {
    for (size_t i = 0; i < _ndsd_structures_count; i++) {
        const NETDSD_entry &entry = _ndsd_structures[i];
        for (size_t j = 0; j < entry.count_fields; j++) {
            const NETDSD_field &field = entry.fields[j];
            EXPECT_LE(field.offset + field.count * field.size, entry.total_size)
                << entry.name << "." << field.name;
            EXPECT_NE(field.comment, nullptr) << entry.name << "." << field.name;
        }
    }
}

TEST(Catalogue, NestedRecordsAreDescribedWithTheirSize) {
    for (size_t i = 0; i < _ndsd_structures_count; i++) {
        const NETDSD_entry &entry = _ndsd_structures[i];
        for (size_t j = 0; j < entry.count_fields; j++) {
            if (entry.fields[j].ft != NETDSD_FT_BIN)
                continue;
            const NETDSD_entry *nested = record_named(entry.fields[j].type_name);
            ASSERT_NE(nested, nullptr) << entry.name << "." << entry.fields[j].name;
            EXPECT_EQ(nested->total_size, entry.fields[j].size);
        }
    }
}

TEST(Catalogue, MessagesAreNumberedInTheByteOrderOfTheirNames) {
    ASSERT_GT(_nmsg_list_count, 1u);
    for (size_t i = 0; i < _nmsg_list_count; i++)
        EXPECT_EQ(static_cast<size_t>(_nmsg_list[i].msg), i) << _nmsg_list[i].name;
    for (size_t i = 1; i < _nmsg_list_count; i++)
        EXPECT_LT(strcmp(_nmsg_list[i - 1].name, _nmsg_list[i].name), 0) << _nmsg_list[i].name;
}

TEST(Catalogue, MessagesCarryDescribedRecords) {
    for (size_t i = 0; i < _nmsg_list_count; i++) {
        const char *record = _nmsg_list[i].ds_tie;
        EXPECT_TRUE(!record || record_named(record)) << _nmsg_list[i].name;
    }
}

TEST(Catalogue, PublicTablesHaveTheContentsOfThePrivateOnes) {
    ASSERT_EQ(_ndsd_structures_count_ext, _ndsd_structures_count);
    ASSERT_NE(&_ndsd_structures_ext[0], &_ndsd_structures[0]);
    EXPECT_EQ(memcmp(_ndsd_structures_ext, _ndsd_structures,
                     _ndsd_structures_count * sizeof(NETDSD_entry)),
              0);
    ASSERT_EQ(_nmsg_list_count_ext, _nmsg_list_count);
    for (size_t i = 0; i < _nmsg_list_count; i++) {
        EXPECT_EQ(_nmsg_list_ext[i].msg, _nmsg_list[i].msg);
        EXPECT_STREQ(_nmsg_list_ext[i].name, _nmsg_list[i].name);
        EXPECT_STREQ(_nmsg_list_ext[i].meta_types, _nmsg_list[i].meta_types);
        EXPECT_STREQ(_nmsg_list_ext[i].ds_tie, _nmsg_list[i].ds_tie);
    }
}

TEST(Catalogue, RevisionIsABlankAndAUtcTime) {
    EXPECT_TRUE(std::regex_match(g_libzeb2_revision,
                                 std::regex(" \\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ")))
        << g_libzeb2_revision;
}

TEST(Catalogue, ServerHeartbeatAndHandshakeRecords) {
    expect_record("NET_SERVER_Heartbeat", 4, {{"hb_idx", NETDSD_FT_UINT, 0, 1, 4, "unsigned int"}});
    expect_record("NET_SERVER_ServerHandshake", 4,
                  {{"hb_idx", NETDSD_FT_UINT, 0, 1, 4, "unsigned int"}});
    expect_record("NET_SERVER_ClientHandshake", 32,
                  {{"name", NETDSD_FT_STRING, 0, 32, 1, "STRING"}});
}

TEST(Catalogue, ServerInstrumentRecords) {
    expect_record("NET_SERVER_InstrumentTag", 32, {{"tag", NETDSD_FT_STRING, 0, 32, 1, "STRING"}});
    expect_record("NET_SERVER_InstrumentInfo", 321,
                  {{"display_name", NETDSD_FT_STRING, 32, 32, 1, "STRING"},
                   {"id_ch", NETDSD_FT_CHAR, 64, 1, 1, "char"},
                   {"tags", NETDSD_FT_BIN, 65, 8, 32, "NET_SERVER_InstrumentTag"},
                   {"type", NETDSD_FT_STRING, 0, 32, 1, "STRING"}});
}

TEST(Catalogue, ServerFilterRecords) {
    expect_record("NET_SERVER_FilterAdd", 620,
                  {{"dest_match", NETDSD_FT_STRING, 33, 32, 1, "STRING"},
                   {"inst_type_match", NETDSD_FT_A_CHAR, 72, 32, 1, "char"},
                   {"metatype_match", NETDSD_FT_A_CHAR, 360, 256, 1, "char"},
                   {"src_match", NETDSD_FT_STRING, 1, 32, 1, "STRING"},
                   {"tag_match", NETDSD_FT_A_CHAR, 104, 256, 1, "char"},
                   {"target", NETDSD_FT_BOOL, 0, 1, 1, "BOOL"},
                   {"type_match", NETDSD_FT_INT, 68, 1, 4, "int"},
                   {"uid", NETDSD_FT_UINT, 616, 1, 4, "DWORD"}});
    expect_record(
        "NET_SERVER_FilterDelete", 8,
        {{"all", NETDSD_FT_BOOL, 0, 1, 1, "BOOL"}, {"uid", NETDSD_FT_UINT, 4, 1, 4, "DWORD"}});
}

TEST(Catalogue, MonitorMessageRecord) {
    expect_record("NET_LOG_MonitorMessage", 8204,
                  {{"flags", NETDSD_FT_BYTE, 0, 1, 1, "BYTE"},
                   {"msg", NETDSD_FT_STRING, 12, 8192, 1, "STRING"},
                   {"msgtime", NETDSD_FT_FTIME, 4, 1, 8, "FTIME"}});
}

TEST(Catalogue, AveragingControlRecords) {
    expect_record("NET_LOG_AVG_Bypass", 12,
                  {{"bypassed", NETDSD_FT_BOOL, 0, 1, 1, "BOOL"},
                   {"flush_until", NETDSD_FT_FTIME, 4, 1, 8, "FTIME"}});
    expect_record("NET_LOG_AVG_Contamination", 12,
                  {{"contaminated", NETDSD_FT_BOOL, 0, 1, 1, "BOOL"},
                   {"flush_until", NETDSD_FT_FTIME, 4, 1, 8, "FTIME"}});
    expect_record("NET_LOG_AVG_ContamFlags", 2,
                  {{"flags", NETDSD_FT_USHORT, 0, 1, 2, "unsigned short"}});
    expect_record("NET_LOG_AVG_Flush", 8, {{"flush_until", NETDSD_FT_FTIME, 0, 1, 8, "FTIME"}});
}

TEST(Catalogue, LogControlRecords) {
    expect_record("NET_LOG_Info", 1, {{"enabled", NETDSD_FT_BOOL, 0, 1, 1, "BOOL"}});
    expect_record("NET_LOG_SetState", 1, {{"enable", NETDSD_FT_BOOL, 0, 1, 1, "BOOL"}});
    expect_record("NET_LOG_MonitorSnapshot", 8, {{"montime", NETDSD_FT_FTIME, 0, 1, 8, "FTIME"}});
    expect_record("NET_LOG_NewAverage", 8, {{"starttime", NETDSD_FT_FTIME, 0, 1, 8, "FTIME"}});
    expect_record("NET_LOG_SetInterval", 8, {{"interval", NETDSD_FT_DOUBLE, 0, 1, 8, "double"}});
    expect_record("NET_LOG_SwitchFiles", 4, {{"switchtime", NETDSD_FT_TIME, 0, 1, 4, "time_t"}});
}

TEST(Catalogue, TextMessageRecord) {
    expect_record("NETDS_MESSAGE_OneMessage", 2056,
                  {{"contents", NETDSD_FT_STRING, 8, 2048, 1, "STRING"},
                   {"time_sent", NETDSD_FT_FTIME, 0, 1, 8, "FTIME"}});
    expect_message("MSG_MESSAGING_MESSAGE", "messaging", "NETDS_MESSAGE_OneMessage");
}

TEST(Catalogue, InstrumentRecordWithNestingAndComments) {
    expect_record("NET_AE33_Instant", 1000,
                  {{"S", NETDSD_FT_DOUBLE, 992, 1, 8, "double"},
                   {"in", NETDSD_FT_BIN, 8, 1, 492, "NET_AE33_Reading"},
                   {"ra", NETDSD_FT_BIN, 500, 1, 492, "NET_AE33_Reading"},
                   {"start_time", NETDSD_FT_FTIME, 0, 1, 8, "FTIME"}});
    const NETDSD_entry *instant = record_named("NET_AE33_Instant");
    ASSERT_NE(instant, nullptr);
    EXPECT_STREQ(instant->fields[0].comment, "Instrument time offset (sec) | S_${INST:A\\d+}");
    EXPECT_STREQ(instant->fields[1].comment, "*instant");
}

// The numbers are compiled into every program of the station: a change of the catalogue's size is a
// change of all of them.
TEST(Catalogue, HasEveryRecordAndMessageOfTheStation) {
    EXPECT_EQ(_ndsd_structures_count, 254u);
    EXPECT_STREQ(_ndsd_structures[0].name, "NETDS_MESSAGE_OneMessage");
    EXPECT_STREQ(_ndsd_structures[1].name, "NET_AE33_Instant");
    EXPECT_STREQ(_ndsd_structures[_ndsd_structures_count - 1].name, "NET_ZENO_Status");
    EXPECT_EQ(_nmsg_list_count, 294u);
    EXPECT_EQ(MSG_AE33_AVERAGE, 0);
}

TEST(Catalogue, MessagesOfTheLibraryHaveTheirNumbers) {
    EXPECT_EQ(MSG_LOG_AVG_BYPASS, 155);
    EXPECT_EQ(MSG_LOG_MONITOR, 161);
    EXPECT_EQ(MSG_LOG_SWITCHFILES, 169);
    EXPECT_EQ(MSG_MESSAGING_MESSAGE, 179);
    EXPECT_EQ(MSG_NOTIFY_CLIENT_CONNECT, 210);
    EXPECT_EQ(MSG_NOTIFY_CLIENT_TERMINATE, 211);
    EXPECT_EQ(MSG_SERVER_CLIENTHANDSHAKE, 251);
    EXPECT_EQ(MSG_SERVER_HEARTBEAT, 252);
    EXPECT_EQ(MSG_SERVER_INSTRUMENTINFO, 253);
    EXPECT_EQ(MSG_SERVER_SERVERHANDSHAKE, 254);
    EXPECT_EQ(MSG_SERVER_TERMINATE, 255);
    EXPECT_EQ(MSG_TEST_ONE, 259);
    EXPECT_EQ(MSG_TEST_THREE, 260);
    EXPECT_EQ(MSG_TEST_TWO, 261);
    EXPECT_EQ(NET_SERVER_ADDFILTER, 292);
    EXPECT_EQ(NET_SERVER_DELETFILTER, 293);
}

TEST(Catalogue, FortyFourMessagesCarryNoRecord) {
    size_t bare = 0;
    for (size_t i = 0; i < _nmsg_list_count; i++)
        bare += _nmsg_list[i].ds_tie == nullptr;
    EXPECT_EQ(bare, 44u);
}

TEST(Catalogue, TestMessages) {
    expect_message("MSG_TEST_ONE", "*", "NET_TEST_MsgTest1");
    expect_message("MSG_TEST_TWO", "*", "NET_TEST_MsgTest2");
    expect_message("MSG_TEST_THREE", "*", nullptr);
}

TEST(Catalogue, AethalometerReadingRecord) {
    const NETDSD_entry *entry = record_named("NET_AE33_Reading");
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->total_size, 492u);
    EXPECT_EQ(entry->count_fields, 14u);
    for (size_t i = 0; i < entry->count_fields; i++) {
        const NETDSD_field &field = entry->fields[i];
        const std::string name = field.name;
        if (name == "X") {
            EXPECT_EQ(field.ft, NETDSD_FT_A_DOUBLE);
            EXPECT_EQ(field.offset, 64u);
            EXPECT_EQ(field.count, 7u);
            EXPECT_STREQ(field.comment, "Equivalent black carbon concentration (ug/m3) | "
                                        "X${INDEX:1:2:3:4:5:6:7}c_${INST:A\\d+}");
        } else if (name == "Q1") {
            EXPECT_EQ(field.ft, NETDSD_FT_DOUBLE);
            EXPECT_EQ(field.offset, 456u);
            EXPECT_STREQ(field.comment, "Flow spot 1 (slpm) | Q1_${INST:A\\d+}");
        } else if (name == "flags") {
            EXPECT_EQ(field.ft, NETDSD_FT_USHORT);
            EXPECT_EQ(field.offset, 488u);
            EXPECT_STREQ(field.type_name, "WORD");
        } else if (name == "wavelengths") {
            EXPECT_EQ(field.ft, NETDSD_FT_A_DOUBLE);
            EXPECT_EQ(field.offset, 8u);
            EXPECT_EQ(field.count, 7u);
            EXPECT_STREQ(field.comment, "");
        }
    }
}

TEST(Catalogue, ServerMessages) {
    expect_message("MSG_NOTIFY_CLIENT_CONNECT", "*", nullptr);
    expect_message("MSG_NOTIFY_CLIENT_TERMINATE", "*", nullptr);
    expect_message("MSG_SERVER_CLIENTHANDSHAKE", "*", "NET_SERVER_ClientHandshake");
    expect_message("MSG_SERVER_HEARTBEAT", "*", "NET_SERVER_Heartbeat");
    expect_message("MSG_SERVER_INSTRUMENTINFO", "*", "NET_SERVER_InstrumentInfo");
    expect_message("MSG_SERVER_SERVERHANDSHAKE", "*", "NET_SERVER_ServerHandshake");
    expect_message("MSG_SERVER_TERMINATE", "*", nullptr);
    expect_message("NET_SERVER_ADDFILTER", "*", "NET_SERVER_FilterAdd");
    expect_message("NET_SERVER_DELETFILTER", "*", "NET_SERVER_FilterDelete");
}

TEST(Catalogue, LogMessages) {
    expect_message("MSG_LOG_AVG_BYPASS", "log", "NET_LOG_AVG_Bypass");
    expect_message("MSG_LOG_AVG_CONTAMINATION", "log", "NET_LOG_AVG_Contamination");
    expect_message("MSG_LOG_AVG_CONTAM_FLAGS", "log", "NET_LOG_AVG_ContamFlags");
    expect_message("MSG_LOG_AVG_FLUSH", "log", "NET_LOG_AVG_Flush");
    expect_message("MSG_LOG_FLUSH", "log", nullptr);
    expect_message("MSG_LOG_INFO", "log", "NET_LOG_Info");
    expect_message("MSG_LOG_MONITOR", "monitor", "NET_LOG_MonitorMessage");
    expect_message("MSG_LOG_MONITOR_RECORD", "log", "NET_LOG_MonitorSnapshot");
    expect_message("MSG_LOG_NEW_AVERAGE", "log", "NET_LOG_NewAverage");
    for (const char *name : {"MSG_LOG_SET_INTERVAL_AVG", "MSG_LOG_SET_INTERVAL_FLS",
                             "MSG_LOG_SET_INTERVAL_MON", "MSG_LOG_SET_INTERVAL_ROT"})
        expect_message(name, "log", "NET_LOG_SetInterval");
    expect_message("MSG_LOG_SET_STATE", "log", "NET_LOG_SetState");
    expect_message("MSG_LOG_SWITCHFILES", "log", "NET_LOG_SwitchFiles");
}

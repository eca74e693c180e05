#include "record_json.h"

#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <vector>

#include <zeb2/records.h>

using namespace zebctl;

namespace {

// Fills every field of a record with pseudo-random contents, padding left zero.
void fill(const NETDSD_entry &description, char *record, std::mt19937 &random) {
    for (size_t i = 0; i < description.count_fields; ++i) {
        const NETDSD_field &field = description.fields[i];
        char *at = record + field.offset;
        if (field.ft == NETDSD_FT_BIN) {
            for (size_t k = 0; k < field.count; ++k)
                fill(*NETPACK_find_ds(field.type_name), at + k * field.size, random);
        } else if (field.ft == NETDSD_FT_STRING) {
            for (size_t k = 0; k < random() % field.count; ++k)
                at[k] = static_cast<char>(1 + random() % 255);
        } else if (field.ft == NETDSD_FT_BOOL || field.ft == NETDSD_FT_A_BOOL) {
            for (size_t k = 0; k < field.count; ++k)
                at[k] = static_cast<char>(random() % 2);
        } else if (std::string(g_netpack_field_names[field.ft]) == "FLOAT" ||
                   std::string(g_netpack_field_names[field.ft]) == "FTIME") {
            for (size_t k = 0; k < field.count; ++k) {
                const double value = static_cast<double>(random()) / 1024;
                const float single = static_cast<float>(value);
                if (field.size == sizeof value)
                    memcpy(at + k * sizeof value, &value, sizeof value);
                else
                    memcpy(at + k * sizeof single, &single, sizeof single);
            }
        } else {
            for (size_t k = 0; k < field.count * field.size; ++k)
                at[k] = static_cast<char>(random());
        }
    }
}

template <typename Record> const NETDSD_entry &description_of(const char *name, const Record &) {
    return *NETPACK_find_ds(name);
}

} // namespace

TEST(RecordJson, EveryRecordOfTheCatalogueComesBackFromItsText) {
    std::mt19937 random(7);
    for (size_t i = 0; i < _ndsd_structures_count_ext; ++i) {
        const NETDSD_entry &description = _ndsd_structures_ext[i];
        std::vector<char> record(description.total_size, 0), copy(description.total_size, 0);
        fill(description, record.data(), random);
        const std::string text = to_json(description, record.data()).dump();
        std::string error;
        ASSERT_TRUE(from_json(description, copy.data(), Json::parse(text), error)) << error;
        EXPECT_EQ(record, copy) << description.name << " " << text.substr(0, 500);
    }
}

TEST(RecordJson, MissingValuesAreNullAndComeBackMissing) {
    NET_GPS_Fixinfo record, copy = {};
    NETPACK_fill_mvc(&record, "NET_GPS_Fixinfo", sizeof record);
    const NETDSD_entry &description = description_of("NET_GPS_Fixinfo", record);
    const Json json = to_json(description, &record);
    EXPECT_TRUE(json["lat"].is_null());
    EXPECT_TRUE(json["fix_time"].is_null());
    EXPECT_TRUE(json["sats_used"].is_null());
    std::string error;
    ASSERT_TRUE(from_json(description, &copy, json, error)) << error;
    EXPECT_EQ(memcmp(&record, &copy, sizeof record), 0);
}

TEST(RecordJson, CharactersAreTexts) {
    NET_SERVER_InstrumentInfo record = {};
    record.id_ch = 'G';
    const NETDSD_entry &description = description_of("NET_SERVER_InstrumentInfo", record);
    EXPECT_EQ(to_json(description, &record)["id_ch"], "G");
    NET_SERVER_FilterAdd filter = {};
    memcpy(filter.tag_match, "pos*", 4);
    EXPECT_EQ(to_json(description_of("NET_SERVER_FilterAdd", filter), &filter)["tag_match"],
              "pos*");
}

TEST(RecordJson, AFieldIsSetByItsPath) {
    NET_SERVER_InstrumentInfo record = {};
    const NETDSD_entry &description = description_of("NET_SERVER_InstrumentInfo", record);
    std::string error;
    EXPECT_TRUE(set_field(description, &record, "tags.7.tag=12", error)) << error;
    EXPECT_STREQ(record.tags[7].tag, "12") << "a text of digits is a text";
    EXPECT_TRUE(set_field(description, &record, "display_name=a=b", error)) << error;
    EXPECT_STREQ(record.display_name, "a=b");
    EXPECT_TRUE(set_field(description, &record, "id_ch=7", error)) << error;
    EXPECT_EQ(record.id_ch, '7');
    NET_AE33_Reading reading = {};
    EXPECT_TRUE(set_field(*NETPACK_find_ds("NET_AE33_Reading"), &reading, "X.6=1.5", error))
        << error;
    EXPECT_EQ(reading.X[6], 1.5);
}

TEST(RecordJson, RefusalsNameTheFieldAndTheReason) {
    NET_SERVER_InstrumentInfo record = {};
    const NETDSD_entry &description = description_of("NET_SERVER_InstrumentInfo", record);
    const std::pair<const char *, const char *> refused[] = {
        {"nothing", "\"nothing\" is not of the form name=value"},
        {"tags.8.tag=x", "tags has the elements 0 to 7, not \"8\""},
        {"type.x=1", "type has nothing below it"},
        {"id_ch=ab", "id_ch: wants one character, not \"ab\""},
        {"type=12345678901234567890123456789012", "type: holds at most 31 characters"}};
    for (const auto &[assignment, reason] : refused) {
        std::string error;
        EXPECT_FALSE(set_field(description, &record, assignment, error));
        EXPECT_EQ(error, reason);
    }
}

TEST(RecordJson, NumbersOutOfRangeAreRefused) {
    NET_LOG_AVG_ContamFlags record = {};
    const NETDSD_entry &description = description_of("NET_LOG_AVG_ContamFlags", record);
    std::string error;
    EXPECT_TRUE(set_field(description, &record, "flags=65535", error));
    EXPECT_EQ(record.flags, 65535);
    for (const char *assignment :
         {"flags=65536", "flags=-1", "flags=1.5", "flags=x", "flags=99999999999999999999"})
        EXPECT_FALSE(set_field(description, &record, assignment, error)) << assignment;
}

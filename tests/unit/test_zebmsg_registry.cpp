#include "definitions/log.h"
#include "scripted_server.h"
#include "support.h"
#include "zebmsg_int.h"

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace zeb::test;
using testing::HasSubstr;

namespace {

NET_SERVER_InstrumentInfo info_of(const char *type, std::initializer_list<const char *> tags = {}) {
    NET_SERVER_InstrumentInfo info = {};
    strncpy(info.type, type, sizeof info.type - 1);
    int i = 0;
    for (const char *tag : tags)
        strncpy(info.tags[i++].tag, tag, sizeof info.tags[0].tag);
    return info;
}

// ---- Announcing ----

class ZebmsgTags : public testing::Test {
  protected:
    void TearDown() override {
        CONF_free(root);
        CONF_free(local);
    }
    void read(const char *value) {
        CONF_set(local, "Tags", value);
        ZEBMSG_do_tags(&ii, root, local);
    }
    CONF_node *root = CONF_alloc();
    CONF_node *local = CONF_alloc();
    NET_SERVER_InstrumentInfo ii = {};
};

TEST_F(ZebmsgTags, AreReadWithoutTheBlanksAroundThem) {
    read("  neph ;wet leg;\tpm10  ");
    EXPECT_STREQ(ii.tags[0].tag, "neph");
    EXPECT_STREQ(ii.tags[1].tag, "wet leg");
    EXPECT_STREQ(ii.tags[2].tag, "pm10");
    EXPECT_STREQ(ii.tags[3].tag, "");
}

TEST_F(ZebmsgTags, BetweenTwoSeparatorsIsAnEmptyTagAndTheListGoesOn) {
    read("a;;b;");
    EXPECT_STREQ(ii.tags[0].tag, "a");
    EXPECT_STREQ(ii.tags[1].tag, "");
    EXPECT_STREQ(ii.tags[2].tag, "b");
    EXPECT_STREQ(ii.tags[3].tag, "");
}

TEST_F(ZebmsgTags, BeyondTheEighthAreIgnored) {
    read("1;2;3;4;5;6;7;8;9");
    EXPECT_STREQ(ii.tags[7].tag, "8");
}

TEST_F(ZebmsgTags, BeyondTheLastFieldKeepWhatTheyHold) {
    strcpy(ii.tags[1].tag, "kept");
    read("new");
    EXPECT_STREQ(ii.tags[0].tag, "new");
    EXPECT_STREQ(ii.tags[1].tag, "kept");
}

TEST_F(ZebmsgTags, AreCutTo31Characters) {
    const std::string tag(40, 't');
    read(("   " + tag + ";b").c_str());
    EXPECT_EQ(ii.tags[0].tag, tag.substr(0, 31));
    EXPECT_STREQ(ii.tags[1].tag, "b");
}

TEST_F(ZebmsgTags, AreNotLookedUpInTheWholeTree) {
    CONF_set(root, "Tags", "elsewhere");
    ZEBMSG_do_tags(&ii, root, local);
    ZEBMSG_do_tags(&ii, root, nullptr);
    EXPECT_STREQ(ii.tags[0].tag, "");
}

TEST(ZebmsgRegistry, RegisterInitZeroesTheRecord) {
    NET_SERVER_InstrumentInfo ii, zero;
    memset(&ii, 0xFF, sizeof ii);
    memset(&zero, 0, sizeof zero);
    ZEBMSG_register_init(&ii);
    EXPECT_EQ(memcmp(&ii, &zero, sizeof ii), 0);
    EXPECT_EQ(sizeof ii, 321U);
}

// ---- The registry ----

class ZebmsgKnown : public testing::Test {
  protected:
    void SetUp() override { lnk.fh = lnk.clear_fh = -1; }
    void TearDown() override { ZEBMSG_multi_destroy(&lnk); }
    void record(const char *name, const NET_SERVER_InstrumentInfo &info) {
        zeb::record_instrument(&lnk, name, &info);
    }
    const ZEBMSG_msgqueue_data *queued() {
        return static_cast<const ZEBMSG_msgqueue_data *>(lnk.tx_queue.tail->data);
    }
    StderrCapture err;
    ZEBMSG_link lnk = {};
};

TEST_F(ZebmsgKnown, RegisteringQueuesTheRecordForEveryClientPresentAndToCome) {
    const NET_SERVER_InstrumentInfo info = info_of("cpc", {"tag"});
    ZEBMSG_register_instrument(&lnk, &info);
    EXPECT_EQ(queued()->msg.type, MSG_SERVER_INSTRUMENTINFO);
    EXPECT_EQ(queued()->msg.flags, 3U);
    EXPECT_EQ(queued()->msg.dest_name, nullptr);
    EXPECT_TRUE(queued()->internal);
    EXPECT_STREQ(queued()->msg.ds_name, "NET_SERVER_InstrumentInfo");
    ASSERT_EQ(queued()->msg.sz_ds, sizeof info);
    EXPECT_EQ(memcmp(queued()->msg.pds, &info, sizeof info), 0);
}

TEST_F(ZebmsgKnown, RegisteringNothingQueuesAMessageWithoutARecord) {
    ZEBMSG_register_instrument(&lnk, nullptr);
    EXPECT_EQ(queued()->msg.type, MSG_SERVER_INSTRUMENTINFO);
    EXPECT_EQ(queued()->msg.pds, nullptr);
    EXPECT_EQ(queued()->msg.ds_name, nullptr);
}

TEST_F(ZebmsgKnown, AnInstrumentIsFoundByItsProgramsName) {
    record("cpc1", info_of("cpc"));
    NET_SERVER_InstrumentInfo found = {};
    EXPECT_TRUE(ZEBMSG_instrument_info_by_name(&lnk, "cpc1", &found));
    EXPECT_STREQ(found.type, "cpc");
    EXPECT_TRUE(ZEBMSG_instrument_info_by_name(&lnk, "cpc1", nullptr));
    EXPECT_FALSE(ZEBMSG_instrument_info_by_name(&lnk, "CPC1", nullptr));
    EXPECT_FALSE(ZEBMSG_instrument_info_by_name(&lnk, "cpc", nullptr));
    EXPECT_FALSE(ZEBMSG_instrument_info_by_name(&lnk, "cpc11", nullptr));
}

TEST_F(ZebmsgKnown, AnInstrumentIsFoundByEachOfItsTags) {
    record("cpc1", info_of("cpc", {"1", "2", "3", "4", "5", "6", "7", "eight"}));
    NET_SERVER_InstrumentInfo found = {};
    char name[32] = "";
    EXPECT_TRUE(ZEBMSG_instrument_info_by_tag(&lnk, "eight", &found, name));
    EXPECT_STREQ(found.type, "cpc");
    EXPECT_STREQ(name, "cpc1");
    EXPECT_TRUE(ZEBMSG_instrument_info_by_tag(&lnk, "1", nullptr, nullptr));
    EXPECT_FALSE(ZEBMSG_instrument_info_by_tag(&lnk, "Eight", nullptr, nullptr));
    EXPECT_EQ(ZEBMSG_name_for_tag(&lnk, "nine"), nullptr);
}

TEST_F(ZebmsgKnown, OfTwoDaemonsWithTheSameTagTheOneAnnouncedFirstIsNamed) {
    record("zz", info_of("cpc", {"other", "inlet"}));
    record("aa", info_of("neph", {"inlet"}));
    EXPECT_STREQ(ZEBMSG_name_for_tag(&lnk, "inlet"), "zz");
}

TEST_F(ZebmsgKnown, ASecondAnnouncementReplacesTheRecordInPlace) {
    record("one", info_of("cpc", {"inlet"}));
    record("two", info_of("neph", {"inlet"}));
    record("one", info_of("aps", {"inlet"}));
    EXPECT_EQ(lnk.known_insts.count, 2);
    NET_SERVER_InstrumentInfo found = {};
    char name[32] = "";
    EXPECT_TRUE(ZEBMSG_instrument_info_by_tag(&lnk, "inlet", &found, name));
    EXPECT_STREQ(name, "one");
    EXPECT_STREQ(found.type, "aps");
}

TEST_F(ZebmsgKnown, NameAndTagMustBelongTogether) {
    record("one", info_of("cpc", {"wet"}));
    record("two", info_of("cpc", {"dry"}));
    EXPECT_TRUE(ZEBMSG_filter_name_and_tag(&lnk, "one", "wet"));
    EXPECT_FALSE(ZEBMSG_filter_name_and_tag(&lnk, "one", "dry"));
    EXPECT_FALSE(ZEBMSG_filter_name_and_tag(&lnk, "three", "wet"));
}

TEST_F(ZebmsgKnown, AFullTagFieldWithoutATerminatorIsComparedWithinItself) {
    NET_SERVER_InstrumentInfo info = {};
    memset(info.tags, 'x', sizeof info.tags);
    record("one", info);
    EXPECT_TRUE(
        ZEBMSG_instrument_info_by_tag(&lnk, std::string(32, 'x').c_str(), nullptr, nullptr));
    EXPECT_FALSE(
        ZEBMSG_instrument_info_by_tag(&lnk, std::string(31, 'x').c_str(), nullptr, nullptr));
    EXPECT_TRUE(ZEBMSG_filter_name_and_tag(&lnk, "one", info.tags[7].tag));
}

TEST_F(ZebmsgKnown, LongNamesAreCutAndStillRecognised) {
    const std::string name(100, 'n');
    record(name.c_str(), info_of("one"));
    record(name.c_str(), info_of("two"));
    EXPECT_EQ(lnk.known_insts.count, 1);
    EXPECT_TRUE(ZEBMSG_instrument_info_by_name(&lnk, name.substr(0, 31).c_str(), nullptr));
    zeb::forget_instrument(&lnk, name.c_str());
    EXPECT_EQ(lnk.known_insts.count, 0);
}

TEST_F(ZebmsgKnown, AFloodOfNamesIsBoundedAndReportedOnce) {
    for (int i = 0; i < zeb::k_known_limit + 10; ++i)
        record(("inst" + std::to_string(i)).c_str(), info_of("cpc"));
    EXPECT_EQ(lnk.known_insts.count, zeb::k_known_limit);
    const std::string text = err.text();
    const size_t first = text.find("More than 4096 instruments are announced, \"inst4096\"");
    ASSERT_NE(first, std::string::npos);
    EXPECT_EQ(text.find("More than", first + 1), std::string::npos);
    record("inst7", info_of("neph"));
    NET_SERVER_InstrumentInfo found = {};
    EXPECT_TRUE(ZEBMSG_instrument_info_by_name(&lnk, "inst7", &found));
    EXPECT_STREQ(found.type, "neph");
}

TEST_F(ZebmsgKnown, NullNamesAndTagsAreReportedAndFindNothing) {
    EXPECT_FALSE(ZEBMSG_instrument_info_by_name(&lnk, nullptr, nullptr));
    EXPECT_FALSE(ZEBMSG_instrument_info_by_tag(&lnk, nullptr, nullptr, nullptr));
    EXPECT_FALSE(ZEBMSG_filter_name_and_tag(&lnk, nullptr, "a"));
    EXPECT_FALSE(ZEBMSG_filter_name_and_tag(&lnk, "a", nullptr));
    EXPECT_EQ(ZEBMSG_name_for_tag(&lnk, nullptr), nullptr);
    EXPECT_THAT(err.text(), HasSubstr("assertion failed (zebmsg_registry.cpp:"));
}

// ---- From the wire ----

TEST(ZebmsgRegistry, FillsFromTheServersRelaysAndForgetsWhoLeaves) {
    StderrCapture err;
    ScopedEnv no_server("ZEB2SERVER", nullptr);
    ScriptedServer server;
    ZEBMSG_link lnk = {};
    ZEBMSG_connect_params cp = {"neph1", nullptr};
    ASSERT_TRUE(ZEBMSG_multi_connect(&cp, &lnk));
    ASSERT_TRUE(server.accept());
    HookLoop loop(&lnk);
    server.announce("cpc1", info_of("cpc", {"inlet"}));
    server.announce("", info_of("nobody", {"inlet"}));
    server.announce("cpc2", info_of("cpc", {"inlet"}));
    ASSERT_TRUE(loop.run_until([&] { return lnk.rx_queue.count == 3; }));
    EXPECT_EQ(lnk.known_insts.count, 2);
    EXPECT_EQ(lnk.rx_lib_queue.count, 3);
    EXPECT_STREQ(ZEBMSG_name_for_tag(&lnk, "inlet"), "cpc1");
    server.send(MSG_NOTIFY_CLIENT_TERMINATE, "");
    server.send(MSG_NOTIFY_CLIENT_TERMINATE, "cpc1");
    ASSERT_TRUE(loop.run_until([&] { return lnk.rx_queue.count == 5; }));
    EXPECT_STREQ(ZEBMSG_name_for_tag(&lnk, "inlet"), "cpc2");
    EXPECT_EQ(lnk.known_insts.count, 1);
    ZEBMSG_multi_destroy(&lnk);
}

TEST(ZebmsgRegistry, AnAnnouncementWithoutDataIsDeliveredAndNotRecorded) {
    StderrCapture err;
    ScopedEnv no_server("ZEB2SERVER", nullptr);
    ScriptedServer server;
    ZEBMSG_link lnk = {};
    ZEBMSG_connect_params cp = {"neph1", nullptr};
    ASSERT_TRUE(ZEBMSG_multi_connect(&cp, &lnk));
    ASSERT_TRUE(server.accept());
    HookLoop loop(&lnk);
    server.send_bytes(wire_frame(
        wire_message("MSG_SERVER_INSTRUMENTINFO", 3, "", "cpc1", "NET_SERVER_InstrumentInfo")));
    ASSERT_TRUE(loop.run_until([&] { return lnk.rx_queue.count == 1; }));
    EXPECT_EQ(lnk.known_insts.count, 0);
    ZEBMSG_multi_destroy(&lnk);
}

// ---- The monitor ----

TEST_F(ZebmsgKnown, AMonitorMessageIsFormattedAndPublished) {
    ZEBMSG_writemonitor(&lnk, 5, 1400000000.25, "flow %d of %s", 12, "inlet");
    EXPECT_EQ(queued()->msg.type, MSG_LOG_MONITOR);
    EXPECT_EQ(queued()->msg.flags, 1U);
    EXPECT_EQ(queued()->msg.dest_name, nullptr);
    EXPECT_TRUE(queued()->internal);
    EXPECT_STREQ(queued()->msg.ds_name, "NET_LOG_MonitorMessage");
    NET_LOG_MonitorMessage record;
    ASSERT_EQ(queued()->msg.sz_ds, sizeof record);
    memcpy(&record, queued()->msg.pds, sizeof record);
    EXPECT_EQ(record.flags, 5);
    const double msgtime = record.msgtime;
    EXPECT_EQ(msgtime, 1400000000.25);
    EXPECT_STREQ(record.msg, "flow 12 of inlet");
}

TEST_F(ZebmsgKnown, AMonitorMessageIsCutTo8191Characters) {
    const std::string text(9000, 'm');
    ZEBMSG_writemonitor(&lnk, 0, 0, "%s", text.c_str());
    NET_LOG_MonitorMessage record;
    memcpy(&record, queued()->msg.pds, sizeof record);
    EXPECT_EQ(record.msg, text.substr(0, 8191));
}

} // namespace

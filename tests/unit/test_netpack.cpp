#include "netpack_catalogue.h"

#include <gtest/gtest.h>
#include <thread>

using namespace zeb::test;
using namespace zeb::netpack;

TEST(Lookup, MessageByTypeIsRowOfThatNumber) {
    const NETMSG_entry *last = NETPACK_find_msg_by_type(static_cast<NETMSG_type>(293));
    ASSERT_NE(last, nullptr);
    EXPECT_STREQ(last->name, "NET_SERVER_DELETFILTER");
    EXPECT_STREQ(NETPACK_find_msg_by_type(MSG_AE33_AVERAGE)->name, "MSG_AE33_AVERAGE");
}

TEST(Lookup, MessageTypeBeyondTheCatalogueIsNull) {
    EXPECT_EQ(NETPACK_find_msg_by_type(static_cast<NETMSG_type>(294)), nullptr);
    EXPECT_EQ(NETPACK_find_msg_by_type(static_cast<NETMSG_type>(511)), nullptr);
    EXPECT_EQ(NETPACK_find_msg_by_type_lib(static_cast<NETMSG_type>(294)), nullptr);
    EXPECT_EQ(NETPACK_find_msg_by_type(static_cast<NETMSG_type>(INT32_MAX)), nullptr);
    EXPECT_EQ(NETPACK_find_msg_by_type(static_cast<NETMSG_type>(-1)), nullptr);
}

TEST(Lookup, MessageByName) {
    EXPECT_EQ(NETPACK_find_msg_by_name("MSG_SERVER_HEARTBEAT")->msg, MSG_SERVER_HEARTBEAT);
    EXPECT_EQ(NETPACK_find_msg_by_name_lib("MSG_SERVER_TERMINATE")->ds_tie, nullptr);
    EXPECT_EQ(NETPACK_find_msg_by_name("MSG_SERVER"), nullptr);
    EXPECT_EQ(NETPACK_find_msg_by_name(""), nullptr);
}

TEST(Lookup, StructureNamesAreExact) {
    ASSERT_NE(NETPACK_find_ds("NET_SERVER_Heartbeat"), nullptr);
    EXPECT_EQ(NETPACK_find_ds("NET_SERVER_Heartbeat")->total_size, 4u);
    EXPECT_EQ(NETPACK_find_ds("net_server_heartbeat"), nullptr);
    EXPECT_EQ(NETPACK_find_ds("NET_SERVER_Heartbeat "), nullptr);
    EXPECT_EQ(NETPACK_find_ds_lib("NET_SERVER_HeartBeat"), nullptr);
}

TEST(Lookup, PrivateAndPublicCataloguesAreTwoCopies) {
    EXPECT_NE(NETPACK_find_ds("NET_SERVER_Heartbeat"), NETPACK_find_ds_lib("NET_SERVER_Heartbeat"));
    EXPECT_NE(NETPACK_find_msg_by_type(MSG_SERVER_HEARTBEAT),
              NETPACK_find_msg_by_type_lib(MSG_SERVER_HEARTBEAT));
}

TEST(Lookup, EveryRowIsFoundInBothWays) {
    for (const Catalogue &catalogue : {public_catalogue(), private_catalogue()}) {
        for (size_t i = 0; i < catalogue.count_structures; ++i)
            EXPECT_EQ(find_structure(catalogue, catalogue.structures[i].name),
                      &catalogue.structures[i]);
        for (size_t i = 0; i < catalogue.count_messages; ++i)
            EXPECT_EQ(find_message(catalogue, catalogue.messages[i].name), &catalogue.messages[i]);
    }
    for (size_t i = 0; i < _ndsd_structures_count_ext; ++i)
        EXPECT_EQ(NETPACK_find_ds(_ndsd_structures_ext[i].name), &_ndsd_structures_ext[i]);
    for (size_t i = 0; i < _nmsg_list_count_ext; ++i)
        EXPECT_EQ(NETPACK_find_msg_by_name(_nmsg_list_ext[i].name), &_nmsg_list_ext[i]);
}

TEST(Lookup, UppercaseFieldBeforeLowercaseOnesIsFound) {
    TestCatalogue catalogue(sample_structures());
    const Plan *plan =
        plan_of(catalogue.get(), find_structure(catalogue.get(), "NET_AE33_Instant"));
    ASSERT_NE(plan, nullptr);
    EXPECT_EQ(plan->find_field("S"), 0u);
    EXPECT_EQ(plan->find_field("start_time"), 3u);
    EXPECT_EQ(plan->find_field("s"), k_not_found);
    EXPECT_EQ(plan->find_field({"S\0", 2}), k_not_found);
}

TEST(Lookup, TypeTables) {
    EXPECT_EQ(g_netpack_field_sizes[NETDSD_FT_FTIME], 8u);
    EXPECT_EQ(g_netpack_field_sizes[NETDSD_FT_A_FLOAT], 4u);
    EXPECT_EQ(g_netpack_field_sizes[NETDSD_FT_BIN], 1u);
    EXPECT_FALSE(g_netpack_field_send_count[NETDSD_FT_FLOAT]);
    EXPECT_TRUE(g_netpack_field_send_count[NETDSD_FT_A_BOOL]);
    EXPECT_FALSE(g_netpack_field_send_count[NETDSD_FT_STRING]);
    EXPECT_TRUE(g_netpack_field_send_count[NETDSD_FT_BIN]);
    for (unsigned i = 0; i < 14; ++i) {
        EXPECT_EQ(g_netpack_field_sizes[i], g_netpack_field_sizes[i + 14]);
        EXPECT_STREQ(g_netpack_field_names[i], g_netpack_field_names[i + 14]);
    }
    const char *const words[] = {"BOOL", "BIN", "BIN", "INT",  "INT",   "INT",   "INT",
                                 "INT",  "INT", "INT", "TIME", "FTIME", "FLOAT", "FLOAT"};
    for (unsigned i = 0; i < 14; ++i)
        EXPECT_STREQ(g_netpack_field_names[i], words[i]);
    EXPECT_STREQ(g_netpack_field_names[28], "STRING");
    EXPECT_STREQ(g_netpack_field_names[29], "BIN");
}

TEST(MissingValues, EveryTypeHasItsCode) {
    TestCatalogue catalogue(sample_structures());
    Every e;
    memset(&e, 0xEE, sizeof e);
    fill_mvc(catalogue.get(), &e, "Every", sizeof e);
    EXPECT_EQ(e.b, 0);
    EXPECT_EQ(e.c, 0);
    EXPECT_EQ(e.byte, 0);
    EXPECT_EQ(+e.s, 0);
    EXPECT_EQ(+e.us, 0);
    EXPECT_EQ(+e.i, 0x55555555);
    EXPECT_EQ(+e.ui, 0x55555555u);
    EXPECT_EQ(+e.l, 0x55555555);
    EXPECT_EQ(+e.ul, 0x55555555u);
    EXPECT_EQ(+e.sz, 0xFFFFFFFFu);
    EXPECT_EQ(+e.tm, -1);
    EXPECT_EQ(+e.ft, -1.0);
    EXPECT_EQ(+e.d, 9.999e-99);
    EXPECT_EQ(+e.f, 0.0f);
    EXPECT_EQ(+e.a_int[1], 0x55555555);
    EXPECT_EQ(+e.a_uint[1], 0x55555555u);
    EXPECT_EQ(+e.a_long[1], 0x55555555);
    EXPECT_EQ(+e.a_ulong[1], 0x55555555u);
    EXPECT_EQ(+e.a_sizet[1], 0xFFFFFFFFu);
    EXPECT_EQ(+e.a_time[1], -1);
    EXPECT_EQ(+e.a_ftime[1], -1.0);
    EXPECT_EQ(+e.a_double[2], 9.999e-99);
    EXPECT_EQ(+e.a_float[1], 0.0f);
    EXPECT_EQ(+e.a_short[2], 0);
    EXPECT_EQ(+e.a_ushort[1], 0);
    EXPECT_EQ(+e.a_bool[1] | e.a_byte[2] | e.a_char[4], 0);
    for (char c : e.text)
        EXPECT_EQ(c, 0);
    for (BYTE c : e.a_bin)
        EXPECT_EQ(c, 0);
}

TEST(MissingValues, NestedRecordsFollowTheSameRules) {
    TestCatalogue catalogue(sample_structures());
    Whole w;
    memset(&w, 0xEE, sizeof w);
    fill_mvc(catalogue.get(), &w, "Whole", sizeof w);
    EXPECT_EQ(+w.n, 0x55555555);
    EXPECT_EQ(+w.parts[0].v, 9.999e-99);
    EXPECT_EQ(+w.parts[1].v, 9.999e-99);
    EXPECT_EQ(+w.parts[1].tag[3], 0);
    EXPECT_EQ(+w.when, -1.0);
}

TEST(MissingValues, BadDescriptionLeavesZeros) {
    StderrCapture err;
    DWORD index[2] = {7, 7};
    NETPACK_fill_mvc(index, "NET_SERVER_Heartbeat", sizeof index);
    EXPECT_EQ(index[0] | index[1], 0u);
    NETPACK_fill_mvc_lib(index, "NET_NOT_There", sizeof index);
    const std::string text = err.finish();
    EXPECT_NE(text.find("WARNING: Bad structure description for \"NET_SERVER_Heartbeat\" ("),
              std::string::npos);
    EXPECT_NE(text.find("WARNING: Bad structure description for \"NET_NOT_There\" ("),
              std::string::npos);
}

TEST(MissingValues, PublicEntryPointsFill) {
    DWORD index = 0;
    NETPACK_fill_mvc(&index, "NET_SERVER_Heartbeat", sizeof index);
    EXPECT_EQ(index, 0x55555555u);
    index = 0;
    NETPACK_fill_mvc_lib(&index, "NET_SERVER_Heartbeat", sizeof index);
    EXPECT_EQ(index, 0x55555555u);
}

TEST(Diagnostics, BeforeStartUpLinesBeginWithPreinit) {
    StderrCapture err;
    DWORD index;
    NETPACK_fill_mvc(&index, "NET_NOT_There", sizeof index);
    EXPECT_EQ(err.finish().find("PREINIT: WARNING: Bad structure description"), 0u);
}

TEST(Plan, ThreadsThatNeedItFirstShareOne) {
    for (int round = 0; round < 50; ++round) {
        TestCatalogue catalogue(sample_structures());
        const Plan *found[4] = {};
        std::vector<std::thread> threads;
        for (auto &plan : found)
            threads.emplace_back([&catalogue, &plan] {
                plan = plan_of(catalogue.get(), find_structure(catalogue.get(), "Whole"));
            });
        for (auto &thread : threads)
            thread.join();
        ASSERT_NE(found[0], nullptr);
        for (const Plan *plan : found)
            EXPECT_EQ(plan, found[0]);
    }
}

TEST(Plan, PaddingIsKnown) {
    TestCatalogue catalogue(sample_structures());
    const Plan *plan =
        plan_of(catalogue.get(), find_structure(catalogue.get(), "NET_AE33_Reading"));
    ASSERT_NE(plan, nullptr);
    ASSERT_EQ(plan->gaps.size(), 1u);
    EXPECT_EQ(plan->gaps[0].offset, 490u);
    EXPECT_EQ(plan->gaps[0].size, 2u);
}

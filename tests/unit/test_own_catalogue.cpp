// An application that links a catalogue of its own: the plain lookups use it, the library's do not.
#include <zeb2/libzeb2.h>

#include <cstring>
#include <dlfcn.h>
#include <gtest/gtest.h>

TEST(OwnCatalogue, PlainLookupFindsTheApplicationsRecord) {
    const NETDSD_entry *entry = NETPACK_find_ds("NET_OWN_Instant");
    ASSERT_NE(entry, nullptr);
    EXPECT_STREQ(entry->name, "NET_OWN_Instant");
    EXPECT_EQ(entry->total_size, 12u + 3 * 12);
    ASSERT_EQ(entry->count_fields, 3u);
    EXPECT_STREQ(entry->fields[0].name, "channels");
    EXPECT_EQ(entry->fields[0].ft, NETDSD_FT_BIN);
    EXPECT_EQ(entry->fields[0].offset, 12u);
    EXPECT_EQ(entry->fields[0].count, 3u);
    EXPECT_EQ(entry->fields[0].size, 12u);
    EXPECT_STREQ(entry->fields[0].comment, "*instant");
    EXPECT_STREQ(entry->fields[0].type_name, "NET_OWN_Reading");
}

TEST(OwnCatalogue, LibraryLookupDoesNotFindTheApplicationsRecord) {
    EXPECT_EQ(NETPACK_find_ds_lib("NET_OWN_Instant"), nullptr);
    EXPECT_EQ(NETPACK_find_msg_by_name_lib("AAA_OWN_FIRST"), nullptr);
}

TEST(OwnCatalogue, StationRecordsAreInBothCatalogues) {
    const NETDSD_entry *own = NETPACK_find_ds("NET_SERVER_Heartbeat");
    const NETDSD_entry *library = NETPACK_find_ds_lib("NET_SERVER_Heartbeat");
    ASSERT_NE(own, nullptr);
    ASSERT_NE(library, nullptr);
    EXPECT_NE(own, library);
    EXPECT_EQ(own->total_size, library->total_size);
}

// "AAA_" sorts before every station message, so that each of them moves up by one.
TEST(OwnCatalogue, NumbersMessagesByItsOwnOrder) {
    EXPECT_EQ(AAA_OWN_FIRST, 0);
    const NETMSG_entry *first = NETPACK_find_msg_by_type(AAA_OWN_FIRST);
    ASSERT_NE(first, nullptr);
    EXPECT_STREQ(first->name, "AAA_OWN_FIRST");
    EXPECT_STREQ(first->meta_types, "own");
    EXPECT_STREQ(first->ds_tie, "NET_OWN_Instant");
    const NETMSG_entry *reset = NETPACK_find_msg_by_name("MSG_OWN_RESET");
    ASSERT_NE(reset, nullptr);
    EXPECT_EQ(reset->msg, MSG_OWN_RESET);
    EXPECT_EQ(reset->ds_tie, nullptr);
}

TEST(OwnCatalogue, LibraryKeepsTheBuiltInNumbering) {
    for (const char *name : {"MSG_LOG_MONITOR", "MSG_SERVER_HEARTBEAT", "NET_SERVER_DELETFILTER"}) {
        const NETMSG_entry *own = NETPACK_find_msg_by_name(name);
        const NETMSG_entry *library = NETPACK_find_msg_by_name_lib(name);
        ASSERT_NE(own, nullptr) << name;
        ASSERT_NE(library, nullptr) << name;
        EXPECT_GT(own->msg, library->msg) << name;
        EXPECT_EQ(NETPACK_find_msg_by_type_lib(library->msg), library) << name;
    }
    const NETMSG_entry *first = NETPACK_find_msg_by_type_lib(static_cast<NETMSG_type>(0));
    ASSERT_NE(first, nullptr);
    EXPECT_STRNE(first->name, "AAA_OWN_FIRST");
}

// One table in the process: what the program sees is what the library's plain lookups search.
TEST(OwnCatalogue, LibraryBindsToTheProgramsTables) {
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "_ndsd_structures_ext"), &_ndsd_structures_ext[0]);
    EXPECT_EQ(NETPACK_find_ds(_ndsd_structures_ext[0].name), &_ndsd_structures_ext[0]);
    EXPECT_EQ(NETPACK_find_msg_by_type(AAA_OWN_FIRST), &_nmsg_list_ext[0]);
    EXPECT_EQ(NETPACK_find_msg_by_type(static_cast<NETMSG_type>(_nmsg_list_count_ext)), nullptr);
}

TEST(OwnCatalogue, PrivateTablesAreNotExported) {
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "_ndsd_structures"), nullptr);
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "_nmsg_list"), nullptr);
}

TEST(OwnCatalogue, PacksARecordOfItsOwn) {
    NET_OWN_Instant record = {};
    record.valid = TRUE;
    record.start_time = 1.5;
    record.channels[2].v = -3.25;
    size_t size = 0;
    void *package = NETPACK_package_ds(&record, "NET_OWN_Instant", sizeof record, &size);
    ASSERT_NE(package, nullptr);
    NET_OWN_Instant copy = {};
    EXPECT_EQ(NETPACK_unpack_ds(package, size, &copy, sizeof copy, "NET_OWN_Instant"), size);
    EXPECT_EQ(copy.valid, TRUE);
    EXPECT_TRUE(copy.start_time == 1.5); // packed: no reference may be bound to it
    EXPECT_TRUE(copy.channels[2].v == -3.25);
    free(package);
}

TEST(OwnCatalogue, WalksAndPrintsARecordOfItsOwn) {
    NET_OWN_Instant record = {};
    record.channels[2].v = -3.25;
    std::string names;
    const auto collect = [](char *name, NETPACK_ds_iterator_types, void *, size_t, void *param) {
        *static_cast<std::string *>(param) += name + std::string(" ");
    };
    NETPACK_iterate_ds_raw(&record, "NET_OWN_Instant", sizeof record, collect, &names, "");
    EXPECT_EQ(names, "channels_1_flags channels_1_v channels_2_flags channels_2_v "
                     "channels_3_flags channels_3_v start_time valid ");
    names.clear();
    NETPACK_iterate_ds_raw_lib(&record, "NET_OWN_Instant", sizeof record, collect, &names, "");
    EXPECT_EQ(names, "Raw ");

    char *text = nullptr;
    size_t size = 0;
    FILE *stream = open_memstream(&text, &size);
    NETPACK_print_ds_raw(&record, "NET_OWN_Instant", sizeof record, stream, "");
    fclose(stream);
    EXPECT_NE(std::string(text, size).find("\tv(FLOAT)=-3.250000E+00\n"), std::string::npos);
    free(text);
    stream = open_memstream(&text, &size);
    NETPACK_print_ds_raw_lib(&record, "NET_OWN_Instant", sizeof record, stream, "");
    fclose(stream);
    EXPECT_EQ(std::string(text, size).find("*RawData="), 0u);
    free(text);
}

TEST(OwnCatalogue, ReadsATabularLineOfItsOwn) {
    NET_OWN_Instant record = {};
    EXPECT_EQ(NETPACK_read_ds_tabular_raw(&record, "NET_OWN_Instant", sizeof record,
                                          "1,1.5,2,2.5,3,3.5,19700101_0000010500,1"),
              8u);
    EXPECT_TRUE(record.start_time == 1.5);
    EXPECT_TRUE(record.channels[2].v == 3.5);
    EXPECT_EQ(record.valid, TRUE);
}

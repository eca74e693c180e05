#include "definitions/log.h"
#include "scripted_server.h"
#include "support.h"
#include "zebmsg_int.h"

#include <cstdlib>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace zeb::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr size_t k_megabyte = 1024 * 1024;

// What a callback was shown.
struct Seen {
    std::vector<std::string> calls;
};

std::string describe(const ZEBMSG_proc_msg *pm) {
    std::string text = pm->msg != nullptr ? pm->msg->name : "?";
    if (pm->dsd != nullptr)
        text += std::string("/") + pm->dsd->name;
    return text;
}

void on_message(ZEBMSG_proc_msg *pm, void *param) {
    static_cast<Seen *>(param)->calls.push_back("program " + describe(pm));
}

// Library procedures get a copy of their parameter block, here a pointer and a word.
struct LibParam {
    Seen *seen;
    char word[8];
};

void on_message_lib(ZEBMSG_proc_msg *pm, ZEBMSG_link *, void *param) {
    const auto *p = static_cast<const LibParam *>(param);
    p->seen->calls.push_back(std::string(p->word) + " " + describe(pm));
}

// A link without a socket: queues only.
class ZebmsgQueue : public testing::Test {
  protected:
    void SetUp() override { lnk.fh = lnk.clear_fh = -1; }
    void TearDown() override { ZEBMSG_multi_destroy(&lnk); }

    void receive(NETMSG_type type, BOOL internal) {
        NETPACK_message msg;
        NETPACK_msg_copy_from_parameters_int(&msg, type, 1, nullptr, "cpc1", nullptr, 0, nullptr);
        zeb::append_received(&lnk, &msg, internal);
    }
    void receive_megabyte(NETMSG_type type, BOOL internal = FALSE) {
        NETPACK_message msg = {};
        msg.type = type;
        msg.pds = calloc(1, 1);
        msg.sz_ds = k_megabyte; // only the account reads it
        zeb::append_received(&lnk, &msg, internal);
    }
    void put_into(LL_TYPE *queue, NETMSG_type type, BOOL internal) {
        ZEBMSG_msgqueue_data entry = {};
        entry.msg.type = type;
        entry.internal = internal;
        LL_insert_tail(queue, &entry, sizeof entry);
    }
    void take_next() {
        void *data = nullptr;
        size_t size = 0;
        zeb::package_next(&data, &size, &lnk);
        free(data);
    }
    void register_proc(const char *word) {
        LibParam param = {&seen, ""};
        strncpy(param.word, word, sizeof param.word - 1);
        ZEBMSG_register_library_msg_proc(&lnk, on_message_lib, &param, sizeof param);
        memset(&param, 0, sizeof param); // the link has its own copy
    }
    const ZEBMSG_msgqueue_data *queued(const LL_TYPE &queue) {
        return static_cast<const ZEBMSG_msgqueue_data *>(queue.tail->data);
    }
    template <typename T> T last_record() {
        T record = {};
        EXPECT_EQ(queued(lnk.tx_queue)->msg.sz_ds, sizeof record);
        memcpy(&record, queued(lnk.tx_queue)->msg.pds, sizeof record);
        return record;
    }

    StderrCapture err;
    ZEBMSG_link lnk = {};
    Seen seen;
};

// ---- Sending ----

TEST_F(ZebmsgQueue, AQueuedMessageOwnsCopies) {
    NET_LOG_Info info = {TRUE};
    std::string dest = "logger", name = "NET_LOG_Info";
    ZEBMSG_queue_message(&lnk, MSG_LOG_INFO, 2, dest.c_str(), &info, sizeof info, name.c_str());
    info.enabled = FALSE;
    dest = name = "changed";
    const ZEBMSG_msgqueue_data *entry = queued(lnk.tx_queue);
    EXPECT_FALSE(entry->internal);
    EXPECT_EQ(entry->msg.type, MSG_LOG_INFO);
    EXPECT_EQ(entry->msg.flags, 2U);
    EXPECT_STREQ(entry->msg.dest_name, "logger");
    EXPECT_STREQ(entry->msg.ds_name, "NET_LOG_Info");
    EXPECT_EQ(entry->msg.src_name, nullptr);
    EXPECT_EQ(last_record<NET_LOG_Info>().enabled, TRUE);
}

TEST_F(ZebmsgQueue, LibraryMessagesAreMarkedAndMayBeQueuedWithTheMutexHeld) {
    pthread_mutex_lock(&lnk.mtx);
    ZEBMSG_queue_message_lib(&lnk, MSG_LOG_FLUSH, 1, "", nullptr, 0, nullptr, FALSE);
    pthread_mutex_unlock(&lnk.mtx);
    ZEBMSG_queue_message_lib(&lnk, MSG_LOG_FLUSH, 1, "", nullptr, 0, nullptr, TRUE);
    EXPECT_EQ(lnk.tx_queue.count, 2);
    EXPECT_TRUE(queued(lnk.tx_queue)->internal);
    EXPECT_EQ(queued(lnk.tx_queue)->msg.dest_name, nullptr);
}

TEST_F(ZebmsgQueue, MessagesThatDoNotLeaveAreRefusedAndTheLossIsReportedTwice) {
    const std::vector<char> block(k_megabyte);
    auto send = [&] {
        ZEBMSG_queue_message(&lnk, MSG_LOG_INFO, 1, nullptr, block.data(), block.size(),
                             "NET_LOG_Info");
    };
    for (int i = 0; i < 70; ++i)
        send();
    EXPECT_EQ(lnk.tx_queue.count, 63); // 64 MiB less what the entries themselves take
    EXPECT_EQ(lnk.tx_load.dropped, 7U);
    take_next();
    send();
    EXPECT_EQ(lnk.tx_queue.count, 62) << "refused until half of the queue has left";
    while (lnk.tx_queue.count > 30)
        take_next();
    send();
    EXPECT_EQ(lnk.tx_queue.count, 31);
    EXPECT_THAT(err.text(), HasSubstr("Outgoing messages are not leaving: refusing new ones"));
    EXPECT_THAT(err.text(), HasSubstr("Outgoing messages are taken again, 8 were refused"));
}

TEST_F(ZebmsgQueue, AMessageThatCannotBePackedIsDroppedAndTheNextOneFollows) {
    ZEBMSG_queue_message(&lnk, static_cast<NETMSG_type>(294), 1, nullptr, nullptr, 0, nullptr);
    ZEBMSG_queue_message(&lnk, MSG_LOG_FLUSH, 1, nullptr, nullptr, 0, nullptr);
    void *data = nullptr;
    size_t size = 0;
    zeb::package_next(&data, &size, &lnk);
    EXPECT_EQ(data, nullptr);
    EXPECT_THAT(err.text(), HasSubstr("Unable to find a message definition for type 294"));
    zeb::package_next(&data, &size, &lnk);
    EXPECT_EQ(size, 4U + 2 + 13 + 6); // flags, "MSG_LOG_FLUSH", three empty names
    free(data);
    zeb::package_next(&data, &size, &lnk);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(lnk.tx_load.bytes, 0U);
}

// ---- Filters ----

TEST(ZebmsgFilters, OnAFreshLinkAreNumberedOneAndTwo) {
    StderrCapture err;
    ScopedEnv no_server("ZEB2SERVER", nullptr);
    ScriptedServer server;
    ZEBMSG_link lnk = {};
    ZEBMSG_connect_params cp = {"neph1", nullptr};
    ASSERT_TRUE(ZEBMSG_multi_connect(&cp, &lnk));
    EXPECT_EQ(ZEBMSG_add_filter(&lnk, TRUE, "a", "b", -1, "c", "d", "e"), 1U);
    EXPECT_EQ(ZEBMSG_add_filter(&lnk, FALSE, nullptr, nullptr, 5, nullptr, nullptr, nullptr), 2U);
    ZEBMSG_multi_destroy(&lnk);
}

TEST_F(ZebmsgQueue, AFilterCarriesItsPatterns) {
    lnk.msg_filter_next_uid = 7;
    EXPECT_EQ(ZEBMSG_add_filter(&lnk, TRUE, "cpc*", "log", MSG_LOG_FLUSH, "cpc", "tag", "*"), 7U);
    const ZEBMSG_msgqueue_data *entry = queued(lnk.tx_queue);
    EXPECT_EQ(entry->msg.type, NET_SERVER_ADDFILTER);
    EXPECT_EQ(entry->msg.flags, 0U);
    EXPECT_EQ(entry->msg.dest_name, nullptr);
    EXPECT_TRUE(entry->internal);
    const auto filter = last_record<NET_SERVER_FilterAdd>();
    EXPECT_EQ(filter.target, TRUE);
    EXPECT_STREQ(filter.src_match, "cpc*");
    EXPECT_STREQ(filter.dest_match, "log");
    EXPECT_EQ(filter.type_match, MSG_LOG_FLUSH);
    EXPECT_STREQ(filter.inst_type_match, "cpc");
    EXPECT_STREQ(filter.tag_match, "tag");
    EXPECT_STREQ(filter.metatype_match, "*");
    EXPECT_EQ(filter.uid, 7U);
}

TEST_F(ZebmsgQueue, LongPatternsAreCutAndMissingOnesEmpty) {
    const std::string text(300, 'x');
    ZEBMSG_add_filter(&lnk, FALSE, text.c_str(), nullptr, -1, text.c_str(), text.c_str(), nullptr);
    const auto filter = last_record<NET_SERVER_FilterAdd>();
    EXPECT_EQ(filter.src_match, text.substr(0, 31));
    EXPECT_EQ(filter.inst_type_match, text.substr(0, 31));
    EXPECT_EQ(filter.tag_match, text.substr(0, 255));
    EXPECT_STREQ(filter.dest_match, "");
    EXPECT_STREQ(filter.metatype_match, "");
    EXPECT_EQ(filter.type_match, -1);
}

TEST_F(ZebmsgQueue, DeletingAFilterNamesItAndClearingNamesAll) {
    ZEBMSG_delete_filter(&lnk, 5);
    EXPECT_EQ(queued(lnk.tx_queue)->msg.type, NET_SERVER_DELETFILTER);
    EXPECT_EQ(last_record<NET_SERVER_FilterDelete>().all, FALSE);
    EXPECT_EQ(last_record<NET_SERVER_FilterDelete>().uid, 5U);
    ZEBMSG_clear_filters(&lnk);
    EXPECT_EQ(queued(lnk.tx_queue)->msg.type, NET_SERVER_DELETFILTER);
    EXPECT_EQ(last_record<NET_SERVER_FilterDelete>().all, TRUE);
    EXPECT_EQ(last_record<NET_SERVER_FilterDelete>().uid, 0U);
}

// ---- Delivery ----

TEST_F(ZebmsgQueue, WithoutALibraryProcedureLibraryMessagesAreDiscarded) {
    receive(MSG_LOG_FLUSH, TRUE);
    ZEBMSG_process_messages(&lnk, on_message, &seen);
    EXPECT_EQ(lnk.rx_lib_queue.count, 0);
    EXPECT_EQ(lnk.rx_lib_load.bytes, 0U);
    register_proc("late");
    ZEBMSG_process_messages(&lnk, on_message, &seen);
    EXPECT_TRUE(seen.calls.empty());
}

TEST_F(ZebmsgQueue, TheProgramSeesTheWholeBatchBeforeTheLibraryProcedures) {
    register_proc("one");
    register_proc("two");
    receive(MSG_LOG_FLUSH, TRUE);
    receive(MSG_LOG_FLUSH, FALSE);
    receive(MSG_NOTIFY_CLIENT_CONNECT, TRUE);
    receive(MSG_NOTIFY_CLIENT_CONNECT, FALSE);
    ZEBMSG_process_messages(&lnk, on_message, &seen);
    EXPECT_THAT(seen.calls,
                ElementsAre("program MSG_LOG_FLUSH", "program MSG_NOTIFY_CLIENT_CONNECT",
                            "one MSG_LOG_FLUSH", "two MSG_LOG_FLUSH",
                            "one MSG_NOTIFY_CLIENT_CONNECT", "two MSG_NOTIFY_CLIENT_CONNECT"));
    EXPECT_EQ(lnk.cl_rx.count + lnk.cl_rx_lib.count + lnk.rx_queue.count, 0);
    ZEBMSG_process_messages(&lnk, on_message, &seen);
    EXPECT_EQ(seen.calls.size(), 6U);
}

// The whole road: what the server relays reaches both kinds of callback, records included.
TEST(ZebmsgDelivery, AMessageKnownToBothCataloguesIsDeliveredTwice) {
    StderrCapture err;
    ScopedEnv no_server("ZEB2SERVER", nullptr);
    ScriptedServer server;
    ZEBMSG_link lnk = {};
    ZEBMSG_connect_params cp = {"neph1", nullptr};
    ASSERT_TRUE(ZEBMSG_multi_connect(&cp, &lnk));
    ASSERT_TRUE(server.accept());
    Seen seen;
    const LibParam param = {&seen, "library"};
    ZEBMSG_register_library_msg_proc(&lnk, on_message_lib, &param, sizeof param);
    const NET_LOG_Info info = {TRUE};
    server.send(MSG_LOG_INFO, "cpc1", &info, sizeof info, "NET_LOG_Info", 3);
    HookLoop loop(&lnk);
    ASSERT_TRUE(loop.run_until([&] { return lnk.rx_queue.count == 1; }));
    EXPECT_EQ(lnk.rx_lib_queue.count, 1);
    ZEBMSG_process_messages(&lnk, on_message, &seen);
    EXPECT_THAT(seen.calls, ElementsAre("program MSG_LOG_INFO/NET_LOG_Info",
                                        "library MSG_LOG_INFO/NET_LOG_Info"));
    ZEBMSG_multi_destroy(&lnk);
}

void check_fields(ZEBMSG_proc_msg *pm, void *param) {
    EXPECT_EQ(pm->flags, 3U);
    EXPECT_STREQ(pm->src_name, "cpc1");
    EXPECT_STREQ(pm->dest_name, "neph1");
    EXPECT_EQ(static_cast<NET_LOG_Info *>(pm->pds)->enabled, TRUE);
    *static_cast<bool *>(param) = true;
}

TEST_F(ZebmsgQueue, ACallbackSeesNamesFlagsAndRecord) {
    const NET_LOG_Info info = {TRUE};
    NETPACK_message msg;
    NETPACK_msg_copy_from_parameters_int(&msg, MSG_LOG_INFO, 3, "neph1", "cpc1", &info, sizeof info,
                                         "NET_LOG_Info");
    zeb::append_received(&lnk, &msg, FALSE);
    bool called = false;
    ZEBMSG_process_messages(&lnk, check_fields, &called);
    EXPECT_TRUE(called);
}

struct Replier {
    ZebmsgQueue *test;
    ZEBMSG_link *lnk;
    int calls;
};

void reply_and_receive(ZEBMSG_proc_msg *pm, void *param) {
    auto *replier = static_cast<Replier *>(param);
    ++replier->calls;
    ZEBMSG_queue_message(replier->lnk, pm->msg->msg, 0, pm->src_name, nullptr, 0, nullptr);
    NETPACK_message msg;
    NETPACK_msg_copy_from_parameters_int(&msg, MSG_LOG_FLUSH, 1, nullptr, "cpc1", nullptr, 0,
                                         nullptr);
    zeb::append_received(replier->lnk, &msg, FALSE);
}

TEST_F(ZebmsgQueue, ACallbackMayQueueAndWhatArrivesMeanwhileWaits) {
    receive(MSG_LOG_FLUSH, FALSE);
    Replier replier = {this, &lnk, 0};
    ZEBMSG_process_messages(&lnk, reply_and_receive, &replier);
    EXPECT_EQ(replier.calls, 1);
    EXPECT_EQ(lnk.rx_queue.count, 1);
    EXPECT_EQ(lnk.tx_queue.count, 1);
    EXPECT_STREQ(queued(lnk.tx_queue)->msg.dest_name, "cpc1");
}

TEST_F(ZebmsgQueue, WithoutACallbackTheProgramsMessagesAreDiscarded) {
    receive(MSG_LOG_FLUSH, FALSE);
    ZEBMSG_process_messages(&lnk, nullptr, nullptr);
    EXPECT_EQ(lnk.rx_queue.count, 0);
}

void count_null_param(ZEBMSG_proc_msg *, ZEBMSG_link *lnk, void *param) {
    EXPECT_EQ(param, nullptr);
    ++lnk->last_hb;
}

TEST_F(ZebmsgQueue, AProcedureWithoutAParameterBlockGetsNull) {
    int unused = 0;
    ZEBMSG_register_library_msg_proc(&lnk, count_null_param, nullptr, 8);
    ZEBMSG_register_library_msg_proc(&lnk, count_null_param, &unused, 0);
    receive(MSG_LOG_FLUSH, TRUE);
    ZEBMSG_process_messages(&lnk, on_message, &seen);
    EXPECT_EQ(lnk.last_hb, 2U);
}

// ---- Sanity errors ----

TEST_F(ZebmsgQueue, AnInternalMessageInTheExternalQueueIsReportedAndSkipped) {
    put_into(&lnk.rx_queue, MSG_LOG_FLUSH, TRUE);
    ZEBMSG_process_messages(&lnk, on_message, &seen);
    EXPECT_TRUE(seen.calls.empty());
    EXPECT_THAT(err.text(),
                HasSubstr("SANITY ERROR: Internal message (" + std::to_string(MSG_LOG_FLUSH) +
                          ") in the external message queue"));
}

TEST_F(ZebmsgQueue, AnExternalMessageInTheInternalQueueIsReportedAndSkipped) {
    register_proc("one");
    put_into(&lnk.rx_lib_queue, MSG_LOG_FLUSH, FALSE);
    ZEBMSG_process_messages(&lnk, on_message, &seen);
    EXPECT_TRUE(seen.calls.empty());
    EXPECT_THAT(err.text(), HasSubstr(") in the internal message queue"));
}

TEST_F(ZebmsgQueue, TheCallbackRunsAlsoForAMessageThatTheCatalogueLacks) {
    put_into(&lnk.rx_queue, static_cast<NETMSG_type>(294), FALSE);
    receive(MSG_LOG_FLUSH, FALSE);
    ZEBMSG_process_messages(&lnk, on_message, &seen);
    EXPECT_THAT(seen.calls, ElementsAre("program ?", "program MSG_LOG_FLUSH"));
    EXPECT_THAT(err.text(),
                HasSubstr("SANITY ERROR: Unable to find message description for message 294"));
}

TEST_F(ZebmsgQueue, AnUnknownRecordIsReportedAndTheRowIsKept) {
    NETPACK_message msg = {};
    char name[] = "NET_NO_SUCH";
    msg.type = MSG_LOG_FLUSH;
    msg.ds_name = name;
    ZEBMSG_proc_msg pm = {};
    EXPECT_FALSE(ZEBMSG_netpack_to_zebmsgproc(&msg, &lnk, &pm));
    EXPECT_STREQ(pm.msg->name, "MSG_LOG_FLUSH");
    EXPECT_EQ(pm.dsd, nullptr);
    EXPECT_THAT(err.text(),
                HasSubstr("SANITY ERROR: Message MSG_LOG_FLUSH (" + std::to_string(MSG_LOG_FLUSH) +
                          "), unable to find a structure description for NET_NO_SUCH"));
    EXPECT_FALSE(ZEBMSG_netpack_to_zebmsgproc_lib(&msg, &lnk, &pm));
}

TEST_F(ZebmsgQueue, AnEmptyRecordNameMeansNoDescription) {
    NETPACK_message msg = {};
    char name[] = "";
    msg.type = MSG_LOG_FLUSH;
    msg.ds_name = name;
    ZEBMSG_proc_msg pm = {};
    EXPECT_TRUE(ZEBMSG_netpack_to_zebmsgproc(&msg, &lnk, &pm));
    EXPECT_EQ(pm.dsd, nullptr);
}

// ---- Limits ----

TEST_F(ZebmsgQueue, ADaemonThatNeverProcessesLosesTheOldestAndIsToldTwice) {
    receive(MSG_LOG_FLUSH, FALSE);
    for (int i = 0; i < 70; ++i)
        receive_megabyte(MSG_LOG_INFO);
    EXPECT_EQ(lnk.rx_queue.count, 63);
    EXPECT_EQ(lnk.rx_load.dropped, 8U);
    EXPECT_LE(lnk.rx_load.bytes, zeb::k_queue_limit);
    EXPECT_THAT(err.text(), HasSubstr("Received messages are not processed: dropping the oldest"));
    ZEBMSG_process_messages(&lnk, on_message, &seen);
    EXPECT_EQ(seen.calls.size(), 63U);
    EXPECT_THAT(seen.calls.front(), HasSubstr("MSG_LOG_INFO"));
    EXPECT_THAT(err.text(), HasSubstr("Received messages are processed again, 8 were lost"));
    EXPECT_EQ(lnk.rx_load.bytes, 0U);
}

TEST_F(ZebmsgQueue, TheLibrarysQueueIsBoundedByItself) {
    for (int i = 0; i < 70; ++i)
        receive_megabyte(MSG_LOG_INFO, TRUE);
    receive(MSG_LOG_FLUSH, FALSE);
    EXPECT_EQ(lnk.rx_lib_queue.count, 63);
    EXPECT_EQ(lnk.rx_queue.count, 1);
}

TEST_F(ZebmsgQueue, ManySmallMessagesAreBoundedToo) {
    const int fit = zeb::k_queue_limit / 256;
    for (int i = 0; i < fit + 1000; ++i)
        receive(MSG_LOG_FLUSH, FALSE);
    EXPECT_LE(lnk.rx_queue.count, fit);
}

} // namespace

#include "netpack_catalogue.h"

#include <gtest/gtest.h>

using namespace zeb::test;
using namespace zeb::netpack;

namespace {

bool has(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

// Arguments of the copies and packings, which never change what they are given.
char *text(const char *value) {
    return const_cast<char *>(value);
}

Bytes packed(const NETPACK_message &message) {
    size_t size = 99;
    void *data = NETPACK_package_message(&message, &size);
    if (data == nullptr) {
        EXPECT_EQ(size, 0u);
        return {};
    }
    const auto *first = static_cast<const unsigned char *>(data);
    Bytes bytes(first, first + size);
    free(data);
    return bytes;
}

class Received {
  public:
    explicit Received(const Bytes &bytes) {
        void *exact = malloc(bytes.size() == 0 ? 1 : bytes.size());
        if (!bytes.empty())
            memcpy(exact, bytes.data(), bytes.size());
        memset(&message, 0xEE, sizeof message);
        accepted = NETPACK_unpack_message(exact, bytes.size(), &message) != FALSE;
        free(exact);
    }
    ~Received() { NETPACK_msg_free(&message); }
    Received(const Received &) = delete;
    Received &operator=(const Received &) = delete;

    NETPACK_message message;
    bool accepted;
};

NETPACK_message bare(NETMSG_type type) {
    NETPACK_message message = {};
    message.type = type;
    return message;
}

PackageText message_opening(const std::string &name, const std::string &dest,
                            const std::string &src, const std::string &structure) {
    PackageText message;
    message.u32(0).text(name).text(dest).text(src).text(structure);
    return message;
}

} // namespace

TEST(PackMessage, HeartbeatByteForByte) {
    NET_SERVER_Heartbeat heartbeat = {5};
    NETPACK_message message = bare(MSG_SERVER_HEARTBEAT);
    message.flags = 2;
    message.dest_name = text("neph");
    message.src_name = text("server");
    message.pds = &heartbeat;
    message.sz_ds = sizeof heartbeat;
    message.ds_name = text("NET_SERVER_Heartbeat");
    EXPECT_EQ(packed(message), load_hex("heartbeat.message.hex"));
    size_t size = 0;
    void *data = NETPACK_package_message_lib(&message, &size);
    EXPECT_EQ(size, load_hex("heartbeat.message.hex").size());
    free(data);
}

TEST(PackMessage, TerminateIs32BytesPlusTheNames) {
    NETPACK_message message = bare(MSG_SERVER_TERMINATE);
    EXPECT_EQ(packed(message), load_hex("terminate.message.hex"));
    EXPECT_EQ(packed(message).size(), 32u);
    message.dest_name = text("ab");
    message.src_name = text("cde");
    EXPECT_EQ(packed(message).size(), 37u);
}

TEST(PackMessage, TypeBeyondTheCatalogueFails) {
    NETPACK_message message = bare(static_cast<NETMSG_type>(294));
    message.src_name = text("me");
    StderrCapture err;
    EXPECT_TRUE(packed(message).empty());
    EXPECT_TRUE(has(err.finish(), "Unable to find a message definition for type 294 (message "
                                  "\"me\" -> \"NULL\" (NULL - 0 @ 0x00000000) ("));
}

TEST(PackMessage, AttachmentMustFitTheDefinition) {
    NET_SERVER_Heartbeat heartbeat = {5};
    NETPACK_message message = bare(MSG_SERVER_TERMINATE);
    message.pds = &heartbeat;
    message.sz_ds = 4;
    message.ds_name = text("NET_SERVER_Heartbeat");
    StderrCapture err;
    EXPECT_TRUE(packed(message).empty()); // the row ties none
    message.type = MSG_SERVER_SERVERHANDSHAKE;
    EXPECT_TRUE(packed(message).empty()); // another name
    message = bare(MSG_SERVER_HEARTBEAT);
    message.dest_name = text("x");
    EXPECT_TRUE(packed(message).empty()); // nothing attached
    message.pds = &heartbeat;
    message.ds_name = text("NET_SERVER_Heartbeat");
    EXPECT_TRUE(packed(message).empty()); // no size
    const std::string lines = err.finish();
    EXPECT_TRUE(has(lines, "Message MSG_SERVER_TERMINATE (NET_SERVER_Heartbeat:NONE) \"NULL\" -> "
                           "\"NULL\" (4 @ 0x"));
    EXPECT_TRUE(has(lines, "Message MSG_SERVER_SERVERHANDSHAKE "
                           "(NET_SERVER_Heartbeat:NET_SERVER_ServerHandshake) "));
    EXPECT_TRUE(has(lines, "Message MSG_SERVER_HEARTBEAT (NONE:NET_SERVER_Heartbeat) \"NULL\" -> "
                           "\"x\" (0 @ 0x00000000) is inconistant with the global message "
                           "definition ("));
}

TEST(PackMessage, PartOfAnAttachmentIsDroppedAndItsNameTrailsAsZeros) {
    NETPACK_message message = bare(MSG_SERVER_TERMINATE);
    message.ds_name = text("abc");
    StderrCapture err;
    Bytes expected = load_hex("terminate.message.hex");
    expected.insert(expected.end(), 3, 0);
    EXPECT_EQ(packed(message), expected);
    message.ds_name = nullptr;
    message.sz_ds = 7;
    EXPECT_EQ(packed(message), load_hex("terminate.message.hex"));
    const std::string lines = err.finish();
    EXPECT_TRUE(has(lines, "WARNING: Message MSG_SERVER_TERMINATE (abc) \"NULL\" -> \"NULL\" "
                           "(0 @ 0x00000000) is in an inconsistant state with respect to its "
                           "attachment, sending without any ("));
    const Received received(expected);
    EXPECT_TRUE(received.accepted);
}

TEST(PackMessage, WrongSizeGoesRaw) {
    const char record[5] = "abcd";
    NETPACK_message message = bare(MSG_SERVER_HEARTBEAT);
    message.pds = text(record);
    message.sz_ds = 5;
    message.ds_name = text("NET_SERVER_Heartbeat");
    StderrCapture err;
    const Bytes bytes = packed(message);
    ASSERT_EQ(bytes.size(), 4u + 2 + 20 + 2 + 2 + 2 + 20 + 6);
    EXPECT_EQ(bytes[bytes.size() - 6], 0);
    EXPECT_EQ(memcmp(&bytes[bytes.size() - 5], record, 5), 0);
}

TEST(PackMessage, RecordThatCannotBePackedFails) {
    const std::vector<NETDSD_field> fields = {{NETDSD_FT_A_BYTE, "b", 0, 65536, "", 1, "BYTE"}};
    TestCatalogue catalogue({entry_of("Many", fields, 65536)},
                            {{static_cast<NETMSG_type>(0), "MSG_MANY", "*", "Many"}});
    std::string record(65536, 'x');
    NETPACK_message message = bare(static_cast<NETMSG_type>(0));
    message.pds = record.data();
    message.sz_ds = record.size();
    message.ds_name = text("Many");
    size_t size = 1;
    StderrCapture err;
    EXPECT_EQ(package_message(catalogue.get(), &message, &size), nullptr);
    EXPECT_EQ(size, 0u);
    EXPECT_TRUE(has(err.finish(), "Unable to package attached data structure (Many - 65536 @ 0x"));
}

TEST(PackMessage, NameAbove65535IsRefused) {
    std::string name(65536, 'n');
    NETPACK_message message = bare(MSG_SERVER_TERMINATE);
    message.dest_name = name.data();
    StderrCapture err;
    EXPECT_TRUE(packed(message).empty());
    EXPECT_TRUE(has(err.finish(), "A name of 65536 bytes is too long for a message"));
}

TEST(PackMessage, EmptyAndNullDestinationAreSentAlike) {
    NETPACK_message message = bare(MSG_SERVER_TERMINATE);
    const Bytes without = packed(message);
    message.dest_name = text("");
    EXPECT_EQ(packed(message), without);
    const Received received(without);
    ASSERT_TRUE(received.accepted);
    EXPECT_EQ(received.message.dest_name, nullptr);
    EXPECT_EQ(received.message.src_name, nullptr);
}

TEST(PackMessage, MissingArgumentsAreReported) {
    StderrCapture err;
    size_t size = 5;
    NETPACK_message message = {};
    EXPECT_EQ(NETPACK_package_message(nullptr, &size), nullptr);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(NETPACK_package_message(&message, nullptr), nullptr);
    EXPECT_FALSE(NETPACK_unpack_message(nullptr, 0, &message));
    EXPECT_FALSE(NETPACK_unpack_message("x", 1, nullptr));
    NETPACK_msg_copy(nullptr, &message);
    NETPACK_msg_free(nullptr);
    EXPECT_TRUE(has(err.finish(), "assertion failed (netpack_message.cpp:"));
}

TEST(UnpackMessage, HeartbeatFromItsBytes) {
    const Received received(load_hex("heartbeat.message.hex"));
    ASSERT_TRUE(received.accepted);
    EXPECT_EQ(received.message.type, MSG_SERVER_HEARTBEAT);
    EXPECT_EQ(received.message.flags, 2u);
    EXPECT_STREQ(received.message.dest_name, "neph");
    EXPECT_STREQ(received.message.src_name, "server");
    EXPECT_STREQ(received.message.ds_name, "NET_SERVER_Heartbeat");
    ASSERT_EQ(received.message.sz_ds, 4u);
    EXPECT_EQ(static_cast<NET_SERVER_Heartbeat *>(received.message.pds)->hb_idx, 5u);
    NETPACK_message again;
    const Bytes bytes = load_hex("heartbeat.message.hex");
    EXPECT_TRUE(NETPACK_unpack_message_lib(bytes.data(), bytes.size(), &again));
    NETPACK_msg_free(&again);
}

TEST(UnpackMessage, EveryTruncationBeforeThePackageFails) {
    const Bytes bytes = load_hex("heartbeat.message.hex");
    const size_t opening = bytes.size() - 39;
    for (size_t size = 0; size < opening; ++size) {
        StderrCapture err;
        const Received received(Bytes(bytes.begin(), bytes.begin() + static_cast<long>(size)));
        EXPECT_FALSE(received.accepted) << size;
        EXPECT_EQ(received.message.dest_name, nullptr);
        EXPECT_EQ(received.message.src_name, nullptr);
        EXPECT_TRUE(has(err.finish(), "ran out of data permaturely ("));
    }
}

TEST(UnpackMessage, RunningOutNamesWhatIsKnown) {
    const Bytes bytes = load_hex("heartbeat.message.hex");
    StderrCapture err;
    Received(Bytes(bytes.begin(), bytes.begin() + 3));
    Received(Bytes(bytes.begin(), bytes.begin() + 33));
    const std::string lines = err.finish();
    EXPECT_TRUE(has(lines, "Message UNDEFINED: \"UNDEFINED\" -> \"UNDEFINED\", ran out of data "
                           "permaturely ("));
    EXPECT_TRUE(has(lines, "Message MSG_SERVER_HEARTBEAT: \"UNDEFINED\" -> \"neph\", ran out of "
                           "data permaturely ("));
}

TEST(UnpackMessage, EmptyNameFails) {
    StderrCapture err;
    EXPECT_FALSE(Received(message_opening("", "", "", "").bytes()).accepted);
    EXPECT_TRUE(has(err.finish(), "No message name specified, invalid packet! ("));
}

TEST(UnpackMessage, UnknownNameIsDropped) {
    StderrCapture err;
    EXPECT_FALSE(Received(message_opening("MSG_NOT_THERE", "a", "b", "").bytes()).accepted);
    EXPECT_TRUE(has(err.finish(), "Unable to find local type for message type MSG_NOT_THERE ("));
}

TEST(UnpackMessage, StructureMustBeTheTiedOne) {
    StderrCapture err;
    EXPECT_FALSE(
        Received(message_opening("MSG_SERVER_TERMINATE", "a", "b", "NET_X").bytes()).accepted);
    EXPECT_FALSE(Received(message_opening("MSG_SERVER_HEARTBEAT", "", "b", "").bytes()).accepted);
    EXPECT_FALSE(
        Received(message_opening("MSG_SERVER_HEARTBEAT", "", "", "NET_X").bytes()).accepted);
    const std::string lines = err.finish();
    EXPECT_TRUE(has(lines, "Mismatch on expected local data structure for message "
                           "MSG_SERVER_TERMINATE \"b\" -> \"a\"; expected NONE, got NET_X: message "
                           "discarded ("));
    EXPECT_TRUE(has(lines, "MSG_SERVER_HEARTBEAT \"b\" -> \"NONE\"; expected NET_SERVER_Heartbeat, "
                           "got NONE: message discarded ("));
    EXPECT_TRUE(has(lines, "expected NET_SERVER_Heartbeat, got NET_X: message discarded ("));
}

TEST(UnpackMessage, TiedStructureWithoutADescriptionFails) {
    TestCatalogue catalogue({}, {{static_cast<NETMSG_type>(0), "MSG_ONE", "*", "Gone"}});
    const Bytes bytes = message_opening("MSG_ONE", "a", "b", "Gone").u8(1).bytes();
    NETPACK_message message;
    StderrCapture err;
    EXPECT_FALSE(unpack_message(catalogue.get(), bytes.data(), bytes.size(), &message));
    EXPECT_EQ(message.ds_name, nullptr);
    EXPECT_TRUE(has(err.finish(), "Unable to find local structure description for Gone; message "
                                  "MSG_ONE \"b\" -> \"a\" ("));
}

TEST(UnpackMessage, NamedStructureWithoutBytesHasNoRecord) {
    const Received received(
        message_opening("MSG_SERVER_HEARTBEAT", "", "", "NET_SERVER_Heartbeat").bytes());
    EXPECT_TRUE(received.accepted);
    EXPECT_EQ(received.message.pds, nullptr);
    EXPECT_EQ(received.message.sz_ds, 0u);
}

TEST(UnpackMessage, TrailingGarbageIsReportedAndAccepted) {
    Bytes bytes = load_hex("terminate.message.hex");
    bytes.insert(bytes.end(), 5, 'x');
    StderrCapture err;
    EXPECT_TRUE(Received(bytes).accepted);
    EXPECT_TRUE(has(err.finish(), "Trailing garbage on message MSG_SERVER_TERMINATE \"NULL\" -> "
                                  "\"NULL\", 5 bytes ("));
}

TEST(UnpackMessage, BrokenPackageLeavesMissingValues) {
    const Bytes bytes = message_opening("MSG_SERVER_HEARTBEAT", "", "", "NET_SERVER_Heartbeat")
                            .u8(1)
                            .u16(5)
                            .bytes();
    StderrCapture err;
    const Received received(bytes);
    ASSERT_TRUE(received.accepted);
    EXPECT_EQ(static_cast<NET_SERVER_Heartbeat *>(received.message.pds)->hb_idx, 0x55555555u);
    EXPECT_TRUE(has(err.finish(), "Trailing garbage on message MSG_SERVER_HEARTBEAT"));
}

TEST(CopyMessage, OwnsCopiesOfEverything) {
    const Received received(load_hex("heartbeat.message.hex"));
    NETPACK_message copy;
    NETPACK_msg_copy(&received.message, &copy);
    EXPECT_EQ(copy.type, MSG_SERVER_HEARTBEAT);
    EXPECT_EQ(copy.flags, 2u);
    EXPECT_STREQ(copy.dest_name, "neph");
    EXPECT_NE(copy.dest_name, received.message.dest_name);
    EXPECT_STREQ(copy.src_name, "server");
    EXPECT_STREQ(copy.ds_name, "NET_SERVER_Heartbeat");
    ASSERT_EQ(copy.sz_ds, 4u);
    EXPECT_NE(copy.pds, received.message.pds);
    EXPECT_EQ(memcmp(copy.pds, received.message.pds, 4), 0);
    NETPACK_msg_free(&copy);
}

TEST(CopyMessage, EmptyNamesBecomeNull) {
    NETPACK_message copy;
    NETPACK_msg_copy_from_parameters_int(&copy, MSG_SERVER_TERMINATE, 7, "", nullptr, nullptr, 0,
                                         "");
    EXPECT_EQ(copy.flags, 7u);
    EXPECT_EQ(copy.dest_name, nullptr);
    EXPECT_EQ(copy.src_name, nullptr);
    EXPECT_EQ(copy.ds_name, nullptr);
    NETPACK_msg_free(&copy);
}

TEST(CopyMessage, PartOfAnAttachmentIsLeftOutWithAWarning) {
    NETPACK_message copy;
    StderrCapture err;
    NETPACK_msg_copy_from_parameters_int(&copy, MSG_SERVER_TERMINATE, 0, "d", "s", "x", 1, "");
    EXPECT_EQ(copy.pds, nullptr);
    EXPECT_EQ(copy.sz_ds, 0u);
    NETPACK_msg_free(&copy);
    const std::string lines = err.finish();
    EXPECT_TRUE(has(lines, "WARNING: Source of copy 255 () \"s\" -> \"d\" (1 @ 0x"));
    EXPECT_TRUE(has(lines, ") in a inconsistent state with respect to its attachment ("));
}

TEST(FreeMessage, KeepsTypeAndFlags) {
    NETPACK_message copy;
    NETPACK_msg_copy_from_parameters_int(&copy, MSG_SERVER_TERMINATE, 7, "d", "s", nullptr, 0,
                                         nullptr);
    NETPACK_msg_free(&copy);
    EXPECT_EQ(copy.type, MSG_SERVER_TERMINATE);
    EXPECT_EQ(copy.flags, 7u);
    EXPECT_EQ(copy.dest_name, nullptr);
    NETPACK_msg_free(&copy);
}

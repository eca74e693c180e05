#include "netmsg.h"

#include "support.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

using namespace zeb::test;

namespace {

bool has(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

class Receiver {
  public:
    Receiver() { NETMSG_init_buffer(&buffer); }
    ~Receiver() { NETMSG_delete_buffer(&buffer); }
    Receiver(const Receiver &) = delete;
    Receiver &operator=(const Receiver &) = delete;

    void feed(const Bytes &bytes, size_t from, size_t size) {
        // A block of its own, so that a sanitizer sees any read beyond it.
        std::vector<unsigned char> exact(bytes.begin() + static_cast<long>(from),
                                         bytes.begin() + static_cast<long>(from + size));
        NETMSG_accept_data(exact.data(), exact.size(), &buffer, receive, this);
    }
    void feed(const Bytes &bytes) { feed(bytes, 0, bytes.size()); }
    void feed_in_slices(const Bytes &bytes, size_t slice) {
        for (size_t from = 0; from < bytes.size(); from += slice)
            feed(bytes, from, std::min(slice, bytes.size() - from));
    }

    NETMSG_buffer buffer;
    std::vector<std::string> packets;

  private:
    static void receive(void *data, size_t size, void *param) {
        static_cast<Receiver *>(param)->packets.emplace_back(static_cast<char *>(data), size);
    }
};

class Sender {
  public:
    Sender() { NETMSG_init_buffer(&buffer); }
    ~Sender() { NETMSG_delete_buffer(&buffer); }
    Sender(const Sender &) = delete;
    Sender &operator=(const Sender &) = delete;

    Bytes take(size_t size) {
        Bytes bytes(size);
        size_t generated = 99;
        NETMSG_generate_data(bytes.data(), size, &generated, &buffer, supply, this);
        bytes.resize(generated);
        return bytes;
    }

    NETMSG_buffer buffer;
    std::vector<std::string> queue;
    size_t asked = 0;

  private:
    static void supply(void **data, size_t *size, void *param) {
        auto *sender = static_cast<Sender *>(param);
        ++sender->asked;
        if (sender->queue.empty())
            return;
        const std::string payload = sender->queue.front();
        sender->queue.erase(sender->queue.begin());
        *data = malloc(payload.size() + 1);
        memcpy(*data, payload.data(), payload.size());
        *size = payload.size();
    }
};

Bytes frame(const std::string &payload) {
    Bytes bytes = from_hex("\"2BEZ\" 01 01");
    for (int shift = 0; shift < 32; shift += 8)
        bytes.push_back(static_cast<unsigned char>(payload.size() >> shift));
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return bytes;
}

Bytes operator+(Bytes a, const Bytes &b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Bytes oversized_header(const std::string &length) {
    return from_hex("\"2BEZ\" 01 01 " + length);
}

} // namespace

TEST(Receive, PacketSplitAtEveryByteIsDeliveredOnce) {
    const Bytes bytes = load_hex("three.frames.hex");
    for (size_t split = 0; split <= bytes.size(); ++split) {
        Receiver receiver;
        receiver.feed(bytes, 0, split);
        receiver.feed(bytes, split, bytes.size() - split);
        EXPECT_EQ(receiver.packets, (std::vector<std::string>{"abc", "", "0123456789"})) << split;
    }
}

TEST(Receive, ByteByByte) {
    Receiver receiver;
    receiver.feed_in_slices(load_hex("three.frames.hex"), 1);
    EXPECT_EQ(receiver.packets, (std::vector<std::string>{"abc", "", "0123456789"}));
}

TEST(Receive, ZeroLengthPayloadIsAnEmptyPacket) {
    Receiver receiver;
    receiver.feed(frame(""));
    EXPECT_EQ(receiver.packets, std::vector<std::string>{""});
}

TEST(Receive, GarbageBeforeAHeaderIsSkipped) {
    const Bytes bytes = from_hex("\"garbage2BE2BEZ\" 01 02 \"2\"") + frame("abc");
    for (size_t slice = 1; slice <= bytes.size(); ++slice) {
        Receiver receiver;
        receiver.feed_in_slices(bytes, slice);
        EXPECT_EQ(receiver.packets, std::vector<std::string>{"abc"}) << slice;
    }
}

TEST(Receive, OversizedHeaderIsSkippedAndReported) {
    const Bytes bytes = oversized_header("FF FF 0F 00") + frame("abc");
    for (size_t slice = 1; slice <= bytes.size(); ++slice) {
        Receiver receiver;
        StderrCapture err;
        receiver.feed_in_slices(bytes, slice);
        EXPECT_EQ(receiver.packets, std::vector<std::string>{"abc"}) << slice;
        EXPECT_TRUE(has(err.finish(), "Oversized packet recieved (size specified as 0x000FFFFF "
                                      "bytes) (netmsg.cpp:"));
    }
}

TEST(Receive, HeaderThatBeginsInTheLengthOfAFalseOneIsFound) {
    for (const char *start : {"\"2BEZ\"", "00 \"2BE\"", "00 00 \"2B\"", "00 00 00 \"2\""}) {
        const std::string length = start;
        const size_t shown =
            4 - static_cast<size_t>(std::count(length.begin(), length.end(), '0')) / 2;
        const Bytes whole = frame("abc");
        const Bytes bytes =
            oversized_header(length) + Bytes(whole.begin() + static_cast<long>(shown), whole.end());
        for (size_t slice = 1; slice <= bytes.size(); ++slice) {
            Receiver receiver;
            StderrCapture err;
            receiver.feed_in_slices(bytes, slice);
            EXPECT_EQ(receiver.packets, std::vector<std::string>{"abc"}) << start << " " << slice;
        }
    }
}

TEST(Receive, LongestPacketPassesAndTheNextLengthDoesNot) {
    Receiver receiver;
    receiver.feed_in_slices(frame(std::string(0xFFFFE, 'x')), 65536);
    ASSERT_EQ(receiver.packets.size(), 1u);
    EXPECT_EQ(receiver.packets[0].size(), 0xFFFFEu);
    StderrCapture err;
    receiver.feed_in_slices(frame(std::string(0xFFFFF, 'x')), 65536);
    EXPECT_EQ(receiver.packets.size(), 1u);
    EXPECT_TRUE(has(err.finish(), "Oversized packet"));
}

TEST(Receive, StorageGrowsByPowersOfTwoAndNeverShrinks) {
    Receiver receiver;
    receiver.feed(from_hex("00"));
    EXPECT_EQ(receiver.buffer.sz_buff, 32u); // the smallest
    receiver.feed(Bytes(25));                // 6 in the window + 25 = 31: fits
    EXPECT_EQ(receiver.buffer.sz_buff, 32u);
    receiver.feed(Bytes(26)); // 32 is not below the capacity
    EXPECT_EQ(receiver.buffer.sz_buff, 64u);
    receiver.feed(Bytes(1));
    EXPECT_EQ(receiver.buffer.sz_buff, 64u);
}

TEST(Receive, CountsTheGatheredBytes) {
    Receiver receiver;
    const Bytes bytes = frame("abc");
    receiver.feed(bytes, 0, 11);
    EXPECT_EQ(receiver.buffer.start_buff, 11u);
    receiver.feed(bytes, 11, 2);
    EXPECT_EQ(receiver.buffer.start_buff, 0u);
}

TEST(Receive, RandomGarbageBetweenPacketsInSlicesOf256) {
    std::mt19937 random(1);
    Bytes bytes;
    std::vector<std::string> expected;
    for (int i = 0; i < 2000; ++i) {
        Bytes garbage(random() % 100);
        for (auto &byte : garbage) // no half header, which would swallow the next one
            byte = static_cast<unsigned char>(random() % 0x32);
        std::string payload(random() % 700, 'x');
        for (char &c : payload)
            c = static_cast<char>(random());
        expected.push_back(payload);
        bytes = bytes + garbage + frame(payload);
    }
    Receiver receiver;
    receiver.feed_in_slices(bytes, 256);
    EXPECT_EQ(receiver.packets, expected);
    Receiver at_once;
    at_once.feed(bytes);
    EXPECT_EQ(at_once.packets, expected);
}

// Either of these recursed once per packet or header would exhaust the stack; repeated copies of
// the rest would never end.
TEST(Receive, ManySmallPacketsInOneCall) {
    const Bytes one = frame("");
    Bytes bytes;
    for (int i = 0; i < 300000; ++i)
        bytes.insert(bytes.end(), one.begin(), one.end());
    Receiver receiver;
    receiver.feed(bytes);
    EXPECT_EQ(receiver.packets.size(), 300000u);
}

TEST(Receive, ManyOversizedHeadersInOneCall) {
    const Bytes one = oversized_header("FF FF FF FF");
    Bytes bytes;
    for (int i = 0; i < 100000; ++i)
        bytes.insert(bytes.end(), one.begin(), one.end());
    Receiver receiver;
    StderrCapture err;
    receiver.feed(bytes + frame("abc"));
    EXPECT_EQ(receiver.packets, std::vector<std::string>{"abc"});
    const std::string text = err.finish();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 100000);
}

TEST(Receive, AMegabyteOfGarbageKeepsTheBufferBounded) {
    Receiver receiver;
    receiver.feed(Bytes(8 << 20, '2') + frame("abc"));
    EXPECT_EQ(receiver.packets, std::vector<std::string>{"abc"});
    EXPECT_LE(receiver.buffer.sz_buff, size_t{4} << 20);
}

TEST(Receive, CallbackMayDeleteTheBuffer) {
    NETMSG_buffer buffer;
    NETMSG_init_buffer(&buffer);
    const Bytes bytes = load_hex("three.frames.hex");
    NETMSG_accept_data(
        bytes.data(), bytes.size(), &buffer,
        [](void *, size_t, void *param) {
            NETMSG_delete_buffer(static_cast<NETMSG_buffer *>(param));
        },
        &buffer);
    EXPECT_EQ(buffer.buff, nullptr);
}

TEST(Receive, MissingArgumentsAreReported) {
    StderrCapture err;
    NETMSG_accept_data("x", 1, nullptr, nullptr, nullptr);
    EXPECT_TRUE(has(err.finish(), "assertion failed (netmsg.cpp:"));
}

TEST(Send, FramesWhatTheCallbackSupplies) {
    Sender sender;
    sender.queue = {"abc", "0123456789"};
    EXPECT_EQ(sender.take(1000), frame("abc") + frame("0123456789"));
    EXPECT_EQ(sender.asked, 3u);
    EXPECT_FALSE(NETMSG_buffer_pending(&sender.buffer));
}

TEST(Send, TwentyBytesInPiecesOfThree) {
    Sender sender;
    sender.queue = {"0123456789"};
    Bytes all;
    for (size_t expected : {3u, 3u, 3u, 3u, 3u, 3u, 2u}) {
        const Bytes piece = sender.take(3);
        EXPECT_EQ(piece.size(), expected);
        all = all + piece;
    }
    EXPECT_EQ(all, frame("0123456789"));
    EXPECT_TRUE(sender.take(3).empty());
}

TEST(Send, PendingWhileBytesAreLeft) {
    Sender sender;
    EXPECT_FALSE(NETMSG_buffer_pending(&sender.buffer));
    sender.queue = {"a"};
    sender.take(10);
    EXPECT_TRUE(NETMSG_buffer_pending(&sender.buffer));
    sender.take(1);
    EXPECT_FALSE(NETMSG_buffer_pending(&sender.buffer));
}

TEST(Send, FullDestinationAsksForNothing) {
    Sender sender;
    sender.queue = {"a", "b"};
    EXPECT_EQ(sender.take(11), frame("a"));
    EXPECT_EQ(sender.asked, 1u);
    EXPECT_TRUE(sender.take(0).empty());
    EXPECT_EQ(sender.asked, 1u);
}

TEST(Send, EmptyPayloadMeansNothingMore) {
    Sender sender;
    sender.queue = {"", "a"};
    EXPECT_TRUE(sender.take(100).empty());
    EXPECT_EQ(sender.asked, 1u);
    EXPECT_EQ(sender.take(100), frame("a"));
}

TEST(Send, OversizedPayloadIsDroppedAndEndsTheCall) {
    Sender sender;
    sender.queue = {"a", std::string(0xFFFFF, 'x'), "b"};
    StderrCapture err;
    EXPECT_EQ(sender.take(100), frame("a"));
    EXPECT_TRUE(has(err.finish(), "Maxium packet size exceeded, packet will not be sent "
                                  "(netmsg.cpp:"));
    EXPECT_EQ(sender.asked, 2u);
    EXPECT_EQ(sender.take(100), frame("b"));
}

TEST(Send, LongestPayloadIsSent) {
    Sender sender;
    sender.queue = {std::string(0xFFFFE, 'x')};
    EXPECT_EQ(sender.take(2 << 20).size(), 0xFFFFEu + 10);
}

TEST(Send, StorageIsAPowerOfTwoOfAtLeast32) {
    Sender sender;
    sender.queue = {"a"};
    sender.take(100);
    EXPECT_EQ(sender.buffer.sz_buff, 32u);
    sender.queue = {std::string(22, 'x')}; // 32 bytes: fits exactly
    sender.take(100);
    EXPECT_EQ(sender.buffer.sz_buff, 32u);
    sender.queue = {std::string(54, 'x')}; // 64 bytes are rounded up to the next power
    sender.take(100);
    EXPECT_EQ(sender.buffer.sz_buff, 128u);
}

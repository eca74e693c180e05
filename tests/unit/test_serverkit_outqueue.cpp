#include "serverkit/outqueue.h"

#include <gtest/gtest.h>
#include <string>

using serverkit::Frame;
using serverkit::OutQueue;

namespace {

std::string waiting(const OutQueue &queue) {
    iovec blocks[16];
    const size_t count = queue.gather(blocks, 16);
    std::string all;
    for (size_t i = 0; i < count; ++i)
        all.append(static_cast<const char *>(blocks[i].iov_base), blocks[i].iov_len);
    return all;
}

TEST(OutQueue, FramesLeaveInTheirOrderWhateverIsTaken) {
    const Frame a = Frame::of_payload("first");
    const Frame b = Frame::of_payload("second");
    const std::string all = std::string(a.data(), a.size()) + std::string(b.data(), b.size());
    for (size_t step = 1; step <= all.size(); ++step) {
        OutQueue queue(10000);
        ASSERT_TRUE(queue.push(a));
        ASSERT_TRUE(queue.push(b));
        std::string sent;
        while (!queue.empty()) {
            const std::string some = waiting(queue).substr(0, step);
            sent += some;
            queue.consume(some.size());
        }
        EXPECT_EQ(sent, all) << step;
        EXPECT_EQ(queue.bytes(), 0u);
    }
}

TEST(OutQueue, TwoQueuesShareTheBytesOfAFrame) {
    const Frame frame = Frame::of_payload("shared");
    OutQueue one(1000), two(1000);
    one.push(frame);
    two.push(frame);
    iovec a, b;
    one.gather(&a, 1);
    two.gather(&b, 1);
    EXPECT_EQ(a.iov_base, b.iov_base);
}

TEST(OutQueue, AFrameOverTheLimitIsRefusedAndTheQueueUnchanged) {
    const Frame frame = Frame::of_payload(std::string(90, 'x')); // 100 bytes and 64 for the queue
    OutQueue queue(2 * 164);
    EXPECT_TRUE(queue.push(frame));
    EXPECT_TRUE(queue.push(frame));
    EXPECT_FALSE(queue.push(frame));
    EXPECT_EQ(queue.frames(), 2u);
    EXPECT_EQ(queue.bytes(), 200u);
    queue.consume(100);
    EXPECT_TRUE(queue.push(frame));
}

TEST(OutQueue, ManyTinyFramesReachTheLimitToo) {
    OutQueue queue(64 * 1024);
    const Frame frame = Frame::of_payload("");
    size_t count = 0;
    while (queue.push(frame))
        ++count;
    EXPECT_EQ(count, 65536u / 74);
}

} // namespace

// outqueue.h - what waits to be sent to one client: a bounded queue of shared frames.
#pragma once

#include "frame.h"

#include <deque>
#include <sys/uio.h>

namespace serverkit {

class OutQueue {
  public:
    // Counted against the limit for each frame beside its bytes: what the queue itself costs.
    static constexpr size_t k_frame_cost = 64;

    explicit OutQueue(size_t limit) : limit_(limit) {}

    // False when the frame would go over the limit; the queue is then unchanged.
    bool push(const Frame &frame);
    // The first blocks to send; the number of them.
    size_t gather(iovec *blocks, size_t most) const;
    // Takes off what was sent.
    void consume(size_t count);

    bool empty() const { return frames_.empty(); }
    size_t bytes() const { return bytes_; }
    size_t frames() const { return frames_.size(); }
    size_t limit() const { return limit_; }
    size_t load() const { return bytes_ + frames_.size() * k_frame_cost; }

  private:
    std::deque<Frame> frames_;
    size_t offset_ = 0; // bytes of the first frame already sent
    size_t bytes_ = 0;  // not yet sent
    size_t limit_;
};

} // namespace serverkit

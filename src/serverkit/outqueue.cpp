#include "outqueue.h"

#include <algorithm>

namespace serverkit {

bool OutQueue::push(const Frame &frame) {
    if (load() + frame.size() + k_frame_cost > limit_)
        return false;
    frames_.push_back(frame);
    bytes_ += frame.size();
    return true;
}

size_t OutQueue::gather(iovec *blocks, size_t most) const {
    const size_t count = std::min(most, frames_.size());
    size_t offset = offset_;
    for (size_t i = 0; i < count; ++i) {
        const Frame &frame = frames_[i];
        blocks[i] = {const_cast<char *>(frame.data()) + offset, frame.size() - offset};
        offset = 0;
    }
    return count;
}

void OutQueue::consume(size_t count) {
    bytes_ -= count;
    offset_ += count;
    while (!frames_.empty() && offset_ >= frames_.front().size()) {
        offset_ -= frames_.front().size();
        frames_.pop_front();
    }
}

} // namespace serverkit

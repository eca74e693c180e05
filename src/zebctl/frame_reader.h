// frame_reader.h - frames cut from a file or a pipe, with their places in it.
#pragma once

#include "recording.h"

namespace zebctl {

// Whether a payload is a message and nothing more, record included.
bool is_whole_message(std::string_view payload);

// Cuts a stream into frames as a link does, and looks closer where one is not followed by another:
// a frame that was cut short would take the next ones for its payload.
class FrameReader {
  public:
    FrameReader(ByteWindow &window, FaultSink fault) : window_(window), fault_(std::move(fault)) {}

    // The next frame and its offset; false at the end.
    bool next(uint64_t &offset, std::string_view &frame);

  private:
    enum class Verdict { frame, torn, none };
    Verdict examine(std::string_view &frame);
    bool holds_signature(size_t size);
    bool is_credible(size_t size);
    void tell_of_garbage();

    ByteWindow &window_;
    FaultSink fault_;
    CheckBudget budget_;
    size_t taken_ = 0;
    uint64_t garbage_at_ = 0;
    bool in_garbage_ = false;
    bool in_torn_ = false;
};

} // namespace zebctl

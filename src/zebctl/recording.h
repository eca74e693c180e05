// recording.h - recordings of the station's traffic: frames with the times of their arrival
// (docs/formats/recording.md).
//
// Each entry can be found and checked by itself: a recording that was cut, or that has something
// else in its middle, loses the entries concerned and no others.
#pragma once

#include <string>
#include <string_view>

#include <zeb2/port.h>

#include "byte_window.h"

namespace zebctl {

constexpr std::string_view k_recording_line = "ZEB2 recording 1\n"; // what a recording begins with
constexpr size_t k_entry_header = 18;                               // of an entry, before its frame

struct RecordingEntry {
    uint64_t offset = 0; // in the recording
    FTIME time = -1;
    std::string_view frame; // whole, header included; valid until the next entry is asked for
    std::string_view payload() const { return frame.substr(10); }
};

// Appends an entry to `out`. The frame is whole.
void append_entry(std::string &out, FTIME time, std::string_view frame);

// Gets a place and what is wrong there.
using FaultSink = std::function<void(uint64_t offset, const std::string &what)>;

// Made to measure, a file could have a megabyte checked for each few of its bytes. Beyond a share
// of what was read, a reader checks no more.
class CheckBudget {
  public:
    bool allows(size_t size, uint64_t offset) const;
    void spend(size_t size) { spent_ += size; }

  private:
    uint64_t spent_ = 0; // bytes checked in vain
};

class RecordingReader {
  public:
    RecordingReader(ByteWindow &window, FaultSink fault)
        : window_(window), fault_(std::move(fault)) {}

    // False when the stream does not begin as a recording does, which is left to the caller to say.
    bool open();
    // False at the end.
    bool next(RecordingEntry &entry);

  private:
    enum class Verdict { good, torn, none };
    Verdict examine(RecordingEntry &entry);
    void skip_to_mark();
    void tell_of_garbage();

    ByteWindow &window_;
    FaultSink fault_;
    CheckBudget budget_;
    size_t taken_ = 0;        // bytes of the entry handed out last
    uint64_t garbage_at_ = 0; // where it began
    bool in_garbage_ = false; // bytes of no entry are being skipped
    bool in_torn_ = false;    // likewise, the rest of an entry that was named
};

} // namespace zebctl

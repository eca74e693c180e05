// replayer.h - a recording sent to a message server again, frame by frame at its own pace.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <string>

#include <zeb2/util.h>

#include "byte_faults.h"
#include "frame_link.h"
#include "message_choice.h"
#include "recording.h"

namespace zebctl {

struct ReplayOptions {
    std::string name;        // on the server
    std::string host;        // empty: the local server
    bool as_sources = false; // each source by a link of its own name
    bool take_over = false;  // even from programs that are connected
    bool fast = false;       // no pauses
    double speed = 1;
    double longest_pause = -1; // s, of the recording's time; negative: any
    MessageChoice choice;
};

class Replayer {
  public:
    Replayer(const ReplayOptions &options, ByteFaults &faults);

    // Sends what the stream of this name holds; `size` in bytes for the progress, 0 when unknown.
    // The exit status, after a report.
    int run(ByteWindow &window, const std::string &name, uint64_t size);
    // Answers the server until there is something to read. False when the program is to end or a
    // link has ended.
    bool attend(int fd);

  private:
    using Clock = std::chrono::steady_clock;

    bool open_own();
    bool send_all(RecordingReader &reader);
    bool send(const RecordingEntry &entry);
    bool send_as_source(const serverkit::Message &message, std::string_view payload);
    bool send_on(FrameLink &link, std::string_view payload);
    bool leave_as(const std::string &source);
    FrameLink *link_of(const std::string &source);
    FrameLink *open_link(const std::string &name);
    bool may_be(const std::string &source);
    bool wait_for_turn(FTIME time);
    bool settle(FrameLink &link);
    bool step(double seconds);
    bool is_sound();
    void show_progress(bool last);

    // Names differ in more than case, for the server.
    struct Before {
        bool operator()(const std::string &a, const std::string &b) const {
            return UTIL_strcasecmp(a.c_str(), b.c_str()) < 0;
        }
    };

    const ReplayOptions &options_;
    ByteFaults &faults_;
    std::map<std::string, std::unique_ptr<FrameLink>, Before> links_;
    FrameLink *latest_ = nullptr; // with frames that the server may not have passed on yet
    std::string answered_;        // name of the link whose question came back
    Clock::time_point started_;
    FTIME time_ = -1;    // of the latest entry
    double elapsed_ = 0; // s after the start, when it is due
    uint64_t offset_ = 0, size_ = 0;
    long sent_ = 0, left_out_ = 0;
    bool shows_;
    Clock::time_point shown_;
};

} // namespace zebctl

// decode.h - what files hold: recordings, frames, messages and packages, shown by what they say of
// themselves.
#pragma once

#include <functional>
#include <string>

#include <zeb2/port.h>

#include "byte_faults.h"
#include "byte_window.h"
#include "message_choice.h"

namespace zebctl {

struct DecodeOptions {
    enum class Kind { any, recording, frames, message, package };
    Kind kind = Kind::any;
    bool json = false;
    bool types = false;    // JSON: the fields' types also where the catalogue has them
    std::string structure; // of a raw package
    MessageChoice choice;
    uint64_t count = UINT64_MAX; // stop after so many
};

class Decoder {
  public:
    // Gets the output piece by piece; false when nobody wants more.
    using Output = std::function<bool(std::string_view)>;
    Decoder(const DecodeOptions &options, ByteFaults &faults, Output output)
        : options_(options), faults_(faults), output_(std::move(output)) {}

    // Shows all that a stream holds, or as much as was asked for.
    void decode(ByteWindow &window);
    // Hands on what is ready.
    void flush();

  private:
    using Kind = DecodeOptions::Kind;
    Kind kind_of(ByteWindow &window) const;
    bool is_done() const { return shown_ >= options_.count || broken_; }
    void decode_recording(ByteWindow &window);
    void decode_frames(ByteWindow &window);
    void decode_whole(ByteWindow &window, bool is_package);
    void show_payload(uint64_t offset, FTIME time, std::string_view payload);
    void show_package(uint64_t offset, const std::string &name, std::string_view structure,
                      std::string_view package);
    void show_record_json(uint64_t offset, const std::string &name, const std::string &structure,
                          std::string_view package);
    void show_record_text(uint64_t offset, const std::string &name, const std::string &structure,
                          std::string_view package);
    void show_unknown(uint64_t offset, FTIME time, std::string_view payload);
    void append_place(uint64_t offset, FTIME time);
    void end_of_one();

    const DecodeOptions &options_;
    ByteFaults &faults_;
    Output output_;
    std::string out_;
    uint64_t shown_ = 0;
    bool broken_ = false;
};

} // namespace zebctl

// frame.h - packets as they travel: a header of ten bytes and the payload, in one immutable block
// that all of its receivers share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

namespace serverkit {

constexpr size_t k_frame_header = 10;                // magic, version, payload length
constexpr uint32_t k_payload_limit = 0xFFFFF;        // a payload is always shorter
constexpr char k_frame_signature[] = "2BEZ\x01\x01"; // magic and version

class Frame {
  public:
    Frame() = default;
    // A frame whose payload is still to be filled in. Empty when it is too long or memory is short.
    static Frame blank(size_t payload_size);
    // Frames a payload. Empty as above.
    static Frame of_payload(std::string_view payload);

    explicit operator bool() const { return bytes_ != nullptr; }
    const char *data() const { return bytes_.get(); }
    size_t size() const { return size_; }
    std::string_view payload() const {
        return {bytes_.get() + k_frame_header, size_ - k_frame_header};
    }
    // Where the payload goes, for whoever made the frame and has not yet passed it on.
    char *to_fill() { return bytes_.get() + k_frame_header; }

  private:
    std::shared_ptr<char[]> bytes_;
    size_t size_ = 0;
};

// Numbers are little-endian, like everything on the wire.
uint32_t read_u32(const char *bytes);
char *put_number(char *out, size_t value, int bytes); // returns the place behind it
char *put_bytes(char *out, std::string_view bytes);   // likewise

} // namespace serverkit

// wire.h - messages as they travel: a view of one without unpacking its record, and the immutable
// framed block that all of its receivers share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

namespace zebmsgd {

constexpr size_t k_frame_header = 10;                // magic, version, payload length
constexpr uint32_t k_payload_limit = 0xFFFFF;        // a payload is always shorter
constexpr char k_frame_signature[] = "2BEZ\x01\x01"; // magic and version

constexpr uint32_t k_flag_publish = 1; // to every other client
constexpr uint32_t k_flag_retain = 2;  // kept for the clients that connect later

// A message in the bytes that it was parsed from.
struct Message {
    uint32_t flags = 0;
    std::string_view name; // of the message's type
    std::string_view destination;
    std::string_view source;
    std::string_view record; // name of the attached record's type, empty when there is none
    std::string_view rest;   // the package and whatever follows it
};

// Nothing when the payload ends before its announced fields, or has no message name.
std::optional<Message> parse_message(std::string_view payload);

// A framed message: one block of memory, shared and never changed.
class Frame {
  public:
    Frame() = default;
    // Frames a packed message. Empty when it is too long or memory is short.
    static Frame of_payload(std::string_view payload);
    // Packs and frames `message` with another source name. Empty as above.
    static Frame of_message(const Message &message, std::string_view source);

    explicit operator bool() const { return bytes_ != nullptr; }
    const char *data() const { return bytes_.get(); }
    size_t size() const { return size_; }
    std::string_view payload() const {
        return {bytes_.get() + k_frame_header, size_ - k_frame_header};
    }

  private:
    static Frame allocate(size_t payload_size);
    std::shared_ptr<char[]> bytes_;
    size_t size_ = 0;
};

// Little-endian, like everything on the wire.
uint32_t read_u32(const char *bytes);

} // namespace zebmsgd

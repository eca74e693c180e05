#include "wire.h"

#include <cstring>
#include <new>

namespace zebmsgd {
namespace {

// Takes fields off the front of a message and remembers when there was not enough.
class Reader {
  public:
    explicit Reader(std::string_view bytes) : bytes_(bytes) {}

    std::string_view take(size_t count) {
        if (count > bytes_.size()) {
            short_ = true;
            count = bytes_.size();
        }
        const std::string_view field = bytes_.substr(0, count);
        bytes_.remove_prefix(count);
        return field;
    }

    std::string_view take_string() {
        const std::string_view length = take(2);
        if (short_)
            return {};
        const auto low = static_cast<unsigned char>(length[0]);
        const auto high = static_cast<unsigned char>(length[1]);
        return take(static_cast<size_t>(low | high << 8));
    }

    std::string_view rest() const { return bytes_; }
    bool ran_short() const { return short_; }

  private:
    std::string_view bytes_;
    bool short_ = false;
};

char *put_bytes(char *out, std::string_view bytes) {
    if (!bytes.empty())
        memcpy(out, bytes.data(), bytes.size());
    return out + bytes.size();
}

char *put_number(char *out, size_t value, int bytes) {
    for (int i = 0; i < bytes; ++i)
        *out++ = static_cast<char>(value >> (8 * i) & 0xff);
    return out;
}

char *put_string(char *out, std::string_view text) {
    return put_bytes(put_number(out, text.size(), 2), text);
}

} // namespace

uint32_t read_u32(const char *bytes) {
    uint32_t value = 0;
    for (int i = 3; i >= 0; --i)
        value = value << 8 | static_cast<unsigned char>(bytes[i]);
    return value;
}

std::optional<Message> parse_message(std::string_view payload) {
    Reader reader(payload);
    Message message;
    const std::string_view flags = reader.take(4);
    if (reader.ran_short())
        return std::nullopt;
    message.flags = read_u32(flags.data());
    message.name = reader.take_string();
    message.destination = reader.take_string();
    message.source = reader.take_string();
    message.record = reader.take_string();
    message.rest = reader.rest();
    if (reader.ran_short() || message.name.empty())
        return std::nullopt;
    return message;
}

Frame Frame::allocate(size_t payload_size) {
    Frame frame;
    if (payload_size >= k_payload_limit)
        return frame;
    try {
        frame.bytes_ = std::make_shared_for_overwrite<char[]>(k_frame_header + payload_size);
    } catch (const std::bad_alloc &) {
        return frame;
    }
    frame.size_ = k_frame_header + payload_size;
    char *out = put_bytes(frame.bytes_.get(), {k_frame_signature, 6});
    put_number(out, payload_size, 4);
    return frame;
}

Frame Frame::of_payload(std::string_view payload) {
    Frame frame = allocate(payload.size());
    if (frame)
        put_bytes(frame.bytes_.get() + k_frame_header, payload);
    return frame;
}

Frame Frame::of_message(const Message &message, std::string_view source) {
    const size_t names =
        message.name.size() + message.destination.size() + source.size() + message.record.size();
    Frame frame = allocate(4 + 4 * 2 + names + message.rest.size());
    if (!frame)
        return frame;
    char *out = put_number(frame.bytes_.get() + k_frame_header, message.flags, 4);
    out = put_string(out, message.name);
    out = put_string(out, message.destination);
    out = put_string(out, source);
    out = put_string(out, message.record);
    put_bytes(out, message.rest);
    return frame;
}

} // namespace zebmsgd

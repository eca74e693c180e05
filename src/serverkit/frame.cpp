#include "frame.h"

#include <cstring>
#include <new>

namespace serverkit {

uint32_t read_u32(const char *bytes) {
    uint32_t value = 0;
    for (int i = 3; i >= 0; --i)
        value = value << 8 | static_cast<unsigned char>(bytes[i]);
    return value;
}

char *put_number(char *out, size_t value, int bytes) {
    for (int i = 0; i < bytes; ++i)
        *out++ = static_cast<char>(value >> (8 * i) & 0xff);
    return out;
}

char *put_bytes(char *out, std::string_view bytes) {
    if (!bytes.empty())
        memcpy(out, bytes.data(), bytes.size());
    return out + bytes.size();
}

Frame Frame::blank(size_t payload_size) {
    Frame frame;
    if (payload_size >= k_payload_limit)
        return frame;
    try {
        frame.bytes_ = std::make_shared_for_overwrite<char[]>(k_frame_header + payload_size);
    } catch (const std::bad_alloc &) {
        return frame;
    }
    frame.size_ = k_frame_header + payload_size;
    char *out = put_bytes(frame.bytes_.get(), {k_frame_signature, sizeof k_frame_signature - 1});
    put_number(out, payload_size, 4);
    return frame;
}

Frame Frame::of_payload(std::string_view payload) {
    Frame frame = blank(payload.size());
    if (frame)
        put_bytes(frame.to_fill(), payload);
    return frame;
}

} // namespace serverkit

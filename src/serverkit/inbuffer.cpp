#include "inbuffer.h"

#include <algorithm>
#include <cstring>

namespace serverkit {
namespace {

constexpr size_t k_signature = sizeof k_frame_signature - 1;
constexpr size_t k_growth = 65536;
constexpr size_t k_kept_capacity = 16384; // an idle client keeps no more than this
constexpr size_t k_direct = 4096;         // below this a copy is cheaper than a second block

// Offset of the first place that is, or may with more bytes become, the signature.
size_t find_signature(std::string_view bytes) {
    for (size_t at = 0; at < bytes.size(); ++at) {
        at = std::min(bytes.find(k_frame_signature[0], at), bytes.size());
        const size_t length = std::min(k_signature, bytes.size() - at);
        if (bytes.compare(at, length, k_frame_signature, length) == 0)
            return at;
    }
    return bytes.size();
}

uint32_t payload_length(const char *header) {
    return read_u32(header + k_signature);
}

} // namespace

size_t InBuffer::missing() const {
    if (size_ < k_frame_header)
        return k_frame_header - size_;
    return k_frame_header + payload_length(piece_.get()) - size_;
}

bool InBuffer::reserve(size_t capacity) {
    if (capacity <= capacity_)
        return true;
    auto *grown = static_cast<char *>(realloc(piece_.get(), capacity));
    if (grown == nullptr)
        return false;
    (void)piece_.release();
    piece_.reset(grown);
    capacity_ = capacity;
    return true;
}

void InBuffer::release() {
    if (size_ != 0 || capacity_ <= k_kept_capacity)
        return;
    piece_.reset();
    capacity_ = 0;
}

bool InBuffer::append(std::string_view bytes) {
    if (bytes.empty())
        return true;
    if (!reserve(size_ + bytes.size() <= capacity_ ? capacity_
                                                   : std::max<size_t>(256, size_ + bytes.size())))
        return false;
    memcpy(piece_.get() + size_, bytes.data(), bytes.size());
    size_ += bytes.size();
    return true;
}

// Hands out the whole packets at the front of `bytes` and cuts them off; what stays begins with an
// incomplete packet.
bool InBuffer::take_packets(const Sink &sink, std::string_view &bytes) {
    while (!bytes.empty()) {
        const size_t skipped = find_signature(bytes);
        garbage_ += skipped;
        bytes.remove_prefix(skipped);
        if (bytes.size() < k_frame_header)
            return true;
        const uint32_t length = payload_length(bytes.data());
        if (length >= k_payload_limit) { // a false header: go on looking one byte further
            ++garbage_;
            bytes.remove_prefix(1);
            continue;
        }
        if (bytes.size() < k_frame_header + length)
            return true;
        const std::string_view payload = bytes.substr(k_frame_header, length);
        bytes.remove_prefix(k_frame_header + length);
        if (!sink(payload))
            return false;
    }
    return true;
}

// Hands out the kept piece if it has become whole.
bool InBuffer::digest(const Sink &sink) {
    std::string_view bytes(piece_.get(), size_);
    const bool going = take_packets(sink, bytes);
    if (!bytes.empty())
        memmove(piece_.get(), bytes.data(), bytes.size());
    size_ = bytes.size();
    return going;
}

bool InBuffer::accept(std::string_view bytes, const Sink &sink) {
    while (size_ > 0 && !bytes.empty()) {
        const size_t count = std::min(missing(), bytes.size());
        if (!append(bytes.substr(0, count)) || !digest(sink))
            return false;
        bytes.remove_prefix(count);
    }
    const bool going = take_packets(sink, bytes) && append(bytes);
    release();
    return going;
}

int InBuffer::prepare(iovec (&blocks)[2], char *scratch, size_t scratch_size) {
    int used = 0;
    const size_t wanted = size_ < k_frame_header ? 0 : missing();
    if (wanted > k_direct) {
        const size_t room = std::min(wanted, std::max(k_growth, size_));
        if (!reserve(size_ + room))
            return 0;
        blocks[used++] = {piece_.get() + size_, room};
        if (room < wanted)
            return used;
    }
    blocks[used++] = {scratch, scratch_size};
    return used;
}

bool InBuffer::commit(size_t count, const iovec (&blocks)[2], int used, const Sink &sink) {
    int next = 0;
    if (used > 0 && size_ > 0 && blocks[0].iov_base == piece_.get() + size_) {
        const size_t direct = std::min(count, blocks[0].iov_len);
        size_ += direct;
        count -= direct;
        next = 1;
        if (missing() == 0 && !digest(sink))
            return false;
    }
    if (count == 0) {
        release();
        return true;
    }
    return accept({static_cast<const char *>(blocks[next].iov_base), count}, sink);
}

} // namespace serverkit

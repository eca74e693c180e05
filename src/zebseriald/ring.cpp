#include "ring.h"

#include <algorithm>
#include <cstring>

namespace zebseriald {
namespace {

// Writers that take turns byte by byte would otherwise cost more than the bytes themselves.
constexpr size_t k_bytes_per_segment = 16;
constexpr size_t k_fewest_segments = 64;

} // namespace

ByteSet bytes_of(std::string_view text) {
    ByteSet set;
    for (const char c : text)
        set.set(static_cast<unsigned char>(c));
    return set;
}

void Ring::append(std::string_view bytes) {
    const uint64_t end = end_ + bytes.size();
    if (bytes.size() > capacity_)
        bytes.remove_prefix(bytes.size() - capacity_);
    held_ = std::min(held_ + bytes.size(), capacity_);
    uint64_t at = end - bytes.size();
    end_ = end;
    while (!bytes.empty()) {
        const size_t offset = static_cast<size_t>(at % capacity_);
        const size_t count = std::min(bytes.size(), capacity_ - offset);
        memcpy(bytes_.get() + offset, bytes.data(), count);
        bytes.remove_prefix(count);
        at += count;
    }
}

void Ring::resize(size_t capacity) {
    if (capacity == capacity_)
        return;
    // Pages that are never filled cost nothing.
    auto bytes = capacity == 0 ? nullptr : std::make_unique_for_overwrite<char[]>(capacity);
    const size_t kept = std::min(held_, capacity);
    uint64_t at = end_ - kept;
    while (at < end_) {
        const std::string_view part = piece(at);
        for (size_t i = 0; i < part.size(); ++i)
            bytes[static_cast<size_t>((at + i) % capacity)] = part[i];
        at += part.size();
    }
    bytes_ = std::move(bytes);
    capacity_ = capacity;
    held_ = kept;
}

std::string_view Ring::piece(uint64_t from) const {
    const size_t offset = static_cast<size_t>(from % capacity_);
    const uint64_t left = end_ - from;
    return {bytes_.get() + offset,
            static_cast<size_t>(std::min<uint64_t>(left, capacity_ - offset))};
}

void Ring::copy(uint64_t from, size_t count, char *out) const {
    while (count > 0) {
        const std::string_view part = piece(from).substr(0, count);
        memcpy(out, part.data(), part.size());
        out += part.size();
        from += part.size();
        count -= part.size();
    }
}

std::optional<uint64_t> Ring::find(const ByteSet &set, uint64_t from) const {
    while (from < end_) {
        for (const char c : piece(from)) {
            ++from;
            if (set.test(static_cast<unsigned char>(c)))
                return from;
        }
    }
    return std::nullopt;
}

void EchoLog::append(uint64_t writer, std::string_view bytes) {
    if (bytes.empty() || ring_.capacity() == 0)
        return;
    ring_.append(bytes);
    if (!segments_.empty() && segments_.back().writer == writer)
        segments_.back().end = ring_.end();
    else
        segments_.push_back({writer, ring_.end()});
    trim();
}

void EchoLog::resize(size_t capacity) {
    ring_.resize(capacity);
    trim();
}

void EchoLog::trim() {
    const size_t most = std::max(k_fewest_segments, ring_.capacity() / k_bytes_per_segment);
    while (!segments_.empty() &&
           (segments_.size() > most || segments_.front().end <= ring_.begin())) {
        begin_ = segments_.front().end;
        segments_.pop_front();
    }
    begin_ = std::max(begin_, ring_.begin());
}

std::string EchoLog::of_others(uint64_t reader, uint64_t from) const {
    std::string result;
    uint64_t at = begin_;
    for (const Segment &segment : segments_) {
        const uint64_t start = std::max(at, from);
        at = segment.end;
        if (segment.writer == reader || segment.end <= start)
            continue;
        const size_t old = result.size();
        const size_t count = static_cast<size_t>(segment.end - start);
        result.resize(old + count);
        ring_.copy(start, count, result.data() + old);
    }
    return result;
}

} // namespace zebseriald

// ring.h - the latest bytes of an endless stream, and what several writers put into one.
//
// A position is the number of bytes that the stream had before it. Each reader keeps one of its
// own; what is no longer held is lost to those who were too slow.
#pragma once

#include <bitset>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace zebseriald {

using ByteSet = std::bitset<256>;

ByteSet bytes_of(std::string_view text);

class Ring {
  public:
    explicit Ring(size_t capacity) { resize(capacity); }

    void append(std::string_view bytes); // the oldest go first
    void resize(size_t capacity);        // the newest stay

    uint64_t begin() const { return end_ - held_; }
    uint64_t end() const { return end_; }
    size_t capacity() const { return capacity_; }

    // Copies `count` bytes from a position on; both must be held.
    void copy(uint64_t from, size_t count, char *out) const;
    // The position behind the first byte of a set, looked for from a held position on.
    std::optional<uint64_t> find(const ByteSet &set, uint64_t from) const;

  private:
    std::string_view piece(uint64_t from) const; // up to the end or to the edge of the storage

    std::unique_ptr<char[]> bytes_;
    size_t capacity_ = 0;
    size_t held_ = 0;
    uint64_t end_ = 0;
};

// What was written by whom.
class EchoLog {
  public:
    explicit EchoLog(size_t capacity) : ring_(capacity) {}

    void append(uint64_t writer, std::string_view bytes);
    void resize(size_t capacity);
    size_t capacity() const { return ring_.capacity(); }
    uint64_t end() const { return ring_.end(); }

    // What everybody but `reader` wrote from a position on.
    std::string of_others(uint64_t reader, uint64_t from) const;

  private:
    struct Segment {
        uint64_t writer;
        uint64_t end; // it begins where the one before it ends
    };
    void trim();

    Ring ring_;
    std::deque<Segment> segments_;
    uint64_t begin_ = 0; // of the first segment
};

} // namespace zebseriald

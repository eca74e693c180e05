// inbuffer.h - cuts what a client sends into packets.
//
// Packets that arrive whole are handed out where they lie; only a piece that is still incomplete is
// kept, in storage that grows with the bytes received and not with the length that was announced.
#pragma once

#include "frame.h"

#include <cstdlib>
#include <functional>
#include <memory>
#include <sys/uio.h>

namespace serverkit {

// The whole packet of a payload that a sink was given.
inline std::string_view frame_around(std::string_view payload) {
    return {payload.data() - k_frame_header, payload.size() + k_frame_header};
}

class InBuffer {
  public:
    // Gets the payload of each packet, behind whose header it lies (see frame_around()); false
    // stops the work and drops what remains.
    using Sink = std::function<bool(std::string_view payload)>;

    // Where the next bytes are to be read: into the piece of a long packet and behind it into
    // `scratch`. Returns the number of blocks, 0 when memory is short.
    int prepare(iovec (&blocks)[2], char *scratch, size_t scratch_size);
    // Takes the `count` bytes that were read into the blocks of prepare(). False when the sink
    // stopped it or memory is short.
    bool commit(size_t count, const iovec (&blocks)[2], int used, const Sink &sink);
    // The same for bytes from anywhere.
    bool accept(std::string_view bytes, const Sink &sink);

    size_t pending() const { return size_; }
    // Bytes skipped because they were no packet.
    size_t garbage() const { return garbage_; }

  private:
    struct Free {
        void operator()(char *block) const { free(block); }
    };
    size_t missing() const;
    bool reserve(size_t capacity);
    bool append(std::string_view bytes);
    bool take_packets(const Sink &sink, std::string_view &bytes);
    bool digest(const Sink &sink);
    void release();

    std::unique_ptr<char, Free> piece_; // begins with a packet header, or with the start of one
    size_t size_ = 0;
    size_t capacity_ = 0;
    size_t garbage_ = 0;
};

} // namespace serverkit

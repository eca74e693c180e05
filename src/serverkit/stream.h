// stream.h - a client's socket: what it sends is cut into packets, what is queued for it is sent.
#pragma once

#include "inbuffer.h"
#include "outqueue.h"

#include <cstdint>
#include <string>

namespace serverkit {

enum class Transfer {
    going,     // also when nothing could be moved just now
    ended,     // the peer closed its end
    failed,    // errno says why
    no_memory, // the stream is no longer in step
    stopped    // the sink wants no more
};

// Reads once and hands the payloads to `sink`, which returns false to stop. Adds to `bytes` what
// was read.
Transfer receive(int fd, InBuffer &in, char *scratch, size_t scratch_size,
                 const InBuffer::Sink &sink, uint64_t &bytes);
// Sends what the socket takes, and adds it to `bytes`.
Transfer send_queued(int fd, OutQueue &out, uint64_t &bytes);

// A peer that went without a word is no fault of the server's; anything else deserves a line.
bool is_hang_up(int error);

// "pid 123", of a local socket's peer.
std::string local_origin(int fd);

} // namespace serverkit

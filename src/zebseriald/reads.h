// reads.h - when a read is over, and with what: decided from the bytes and the clock alone.
#pragma once

#include "ring.h"

#include <limits>

#include <zeb2/serialcom.h>

namespace zebseriald {

constexpr double k_no_limit = std::numeric_limits<double>::infinity();

// A time-out as it comes over the wire, in seconds: a negative one is no limit, and neither is one
// beyond any patience; what is no number is no time at all.
double wait_of(double seconds);

// A read that waits. Positions are those of the port's input.
struct Read {
    SERIALD_REQUEST_TYPE type = SERIALD_REQUEST_READNEW;
    ByteSet stops;
    double timeout = 0; // from wait_of()
    double burst = 0;
    double started = 0;
    uint64_t scanned = 0; // no stop character before this
};

struct Verdict {
    enum class Kind { pending, success, failure };
    Kind kind;
    uint64_t upto; // what the answer holds ends here (success); the position from then on
    double due;    // when to ask again although nothing has come (pending)
};

// `position` is the reader's, `last_input` when a byte last came to the port.
Verdict judge(Read &read, uint64_t position, const Ring &input, double last_input, double now);

} // namespace zebseriald

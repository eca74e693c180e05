#include "reads.h"

#include <algorithm>
#include <cmath>

namespace zebseriald {
namespace {

constexpr double k_beyond_patience = 1e9;

constexpr auto k_pending = Verdict::Kind::pending;
constexpr auto k_success = Verdict::Kind::success;
constexpr auto k_failure = Verdict::Kind::failure;

Verdict judge_until(Read &read, uint64_t position, const Ring &input, double last_input,
                    double now) {
    const auto found = input.find(read.stops, std::max({read.scanned, position, input.begin()}));
    if (found)
        return {k_success, *found, 0};
    read.scanned = input.end();
    const bool came = input.end() > position;
    const double silence = came && read.burst > 0 ? last_input + read.burst : k_no_limit;
    if (now >= silence)
        return {k_success, input.end(), 0};
    const double deadline = read.started + read.timeout;
    if (now >= deadline)
        return {k_failure, position, 0};
    return {k_pending, position, std::min(silence, deadline)};
}

Verdict judge_burst(const Read &read, uint64_t position, const Ring &input, double last_input,
                    double now) {
    const double deadline = read.started + read.timeout;
    if (input.end() <= position) {
        if (now >= deadline)
            return {k_failure, position, 0};
        return {k_pending, position, deadline};
    }
    // A line that is never silent must not lose bytes while somebody waits for them; one whose
    // silence does not count is read until the time is over.
    const bool full = input.end() - position >= input.capacity();
    const double over = read.burst == k_no_limit ? deadline : last_input + read.burst;
    if (full || now >= over)
        return {k_success, input.end(), 0};
    return {k_pending, position, over};
}

Verdict judge_flush(const Read &read, const Ring &input, double last_input, double now) {
    const double silence = std::max(read.started, last_input) + read.burst;
    const double over = std::min(silence, read.started + read.timeout);
    return {now >= over ? k_success : k_pending, input.end(), over};
}

} // namespace

double wait_of(double seconds) {
    if (std::isnan(seconds))
        return 0;
    return seconds < 0 || seconds > k_beyond_patience ? k_no_limit : seconds;
}

Verdict judge(Read &read, uint64_t position, const Ring &input, double last_input, double now) {
    switch (read.type) {
    case SERIALD_REQUEST_READUNTIL:
    case SERIALD_REQUEST_READUNTIL_EMPTY:
        return judge_until(read, position, input, last_input, now);
    case SERIALD_REQUEST_READBURST:
        return judge_burst(read, position, input, last_input, now);
    case SERIALD_REQUEST_FLUSH:
        return judge_flush(read, input, last_input, now);
    default: // what is there, at once
        return {k_success, input.end(), 0};
    }
}

} // namespace zebseriald

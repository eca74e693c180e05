#include "frame_reader.h"

#include <algorithm>

#include "package_reader.h"
#include "serverkit/message.h"

namespace zebctl {
namespace {

using serverkit::k_frame_header;
using serverkit::k_payload_limit;

constexpr std::string_view k_signature(serverkit::k_frame_signature,
                                       sizeof serverkit::k_frame_signature - 1);
// What a sender may leave behind a record, as messages without a description have it.
constexpr size_t k_slack = 256;

} // namespace

bool is_whole_message(std::string_view payload) {
    const auto message = serverkit::parse_message(payload);
    if (!message)
        return false;
    if (message->record.empty())
        return message->rest.size() <= k_slack;
    if (message->rest.empty())
        return true;
    PackageVisitor nobody;
    std::string error;
    const size_t used = read_package(message->rest, std::string(message->record), nobody, error);
    return used > 0 && message->rest.size() - used <= k_slack &&
           message->rest.find(k_signature, used) == std::string_view::npos;
}

// Whether another frame seems to begin within a frame of `size` bytes. Asks for what follows only
// when it must know: a pipe may have no more to say for a while.
bool FrameReader::holds_signature(size_t size) {
    const std::string_view frame = window_.bytes().substr(0, size);
    for (size_t part = 1; part < k_signature.size(); ++part)
        if (frame.ends_with(k_signature.substr(0, part)))
            window_.want(size + k_signature.size());
    const std::string_view seen = window_.bytes().substr(0, size + k_signature.size() - 1);
    return seen.find(k_signature, k_frame_header) != std::string_view::npos;
}

bool FrameReader::is_credible(size_t size) {
    if (!budget_.allows(size, window_.offset()) || !holds_signature(size))
        return true;
    window_.want(size + k_signature.size());
    const std::string_view behind = window_.bytes().substr(size);
    if (behind.empty() || behind.starts_with(k_signature) ||
        is_whole_message(window_.bytes().substr(k_frame_header, size - k_frame_header)))
        return true;
    budget_.spend(size);
    return false;
}

FrameReader::Verdict FrameReader::examine(std::string_view &frame) {
    const bool has_header = window_.want(k_frame_header);
    const size_t seen = std::min(window_.bytes().size(), k_signature.size());
    if (window_.bytes().substr(0, seen) != k_signature.substr(0, seen))
        return Verdict::none;
    if (!has_header)
        return in_torn_ && seen < k_signature.size() ? Verdict::none : Verdict::torn;
    const uint32_t length = serverkit::read_u32(window_.bytes().data() + k_signature.size());
    if (length >= k_payload_limit)
        return Verdict::none;
    if (!window_.want(k_frame_header + length))
        return Verdict::torn;
    if (!is_credible(k_frame_header + length))
        return Verdict::torn;
    frame = window_.bytes().substr(0, k_frame_header + length);
    return Verdict::frame;
}

void FrameReader::tell_of_garbage() {
    if (in_garbage_)
        fault_(garbage_at_,
               std::to_string(window_.offset() - garbage_at_) + " bytes that belong to no frame");
    in_garbage_ = false;
}

bool FrameReader::next(uint64_t &offset, std::string_view &frame) {
    window_.skip(taken_);
    taken_ = 0;
    while (window_.want(1)) {
        const Verdict verdict = examine(frame);
        if (verdict == Verdict::frame) {
            tell_of_garbage();
            in_torn_ = false;
            offset = window_.offset();
            taken_ = frame.size();
            return true;
        }
        if (verdict == Verdict::torn) {
            tell_of_garbage();
            fault_(window_.offset(), "a torn frame");
            in_torn_ = true;
        } else if (!in_torn_ && !in_garbage_) {
            in_garbage_ = true;
            garbage_at_ = window_.offset();
        }
        const size_t next = window_.bytes().find(k_signature[0], 1);
        window_.skip(std::min(next, window_.bytes().size()));
    }
    tell_of_garbage();
    return false;
}

} // namespace zebctl

#include "recording.h"

#include <algorithm>
#include <cstring>

#include <zeb2/crc16.h>

#include "serverkit/frame.h"

namespace zebctl {
namespace {

using serverkit::k_frame_header;
using serverkit::k_frame_signature;
using serverkit::k_payload_limit;
using serverkit::put_number;
using serverkit::read_u32;

constexpr std::string_view k_mark = "\x9eREC";
constexpr std::string_view k_signature(k_frame_signature, sizeof k_frame_signature - 1);
constexpr size_t k_crc_at = k_mark.size();
constexpr size_t k_length_at = k_crc_at + 2;
constexpr size_t k_time_at = k_length_at + 4;

static_assert(k_time_at + sizeof(FTIME) == k_entry_header);

constexpr uint64_t k_checks_per_byte = 16;
constexpr uint64_t k_free_checks = 64 * 1024 * 1024;

uint16_t check_of(std::string_view entry) {
    return CRC16_calccrc(entry.data() + k_length_at, entry.size() - k_length_at);
}

// The last bytes of a recording. Where an entry was torn before, one byte of a mark is no sign of
// another.
bool begins_as_entry(std::string_view bytes, bool in_torn) {
    const size_t size = std::min(bytes.size(), k_mark.size());
    return bytes.substr(0, size) == k_mark.substr(0, size) && (!in_torn || size == k_mark.size());
}

// Bytes of the frame behind an entry's header, or 0 when that is none.
size_t frame_size(std::string_view bytes) {
    const uint32_t size = read_u32(bytes.data() + k_length_at);
    const std::string_view frame = bytes.substr(k_entry_header);
    const bool possible = size >= k_frame_header && size < k_frame_header + k_payload_limit &&
                          frame.substr(0, k_signature.size()) == k_signature &&
                          read_u32(frame.data() + k_signature.size()) == size - k_frame_header;
    return possible ? size : 0;
}

} // namespace

bool CheckBudget::allows(size_t size, uint64_t offset) const {
    return spent_ + size <= k_free_checks + k_checks_per_byte * offset;
}

void append_entry(std::string &out, FTIME time, std::string_view frame) {
    const size_t begin = out.size();
    out.resize(begin + k_entry_header + frame.size());
    char *entry = out.data() + begin;
    memcpy(entry, k_mark.data(), k_mark.size());
    put_number(entry + k_length_at, frame.size(), 4);
    memcpy(entry + k_time_at, &time, sizeof time);
    memcpy(entry + k_entry_header, frame.data(), frame.size());
    put_number(entry + k_crc_at, check_of({entry, k_entry_header + frame.size()}), 2);
}

bool RecordingReader::open() {
    if (!window_.want(k_recording_line.size()) || !window_.bytes().starts_with(k_recording_line))
        return false;
    window_.skip(k_recording_line.size());
    return true;
}

RecordingReader::Verdict RecordingReader::examine(RecordingEntry &entry) {
    if (!window_.want(k_entry_header + k_frame_header))
        return begins_as_entry(window_.bytes(), in_torn_) ? Verdict::torn : Verdict::none;
    const size_t size = window_.bytes().starts_with(k_mark) ? frame_size(window_.bytes()) : 0;
    if (size == 0)
        return Verdict::none;
    if (!window_.want(k_entry_header + size) || !budget_.allows(size, window_.offset()))
        return Verdict::torn;
    const std::string_view bytes = window_.bytes().substr(0, k_entry_header + size);
    uint16_t check;
    memcpy(&check, bytes.data() + k_crc_at, sizeof check);
    if (check != check_of(bytes)) {
        budget_.spend(size);
        return Verdict::torn;
    }
    entry.offset = window_.offset();
    memcpy(&entry.time, bytes.data() + k_time_at, sizeof entry.time);
    entry.frame = bytes.substr(k_entry_header);
    return Verdict::good;
}

void RecordingReader::tell_of_garbage() {
    if (in_garbage_)
        fault_(garbage_at_,
               std::to_string(window_.offset() - garbage_at_) + " bytes that belong to no entry");
    in_garbage_ = false;
}

// Goes on to the next byte that may begin an entry, at least one.
void RecordingReader::skip_to_mark() {
    if (!in_torn_ && !in_garbage_) {
        in_garbage_ = true;
        garbage_at_ = window_.offset();
    }
    const size_t next = window_.bytes().find(k_mark[0], 1);
    window_.skip(std::min(next, window_.bytes().size()));
}

bool RecordingReader::next(RecordingEntry &entry) {
    window_.skip(taken_);
    taken_ = 0;
    while (window_.want(1)) {
        const Verdict verdict = examine(entry);
        if (verdict == Verdict::good) {
            tell_of_garbage();
            in_torn_ = false;
            taken_ = k_entry_header + entry.frame.size();
            return true;
        }
        if (verdict == Verdict::torn) {
            tell_of_garbage();
            fault_(window_.offset(), "a torn entry");
            in_torn_ = true;
        }
        skip_to_mark();
    }
    tell_of_garbage();
    return false;
}

} // namespace zebctl

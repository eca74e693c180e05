#include "decode.h"

#include <algorithm>
#include <charconv>

#include "frame_reader.h"
#include "package_show.h"
#include "serverkit/message.h"
#include "text.h"

namespace zebctl {
namespace {

using serverkit::k_frame_header;

constexpr std::string_view k_signature(serverkit::k_frame_signature,
                                       sizeof serverkit::k_frame_signature - 1);
constexpr size_t k_look = 64 * 1024;      // bytes of a file looked at to tell what it is
constexpr size_t k_block = 64 * 1024;     // bytes of output handed on at a time
constexpr size_t k_longest = 2 * 0xFFFFF; // bytes of a message or package that is a file of its own

template <typename T> void append_number(std::string &out, T value) {
    char text[40];
    out.append(text, std::to_chars(text, text + sizeof text, value).ptr);
}

// With microseconds: finer than any arrival.
void append_time(std::string &out, FTIME time) {
    char text[400];
    if (time >= 0 && time < 1e12)
        out.append(text,
                   std::to_chars(text, text + sizeof text, time, std::chars_format::fixed, 6).ptr);
    else
        out += "null";
}

void append_name(std::string &out, std::string_view key, std::string_view name) {
    out += ",\"";
    out += key;
    out += "\":";
    if (name.empty())
        out += "null";
    else
        append_json_text(out, name);
}

bool is_printable(std::string_view name) {
    return std::all_of(name.begin(), name.end(), [](char c) { return c > 0x20 && c < 0x7F; });
}

// The name that a package gives its structure; empty for a raw one.
std::string_view structure_of(std::string_view package) {
    if (package.size() < 3 || package[0] != 1)
        return {};
    const size_t size =
        static_cast<unsigned char>(package[1]) | static_cast<unsigned char>(package[2]) << 8;
    return package.substr(3, size);
}

bool is_package(std::string_view bytes, const std::string &structure) {
    PackageVisitor nobody;
    std::string error;
    if (bytes.empty() || (bytes[0] != 1 && (bytes[0] != 0 || structure.empty())))
        return false;
    return read_package(bytes, structure, nobody, error) > 0;
}

} // namespace

void Decoder::flush() {
    if (!out_.empty())
        broken_ = !output_(out_) || broken_;
    out_.clear();
}

void Decoder::end_of_one() {
    out_ += '\n';
    ++shown_;
    if (out_.size() >= k_block)
        flush();
}

// A pipe that shows at once what it is need not be waited for.
Decoder::Kind Decoder::kind_of(ByteWindow &window) const {
    if (options_.kind != Kind::any)
        return options_.kind;
    if (window.want(k_signature.size()) && window.bytes().starts_with(k_signature))
        return Kind::frames;
    if (window.want(k_recording_line.size()) && window.bytes().starts_with(k_recording_line))
        return Kind::recording;
    window.want(k_look);
    if (window.bytes().find(k_signature) != std::string_view::npos)
        return Kind::frames;
    if (window.want(k_longest))
        return Kind::frames;
    const auto message = serverkit::parse_message(window.bytes());
    if (message && is_printable(message->name))
        return Kind::message;
    return is_package(window.bytes(), options_.structure) ? Kind::package : Kind::frames;
}

void Decoder::decode(ByteWindow &window) {
    switch (kind_of(window)) {
    case Kind::recording:
        decode_recording(window);
        break;
    case Kind::message:
        decode_whole(window, false);
        break;
    case Kind::package:
        decode_whole(window, true);
        break;
    default:
        decode_frames(window);
    }
    flush();
}

void Decoder::decode_recording(ByteWindow &window) {
    RecordingReader reader(window, [this](uint64_t offset, const std::string &what) {
        faults_.skipped(offset, what);
    });
    // Each entry can be found by itself.
    if (!reader.open())
        faults_.found(0, "a recording begins otherwise");
    RecordingEntry entry;
    while (!is_done() && reader.next(entry))
        show_payload(entry.offset, entry.time, entry.payload());
}

void Decoder::decode_frames(ByteWindow &window) {
    FrameReader reader(window, [this](uint64_t offset, const std::string &what) {
        faults_.skipped(offset, what);
    });
    uint64_t offset;
    std::string_view frame;
    while (!is_done() && reader.next(offset, frame))
        show_payload(offset, -1, frame.substr(k_frame_header));
}

void Decoder::decode_whole(ByteWindow &window, bool is_package) {
    if (window.want(k_longest))
        faults_.skipped(k_longest, "more than one message or package can hold");
    const std::string_view bytes = window.bytes().substr(0, k_longest);
    if (!is_package) {
        show_payload(0, -1, bytes);
        return;
    }
    const std::string structure(options_.structure.empty() ? structure_of(bytes)
                                                           : std::string_view(options_.structure));
    if (options_.json) {
        out_ += "{\"offset\":0";
        append_name(out_, "record_type", structure);
    } else {
        out_ += structure.empty() ? "raw package" : bold(visible(structure));
    }
    show_package(0, structure, structure, bytes);
    end_of_one();
}

void Decoder::append_place(uint64_t offset, FTIME time) {
    if (options_.json) {
        out_ += "{\"time\":";
        append_time(out_, time);
        out_ += ",\"offset\":";
        append_number(out_, offset);
        return;
    }
    std::string place = time >= 0 ? iso_time(time) + " " : "";
    place += "@";
    append_number(place, offset);
    out_ += dim(place);
}

void Decoder::show_payload(uint64_t offset, FTIME time, std::string_view payload) {
    const auto message = serverkit::parse_message(payload);
    if (!message)
        return show_unknown(offset, time, payload);
    if (!options_.choice.matches(message->name, message->source))
        return;
    append_place(offset, time);
    if (options_.json) {
        append_name(out_, "type", message->name);
        append_name(out_, "from", message->source);
        append_name(out_, "to", message->destination);
        out_ += ",\"flags\":";
        append_number(out_, message->flags);
        append_name(out_, "record_type", message->record);
    } else {
        out_ += ' ';
        out_ += message->source.empty() ? "-" : visible(std::string(message->source));
        if (!message->destination.empty())
            out_ += " > " + visible(std::string(message->destination));
        out_ += " " + bold(visible(std::string(message->name))) + " flags " +
                std::to_string(message->flags);
        if (!message->record.empty())
            out_ += " " + visible(std::string(message->record));
    }
    show_package(offset, std::string(message->name), message->record, message->rest);
    end_of_one();
}

// A frame may carry something else: a record of the serial server's.
void Decoder::show_unknown(uint64_t offset, FTIME time, std::string_view payload) {
    if (!options_.choice.types.empty() || !options_.choice.sources.empty())
        return;
    append_place(offset, time);
    out_ += options_.json ? ",\"payload\":\""
                          : " no message, " + std::to_string(payload.size()) + " bytes" +
                                (payload.empty() ? "" : ": ");
    append_hex(out_, payload);
    if (options_.json)
        out_ += "\"}";
    end_of_one();
}

void Decoder::show_package(uint64_t offset, const std::string &name, std::string_view structure,
                           std::string_view package) {
    if (options_.json)
        show_record_json(offset, name, std::string(structure), package);
    else
        show_record_text(offset, name, std::string(structure), package);
}

void Decoder::show_record_json(uint64_t offset, const std::string &name,
                               const std::string &structure, std::string_view package) {
    out_ += ",\"record\":";
    if (package.empty() || structure.empty()) {
        out_ += "null";
        if (!package.empty())
            out_ += ",\"behind\":" + std::to_string(package.size());
        out_ += '}';
        return;
    }
    std::string error;
    PackageJson values(out_);
    const size_t begin = out_.size();
    const size_t used = read_package(package, structure, values, error);
    values.finish();
    if (out_.size() == begin)
        out_ += "null";
    if (used > 0 && (options_.types || NETPACK_find_ds(structure.c_str()) == nullptr)) {
        out_ += ",\"types\":";
        PackageJson types(out_, true);
        read_package(package, structure, types, error);
    }
    if (used > 0 && used < package.size())
        out_ += ",\"behind\":" + std::to_string(package.size() - used);
    if (used == 0) {
        faults_.found(offset, name + ": " + error);
        out_ += ",\"error\":";
        append_json_text(out_, error);
    }
    out_ += '}';
}

void Decoder::show_record_text(uint64_t offset, const std::string &name,
                               const std::string &structure, std::string_view package) {
    size_t used = 0;
    std::string error;
    PackageText fields(out_);
    if (!structure.empty() && !package.empty())
        used = read_package(package, structure, fields, error);
    if (!error.empty()) {
        faults_.found(offset, name + ": " + error);
        out_ += "\n  and no more: " + visible(error);
    } else if (used < package.size()) {
        out_ += "\n  " + std::to_string(package.size() - used) + " bytes behind the record";
    }
}

} // namespace zebctl

// A file of unknown content as `zebctl decode` shows it: recordings, frames, messages, packages and
// hexadecimal text.
#include "fuzz.h"

#include "decode.h"
#include "hex_text.h"
#include "record_json.h"
#include "recording.h"
#include "serverkit/frame.h"

namespace {

using namespace zebctl;

ByteSource source_of(std::string_view &bytes) {
    return [&bytes](char *to, size_t size) -> ssize_t {
        const size_t taken = std::min({size, bytes.size(), size_t{61}});
        if (taken > 0)
            memcpy(to, bytes.data(), taken);
        bytes.remove_prefix(taken);
        return static_cast<ssize_t>(taken);
    };
}

std::string decoded(std::string_view bytes, const DecodeOptions &options, bool hex) {
    std::string text;
    ByteFaults faults("input");
    Decoder decoder(options, faults, [&](std::string_view piece) {
        text.append(piece);
        return true;
    });
    ByteWindow window(source_of(bytes));
    ByteWindow from_hex(hex_source(window, [](uint64_t, const std::string &) {}));
    decoder.decode(hex ? from_hex : window);
    decoder.flush();
    return text;
}

// Entries with the check sums that they take, and what the input has between them.
std::string recording_of(fuzz::Input &input) {
    std::string text(k_recording_line);
    while (!input.empty()) {
        const auto frame = serverkit::Frame::of_payload(input.block());
        append_entry(text, input.byte() * 1e7, {frame.data(), frame.size()});
        text.append(input.block(7));
    }
    return text;
}

void check_json(std::string_view text) {
    while (!text.empty()) {
        const size_t end = text.find('\n');
        MUST(end != text.npos && Json::accept(text.substr(0, end)));
        text.remove_prefix(end + 1);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::Input input(data, size);
    const uint8_t how = input.byte();
    DecodeOptions options;
    options.kind = static_cast<DecodeOptions::Kind>(how % 5);
    options.types = (how & 0x10) != 0;
    options.json = (how & 0x20) != 0;
    if ((how & 0x40) != 0)
        options.structure = "NET_SERVER_Heartbeat";
    fuzz::Exactly bytes(options.kind == DecodeOptions::Kind::recording ? recording_of(input)
                                                                       : input.rest());
    const std::string text = decoded(bytes.view(), options, (how & 0x80) != 0);
    if (options.json)
        check_json(text);
    return 0;
}

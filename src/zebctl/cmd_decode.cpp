// zebctl decode - shows recordings, frames, messages and packages from files, without a station.

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>

#include "command.h"
#include "decode.h"
#include "hex_text.h"
#include "serverkit/sockets.h"
#include "session.h"

namespace zebctl {
namespace {

using Kind = DecodeOptions::Kind;

constexpr size_t k_look = 4096; // bytes of a file looked at for hexadecimal text

struct Options {
    std::string file = "-";
    bool hex = false, binary = false;
    DecodeOptions decode;
};

bool is_hex(const Options &options, ByteWindow &window) {
    if (options.hex || options.binary)
        return options.hex;
    // Binary files show what they are in their first bytes; a pipe may have no more for a while.
    if (!window.want(6) || !looks_like_hex(window.bytes().substr(0, 6)))
        if (window.bytes().empty() ||
            std::string_view("#\" \t\r\n").find(window.bytes()[0]) == std::string_view::npos)
            return false;
    window.want(k_look);
    return looks_like_hex(window.bytes().substr(0, k_look));
}

int run_decode(const Options &options) {
    signal(SIGINT, SIG_DFL);
    signal(SIGTERM, SIG_DFL);
    serverkit::UniqueFd file;
    if (options.file != "-") {
        file.reset(open(options.file.c_str(), O_RDONLY | O_CLOEXEC));
        if (!file)
            return fail(options.file + ": " + strerror(errno));
    }
    ByteFaults faults(options.file == "-" ? "standard input" : options.file);
    Decoder decoder(options.decode, faults, [](std::string_view text) {
        return fwrite(text.data(), 1, text.size(), stdout) == text.size() && fflush(stdout) == 0;
    });
    // What is known is shown before more is waited for.
    const ByteSource read = file_source(file ? file.get() : 0);
    ByteWindow input([&](char *to, size_t size) {
        decoder.flush();
        return read(to, size);
    });
    if (is_hex(options, input)) {
        ByteWindow bytes(hex_source(input, [&](uint64_t line, const std::string &what) {
            faults.skipped_line(line, what);
        }));
        decoder.decode(bytes);
    } else {
        decoder.decode(input);
    }
    if (input.error() != 0)
        return fail(options.file + ": " + strerror(input.error()));
    return faults.any() ? k_failed : k_done;
}

} // namespace

void add_decode(Command app, Run &run) {
    auto options = std::make_shared<Options>();
    const Command command = app.add_subcommand("decode", "Show recordings, frames and records");
    command.add_option("file", options->file,
                       "recording, frames, message or package; - is "
                       "standard input");
    command.add_flag("-j,--json", options->decode.json, "one JSON object a line");
    const Option hex =
        command.add_flag("-x,--hex", options->hex, "the file holds hexadecimal text");
    command.add_flag("--binary", options->binary, "the file holds bytes, whatever it looks like")
        .excludes(hex);
    command.add_choice("--as", options->decode.kind,
                       {{"recording", Kind::recording},
                        {"frames", Kind::frames},
                        {"message", Kind::message},
                        {"package", Kind::package}},
                       "what the file holds, instead of looking");
    command.add_option("--structure", options->decode.structure,
                       "the record in a package without a description");
    command.add_flag("--types", options->decode.types,
                     "JSON with the types of all fields (else of unknown structures only)");
    options->decode.choice.add_options(command);
    command.add_option("-n,--count", options->decode.count, "stop after so many")
        .check(command_line::positive());
    command.callback([options, &run] { run = [options] { return run_decode(*options); }; });
}

} // namespace zebctl

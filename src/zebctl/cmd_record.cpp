// zebctl record - keeps what passes through the message server, frame by frame, in a file.

#include <chrono>
#include <cstdio>
#include <memory>
#include <unistd.h>

#include "command.h"
#include "daemon.h"
#include "frame_link.h"
#include "message_choice.h"
#include "option_checks.h"
#include "recording.h"
#include "recording_file.h"
#include "session.h"
#include "text.h"

namespace zebctl {
namespace {

constexpr double k_look = 0.25;   // s between looks for the end of the time
constexpr double k_patience = 30; // s for the server's handshake

struct Options {
    std::string file, config, name;
    MessageChoice choice;
    bool append = false, force = false;
    long count = -1;
    double seconds = -1;
};

class Recorder {
  public:
    Recorder(const Options &options, RecordingFile &file) : options_(options), file_(file) {}

    void hear(std::string_view frame) {
        const auto message = serverkit::parse_message(frame.substr(serverkit::k_frame_header));
        if (!message || is_full() || is_of_the_link(message->name) ||
            !options_.choice.matches(message->name, message->source))
            return;
        append_entry(entries_, UTIL_ftime(), frame);
        ++count_;
        bytes_ += frame.size();
    }
    // Keeps what was heard since the last time; false after a report.
    bool keep() {
        const bool good = entries_.empty() || file_.write(entries_);
        entries_.clear();
        return good;
    }
    bool is_full() const { return options_.count >= 0 && count_ >= options_.count; }
    void sum_up() const {
        fprintf(stderr, "zebctl: %ld messages recorded, %s\n", count_,
                bytes(static_cast<double>(bytes_)).c_str());
    }

  private:
    const Options &options_;
    RecordingFile &file_;
    std::string entries_;
    long count_ = 0;
    uint64_t bytes_ = 0;
};

int listen(const Options &options, FrameLink &link, Recorder &recorder,
           const FrameLink::Hear &hear) {
    using Clock = std::chrono::steady_clock;
    const auto started = Clock::now();
    if (!recorder.keep()) // what came with the handshake
        return k_failed;
    while (!recorder.is_full()) {
        const std::chrono::duration<double> passed = Clock::now() - started;
        const double left = options.seconds < 0 ? k_look : options.seconds - passed.count();
        if (left <= 0)
            // Without a number to wait for, running out of time is how a recording ends.
            return options.count < 0 ? k_done : k_failed;
        const bool going = serve({&link}, std::min(left, k_look), hear);
        if (!recorder.keep())
            return k_failed;
        if (!going)
            return k_done;
        if (!link.is_open())
            return fail(link.ending());
    }
    return k_done;
}

int run_record(const Options &options) {
    RecordingFile file;
    const auto mode = options.append  ? RecordingFile::Mode::append
                      : options.force ? RecordingFile::Mode::replace
                                      : RecordingFile::Mode::fresh;
    const daemon_kit::Options daemon{
        options.name.empty() ? "zebctl-" + std::to_string(getpid()) : options.name, options.config};
    daemon_kit::Configuration configuration(daemon, daemon_kit::Configuration::Missing::allowed);
    Recorder recorder(options, file);
    const auto hear = [&](std::string_view frame) { recorder.hear(frame); };
    FrameLink link;
    // Without a server no file is touched.
    if (configuration.is_refused() ||
        !link.open(daemon.name, ZEBMSG_get_host_str(configuration.root(), configuration.local()),
                   k_patience, hear) ||
        !file.open(options.file, mode))
        return k_failed;
    // Now the server hands out what it keeps for newcomers.
    link.send_notice(MSG_NOTIFY_CLIENT_CONNECT, 1);
    const int status = listen(options, link, recorder, hear);
    recorder.sum_up();
    return status;
}

} // namespace

void add_record(Command app, Run &run) {
    auto options = std::make_shared<Options>();
    const Command command = app.add_subcommand("record", "Keep messages in a file as they pass");
    command.add_option("file", options->file, "recording; - is standard output").required();
    options->choice.add_options(command);
    command.add_option("-n,--count", options->count, "stop after so many")
        .check(command_line::positive());
    command
        .add_option("-s,--seconds", options->seconds,
                    "stop after so many seconds (with --count: failing when fewer came)")
        .check(command_line::non_negative());
    const Option append =
        command.add_flag("-a,--append", options->append, "add to a recording, if it is there");
    command.add_flag("--force", options->force, "replace a file that is there").excludes(append);
    command.add_option("--name", options->name, "name on the message server").check(check_name);
    command.add_option("-c,--config", options->config, "configuration file, for RemoteHost");
    command.callback([options, &run] { run = [options] { return run_record(*options); }; });
}

} // namespace zebctl

// zebctl logfile - log files read, checked, summed up and plotted, without a station.

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <sys/ioctl.h>
#include <unistd.h>

#include "command.h"
#include "log_plot.h"
#include "log_summary.h"

namespace zebctl {
namespace {

constexpr size_t k_most_faults = 20; // of a file that are named

struct Options {
    std::vector<std::string> files;
    std::string columns, plot, plot_file, since, until;
    LogChoice choice;
    bool csv = false, json = false, summary = false, header = false;
};

// What is wrong with one file, told on standard error.
class Faults {
  public:
    explicit Faults(std::string file) : file_(std::move(file)) {}
    ~Faults() {
        if (count_ > k_most_faults)
            fprintf(stderr, "%s: and so on, %zu in all\n", file_.c_str(), count_);
    }
    Faults(const Faults &) = delete;
    Faults &operator=(const Faults &) = delete;

    void add(size_t line, const std::string &text) {
        if (++count_ > k_most_faults)
            return;
        const std::string place = line != 0 ? ":" + std::to_string(line) : "";
        fprintf(stderr, "%s%s: %s%s\n", file_.c_str(), place.c_str(), shown(text).c_str(),
                line != 0 ? ", skipped" : "");
    }
    bool any() const { return count_ != 0; }

  private:
    std::string file_;
    size_t count_ = 0;
};

// The name and what is opened under it, "-" for standard input.
using Stream = std::unique_ptr<FILE, int (*)(FILE *)>;

Stream open_stream(const std::string &name) {
    if (name == "-")
        return {stdin, [](FILE *) { return 0; }};
    return {fopen(name.c_str(), "re"), fclose};
}

// Reads each file; false when one of them is not in order.
bool read_files(const Options &options,
                const std::function<void(FILE *, Faults &, int &error)> &read) {
    bool in_order = true;
    for (const std::string &name : options.files) {
        Faults faults(shown(name));
        const Stream stream = open_stream(name);
        int error = stream != nullptr ? 0 : errno;
        try {
            if (stream != nullptr)
                read(stream.get(), faults, error);
        } catch (const std::runtime_error &failure) {
            fprintf(stderr, "zebctl: %s: %s\n", shown(name).c_str(), failure.what());
            return false;
        }
        if (error != 0)
            fprintf(stderr, "zebctl: %s: %s\n", shown(name).c_str(), strerror(error));
        in_order = in_order && error == 0 && !faults.any();
    }
    return in_order;
}

// Nobody reads on.
bool is_ended() {
    return ferror(stdout) != 0;
}

bool run_output(const Options &options, LogOutput &output) {
    const bool in_order = read_files(options, [&](FILE *stream, Faults &faults, int &error) {
        show_log(
            stream, output, [&](size_t line, const std::string &text) { faults.add(line, text); },
            error, is_ended);
    });
    output.end();
    return in_order;
}

bool run_header(const Options &options) {
    return read_files(options, [&](FILE *stream, Faults &faults, int &error) {
        LogVisitor visitor;
        visitor.fault = [&](size_t line, const std::string &text) { faults.add(line, text); };
        visitor.header = [&](const LogHeader &header) {
            const std::string text =
                options.json
                    ? header_json(header).dump(-1, ' ', false, Json::error_handler_t::replace) +
                          "\n"
                    : header_text(header);
            fwrite(text.data(), 1, text.size(), stdout);
        };
        read_log(stream, visitor, error);
    });
}

bool run_summary(const Options &options) {
    LogSummary summary(options.choice);
    const bool in_order = run_output(options, summary);
    printf("%s", (options.json ? summary.json_lines() : summary.text()).c_str());
    return in_order;
}

// Whether the user's terminal shows UTF-8.
bool has_utf8() {
    for (const char *name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char *value = getenv(name);
        if (value != nullptr && *value != '\0')
            return strcasestr(value, "utf-8") != nullptr || strcasestr(value, "utf8") != nullptr;
    }
    return false;
}

LogPlot::Look terminal_look() {
    LogPlot::Look look;
    winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0 && size.ws_row != 0) {
        look.width = size.ws_col;
        look.height = size.ws_row;
    }
    look.braille = has_utf8();
    return look;
}

bool run_plot(const Options &options) {
    LogPlot plot(options.choice);
    const bool in_order = run_output(options, plot);
    if (plot.empty()) {
        fprintf(stderr, "zebctl: there is no number to plot\n");
        return false;
    }
    if (options.plot_file.empty()) {
        printf("%s", plot.text(terminal_look()).c_str());
        return in_order;
    }
    std::string error;
    if (run_gnuplot(plot.gnuplot_script(options.plot_file), error))
        return in_order;
    fprintf(stderr, "zebctl: %s\n", error.c_str());
    return false;
}

bool run_lines(const Options &options) {
    const auto make = options.csv    ? make_csv_output
                      : options.json ? make_json_output
                                     : make_text_output;
    return run_output(options, *make(options.choice, stdout));
}

int run_logfile(const Options &options) {
    // Nothing has to be put in order at the end: a signal need not wait for the next line.
    signal(SIGINT, SIG_DFL);
    signal(SIGTERM, SIG_DFL);
    const bool in_order = options.header          ? run_header(options)
                          : options.summary       ? run_summary(options)
                          : !options.plot.empty() ? run_plot(options)
                                                  : run_lines(options);
    return in_order ? k_done : k_failed;
}

// ---- The command line ----

void choose_columns(const std::string &list, LogChoice &choice) {
    choice.columns.clear();
    if (list.empty() || list == "all")
        return;
    for (const std::string_view name : split(list, ','))
        if (!trimmed(name).empty() && !choice.has(std::string(trimmed(name))))
            choice.columns.emplace_back(trimmed(name));
}

void choose_time(const char *option, const std::string &text, int64_t &time) {
    if (text.empty())
        return;
    const auto parsed = parse_time(text);
    if (!parsed)
        throw UsageError(option, "\"" + text + "\" is no time (UTC) such as 2026-11-21 " +
                                     "or 2026-11-21T04:05:06Z");
    time = *parsed;
}

// --plot names the columns for the terminal, or the file of a picture of those of --columns.
void choose_plot(Options &options) {
    if (is_plot_file(options.plot))
        options.plot_file = options.plot;
    else if (!options.plot.empty() && !options.columns.empty())
        throw UsageError("--plot", "with --columns it names a .png or .svg file");
    else if (!options.plot.empty())
        options.columns = options.plot;
}

void complete(Options &options) {
    choose_plot(options);
    choose_columns(options.columns, options.choice);
    choose_time("--since", options.since, options.choice.since);
    choose_time("--until", options.until, options.choice.until);
    if (!options.plot.empty() && options.choice.columns.empty())
        throw UsageError("--plot", "name the columns to plot");
    if (!options.plot_file.empty() && !is_plot_file(options.plot_file))
        throw UsageError("--plot-file",
                         "\"" + options.plot_file + "\" ends with neither .png nor .svg");
}

} // namespace

void add_logfile(Command app, Run &run) {
    auto options = std::make_shared<Options>();
    const Command command = app.add_subcommand("logfile", "Read, check and plot log files");
    command.add_option("file", options->files, "log files; - is standard input").required();
    command.add_option("--columns", options->columns, "these columns, separated by commas, or all");
    command.add_option("--records", options->choice.record, "this record only, such as X1S");
    command.add_option("--since", options->since, "from this time (UTC) on");
    command.add_option("--until", options->until, "before this time (UTC)");
    const Option csv = command.add_flag("--csv", options->csv, "as CSV");
    const Option json =
        command.add_flag("-j,--json,--jsonl", options->json, "as JSON, one object a line");
    const Option summary = command.add_flag("--summary", options->summary,
                                            "number, range and mean of each column's values");
    const Option header = command.add_flag("--header", options->header, "what the headers say");
    const Option plot =
        command.add_option("--plot", options->plot,
                           "draw these columns, separated by commas, on the terminal; or "
                           "those of --columns to this .png or .svg file");
    command
        .add_option("--plot-file,--output", options->plot_file,
                    "have gnuplot draw them to this .png or .svg file")
        .needs(plot);
    csv.excludes(json).excludes(summary).excludes(header).excludes(plot);
    plot.excludes(json).excludes(summary).excludes(header);
    header.excludes(summary);
    command.callback([options, &run] {
        complete(*options);
        run = [options] { return run_logfile(*options); };
    });
}

} // namespace zebctl

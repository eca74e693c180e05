// zebctl table - a recorded stream's records of one type as a tabular file, and back.

#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>

#include "byte_faults.h"
#include "command.h"
#include "frame_reader.h"
#include "log_reader.h"
#include "message_choice.h"
#include "recording_file.h"
#include "serverkit/message.h"
#include "session.h"
#include "table_columns.h"

namespace zebctl {
namespace {

constexpr size_t k_longest_line = 1024 * 1024;
constexpr size_t k_batch = 256 * 1024;           // bytes of entries written at a time
constexpr size_t k_text_per_byte = 16;           // of a record, at most
constexpr size_t k_unwritten = 16 * 1024 * 1024; // bytes of text before the file must take them
constexpr std::string_view k_time_column = "recorded";

struct Options {
    std::string file, table, type, output, source = "table", start;
    std::vector<std::string> from;
    bool times = false, force = false;
    double interval = 1;
    unsigned flags = 1;
};

struct FreeDeleter {
    void operator()(void *block) const { free(block); }
};

bool open_input(const std::string &name, serverkit::UniqueFd &file) {
    if (name == "-")
        return true;
    file.reset(open(name.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file)
        fail(name + ": " + strerror(errno));
    return static_cast<bool>(file);
}

const NETDSD_entry *record_of(const std::string &type, const NETMSG_entry *&message) {
    message = NETPACK_find_msg_by_name(type.c_str());
    if (message == nullptr)
        fail("the catalogue has no message \"" + type + "\" (see zebctl describe --list)");
    else if (message->ds_tie == nullptr)
        fail(type + " carries no record");
    else if (const NETDSD_entry *entry = NETPACK_find_ds(message->ds_tie))
        return entry;
    return nullptr;
}

// ---- A table from a recording ----

// The library's writer of tables has a thread that moves the bytes.
class TableFile {
  public:
    explicit TableFile(const std::string &name) {
        ready_ = ZEBFILE_init() != FALSE;
        if (ready_)
            fh_ = name.empty() ? ZEBFILE_open("/dev/stdout", ZEBFILE_WRITE, O_APPEND)
                               : ZEBFILE_open(name.c_str(), ZEBFILE_WRITE, O_TRUNC);
    }
    ~TableFile() {
        if (ready_)
            ZEBFILE_destroy();
    }
    TableFile(const TableFile &) = delete;
    TableFile &operator=(const TableFile &) = delete;

    int fh() const { return fh_; }
    // False when nobody takes the text any more: the entry's end closes the descriptor.
    bool is_there() const { return fh_ >= 0 && fcntl(fh_, F_GETFD) >= 0; }
    bool end_line(size_t record_size) {
        ZEBFILE_printf(fh_, "\n");
        unwritten_ += record_size * k_text_per_byte;
        if (unwritten_ > k_unwritten)
            flush();
        return is_there();
    }
    void flush() {
        ZEBFILE_flush(fh_);
        unwritten_ = 0;
    }

  private:
    bool ready_ = false;
    int fh_ = -1;
    size_t unwritten_ = 0;
};

class TableWriter {
  public:
    TableWriter(const Options &options, const NETDSD_entry &entry, TableFile &file,
                ByteFaults &faults)
        : options_(options), entry_(entry), columns_(entry), file_(file), faults_(faults) {
        choice_.types = {options.type};
        choice_.sources = options.from;
    }

    bool begin() {
        if (options_.times)
            ZEBFILE_printf(file_.fh(), "recorded,");
        NETPACK_print_tabular_header_zebfile(&entry_, file_.fh(), "");
        return file_.end_line(entry_.total_size);
    }
    bool write(const RecordingEntry &entry) {
        const auto message = serverkit::parse_message(entry.payload());
        if (!message || !choice_.matches(message->name, message->source))
            return true;
        NETPACK_message unpacked = {};
        if (!NETPACK_unpack_message(entry.payload().data(), entry.payload().size(), &unpacked) ||
            unpacked.pds == nullptr || unpacked.sz_ds != entry_.total_size) {
            faults_.skipped(entry.offset, options_.type + " without a record that can be read");
            NETPACK_msg_free(&unpacked);
            return true;
        }
        changed_ += columns_.make_fit(unpacked.pds);
        if (options_.times)
            ZEBFILE_printf(file_.fh(), "%.6f,", entry.time);
        NETPACK_print_ds_tabular_raw_zebfile(unpacked.pds, entry_.name, unpacked.sz_ds, file_.fh());
        NETPACK_msg_free(&unpacked);
        return file_.end_line(entry_.total_size);
    }
    void sum_up() const {
        if (changed_ > 0)
            fprintf(stderr,
                    "zebctl: in %zu records commas of texts became semicolons, or line ends "
                    "blanks\n",
                    changed_);
    }

  private:
    const Options &options_;
    const NETDSD_entry &entry_;
    TableColumns columns_;
    TableFile &file_;
    ByteFaults &faults_;
    MessageChoice choice_;
    size_t changed_ = 0;
};

int to_table(const Options &options, const NETDSD_entry &entry) {
    serverkit::UniqueFd input;
    if (!open_input(options.file, input))
        return k_failed;
    ByteFaults faults(options.file);
    ByteWindow window(file_source(input ? input.get() : 0));
    RecordingReader reader(
        window, [&](uint64_t offset, const std::string &what) { faults.skipped(offset, what); });
    if (!reader.open())
        return fail(options.file + ": " +
                    (window.error() != 0 ? strerror(window.error()) : "this is no recording"));
    TableFile file(options.output);
    if (file.fh() < 0)
        return fail("the table cannot be written");
    TableWriter writer(options, entry, file, faults);
    RecordingEntry next;
    bool good = writer.begin();
    while (good && reader.next(next))
        good = writer.write(next);
    file.flush();
    good = good && file.is_there();
    writer.sum_up();
    if (window.error() != 0)
        return fail(options.file + ": " + strerror(window.error()));
    return good && !faults.any() ? k_done : k_failed;
}

// ---- A recording from a table ----

// The lines of a file, without their ends. False at the end of it.
bool next_line(ByteWindow &window, std::string &line, bool &is_too_long) {
    line.clear();
    is_too_long = false;
    bool any = false;
    while (window.want(1)) {
        any = true;
        const std::string_view bytes = window.bytes();
        const size_t end = bytes.find('\n');
        const size_t size = std::min(end, bytes.size());
        is_too_long = is_too_long || line.size() + size > k_longest_line;
        if (!is_too_long)
            line += bytes.substr(0, size);
        window.skip(end == std::string_view::npos ? size : size + 1);
        if (end != std::string_view::npos)
            break;
    }
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return any;
}

class TableReader {
  public:
    TableReader(const Options &options, const NETMSG_entry &message, const NETDSD_entry &entry,
                ByteFaults &faults)
        : options_(options), message_(message), entry_(entry), columns_(entry), faults_(faults),
          record_(calloc(1, entry.total_size + 1)) {
        time_ = UTIL_ftime();
        if (!options.start.empty())
            time_ = static_cast<double>(*parse_time(options.start));
    }

    // Whether the first line is the header of this record's tables.
    bool begin(const std::string &header) {
        const std::string_view line(header);
        has_times_ = line.starts_with(k_time_column) && line.substr(k_time_column.size(), 1) == ",";
        return (has_times_ ? line.substr(k_time_column.size() + 1) : line) == columns_.header();
    }
    // Appends a line's entry.
    void read(uint64_t number, std::string_view line, std::string &entries) {
        std::string error;
        FTIME time = time_;
        if (has_times_) {
            const std::string text(line.substr(0, line.find(',')));
            char *end;
            time = strtod(text.c_str(), &end);
            if (text.empty() || *end != '\0' || !std::isfinite(time))
                return faults_.skipped_line(number, "no time: " + text.substr(0, 60));
            line.remove_prefix(std::min(line.size(), text.size() + 1));
        }
        if (!columns_.read(line, record_.get(), error))
            return faults_.skipped_line(number, error);
        if (!append(time, entries))
            return faults_.skipped_line(number, "the record cannot be packed");
        time_ += options_.interval;
    }

  private:
    bool append(FTIME time, std::string &entries) {
        std::string source = options_.source;
        std::string structure = entry_.name;
        NETPACK_message message = {};
        message.type = message_.msg;
        message.flags = options_.flags;
        message.src_name = source.data();
        message.pds = record_.get();
        message.sz_ds = entry_.total_size;
        message.ds_name = structure.data();
        size_t size = 0;
        const std::unique_ptr<void, FreeDeleter> bytes(NETPACK_package_message(&message, &size));
        const auto frame =
            serverkit::Frame::of_payload({static_cast<const char *>(bytes.get()), size});
        if (bytes == nullptr || !frame)
            return false;
        append_entry(entries, time, {frame.data(), frame.size()});
        return true;
    }

    const Options &options_;
    const NETMSG_entry &message_;
    const NETDSD_entry &entry_;
    TableColumns columns_;
    ByteFaults &faults_;
    std::unique_ptr<void, FreeDeleter> record_;
    FTIME time_;
    bool has_times_ = false;
};

int from_table(const Options &options, const NETMSG_entry &message, const NETDSD_entry &entry) {
    serverkit::UniqueFd input;
    RecordingFile recording;
    if (!open_input(options.table, input))
        return k_failed;
    ByteFaults faults(options.table);
    ByteWindow window(file_source(input ? input.get() : 0));
    TableReader reader(options, message, entry, faults);
    std::string line, entries;
    bool is_too_long;
    if (!next_line(window, line, is_too_long) || !reader.begin(line))
        return fail(options.table + ": line 1 is no header of a table of " + entry.name);
    if (!recording.open(options.output,
                        options.force ? RecordingFile::Mode::replace : RecordingFile::Mode::fresh))
        return k_failed;
    for (uint64_t number = 2; next_line(window, line, is_too_long); ++number) {
        if (is_too_long)
            faults.skipped_line(number, "longer than any record");
        else
            reader.read(number, line, entries);
        if (entries.size() > k_batch) {
            if (!recording.write(entries))
                return k_failed;
            entries.clear();
        }
    }
    if (!entries.empty() && !recording.write(entries))
        return k_failed;
    if (window.error() != 0)
        return fail(options.table + ": " + strerror(window.error()));
    return faults.any() ? k_failed : k_done;
}

int run_table(const Options &options) {
    const NETMSG_entry *message;
    const NETDSD_entry *entry = record_of(options.type, message);
    if (entry == nullptr)
        return k_failed;
    signal(SIGINT, SIG_DFL);
    signal(SIGTERM, SIG_DFL);
    return options.table.empty() ? to_table(options, *entry)
                                 : from_table(options, *message, *entry);
}

void complete(const Options &options) {
    if (options.file.empty() == options.table.empty())
        throw UsageError("file", "name a recording, or a table with --from-table");
    if (!options.table.empty() && options.output.empty())
        throw UsageError("--output", "name the recording to write");
    if (!options.start.empty() && !parse_time(options.start))
        throw UsageError("--start", "\"" + options.start + "\" is no time (UTC)");
}

} // namespace

void add_table(Command app, Run &run) {
    auto options = std::make_shared<Options>();
    const Command command =
        app.add_subcommand("table", "Recorded records as a text table, and back");
    command.add_option("file", options->file, "recording; - is standard input");
    command.add_option("-t,--type", options->type, "message whose records these are").required();
    command.add_option("-o,--output", options->output, "file to write (default: standard output)");
    command.add_option("-f,--from", options->from, "only records of these programs");
    command.add_flag("--times", options->times, "with the time of arrival as the first column");
    const Option table = command.add_option("--from-table", options->table,
                                            "make a recording of a table; - is standard input");
    command.add_option("--source", options->source, "the program that is to have sent them")
        .needs(table);
    command.add_option("--flags", options->flags, "1 publish, 2 retained, 3 both")
        .check(command_line::in_range(0, 3))
        .needs(table);
    command.add_option("--start", options->start, "time (UTC) of the first (default: now)")
        .needs(table);
    command.add_option("--interval", options->interval, "seconds from one to the next")
        .check(command_line::non_negative())
        .needs(table);
    command.add_flag("--force", options->force, "replace a recording that is there").needs(table);
    command.callback([options, &run] {
        complete(*options);
        run = [options] { return run_table(*options); };
    });
}

} // namespace zebctl

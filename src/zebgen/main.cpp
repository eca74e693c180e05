// zebgen - definition headers in, the sources and headers of a catalogue out.
#include "command_line/command_line.h"
#include "diff.h"
#include "docs.h"
#include "emit.h"
#include "files.h"
#include "inputs.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>

namespace {

using namespace zebgen;
using command_line::UsageError;

enum ExitStatus { k_success = 0, k_failure = 1 };
// Of a comparison.
enum DiffStatus { k_compatible = 0, k_breaking = 1, k_unreadable = 2 };

struct Arguments {
    std::string out;
    std::string docs;
    std::string headers;
    std::string station;
    std::vector<std::string> include_dirs;
    std::vector<std::string> definitions;
    std::vector<std::string> diff;
    bool json = false;
    EmitOptions emit;
};

bool gather(const Arguments &arguments, std::vector<Input> &inputs) {
    if (!arguments.station.empty() && !add_station(arguments.station, inputs))
        return false;
    for (const std::string &path : arguments.definitions)
        add_definition(path, arguments.include_dirs, inputs);
    return true;
}

bool put(const std::string &path, const std::string &content, bool &changed) {
    std::string error;
    return write_if_changed(path, content, changed, error) ||
           complain(path, "cannot be written: " + error);
}

// The stamp says when the catalogue was generated, so it moves only with the catalogue, or at the
// word of SOURCE_DATE_EPOCH.
bool put_revision(const std::string &path, bool changed) {
    const char *epoch = getenv("SOURCE_DATE_EPOCH");
    const bool fixed = epoch && *epoch;
    if (!fixed && !changed && std::filesystem::exists(path))
        return true;
    char *end = nullptr;
    const long long stamp = fixed ? strtoll(epoch, &end, 10) : time(nullptr);
    if (fixed && (*end || stamp < 0 || stamp > 253402300799))
        return complain("SOURCE_DATE_EPOCH", "no number of seconds since 1970");
    return put(path, emit_revision(static_cast<time_t>(stamp)), changed);
}

bool make_directory(const std::string &dir) {
    std::error_code code;
    return std::filesystem::create_directories(dir, code) || !code ||
           complain(dir, "cannot be made: " + code.message());
}

bool write_sources(const Arguments &arguments, const Catalogue &catalogue) {
    const std::string &headers = arguments.headers.empty() ? arguments.out : arguments.headers;
    if (!make_directory(arguments.out) || !make_directory(headers))
        return false;
    const EmitOptions &emit = arguments.emit;
    bool changed = false;
    const bool written =
        put(arguments.out + "/ds_desc.c", emit_records_source(catalogue, emit), changed) &&
        put(arguments.out + "/msg_list.c", emit_messages_source(catalogue, emit), changed) &&
        put(headers + "/msg_list.h", emit_messages_header(catalogue, emit), changed) &&
        put(headers + "/records.h", emit_records_header(catalogue, emit), changed);
    return written && (!emit.for_library || put_revision(arguments.out + "/revision.c", changed));
}

bool write_docs(const Arguments &arguments, const Catalogue &catalogue) {
    const std::string dir = arguments.docs + "/";
    bool changed = false;
    bool written = make_directory(arguments.docs) && put(dir + "style.css", style_sheet(), changed);
    for (const Page &page : pages_of(catalogue))
        written = written && put(dir + page.name + ".md", markdown_of(page), changed) &&
                  put(dir + page.name + ".html", html_of(page, page_navigation()), changed);
    return written;
}

int generate(const Arguments &arguments) {
    std::vector<Input> inputs;
    Catalogue catalogue;
    const bool done = gather(arguments, inputs) && read_catalogue(inputs, catalogue) &&
                      (arguments.out.empty() || write_sources(arguments, catalogue)) &&
                      (arguments.docs.empty() || write_docs(arguments, catalogue));
    return done ? k_success : k_failure;
}

int diff(const Arguments &arguments) {
    Catalogue revisions[2];
    for (size_t i = 0; i < 2; i++) {
        std::vector<Input> inputs;
        if (!add_revision(arguments.diff[i], inputs) || !read_catalogue(inputs, revisions[i]))
            return k_unreadable;
    }
    const std::vector<Change> changes = compare(revisions[0], revisions[1]);
    if (arguments.json)
        std::cout << json_of(changes) << "\n";
    for (const Change &change : changes)
        if (!arguments.json)
            std::cout << text_of(change) << "\n";
    const bool breaking = std::any_of(changes.begin(), changes.end(),
                                      [](const Change &change) { return change.breaking(); });
    if (!std::cout.flush()) {
        complain("standard output", "cannot be written");
        return k_unreadable;
    }
    return breaking ? k_breaking : k_compatible;
}

void declare(command_line::Command app, Arguments &arguments) {
    app.set_version_flag("-V,--version", "zebgen " ZEB_VERSION);
    const auto out = app.add_option("-o,--out", arguments.out, "Directory of the generated files")
                         .type_name("DIR");
    const auto docs =
        app.add_option("--docs", arguments.docs, "Write reference pages, Markdown and HTML, to DIR")
            .type_name("DIR");
    app.add_option("-s,--station", arguments.station,
                   "Take every header of DIR, included as <zeb2/definitions/NAME.h>")
        .type_name("DIR");
    app.add_option("-I,--include-dir", arguments.include_dirs,
                   "Include headers beneath DIR by the rest of their path")
        .type_name("DIR")
        .allow_extra_args(false);
    app.add_option("-n,--name", arguments.emit.name, "Name of the catalogue in include guards")
        .type_name("NAME")
        .capture_default_str();
    const auto library =
        app.add_flag("--library", arguments.emit.for_library,
                     "Write the library's own catalogue: private tables and stamp");
    app.add_option("--headers", arguments.headers, "Directory of the generated headers (--library)")
        .type_name("DIR")
        .needs(library);
    const auto definitions =
        app.add_option("DEFINITIONS", arguments.definitions, "Definition headers");
    const auto diff =
        app.add_option("--diff", arguments.diff,
                       "Compare two revisions: directories of definition headers, headers, or "
                       "several of them separated by commas")
            .expected(2)
            .type_name("OLD NEW")
            .excludes(out)
            .excludes(docs)
            .excludes(definitions);
    app.add_flag("--json", arguments.json, "Write one JSON document (--diff)").needs(diff);
    app.footer("Writes ds_desc.c, msg_list.c, msg_list.h, records.h and, for the library, "
               "revision.c;\nfiles that would not change are left untouched. A header that is not "
               "understood is refused\nwith FILE:LINE:COLUMN and how to mend it (status 1).");
}

// What the options cannot say of each other.
void check(const Arguments &arguments) {
    if (!arguments.diff.empty())
        return;
    if (arguments.out.empty() && arguments.docs.empty())
        throw UsageError("--out, --docs or --diff is required");
    if (arguments.station.empty() && arguments.definitions.empty())
        throw UsageError("DEFINITIONS or --station is required");
}

} // namespace

int main(int argc, char **argv) {
    command_line::Parser app("Generates the catalogue of a station's records and messages");
    Arguments arguments;
    declare(app, arguments);
    app.callback([&arguments] { check(arguments); });
    if (const auto status = app.parse(argc, argv))
        return *status;
    return arguments.diff.empty() ? generate(arguments) : diff(arguments);
}

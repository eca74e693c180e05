// zebgen - definition headers in, the sources and headers of a catalogue out.
#include "checks.h"
#include "emit.h"
#include "files.h"
#include "parser.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <filesystem>
#include <iostream>

namespace {

using namespace zebgen;

enum ExitStatus { k_success = 0, k_failure = 1, k_usage = 2 };

struct Arguments {
    std::string out;
    std::string headers;
    std::string station;
    std::vector<std::string> include_dirs;
    std::vector<std::string> definitions;
    EmitOptions emit;
};

struct Input {
    std::string path;
    std::string include;
};

bool complain(const std::string &path, const std::string &reason) {
    std::cerr << path << ": error: " << reason << "\n";
    return false;
}

// Beneath an include directory a header is spelled as the compiler will find it.
std::string include_of(const std::string &path, const std::vector<std::string> &include_dirs) {
    for (const std::string &dir : include_dirs) {
        const std::string prefix = dir.empty() || dir.back() == '/' ? dir : dir + "/";
        if (!prefix.empty() && path.size() > prefix.size() &&
            path.compare(0, prefix.size(), prefix) == 0)
            return '"' + path.substr(prefix.size()) + '"';
    }
    return '"' + path + '"';
}

bool gather(const Arguments &arguments, std::vector<Input> &inputs) {
    if (!arguments.station.empty()) {
        std::vector<std::string> names;
        std::string error;
        if (!list_headers(arguments.station, names, error))
            return complain(arguments.station, "cannot be listed: " + error);
        for (const std::string &name : names)
            inputs.push_back({arguments.station + "/" + name, "<zeb2/definitions/" + name + ">"});
    }
    for (const std::string &path : arguments.definitions)
        inputs.push_back({path, include_of(path, arguments.include_dirs)});
    return true;
}

bool parse_all(const std::vector<Input> &inputs, std::vector<Source> &sources, Problems &problems) {
    bool readable = true;
    for (const Input &input : inputs) {
        std::string text;
        std::string error;
        if (read_file(input.path, text, error))
            sources.push_back(parse(input.path, input.include, text, problems));
        else
            readable = complain(input.path, "cannot be read: " + error);
    }
    return readable;
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

bool generate(const Arguments &arguments, const Catalogue &catalogue) {
    const std::string &headers = arguments.headers.empty() ? arguments.out : arguments.headers;
    std::error_code code;
    for (const std::string &dir : {arguments.out, headers})
        if (!std::filesystem::create_directories(dir, code) && code)
            return complain(dir, "cannot be made: " + code.message());
    const EmitOptions &emit = arguments.emit;
    bool changed = false;
    const bool written =
        put(arguments.out + "/ds_desc.c", emit_records_source(catalogue, emit), changed) &&
        put(arguments.out + "/msg_list.c", emit_messages_source(catalogue, emit), changed) &&
        put(headers + "/msg_list.h", emit_messages_header(catalogue, emit), changed) &&
        put(headers + "/records.h", emit_records_header(catalogue, emit), changed);
    return written && (!emit.for_library || put_revision(arguments.out + "/revision.c", changed));
}

bool run(const Arguments &arguments) {
    std::vector<Input> inputs;
    std::vector<Source> sources;
    Problems problems;
    if (!gather(arguments, inputs) || !parse_all(inputs, sources, problems))
        return false;
    const Catalogue catalogue = merge(sources, problems);
    for (const Problem &problem : problems)
        std::cerr << text_of(problem) << "\n";
    return problems.empty() && generate(arguments, catalogue);
}

void declare(CLI::App &app, Arguments &arguments) {
    app.set_version_flag("-V,--version", "zebgen " ZEB_VERSION);
    app.add_option("-o,--out", arguments.out, "Directory of the generated files")
        ->required()
        ->type_name("DIR");
    app.add_option("-s,--station", arguments.station,
                   "Take every header of DIR, included as <zeb2/definitions/NAME.h>")
        ->type_name("DIR");
    app.add_option("-I,--include-dir", arguments.include_dirs,
                   "Include headers beneath DIR by the rest of their path")
        ->type_name("DIR")
        ->allow_extra_args(false);
    app.add_option("-n,--name", arguments.emit.name, "Name of the catalogue in include guards")
        ->type_name("NAME")
        ->capture_default_str();
    const auto library =
        app.add_flag("--library", arguments.emit.for_library,
                     "Write the library's own catalogue: private tables and stamp");
    app.add_option("--headers", arguments.headers, "Directory of the generated headers (--library)")
        ->type_name("DIR")
        ->needs(library);
    app.add_option("DEFINITIONS", arguments.definitions, "Definition headers");
    app.footer("Writes ds_desc.c, msg_list.c, msg_list.h, records.h and, for the library, "
               "revision.c;\nfiles that would not change are left untouched. A header that is not "
               "understood is refused\nwith FILE:LINE:COLUMN and how to mend it (status 1).");
}

} // namespace

int main(int argc, char **argv) {
    CLI::App app("Generates the catalogue of a station's records and messages");
    Arguments arguments;
    declare(app, arguments);
    try {
        app.parse(argc, argv);
        if (arguments.station.empty() && arguments.definitions.empty())
            throw CLI::RequiredError("DEFINITIONS or --station");
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? k_success : k_usage;
    }
    return run(arguments) ? k_success : k_failure;
}

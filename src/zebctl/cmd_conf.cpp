// zebctl conf - checks, reads and dumps configuration files.

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include <zeb2/libzeb2.h>

#include "command.h"
#include "flow_keys.h"
#include "gps_keys.h"
#include "serverkit/inspect.h"
#include "waypoint_keys.h"
#include "zeblogd/config.h"
#include "zebmsgd/config.h"
#include "zebseriald/config.h"

namespace zebctl {
namespace {

struct Options {
    std::string file, path;
};

struct FileCloser {
    void operator()(FILE *file) const { fclose(file); }
};
using serverkit::Tree;

// The tree of a file, or of the station's default file when none is named; null after a report.
Tree load(const std::string &name) {
    if (name.empty()) {
        Tree root(CONF_get_default());
        if (!root)
            fprintf(stderr,
                    "zebctl: etc/zeb.conf cannot be read under $ZEB2; name a file with --file\n");
        return root;
    }
    CONF_node *root = nullptr;
    serverkit::load_configuration(name, &root);
    return Tree(root);
}

int run_get(const Options &options) {
    const Tree root = load(options.file);
    if (!root)
        return k_failed;
    const char *value = CONF_lookup(root.get(), options.path.c_str());
    if (value == nullptr) {
        fprintf(stderr, "zebctl: \"%s\" is not set\n", options.path.c_str());
        return k_failed;
    }
    printf("%s\n", value);
    return k_done;
}

int run_dump(const Options &options) {
    const Tree root = load(options.file);
    if (!root)
        return k_failed;
    CONF_write(root.get(), stdout);
    return k_done;
}

bool has_section(const zeb::ConfCheck &file, const std::string &path) {
    const std::string section = serverkit::split_path(path).front();
    return std::any_of(
        file.settings.begin(), file.settings.end(), [&](const zeb::ConfSetting &setting) {
            return serverkit::same_name(serverkit::split_path(setting.path).front(), section);
        });
}

// What is wrong for any program of the station, under its usual name, and every surprise.
std::vector<zeb::ConfFinding> findings_of(const zeb::ConfCheck &file) {
    const serverkit::Keys keys[] = {
        serverkit::Keys(zebmsgd::k_keys), serverkit::Keys(zebseriald::k_keys),
        serverkit::Keys(zeblogd::k_keys), serverkit::Keys(gps::k_keys),
        serverkit::Keys(flow::k_keys),    serverkit::Keys(waypoint::k_keys)};
    std::vector<const serverkit::Keys *> programs;
    for (const serverkit::Keys &of : keys)
        programs.push_back(&of);
    std::vector<zeb::ConfFinding> findings = serverkit::check_keys(file, programs, true);
    // A program that the file does not mention is not used.
    std::erase_if(findings, [&](const zeb::ConfFinding &finding) {
        return finding.line == 0 && !has_section(file, finding.path);
    });
    return findings;
}

int run_check(const Options &options) {
    const std::string name =
        options.file.empty() ? serverkit::default_configuration() : options.file;
    const std::unique_ptr<FILE, FileCloser> file(serverkit::open_configuration(name));
    if (!file) {
        fprintf(stderr, "zebctl: cannot read %s: %s\n", name.c_str(), strerror(errno));
        return k_failed;
    }
    const std::vector<zeb::ConfFinding> findings = findings_of(zeb::check_conf(file.get()));
    serverkit::print_findings(name, findings);
    if (findings.empty())
        printf("%s: every line counts\n", name.c_str());
    return findings.empty() ? k_done : k_failed;
}

} // namespace

void add_conf(Command app, Run &run) {
    auto options = std::make_shared<Options>();
    const Command command = app.add_subcommand("conf", "Check and read configuration files");
    command.require_subcommand();
    const char *file_help = "configuration file (default: etc/zeb.conf under $ZEB2)";
    const Command check =
        command.add_subcommand("check", "Show the lines that will be ignored or changed");
    check.add_option("file", options->file, file_help);
    check.callback([options, &run] { run = [options] { return run_check(*options); }; });
    const Command get = command.add_subcommand("get", "Print the value of a key");
    get.add_option("key", options->path, "such as Disk;LogDir").required();
    get.add_option("-f,--file", options->file, file_help);
    get.callback([options, &run] { run = [options] { return run_get(*options); }; });
    const Command dump = command.add_subcommand("dump", "Print every setting, sorted");
    dump.add_option("file", options->file, file_help);
    dump.callback([options, &run] { run = [options] { return run_dump(*options); }; });
}

} // namespace zebctl

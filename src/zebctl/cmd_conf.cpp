// zebctl conf - checks, reads and dumps configuration files.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include <zeb2/libzeb2.h>

#include "command.h"
#include "conf_check.h"
#include "daemon.h"

namespace zebctl {
namespace {

struct Options {
    std::string file, path;
};

struct FileCloser {
    void operator()(FILE *file) const { fclose(file); }
};
struct TreeFreer {
    void operator()(CONF_node *root) const { CONF_free(root); }
};
using Tree = std::unique_ptr<CONF_node, TreeFreer>;

// The tree of a file, or of the station's default file when none is named; null after a report.
Tree load(const std::string &name) {
    if (name.empty()) {
        Tree root(CONF_get_default());
        if (!root)
            fprintf(stderr,
                    "zebctl: etc/zeb.conf cannot be read under $ZEB2; name a file with --file\n");
        return root;
    }
    return Tree(daemon_kit::load_configuration(name));
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

std::string default_file() {
    char path[PATH_MAX + 32];
    const char *base = getenv("ZEB2");
    if (base != nullptr && strlen(base) > PATH_MAX)
        return "";
    UTIL_make_relative("etc/zeb.conf", path);
    return path;
}

int run_check(const Options &options) {
    const std::string name = options.file.empty() ? default_file() : options.file;
    const std::unique_ptr<FILE, FileCloser> file(daemon_kit::open_file(name));
    if (!file) {
        fprintf(stderr, "zebctl: cannot read %s: %s\n", name.c_str(), strerror(errno));
        return k_failed;
    }
    const std::vector<zeb::ConfFinding> findings = zeb::check_conf(file.get()).findings;
    for (const auto &finding : findings)
        printf("%s:%zu: %s\n", name.c_str(), finding.line, finding.text.c_str());
    if (findings.empty())
        printf("%s: every line counts\n", name.c_str());
    return findings.empty() ? k_done : k_failed;
}

} // namespace

void add_conf(CLI::App &app, Run &run) {
    auto options = std::make_shared<Options>();
    CLI::App *command = app.add_subcommand("conf", "Check and read configuration files");
    command->require_subcommand(1);
    const char *file_help = "configuration file (default: etc/zeb.conf under $ZEB2)";
    CLI::App *check =
        command->add_subcommand("check", "Show the lines that will be ignored or changed");
    check->add_option("file", options->file, file_help);
    check->callback([options, &run] { run = [options] { return run_check(*options); }; });
    CLI::App *get = command->add_subcommand("get", "Print the value of a key");
    get->add_option("key", options->path, "such as Disk;LogDir")->required();
    get->add_option("-f,--file", options->file, file_help);
    get->callback([options, &run] { run = [options] { return run_get(*options); }; });
    CLI::App *dump = command->add_subcommand("dump", "Print every setting, sorted");
    dump->add_option("file", options->file, file_help);
    dump->callback([options, &run] { run = [options] { return run_dump(*options); }; });
}

} // namespace zebctl

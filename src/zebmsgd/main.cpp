// zebmsgd - the station's message server.

#include "config.h"
#include "server.h"
#include "serverkit/report.h"
#include "serverkit/settings.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include <zeb2/libzeb2.h>

namespace {

constexpr int k_failure = 1;
constexpr int k_usage = 2;

struct FreeTree {
    void operator()(CONF_node *tree) const { CONF_free(tree); }
};

std::optional<zebmsgd::Config> configure(const std::string &file, bool verbose) {
    CONF_node *loaded = nullptr;
    if (!serverkit::load_configuration(file.empty() ? nullptr : file.c_str(), &loaded))
        return std::nullopt;
    const std::unique_ptr<CONF_node, FreeTree> tree(loaded);
    auto config = zebmsgd::read_config(tree.get());
    if (config)
        config->verbose = verbose;
    return config;
}

int serve(const zebmsgd::Config &config) {
    zebmsgd::Server server(config, ZEB_VERSION);
    if (!server.open())
        return k_failure;
    UTIL_startupokay();
    return server.run() ? 0 : k_failure;
}

} // namespace

int main(int argc, char **argv) {
    std::string config_file;
    bool verbose = false;
    CLI::App app("Message server of a measuring station: passes messages between its programs.",
                 "zebmsgd");
    app.add_option("-c,--config", config_file,
                   "Configuration file (default: etc/zeb.conf under $ZEB2)");
    app.add_flag("-v,--verbose", verbose, "A line for each client that connects or leaves");
    app.set_version_flag("--version", "zebmsgd " ZEB_VERSION);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : k_usage;
    }
    if (!LIBZEB_init("zebmsgd"))
        return k_failure;
    const auto config = configure(config_file, verbose);
    const int status = config ? serve(*config) : k_failure;
    LIBZEB_cleanup();
    return status;
}

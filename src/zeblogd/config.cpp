#include "config.h"

#include "serverkit/settings.h"

#include <cstdlib>
#include <vector>

namespace zeblogd {
namespace {

double read_interval(serverkit::Settings &settings, const Duty &duty) {
    const std::string text = settings.text(duty.key, duty.usual);
    const auto interval = parse_interval(text);
    if (interval && is_interval(duty, *interval))
        return *interval;
    settings.refuse(duty.key, text, interval_limits(duty));
    return 0;
}

std::string environment(const char *name) {
    const char *value = getenv(name);
    return value != nullptr ? value : "";
}

std::string absolute(const std::string &path) {
    std::vector<char> result(path.size() + environment("ZEB2").size() + 2);
    UTIL_make_relative(path.c_str(), result.data());
    return result.data();
}

// The directory of the station's log files.
std::string log_directory(serverkit::Settings &settings) {
    constexpr size_t k_longest_code = 31;
    const std::string configured = settings.text("Disk;LogDir", "");
    if (!configured.empty())
        return absolute(configured);
    std::string station = settings.text("Disk;StationID", "nil").substr(0, k_longest_code);
    for (char &c : station)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return (getenv("DB") != nullptr ? environment("DB") : "/oru/db") + "/stn/" + station + "/log";
}

} // namespace

std::optional<Config> read_config(CONF_node *root) {
    serverkit::Settings settings(root);
    Config config;
    for (size_t i = 0; i < k_duty_count; ++i)
        config.intervals[i] = read_interval(settings, k_duties[i]);
    config.directory = log_directory(settings);
    return settings.good() ? std::optional(config) : std::nullopt;
}

} // namespace zeblogd

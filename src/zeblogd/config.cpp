#include "config.h"

#include "serverkit/station_keys.h"

#include <cstdlib>
#include <cstring>
#include <vector>

namespace zeblogd {
namespace {

using serverkit::tested, serverkit::text;

template <size_t Index> std::optional<std::string> fault_of_interval(const std::string &value) {
    const auto interval = parse_interval(value);
    const bool good = interval && is_interval(k_duties[Index], *interval);
    return good ? std::nullopt : std::optional(interval_limits(k_duties[Index]));
}

// The intervals in the order of the duties.
constexpr serverkit::Key k_table[] = {
    tested(text("Log;Interval;Switch", "24:00:00", "time between changes of log files; 0 is off"),
           fault_of_interval<0>),
    tested(text("Log;Interval;Average", "1:00", "time over which is averaged; 0 is off"),
           fault_of_interval<1>),
    tested(text("Log;Interval;Monitor", "5:00", "time between monitor records; 0 is off"),
           fault_of_interval<2>),
    tested(text("Log;Interval;Flush", "1:00", "time between flushes of log files; 0 is off"),
           fault_of_interval<3>),
    text("@;DisplayName", "Conductor", "name for people"),
    text("@;ID", "C", "one character that stands for it")};

std::string absolute(const std::string &path) {
    const char *const base = getenv("ZEB2");
    std::vector<char> result(path.size() + (base != nullptr ? strlen(base) : 0) + 2);
    UTIL_make_relative(path.c_str(), result.data());
    return result.data();
}

} // namespace

const serverkit::ProgramKeys k_keys = {
    "zeblogd",
    {k_table, serverkit::k_directory_keys, serverkit::k_tags_keys, serverkit::k_link_keys},
    [](serverkit::Settings &settings) { read_config(settings); },
    true};

std::optional<Config> read_config(CONF_node *root) {
    const serverkit::Keys keys(k_keys);
    serverkit::Settings settings(keys, root);
    return read_config(settings);
}

std::optional<Config> read_config(serverkit::Settings &settings) {
    Config config;
    for (size_t i = 0; i < k_duty_count; ++i)
        config.intervals[i] = parse_interval(settings.text(k_duties[i].key)).value_or(0);
    const std::string directory = settings.text("Disk;LogDir");
    config.directory = settings.written("Disk;LogDir").empty() ? directory : absolute(directory);
    return settings.good() ? std::optional(config) : std::nullopt;
}

} // namespace zeblogd

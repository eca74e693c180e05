// config.h - the conductor's keys in the station's configuration.
#pragma once

#include "duties.h"
#include "serverkit/settings.h"

#include <array>
#include <optional>
#include <string>

namespace zeblogd {

struct Config {
    std::array<double, k_duty_count> intervals; // s, in the order of the duties; 0: off
    std::string directory;                      // of the monitor files
};

extern const serverkit::ProgramKeys k_keys;

// Nothing when a value cannot be used; each such is reported. `root` may be null.
std::optional<Config> read_config(CONF_node *root);
std::optional<Config> read_config(serverkit::Settings &settings);

} // namespace zeblogd

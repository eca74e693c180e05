// config.h - the conductor's keys in the station's configuration.
#pragma once

#include "duties.h"

#include <array>
#include <optional>
#include <string>

namespace zeblogd {

struct Config {
    std::array<double, k_duty_count> intervals; // s, in the order of the duties; 0: off
    std::string directory;                      // of the monitor files
};

// Nothing when a value cannot be used; each such is reported. `root` may be null.
std::optional<Config> read_config(CONF_node *root);

} // namespace zeblogd

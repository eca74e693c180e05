// names.h - which device a client means by a port's name.
#pragma once

#include "line.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zebseriald {

// A port of the configuration.
struct PortConfig {
    std::string name;
    std::string device; // a path
    Line line = k_standard_line;
    size_t buffer_size = 65536;
    size_t echo_size = 16384;
};

// A path of a device as somebody wrote it: what does not begin with "/" is under /dev. Nothing when
// it is empty or leads upwards.
std::optional<std::string> device_path(std::string_view text);

struct Target {
    std::string device;
    const PortConfig *configured = nullptr;
};

// Resolves the name of a handshake: "=NAME" (of the configuration, in any case), "=/device/path",
// or a device under /dev. On failure says why.
std::optional<Target> resolve_name(std::string_view name, const std::vector<PortConfig> &ports,
                                   std::string &why);

} // namespace zebseriald

// config.h - the server's keys in the station's configuration.
#pragma once

#include "ports.h"
#include "serverkit/settings.h"
#include "serverkit/sockets.h"

#include <optional>
#include <string>
#include <vector>

#include <zeb2/conf.h>

namespace zebseriald {

struct Config {
    serverkit::LocalAccess access;
    double heartbeat_timeout = 30;
    double handshake_timeout = 10;
    std::string repeater_directory = "/var/log/zeb";
    Limits limits;
    std::vector<PortConfig> ports;
    bool verbose = false;
};

extern const serverkit::ProgramKeys k_keys;

// Nothing when a value cannot be used; each such is reported. `root` may be null.
std::optional<Config> read_config(CONF_node *root);
std::optional<Config> read_config(serverkit::Settings &settings);

} // namespace zebseriald

// config.h - the server's keys in the station's configuration.
#pragma once

#include "router.h"
#include "serverkit/settings.h"
#include "serverkit/sockets.h"

#include <optional>
#include <string>

#include <zeb2/conf.h>

namespace zebmsgd {

struct Config {
    serverkit::LocalAccess access;
    int tcp_port = 0; // 0: no TCP
    std::string tcp_address = "127.0.0.1";
    serverkit::AddressList tcp_allow; // empty: everybody who can reach the address
    double heartbeat_interval = 5;
    double heartbeat_timeout = 30;
    double handshake_timeout = 10;
    Limits limits;
    bool verbose = false;
};

extern const serverkit::ProgramKeys k_keys;

// Nothing when a value cannot be used; each such is reported. `root` may be null.
std::optional<Config> read_config(CONF_node *root);
std::optional<Config> read_config(serverkit::Settings &settings);

} // namespace zebmsgd

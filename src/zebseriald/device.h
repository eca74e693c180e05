// device.h - opening a terminal, and nothing else.
#pragma once

#include "line.h"
#include "serverkit/sockets.h"

#include <optional>
#include <string>
#include <sys/types.h>

namespace zebseriald {

struct Device {
    serverkit::UniqueFd fd;
    dev_t number = 0; // which device it is, by whatever name
    bool pseudo = false;
};

struct OpenFailure {
    std::string why;
    bool lasting = false; // it is no terminal: waiting does not help
    bool absent = false;  // it is not there
};

// The number of the device at a path; nothing when there is none.
std::optional<dev_t> device_number(const std::string &path);

// Opens a terminal and sets its line. On failure says why.
std::optional<Device> open_device(const std::string &path, const Line &line, OpenFailure &failure);

// Bytes that the terminal has taken and the line has not yet sent.
size_t unsent(int fd);

// Closes it without waiting for the line: what is unsent is lost.
void close_device(Device &device);

} // namespace zebseriald

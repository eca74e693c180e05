// message.h - messages as they travel: a view of one without unpacking its record.
#pragma once

#include "frame.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace serverkit {

constexpr uint32_t k_flag_publish = 1; // to every other client
constexpr uint32_t k_flag_retain = 2;  // kept for the clients that connect later

// A message in the bytes that it was parsed from.
struct Message {
    uint32_t flags = 0;
    std::string_view name; // of the message's type
    std::string_view destination;
    std::string_view source;
    std::string_view record; // name of the attached record's type, empty when there is none
    std::string_view rest;   // the package and whatever follows it
};

// Nothing when the payload ends before its announced fields, or has no message name.
std::optional<Message> parse_message(std::string_view payload);

// Packs and frames `message` with another source name. Empty when it is too long or memory is
// short.
Frame frame_message(const Message &message, std::string_view source);

} // namespace serverkit

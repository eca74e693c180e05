// A port string as somebody wrote it into a configuration.
#include "fuzz.h"

#include "serialcom.h"

namespace {

bool is_device(const std::string &name) {
    return name.find_first_of(": \t\n\r") == std::string::npos;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    SERIALD_connect_params name, again_name;
    SERIALD_port_params line, again_line;
    if (!SERIALCOM_breakdown_port_string(text.c_str(), &name, &line))
        return 0;
    MUST(memchr(name.port_name, '\0', sizeof name.port_name) != nullptr);
    if (name.port_name[0] == '=') {
        MUST(line.baud == 0 || text[0] != '=');
        return 0;
    }
    // Written down from what was read, it says the same.
    MUST(is_device(name.port_name) && line.baud != 0 && line.bits <= 9 && line.stop_bits <= 9);
    const std::string written = std::string(name.port_name) + ":" + std::to_string(line.baud) +
                                "noe"[line.parity] + std::to_string(line.bits) +
                                std::to_string(line.stop_bits);
    MUST(SERIALCOM_breakdown_port_string(written.c_str(), &again_name, &again_line));
    MUST(memcmp(&name, &again_name, sizeof name) == 0);
    MUST(memcmp(&line, &again_line, sizeof line) == 0);
    return 0;
}

#include "names.h"

#include <strings.h>

namespace zebseriald {
namespace {

bool leads_upwards(std::string_view path) {
    while (true) {
        const size_t slash = path.find('/');
        if (path.substr(0, slash) == "..")
            return true;
        if (slash == std::string_view::npos)
            return false;
        path.remove_prefix(slash + 1);
    }
}

} // namespace

std::optional<std::string> device_path(std::string_view text) {
    if (text.empty() || leads_upwards(text))
        return std::nullopt;
    return text[0] == '/' ? std::string(text) : "/dev/" + std::string(text);
}

std::optional<Target> resolve_name(std::string_view name, const std::vector<PortConfig> &ports,
                                   std::string &why) {
    const bool special = !name.empty() && name[0] == '=';
    if (special && !name.starts_with("=/")) {
        const std::string wanted(name.substr(1));
        for (const PortConfig &port : ports)
            if (strcasecmp(port.name.c_str(), wanted.c_str()) == 0)
                return Target{port.device, &port};
        why = "the configuration has no such port";
        return std::nullopt;
    }
    const auto path = device_path(special ? name.substr(1) : name);
    if (path)
        return Target{*path, nullptr};
    why = name.empty() ? "it is empty" : "it leads upwards";
    return std::nullopt;
}

} // namespace zebseriald

#include "message_choice.h"

#include <algorithm>

#include <zeb2/util.h>

namespace zebctl {
namespace {

constexpr std::string_view k_of_the_link[] = {
    "MSG_SERVER_CLIENTHANDSHAKE", "MSG_SERVER_HEARTBEAT", "MSG_SERVER_SERVERHANDSHAKE",
    "MSG_SERVER_TERMINATE",       "NET_SERVER_ADDFILTER", "NET_SERVER_DELETFILTER"};

bool matches_any(const std::vector<std::string> &patterns, std::string_view text) {
    if (patterns.empty())
        return true;
    const std::string whole(text);
    return std::any_of(patterns.begin(), patterns.end(), [&](const std::string &pattern) {
        return UTIL_wildcard_match(whole.c_str(), pattern.c_str());
    });
}

} // namespace

void MessageChoice::add_options(Command command) {
    command.add_option("-t,--type", types, "only messages of these types (* and ? match)");
    command.add_option("-f,--from", sources, "only messages of these programs (* and ? match)");
}

bool MessageChoice::matches(std::string_view type, std::string_view source) const {
    return matches_any(types, type) && matches_any(sources, source);
}

bool is_of_the_link(std::string_view type) {
    return std::find(std::begin(k_of_the_link), std::end(k_of_the_link), type) !=
           std::end(k_of_the_link);
}

} // namespace zebctl

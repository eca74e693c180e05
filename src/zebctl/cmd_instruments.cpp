// zebctl instruments - which instruments have announced themselves.

#include <cstdio>

#include "command.h"
#include "status_client.h"
#include "text.h"

namespace zebctl {
namespace {

using nlohmann::json;

std::string joined(const json &tags) {
    std::string text;
    for (const json &tag : tags)
        text += (text.empty() ? "" : ";") + tag.get<std::string>();
    return text;
}

// The announcement of each client that made one, with the client's name in front.
json announcements(const json &status) {
    json list = json::array();
    for (const json &client : status.value("clients", json::array())) {
        if (!client.contains("instrument") || !client["instrument"].is_object())
            continue;
        json entry = {{"name", client.value("name", "?")}};
        entry.update(client["instrument"]);
        list.push_back(entry);
    }
    return list;
}

int run_instruments(bool as_json) {
    const auto status = fetch_status();
    if (!status)
        return k_failed;
    const json list = announcements(*status);
    if (as_json) {
        printf("%s\n", list.dump(2, ' ', false, json::error_handler_t::replace).c_str());
        return k_done;
    }
    std::vector<std::vector<std::string>> rows = {{"program", "type", "id", "instrument", "tags"}};
    for (const json &entry : list)
        rows.push_back({entry.value("name", "?"), entry.value("type", ""), entry.value("id", ""),
                        entry.value("display_name", ""),
                        joined(entry.value("tags", json::array()))});
    printf("%s", table(rows).c_str());
    return k_done;
}

} // namespace

void add_instruments(Command app, Run &run) {
    auto as_json = std::make_shared<bool>(false);
    const Command command =
        app.add_subcommand("instruments", "List the instruments that announced themselves");
    command.add_flag("-j,--json", *as_json, "as JSON");
    command.callback([as_json, &run] { run = [as_json] { return run_instruments(*as_json); }; });
}

} // namespace zebctl

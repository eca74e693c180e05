// zebctl status - how the message server and its clients are doing.

#include <cstdio>

#include "command.h"
#include "status_client.h"
#include "text.h"

namespace zebctl {
namespace {

using nlohmann::json;

double number(const json &object, const char *key) {
    return object.contains(key) && object[key].is_number() ? object[key].get<double>() : 0;
}

std::string count(const json &object, const char *key) {
    return std::to_string(static_cast<long long>(number(object, key)));
}

void print_server(const json &status) {
    printf("%s %s, up %s\n", bold("zebmsgd").c_str(), status.value("version", "?").c_str(),
           duration(number(status, "uptime_seconds")).c_str());
    printf("messages  %s in, %s out\n", count(status, "messages_in").c_str(),
           count(status, "messages_out").c_str());
    printf("bytes     %s in, %s out\n", bytes(number(status, "bytes_in")).c_str(),
           bytes(number(status, "bytes_out")).c_str());
    printf("lost      %s dropped, %s clients cut off, %s connections refused\n\n",
           count(status, "dropped").c_str(), count(status, "cut_off").c_str(),
           count(status, "refused").c_str());
}

void print_clients(const json &clients) {
    std::vector<std::vector<std::string>> rows = {
        {"client", "connected", "in", "out", "queued", "filters", "retained"}};
    for (const json &client : clients)
        rows.push_back({client.value("name", "?"), duration(number(client, "connected_seconds")),
                        count(client, "messages_in"), count(client, "messages_out"),
                        bytes(number(client, "queue_bytes")),
                        std::to_string(client.value("filters", json::array()).size()),
                        count(client, "retained")});
    printf("%s", table(rows).c_str());
}

int run_status(bool as_json) {
    const auto status = fetch_status();
    if (!status)
        return k_failed;
    if (as_json) {
        printf("%s\n", status->dump(2, ' ', false, json::error_handler_t::replace).c_str());
        return k_done;
    }
    print_server(*status);
    print_clients(status->value("clients", json::array()));
    return k_done;
}

} // namespace

void add_status(Command app, Run &run) {
    auto as_json = std::make_shared<bool>(false);
    const Command command = app.add_subcommand("status", "Show the message server's state");
    command.add_flag("-j,--json", *as_json, "the whole document as JSON");
    command.callback([as_json, &run] { run = [as_json] { return run_status(*as_json); }; });
}

} // namespace zebctl

// zebctl describe - what the catalogue says of a record or a message.

#include <cstdio>
#include <string>

#include <zeb2/libzeb2.h>

#include "command.h"
#include "record_json.h"
#include "text.h"

namespace zebctl {
namespace {

struct Options {
    std::string name;
    bool json = false;
    bool list = false;
};

std::string declared_type(const NETDSD_field &field) {
    const bool is_array =
        field.count > 1 || (field.ft >= NETDSD_FT_A_BOOL && field.ft != NETDSD_FT_BIN);
    return std::string(field.type_name) + (is_array ? "[" + std::to_string(field.count) + "]" : "");
}

Json record_as_json(const NETDSD_entry &record) {
    Json fields = Json::array();
    for (size_t i = 0; i < record.count_fields; ++i) {
        const NETDSD_field &field = record.fields[i];
        fields.push_back({{"name", field.name},
                          {"type", field.type_name},
                          {"code", static_cast<int>(field.ft)},
                          {"kind", g_netpack_field_names[field.ft]},
                          {"offset", field.offset},
                          {"count", field.count},
                          {"size", field.size},
                          {"comment", field.comment}});
    }
    return {{"record", record.name}, {"size", record.total_size}, {"fields", fields}};
}

Json message_as_json(const NETMSG_entry &message) {
    return {{"message", message.name},
            {"number", static_cast<int>(message.msg)},
            {"class", message.meta_types},
            {"carries", message.ds_tie != nullptr ? Json(message.ds_tie) : Json(nullptr)}};
}

void print_record(const NETDSD_entry &record) {
    printf("%s, %zu bytes\n", bold(record.name).c_str(), record.total_size);
    std::vector<std::vector<std::string>> rows = {{"field", "type", "kind", "offset", "comment"}};
    for (size_t i = 0; i < record.count_fields; ++i) {
        const NETDSD_field &field = record.fields[i];
        rows.push_back({field.name, declared_type(field), g_netpack_field_names[field.ft],
                        std::to_string(field.offset), field.comment});
    }
    printf("%s", table(rows).c_str());
}

void print_message(const NETMSG_entry &message) {
    printf("%s, number %d, class \"%s\", %s%s\n", bold(message.name).c_str(),
           static_cast<int>(message.msg), message.meta_types,
           message.ds_tie != nullptr ? "carries " : "carries no record",
           message.ds_tie != nullptr ? message.ds_tie : "");
    const NETDSD_entry *record =
        message.ds_tie != nullptr ? NETPACK_find_ds(message.ds_tie) : nullptr;
    if (record != nullptr)
        print_record(*record);
}

int list_all(bool json) {
    Json all = {{"records", Json::array()}, {"messages", Json::array()}};
    for (size_t i = 0; i < _ndsd_structures_count_ext; ++i)
        all["records"].push_back(_ndsd_structures_ext[i].name);
    for (size_t i = 0; i < _nmsg_list_count_ext; ++i)
        all["messages"].push_back(_nmsg_list_ext[i].name);
    if (json) {
        printf("%s\n", all.dump(2).c_str());
        return k_done;
    }
    for (const char *kind : {"messages", "records"})
        for (const auto &name : all[kind])
            printf("%s\n", name.get<std::string>().c_str());
    return k_done;
}

// People type names in any case and forget endings: offer what contains the text.
void suggest(const std::string &name) {
    fprintf(stderr, "zebctl: the catalogue has neither a record nor a message \"%s\"\n",
            name.c_str());
    const auto offer = [&](const char *candidate) {
        if (strcasestr(candidate, name.c_str()) != nullptr)
            fprintf(stderr, "  did you mean %s?\n", candidate);
    };
    for (size_t i = 0; i < _nmsg_list_count_ext; ++i)
        offer(_nmsg_list_ext[i].name);
    for (size_t i = 0; i < _ndsd_structures_count_ext; ++i)
        offer(_ndsd_structures_ext[i].name);
}

int run_describe(const Options &options) {
    if (options.list)
        return list_all(options.json);
    const NETMSG_entry *message = NETPACK_find_msg_by_name(options.name.c_str());
    const NETDSD_entry *record = NETPACK_find_ds(options.name.c_str());
    if (message == nullptr && record == nullptr) {
        suggest(options.name);
        return k_failed;
    }
    if (options.json)
        printf("%s\n", (record != nullptr ? record_as_json(*record) : message_as_json(*message))
                           .dump(2)
                           .c_str());
    else if (record != nullptr)
        print_record(*record);
    else
        print_message(*message);
    return k_done;
}

} // namespace

void add_describe(Command app, Run &run) {
    auto options = std::make_shared<Options>();
    const Command command =
        app.add_subcommand("describe", "Show a record or message of the catalogue");
    const Option name =
        command.add_option("name", options->name, "such as NET_GPS_Fixinfo or MSG_GPS_INSTANT");
    command.add_flag("-l,--list", options->list, "list every name").excludes(name);
    command.add_flag("-j,--json", options->json, "as JSON");
    command.callback([options, &run] {
        if (!options->list && options->name.empty())
            throw UsageError("name", "name a record or a message, or use --list");
        run = [options] { return run_describe(*options); };
    });
}

} // namespace zebctl

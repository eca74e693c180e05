// What a log file's header says, for people and as JSON.

#include "log_output.h"
#include "text.h"

namespace zebctl {
namespace {

const std::pair<const char *, const char *> k_file_lines[] = {{"file", "fil;FileName"},
                                                              {"written by", "fil;ProcessedBy"},
                                                              {"version", "fil;version"},
                                                              {"library", "fil;zeb2;librev"}};

std::string record_text(const LogRecord &record) {
    std::vector<std::vector<std::string>> rows = {
        {"column", "unit", "format", "missing", "description"}};
    for (const LogColumn &column : record.columns)
        rows.push_back({shown(column.name), shown(column.unit), shown(column.format),
                        shown(column.missing), shown(column.description)});
    return "\n" + bold("record " + shown(record.type)) + "\n" + table(rows);
}

Json record_json(const LogRecord &record) {
    Json columns = Json::array();
    for (const LogColumn &column : record.columns)
        columns.push_back({{"name", column.name},
                           {"unit", column.unit},
                           {"format", column.format},
                           {"missing", column.missing},
                           {"description", column.description}});
    return {{"type", record.type}, {"columns", columns}};
}

} // namespace

std::string header_text(const LogHeader &header) {
    std::string text;
    for (const auto &[name, key] : k_file_lines)
        text += std::string(name) + ": " + shown(trimmed(header.value(key))) + "\n";
    for (const LogRecord &record : header.records())
        text += record_text(record);
    if (!header.comments().empty())
        text += "\n" + bold("configuration") + "\n";
    for (const auto &[key, value] : header.comments())
        text += shown(key) + (value.empty() ? "" : " = " + shown(value)) + "\n";
    return text;
}

Json header_json(const LogHeader &header) {
    Json json = Json::object();
    for (const auto &[name, key] : k_file_lines)
        json[name == std::string("written by") ? "by" : name] =
            std::string(trimmed(header.value(key)));
    json["records"] = Json::array();
    for (const LogRecord &record : header.records())
        json["records"].push_back(record_json(record));
    json["configuration"] = Json::array();
    for (const auto &[key, value] : header.comments())
        json["configuration"].push_back({{"key", key}, {"value", value}});
    return json;
}

} // namespace zebctl

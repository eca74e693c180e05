#include "diff.h"

#include <nlohmann/json.hpp>

namespace zebgen {
namespace {

using Json = nlohmann::ordered_json;

Json json_of(const Effect &effect) {
    return {{"seen", effect.text}, {"lost", effect.lost}};
}

Json json_of(const Change &change) {
    Json json = {{"file", change.file}, {"subject", change.subject}};
    json["field"] = change.field.empty() ? Json() : Json(change.field);
    json["kind"] = change.kind;
    json["what"] = change.what;
    json["breaking"] = change.breaking();
    json["old_to_new"] = json_of(change.to_new);
    json["new_to_old"] = json_of(change.to_old);
    json["within"] = change.within;
    return json;
}

} // namespace

std::string json_of(const std::vector<Change> &changes) {
    Json list = Json::array();
    bool breaking = false;
    for (const Change &change : changes) {
        list.push_back(json_of(change));
        breaking |= change.breaking();
    }
    // File names need not be UTF-8.
    return Json({{"breaking", breaking}, {"changes", list}})
        .dump(2, ' ', false, Json::error_handler_t::replace);
}

} // namespace zebgen

#include "checks.h"

#include "layout.h"
#include "parser.h"

#include <algorithm>
#include <map>
#include <set>

namespace zebgen {
namespace {

std::string line_of(const Place &place) {
    return place.file + ":" + std::to_string(place.line);
}

class Checker {
  public:
    Checker(const std::vector<Source> &sources, Problems &problems)
        : sources_(sources), problems_(problems) {}

    void run() {
        for (const Source &source : sources_)
            names(source);
        for (const Source &source : sources_) {
            for (const Record &record : source.records)
                check(source, record);
            for (const Message &message : source.messages)
                check(message);
        }
        for (const auto &[name, record] : records_)
            descend(*record);
    }

    // The elements of a field of a header that was checked.
    uint64_t count_of(const Source &source, const Field &field) const {
        int64_t value = 1;
        if (field.array)
            resolve(source, field.length, value);
        return static_cast<uint64_t>(value);
    }

  private:
    using Named = std::map<std::string, Place>;
    using Constants = std::map<std::string, int64_t>;

    // A record on the way down through its members.
    struct Step {
        const Record *record;
        size_t next = 0; // member to look at
        int depth = 0;   // of the records below
    };

    void refuse(const Place &place, std::string what, std::string mend) {
        problems_.push_back({place, std::move(what), std::move(mend)});
    }

    // Records and messages share one name space, as they do for the compiler.
    void names(const Source &source) {
        Named defines;
        for (const Define &define : source.defines) {
            claim(defines, "macro", define.name, define.place);
            constants_.emplace(define.name, define.value);
            own_constants_[&source].emplace(define.name, define.value);
        }
        for (const Record &record : source.records) {
            claim(declared_, "record", record.name, record.place);
            records_.emplace(record.name, &record);
        }
        for (const Message &message : source.messages)
            claim(declared_, "message", message.name, message.place);
    }

    void claim(Named &names, const std::string &kind, const std::string &name, const Place &place) {
        const auto [other, fresh] = names.emplace(name, place);
        if (!fresh)
            refuse(place,
                   kind + " '" + name + "' is declared twice (first at " + line_of(other->second) +
                       ")",
                   "rename or remove one");
        if (name.size() > k_max_name)
            refuse(place, "name of " + std::to_string(name.size()) + " characters",
                   "use at most " + std::to_string(k_max_name));
    }

    void check(const Source &source, const Record &record) {
        Named members;
        for (const Field &field : record.fields) {
            claim(members, "member", field.name, field.place);
            if (field.array)
                check_length(source, field);
            if (field.nested && !records_.count(field.type))
                refuse(field.type_place, "type '" + field.type + "' is unknown",
                       "use a type of <zeb2/port.h> or a record of these headers");
        }
    }

    void check_length(const Source &source, const Field &field) {
        int64_t value = 0;
        if (!resolve(source, field.length, value))
            refuse(field.length_place, "array length '" + field.length + "' is unknown",
                   "write a number or the name of an integer #define of these headers");
        else if (value < 1 || value > k_max_length)
            refuse(field.length_place, "array length " + std::to_string(value) + " is out of range",
                   "use 1 to " + std::to_string(k_max_length));
    }

    // A constant of the same header goes first; the compiler has the last word in any case.
    bool resolve(const Source &source, const std::string &length, int64_t &value) const {
        const auto own = own_constants_.find(&source);
        return (own != own_constants_.end() && look_up(own->second, length, value)) ||
               look_up(constants_, length, value) || parse_integer(length, value);
    }

    static bool look_up(const Constants &constants, const std::string &name, int64_t &value) {
        const auto constant = constants.find(name);
        if (constant == constants.end())
            return false;
        value = constant->second;
        return true;
    }

    void check(const Message &message) {
        const std::string allowed = "abcdefghijklmnopqrstuvwxyz0123456789_";
        const bool word =
            !message.meta.empty() && message.meta.find_first_not_of(allowed) == std::string::npos;
        if (!word && message.meta != "*")
            refuse(message.meta_place, "meta type \"" + message.meta + "\" is no lowercase word",
                   "use small letters, digits and '_', or \"*\" for every instrument");
        if (!message.record.empty() && !records_.count(message.record))
            refuse(message.record_place,
                   "record '" + message.record + "' of message '" + message.name +
                       "' is not declared",
                   "declare it, or use ZEB_MESSAGE_BARE for a message without a record");
    }

    // Records nested in themselves, directly or through others: no compiler takes them, but the
    // run must end all the same, however long the way. So the steps lie in a vector, not on the
    // stack of calls.
    void descend(const Record &record) {
        if (depths_.count(record.name))
            return;
        std::vector<Step> steps = {{&record}};
        std::set<std::string> path = {record.name};
        while (!steps.empty()) {
            Step &step = steps.back();
            if (step.next < step.record->fields.size()) {
                const Field &field = step.record->fields[step.next++];
                if (const Record *nested = enter(field, path, step))
                    steps.push_back({nested});
                continue;
            }
            const Step done = step;
            steps.pop_back();
            leave(done, path);
            if (!steps.empty())
                steps.back().depth = std::max(steps.back().depth, done.depth + 1);
        }
    }

    // The record to look into, if the member is one that was not looked into yet.
    const Record *enter(const Field &field, std::set<std::string> &path, Step &step) {
        const auto nested = field.nested ? records_.find(field.type) : records_.end();
        if (nested == records_.end())
            return nullptr;
        const auto known = depths_.find(field.type);
        if (known != depths_.end())
            step.depth = std::max(step.depth, known->second + 1);
        else if (!path.insert(field.type).second)
            refuse(field.type_place, "record '" + field.type + "' is nested in itself",
                   "a record has a fixed size: remove the member");
        else
            return nested->second;
        return nullptr;
    }

    // Reports a chain of records once, where it becomes too long.
    void leave(const Step &step, std::set<std::string> &path) {
        const Record &record = *step.record;
        path.erase(record.name);
        depths_.emplace(record.name, step.depth);
        if (step.depth == k_max_depth + 1)
            refuse(record.place,
                   "record '" + record.name + "' nests records " + std::to_string(step.depth) +
                       " deep",
                   "use at most " + std::to_string(k_max_depth));
    }

    const std::vector<Source> &sources_;
    Problems &problems_;
    Named declared_;
    std::map<std::string, const Record *> records_;
    Constants constants_;
    std::map<const Source *, Constants> own_constants_;
    std::map<std::string, int> depths_; // records below each record
};

// std::string compares bytes, as strcmp does.
template <typename Item> void sort_by_name(std::vector<Item> &items) {
    std::sort(items.begin(), items.end(),
              [](const Item &a, const Item &b) { return a.name < b.name; });
}

} // namespace

std::string text_of(const Problem &problem) {
    return problem.place.file + ":" + std::to_string(problem.place.line) + ":" +
           std::to_string(problem.place.column) + ": error: " + problem.what + "; " + problem.mend;
}

Catalogue merge(const std::vector<Source> &sources, Problems &problems) {
    const size_t before = problems.size();
    Checker checker(sources, problems);
    checker.run();
    Catalogue catalogue;
    for (const Source &source : sources) {
        catalogue.includes.push_back(source.include);
        catalogue.headers.push_back({source.path, source.preface});
        for (Record record : source.records) {
            for (Field &field : record.fields)
                field.count = checker.count_of(source, field);
            catalogue.records.push_back(std::move(record));
        }
        catalogue.messages.insert(catalogue.messages.end(), source.messages.begin(),
                                  source.messages.end());
    }
    sort_by_name(catalogue.records);
    sort_by_name(catalogue.messages);
    if (problems.size() == before)
        lay_out(catalogue.records);
    for (Record &record : catalogue.records)
        sort_by_name(record.fields);
    return catalogue;
}

} // namespace zebgen

#include "diff.h"

#include "layout.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <tuple>

namespace zebgen {
namespace {

constexpr size_t k_max_listed = 8; // of names in one line

const char k_same[] = "the same values";
const char k_all_files[] = "(all)";

std::string file_of(const Place &place) {
    return std::filesystem::path(place.file).filename().string();
}

std::string quoted(const std::string &text) {
    return '"' + text + '"';
}

// The items that only the older side, both, or only the newer side has, in the order of their
// names.
template <typename Item, typename Removed, typename Both, typename Added>
void pair_up(const std::vector<Item> &older, const std::vector<Item> &newer, Removed removed,
             Both both, Added added) {
    auto a = older.begin();
    auto b = newer.begin();
    while (a != older.end() || b != newer.end()) {
        if (b == newer.end() || (a != older.end() && a->name < b->name))
            removed(*a++);
        else if (a == older.end() || b->name < a->name)
            added(*b++);
        else
            both(*a++, *b++);
    }
}

std::string listed(const std::vector<std::string> &names) {
    std::string text;
    for (size_t i = 0; i < names.size() && i < k_max_listed; i++)
        text += (i ? ", " : "") + names[i];
    if (names.size() > k_max_listed)
        text += " and " + std::to_string(names.size() - k_max_listed) + " more";
    return text;
}

// Where records are nested, of both revisions: "RECORD.member", through any number of records.
class Nesting {
  public:
    void add(const Catalogue &catalogue) {
        for (const Record &record : catalogue.records)
            for (const Field &field : record.fields)
                if (field.nested)
                    holders_[field.type].insert({record.name, field.name});
    }

    // The nearest first; a record may be reached in very many ways, so no more than can be listed.
    std::vector<std::string> paths_to(const std::string &record) const {
        std::vector<std::string> paths;
        std::vector<Holder> level = {{record, ""}};
        while (!level.empty() && paths.size() < k_max_listed) {
            const std::vector<Holder> reached = above(level);
            for (const Holder &holder : reached)
                paths.push_back(holder.record + "." + holder.member);
            level = reached;
        }
        paths.resize(std::min(paths.size(), k_max_listed));
        return paths;
    }

  private:
    struct Holder {
        std::string record;
        std::string member;
        bool operator<(const Holder &other) const {
            return std::tie(record, member) < std::tie(other.record, other.member);
        }
    };

    std::vector<Holder> above(const std::vector<Holder> &level) const {
        std::vector<Holder> reached;
        for (const Holder &below : level) {
            const auto holders = holders_.find(below.record);
            if (holders == holders_.end())
                continue;
            for (const Holder &holder : holders->second)
                if (reached.size() < k_max_listed)
                    reached.push_back(
                        {holder.record,
                         holder.member + (below.member.empty() ? "" : ".") + below.member});
        }
        return reached;
    }

    std::map<std::string, std::set<Holder>> holders_;
};

class Comparison {
  public:
    Comparison(const Catalogue &older, const Catalogue &newer) : older_(older), newer_(newer) {
        nesting_.add(older);
        nesting_.add(newer);
    }

    std::vector<Change> run() {
        pair_up(
            older_.records, newer_.records, [this](const Record &a) { removed(a); },
            [this](const Record &a, const Record &b) { both(a, b); },
            [this](const Record &b) { added(b); });
        pair_up(
            older_.messages, newer_.messages, [this](const Message &a) { removed(a); },
            [this](const Message &a, const Message &b) { both(a, b); },
            [this](const Message &b) { added(b); });
        numbers();
        std::stable_sort(changes_.begin(), changes_.end(), [](const Change &a, const Change &b) {
            return std::tie(a.file, a.subject, a.field) < std::tie(b.file, b.subject, b.field);
        });
        return std::move(changes_);
    }

  private:
    void note(const Place &place, const std::string &subject, const std::string &field,
              const std::string &kind, const std::string &what, Effect to_new, Effect to_old) {
        changes_.push_back({file_of(place), subject, field, kind, what, std::move(to_new),
                            std::move(to_old), nesting_.paths_to(subject)});
    }

    // Records

    void removed(const Record &record) {
        const Effect gone = {"no such record: messages and members that carry it are dropped",
                             true};
        note(record.place, record.name, "", "removed", "record removed", gone, gone);
    }

    void added(const Record &record) {
        note(record.place, record.name, "", "added", "record added", {"not sent", false},
             {"no such record: messages and members that carry it are dropped", false});
    }

    void both(const Record &a, const Record &b) {
        moved(a.place, b.place, b.name);
        layout(a, b);
        pair_up(
            a.fields, b.fields, [&](const Field &field) { removed(b, field); },
            [&](const Field &old, const Field &fresh) { both(b, old, fresh); },
            [&](const Field &field) { added(b, field); });
    }

    // A header is part of no package.
    void moved(const Place &a, const Place &b, const std::string &subject) {
        if (file_of(a) != file_of(b))
            note(b, subject, "", "file", "moved here from " + file_of(a), {k_same}, {k_same});
    }

    void layout(const Record &a, const Record &b) {
        std::vector<std::string> names;
        for (const Field &field : b.fields)
            for (const Field &old : a.fields)
                if (old.name == field.name && old.offset != field.offset)
                    names.push_back(field.name);
        if (names.empty() && a.size == b.size)
            return;
        std::string what = "layout in memory changed";
        if (a.size != b.size)
            what += ", " + std::to_string(a.size) + " to " + std::to_string(b.size) + " bytes";
        if (!names.empty())
            what += ", moved: " + listed(names);
        const Effect by_name = {"the same values, as fields travel by name", false};
        note(b.place, b.name, "", "layout", what, by_name, by_name);
    }

    // Fields

    void removed(const Record &record, const Field &field) {
        note(record.place, record.name, field.name, "removed", "removed (" + declared(field) + ")",
             {"dropped", true}, {missing_text(field), true});
    }

    void added(const Record &record, const Field &field) {
        note(record.place, record.name, field.name, "added", "added (" + declared(field) + ")",
             {missing_text(field), false}, {"ignored", false});
    }

    void both(const Record &record, const Field &a, const Field &b) {
        const bool declaration = declared(a) != declared(b);
        if (declaration || a.code != b.code) {
            const bool type = a.type != b.type;
            const char *kind = type ? "type" : a.code == "STRING" ? "capacity" : "count";
            note(record.place, record.name, b.name, kind, declared(a) + " to " + declared(b),
                 transfer(a, b, Direction::old_to_new), transfer(b, a, Direction::new_to_old));
        }
        if (a.comment != b.comment)
            note(record.place, record.name, b.name, "comment",
                 "comment " + quoted(a.comment) + " to " + quoted(b.comment), {k_same}, {k_same});
    }

    // Messages

    void removed(const Message &message) {
        note(message.place, message.name, "", "removed", "message removed",
             {"dropped: no such message", true}, {"no longer sent", true});
    }

    void added(const Message &message) {
        note(message.place, message.name, "", "added",
             message.record.empty() ? "message added" : "message added, carries " + message.record,
             {"not sent", false}, {"dropped: no such message", false});
    }

    void both(const Message &a, const Message &b) {
        moved(a.place, b.place, b.name);
        if (a.record != b.record) {
            const auto tie = [](const Message &message) {
                return message.record.empty() ? "nothing" : message.record;
            };
            const Effect discarded = {"discarded: it does not carry what is expected", true};
            note(b.place, b.name, "", "tie", "carries " + tie(a) + ", now " + tie(b), discarded,
                 discarded);
        }
        if (a.meta != b.meta)
            note(b.place, b.name, "", "class", "class " + quoted(a.meta) + " to " + quoted(b.meta),
                 {"filters for " + quoted(a.meta) + " miss it at a new server", true},
                 {"filters for " + quoted(b.meta) + " miss it at an old server", true});
    }

    // Messages travel by name, but the filters that clients send to the server carry numbers.
    void numbers() {
        std::map<std::string, size_t> old;
        for (size_t i = 0; i < older_.messages.size(); i++)
            old.emplace(older_.messages[i].name, i);
        size_t count = 0;
        std::string first;
        for (size_t i = 0; i < newer_.messages.size(); i++) {
            const auto was = old.find(newer_.messages[i].name);
            if (was == old.end() || was->second == i)
                continue;
            if (count++ == 0)
                first = was->first + " from " + std::to_string(was->second) + " to " +
                        std::to_string(i);
        }
        if (count == 0)
            return;
        const std::string rest = " server may be another message's; all else goes by name";
        changes_.push_back({k_all_files,
                            "messages",
                            "",
                            "numbers",
                            std::to_string(count) + " renumbered, the first " + first,
                            {"the number in a filter at a new" + rest, true},
                            {"the number in a filter at an old" + rest, true}});
    }

    const Catalogue &older_;
    const Catalogue &newer_;
    Nesting nesting_;
    std::vector<Change> changes_;
};

} // namespace

std::vector<Change> compare(const Catalogue &older, const Catalogue &newer) {
    return Comparison(older, newer).run();
}

std::string text_of(const Change &change) {
    std::string text = change.file + ": " + change.subject;
    if (!change.field.empty())
        text += "." + change.field;
    text +=
        std::string(": ") + (change.breaking() ? "breaking" : "compatible") + ": " + change.what;
    if (change.to_new.text == change.to_old.text)
        text += "; either way: " + change.to_new.text;
    else
        text += "; old to new: " + change.to_new.text + "; new to old: " + change.to_old.text;
    if (!change.within.empty())
        text += "; within " + listed(change.within);
    return text;
}

} // namespace zebgen

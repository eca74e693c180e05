#include "docs.h"

#include "comment.h"
#include "layout.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>

namespace zebgen {
namespace {

const char k_index[] = "index";
const char k_structures[] = "structures";
const char k_messages[] = "messages";

std::string stem_of(const std::string &path) {
    return std::filesystem::path(path).stem().string();
}

Text plain(const std::string &text) {
    return text.empty() ? Text() : Text{{text}};
}
Text code(const std::string &text) {
    return text.empty() ? Text() : Text{{text, true}};
}
Text number(uint64_t value) {
    return plain(std::to_string(value));
}

// "neph.h - three-wavelength nephelometer." without the name, as a sentence.
std::string preface_of(const Header &header) {
    const std::string name = std::filesystem::path(header.path).filename().string() + " - ";
    std::string text = header.preface;
    if (text.rfind(name, 0) == 0)
        text.erase(0, name.size());
    if (!text.empty() && text[0] >= 'a' && text[0] <= 'z')
        text[0] = static_cast<char>(text[0] - 'a' + 'A');
    return text;
}

// To the end that a full stop makes, for one line of an index.
std::string first_sentence(const std::string &text) {
    const size_t end = text.find(". ");
    return end == std::string::npos ? text : text.substr(0, end + 1);
}

void append(Text &to, const Text &more) {
    to.insert(to.end(), more.begin(), more.end());
}

class Writer {
  public:
    explicit Writer(const Catalogue &catalogue) : catalogue_(catalogue) {
        name_pages();
        for (size_t i = 0; i < catalogue.messages.size(); i++) {
            const Message &message = catalogue.messages[i];
            numbers_[message.name] = i;
            if (!message.record.empty())
                carriers_[message.record].push_back(&message);
        }
        for (const Record &record : catalogue.records)
            for (const Field &field : record.fields)
                if (field.nested)
                    holders_[field.type].push_back({&record, field.name});
    }

    std::vector<Page> run() {
        std::vector<Page> pages = {index(), structures(), messages()};
        for (const Header &header : catalogue_.headers)
            pages.push_back(header_page(header));
        return pages;
    }

  private:
    struct Holder {
        const Record *record;
        std::string member;
    };

    // Two headers of one name, of different directories, or of an index's name, get a number each.
    void name_pages() {
        std::set<std::string> taken = {k_index, k_structures, k_messages};
        for (const Header &header : catalogue_.headers) {
            const std::string stem = stem_of(header.path);
            std::string name = stem;
            for (int i = 2; !taken.insert(name).second; i++)
                name = stem + "-" + std::to_string(i);
            pages_.emplace(header.path, name);
        }
    }

    const std::string &page_of(const Place &place) const { return pages_.at(place.file); }

    Text link(const Record &record) const {
        return {{record.name, true, page_of(record.place) + "#" + record.name}};
    }
    Text link(const std::string &record) const {
        const Record *found = find_record(catalogue_.records, record);
        return found ? link(*found) : code(record);
    }
    Text page_link(const Place &place) const { return {{page_of(place), false, page_of(place)}}; }

    // Indexes

    Page index() const {
        Page page = {k_index, "Catalogue", {}, {}};
        page.intro = {{{std::to_string(catalogue_.records.size()) + " "},
                       {"structures", false, k_structures},
                       {" and " + std::to_string(catalogue_.messages.size()) + " "},
                       {"messages", false, k_messages},
                       {", by the instrument or service that declares them."}}};
        Section section;
        section.heading = "Instruments and services";
        section.table = {{"Header", "What", "Structures", "Messages", "Class"},
                         {false, false, true, true, false},
                         {}};
        for (const Header &header : catalogue_.headers)
            section.table.rows.push_back(index_row(header));
        page.sections.push_back(std::move(section));
        return page;
    }

    std::vector<Text> index_row(const Header &header) const {
        const auto here = [&](const auto &item) { return item.place.file == header.path; };
        const auto records =
            std::count_if(catalogue_.records.begin(), catalogue_.records.end(), here);
        std::set<std::string> classes;
        size_t messages = 0;
        for (const Message &message : catalogue_.messages)
            if (here(message)) {
                classes.insert(message.meta);
                messages++;
            }
        Text words;
        for (const std::string &word : classes)
            append(words, {{words.empty() ? "" : ", "}, {word, true}});
        const std::string &name = pages_.at(header.path);
        return {{{name, false, name}},
                plain(first_sentence(preface_of(header))),
                number(static_cast<uint64_t>(records)),
                number(messages),
                words};
    }

    Page structures() const {
        Page page = {k_structures, "Structures", {}, {}};
        Section section;
        section.heading = "By name";
        section.table = {{"Structure", "Header", "Bytes", "What", "Carried by"},
                         {false, false, true, false, false},
                         {}};
        for (const Record &record : catalogue_.records)
            section.table.rows.push_back({link(record), page_link(record.place),
                                          number(record.size),
                                          plain(first_sentence(record.comment)), carriers(record)});
        page.sections.push_back(std::move(section));
        return page;
    }

    Page messages() const {
        Page page = {k_messages, "Messages", {}, {}};
        page.intro = {
            plain("Numbers follow from the order of the names and are one catalogue's own: "
                  "messages travel by name. A message without a structure carries none.")};
        Section section;
        section.heading = "By name";
        section.table = {{"Number", "Message", "Class", "Structure", "Header"},
                         {true, false, false, false, false},
                         {}};
        for (const Message &message : catalogue_.messages)
            section.table.rows.push_back({number(numbers_.at(message.name)), code(message.name),
                                          code(message.meta), link(message.record),
                                          page_link(message.place)});
        page.sections.push_back(std::move(section));
        return page;
    }

    Text carriers(const Record &record) const {
        Text text;
        const auto messages = carriers_.find(record.name);
        if (messages == carriers_.end())
            return text;
        for (const Message *message : messages->second)
            append(text, {{text.empty() ? "" : ", "}, {message->name, true}});
        return text;
    }

    // Pages of headers

    Page header_page(const Header &header) const {
        Page page = {pages_.at(header.path), stem_of(header.path), {}, {}};
        const std::string preface = preface_of(header);
        if (!preface.empty())
            page.intro.push_back(plain(preface));
        Section own = message_section(header);
        if (!own.table.rows.empty())
            page.sections.push_back(std::move(own));
        for (const Record *record : declared_in(header))
            page.sections.push_back(record_section(*record));
        return page;
    }

    Section message_section(const Header &header) const {
        Section section;
        section.heading = "Messages";
        section.table = {
            {"Number", "Message", "Class", "Structure"}, {true, false, false, false}, {}};
        for (const Message &message : catalogue_.messages)
            if (message.place.file == header.path)
                section.table.rows.push_back({number(numbers_.at(message.name)), code(message.name),
                                              code(message.meta), link(message.record)});
        return section;
    }

    std::vector<const Record *> declared_in(const Header &header) const {
        std::vector<const Record *> records;
        for (const Record &record : catalogue_.records)
            if (record.place.file == header.path)
                records.push_back(&record);
        std::sort(records.begin(), records.end(),
                  [](const Record *a, const Record *b) { return a->place.line < b->place.line; });
        return records;
    }

    Section record_section(const Record &record) const {
        Section section;
        section.heading = record.name;
        section.code = true;
        if (!record.comment.empty())
            section.before.push_back(plain(record.comment));
        section.before.push_back(use_of(record));
        section.table = {
            {"Field", "Type", "Count", "Offset", "Unit", "Description", "Variable", "Low", "High"},
            {false, false, true, true, false, false, false, true, true},
            {}};
        std::vector<const Field *> fields;
        for (const Field &field : record.fields)
            fields.push_back(&field);
        std::sort(fields.begin(), fields.end(),
                  [](const Field *a, const Field *b) { return a->offset < b->offset; });
        for (const Field *field : fields)
            section.table.rows.push_back(field_row(*field));
        drop_empty_columns(section.table);
        return section;
    }

    // "228 bytes. Carried by MSG_A. Nested in NET_B (in)."
    Text use_of(const Record &record) const {
        Text text = plain(std::to_string(record.size) + (record.size == 1 ? " byte." : " bytes."));
        const Text messages = carriers(record);
        if (!messages.empty()) {
            append(text, plain(" Carried by "));
            append(text, messages);
            append(text, plain("."));
        }
        const auto holders = holders_.find(record.name);
        if (holders == holders_.end())
            return text;
        append(text, plain(" Nested in "));
        for (size_t i = 0; i < holders->second.size(); i++) {
            const Holder &holder = holders->second[i];
            append(text, plain(i ? ", " : ""));
            append(text, link(*holder.record));
            append(text, {{" as "}, {holder.member, true}});
        }
        append(text, plain("."));
        return text;
    }

    std::vector<Text> field_row(const Field &field) const {
        const CommentParts parts = parts_of(field.comment);
        return {code(field.name),
                field.nested ? link(field.type) : code(field.type),
                field.array ? number(field.count) : Text(),
                number(field.offset),
                plain(parts.unit),
                plain(parts.main ? "The record's main reading" : parts.description),
                code(parts.variable),
                plain(parts.low),
                plain(parts.high)};
    }

    // A column that says nothing of any field is left out.
    static void drop_empty_columns(Table &table) {
        for (size_t column = table.head.size(); column-- > 0;) {
            const bool used =
                std::any_of(table.rows.begin(), table.rows.end(),
                            [&](const std::vector<Text> &row) { return !row[column].empty(); });
            if (used)
                continue;
            const auto at = static_cast<std::ptrdiff_t>(column);
            table.head.erase(table.head.begin() + at);
            table.numeric.erase(table.numeric.begin() + at);
            for (std::vector<Text> &row : table.rows)
                row.erase(row.begin() + at);
        }
    }

    const Catalogue &catalogue_;
    std::map<std::string, std::string> pages_; // by the path of the header
    std::map<std::string, size_t> numbers_;
    std::map<std::string, std::vector<const Message *>> carriers_; // by record
    std::map<std::string, std::vector<Holder>> holders_;           // by nested record
};

} // namespace

std::vector<Page> pages_of(const Catalogue &catalogue) {
    return Writer(catalogue).run();
}

std::vector<std::pair<std::string, std::string>> page_navigation() {
    return {{k_index, "Catalogue"}, {k_structures, "Structures"}, {k_messages, "Messages"}};
}

} // namespace zebgen

#include "log_header.h"

#include <algorithm>
#include <cctype>

namespace zebctl {
namespace {

// What the header may fill the memory with; those of real stations are far below.
constexpr size_t k_most_header_bytes = 8 << 20;
constexpr size_t k_most_columns = 10000;

bool starts_with(std::string_view text, std::string_view beginning) {
    return text.substr(0, beginning.size()) == beginning;
}

// The text in the last pair of brackets, at the end: "Temperature (C)".
std::string unit_of(std::string_view description) {
    description = trimmed(description);
    if (description.empty() || (description.back() != ')' && description.back() != ']'))
        return "";
    const char opening = description.back() == ')' ? '(' : '[';
    const size_t begin = description.rfind(opening);
    if (begin == std::string_view::npos)
        return "";
    return std::string(description.substr(begin + 1, description.size() - begin - 2));
}

// The bytes of the UTF-8 character at the beginning of a text; 0 when it is none, or a control
// character.
size_t character_length(std::string_view text) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned first = byte(0);
    if (first < 0x80)
        return first >= 0x20 && first != 0x7F ? 1 : 0;
    const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < length)
        return 0;
    unsigned code = first & (0xFFU >> (length + 1));
    for (size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0U) != 0x80)
            return 0;
        code = code << 6 | (byte(i) & 0x3FU);
    }
    constexpr unsigned smallest[] = {0, 0, 0xA0, 0x800, 0x10000};
    const bool is_surrogate = code >= 0xD800 && code < 0xE000;
    // Marks that reverse or hide the text around them.
    const bool is_mark = (code >= 0x200B && code <= 0x200F) || (code >= 0x2028 && code <= 0x202E) ||
                         (code >= 0x2066 && code <= 0x2069) || code == 0xFEFF;
    return code >= smallest[length] && code <= 0x10FFFF && !is_surrogate && !is_mark ? length : 0;
}

} // namespace

bool LogColumn::is_hexadecimal() const {
    return !format.empty() && (format.back() == 'x' || format.back() == 'X');
}

std::string LogColumn::label() const {
    return unit.empty() ? name : name + " (" + unit + ")";
}

void LogHeader::add(std::string_view line) {
    size_ += line.size();
    if (size_ > k_most_header_bytes) {
        is_too_long_ = true;
        return;
    }
    const size_t comma = line.find(',');
    const std::string key(line.substr(1, comma == line.npos ? line.npos : comma - 1));
    const std::string value(comma == line.npos ? "" : line.substr(comma + 1));
    if (lines_++ == 0)
        begins_with_name_ = key == "fil;FileName";
    const std::pair<const char *, Texts *> rows[] = {
        {"row;colhdr;", &names_}, {"row;mvc;", &missing_}, {"row;varfmt;", &formats_}};
    for (const auto &[beginning, texts] : rows) {
        if (starts_with(key, beginning)) {
            texts->emplace(key.substr(std::string_view(beginning).size()), value);
            return;
        }
    }
    constexpr std::string_view processed_by = "fil;ProcessedBy;";
    if (starts_with(key, processed_by))
        values_.emplace("fil;ProcessedBy", key.substr(processed_by.size()));
    else if (starts_with(key, "var;") || key == "fil;FileName" || key == "fil;version" ||
             key == "fil;zeb2;librev")
        values_.emplace(key, value);
    else
        comments_.emplace_back(key, value);
}

std::vector<std::string> LogHeader::finish() {
    std::vector<std::string> faults;
    if (!begins_with_name_)
        faults.push_back("the file does not begin with its header, the line \"!fil;FileName,...\"");
    else if (const std::string version = value("fil;version"); version != "zeb2")
        faults.push_back("the header's version is \"" + version + "\", not \"zeb2\"");
    if (is_too_long_)
        faults.push_back("the header is too long; the rest of it is not used");
    for (const auto &[type, row] : names_)
        add_record(type, row, faults);
    return faults;
}

void LogHeader::add_record(const std::string &type, const std::string &row,
                           std::vector<std::string> &faults) {
    const auto names = split(row, ';');
    columns_ += names.size();
    if (columns_ > k_most_columns) {
        faults.push_back("the header has too many columns; record " + type + " is not used");
        return;
    }
    if (names.size() <= k_log_leading_columns || names[0] != type || names[1] != "STN" ||
        names[2] != "EPOCH" || names[3] != "DateTime") {
        faults.push_back("the columns of record " + type + " do not begin with \"" + type +
                         ";STN;EPOCH;DateTime\"");
        return;
    }
    LogRecord record = {type, {}};
    for (size_t i = 1; i < names.size(); ++i) {
        LogColumn column;
        column.name = names[i];
        describe(column);
        if (i <= k_log_leading_columns)
            column.unit.clear();
        record.columns.push_back(column);
    }
    take_texts(missing_, record, &LogColumn::missing, "missing values", faults);
    take_texts(formats_, record, &LogColumn::format, "formats", faults);
    records_.push_back(record);
}

void LogHeader::describe(LogColumn &column) const {
    const std::string key = "var;" + column.name + ";";
    column.description = value(key + "FieldDesc");
    for (const char *name : {"Units", "Unit"})
        if (column.unit.empty())
            column.unit = value(key + name);
    if (column.unit.empty())
        column.unit = unit_of(column.description);
}

void LogHeader::take_texts(const Texts &rows, LogRecord &record, std::string LogColumn::*text,
                           const char *what, std::vector<std::string> &faults) const {
    const auto row = rows.find(record.type);
    if (row == rows.end()) {
        faults.push_back("the header has no " + std::string(what) + " of record " + record.type);
        return;
    }
    const auto texts = split(row->second, ';');
    if (texts.size() != record.columns.size() + 1) {
        faults.push_back("record " + record.type + " has " + std::to_string(texts.size() - 1) +
                         " " + what + " for " + std::to_string(record.columns.size()) + " columns");
        return;
    }
    for (size_t i = 0; i < record.columns.size(); ++i)
        record.columns[i].*text = texts[i + 1];
}

const LogRecord *LogHeader::find(std::string_view type) const {
    // Sorted, as the rows were.
    const auto at = std::lower_bound(records_.begin(), records_.end(), type,
                                     [](const LogRecord &record, std::string_view name) {
                                         return std::string_view(record.type) < name;
                                     });
    return at != records_.end() && at->type == type ? &*at : nullptr;
}

std::string LogHeader::value(std::string_view key) const {
    const auto at = values_.find(key);
    return at != values_.end() ? at->second : "";
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    size_t begin = 0;
    for (size_t end; (end = text.find(separator, begin)) != text.npos; begin = end + 1)
        pieces.push_back(text.substr(begin, end - begin));
    pieces.push_back(text.substr(begin));
    return pieces;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && text.front() == ' ')
        text.remove_prefix(1);
    while (!text.empty() && text.back() == ' ')
        text.remove_suffix(1);
    return text;
}

std::string shown(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const size_t length = character_length(text);
        result += length != 0 ? std::string(text.substr(0, length)) : "?";
        text.remove_prefix(std::max<size_t>(length, 1));
    }
    return result;
}

size_t shown_width(std::string_view text) {
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0U) != 0x80;
    }));
}

} // namespace zebctl

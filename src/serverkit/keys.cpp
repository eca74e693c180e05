#include "keys.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <zeb2/util.h>

namespace serverkit {
namespace {

std::string limits_of(const Key &key) {
    char text[96] = "";
    if (key.highest < HUGE_VAL)
        snprintf(text, sizeof text, " from %.10g to %.10g", key.lowest, key.highest);
    else if (key.lowest > -HUGE_VAL)
        snprintf(text, sizeof text, " from %.10g on", key.lowest);
    return text;
}

bool is_within(const Key &key, double value) {
    return value >= key.lowest && value <= key.highest;
}

// "none|odd|even" as "none, odd or even".
std::string list_of(const char *words) {
    std::string list = words;
    if (const size_t last = list.rfind('|'); last != std::string::npos)
        list.replace(last, 1, " or ");
    for (size_t bar; (bar = list.find('|')) != std::string::npos;)
        list.replace(bar, 1, ", ");
    return list;
}

bool is_word(const char *words, const std::string &value) {
    char word[64];
    for (int i = 0; UTIL_stringfield(words, "|", i, word, sizeof word); ++i)
        if (UTIL_strcasecmp(word, value.c_str()) == 0)
            return true;
    return false;
}

std::optional<std::string> fault_of_count(const Key &key, const std::string &value) {
    const auto number = parse_whole(value);
    if (number && is_within(key, static_cast<double>(*number)))
        return std::nullopt;
    return "a whole number" + limits_of(key);
}

std::optional<std::string> fault_of_number(const Key &key, const std::string &value) {
    const auto number = parse_number(value);
    if (number && is_within(key, *number))
        return std::nullopt;
    return key.what + limits_of(key);
}

std::optional<std::string> fault_of_kind(const Key &key, const std::string &value) {
    switch (key.kind) {
    case Kind::count:
        return fault_of_count(key, value);
    case Kind::number:
        return fault_of_number(key, value);
    case Kind::mode:
        if (const auto bits = parse_whole(value, 8); bits && *bits >= 0 && *bits <= 0777)
            return std::nullopt;
        return "an octal mode up to 777";
    case Kind::word:
        if (is_word(key.what, value))
            return std::nullopt;
        return list_of(key.what);
    case Kind::text:
        break;
    }
    return std::nullopt;
}

bool is_plain_number(std::string_view field) {
    const size_t digits = field.find_first_not_of("0123456789");
    return !field.empty() && field != "." &&
           (digits == std::string_view::npos ||
            (field[digits] == '.' &&
             field.find_first_not_of("0123456789", digits + 1) == std::string_view::npos));
}

} // namespace

std::optional<std::string> fault_of(const Key &key, const std::string &value) {
    auto fault = fault_of_kind(key, value);
    if (!fault && key.fault != nullptr)
        fault = key.fault(value);
    return fault;
}

std::optional<std::string> fault_in_file(const Key &key, const std::string &value) {
    auto fault = fault_of(key, value);
    const size_t comment = value.find('!');
    if (!fault || !key.read_by_library || comment == std::string::npos || comment == 0)
        return fault;
    const size_t end = value.find_last_not_of(" \t", comment - 1);
    return end == std::string::npos ? fault : fault_of(key, value.substr(0, end + 1));
}

std::optional<long long> parse_whole(const std::string &text, int base) {
    long long value = 0;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, base);
    if (error != std::errc() || stop != end || text.empty())
        return std::nullopt;
    return value;
}

std::optional<double> parse_number(const std::string &text) {
    char *end = nullptr;
    const double value = strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !std::isfinite(value))
        return std::nullopt;
    return value;
}

// The library's reading takes any text for some number, and 0 would switch a duty off.
std::optional<double> parse_interval(const std::string &text) {
    constexpr size_t k_most_fields = 3, k_longest_field = 16;
    std::string_view rest = text;
    for (size_t fields = 1; fields <= k_most_fields; ++fields) {
        const size_t end = rest.find(':');
        const std::string_view field = rest.substr(0, end);
        if (field.size() > k_longest_field || !is_plain_number(field))
            return std::nullopt;
        if (end == std::string_view::npos)
            return UTIL_parse_delimited_inc(text.c_str(), ":", 60);
        rest.remove_prefix(end + 1);
    }
    return std::nullopt;
}

Names split_path(const std::string &path) {
    Names names;
    for (size_t begin = 0; begin <= path.size();) {
        const size_t end = std::min(path.find(';', begin), path.size());
        names.push_back(path.substr(begin, end - begin));
        begin = end + 1;
    }
    return names;
}

std::string join_path(const Names &names) {
    std::string path;
    for (const std::string &name : names)
        path += (path.empty() ? "" : ";") + name;
    return path;
}

bool same_name(const std::string &a, const std::string &b) {
    return UTIL_strcasecmp(a.c_str(), b.c_str()) == 0;
}

bool matches(const Names &pattern, const Names &names) {
    return std::equal(pattern.begin(), pattern.end(), names.begin(), names.end(),
                      [](const std::string &wanted, const std::string &name) {
                          return wanted == "*" ? !name.empty() : same_name(wanted, name);
                      });
}

Keys::Keys(const ProgramKeys &program, const std::string &name)
    : program_(&program), name_(name.empty() ? program.name : name) {
    for (const auto &group : program.groups)
        for (const Key &key : group) {
            Names pattern = split_path(key.path);
            if (pattern.front() == "@") { // a branch may lie within another: lab;flow
                const Names branch = split_path(name_);
                pattern.erase(pattern.begin());
                pattern.insert(pattern.begin(), branch.begin(), branch.end());
            }
            entries_.push_back({&key, std::move(pattern)});
        }
}

const Key *Keys::find(const std::string &path) const {
    const Names names = split_path(path);
    for (const Entry &entry : entries_)
        if (matches(entry.pattern, names))
            return entry.key;
    return nullptr;
}

Names Keys::sections() const {
    Names sections;
    for (const Entry &entry : entries_) {
        const std::string &section = entry.pattern.front();
        if (std::none_of(sections.begin(), sections.end(),
                         [&](const std::string &known) { return same_name(known, section); }))
            sections.push_back(section);
    }
    return sections;
}

} // namespace serverkit

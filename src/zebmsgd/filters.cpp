#include "filters.h"

#include <algorithm>
#include <cstring>

#include <zeb2/util.h>

namespace zebmsgd {
namespace {

bool fits(const std::string &pattern, const char *text) {
    return pattern.empty() || UTIL_wildcard_match(text, pattern.c_str()) != FALSE;
}

bool fits_any(const std::string &pattern, const std::vector<std::string> &texts) {
    return pattern.empty() || std::any_of(texts.begin(), texts.end(), [&](const std::string &text) {
               return fits(pattern, text.c_str());
           });
}

} // namespace

const NETMSG_entry *find_entry(std::string_view name) {
    char text[128];
    if (name.size() >= sizeof text || name.find('\0') != std::string_view::npos)
        return nullptr; // longer than any name of the catalogue, or not a name
    memcpy(text, name.data(), name.size());
    text[name.size()] = '\0';
    return NETPACK_find_msg_by_name_lib(text);
}

const NETMSG_entry *Subject::entry() const {
    if (!searched_) {
        entry_ = find_entry(message_.name);
        searched_ = true;
    }
    return entry_;
}

Filter Filter::of_record(const NET_SERVER_FilterAdd &record) {
    Filter filter;
    filter.uid = record.uid;
    filter.accept = record.target != FALSE;
    filter.type = record.type_match;
    filter.source = field_text(record.src_match);
    filter.destination = field_text(record.dest_match);
    filter.instrument_type = field_text(record.inst_type_match);
    filter.tag = field_text(record.tag_match);
    filter.metatype = field_text(record.metatype_match);
    return filter;
}

bool Filter::matches(const Subject &subject) const {
    if (type >= 0 && (subject.entry() == nullptr || static_cast<int>(subject.entry()->msg) != type))
        return false;
    if (!fits(source, subject.source().c_str()) ||
        !fits(instrument_type, subject.announced().type.c_str()) ||
        !fits_any(tag, subject.announced().tags))
        return false;
    if (!destination.empty() && !fits(destination, std::string(subject.destination()).c_str()))
        return false;
    if (metatype.empty())
        return true;
    return fits(metatype, subject.entry() == nullptr ? "" : subject.entry()->meta_types);
}

void FilterList::add(Filter filter) {
    filters_.push_back(std::move(filter));
    count_accepting();
}

void FilterList::remove(DWORD uid) {
    std::erase_if(filters_, [uid](const Filter &filter) { return filter.uid == uid; });
    count_accepting();
}

void FilterList::clear() {
    filters_.clear();
    count_accepting();
}

void FilterList::count_accepting() {
    has_accepting_ = std::any_of(filters_.begin(), filters_.end(),
                                 [](const Filter &filter) { return filter.accept; });
}

bool FilterList::accepts(const Subject &subject) const {
    for (const Filter &filter : filters_)
        if (filter.matches(subject))
            return filter.accept;
    return !has_accepting_;
}

} // namespace zebmsgd

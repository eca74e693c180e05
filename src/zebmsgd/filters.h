// filters.h - which messages a client wants, in the order in which it said so.
#pragma once

#include "wire.h"

#include <cstring>
#include <string>
#include <vector>

#include <zeb2/netpack.h>
#include <zeb2/zebmsg.h>

namespace zebmsgd {

// Character arrays of a record need not be terminated.
template <size_t N> std::string field_text(const char (&field)[N]) {
    return std::string(field, strnlen(field, N));
}

// What a client announced of the instrument it runs.
struct Announcement {
    bool made = false;
    std::string type;
    std::string display_name;
    std::string id; // one character or none
    std::vector<std::string> tags;
};

// What filters look at, of one message; the catalogue is searched only when a filter asks.
class Subject {
  public:
    Subject(const Message &message, const std::string &source, const Announcement &announced)
        : message_(message), source_(source), announced_(announced) {}

    const std::string &source() const { return source_; }
    std::string_view destination() const { return message_.destination; }
    const Announcement &announced() const { return announced_; }
    const NETMSG_entry *entry() const; // null when the server's catalogue lacks the message

  private:
    const Message &message_;
    const std::string &source_;
    const Announcement &announced_;
    mutable const NETMSG_entry *entry_ = nullptr;
    mutable bool searched_ = false;
};

// One rule. Empty patterns and a type below 0 match anything.
struct Filter {
    DWORD uid = 0;
    bool accept = false;
    int type = -1;
    std::string source;
    std::string destination;
    std::string instrument_type;
    std::string tag;
    std::string metatype;

    static Filter of_record(const NET_SERVER_FilterAdd &record);
    bool matches(const Subject &subject) const;
};

class FilterList {
  public:
    void add(Filter filter);
    void remove(DWORD uid);
    void clear();

    // The first filter that matches decides; when none does, the message is accepted unless the
    // list has an accepting filter.
    bool accepts(const Subject &subject) const;

    bool empty() const { return filters_.empty(); }
    size_t size() const { return filters_.size(); }
    const std::vector<Filter> &all() const { return filters_; }

  private:
    void count_accepting();
    std::vector<Filter> filters_;
    bool has_accepting_ = false;
};

// The row of the server's catalogue, or null.
const NETMSG_entry *find_entry(std::string_view name);

} // namespace zebmsgd

// log_reader.h - log files line by line, checked; what is no line of theirs is named and skipped.
//
// A file is read as a stream, and no line, header or file is too long for the memory.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "log_header.h"

namespace zebctl {

// Lines beyond this are skipped.
constexpr size_t k_longest_log_line = 1 << 20;

// A data line, valid during the call that is given it.
struct LogRow {
    const LogRecord *record;
    int64_t time;                         // seconds since 1970
    std::vector<std::string_view> fields; // one for each of the record's columns, without blanks

    // Its value is missing: the column's text for that, or none.
    bool is_missing(size_t column) const;
    // Its value as a number; nothing for a missing one and for what is none.
    std::optional<double> number(size_t column) const;
};

struct LogVisitor {
    std::function<void(const LogHeader &)> header;
    // False ends the reading. Without it that ends with the header.
    std::function<bool(const LogRow &)> row;
    // What is wrong; the line counts from 1, or is 0 for the whole header.
    std::function<void(size_t line, const std::string &text)> fault;
};

// Reads a stream to its end. With errno in `error` when that fails, else 0.
void read_log(FILE *stream, const LogVisitor &visitor, int &error);

// "2014-05-13T16:53:20Z", on every host alike.
std::string log_time(int64_t seconds);
// Such a time; the Z, the seconds, the minutes and the whole time of day may be missing, a blank
// may stand for the T. Nothing for what is no time.
std::optional<int64_t> parse_time(std::string_view text);

} // namespace zebctl

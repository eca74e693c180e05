// log_header.h - what the header of a log file says of its records, without a station.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zebctl {

constexpr size_t k_log_leading_columns = 3; // STN, EPOCH, DateTime

struct LogColumn {
    std::string name;
    std::string missing; // the text of its missing value; empty for none
    std::string format;
    std::string description;
    std::string unit; // empty when the header names none

    // Its numbers are hexadecimal.
    bool is_hexadecimal() const;
    // "T_X1 (C)".
    std::string label() const;
};

struct LogRecord {
    std::string type;
    std::vector<LogColumn> columns; // as they stand in a line, behind the type
};

class LogHeader {
  public:
    // Takes a line, without its end, that begins with '!'.
    void add(std::string_view line);
    // Makes the records; what is wrong with the whole header.
    std::vector<std::string> finish();

    const std::vector<LogRecord> &records() const { return records_; }
    // Null when the header has none of that name.
    const LogRecord *find(std::string_view type) const;
    // The value of a line such as "fil;version"; empty when there is none.
    std::string value(std::string_view key) const;
    // The other lines, that is comments of the configuration: key and value, the latter empty for
    // a line without a comma.
    const std::vector<std::pair<std::string, std::string>> &comments() const { return comments_; }

  private:
    using Texts = std::map<std::string, std::string, std::less<>>;
    void add_record(const std::string &type, const std::string &row,
                    std::vector<std::string> &faults);
    void describe(LogColumn &column) const;
    void take_texts(const Texts &rows, LogRecord &record, std::string LogColumn::*text,
                    const char *what, std::vector<std::string> &faults) const;

    bool begins_with_name_ = false;
    size_t lines_ = 0, size_ = 0, columns_ = 0;
    bool is_too_long_ = false;
    Texts names_, missing_, formats_; // the rows of each record
    Texts values_;                    // of the file and of the columns
    std::vector<std::pair<std::string, std::string>> comments_;
    std::vector<LogRecord> records_;
};

// The pieces of a text; of "" it is one, an empty one.
std::vector<std::string_view> split(std::string_view text, char separator);
// Without blanks at either end.
std::string_view trimmed(std::string_view text);

// The text for a terminal: what one would obey, or what is no UTF-8, becomes "?".
std::string shown(std::string_view text);
// The number of characters of such a text.
size_t shown_width(std::string_view text);

} // namespace zebctl

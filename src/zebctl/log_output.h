// log_output.h - chosen columns of log files as aligned text, CSV or JSON Lines.
#pragma once

#include <cstdio>
#include <limits>
#include <memory>

#include "log_reader.h"
#include "record_json.h"

namespace zebctl {

// What the user asked for.
struct LogChoice {
    std::string record;               // empty: any
    std::vector<std::string> columns; // empty: all
    int64_t since = std::numeric_limits<int64_t>::min();
    int64_t until = std::numeric_limits<int64_t>::max(); // the first one that is too late

    bool accepts(const LogRow &row) const;
    // Whether a column is asked for.
    bool has(const std::string &column) const;
};

// The record and the columns of a choice that a header lacks, as messages.
std::vector<std::string> lacking(const LogChoice &choice, const LogHeader &header);

// What becomes of the lines of one file after the other.
class LogOutput {
  public:
    explicit LogOutput(LogChoice choice) : choice_(std::move(choice)) {}
    virtual ~LogOutput() = default;

    // A file begins. What of it cannot be shown.
    virtual std::vector<std::string> begin(const LogHeader &header) = 0;
    // A line that the choice accepts.
    virtual void row(const LogRow &row) = 0;
    virtual void end() {}

    const LogChoice &choice() const { return choice_; }

  protected:
    LogChoice choice_;
};

// An output for one record only, with the same columns for all files.
class OneRecord : public LogOutput {
  public:
    using LogOutput::LogOutput;
    // Throws when the header has several records and none is chosen.
    std::vector<std::string> begin(const LogHeader &header) override;

  protected:
    static constexpr size_t k_absent = SIZE_MAX;
    // The place of each column in the lines of this file, or k_absent.
    const std::vector<size_t> &places() const { return places_; }
    // Their descriptions, by the first file.
    const std::vector<LogColumn> &columns() const { return columns_; }
    // The column names to show; "all" is up to the output.
    virtual std::vector<std::string> names(const LogRecord &record) const = 0;

  private:
    const LogRecord *record_of(const LogHeader &header) const;
    void choose_columns(const LogRecord &record);
    std::vector<size_t> places_;
    std::vector<LogColumn> columns_;
};

// Text in columns and CSV have a heading, and the time as their first column unless it is chosen.
std::unique_ptr<LogOutput> make_text_output(const LogChoice &choice, FILE *stream);
std::unique_ptr<LogOutput> make_csv_output(const LogChoice &choice, FILE *stream);
// {"time":...,"type":...,"station":...,"record":{...}}, of every record.
std::unique_ptr<LogOutput> make_json_output(const LogChoice &choice, FILE *stream);

// A value of a line: null when it is missing, a number where it is one.
Json log_value(const LogRow &row, size_t column);

// A header for people, and as JSON.
std::string header_text(const LogHeader &header);
Json header_json(const LogHeader &header);

// Reads a file through an output; `fault` takes what is wrong with it. False when it cannot be read
// (errno in `error`). It ends early when `is_ended` says so.
bool show_log(FILE *stream, LogOutput &output,
              const std::function<void(size_t line, const std::string &text)> &fault, int &error,
              const std::function<bool()> &is_ended = nullptr);

} // namespace zebctl

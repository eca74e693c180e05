// log_summary.h - what each column of log files holds, in figures.
#pragma once

#include "log_output.h"

namespace zebctl {

struct ColumnSummary {
    size_t count = 0;   // values
    size_t missing = 0; // lines without one
    size_t numbers = 0; // values that are finite numbers; the figures are theirs
    double min = 0, mean = 0, max = 0;
    int64_t first = 0, last = 0; // times of the earliest and the latest value

    void add(const LogRow &row, size_t column);
};

class LogSummary : public LogOutput {
  public:
    using LogOutput::LogOutput;
    std::vector<std::string> begin(const LogHeader &header) override;
    void row(const LogRow &row) override;

    std::string text() const;
    std::string json_lines() const;
    // Null when no file has it.
    const ColumnSummary *find(const std::string &record, const std::string &column) const;

  private:
    struct Column {
        std::string name, unit;
        ColumnSummary figures;
    };
    struct Record {
        size_t lines = 0;
        int64_t first = 0, last = 0;
        std::vector<Column> columns;
    };
    // A record as this file has it: the place in a line of each of its columns.
    struct Places {
        Record *record;
        std::vector<std::pair<size_t, size_t>> places;
    };
    Places places_of(const LogRecord &record);

    std::map<std::string, Record> records_;
    std::map<const LogRecord *, Places> places_;
};

} // namespace zebctl

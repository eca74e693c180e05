#include "log_output.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

namespace zebctl {
namespace {

size_t find_column(const LogRecord &record, const std::string &name) {
    const auto at = std::find_if(record.columns.begin(), record.columns.end(),
                                 [&](const LogColumn &column) { return column.name == name; });
    return static_cast<size_t>(at - record.columns.begin());
}

std::string listed(const std::vector<std::string> &names) {
    std::string list;
    for (const std::string &name : names)
        list += (list.empty() ? "" : ", ") + shown(name);
    return list;
}

std::vector<std::string> column_names(const LogRecord &record) {
    std::vector<std::string> names;
    for (const LogColumn &column : record.columns)
        names.push_back(column.name);
    return names;
}

std::vector<std::string> record_names(const LogHeader &header) {
    std::vector<std::string> names;
    for (const LogRecord &record : header.records())
        names.push_back(record.type);
    return names;
}

// ---- Tables ----

class TableOutput : public OneRecord {
  public:
    TableOutput(const LogChoice &choice, FILE *stream) : OneRecord(choice), stream_(stream) {}

  protected:
    std::vector<std::string> names(const LogRecord &record) const override {
        if (choice().columns.empty())
            return column_names(record);
        std::vector<std::string> result = choice().columns;
        if (!choice().has("DateTime"))
            result.insert(result.begin(), "DateTime");
        return result;
    }

    // The cells of a line, `missing` for those without a value.
    std::vector<std::string> cells(const LogRow &row, const char *missing) const {
        std::vector<std::string> result;
        for (const size_t place : places())
            result.push_back(place == k_absent || row.is_missing(place) ? missing
                                                                        : shown(row.fields[place]));
        return result;
    }

    FILE *stream_;
};

class CsvOutput : public TableOutput {
  public:
    using TableOutput::TableOutput;

    void row(const LogRow &row) override {
        heading();
        print(cells(row, ""));
    }
    void end() override { heading(); }

  private:
    void heading() {
        if (has_heading_ || columns().empty())
            return;
        has_heading_ = true;
        std::vector<std::string> names;
        for (const LogColumn &column : columns())
            names.push_back(shown(column.name));
        print(names);
    }

    void print(const std::vector<std::string> &cells) {
        for (size_t i = 0; i < cells.size(); ++i)
            fprintf(stream_, "%s%s", i == 0 ? "" : ",", quoted(cells[i]).c_str());
        putc('\n', stream_);
    }

    static std::string quoted(const std::string &cell) {
        if (cell.find_first_of("\",") == cell.npos)
            return cell;
        std::string result = "\"";
        for (const char c : cell)
            result += c == '"' ? "\"\"" : std::string(1, c);
        return result + "\"";
    }

    bool has_heading_ = false;
};

// The first lines tell how wide the columns have to be; a later cell that is wider moves its line.
class TextOutput : public TableOutput {
  public:
    using TableOutput::TableOutput;

    void row(const LogRow &row) override {
        std::vector<std::string> line = cells(row, "-");
        if (widths_known_) {
            print(line);
            return;
        }
        size_ += row.fields.size();
        for (const std::string &cell : line)
            size_ += cell.size();
        first_.push_back(std::move(line));
        if (first_.size() >= k_first_lines || size_ >= k_first_size)
            print_first();
    }
    void end() override {
        if (!widths_known_ && !columns().empty())
            print_first();
    }

  private:
    static constexpr size_t k_first_lines = 500, k_first_size = 1 << 20, k_widest = 60;

    void print_first() {
        widths_known_ = true;
        std::vector<std::string> heading;
        for (const LogColumn &column : columns())
            heading.push_back(shown(column.label()));
        first_.insert(first_.begin(), heading);
        widths_.resize(columns().size());
        for (const auto &line : first_)
            for (size_t i = 0; i < line.size(); ++i)
                widths_[i] = std::max(widths_[i], std::min(k_widest, shown_width(line[i])));
        for (const auto &line : first_)
            print(line);
        first_.clear();
    }

    // To the right, as numbers stand.
    void print(const std::vector<std::string> &line) {
        std::string text;
        for (size_t i = 0; i < line.size(); ++i) {
            const size_t width = std::min(widths_[i], shown_width(line[i]));
            text += std::string(widths_[i] - width, ' ') + line[i] +
                    (i + 1 == line.size() ? "\n" : "  ");
        }
        fwrite(text.data(), 1, text.size(), stream_);
    }

    bool widths_known_ = false;
    size_t size_ = 0;
    std::vector<std::vector<std::string>> first_;
    std::vector<size_t> widths_;
};

// ---- JSON ----

class JsonOutput : public LogOutput {
  public:
    JsonOutput(const LogChoice &choice, FILE *stream) : LogOutput(choice), stream_(stream) {}

    std::vector<std::string> begin(const LogHeader &header) override {
        return lacking(choice(), header);
    }

    void row(const LogRow &row) override {
        Json record = Json::object();
        const auto &columns = row.record->columns;
        for (size_t i = 0; i < columns.size(); ++i)
            if (choice().columns.empty() ? i >= k_log_leading_columns
                                         : choice().has(columns[i].name))
                record[columns[i].name] = log_value(row, i);
        const Json line = {{"time", row.time},
                           {"type", row.record->type},
                           {"station", std::string(row.fields[0])},
                           {"record", record}};
        fprintf(stream_, "%s\n", line.dump(-1, ' ', false, Json::error_handler_t::replace).c_str());
    }

  private:
    FILE *stream_;
};

} // namespace

// ---- What was chosen ----

bool LogChoice::accepts(const LogRow &row) const {
    return (record.empty() || row.record->type == record) && row.time >= since && row.time < until;
}

bool LogChoice::has(const std::string &column) const {
    return std::find(columns.begin(), columns.end(), column) != columns.end();
}

std::vector<std::string> lacking(const LogChoice &choice, const LogHeader &header) {
    bool has_record = false;
    std::vector<std::string> names = choice.columns;
    for (const LogRecord &record : header.records()) {
        if (!choice.record.empty() && record.type != choice.record)
            continue;
        has_record = true;
        for (const LogColumn &column : record.columns)
            names.erase(std::remove(names.begin(), names.end(), column.name), names.end());
    }
    if (!has_record)
        return {"the header has no record" +
                (choice.record.empty() ? "" : " \"" + choice.record + "\"")};
    for (std::string &name : names)
        name = "there is no column \"" + name + "\"";
    return names;
}

const LogRecord *OneRecord::record_of(const LogHeader &header) const {
    if (!choice().record.empty())
        return header.find(choice().record);
    if (header.records().size() > 1)
        throw std::runtime_error("the header has the records " + listed(record_names(header)) +
                                 ": choose one with --records");
    return header.records().empty() ? nullptr : &header.records()[0];
}

void OneRecord::choose_columns(const LogRecord &record) {
    std::vector<LogColumn> chosen;
    for (const std::string &name : names(record)) {
        const size_t place = find_column(record, name);
        if (place == record.columns.size())
            throw std::runtime_error("record " + shown(record.type) + " has no column \"" +
                                     shown(name) + "\" but " + listed(column_names(record)));
        chosen.push_back(record.columns[place]);
    }
    columns_ = std::move(chosen);
}

std::vector<std::string> OneRecord::begin(const LogHeader &header) {
    const LogRecord *record = record_of(header);
    if (record == nullptr)
        return lacking(choice(), header);
    if (choice().record.empty())
        choice_.record = record->type;
    if (columns_.empty())
        choose_columns(*record);
    std::vector<std::string> faults;
    places_.clear();
    for (const LogColumn &column : columns_) {
        const size_t place = find_column(*record, column.name);
        places_.push_back(place == record->columns.size() ? k_absent : place);
        if (places_.back() == k_absent)
            faults.push_back("there is no column \"" + column.name + "\", as there was before");
    }
    for (const std::string &name : names(*record))
        if (std::none_of(columns_.begin(), columns_.end(),
                         [&](const LogColumn &column) { return column.name == name; }))
            faults.push_back("the column \"" + name + "\" was not there before and is not shown");
    return faults;
}

std::unique_ptr<LogOutput> make_text_output(const LogChoice &choice, FILE *stream) {
    return std::make_unique<TextOutput>(choice, stream);
}
std::unique_ptr<LogOutput> make_csv_output(const LogChoice &choice, FILE *stream) {
    return std::make_unique<CsvOutput>(choice, stream);
}
std::unique_ptr<LogOutput> make_json_output(const LogChoice &choice, FILE *stream) {
    return std::make_unique<JsonOutput>(choice, stream);
}

Json log_value(const LogRow &row, size_t column) {
    if (row.is_missing(column))
        return nullptr;
    const std::string_view text = row.fields[column];
    const auto number = row.number(column);
    if (!number || row.record->columns[column].is_hexadecimal())
        return std::string(text);
    int64_t whole = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), whole);
    if (failure == std::errc() && end == text.data() + text.size())
        return whole;
    return real_to_json(*number);
}

bool show_log(FILE *stream, LogOutput &output,
              const std::function<void(size_t line, const std::string &text)> &fault, int &error,
              const std::function<bool()> &is_ended) {
    LogVisitor visitor;
    visitor.fault = fault;
    visitor.header = [&](const LogHeader &header) {
        for (const std::string &text : output.begin(header))
            fault(0, text);
    };
    visitor.row = [&](const LogRow &row) {
        if (output.choice().accepts(row))
            output.row(row);
        return !is_ended || !is_ended();
    };
    read_log(stream, visitor, error);
    return error == 0;
}

} // namespace zebctl

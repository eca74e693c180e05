#include "log_summary.h"

#include <algorithm>
#include <cmath>

#include "record_text.h"
#include "text.h"

namespace zebctl {
namespace {

std::vector<std::string> figures_text(const ColumnSummary &column) {
    const auto figure = [&](double value) {
        return column.numbers != 0 ? value_for_people(value) : "-";
    };
    const auto time = [&](int64_t value) { return column.count != 0 ? log_time(value) : "-"; };
    return {std::to_string(column.count),
            std::to_string(column.missing),
            figure(column.min),
            figure(column.mean),
            figure(column.max),
            time(column.first),
            time(column.last)};
}

} // namespace

void ColumnSummary::add(const LogRow &row, size_t column) {
    if (row.is_missing(column)) {
        ++missing;
        return;
    }
    first = count == 0 ? row.time : std::min(first, row.time);
    last = count == 0 ? row.time : std::max(last, row.time);
    ++count;
    const auto value = row.number(column);
    if (!value || !std::isfinite(*value))
        return;
    min = numbers == 0 ? *value : std::min(min, *value);
    max = numbers == 0 ? *value : std::max(max, *value);
    ++numbers;
    // Neither a sum nor a difference that could be too large for a double.
    const auto weight = static_cast<double>(numbers);
    mean += *value / weight - mean / weight;
}

LogSummary::Places LogSummary::places_of(const LogRecord &record) {
    Places result = {&records_[record.type], {}};
    auto &columns = result.record->columns;
    for (size_t i = k_log_leading_columns; i < record.columns.size(); ++i) {
        const LogColumn &column = record.columns[i];
        // A variable may be in two columns; they say the same.
        const bool is_first = std::none_of(
            record.columns.begin(), record.columns.begin() + static_cast<std::ptrdiff_t>(i),
            [&](const LogColumn &each) { return each.name == column.name; });
        if (!is_first || (!choice().columns.empty() && !choice().has(column.name)))
            continue;
        const auto known = std::find_if(columns.begin(), columns.end(), [&](const Column &each) {
            return each.name == column.name;
        });
        result.places.emplace_back(i, known - columns.begin());
        if (known == columns.end())
            columns.push_back({column.name, column.unit, {}});
    }
    return result;
}

std::vector<std::string> LogSummary::begin(const LogHeader &header) {
    places_.clear();
    for (const LogRecord &record : header.records())
        if (choice().record.empty() || record.type == choice().record)
            places_[&record] = places_of(record);
    return lacking(choice(), header);
}

void LogSummary::row(const LogRow &row) {
    const Places &places = places_[row.record];
    Record &record = *places.record;
    record.first = record.lines == 0 ? row.time : std::min(record.first, row.time);
    record.last = record.lines == 0 ? row.time : std::max(record.last, row.time);
    ++record.lines;
    for (const auto &[place, column] : places.places)
        record.columns[column].figures.add(row, place);
}

const ColumnSummary *LogSummary::find(const std::string &record, const std::string &column) const {
    const auto at = records_.find(record);
    if (at == records_.end())
        return nullptr;
    for (const Column &each : at->second.columns)
        if (each.name == column)
            return &each.figures;
    return nullptr;
}

std::string LogSummary::text() const {
    std::string text;
    for (const auto &[type, record] : records_) {
        text += (text.empty() ? "" : "\n") + bold("record " + shown(type)) + ", " +
                std::to_string(record.lines) + (record.lines == 1 ? " line" : " lines");
        text += record.lines == 0
                    ? "\n"
                    : ", " + log_time(record.first) + " to " + log_time(record.last) + "\n";
        std::vector<std::vector<std::string>> rows = {
            {"column", "unit", "count", "missing", "min", "mean", "max", "first", "last"}};
        for (const Column &column : record.columns) {
            rows.push_back({shown(column.name), shown(column.unit)});
            for (const std::string &figure : figures_text(column.figures))
                rows.back().push_back(figure);
        }
        text += table(rows);
    }
    return text;
}

std::string LogSummary::json_lines() const {
    std::string text;
    for (const auto &[type, record] : records_) {
        for (const Column &column : record.columns) {
            const ColumnSummary &figures = column.figures;
            const auto figure = [&](double value) {
                return figures.numbers != 0 ? Json(value) : Json(nullptr);
            };
            const auto time = [&](int64_t value) {
                return figures.count != 0 ? Json(value) : Json(nullptr);
            };
            const Json line = {{"type", type},
                               {"column", column.name},
                               {"unit", column.unit},
                               {"count", figures.count},
                               {"missing", figures.missing},
                               {"min", figure(figures.min)},
                               {"mean", figure(figures.mean)},
                               {"max", figure(figures.max)},
                               {"first", time(figures.first)},
                               {"last", time(figures.last)}};
            text += line.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
        }
    }
    return text;
}

} // namespace zebctl

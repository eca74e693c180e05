#include "log_reader.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>

namespace zebctl {
namespace {

constexpr size_t k_quoted = 40; // characters of a line that a message shows

// ---- Lines ----

// A line without its end; one that is too long has lost its rest.
struct Line {
    std::string text;
    size_t number = 0; // from 1
    bool is_whole = false, is_too_long = false;
};

class LineReader {
  public:
    explicit LineReader(FILE *stream) : stream_(stream) {}

    // False at the end of the stream, with errno in `error` when that is a failure.
    bool next(Line &line, int &error) {
        line.text.clear();
        line.is_whole = line.is_too_long = false;
        bool is_empty = true;
        while (!line.is_whole && fill(error)) {
            is_empty = false;
            take(line);
        }
        line.number += is_empty ? 0 : 1;
        return !is_empty;
    }

  private:
    bool fill(int &error) {
        if (at_ < size_)
            return true;
        at_ = 0;
        errno = 0;
        size_ = fread(buffer_, 1, sizeof buffer_, stream_);
        if (size_ == 0 && ferror(stream_))
            error = errno != 0 ? errno : EIO;
        return size_ != 0;
    }

    void take(Line &line) {
        const std::string_view rest(buffer_ + at_, size_ - at_);
        const size_t end = rest.find('\n');
        line.is_whole = end != rest.npos;
        const size_t count = line.is_whole ? end : rest.size();
        const size_t room = k_longest_log_line - line.text.size();
        line.is_too_long = line.is_too_long || count > room;
        line.text.append(rest.substr(0, std::min(count, room)));
        at_ += count + (line.is_whole ? 1 : 0);
    }

    FILE *stream_;
    char buffer_[65536];
    size_t at_ = 0, size_ = 0;
};

std::string quoted(std::string_view text) {
    return "\"" + shown(text.substr(0, k_quoted)) + (text.size() > k_quoted ? "...\"" : "\"");
}

// ---- Times ----

// Takes `count` digits and, unless it is 0, the character behind them.
bool take_digits(std::string_view &text, size_t count, int &value) {
    if (text.size() < count ||
        !std::all_of(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(count),
                     [](char c) { return c >= '0' && c <= '9'; }))
        return false;
    std::from_chars(text.data(), text.data() + count, value);
    text.remove_prefix(count);
    return true;
}

bool take(std::string_view &text, std::string_view any) {
    if (text.empty() || any.find(text.front()) == any.npos)
        return false;
    text.remove_prefix(1);
    return true;
}

// The time of day behind a date, as far as it is there.
bool take_clock(std::string_view &text, int &hour, int &minute, int &second) {
    if (!take(text, "T "))
        return true;
    if (!take_digits(text, 2, hour) || !take(text, ":") || !take_digits(text, 2, minute))
        return false;
    return !take(text, ":") || take_digits(text, 2, second);
}

// ---- Data lines ----

class Reading {
  public:
    Reading(FILE *stream, const LogVisitor &visitor) : lines_(stream), visitor_(visitor) {}

    void run(int &error) {
        Line line;
        bool go_on = true;
        while (go_on && lines_.next(line, error))
            go_on = take(line);
        end_header();
    }

  private:
    bool take(const Line &line) {
        if (line.is_too_long || !line.is_whole) {
            end_header();
            fault(line, line.is_too_long ? "a line that is too long"
                                         : "a torn line, the last one, " + quoted(line.text));
            return true;
        }
        const bool is_header = !line.text.empty() && line.text.front() == '!';
        if (is_header && !header_ended_) {
            header_.add(line.text);
            return true;
        }
        end_header();
        if (is_header) {
            fault(line, "a header line behind the header, " + quoted(line.text));
            return true;
        }
        return visitor_.row && take_data(line);
    }

    void end_header() {
        if (header_ended_)
            return;
        header_ended_ = true;
        for (const std::string &text : header_.finish())
            visitor_.fault(0, text);
        visitor_.header(header_);
    }

    bool take_data(const Line &line) {
        row_.fields = split(line.text, ',');
        row_.record = header_.find(row_.fields[0]);
        if (row_.record == nullptr) {
            fault(line, "a line of no record that the header describes, " + quoted(line.text));
            return true;
        }
        row_.fields.erase(row_.fields.begin());
        const size_t expected = row_.record->columns.size();
        if (row_.fields.size() != expected) {
            fault(line, "a line with " + std::to_string(row_.fields.size()) + " fields for " +
                            std::to_string(expected) + " columns, " + quoted(line.text));
            return true;
        }
        if (!take_time()) {
            fault(line, "a line whose times are none or differ, " + quoted(line.text));
            return true;
        }
        std::transform(row_.fields.begin(), row_.fields.end(), row_.fields.begin(), trimmed);
        return visitor_.row(row_);
    }

    // The date is what counts: the seconds before it are cut to 32 bits.
    bool take_time() {
        const std::string_view seconds = row_.fields[1];
        uint32_t epoch = 0;
        const auto [end, failure] =
            std::from_chars(seconds.data(), seconds.data() + seconds.size(), epoch);
        const auto time = parse_time(row_.fields[2]);
        if (failure != std::errc() || end != seconds.data() + seconds.size() || !time ||
            static_cast<uint32_t>(*time) != epoch)
            return false;
        row_.time = *time;
        return true;
    }

    void fault(const Line &line, const std::string &text) { visitor_.fault(line.number, text); }

    LineReader lines_;
    const LogVisitor &visitor_;
    LogHeader header_;
    bool header_ended_ = false;
    LogRow row_ = {};
};

template <class T, class... Base>
std::optional<double> parse(std::string_view text, const Base &...base) {
    T value = {};
    const auto [end, failure] =
        std::from_chars(text.data(), text.data() + text.size(), value, base...);
    if (failure != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return static_cast<double>(value);
}

} // namespace

bool LogRow::is_missing(size_t column) const {
    return fields[column].empty() || fields[column] == trimmed(record->columns[column].missing);
}

std::optional<double> LogRow::number(size_t column) const {
    std::string_view text = fields[column];
    if (is_missing(column))
        return std::nullopt;
    if (record->columns[column].is_hexadecimal())
        return parse<uint64_t>(text.substr(text.substr(0, 2) == "0x" ? 2 : 0), 16);
    if (text.front() == '+')
        text.remove_prefix(1);
    return parse<double>(text);
}

void read_log(FILE *stream, const LogVisitor &visitor, int &error) {
    error = 0;
    Reading(stream, visitor).run(error);
}

std::string log_time(int64_t seconds) {
    using namespace std::chrono;
    const sys_seconds at{std::chrono::seconds(seconds)};
    const sys_days day = floor<days>(at);
    const year_month_day date(day);
    const hh_mm_ss time(at - day);
    char text[64];
    snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
             static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
             static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
             static_cast<int>(time.seconds().count()));
    return text;
}

std::optional<int64_t> parse_time(std::string_view text) {
    using namespace std::chrono;
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (!take_digits(text, 4, year) || !take(text, "-") || !take_digits(text, 2, month) ||
        !take(text, "-") || !take_digits(text, 2, day) || !take_clock(text, hour, minute, second))
        return std::nullopt;
    take(text, "Z");
    const year_month_day date(std::chrono::year{year}, std::chrono::month(unsigned(month)),
                              std::chrono::day(unsigned(day)));
    if (!text.empty() || !date.ok() || hour > 23 || minute > 59 || second > 60)
        return std::nullopt;
    return sys_days(date).time_since_epoch().count() * int64_t{86400} + hour * 3600 + minute * 60 +
           second;
}

} // namespace zebctl

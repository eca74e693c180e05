#include "nmea.h"

#include <charconv>
#include <cmath>
#include <ctime>

#include <zeb2/util.h>

namespace nmea {
namespace {

constexpr double k_knot = 1852.0 / 3600.0; // m/s
constexpr double k_day = 86400.0;          // s
constexpr size_t k_max_talkers = 16;       // satellite systems whose counts are kept

std::optional<double> number(std::string_view text) {
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size() ||
        !std::isfinite(value))
        return std::nullopt;
    return value;
}

std::optional<int> integer(std::string_view text) {
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

template <typename Target, typename Value> void assign(Target &target, const Value &value) {
    if (value)
        target = static_cast<Target>(*value);
}

// hhmmss[.sss] as seconds of the day; a leap second may show as 60.
std::optional<double> second_of_day(std::string_view text) {
    if (text.size() < 6)
        return std::nullopt;
    const auto hour = integer(text.substr(0, 2)), minute = integer(text.substr(2, 2));
    const auto second = number(text.substr(4));
    if (!hour || !minute || !second || *hour < 0 || *hour > 23 || *minute < 0 || *minute > 59 ||
        *second < 0 || *second >= 61)
        return std::nullopt;
    return *hour * 3600.0 + *minute * 60.0 + *second;
}

// dddmm.mmmm and a hemisphere letter as degrees; `positive` is "N" or "E".
std::optional<double> angle(std::string_view text, std::string_view hemisphere, char positive,
                            double limit) {
    const auto value = number(text);
    if (!value || *value < 0 || hemisphere.size() != 1)
        return std::nullopt;
    const double degrees = std::floor(*value / 100), minutes = *value - 100 * degrees;
    const double result = degrees + minutes / 60;
    const char negative = positive == 'N' ? 'S' : 'W';
    if (minutes >= 60 || result > limit || (hemisphere[0] != positive && hemisphere[0] != negative))
        return std::nullopt;
    return hemisphere[0] == positive ? result : -result;
}

int hex_digit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

bool has_time(std::string_view type, size_t &field) {
    field = type == "GLL" ? 5 : 1;
    return type == "RMC" || type == "GGA" || type == "GLL" || type == "GST" || type == "ZDA";
}

void split(std::string_view body, Sentence &out) {
    size_t comma = body.find(',');
    const std::string_view address = body.substr(0, comma);
    const bool proprietary = address.starts_with('P');
    out.talker = address.substr(0, proprietary ? 1 : 2);
    out.type = address.substr(out.talker.size());
    out.count = 0;
    while (comma != std::string_view::npos && out.count < k_max_fields) {
        body.remove_prefix(comma + 1);
        comma = body.find(',');
        out.fields[out.count++] = body.substr(0, comma);
    }
}

} // namespace

Verdict parse(std::string_view line, Sentence &out) {
    if (line.size() > k_max_line)
        return Verdict::too_long;
    if (line.size() < 7 || (line[0] != '$' && line[0] != '!') || line[line.size() - 3] != '*')
        return Verdict::not_a_sentence;
    const int high = hex_digit(line[line.size() - 2]), low = hex_digit(line[line.size() - 1]);
    if (high < 0 || low < 0)
        return Verdict::not_a_sentence;
    const std::string_view body = line.substr(1, line.size() - 4);
    int sum = 0;
    for (const char c : body) {
        if (c < 0x20 || c > 0x7E)
            return Verdict::not_a_sentence;
        sum ^= c;
    }
    if (sum != high * 16 + low)
        return Verdict::bad_checksum;
    split(body, out);
    return Verdict::ok;
}

void Lines::add(const char *bytes, size_t size, const Callback &line) {
    for (size_t i = 0; i < size; ++i) {
        const char c = bytes[i];
        if (c == '\r' || c == '\n') {
            finish(line);
            skipping_ = false;
        } else if (!skipping_) {
            pending_.push_back(c);
            if (pending_.size() > k_max_line) {
                finish(line);
                skipping_ = true;
            }
        }
    }
}

void Lines::finish(const Callback &line) {
    if (!pending_.empty())
        line(pending_);
    pending_.clear();
}

std::optional<Fix> FixAssembler::add(const Sentence &s) {
    std::optional<Fix> finished;
    size_t time_field;
    if (has_time(s.type, time_field)) {
        const auto second = second_of_day(s.field(time_field));
        if (!second)
            return std::nullopt;
        finished = begin_instant(*second);
    }
    if (!collecting_)
        return finished;
    static const std::map<std::string_view, void (FixAssembler::*)(const Sentence &)> handlers = {
        {"RMC", &FixAssembler::add_rmc}, {"GGA", &FixAssembler::add_gga},
        {"GLL", &FixAssembler::add_gll}, {"VTG", &FixAssembler::add_vtg},
        {"GSA", &FixAssembler::add_gsa}, {"GSV", &FixAssembler::add_gsv},
        {"GST", &FixAssembler::add_gst}, {"ZDA", &FixAssembler::add_zda}};
    if (const auto handler = handlers.find(s.type); handler != handlers.end())
        (this->*handler->second)(s);
    return finished;
}

std::optional<Fix> FixAssembler::finish() {
    if (!collecting_)
        return std::nullopt;
    collecting_ = false;
    stamp();
    if (voided_)
        void_position();
    fix_.valid = fix_.latitude != MVC && fix_.longitude != MVC;
    return fix_;
}

std::optional<Fix> FixAssembler::begin_instant(double second) {
    if (collecting_ && second == second_of_day_)
        return std::nullopt;
    std::optional<Fix> finished = finish();
    fix_ = Fix();
    collecting_ = true;
    voided_ = false;
    second_of_day_ = second;
    return finished;
}

void FixAssembler::set_date(int year, int month, int day) {
    if (year < 1980 || year > 2999 || month < 1 || month > 12 || day < 1 || day > 31)
        return;
    struct tm date = {};
    date.tm_year = year - 1900;
    date.tm_mon = month - 1;
    date.tm_mday = day;
    day_ = UTIL_timegm(&date);
    day_second_ = second_of_day_;
}

// Not every sentence carries the date: the last one known serves, a day later once midnight passed.
void FixAssembler::stamp() {
    if (day_ < 0)
        return;
    if (second_of_day_ < day_second_ - k_day / 2)
        day_ += k_day;
    day_second_ = second_of_day_;
    fix_.fix_time = day_ + second_of_day_;
}

void FixAssembler::set_position(const Sentence &s, size_t first_field) {
    const auto latitude = angle(s.field(first_field), s.field(first_field + 1), 'N', 90);
    const auto longitude = angle(s.field(first_field + 2), s.field(first_field + 3), 'E', 180);
    if (!latitude || !longitude)
        return;
    fix_.latitude = *latitude;
    fix_.longitude = *longitude;
    fix_.talker = s.talker;
}

// A receiver without a fix repeats its last position or shows zeros: neither is a measurement.
void FixAssembler::void_position() {
    fix_.latitude = fix_.longitude = fix_.altitude = fix_.geoid = MVC;
    fix_.speed = fix_.track = MVC;
    fix_.pdop = fix_.hdop = fix_.vdop = MVC;
}

void FixAssembler::add_rmc(const Sentence &s) {
    voided_ = voided_ || s.field(2) == "V";
    set_position(s, 3);
    if (const auto knots = number(s.field(7)))
        fix_.speed = *knots * k_knot;
    assign(fix_.track, number(s.field(8)));
    if (const auto date = integer(s.field(9)); date && *date > 0 && s.field(9).size() == 6) {
        const int year = *date % 100;
        set_date(year < 80 ? 2000 + year : 1900 + year, *date / 100 % 100, *date / 10000);
    }
    if (const auto magvar = number(s.field(10)))
        fix_.magvar = s.field(11) == "W" ? -*magvar : *magvar;
}

void FixAssembler::add_gga(const Sentence &s) {
    set_position(s, 2);
    assign(fix_.quality, integer(s.field(6)));
    voided_ = voided_ || fix_.quality == 0;
    assign(fix_.satellites_used, integer(s.field(7)));
    assign(fix_.hdop, number(s.field(8)));
    assign(fix_.altitude, number(s.field(9)));
    assign(fix_.geoid, number(s.field(11)));
}

void FixAssembler::add_gll(const Sentence &s) {
    voided_ = voided_ || s.field(6) == "V";
    if (fix_.latitude == MVC)
        set_position(s, 1);
}

void FixAssembler::add_vtg(const Sentence &s) {
    assign(fix_.track, number(s.field(1)));
    if (const auto kilometres_per_hour = number(s.field(7));
        kilometres_per_hour && fix_.speed == MVC)
        fix_.speed = *kilometres_per_hour / 3.6;
}

void FixAssembler::add_gsa(const Sentence &s) {
    assign(fix_.mode, integer(s.field(2)));
    assign(fix_.pdop, number(s.field(15)));
    if (fix_.hdop == MVC)
        assign(fix_.hdop, number(s.field(16)));
    assign(fix_.vdop, number(s.field(17)));
}

void FixAssembler::add_gsv(const Sentence &s) {
    const bool known = in_view_.contains(std::string(s.talker));
    if (const auto total = integer(s.field(3));
        total && *total >= 0 && *total < 1000 && (known || in_view_.size() < k_max_talkers))
        in_view_[std::string(s.talker)] = *total;
    fix_.satellites_in_view = 0;
    for (const auto &[talker, total] : in_view_)
        fix_.satellites_in_view += total;
}

void FixAssembler::add_gst(const Sentence &s) {
    assign(fix_.sigma_latitude, number(s.field(6)));
    assign(fix_.sigma_longitude, number(s.field(7)));
    assign(fix_.sigma_altitude, number(s.field(8)));
}

void FixAssembler::add_zda(const Sentence &s) {
    const auto day = integer(s.field(2)), month = integer(s.field(3)), year = integer(s.field(4));
    if (day && month && year)
        set_date(*year, *month, *day);
}

} // namespace nmea

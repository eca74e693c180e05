#include "text.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <unistd.h>

namespace zebctl {
namespace {

std::string padded(const std::string &cell, size_t width) {
    return cell + std::string(width - std::min(width, cell.size()), ' ');
}

// A time cut to milliseconds, and its calendar by `convert`; false for no time.
bool to_calendar(FTIME time, struct tm *(*convert)(const time_t *, struct tm *), struct tm &date,
                 std::string &text) {
    if (!(time >= 0) || time > 253402300799.0)
        return false;
    const double milliseconds = std::floor(time * 1000 + 0.5);
    const time_t seconds = static_cast<time_t>(std::floor(milliseconds / 1000));
    convert(&seconds, &date);
    char digits[64];
    snprintf(digits, sizeof digits, "%04d-%02d-%02dT%02d:%02d:%02d.%03d", date.tm_year + 1900,
             date.tm_mon + 1, date.tm_mday, date.tm_hour, date.tm_min, date.tm_sec,
             static_cast<int>(milliseconds - 1000.0 * static_cast<double>(seconds)));
    text = digits;
    return true;
}

} // namespace

std::string iso_time(FTIME time) {
    struct tm date;
    std::string text;
    return to_calendar(time, gmtime_r, date, text) ? text + "Z" : "-";
}

std::string iso_local_time(FTIME time) {
    struct tm date;
    std::string text;
    if (!to_calendar(time, localtime_r, date, text))
        return "-";
    const long minutes = std::labs(date.tm_gmtoff) / 60;
    char zone[32];
    snprintf(zone, sizeof zone, "%c%02ld:%02ld", date.tm_gmtoff < 0 ? '-' : '+', minutes / 60,
             minutes % 60);
    return text + zone;
}

std::string duration(double seconds) {
    const long whole = std::lround(seconds);
    char text[64];
    snprintf(text, sizeof text, "%02ld:%02ld:%02ld", whole / 3600 % 24, whole / 60 % 60,
             whole % 60);
    return whole >= 86400 ? std::to_string(whole / 86400) + " d " + text : text;
}

std::string bytes(double count) {
    const char *units[] = {"B", "KiB", "MiB", "GiB", "TiB"};
    size_t unit = 0;
    for (; count >= 1024 && unit < 4; ++unit)
        count /= 1024;
    char text[64];
    snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", count, units[unit]);
    return text;
}

std::string visible(std::string text) {
    for (char &c : text)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
            c = '?';
    return text;
}

bool use_colour() {
    static const bool colour = isatty(STDOUT_FILENO) && getenv("NO_COLOR") == nullptr;
    return colour;
}

std::string painted(bool colour, const char *style, const std::string &text) {
    return colour ? std::string("\x1b[") + style + "m" + text + "\x1b[0m" : text;
}

std::string bold(const std::string &text) {
    return painted(use_colour(), "1", text);
}
std::string dim(const std::string &text) {
    return painted(use_colour(), "2", text);
}

std::string table(const std::vector<std::vector<std::string>> &rows) {
    std::vector<size_t> widths;
    for (const auto &row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], visible(row[i]).size());
    }
    std::string result;
    for (size_t r = 0; r < rows.size(); ++r) {
        std::string line;
        for (size_t i = 0; i < rows[r].size(); ++i)
            line += padded(visible(rows[r][i]), widths[i]) + "  ";
        line.erase(line.find_last_not_of(' ') + 1);
        result += (r == 0 ? bold(line) : line) + "\n";
    }
    return result;
}

} // namespace zebctl

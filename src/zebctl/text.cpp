#include "text.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <unistd.h>

namespace zebctl {
namespace {

std::string wrap(const char *code, const std::string &text) {
    return use_colour() ? std::string("\x1b[") + code + "m" + text + "\x1b[0m" : text;
}

std::string padded(const std::string &cell, size_t width) {
    return cell + std::string(width - std::min(width, cell.size()), ' ');
}

} // namespace

std::string iso_time(FTIME time) {
    if (!(time >= 0) || time > 253402300799.0)
        return "-";
    const double milliseconds = std::floor(time * 1000 + 0.5);
    const time_t seconds = static_cast<time_t>(std::floor(milliseconds / 1000));
    struct tm utc;
    gmtime_r(&seconds, &utc);
    char text[64];
    snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900,
             utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec,
             static_cast<int>(milliseconds - 1000.0 * static_cast<double>(seconds)));
    return text;
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

std::string bold(const std::string &text) {
    return wrap("1", text);
}
std::string dim(const std::string &text) {
    return wrap("2", text);
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

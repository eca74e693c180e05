#include "watch.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace soak {
namespace {

constexpr size_t k_parts = 12;

double open_descriptors(const std::string &process) {
    std::error_code error;
    const std::filesystem::directory_iterator files(process + "/fd", error);
    return error ? 0 : static_cast<double>(std::distance(begin(files), end(files)));
}

// Of /proc/PID/stat: user and system time are fields 14 and 15; the name before may have blanks.
double processor_seconds(const std::string &process) {
    std::ifstream file(process + "/stat");
    std::string text;
    std::getline(file, text);
    std::istringstream fields(text.substr(std::min(text.size(), text.rfind(')') + 1)));
    std::string skipped;
    for (int i = 3; i < 14; ++i)
        fields >> skipped;
    double user = 0, system = 0;
    fields >> user >> system;
    return (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

std::vector<Point> lows_of(const std::vector<Point> &points) {
    const double begin = points.front().time;
    const double length = points.back().time - begin;
    std::vector<Point> lows;
    size_t last_part = k_parts;
    for (const Point &point : points) {
        const double share = (point.time - begin) / length * k_parts;
        const size_t part = std::min(static_cast<size_t>(share), k_parts - 1);
        if (part != last_part)
            lows.push_back(point);
        else if (point.value < lows.back().value)
            lows.back() = point;
        last_part = part;
    }
    return lows;
}

} // namespace

std::optional<Usage> usage_of(pid_t pid) {
    const std::string process = "/proc/" + std::to_string(pid);
    std::ifstream status(process + "/status");
    Usage usage;
    bool is_alive = false;
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) { // a process that has ended has none
            usage.resident = std::stod(line.substr(6));
            is_alive = true;
        } else if (line.starts_with("Threads:")) {
            usage.threads = std::stod(line.substr(8));
        }
    }
    if (!is_alive)
        return std::nullopt;
    usage.descriptors = open_descriptors(process);
    usage.processor = processor_seconds(process);
    return usage;
}

std::optional<double> rise_of(const std::vector<Point> &points) {
    if (points.size() < 3)
        return std::nullopt;
    const std::vector<Point> lows = lows_of(points);
    std::vector<double> slopes;
    for (size_t i = 0; i < lows.size(); ++i)
        for (size_t j = i + 1; j < lows.size(); ++j)
            slopes.push_back((lows[j].value - lows[i].value) / (lows[j].time - lows[i].time));
    if (slopes.size() < 3)
        return std::nullopt;
    const auto middle = slopes.begin() + static_cast<long>(slopes.size() / 2);
    std::nth_element(slopes.begin(), middle, slopes.end());
    return *middle * (points.back().time - points.front().time);
}

} // namespace soak

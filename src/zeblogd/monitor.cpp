#include "monitor.h"

#include "serverkit/sockets.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace zeblogd {
namespace {

constexpr FTIME k_year_10000 = 253402300800.0;
constexpr long long k_day = 86400000; // ms

bool is_usable(FTIME time) {
    return time >= 1 && time < k_year_10000;
}

// In whole milliseconds: the host's time_t may end in 2038.
long long milliseconds(FTIME time) {
    return std::llround(std::clamp(time, 0.0, k_year_10000 - 1) * 1000);
}

std::string date(long long ms, const char *format) {
    const std::chrono::year_month_day day{
        std::chrono::sys_days{std::chrono::days{static_cast<int>(ms / k_day)}}};
    char text[64];
    snprintf(text, sizeof text, format, static_cast<int>(day.year()),
             static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()));
    return text;
}

std::string_view bounded(const char *text, size_t size) {
    return {text, strnlen(text, size)};
}

std::string one_word(const char *name) {
    if (name == nullptr || *name == '\0')
        return "-";
    std::string word = serverkit::printable(name);
    for (size_t blank; (blank = word.find(' ')) != std::string::npos;)
        word.replace(blank, 1, "\\x20");
    return word;
}

} // namespace

std::string utc_time(FTIME time) {
    if (!is_usable(time))
        return "-";
    const long long ms = milliseconds(time);
    const int rest = static_cast<int>(ms % k_day);
    char text[32];
    snprintf(text, sizeof text, "T%02d:%02d:%02d.%03dZ", rest / 3600000, rest / 60000 % 60,
             rest / 1000 % 60, rest % 1000);
    return date(ms, "%04d-%02u-%02u") + text;
}

std::string monitor_file_name(FTIME time) {
    return date(milliseconds(time), "monitor_%04d%02u%02u.txt");
}

std::string monitor_line(FTIME arrival, const char *source, const NET_LOG_MonitorMessage &message) {
    std::string_view text = bounded(message.msg, sizeof message.msg);
    text = text.substr(0, text.find_last_not_of("\r\n") + 1);
    return utc_time(is_usable(message.msgtime) ? message.msgtime : arrival) + " " +
           one_word(source) + " " + serverkit::printable(text, sizeof message.msg) + "\n";
}

// The file is opened for each line: monitor messages are rare, and a directory that was moved,
// unmounted or cleaned up is noticed at once.
void MonitorFile::append(FTIME now, const std::string &line) {
    const std::string path = directory_ + "/" + monitor_file_name(now);
    if (!write_line(path, line)) {
        if (fault_.occurred())
            serverkit::report_errno("cannot write to the monitor file \"%s\"", path.c_str());
    } else if (const size_t lost = fault_.over()) {
        serverkit::report("the monitor file \"%s\" is written to again; lines lost: %zu",
                          path.c_str(), lost);
    }
}

// False with errno set. Not waiting, and only for a file, so that a pipe in the way holds up
// nothing.
bool MonitorFile::write_line(const std::string &path, const std::string &line) {
    const serverkit::UniqueFd fd(open(
        path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0664));
    struct stat info {};
    if (!fd || fstat(fd.get(), &info) != 0)
        return false;
    if (!S_ISREG(info.st_mode)) {
        errno = EINVAL;
        return false;
    }
    const std::string whole = torn_ && info.st_size > 0 ? "\n" + line : line;
    const ssize_t written = write(fd.get(), whole.data(), whole.size());
    if (written < 0)
        return false;
    torn_ = static_cast<size_t>(written) != whole.size();
    if (torn_)
        errno = ENOSPC;
    return !torn_;
}

} // namespace zeblogd

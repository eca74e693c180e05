#include "report.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <zeb2/libzeb2.h>

namespace serverkit {
namespace {

constexpr size_t k_longest_line = 1024;

void write_line(const char *format, va_list args, const char *reason) {
    char text[k_longest_line];
    vsnprintf(text, sizeof text, format, args);
    if (reason != nullptr)
        fprintf(stderr, "%s%s: %s\n", g_dbg_msg_title, text, reason);
    else
        fprintf(stderr, "%s%s\n", g_dbg_msg_title, text);
}

} // namespace

void report(const char *format, ...) {
    va_list args;
    va_start(args, format);
    write_line(format, args, nullptr);
    va_end(args);
}

void report_errno(const char *format, ...) {
    const char *reason = strerror(errno);
    va_list args;
    va_start(args, format);
    write_line(format, args, reason);
    va_end(args);
}

std::string printable(std::string_view text, size_t longest) {
    static constexpr char k_digits[] = "0123456789abcdef";
    std::string result;
    for (const char c : text.substr(0, longest)) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte < 0x7f) {
            result += c;
        } else {
            result += "\\x";
            result += k_digits[byte >> 4];
            result += k_digits[byte & 15];
        }
    }
    return text.size() > longest ? result + "..." : result;
}

void Complaints::about(double now, const std::string &who, const std::string &what) {
    constexpr double k_minute = 60;
    if (written_ == 0 || now - since_ >= k_minute) {
        if (left_out_ > 0)
            report("%zu lines like the next were left out", left_out_);
        since_ = now;
        written_ = left_out_ = 0;
    }
    if (written_ >= per_minute_) {
        ++left_out_;
        return;
    }
    ++written_;
    const char *last = written_ < per_minute_ ? "" : " (more like this are left out for a minute)";
    report("%s: %s%s", who.c_str(), what.c_str(), last);
}

} // namespace serverkit

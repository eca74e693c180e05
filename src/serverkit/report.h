// report.h - the servers' diagnostic lines: one line, one write, prefixed by the program's title.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace serverkit {

// TITLE message
void report(const char *format, ...) __attribute__((format(printf, 1, 2)));
// TITLE message: strerror(errno); errno is read on entry
void report_errno(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Text from outside made fit for a line: other than printable ASCII becomes \xNN, and what is
// longer than `longest` bytes is cut and marked with "...".
std::string printable(std::string_view text, size_t longest = 64);

// A fault that lasts is reported when it begins and when it ends, never in between.
class Fault {
  public:
    // Counts one more occurrence; true when it is the first, the one to report.
    bool occurred() { return ++count_ == 1; }
    // Ends the fault; the number of occurrences, 0 when there was none and nothing to report.
    size_t over() {
        const size_t count = count_;
        count_ = 0;
        return count;
    }
    size_t count() const { return count_; }

  private:
    size_t count_ = 0;
};

// Lines about faults that may come and go all day, a client's or a cable's. They must not fill a
// disk: beyond a number of lines per minute they are only counted.
class Complaints {
  public:
    explicit Complaints(size_t per_minute = 30) : per_minute_(per_minute) {}
    // "WHO: WHAT"; `now` in seconds on any clock.
    void about(double now, const std::string &who, const std::string &what);

  private:
    size_t per_minute_;
    size_t written_ = 0;
    size_t left_out_ = 0;
    double since_ = 0;
};

} // namespace serverkit

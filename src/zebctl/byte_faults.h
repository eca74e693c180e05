// byte_faults.h - what is wrong with a file, told on standard error place by place.
#pragma once

#include <cstdint>
#include <string>

namespace zebctl {

class ByteFaults {
  public:
    explicit ByteFaults(std::string file) : file_(std::move(file)) {}
    ~ByteFaults(); // says how many there were when not all were told
    ByteFaults(const ByteFaults &) = delete;
    ByteFaults &operator=(const ByteFaults &) = delete;

    // "FILE: at byte 17: a torn entry, skipped"
    void skipped(uint64_t offset, const std::string &what) {
        add("byte", offset, what, ", skipped");
    }
    void found(uint64_t offset, const std::string &what) { add("byte", offset, what, ""); }
    // "FILE: line 3: ..., skipped"
    void skipped_line(uint64_t line, const std::string &what) {
        add("line", line, what, ", skipped");
    }
    bool any() const { return count_ != 0; }

  private:
    void add(const char *unit, uint64_t place, const std::string &what, const char *consequence);

    std::string file_;
    uint64_t count_ = 0;
};

} // namespace zebctl

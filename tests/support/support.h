// support.h - what many tests need: captured standard error, private directories, environment
// variables set for a scope, bounded waits for a condition, and bytes written as hex text.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

namespace zeb::test {

using Bytes = std::vector<unsigned char>;

// Captures file descriptor 2 (whoever writes to it) from construction to finish() or destruction.
class StderrCapture {
  public:
    StderrCapture();
    ~StderrCapture();
    std::string text() const; // captured so far
    std::string finish();     // restores standard error and returns everything
    StderrCapture(const StderrCapture &) = delete;
    StderrCapture &operator=(const StderrCapture &) = delete;

  private:
    int saved_ = -1;
    int file_ = -1;
};

// A private directory, removed with everything in it.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    const std::string &path() const { return path_; }
    std::string operator/(const std::string &name) const { return path_ + "/" + name; }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

  private:
    std::string path_;
};

// An environment variable set (or, with null, unset) for a scope.
class ScopedEnv {
  public:
    ScopedEnv(const char *name, const char *value);
    ~ScopedEnv();
    ScopedEnv(const ScopedEnv &) = delete;
    ScopedEnv &operator=(const ScopedEnv &) = delete;

  private:
    std::string name_;
    std::string old_;
    bool had_ = false;
};

// Polls until the condition holds; false when it does not within the limit.
bool wait_until(const std::function<bool()> &condition, double seconds = 20);

// Bytes of hex text: pairs of digits, blanks and line ends ignored, '#' comments to the end of the
// line, and "text" in double quotes as its characters.
Bytes from_hex(const std::string &text);
// The same from a file of tests/data.
Bytes load_hex(const std::string &name);

// How often `part` begins in `text`.
size_t occurrences(const std::string &text, const std::string &part);
// The descriptors that this process has open.
std::set<int> open_descriptors();

std::string read_file(const std::string &path);

// Files of the source tree, below tests/data, and of the build tree. One source knows where these
// are: with paths in its command line no other would be found in a compiler cache by another tree.
std::string source_path(const std::string &name);
std::string data_path(const std::string &name);
std::string built_path(const std::string &name);
void write_file(const std::string &path, const std::string &content);

} // namespace zeb::test

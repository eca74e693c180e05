// terminal.h - a pair of pseudo terminals: a server opens one side, the test is the instrument on
// the other.
#pragma once

#include <string>
#include <string_view>

namespace zeb::test {

class Terminal {
  public:
    Terminal();
    ~Terminal() { unplug(); }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    const std::string &path() const { return path_; } // of the server's side
    void send(std::string_view bytes);                // from the instrument
    std::string receive(size_t count); // what the server sends, waiting for that many bytes
    bool has_input();                  // whether the server has sent anything yet
    void unplug();
    int fd() const { return fd_; }

  private:
    int fd_ = -1;
    std::string path_;
};

} // namespace zeb::test

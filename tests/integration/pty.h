// pty.h - a pseudo terminal: the instrument on a serial line, or the user before a program.
#pragma once

#include <string>
#include <termios.h>

namespace zeb::test {

class Pty {
  public:
    // The program's side stays open, too, so that its settings outlive each program.
    Pty();
    ~Pty();
    Pty(const Pty &) = delete;
    Pty &operator=(const Pty &) = delete;

    const std::string &path() const { return path_; } // of the program's side
    void type(const std::string &data);
    // Reads until everything that came holds the text; false when it does not come in time.
    bool expect(const std::string &text);
    const std::string &came() const { return came_; }
    termios settings() const;
    bool waits_for_keys() const { return (settings().c_lflag & ICANON) == 0; }

  private:
    void take();
    int ours_ = -1, theirs_ = -1;
    std::string path_, came_;
};

} // namespace zeb::test

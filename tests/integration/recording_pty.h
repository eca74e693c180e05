// recording_pty.h - a pseudo terminal that keeps what came: the instrument on a serial line, or
// the user before a program.
#pragma once

#include "terminal.h"

#include <string>
#include <termios.h>

namespace zeb::test {

class Pty {
  public:
    enum class Kind {
        line, // passes bytes as they are
        user  // edits and echoes lines, as a shell leaves it
    };

    // The program's side stays open, too, so that its settings outlive each program.
    explicit Pty(Kind kind = Kind::line);
    ~Pty();
    Pty(const Pty &) = delete;
    Pty &operator=(const Pty &) = delete;

    const std::string &path() const { return terminal_.path(); } // of the program's side
    void type(const std::string &data) { terminal_.send(data); }
    // Reads until all that came holds the text; false when it does not come in time.
    bool expect(const std::string &text);
    const std::string &came() const { return came_; }
    termios settings() const;

  private:
    void take();
    Terminal terminal_;
    int theirs_ = -1;
    std::string came_;
};

} // namespace zeb::test

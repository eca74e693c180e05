// terminal.h - the user's terminal while a command reads it; as it was when the command ends.
#pragma once

#include <optional>
#include <termios.h>

namespace zebctl {

class Terminal {
  public:
    enum class Mode {
        lines, // edited and echoed by the terminal, ended by Enter or the `leave` key
        keys   // each key at once, not shown, none of them special
    };

    // Does nothing to what is no terminal.
    Terminal(int fd, Mode mode, char leave);
    ~Terminal();
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

  private:
    int fd_;
    std::optional<termios> before_;
};

} // namespace zebctl

// pty.h - the line of a simulated instrument: a pseudo terminal under a name of one's choice.
#pragma once

#include <string>

namespace pty {

// Both ends of a pseudo terminal in raw mode. Its own end of the slave stays open, so that the line
// survives a program that opens and closes it. Failures throw std::system_error.
class Terminal {
  public:
    Terminal();
    ~Terminal();
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    const std::string &path() const { return path_; }
    // A reader that is not there loses what does not fit, as on a real line. Returns how much was
    // taken.
    size_t send(const std::string &text);
    // What has come within `seconds`, as soon as there is something; empty when nothing came.
    std::string receive(double seconds);
    // Waits until everything was read: closing drops what was not.
    void drain(double seconds);

  private:
    int master_ = -1;
    int slave_ = -1;
    std::string path_;
};

// A symbolic link under a name that does not change from run to run; removed at the end. What is
// there under that name is replaced when it is a link.
class Link {
  public:
    Link(const std::string &target, const std::string &name);
    ~Link();
    Link(const Link &) = delete;
    Link &operator=(const Link &) = delete;

  private:
    std::string name_;
};

} // namespace pty

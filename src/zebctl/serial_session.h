// serial_session.h - a user, or a pipe, in conversation with a serial line; or watching it only.
#pragma once

#include <string>

#include "serial_line.h"
#include "serial_text.h"

namespace zebctl {

struct SerialView {
    bool hex = false;
    bool json = false;
    Look look;
};

struct SerialSession {
    SerialView view;
    bool listen = false; // show what passes, send nothing
    bool raw = false;    // key by key
    bool echo = false;   // show what is sent in any case
    std::string eol;     // bytes
    double seconds = -1; // ends by itself; negative: not
};

// Serves the line until the user leaves, the input or the time ends; the exit status.
int run_session(SerialLine &line, const SerialSession &session);

// Shows bytes as the options want them.
class Shower {
  public:
    explicit Shower(const SerialView &view);
    void add(Direction direction, std::string_view data, FTIME now);
    // The line has been quiet: what waits for its end is shown.
    void flush();
    // Ends an open line, for other text on the same terminal.
    void finish();
    void interrupted() { text_.interrupted(); }
    // Nobody reads what is shown any more.
    bool is_broken() const { return broken_; }

  private:
    void print(const std::string &text);
    void show(const Group &group);

    SerialView view_;
    Grouper grouper_;
    TextView text_;
    bool broken_ = false;
};

} // namespace zebctl

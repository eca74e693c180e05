#include "terminal.h"

#include <cstdio>

namespace zebctl {

Terminal::Terminal(int fd, Mode mode, char leave) : fd_(fd) {
    termios settings;
    if (tcgetattr(fd, &settings) != 0)
        return;
    const termios before = settings;
    if (mode == Mode::lines) {
        // A second end of line: the key is seen without Enter.
        settings.c_cc[VEOL] = static_cast<cc_t>(leave);
    } else {
        // Output stays processed: other lines than the instrument's are shown, too.
        settings.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ISIG | IEXTEN);
        settings.c_iflag &= ~static_cast<tcflag_t>(ICRNL | INLCR | IGNCR | IXON | ISTRIP);
        settings.c_cc[VMIN] = 1;
        settings.c_cc[VTIME] = 0;
    }
    if (tcsetattr(fd, TCSANOW, &settings) == 0)
        before_ = before;
    else
        perror("zebctl: cannot set the terminal");
}

Terminal::~Terminal() {
    // Not after the output has drained: a terminal that is stopped would hold the end up.
    if (before_)
        tcsetattr(fd_, TCSANOW, &*before_);
}

} // namespace zebctl

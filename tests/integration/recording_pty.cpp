#include "recording_pty.h"

#include "support.h"

#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>

namespace zeb::test {

Pty::Pty(Kind kind) : theirs_(open(path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    if (theirs_ < 0)
        throw std::runtime_error("no pseudo terminal");
    if (kind == Kind::line)
        return;
    termios cooked = settings();
    cooked.c_iflag |= ICRNL | IXON;
    cooked.c_oflag |= OPOST | ONLCR;
    cooked.c_lflag |= ICANON | ECHO | ECHOE | ECHOK | ECHOCTL | ISIG | IEXTEN;
    tcsetattr(theirs_, TCSANOW, &cooked);
}

Pty::~Pty() {
    close(theirs_);
}

void Pty::take() {
    while (terminal_.has_input()) {
        char block[4096];
        const ssize_t got = read(terminal_.fd(), block, sizeof block);
        came_.append(block, got > 0 ? static_cast<size_t>(got) : 0);
    }
}

bool Pty::expect(const std::string &text) {
    return wait_until([&] {
        take();
        return came_.find(text) != std::string::npos;
    });
}

termios Pty::settings() const {
    termios settings = {};
    tcgetattr(theirs_, &settings);
    return settings;
}

} // namespace zeb::test

#include "pty.h"

#include "support.h"

#include <cstdlib>
#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>

namespace zeb::test {

Pty::Pty() {
    ours_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    if (ours_ < 0 || grantpt(ours_) != 0 || unlockpt(ours_) != 0)
        throw std::runtime_error("no pseudo terminal");
    path_ = ptsname(ours_);
    theirs_ = open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
}

Pty::~Pty() {
    close(theirs_);
    close(ours_);
}

void Pty::type(const std::string &data) {
    if (write(ours_, data.data(), data.size()) != static_cast<ssize_t>(data.size()))
        throw std::runtime_error("the pseudo terminal is full");
}

void Pty::take() {
    char block[4096];
    for (ssize_t got; (got = read(ours_, block, sizeof block)) > 0;)
        came_.append(block, static_cast<size_t>(got));
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

#include "terminal.h"

#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdexcept>
#include <termios.h>
#include <unistd.h>

namespace zeb::test {
namespace {

constexpr int k_patience_ms = 20000;

} // namespace

Terminal::Terminal() : fd_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    char name[256];
    if (fd_ < 0 || grantpt(fd_) != 0 || unlockpt(fd_) != 0 ||
        ptsname_r(fd_, name, sizeof name) != 0)
        throw std::runtime_error("no pseudo terminals");
    path_ = name;
    // Until the server has opened its side nothing may be echoed.
    termios raw;
    if (tcgetattr(fd_, &raw) == 0) {
        cfmakeraw(&raw);
        tcsetattr(fd_, TCSANOW, &raw);
    }
}

void Terminal::send(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = write(fd_, bytes.data(), bytes.size());
        if (count <= 0) {
            ADD_FAILURE() << "the terminal takes nothing";
            return;
        }
        bytes.remove_prefix(static_cast<size_t>(count));
    }
}

std::string Terminal::receive(size_t count) {
    std::string result;
    while (result.size() < count) {
        pollfd wait{fd_, POLLIN, 0};
        char block[4096];
        const size_t most = std::min(sizeof block, count - result.size());
        const ssize_t got = poll(&wait, 1, k_patience_ms) > 0 ? read(fd_, block, most) : 0;
        if (got <= 0) {
            ADD_FAILURE() << "the terminal brings no more than " << result.size() << " bytes";
            break;
        }
        result.append(block, static_cast<size_t>(got));
    }
    return result;
}

bool Terminal::has_input() {
    pollfd wait{fd_, POLLIN, 0};
    return poll(&wait, 1, 0) > 0 && (wait.revents & POLLIN) != 0;
}

void Terminal::unplug() {
    if (fd_ >= 0)
        close(fd_);
    fd_ = -1;
}

} // namespace zeb::test

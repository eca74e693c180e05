#include "pty.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <system_error>
#include <termios.h>
#include <unistd.h>

#include <zeb2/util.h>

namespace pty {
namespace {

std::system_error failure(const std::string &what) {
    return std::system_error(errno, std::generic_category(), what);
}

} // namespace

Terminal::Terminal() {
    master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0)
        throw failure("cannot open a pseudo terminal");
    path_ = ptsname(master_);
    slave_ = open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios settings = {};
    if (slave_ < 0 || tcgetattr(slave_, &settings) != 0)
        throw failure("cannot open " + path_);
    cfmakeraw(&settings);
    tcsetattr(slave_, TCSANOW, &settings);
    fcntl(master_, F_SETFL, O_NONBLOCK);
}

Terminal::~Terminal() {
    close(slave_);
    close(master_);
}

size_t Terminal::send(const std::string &text) {
    const ssize_t sent = write(master_, text.data(), text.size());
    return sent > 0 ? static_cast<size_t>(sent) : 0;
}

std::string Terminal::receive(double seconds) {
    pollfd entry = {master_, POLLIN, 0};
    char bytes[256];
    if (poll(&entry, 1, static_cast<int>(std::ceil(seconds * 1000))) <= 0)
        return "";
    const ssize_t got = read(master_, bytes, sizeof bytes);
    return std::string(bytes, got > 0 ? static_cast<size_t>(got) : 0);
}

void Terminal::drain(double seconds) {
    const FTIME limit = UTIL_ftime() + seconds;
    for (int waiting = 1; waiting > 0 && UTIL_ftime() < limit; UTIL_fsleep(0.01))
        if (ioctl(slave_, FIONREAD, &waiting) != 0)
            return;
}

Link::Link(const std::string &target, const std::string &name) : name_(name) {
    char old[PATH_MAX];
    if (readlink(name.c_str(), old, sizeof old) >= 0)
        unlink(name.c_str());
    if (symlink(target.c_str(), name.c_str()) != 0)
        throw failure("cannot make the link " + name);
}

Link::~Link() {
    unlink(name_.c_str());
}

} // namespace pty

#include "device.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <linux/serial.h>

namespace zebseriald {
namespace {

// The slaves of pseudo terminals, and the device that makes a new pair whenever it is opened.
constexpr unsigned k_first_slave = 136;
constexpr unsigned k_last_slave = 143;
constexpr unsigned k_multiplexer_major = 5;
constexpr unsigned k_multiplexer_minor = 2;

bool is_slave(dev_t number) {
    return major(number) >= k_first_slave && major(number) <= k_last_slave;
}

// Some devices act when they are merely opened (a watchdog, a printer), so that a device of another
// kind is told by what the system says of it. Without a word of the system it may be a terminal.
bool may_be_terminal(dev_t number) {
    if (major(number) == k_multiplexer_major && minor(number) == k_multiplexer_minor)
        return false;
    char link[64];
    char target[256];
    snprintf(link, sizeof link, "/sys/dev/char/%u:%u/subsystem", major(number), minor(number));
    const ssize_t length = readlink(link, target, sizeof target - 1);
    if (length <= 0)
        return true;
    target[length] = '\0';
    const char *slash = strrchr(target, '/');
    return strcmp(slash == nullptr ? target : slash + 1, "tty") == 0;
}

const char *kind_of(mode_t mode) {
    if (S_ISDIR(mode))
        return "it is a directory";
    if (S_ISREG(mode))
        return "it is a regular file";
    return "it is no terminal";
}

bool fail(OpenFailure &failure, std::string why, bool lasting) {
    failure = {std::move(why), lasting, false};
    return false;
}

bool fail_by_errno(OpenFailure &failure) {
    const bool lasting = errno == ELOOP || errno == ENAMETOOLONG;
    const bool absent = errno == ENOENT || errno == ENXIO || errno == ENODEV || errno == EIO;
    failure = {strerror(errno), lasting, absent};
    return false;
}

bool look_at(const std::string &path, OpenFailure &failure) {
    struct stat info {};
    if (stat(path.c_str(), &info) != 0)
        return fail_by_errno(failure);
    if (!S_ISCHR(info.st_mode))
        return fail(failure, kind_of(info.st_mode), true);
    if (!may_be_terminal(info.st_rdev))
        return fail(failure, "it is no terminal", true);
    return true;
}

} // namespace

std::optional<dev_t> device_number(const std::string &path) {
    struct stat info {};
    if (stat(path.c_str(), &info) != 0 || !S_ISCHR(info.st_mode))
        return std::nullopt;
    return info.st_rdev;
}

std::optional<Device> open_device(const std::string &path, const Line &line, OpenFailure &failure) {
    if (!look_at(path, failure))
        return std::nullopt;
    Device device;
    device.fd.reset(open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    struct stat info {};
    if (!device.fd || fstat(device.fd.get(), &info) != 0) {
        fail_by_errno(failure);
        return std::nullopt;
    }
    if (!S_ISCHR(info.st_mode) || isatty(device.fd.get()) == 0) {
        fail(failure, kind_of(info.st_mode), true);
        return std::nullopt;
    }
    device.number = info.st_rdev;
    device.pseudo = is_slave(info.st_rdev);
    std::string why;
    if (!apply_line(device.fd.get(), line, device.pseudo, why)) {
        fail(failure, why, false);
        return std::nullopt;
    }
    // Nobody else may take bytes off the line. A pseudo terminal would stay closed to everybody for
    // as long as its other side is open, even after a crash of ours.
    if (!device.pseudo)
        ioctl(device.fd.get(), TIOCEXCL);
    return device;
}

size_t unsent(int fd) {
    int count = 0;
    if (ioctl(fd, TIOCOUTQ, &count) != 0 || count < 0)
        return 0;
    unsigned status = 0;
    if (count == 0 && ioctl(fd, TIOCSERGETLSR, &status) == 0 && (status & TIOCSER_TEMT) == 0)
        return 1; // the last character is still on its way
    return static_cast<size_t>(count);
}

void close_device(Device &device) {
    if (!device.fd)
        return;
    // The system would otherwise hold the closing process for as long as the line takes.
    if (unsent(device.fd.get()) > 0)
        tcflush(device.fd.get(), TCOFLUSH);
    // The mark would stay on the line for as long as anybody else has it open.
    if (!device.pseudo)
        ioctl(device.fd.get(), TIOCNXCL);
    device.fd.reset();
}

} // namespace zebseriald

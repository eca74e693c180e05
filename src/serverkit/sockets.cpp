#include "sockets.h"

#include "report.h"

#include <arpa/inet.h>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <netinet/tcp.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace serverkit {
namespace {

constexpr int k_backlog = 128;

// A bare number, all of it.
std::optional<int> to_number(std::string_view text, int highest) {
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < 0 || value > highest)
        return std::nullopt;
    return value;
}

std::optional<sockaddr_un> local_address(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        report("socket path \"%s\" is longer than %zu bytes", path.c_str(),
               sizeof address.sun_path - 1);
        return std::nullopt;
    }
    memcpy(address.sun_path, path.data(), path.size());
    return address;
}

// What is at the path of a socket that we want to bind.
enum class Occupant { nobody, stale, live, foreign, unknown };

Occupant who_is_at(const sockaddr_un &address) {
    struct stat info {};
    if (lstat(address.sun_path, &info) != 0)
        return errno == ENOENT ? Occupant::nobody : Occupant::unknown;
    if (!S_ISSOCK(info.st_mode))
        return Occupant::foreign;
    const UniqueFd probe(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!probe)
        return Occupant::unknown;
    if (connect(probe.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0)
        return Occupant::live;
    if (errno == EAGAIN || errno == EINPROGRESS) // its queue of connections is full
        return Occupant::live;
    return errno == ECONNREFUSED ? Occupant::stale : Occupant::unknown;
}

bool clear_path(const sockaddr_un &address) {
    switch (who_is_at(address)) {
    case Occupant::nobody:
        return true;
    case Occupant::stale:
        if (unlink(address.sun_path) == 0)
            return true;
        report_errno("cannot replace the stale socket \"%s\"", address.sun_path);
        return false;
    case Occupant::live:
        report("a server is already listening at \"%s\"", address.sun_path);
        return false;
    case Occupant::foreign:
        report("\"%s\" is in the way and is not a socket", address.sun_path);
        return false;
    case Occupant::unknown:
        break;
    }
    report_errno("cannot use the socket \"%s\"", address.sun_path);
    return false;
}

std::optional<gid_t> group_number(const std::string &group) {
    if (const auto number = to_number(group, INT_MAX))
        return static_cast<gid_t>(*number);
    errno = 0;
    if (const struct group *entry = getgrnam(group.c_str()))
        return entry->gr_gid;
    report("there is no group \"%s\" for the socket", group.c_str());
    return std::nullopt;
}

bool grant_access(const std::string &path, const LocalAccess &access) {
    if (!access.group.empty()) {
        const auto gid = group_number(access.group);
        if (!gid)
            return false;
        if (chown(path.c_str(), static_cast<uid_t>(-1), *gid) != 0) {
            report_errno("cannot give \"%s\" to the group \"%s\"", path.c_str(),
                         access.group.c_str());
            return false;
        }
    }
    if (chmod(path.c_str(), access.mode) == 0)
        return true;
    report_errno("cannot set the mode of \"%s\"", path.c_str());
    return false;
}

// Bound with no access for others, so that the file is never wider than asked for.
bool bind_closed(int fd, const sockaddr_un &address) {
    const mode_t before = umask(0177);
    const bool bound = bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    const int error = errno;
    umask(before);
    errno = error;
    if (!bound)
        report_errno("cannot create the socket \"%s\"", address.sun_path);
    return bound;
}

// Two servers that start at once must not both take the other's socket for a stale one: between
// bind and listen a socket refuses connections. The lock is on the directory and leaves no file.
constexpr int k_lock_patience = 200; // hundredths of a second

// Servers that start at once wait for each other; a stranger who keeps the lock must not keep us.
bool lock_within(int fd, int hundredths) {
    for (;; --hundredths) {
        if (flock(fd, LOCK_EX | LOCK_NB) == 0)
            return true;
        if ((errno != EWOULDBLOCK && errno != EINTR) || hundredths <= 0)
            return false;
        usleep(10000);
    }
}

UniqueFd lock_directory(const std::string &path) {
    const std::string directory = path.substr(0, path.rfind('/') + 1);
    UniqueFd fd(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd)
        report_errno("cannot open the socket directory \"%s\"", directory.c_str());
    else if (!lock_within(fd.get(), k_lock_patience)) {
        report_errno("cannot lock the socket directory \"%s\"", directory.c_str());
        return UniqueFd();
    }
    return fd;
}

// Every address as IPv6, so that one comparison serves both families.
std::optional<in6_addr> mapped(const sockaddr_storage &address) {
    if (address.ss_family == AF_INET6)
        return reinterpret_cast<const sockaddr_in6 &>(address).sin6_addr;
    if (address.ss_family != AF_INET)
        return std::nullopt;
    in6_addr result{};
    result.s6_addr[10] = result.s6_addr[11] = 0xff;
    memcpy(result.s6_addr + 12, &reinterpret_cast<const sockaddr_in &>(address).sin_addr, 4);
    return result;
}

bool parse_address(const std::string &text, int port, sockaddr_storage &out, socklen_t &length) {
    out = {};
    auto &v4 = reinterpret_cast<sockaddr_in &>(out);
    auto &v6 = reinterpret_cast<sockaddr_in6 &>(out);
    if (inet_pton(AF_INET, text.c_str(), &v4.sin_addr) == 1) {
        v4.sin_family = AF_INET;
        v4.sin_port = htons(static_cast<uint16_t>(port));
        length = sizeof v4;
        return true;
    }
    if (inet_pton(AF_INET6, text.c_str(), &v6.sin6_addr) == 1) {
        v6.sin6_family = AF_INET6;
        v6.sin6_port = htons(static_cast<uint16_t>(port));
        length = sizeof v6;
        return true;
    }
    return false;
}

bool same_prefix(const in6_addr &a, const in6_addr &b, int bits) {
    const auto whole = static_cast<size_t>(bits / 8);
    if (memcmp(a.s6_addr, b.s6_addr, whole) != 0)
        return false;
    const int rest = bits % 8;
    return rest == 0 || ((a.s6_addr[whole] ^ b.s6_addr[whole]) >> (8 - rest)) == 0;
}

} // namespace

void UniqueFd::reset(int fd) {
    if (fd_ >= 0)
        ::close(fd_);
    fd_ = fd;
}

std::string run_path(const char *name) {
    const char *directory = getenv("ZEB2RUN");
    if (directory == nullptr || *directory == '\0')
        directory = "/var/run/zeb";
    return std::string(directory) + "/" + name;
}

LocalListener::LocalListener(UniqueFd fd, std::string path)
    : fd_(std::move(fd)), path_(std::move(path)) {
    struct stat info {};
    if (lstat(path_.c_str(), &info) == 0) {
        device_ = info.st_dev;
        inode_ = info.st_ino;
    }
}

LocalListener::LocalListener(LocalListener &&other) noexcept
    : fd_(std::move(other.fd_)), path_(std::move(other.path_)), device_(other.device_),
      inode_(other.inode_) {
    other.path_.clear();
}

void LocalListener::close() {
    struct stat info {};
    const bool ours = fd_ && !path_.empty() && lstat(path_.c_str(), &info) == 0 &&
                      info.st_dev == device_ && info.st_ino == inode_;
    fd_.reset();
    if (ours)
        unlink(path_.c_str());
    path_.clear();
}

std::optional<LocalListener> listen_local(const std::string &path, const LocalAccess &access) {
    const auto address = local_address(path);
    if (!address)
        return std::nullopt;
    const UniqueFd lock = lock_directory(path);
    if (!lock || !clear_path(*address))
        return std::nullopt;
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!fd) {
        report_errno("cannot create a local socket");
        return std::nullopt;
    }
    if (!bind_closed(fd.get(), *address))
        return std::nullopt;
    LocalListener listener(std::move(fd), path);
    if (!grant_access(path, access))
        return std::nullopt;
    if (listen(listener.fd(), k_backlog) != 0) {
        report_errno("cannot listen at \"%s\"", path.c_str());
        return std::nullopt;
    }
    return listener;
}

UniqueFd listen_tcp(const std::string &address, int port) {
    sockaddr_storage where{};
    socklen_t length = 0;
    if (!parse_address(address, port, where, length)) {
        report("\"%s\" is not a numeric address to listen on", address.c_str());
        return UniqueFd();
    }
    UniqueFd fd(socket(where.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int on = 1;
    if (fd)
        setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (!fd || bind(fd.get(), reinterpret_cast<const sockaddr *>(&where), length) != 0 ||
        listen(fd.get(), k_backlog) != 0) {
        report_errno("cannot listen on %s port %d", address.c_str(), port);
        return UniqueFd();
    }
    return fd;
}

bool AddressList::add(std::string_view text) {
    const size_t slash = text.find('/');
    sockaddr_storage address{};
    socklen_t length = 0;
    if (!parse_address(std::string(text.substr(0, slash)), 0, address, length))
        return false;
    const int width = address.ss_family == AF_INET ? 32 : 128;
    int prefix = width;
    if (slash != std::string_view::npos) {
        const auto number = to_number(text.substr(slash + 1), width);
        if (!number)
            return false;
        prefix = *number;
    }
    networks_.push_back({*mapped(address), prefix + 128 - width});
    return true;
}

bool AddressList::contains(const sockaddr_storage &address) const {
    const auto candidate = mapped(address);
    if (!candidate)
        return false;
    for (const Network &network : networks_)
        if (same_prefix(network.address, *candidate, network.prefix))
            return true;
    return false;
}

std::string address_text(const sockaddr_storage &address) {
    char text[INET6_ADDRSTRLEN] = "?";
    if (address.ss_family == AF_INET) {
        const auto &v4 = reinterpret_cast<const sockaddr_in &>(address);
        inet_ntop(AF_INET, &v4.sin_addr, text, sizeof text);
        return std::string(text) + ":" + std::to_string(ntohs(v4.sin_port));
    }
    const auto &v6 = reinterpret_cast<const sockaddr_in6 &>(address);
    inet_ntop(AF_INET6, &v6.sin6_addr, text, sizeof text);
    return "[" + std::string(text) + "]:" + std::to_string(ntohs(v6.sin6_port));
}

} // namespace serverkit

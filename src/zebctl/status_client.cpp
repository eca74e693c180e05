#include "status_client.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace zebctl {
namespace {

constexpr int k_patience = 5000; // ms without a byte
constexpr size_t k_max_document = 64 * 1024 * 1024;

class Socket {
  public:
    explicit Socket(int fd) : fd_(fd) {}
    ~Socket() {
        if (fd_ >= 0)
            close(fd_);
    }
    Socket(const Socket &) = delete;
    Socket &operator=(const Socket &) = delete;
    int get() const { return fd_; }

  private:
    int fd_;
};

std::string status_path() {
    const char *directory = getenv("ZEB2RUN");
    return std::string(directory != nullptr && *directory != '\0' ? directory : "/var/run/zeb") +
           "/.mainstatus";
}

bool read_all(int fd, std::string &text) {
    char block[65536];
    for (;;) {
        pollfd ready = {fd, POLLIN, 0};
        const int n = poll(&ready, 1, k_patience);
        if (n < 0 && errno == EINTR)
            continue;
        if (n == 0)
            errno = ETIMEDOUT;
        if (n <= 0)
            return false;
        const ssize_t got = read(fd, block, sizeof block);
        if (got <= 0)
            return got == 0;
        text.append(block, static_cast<size_t>(got));
        if (text.size() > k_max_document) {
            errno = EFBIG;
            return false;
        }
    }
}

} // namespace

std::optional<nlohmann::json> fetch_status() {
    const std::string path = status_path();
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        fprintf(stderr, "zebctl: the path %s is too long for a socket; choose a shorter ZEB2RUN\n",
                path.c_str());
        return std::nullopt;
    }
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const Socket socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    std::string text;
    if (socket.get() < 0 ||
        connect(socket.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        !read_all(socket.get(), text)) {
        fprintf(stderr, "zebctl: no status from %s: %s - is the message server running?\n",
                path.c_str(), strerror(errno));
        return std::nullopt;
    }
    nlohmann::json document = nlohmann::json::parse(text, nullptr, false);
    if (!document.is_object()) {
        fprintf(stderr, "zebctl: what %s answered is no status document\n", path.c_str());
        return std::nullopt;
    }
    return document;
}

} // namespace zebctl

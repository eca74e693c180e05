// sockets.h - descriptors that close themselves, and the listening sockets of a server.
//
//   std::optional<LocalListener> main = listen_local(run_path(".mainsocket"), {0660, "zeb"});
//   if (!main) return 1; // said why
#pragma once

#include <netinet/in.h>
#include <optional>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace serverkit {

class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd &operator=(UniqueFd &&other) noexcept {
        reset(std::exchange(other.fd_, -1));
        return *this;
    }
    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    void reset(int fd = -1);

  private:
    int fd_ = -1;
};

// The directory of the servers' sockets ("/var/run/zeb" or ZEB2RUN), a slash, and `name`.
std::string run_path(const char *name);

// Who may connect to a local socket.
struct LocalAccess {
    mode_t mode = 0660;
    std::string group; // name or number; empty: the server's own
};

// A listening local socket that takes its file away when it goes, if the file is still its own.
class LocalListener {
  public:
    LocalListener(UniqueFd fd, std::string path);
    ~LocalListener() { close(); }
    LocalListener(LocalListener &&other) noexcept;
    LocalListener &operator=(LocalListener &&) = delete;
    int fd() const { return fd_.get(); }
    void close();

  private:
    UniqueFd fd_;
    std::string path_;
    dev_t device_ = 0;
    ino_t inode_ = 0;
};

// Listens at `path`. A socket file that nobody answers is replaced; a live one, and anything that
// is no socket, is left alone. On failure says why and returns nothing.
std::optional<LocalListener> listen_local(const std::string &path, const LocalAccess &access);

// Listens on a numeric address (IPv4 or IPv6). On failure says why; the result is then empty.
UniqueFd listen_tcp(const std::string &address, int port);

// A set of numeric addresses and networks ("192.0.2.7", "10.0.0.0/8", "fd00::/8").
class AddressList {
  public:
    // False when the text is no address or its prefix does not fit.
    bool add(std::string_view text);
    bool empty() const { return networks_.empty(); }
    bool contains(const sockaddr_storage &address) const;

  private:
    struct Network {
        in6_addr address;
        int prefix; // bits, of 128
    };
    std::vector<Network> networks_;
};

// "192.0.2.7:4711", "[fd00::1]:4711"
std::string address_text(const sockaddr_storage &address);

} // namespace serverkit

#include "scripted_peer.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace zeb::test {
namespace {

constexpr size_t k_header = 10;

int listen_at(int domain, const sockaddr *address, socklen_t size) {
    const int fh = socket(domain, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(fh, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (fh < 0 || bind(fh, address, size) != 0 || listen(fh, 8) != 0)
        throw std::runtime_error(std::string("cannot listen: ") + strerror(errno));
    return fh;
}

bool is_readable(int fh, double seconds) {
    pollfd wait = {fh, POLLIN, 0};
    return poll(&wait, 1, static_cast<int>(seconds * 1000)) == 1;
}

size_t payload_size(const unsigned char *header) {
    return header[6] | header[7] << 8 | header[8] << 16 | static_cast<size_t>(header[9]) << 24;
}

} // namespace

Bytes wire_u16(unsigned value) {
    return {static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8)};
}

Bytes wire_u32(unsigned value) {
    return wire_u16(value & 0xFFFFU) + wire_u16(value >> 16);
}

Bytes wire_text(const std::string &text) {
    return wire_u16(static_cast<unsigned>(text.size())) + Bytes(text.begin(), text.end());
}

Bytes operator+(Bytes left, const Bytes &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes wire_frame(const Bytes &payload) {
    const Bytes magic = {'2', 'B', 'E', 'Z', 1, 1};
    return magic + wire_u32(static_cast<unsigned>(payload.size())) + payload;
}

int listen_local(const std::string &path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    return listen_at(AF_UNIX, reinterpret_cast<sockaddr *>(&address), sizeof address);
}

int listen_host(const std::string &host, int *port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(*port));
    inet_pton(AF_INET, host.c_str(), &address.sin_addr);
    const int fh = listen_at(AF_INET, reinterpret_cast<sockaddr *>(&address), sizeof address);
    socklen_t size = sizeof address;
    getsockname(fh, reinterpret_cast<sockaddr *>(&address), &size);
    *port = ntohs(address.sin_port);
    return fh;
}

bool ScriptedConnection::accept_from(int listener, double seconds) {
    if (!is_readable(listener, seconds))
        return false;
    client_ = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    gone_ = false;
    raw_.clear();
    taken_ = 0;
    return client_ >= 0;
}

void ScriptedConnection::send_bytes(const Bytes &bytes) {
    size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t n = ::send(client_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0)
            return;
        sent += static_cast<size_t>(n);
    }
}

void ScriptedConnection::stop_reading() {
    shutdown(client_, SHUT_RD);
}

void ScriptedConnection::close_client() {
    if (client_ >= 0)
        close(client_);
    client_ = -1;
}

void ScriptedConnection::reset_client() {
    const linger abort = {1, 0};
    setsockopt(client_, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
    close_client();
}

void ScriptedConnection::read_available() {
    unsigned char block[4096];
    for (;;) {
        const ssize_t n = recv(client_, block, sizeof block, MSG_DONTWAIT);
        if (n <= 0) {
            gone_ = gone_ || n == 0 || errno == ECONNRESET;
            return;
        }
        raw_.insert(raw_.end(), block, block + n);
    }
}

const Bytes &ScriptedConnection::received_bytes() {
    read_available();
    return raw_;
}

std::optional<Bytes> ScriptedConnection::next_payload() {
    read_available();
    if (raw_.size() - taken_ < k_header)
        return std::nullopt;
    const size_t size = payload_size(raw_.data() + taken_);
    if (raw_.size() - taken_ < k_header + size)
        return std::nullopt;
    const auto start = raw_.begin() + static_cast<long>(taken_ + k_header);
    taken_ += k_header + size;
    return Bytes(start, start + static_cast<long>(size));
}

bool ScriptedConnection::client_gone() {
    read_available();
    return gone_;
}

} // namespace zeb::test

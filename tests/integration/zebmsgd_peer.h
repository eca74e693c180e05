// zebmsgd_peer.h - the message server under test and the peers that write and read the bytes
// themselves.
#pragma once

#include "packets.h"
#include "process.h"
#include "support.h"

#include <arpa/inet.h>
#include <cstring>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <nlohmann/json.hpp>
#include <optional>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace zeb::test {

inline constexpr int k_patience_ms = 20000;

inline int connect_local(const std::string &path) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0)
        return fd;
    close(fd);
    return -1;
}

inline sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

inline int connect_tcp(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0)
        return fd;
    close(fd);
    return -1;
}

// A port that was free a moment ago; not one of those that connections and other tests are given.
inline int free_port() {
    constexpr int k_first = 10000, k_count = 20000;
    for (int i = 0; i < k_count; ++i) {
        const int port = k_first + (getpid() * 7 + i) % k_count;
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const sockaddr_in address = loopback(port);
        const bool is_free =
            bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
        close(fd);
        if (is_free)
            return port;
    }
    return 0;
}

// A scripted client. Heartbeats are echoed on the way and otherwise not shown.
class Wire {
  public:
    explicit Wire(int fd) : fd_(fd) {}
    ~Wire() { hang_up(); }
    Wire(Wire &&other) noexcept
        : echoes(other.echoes), fd_(std::exchange(other.fd_, -1)),
          buffer_(std::move(other.buffer_)) {}

    void hang_up() {
        if (fd_ >= 0)
            close(fd_);
        fd_ = -1;
    }

    // False when the server has closed.
    bool send_raw(std::string_view bytes) {
        while (!bytes.empty()) {
            const ssize_t count = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (count <= 0)
                return false;
            bytes.remove_prefix(static_cast<size_t>(count));
        }
        return true;
    }
    bool send(const std::string &payload) { return send_raw(framed(payload)); }

    // The next message with any name; nothing at the end of the stream or when patience ends.
    std::optional<Received> next_of_all() {
        for (;;) {
            if (buffer_.size() >= 10) {
                const size_t length = number_at(buffer_, 6, 4);
                EXPECT_EQ(buffer_.substr(0, 6), std::string("2BEZ\x01\x01", 6));
                if (buffer_.size() >= 10 + length) {
                    const Received message = unpacked(buffer_.substr(10, length));
                    buffer_.erase(0, 10 + length);
                    return message;
                }
            }
            if (!fill())
                return std::nullopt;
        }
    }

    std::optional<Received> next() {
        for (;;) {
            auto message = next_of_all();
            if (!message || message->name != "MSG_SERVER_HEARTBEAT")
                return message;
            if (echoes)
                send(packed(0, "MSG_SERVER_HEARTBEAT", "", "", message->record, message->rest));
        }
    }

    // "NAME from SOURCE", or "end".
    std::string next_name() {
        const auto message = next();
        if (!message)
            return "end";
        return message->source.empty() ? message->name : message->name + " from " + message->source;
    }

    // True when the server closes, whatever it still sends.
    bool sees_end() {
        while (next())
            ;
        return ended_;
    }

    bool echoes = true;

  private:
    bool fill() {
        pollfd wait{fd_, POLLIN, 0};
        if (poll(&wait, 1, k_patience_ms) <= 0) {
            ADD_FAILURE() << "the server said nothing";
            return false;
        }
        char block[65536];
        const ssize_t count = recv(fd_, block, sizeof block, 0);
        ended_ = count <= 0;
        if (!ended_)
            buffer_.append(block, static_cast<size_t>(count));
        return !ended_;
    }

    int fd_;
    std::string buffer_;
    bool ended_ = false;
};

class Zebmsgd : public testing::Test {
  protected:
    TempDir dir;
    std::optional<Process> server;

    std::string socket_path() const { return dir / ".mainsocket"; }
    std::string status_path() const { return dir / ".mainstatus"; }

    Process::Options options() const { return {{{"ZEB2RUN", dir.path()}}, 0}; }

    std::vector<std::string> command(const std::string &configuration) {
        write_file(dir / "zeb.conf", configuration);
        return {built_path("bin/zebmsgd"), "--verbose", "--config", dir / "zeb.conf"};
    }

    // Starts the server and waits until it answers.
    void start(const std::string &configuration = "", unsigned long descriptors = 0) {
        Process::Options with = options();
        with.descriptors = descriptors;
        server.emplace(dir.path(), command(configuration), with);
        // Its loop answers, so all of its sockets are open.
        ASSERT_TRUE(wait_until([&] {
            const int fd = connect_local(status_path());
            char byte;
            const bool answers = fd >= 0 && recv(fd, &byte, 1, 0) == 1;
            if (fd >= 0)
                close(fd);
            return answers || !server->running();
        }));
        ASSERT_TRUE(server->running()) << server->errors();
    }

    // A run that is expected to end by itself.
    int run(const std::vector<std::string> &words) {
        server.emplace(dir.path(), words, options());
        return server->wait();
    }

    Wire raw() {
        const int fd = connect_local(socket_path());
        EXPECT_GE(fd, 0);
        return Wire(fd);
    }

    // A client after its handshake and its notice of connecting, as the library's clients do it.
    Wire client(const std::string &name) { return introduce(raw(), name); }

    Wire introduce(Wire wire, const std::string &name) {
        wire.send(handshake(name));
        EXPECT_EQ(wire.next_name(), "MSG_SERVER_SERVERHANDSHAKE");
        wire.send(packed(1, "MSG_NOTIFY_CLIENT_CONNECT"));
        return wire;
    }

    // A peer that has heard of each other: `wire` consumes the notice of `name`.
    Wire client_seen_by(Wire &wire, const std::string &name) {
        Wire fresh = client(name);
        EXPECT_EQ(wire.next_name(), "MSG_NOTIFY_CLIENT_CONNECT from " + name);
        return fresh;
    }

    nlohmann::json status() {
        const int fd = connect_local(status_path());
        EXPECT_GE(fd, 0);
        std::string text;
        char block[4096];
        for (ssize_t n; (n = recv(fd, block, sizeof block, 0)) > 0;)
            text.append(block, static_cast<size_t>(n));
        close(fd);
        return nlohmann::json::parse(text);
    }

    nlohmann::json status_of(const std::string &name) {
        const auto all = status();
        for (const auto &one : all.at("clients"))
            if (one.at("name") == name)
                return one;
        return nullptr;
    }

    bool exists(const std::string &path) {
        struct stat info;
        return lstat(path.c_str(), &info) == 0;
    }

    // Waits for a line that the server writes about its own time.
    bool says(const std::string &text) {
        return wait_until([&] { return server->errors().find(text) != std::string::npos; });
    }
};

} // namespace zeb::test

// zebseriald_peer.h - the serial-port server under test and the peers that drive it.
#pragma once

#include "packets.h"
#include "process.h"
#include "support.h"
#include "terminal.h"

#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <termios.h>
#include <unistd.h>

namespace zeb::test {

enum : unsigned {
    k_heartbeat,
    k_close,
    k_read_new,
    k_read_new_echo,
    k_read_until,
    k_read_until_empty,
    k_read_burst,
    k_flush,
    k_reset,
    k_set_port_params,
    k_set_int_params,
    k_write,
    k_blocking_write,
    k_add_repeater,
    k_del_repeater
};

// A request.
struct Ask {
    unsigned type = 0;
    double timeout = 0;
    double burst = 0;
    std::string data{};
};

inline std::string f64(double value) {
    char bytes[8];
    memcpy(bytes, &value, sizeof bytes);
    return {bytes, sizeof bytes};
}

inline std::string record_of(const Ask &ask) {
    return u32(ask.type) + f64(ask.timeout) + f64(ask.burst) + ask.data;
}

inline Ask line_settings(unsigned baud, int bits, int parity, int stop_bits, int flow) {
    const char rest[] = {static_cast<char>(bits), static_cast<char>(parity),
                         static_cast<char>(stop_bits), static_cast<char>(flow)};
    return {k_set_port_params, 0, 0, u32(baud) + std::string(rest, sizeof rest)};
}

inline Ask settings(unsigned buffer, unsigned echo, bool exclusive) {
    return {k_set_int_params, 0, 0,
            u32(buffer) + u32(echo) + std::string(1, exclusive ? '\1' : '\0') +
                std::string(3, '\0')};
}

inline Ask add_repeater(const std::string &name, int mode, bool by_line) {
    return {k_add_repeater, 0, 0,
            std::string(1, static_cast<char>(mode)) + padded(name, 256) +
                std::string(1, by_line ? '\1' : '\0')};
}

inline Ask delete_repeater(const std::string &name) {
    return {k_del_repeater, 0, 0, padded(name, 256)};
}

class Peer {
  public:
    explicit Peer(int fd) : fd_(fd) {}
    ~Peer() { hang_up(); }
    Peer(Peer &&other) noexcept
        : fd_(std::exchange(other.fd_, -1)), buffer_(std::move(other.buffer_)) {}

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
    bool send(const std::string &record) { return send_raw(framed(record)); }
    bool request(const Ask &ask) { return send(record_of(ask)); }

    // "success DATA", "success", "failure", "heartbeat", or "end" at the end of the stream.
    std::string answer() {
        const auto record = next();
        if (!record)
            return "end";
        if (record->size() < 4)
            return "short";
        static const char *const k_names[] = {"heartbeat", "success", "failure"};
        const size_t type = number_at(*record, 0, 4);
        const std::string name = type < 3 ? k_names[type] : "type " + std::to_string(type);
        return record->size() == 4 ? name : name + " " + record->substr(4);
    }
    std::string ask(const Ask &ask) {
        request(ask);
        return answer();
    }
    // What READNEW brings until there are so many bytes.
    std::string read_all(size_t count) {
        std::string all;
        wait_until([&] {
            const std::string some = ask({k_read_new, -1, -1});
            all += some.size() > 8 ? some.substr(8) : "";
            return all.size() >= count || some == "end";
        });
        return all;
    }

    // True when the server closes, whatever it still sends.
    bool sees_end() {
        while (next())
            ;
        return ended_;
    }
    int fd() const { return fd_; }

  private:
    std::optional<std::string> next() {
        for (;;) {
            if (buffer_.size() >= 10) {
                const size_t length = number_at(buffer_, 6, 4);
                EXPECT_EQ(buffer_.substr(0, 6), std::string("2BEZ\x01\x01", 6));
                if (buffer_.size() >= 10 + length) {
                    const std::string record = buffer_.substr(10, length);
                    buffer_.erase(0, 10 + length);
                    return record;
                }
            }
            if (!fill())
                return std::nullopt;
        }
    }

    bool fill() {
        pollfd wait{fd_, POLLIN, 0};
        if (poll(&wait, 1, 20000) <= 0) {
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

class Zebseriald : public testing::Test {
  protected:
    TempDir dir;
    Terminal terminal;
    std::optional<Process> server;

    std::string socket_path() const { return dir / ".serialdsocket"; }

    static std::string port(const std::string &name, const std::string &device) {
        return "Port;" + name + ";Device," + device + "\n";
    }
    std::string repeaters() const { return "Serial;Repeater;Directory," + dir.path() + "\n"; }

    // Starts the server and waits until it listens.
    void start(const std::string &configuration = "", unsigned long descriptors = 0) {
        write_file(dir / "zeb.conf", configuration);
        Process::Options options{{{"ZEB2RUN", dir.path()}}, descriptors};
        server.emplace(
            dir.path(),
            std::vector<std::string>{built_path("bin/zebseriald"), "--config", dir / "zeb.conf"},
            options);
        ASSERT_TRUE(wait_until([&] {
            const int fd = connect_socket();
            if (fd >= 0)
                close(fd);
            return fd >= 0 || !server->running();
        }));
        ASSERT_TRUE(server->running()) << server->errors();
    }

    int connect_socket() const {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        strncpy(address.sun_path, socket_path().c_str(), sizeof address.sun_path - 1);
        if (::connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0)
            return fd;
        close(fd);
        return -1;
    }

    Peer connect() {
        const int fd = connect_socket();
        EXPECT_GE(fd, 0);
        return Peer(fd);
    }
    // A peer that has sent its handshake.
    Peer open(const std::string &name) {
        Peer peer = connect();
        peer.send(padded(name, 256));
        return peer;
    }
    // A peer with a link, to the test's terminal if not said otherwise.
    Peer opened(const std::string &name) {
        Peer peer = open(name);
        EXPECT_EQ(peer.answer(), "success") << name;
        return peer;
    }
    Peer opened() { return opened("=" + terminal.path()); }

    // Lets "device" be a link to a terminal.
    void plug(const Terminal &which) {
        unlink((dir / "device").c_str());
        ASSERT_EQ(symlink(which.path().c_str(), (dir / "device").c_str()), 0);
    }

    // The settings of the test's terminal, as its other side has them.
    termios line() const {
        termios set{};
        tcgetattr(terminal.fd(), &set);
        return set;
    }

    bool says(const std::string &text) {
        return wait_until([&] { return server->errors().find(text) != std::string::npos; });
    }
    int count_lines(const std::string &text) {
        const std::string all = server->errors();
        int count = 0;
        for (size_t at = all.find(text); at != std::string::npos; at = all.find(text, at + 1))
            ++count;
        return count;
    }
};

} // namespace zeb::test

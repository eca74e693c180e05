// server_driver - what the message server delivers, beside two well-known brokers on the same
// machine and in the same run: mosquitto (QoS 0) and redis publish/subscribe, all three on local
// sockets.
//
//   server_driver [--seconds S] [--zebmsgd PROGRAM]
//
// One thread plays one sender and N receivers. The sender runs at most a window of bytes ahead of
// the slowest receiver, so that no broker drops or disconnects and every byte sent is delivered.

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "command_line/command_line.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t k_window = 512 * 1024; // bytes the sender may be ahead of the slowest receiver

double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

[[noreturn]] void die(const std::string &what) {
    fprintf(stderr, "server_driver: %s: %s\n", what.c_str(), strerror(errno));
    exit(1);
}

// ---- the three protocols, as bytes

std::string le16(size_t n) {
    return {static_cast<char>(n & 0xFF), static_cast<char>(n >> 8 & 0xFF)};
}
std::string le32(size_t n) {
    return le16(n & 0xFFFF) + le16(n >> 16);
}
std::string text16(const std::string &s) {
    return le16(s.size()) + s;
}
std::string be16(size_t n) {
    return {static_cast<char>(n >> 8 & 0xFF), static_cast<char>(n & 0xFF)};
}

struct Protocol {
    std::string name;
    // Bytes that open a connection, and how many the broker answers at least before it is ready.
    std::function<std::string(int client)> hello;
    std::string subscribe;
    std::function<std::string(const std::string &payload)> publish;
    // Bytes that one message of this payload becomes at a receiver.
    std::function<size_t(size_t payload)> delivered;
};

std::string zeb_frame(const std::string &payload) {
    return "2BEZ" + le16(0x0101) + le32(payload.size()) + payload;
}

std::string zeb_message(unsigned flags, const std::string &name, const std::string &source,
                        const std::string &record, const std::string &package) {
    return le32(flags) + text16(name) + text16("") + text16(source) + text16(record) + package;
}

// A record that no catalogue knows: the server routes by the names on the wire.
std::string zeb_package(const std::string &payload) {
    return std::string(1, '\0') + payload;
}

Protocol zeb() {
    return {"zebmsgd",
            [](int client) {
                std::string name = "bench" + std::to_string(client);
                const std::string package = std::string("\x01", 1) +
                                            text16("NET_SERVER_ClientHandshake") + le16(1) +
                                            text16("name") + le16(28) + text16(name);
                return zeb_frame(zeb_message(0, "MSG_SERVER_CLIENTHANDSHAKE", "",
                                             "NET_SERVER_ClientHandshake", package));
            },
            "",
            [](const std::string &payload) {
                return zeb_frame(
                    zeb_message(1, "MSG_BENCH", "", "NET_BENCH", zeb_package(payload)));
            },
            [](size_t payload) {
                return zeb_frame(zeb_message(1, "MSG_BENCH", "bench0", "NET_BENCH",
                                             zeb_package(std::string(payload, 'x'))))
                    .size();
            }};
}

std::string mqtt_packet(char type, const std::string &body) {
    std::string packet(1, type);
    size_t left = body.size();
    do {
        const size_t digit = left % 128;
        left /= 128;
        packet.push_back(static_cast<char>(left > 0 ? digit | 128 : digit));
    } while (left > 0);
    return packet + body;
}

Protocol mqtt() {
    return {"mosquitto",
            [](int client) {
                const std::string id = "bench" + std::to_string(client);
                return mqtt_packet(0x10, be16(4) + "MQTT" + std::string("\x04\x02", 2) + be16(600) +
                                             be16(id.size()) + id);
            },
            mqtt_packet(static_cast<char>(0x82), be16(1) + be16(1) + "t" + std::string(1, '\0')),
            [](const std::string &payload) { return mqtt_packet(0x30, be16(1) + "t" + payload); },
            [](size_t payload) {
                return mqtt_packet(0x30, be16(1) + "t" + std::string(payload, 'x')).size();
            }};
}

std::string resp(const std::vector<std::string> &words) {
    std::string text = "*" + std::to_string(words.size()) + "\r\n";
    for (const std::string &word : words)
        text += "$" + std::to_string(word.size()) + "\r\n" + word + "\r\n";
    return text;
}

Protocol redis() {
    return {"redis", [](int) { return resp({"PING"}); }, resp({"SUBSCRIBE", "t"}),
            [](const std::string &payload) {
                return resp({"PUBLISH", "t", payload});
            },
            [](size_t payload) {
                return resp({"message", "t", std::string(payload, 'x')}).size();
            }};
}

// ---- processes and sockets

class Broker {
  public:
    Broker(const Protocol &protocol, const std::string &zebmsgd) {
        char name[] = "/tmp/bench-XXXXXX";
        if (mkdtemp(name) == nullptr)
            die("cannot make a directory");
        directory_ = name;
        std::vector<std::string> command;
        if (protocol.name == "zebmsgd") {
            socket_ = directory_ + "/.mainsocket";
            setenv("ZEB2RUN", directory_.c_str(), 1);
            std::ofstream(directory_ + "/zeb.conf") << "# defaults\n";
            command = {zebmsgd, "--config", directory_ + "/zeb.conf"};
        } else if (protocol.name == "mosquitto") {
            socket_ = directory_ + "/socket";
            std::ofstream(directory_ + "/conf") << "listener 0 " << socket_
                                                << "\nallow_anonymous true\nmax_queued_messages "
                                                   "1000000\nset_tcp_nodelay true\nuser root\n";
            command = {"/usr/sbin/mosquitto", "-c", directory_ + "/conf"};
        } else {
            socket_ = directory_ + "/socket";
            command = {"/usr/bin/redis-server",
                       "--port",
                       "0",
                       "--unixsocket",
                       socket_,
                       "--save",
                       "",
                       "--client-output-buffer-limit",
                       "pubsub 0 0 0",
                       "--dir",
                       directory_};
        }
        start(command);
    }

    ~Broker() {
        kill(pid_, SIGTERM);
        waitpid(pid_, nullptr, 0);
        std::error_code ignored;
        std::filesystem::remove_all(directory_, ignored);
    }
    Broker(const Broker &) = delete;
    Broker &operator=(const Broker &) = delete;

    int connect() const {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        strncpy(address.sun_path, socket_.c_str(), sizeof address.sun_path - 1);
        for (int tries = 0; tries < 500; ++tries) {
            const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
            if (::connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0)
                return fd;
            close(fd);
            usleep(10000);
        }
        die("no broker at " + socket_);
    }

    double resident_mebibytes() const {
        std::ifstream status("/proc/" + std::to_string(pid_) + "/status");
        for (std::string line; std::getline(status, line);)
            if (line.starts_with("VmRSS:"))
                return std::stod(line.substr(6)) / 1024;
        return 0;
    }

  private:
    void start(const std::vector<std::string> &command) {
        pid_ = fork();
        if (pid_ != 0)
            return;
        std::vector<char *> arguments;
        for (const std::string &word : command)
            arguments.push_back(const_cast<char *>(word.c_str()));
        arguments.push_back(nullptr);
        const int null = open("/dev/null", O_RDWR);
        dup2(null, 1);
        dup2(null, 2);
        execv(arguments[0], arguments.data());
        _exit(127);
    }

    pid_t pid_ = -1;
    std::string directory_, socket_;
};

void send_all(int fd, const std::string &bytes) {
    for (size_t at = 0; at < bytes.size();) {
        const ssize_t n = send(fd, bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
        if (n < 0 && errno != EINTR)
            die("cannot send");
        at += n > 0 ? static_cast<size_t>(n) : 0;
    }
}

// Reads until nothing came for a while: greetings, acknowledgements, arrivals of others.
void settle(const std::vector<int> &sockets) {
    std::vector<char> sink(1 << 16);
    std::vector<pollfd> ready;
    for (const int fd : sockets)
        ready.push_back({fd, POLLIN, 0});
    while (poll(ready.data(), ready.size(), 100) > 0)
        for (const pollfd &each : ready)
            if (each.revents != 0 && read(each.fd, sink.data(), sink.size()) <= 0)
                die("a broker closed a connection");
}

class Session {
  public:
    Session(const Protocol &protocol, const Broker &broker, int receivers) : protocol_(protocol) {
        sender_ = broker.connect();
        send_all(sender_, protocol.hello(0));
        for (int i = 1; i <= receivers; ++i) {
            const int fd = broker.connect();
            send_all(fd, protocol.hello(i) + protocol.subscribe);
            receivers_.push_back(fd);
        }
        settle(receivers_);
        settle({sender_});
        fcntl(sender_, F_SETFL, O_NONBLOCK);
        for (const int fd : receivers_)
            fcntl(fd, F_SETFL, O_NONBLOCK);
    }
    ~Session() {
        close(sender_);
        for (const int fd : receivers_)
            close(fd);
    }
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    // Messages delivered a second, all receivers together.
    double throughput(size_t payload, double seconds) {
        const std::string message = protocol_.publish(std::string(payload, 'x'));
        const size_t delivered = protocol_.delivered(payload);
        std::string batch;
        while (batch.size() < 64 * 1024)
            batch += message;
        const size_t per_batch = batch.size() / message.size();
        const size_t ahead = std::max<size_t>(k_window / delivered, 2 * per_batch);
        std::vector<size_t> got(receivers_.size(), 0);
        size_t sent = 0, at = 0;
        bool sending = true;
        const auto start = Clock::now();
        while (true) {
            sending = sending && seconds_since(start) < seconds;
            const size_t slowest = *std::min_element(got.begin(), got.end()) / delivered;
            const bool may_send = (sending && sent + per_batch <= slowest + ahead) || at > 0;
            if (!sending && at == 0 && slowest >= sent)
                break;
            wait(may_send);
            drain(got);
            if (may_send && push(batch, at))
                sent += per_batch;
        }
        const double elapsed = seconds_since(start);
        return static_cast<double>(sent) * static_cast<double>(receivers_.size()) / elapsed;
    }

    // Milliseconds from sending to arrival, 100 messages a second; the 99th percentile.
    double latency_p99(size_t payload, double seconds) {
        const std::string message = protocol_.publish(std::string(payload, 'x'));
        const size_t delivered = protocol_.delivered(payload);
        std::vector<double> delays;
        const auto start = Clock::now();
        for (int i = 0; i < static_cast<int>(seconds * 100); ++i) {
            while (seconds_since(start) < i * 0.01)
                usleep(200);
            const auto begun = Clock::now();
            std::vector<size_t> got(receivers_.size(), 0), before;
            for (size_t at = 0; at < message.size();) {
                const ssize_t n =
                    send(sender_, message.data() + at, message.size() - at, MSG_NOSIGNAL);
                at += n > 0 ? static_cast<size_t>(n) : 0;
            }
            while (*std::min_element(got.begin(), got.end()) < delivered) {
                wait(false);
                before = got;
                drain(got);
                for (size_t r = 0; r < got.size(); ++r)
                    if (before[r] < delivered && got[r] >= delivered)
                        delays.push_back(1000 * seconds_since(begun));
            }
        }
        std::sort(delays.begin(), delays.end());
        return delays[delays.size() * 99 / 100];
    }

  private:
    void wait(bool for_sender) {
        std::vector<pollfd> ready;
        for (const int fd : receivers_)
            ready.push_back({fd, POLLIN, 0});
        ready.push_back({sender_, static_cast<short>(for_sender ? POLLIN | POLLOUT : POLLIN), 0});
        if (poll(ready.data(), ready.size(), 10000) <= 0)
            die("a broker stopped delivering (" + protocol_.name + ")");
    }

    void drain(std::vector<size_t> &got) {
        static std::vector<char> sink(1 << 18);
        for (size_t r = 0; r < receivers_.size(); ++r) {
            const ssize_t n = read(receivers_[r], sink.data(), sink.size());
            if (n == 0)
                die("a broker closed a connection (" + protocol_.name + ")");
            got[r] += n > 0 ? static_cast<size_t>(n) : 0;
        }
        [[maybe_unused]] const ssize_t acknowledged = read(sender_, sink.data(), sink.size());
    }

    // Sends what fits of the batch from `at` on; true when the whole batch has gone.
    bool push(const std::string &batch, size_t &at) {
        const ssize_t n = send(sender_, batch.data() + at, batch.size() - at, MSG_NOSIGNAL);
        at += n > 0 ? static_cast<size_t>(n) : 0;
        if (at < batch.size())
            return false;
        at = 0;
        return true;
    }

    const Protocol &protocol_;
    int sender_;
    std::vector<int> receivers_;
};

double idle_memory(const Protocol &protocol, const std::string &zebmsgd) {
    const Broker broker(protocol, zebmsgd);
    const Session session(protocol, broker, 50);
    return broker.resident_mebibytes();
}

} // namespace

int main(int argc, char **argv) {
    double seconds = 2;
    std::string zebmsgd = ZEB_ZEBMSGD;
    command_line::Parser app(
        "Delivery of the message server beside mosquitto and redis, in one run.");
    app.add_option("--seconds", seconds, "per measurement").capture_default_str();
    app.add_option("--zebmsgd", zebmsgd, "the server's program").capture_default_str();
    if (const auto status = app.parse(argc, argv))
        return *status;

    const std::vector<Protocol> protocols = {zeb(), mqtt(), redis()};
    printf("%-10s %9s %7s %14s %10s %10s\n", "broker", "receivers", "bytes", "delivered/s", "MB/s",
           "p99 ms");
    for (const int receivers : {1, 10, 50})
        for (const size_t payload : {size_t{64}, size_t{1024}, size_t{8192}})
            for (const Protocol &protocol : protocols) {
                const Broker broker(protocol, zebmsgd);
                Session session(protocol, broker, receivers);
                const double rate = session.throughput(payload, seconds);
                const double p99 = session.latency_p99(payload, seconds);
                printf("%-10s %9d %7zu %14.0f %10.1f %10.3f\n", protocol.name.c_str(), receivers,
                       payload, rate, rate * static_cast<double>(payload) / 1e6, p99);
                fflush(stdout);
            }
    for (const Protocol &protocol : protocols)
        printf("%-10s 50 idle clients: %.1f MiB resident\n", protocol.name.c_str(),
               idle_memory(protocol, zebmsgd));
    return 0;
}

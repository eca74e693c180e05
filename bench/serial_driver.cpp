// serial_driver - what the serial-port server costs, beside the same work straight on the same
// pseudo terminals and in the same run.
//
//   serial_driver [--seconds S] [--idle S]
//
//  - bytes a second from 1 and 8 lines at full speed, against a loop that only reads them;
//  - a question of 16 bytes and its answer, through the library, against the same dialogue straight
//    on the line;
//  - processor time and memory of an idle station: both servers and 8 daemons.

#include <zeb2/libzeb2.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <poll.h>
#include <pty.h>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <termios.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "command_line/command_line.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t k_question = 16; // bytes, and as many for the answer

double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

[[noreturn]] void die(const std::string &what) {
    fprintf(stderr, "serial_driver: %s: %s\n", what.c_str(), strerror(errno));
    _exit(1);
}

// ---- Lines and what hangs on them ----

class Line {
  public:
    Line() {
        termios raw = {};
        cfmakeraw(&raw);
        raw.c_cflag |= CREAD | CLOCAL;
        char name[128];
        if (openpty(&instrument_, &station_, name, &raw, nullptr) != 0)
            die("cannot make a pseudo terminal");
        name_ = name;
        fcntl(instrument_, F_SETFD, FD_CLOEXEC);
        fcntl(station_, F_SETFD, FD_CLOEXEC);
    }
    ~Line() {
        close(instrument_);
        close(station_);
    }
    Line(const Line &) = delete;
    Line &operator=(const Line &) = delete;

    int instrument() const { return instrument_; }
    int station() const { return station_; }
    const std::string &name() const { return name_; }

  private:
    int instrument_ = -1, station_ = -1;
    std::string name_;
};

// Instruments in one thread that send as fast as their lines take it.
class Flood {
  public:
    explicit Flood(const std::vector<std::unique_ptr<Line>> &lines) {
        for (const auto &line : lines) {
            fcntl(line->instrument(), F_SETFL, O_NONBLOCK);
            ready_.push_back({line->instrument(), POLLOUT, 0});
        }
        thread_ = std::thread([this] { run(); });
    }
    ~Flood() {
        stop_ = true;
        thread_.join();
    }
    Flood(const Flood &) = delete;
    Flood &operator=(const Flood &) = delete;

  private:
    void run() {
        const std::string block(4096, 'x');
        while (!stop_) {
            if (poll(ready_.data(), ready_.size(), 10) <= 0)
                continue;
            for (const pollfd &each : ready_)
                if ((each.revents & POLLOUT) != 0 &&
                    write(each.fd, block.data(), block.size()) < 0 && errno != EAGAIN)
                    return;
        }
    }

    std::vector<pollfd> ready_;
    std::atomic<bool> stop_ = false;
    std::thread thread_;
};

// An instrument that answers each question of k_question bytes with as many, the last a CR.
class Answering {
  public:
    explicit Answering(const Line &line) : line_(line), thread_([this] { run(); }) {}
    ~Answering() {
        stop_ = true;
        thread_.join();
    }
    Answering(const Answering &) = delete;
    Answering &operator=(const Answering &) = delete;

  private:
    void run() {
        const std::string answer = std::string(k_question - 1, 'a') + '\r';
        size_t got = 0;
        char block[256];
        pollfd ready = {line_.instrument(), POLLIN, 0};
        while (!stop_) {
            if (poll(&ready, 1, 10) <= 0)
                continue;
            const ssize_t n = read(line_.instrument(), block, sizeof block);
            got += n > 0 ? static_cast<size_t>(n) : 0;
            for (; got >= k_question; got -= k_question)
                if (write(line_.instrument(), answer.data(), answer.size()) < 0)
                    return;
        }
    }

    const Line &line_;
    std::atomic<bool> stop_ = false;
    std::thread thread_;
};

// ---- Processes ----

class Process {
  public:
    explicit Process(const std::vector<std::string> &command) {
        pid_ = fork();
        if (pid_ != 0)
            return;
        std::vector<char *> arguments;
        for (const std::string &word : command)
            arguments.push_back(const_cast<char *>(word.c_str()));
        arguments.push_back(nullptr);
        prctl(PR_SET_PDEATHSIG, SIGTERM); // also when the driver gives up
        const int null = open("/dev/null", O_RDWR);
        dup2(null, 1);
        dup2(null, 2);
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    ~Process() {
        kill(pid_, SIGTERM);
        waitpid(pid_, nullptr, 0);
    }
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    bool is_running() const { return waitpid(pid_, nullptr, WNOHANG) == 0; }
    // Of all threads, in the scheduler's own nanoseconds: ticks miss runs as short as these.
    double processor_seconds() const {
        double sum = 0;
        const std::string tasks = "/proc/" + std::to_string(pid_) + "/task";
        for (const auto &task : std::filesystem::directory_iterator(tasks)) {
            std::ifstream statistics(task.path() / "schedstat");
            double nanoseconds = 0;
            statistics >> nanoseconds;
            sum += nanoseconds / 1e9;
        }
        return sum;
    }
    // Shared pages count once: each process has its part of them.
    double mebibytes() const {
        std::ifstream maps("/proc/" + std::to_string(pid_) + "/smaps_rollup");
        for (std::string text; std::getline(maps, text);)
            if (text.starts_with("Pss:"))
                return std::stod(text.substr(4)) / 1024;
        return 0;
    }

  private:
    pid_t pid_ = -1;
};

// A private run directory with a configuration, removed at the end.
class Station {
  public:
    explicit Station(const std::vector<std::unique_ptr<Line>> &lines) {
        char name[] = "/tmp/bench-XXXXXX";
        if (mkdtemp(name) == nullptr)
            die("cannot make a directory");
        directory_ = name;
        setenv("ZEB2RUN", directory_.c_str(), 1);
        std::ofstream conf(configuration());
        for (size_t i = 0; i < lines.size(); ++i)
            conf << "Port;line" << i << ";Device," << lines[i]->name() << "\n";
    }
    ~Station() {
        std::error_code ignored;
        std::filesystem::remove_all(directory_, ignored);
    }
    Station(const Station &) = delete;
    Station &operator=(const Station &) = delete;

    std::string configuration() const { return directory_ + "/zeb.conf"; }

    int connect(const char *socket_name) const {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        snprintf(address.sun_path, sizeof address.sun_path, "%s/%s", directory_.c_str(),
                 socket_name);
        for (int tries = 0; tries < 500; ++tries) {
            const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
            if (::connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0)
                return fd;
            close(fd);
            usleep(10000);
        }
        die(std::string("no server at ") + address.sun_path);
    }
    void await(const char *socket_name) const { close(connect(socket_name)); }

  private:
    std::string directory_;
};

std::vector<std::unique_ptr<Line>> make_lines(int count) {
    std::vector<std::unique_ptr<Line>> lines;
    for (int i = 0; i < count; ++i)
        lines.push_back(std::make_unique<Line>());
    return lines;
}

// ---- A client of the serial-port server, as bytes ----

std::string frame(const std::string &payload) {
    const auto size = static_cast<uint32_t>(payload.size());
    std::string text("2BEZ\x01\x01", 6);
    text.append(reinterpret_cast<const char *>(&size), sizeof size);
    return text + payload;
}

template <typename T> std::string bytes_of(const T &record) {
    return {reinterpret_cast<const char *>(&record), sizeof record};
}

std::string request(SERIALD_REQUEST_TYPE type, double timeout, double burst,
                    const std::string &data = "") {
    return frame(bytes_of(SERIALD_request_header{type, timeout, burst}) + data);
}

class Client {
  public:
    Client(const Station &station, const std::string &port)
        : fd_(station.connect(".serialdsocket")) {
        SERIALD_connect_params hello = {};
        snprintf(hello.port_name, sizeof hello.port_name, "%s", port.c_str());
        send(frame(bytes_of(hello)));
        if (!await_answer())
            die("the server refused " + port);
        SERIALD_int_params buffers = {};
        buffers.max_buffer_size = 1000000;
        buffers.max_echo_size = 4096;
        send(request(SERIALD_REQUEST_SET_INT_PARAMS, 0, 0, bytes_of(buffers)));
        if (!await_answer())
            die("the server refused the buffers of " + port);
    }
    ~Client() { close(fd_); }
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    int fd() const { return fd_; }
    void ask() { send(request(SERIALD_REQUEST_READNEW, -1, -1)); }
    // Takes what is here; the number of the line's bytes, and asks again after each whole answer.
    size_t take() {
        static std::vector<char> block(1 << 20);
        const ssize_t n = read(fd_, block.data(), block.size());
        if (n <= 0)
            die("the server closed a connection");
        in_.append(block.data(), static_cast<size_t>(n));
        uint32_t size;
        if (in_.size() < 10 || (memcpy(&size, &in_[6], sizeof size), in_.size() < 10 + size))
            return 0;
        in_.erase(0, 10 + size);
        ask();
        return size - sizeof(SERIALD_resp_header);
    }

  private:
    void send(const std::string &bytes) {
        if (::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) !=
            static_cast<ssize_t>(bytes.size()))
            die("cannot send");
    }
    bool await_answer() {
        char answer[14];
        if (recv(fd_, answer, sizeof answer, MSG_WAITALL) != sizeof answer)
            die("no answer");
        return answer[10] == SERIALD_RESP_SUCCESS;
    }

    int fd_;
    std::string in_;
};

// ---- Bytes a second ----

double direct_rate(int ports, double seconds) {
    const auto lines = make_lines(ports);
    std::vector<pollfd> ready;
    for (const auto &line : lines)
        ready.push_back({line->station(), POLLIN, 0});
    const Flood flood(lines);
    std::vector<char> block(64 * 1024);
    size_t total = 0;
    const auto start = Clock::now();
    while (seconds_since(start) < seconds) {
        poll(ready.data(), ready.size(), 100);
        for (const pollfd &each : ready)
            if ((each.revents & POLLIN) != 0)
                total += static_cast<size_t>(
                    std::max<ssize_t>(0, read(each.fd, block.data(), block.size())));
    }
    return static_cast<double>(total) / seconds_since(start);
}

double server_rate(int ports, double seconds) {
    const auto lines = make_lines(ports);
    const Station station(lines);
    const Process server({ZEB_ZEBSERIALD, "--config", station.configuration()});
    std::vector<std::unique_ptr<Client>> clients;
    std::vector<pollfd> ready;
    for (int i = 0; i < ports; ++i) {
        clients.push_back(std::make_unique<Client>(station, "=line" + std::to_string(i)));
        ready.push_back({clients.back()->fd(), POLLIN, 0});
    }
    const Flood flood(lines);
    size_t total = 0;
    for (const auto &client : clients)
        client->ask();
    const auto start = Clock::now();
    while (seconds_since(start) < seconds) {
        poll(ready.data(), ready.size(), 100);
        for (size_t i = 0; i < ready.size(); ++i)
            if (ready[i].revents != 0)
                total += clients[i]->take();
    }
    return static_cast<double>(total) / seconds_since(start);
}

// ---- Question and answer ----

struct Delays {
    double median, p99; // us
};

template <typename Dialogue> Delays measure(int rounds, Dialogue dialogue) {
    std::vector<double> delays;
    for (int i = 0; i < rounds; ++i) {
        const auto start = Clock::now();
        dialogue();
        delays.push_back(1e6 * seconds_since(start));
    }
    std::sort(delays.begin(), delays.end());
    return {delays[delays.size() / 2], delays[delays.size() * 99 / 100]};
}

const std::string k_asked = std::string(k_question - 1, 'q') + '\r';

Delays direct_dialogue(int rounds) {
    const Line line;
    const Answering instrument(line);
    return measure(rounds, [&] {
        char answer[64];
        if (write(line.station(), k_asked.data(), k_asked.size()) < 0)
            die("cannot write");
        for (size_t got = 0; got < k_question;)
            got += static_cast<size_t>(
                std::max<ssize_t>(0, read(line.station(), answer, sizeof answer)));
    });
}

Delays library_dialogue(int rounds) {
    const auto lines = make_lines(1);
    const Station station(lines);
    const Process server({ZEB_ZEBSERIALD, "--config", station.configuration()});
    station.await(".serialdsocket");
    const Answering instrument(*lines[0]);
    SERIALD_connect_params port = {};
    snprintf(port.port_name, sizeof port.port_name, "=line0");
    SERIALCOM_link link = {};
    if (!SERIALCOM_connect(&port, &link) || !SERIALCOM_wait_connected(&link))
        die("no link");
    const Delays delays = measure(rounds, [&] {
        char answer[64];
        if (!SERIALCOM_issue_write(&link, k_asked.data(), k_asked.size()) ||
            SERIALCOM_read_until(&link, "\r", 1, 5.0, -1.0, answer, sizeof answer) !=
                static_cast<long>(k_question))
            die("no answer");
    });
    SERIALCOM_disconnect(&link);
    return delays;
}

// ---- An idle station ----

// A daemon that is connected to everything and has nothing to do.
int idle_daemon(const std::string &name) {
    LIBZEB_init(name.c_str());
    UTIL_exit_signal_poll_setup();
    ZEBMSG_connect_params server = {};
    ZEBMSG_init_params(&server);
    server.id_str = name.c_str();
    SERIALD_connect_params port = {};
    snprintf(port.port_name, sizeof port.port_name, "=%s", name.c_str());
    INST_link link = {};
    if (!INST_connect(&link, &server, &port, nullptr, nullptr, nullptr) ||
        !INST_wait_connected(&link))
        return 1;
    while (INST_sleep(&link, 1.0)) {
    }
    INST_disconnect(&link);
    return 0;
}

void idle_station(double seconds) {
    constexpr int daemons = 8;
    const auto lines = make_lines(daemons);
    const Station station(lines);
    std::vector<std::unique_ptr<Process>> processes;
    processes.push_back(std::make_unique<Process>(
        std::vector<std::string>{ZEB_ZEBMSGD, "--config", station.configuration()}));
    processes.push_back(std::make_unique<Process>(
        std::vector<std::string>{ZEB_ZEBSERIALD, "--config", station.configuration()}));
    station.await(".mainsocket");
    station.await(".serialdsocket");
    for (int i = 0; i < daemons; ++i)
        processes.push_back(std::make_unique<Process>(
            std::vector<std::string>{"/proc/self/exe", "--daemon", "line" + std::to_string(i)}));
    sleep(2); // until everybody is connected and quiet
    const auto used = [&] {
        double sum = 0;
        for (const auto &process : processes)
            sum += process->processor_seconds();
        return sum;
    };
    const double before = used();
    const auto start = Clock::now();
    sleep(static_cast<unsigned>(seconds));
    const double share = (used() - before) / seconds_since(start);
    double memory = 0;
    for (const auto &process : processes)
        if (!process->is_running())
            die("a program of the idle station has ended");
    for (const auto &process : processes)
        memory += process->mebibytes();
    printf("idle station, %d daemons: %.2f %% of a core (limit 2), %.1f MiB (limit 60)\n", daemons,
           100 * share, memory);
}

} // namespace

int main(int argc, char **argv) {
    double seconds = 2;
    double idle = 20;
    std::string daemon;
    command_line::Parser app(
        "What the serial-port server costs beside the same work straight on the lines.");
    app.add_option("--seconds", seconds, "per measurement").capture_default_str();
    app.add_option("--idle", idle, "seconds to watch the idle station").capture_default_str();
    app.add_option("--daemon", daemon).group("");
    if (const auto status = app.parse(argc, argv))
        return *status;
    if (!daemon.empty())
        return idle_daemon(daemon);

    LIBZEB_init("serial_driver");
    for (const int ports : {1, 8}) {
        const double direct = direct_rate(ports, seconds);
        const double through = server_rate(ports, seconds);
        printf("%d lines: %.1f MB/s read directly, %.1f MB/s through the server, ratio %.2f "
               "(limit 2)\n",
               ports, direct / 1e6, through / 1e6, direct / through);
        fflush(stdout);
    }
    const int rounds = static_cast<int>(1000 * seconds);
    const Delays direct = direct_dialogue(rounds);
    const Delays through = library_dialogue(rounds);
    printf("question and answer: median %.0f us directly, %.0f us through library and server, %.0f "
           "more (limit 150); p99 %.0f and %.0f us\n",
           direct.median, through.median, through.median - direct.median, direct.p99, through.p99);
    fflush(stdout);
    idle_station(idle);
    return 0;
}

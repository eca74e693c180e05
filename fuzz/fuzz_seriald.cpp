// The serial-port server's insides: clients of one pseudo terminal whose requests are up to the
// input, and so are its bytes and the time.
#include "fuzz.h"
#include "serverkit/inbuffer.h"
#include "zebseriald/dialogue.h"

#include <fcntl.h>
#include <termios.h>

namespace {

using namespace fuzz;
using namespace zebseriald;

constexpr size_t k_clients = 3;
constexpr Limits k_limits = {.clients = 2,
                             .buffer_bytes = 256,
                             .output_bytes = 128,
                             .queue_bytes = 2048,
                             .requests = 8,
                             .repeaters = 1};

// The far end of the terminal, opened once: a new one for each input would be most of the work.
class Terminal {
  public:
    Terminal() : fd_(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK)) {
        MUST(fd_ >= 0 && grantpt(fd_) == 0 && unlockpt(fd_) == 0);
        path_ = ptsname(fd_);
        // Somebody has it open at all times, or the far end would see hang-ups.
        MUST(::open(path_.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK) >= 0);
    }
    const std::string &path() const { return path_; }
    void send(std::string_view bytes) { (void)!write(fd_, bytes.data(), bytes.size()); }
    void drain() {
        char bytes[4096];
        while (read(fd_, bytes, sizeof bytes) > 0) {
        }
    }
    void clear() {
        drain();
        tcflush(fd_, TCIOFLUSH);
    }

  private:
    int fd_;
    std::string path_;
};

Terminal &terminal() {
    static Terminal opened;
    return opened;
}

std::vector<PortConfig> configured() {
    return {{.name = "a", .device = terminal().path(), .buffer_size = 64, .echo_size = 32},
            {.name = "b", .device = "/nonexistent/tty"}};
}

struct Client : Dialogue {
    Client(Surroundings &around, uint64_t number) : Dialogue(around, number, "pid 1") {}
    size_t asked = 0;
    size_t answered = 0;
};

class Station {
  public:
    explicit Station(Input &input) : input_(input) {
        ports_.on_stir = [this](Port &port) { stirred_.push_back(&port); };
        ports_.on_close = [this](Port &port) { std::erase(stirred_, &port); };
        for (auto &client : clients_)
            client = std::make_unique<Client>(around_, ++number_);
    }
    ~Station() {
        for (auto &client : clients_)
            ports_.detach(*client, now_);
        terminal().clear();
    }

    void run() {
        while (!input_.empty()) {
            step(input_.byte());
            settle();
        }
    }

  private:
    void step(uint8_t op) {
        Client &client = *clients_[op % k_clients];
        switch (op / k_clients % 8) {
        case 0:
            return give(client, handshake());
        case 1:
            return give(client, std::string(input_.block()));
        case 2:
            return terminal().send(input_.block(40));
        case 3:
            terminal().drain();
            return read_ports();
        case 4:
            now_ += input_.byte() / 50.0;
            ports_.run_timers(now_);
            for (auto &other : clients_)
                if (now_ >= other->due())
                    other->progress(now_);
            return;
        case 5:
            if (input_.byte() % 4 == 0)
                return client.end("it closed its connection", false);
            return;
        default:
            return give(client, request());
        }
    }

    // Only names of the configuration: others are real devices of whoever runs this.
    std::string handshake() {
        const uint8_t which = input_.byte();
        std::string name = which % 4 == 0 ? "=b" : "=a";
        if (which >= 250)
            name = "=?" + std::string(input_.block(40));
        name.resize(sizeof(SERIALD_connect_params));
        return name;
    }

    std::string request() {
        SERIALD_request_header header = {};
        header.type = static_cast<SERIALD_REQUEST_TYPE>(input_.below(16));
        header.timeout = number();
        header.burst_timeout = number();
        std::string text(reinterpret_cast<const char *>(&header), sizeof header);
        switch (header.type) {
        case SERIALD_REQUEST_SET_PORT_PARAMS:
            return text + padded(sizeof(SERIALD_port_params));
        case SERIALD_REQUEST_SET_INT_PARAMS:
            return text + padded(sizeof(SERIALD_int_params));
        case SERIALD_REQUEST_ADD_REPEATER:
            return text + padded(sizeof(SERIALD_repeater_add));
        case SERIALD_REQUEST_DEL_REPEATER:
            return text + padded(sizeof(SERIALD_repeater_delete));
        default:
            return text + std::string(input_.block(60));
        }
    }

    double number() {
        const uint8_t value = input_.byte();
        return value == 255 ? input_.number<double>() : (value - 10) / 50.0;
    }

    std::string padded(size_t size) {
        std::string data(input_.block());
        data.resize(size);
        return data;
    }

    void give(Client &client, const std::string &record) {
        const bool is_handshake = client.port() == nullptr;
        if (client.doom != nullptr ||
            (is_handshake &&
             (record.size() == sizeof(SERIALD_connect_params)) != (record[0] == '=')))
            return;
        ++client.asked;
        Exactly bytes(record);
        client.receive(bytes.view(), now_);
    }

    void read_ports() {
        for (auto &client : clients_) {
            Port *port = client->port();
            if (port != nullptr && port->read_input(now_, Port::Depth::once))
                port->write_output(now_);
        }
    }

    // Clients read what they are sent and leave when they must.
    void settle() {
        while (!stirred_.empty()) {
            Port &port = *stirred_.back();
            stirred_.pop_back();
            port.stirred = false;
            for (Dialogue *user : port.users())
                user->progress(now_);
        }
        for (auto &client : clients_) {
            MUST(client->out.load() <= k_limits.queue_bytes);
            read_answers(*client);
            if (client->doom == nullptr && (client->leave_by == 0 || now_ < client->leave_by))
                continue;
            ports_.detach(*client, now_);
            client = std::make_unique<Client>(around_, ++number_);
        }
    }

    static void read_answers(Client &client) {
        iovec block;
        while (client.out.gather(&block, 1) != 0) {
            const auto *frame = static_cast<const char *>(block.iov_base);
            MUST(block.iov_len >= serverkit::k_frame_header + sizeof(SERIALD_resp_header));
            MUST(serverkit::read_u32(frame + serverkit::k_frame_header) <= SERIALD_RESP_FAILURE);
            ++client.answered;
            client.out.consume(block.iov_len);
        }
        MUST(client.answered <= client.asked);
    }

    Input &input_;
    const std::vector<PortConfig> configured_ = configured();
    Ports ports_{configured_, k_limits};
    serverkit::Complaints complaints_;
    Surroundings around_{ports_, k_limits, complaints_, "/nonexistent"};
    std::vector<Port *> stirred_;
    std::unique_ptr<Client> clients_[k_clients];
    uint64_t number_ = 0;
    double now_ = 100;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Input input(data, size);
    Station(input).run();
    return 0;
}

#include "test_sweep_peer.h"

#include "libzeb2.h"
#include "packets.h"
#include "scripted_peer.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <list>
#include <map>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace zeb::test {
namespace {

constexpr size_t k_header = 10; // of a packet

struct Listeners {
    int local, host, serial;
};

struct Client {
    int fd;
    bool serial;
    bool greeted = false; // its handshake is answered
    std::string in{};
};

// A message of the library's catalogue as a packet.
std::string message(NETMSG_type type, const char *from, const void *record = nullptr,
                    size_t size = 0, const char *record_name = nullptr) {
    NETPACK_message msg;
    NETPACK_msg_copy_from_parameters_int(&msg, type, 1, nullptr, from, record, size, record_name);
    size_t packed_size = 0;
    void *bytes = NETPACK_package_message_lib(&msg, &packed_size);
    const std::string result = framed({static_cast<const char *>(bytes), packed_size});
    free(bytes);
    NETPACK_msg_free(&msg);
    return result;
}

template <class T>
std::string message_of(NETMSG_type type, const char *from, const T &record, const char *name) {
    return message(type, from, &record, sizeof record, name);
}

std::string heartbeat(unsigned index) {
    const NET_SERVER_Heartbeat record = {index};
    return message_of(MSG_SERVER_HEARTBEAT, "", record, "NET_SERVER_Heartbeat");
}

std::string values() {
    NET_IO_MultiReal record = {};
    record.n = 3;
    for (const int i : {0, 1, 2}) {
        snprintf(record.chans[i].name, sizeof record.chans[i].name, "V%d", i);
        record.chans[i].val = i + 0.5;
    }
    return message_of(MSG_IO_INSTANT, "ain", record, "NET_IO_MultiReal");
}

std::string states() {
    NET_IO_DigitalIn record = {};
    strcpy(record.info[0].name, "D0");
    record.val = 1;
    return message_of(MSG_IO_STATE_DIGITAL, "ain", record, "NET_IO_DigitalIn");
}

std::string output_request() {
    NET_IO_Real record = {};
    strcpy(record.name, "O1");
    record.val = 2.5;
    return message_of(MSG_IO_SET_REAL, "control", record, "NET_IO_Real");
}

std::string announcement_of_another() {
    NET_SERVER_InstrumentInfo record = {};
    strcpy(record.type, "gps");
    strcpy(record.tags[0].tag, "position");
    return message_of(MSG_SERVER_INSTRUMENTINFO, "gps1", record, "NET_SERVER_InstrumentInfo");
}

// What answers a program's announcement.
std::string greeting() {
    const NET_LOG_AVG_Contamination clean = {};
    return announcement_of_another() + values() + states() + output_request() +
           message_of(MSG_LOG_AVG_CONTAMINATION, "cont", clean, "NET_LOG_AVG_Contamination") +
           heartbeat(2) + message(MSG_IO_RESEND_REAL, SweepPeer::k_end_of_greeting);
}

// What answers a program's reading.
std::string orders() {
    NET_LOG_MonitorSnapshot monitor = {};
    NET_LOG_NewAverage average = {};
    NET_LOG_SwitchFiles next_file = {};
    NET_LOG_SetState off = {}, on = {};
    on.enable = TRUE;
    return message(MSG_LOG_FLUSH, "zeblogd") +
           message_of(MSG_LOG_MONITOR_RECORD, "zeblogd", monitor, "NET_LOG_MonitorSnapshot") +
           message_of(MSG_LOG_NEW_AVERAGE, "zeblogd", average, "NET_LOG_NewAverage") +
           message_of(MSG_LOG_SWITCHFILES, "zeblogd", next_file, "NET_LOG_SwitchFiles") +
           message_of(MSG_LOG_SET_STATE, "zeblogd", off, "NET_LOG_SetState") +
           message_of(MSG_LOG_SET_STATE, "zeblogd", on, "NET_LOG_SetState") +
           message(MSG_NOTIFY_CLIENT_TERMINATE, "ain") +
           message(MSG_IO_RESEND_REAL, SweepPeer::k_end_of_orders);
}

std::string server_handshake() {
    const NET_SERVER_ServerHandshake record = {1};
    return message_of(MSG_SERVER_SERVERHANDSHAKE, "", record, "NET_SERVER_ServerHandshake");
}

void send_all(int fd, const std::string &bytes) {
    for (size_t sent = 0; sent < bytes.size();) {
        const ssize_t n = send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0)
            return;
        sent += static_cast<size_t>(n);
    }
}

class Servers {
  public:
    explicit Servers(const Listeners &listeners) : listeners_(listeners) {}

    [[noreturn]] void run() {
        for (;;) {
            std::vector<pollfd> fds;
            for (const int fd : {listeners_.local, listeners_.host, listeners_.serial})
                fds.push_back({fd, POLLIN, 0});
            for (const Client &client : clients_)
                fds.push_back({client.fd, POLLIN, 0});
            poll(fds.data(), fds.size(), -1);
            for (const pollfd &ready : fds)
                if (ready.revents != 0)
                    serve(ready.fd);
        }
    }

  private:
    void serve(int fd) {
        if (fd == listeners_.local || fd == listeners_.host || fd == listeners_.serial)
            take(fd);
        else
            clients_.remove_if([&](Client &client) { return client.fd == fd && !read(client); });
    }

    void take(int listener) {
        const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd == -1)
            return;
        clients_.push_back({fd, listener == listeners_.serial});
        if (listener != listeners_.serial)
            send_all(fd, handshake_);
    }

    // False when the client is gone.
    bool read(Client &client) {
        char block[4096];
        const ssize_t n = recv(client.fd, block, sizeof block, MSG_DONTWAIT);
        if (n <= 0) {
            close(client.fd);
            return false;
        }
        client.in.append(block, static_cast<size_t>(n));
        while (client.in.size() >= k_header) {
            const size_t size = k_header + number_at(client.in, 6, 4);
            if (client.in.size() < size)
                break;
            const std::string payload = client.in.substr(k_header, size - k_header);
            client.in.erase(0, size);
            client.serial ? answer_request(client, payload) : answer_message(client, payload);
        }
        return true;
    }

    void answer_message(const Client &client, const std::string &payload) {
        const auto answer = answers_.find(unpacked(payload).name);
        if (answer != answers_.end())
            send_all(client.fd, answer->second);
    }

    static void respond(const Client &client, unsigned type, const std::string &data = "") {
        send_all(client.fd, framed(u32(type) + data));
    }

    static void answer_request(Client &client, const std::string &payload) {
        if (!client.greeted) {
            client.greeted = true;
            respond(client, SERIALD_RESP_SUCCESS);
            return;
        }
        const auto type = static_cast<unsigned>(number_at(payload, 0, 4));
        if (type == SERIALD_REQUEST_HEARTBEAT)
            respond(client, SERIALD_RESP_HEARTBEAT);
        else if (type >= SERIALD_REQUEST_READNEW && type <= SERIALD_REQUEST_READBURST)
            respond(client, SERIALD_RESP_SUCCESS, "23.5 8.0\r\n");
        else if (type != SERIALD_REQUEST_CLOSE)
            respond(client, SERIALD_RESP_SUCCESS);
    }

    Listeners listeners_;
    std::list<Client> clients_;
    std::string handshake_ = server_handshake();
    std::map<std::string, std::string> answers_ = {{"MSG_SERVER_INSTRUMENTINFO", greeting()},
                                                   {"MSG_HYGROMETER_INSTANT", orders()}};
};

} // namespace

SweepPeer::SweepPeer() : run_("ZEB2RUN", directory_.path().c_str()) {
    Listeners listeners;
    listeners.local = listen_local(directory_ / ".mainsocket");
    listeners.serial = listen_local(directory_ / ".serialdsocket");
    listeners.host = listen_host("127.0.0.1", &port_);
    process_ = fork();
    if (process_ == -1)
        throw std::runtime_error(std::string("no process for the servers: ") + strerror(errno));
    if (process_ == 0)
        Servers(listeners).run();
    for (const int fd : {listeners.local, listeners.host, listeners.serial})
        close(fd);
}

SweepPeer::~SweepPeer() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
}

} // namespace zeb::test

#include "scripted_server.h"

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstdlib>
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

ServerMessage to_message(const NETPACK_message &in) {
    ServerMessage out = {in.type,
                         in.flags,
                         in.dest_name ? in.dest_name : "",
                         in.src_name ? in.src_name : "",
                         in.ds_name ? in.ds_name : "",
                         {}};
    const auto *bytes = static_cast<const unsigned char *>(in.pds);
    if (bytes != nullptr)
        out.record.assign(bytes, bytes + in.sz_ds);
    return out;
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

Bytes wire_message(const std::string &name, unsigned flags, const std::string &dest,
                   const std::string &src, const std::string &record_name) {
    return wire_u32(flags) + wire_text(name) + wire_text(dest) + wire_text(src) +
           wire_text(record_name);
}

ScriptedServer::ScriptedServer() : run_("ZEB2RUN", directory_.path().c_str()) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, (directory_ / ".mainsocket").c_str(), sizeof address.sun_path - 1);
    listener_ = listen_at(AF_UNIX, reinterpret_cast<sockaddr *>(&address), sizeof address);
}

ScriptedServer::ScriptedServer(const std::string &host, int port)
    : run_("ZEB2RUN", directory_.path().c_str()) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    inet_pton(AF_INET, host.c_str(), &address.sin_addr);
    listener_ = listen_at(AF_INET, reinterpret_cast<sockaddr *>(&address), sizeof address);
    socklen_t size = sizeof address;
    getsockname(listener_, reinterpret_cast<sockaddr *>(&address), &size);
    port_ = ntohs(address.sin_port);
}

ScriptedServer::~ScriptedServer() {
    close_client();
    close(listener_);
}

bool ScriptedServer::accept(double seconds) {
    if (!is_readable(listener_, seconds))
        return false;
    client_ = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    return client_ >= 0;
}

void ScriptedServer::send_bytes(const Bytes &bytes) {
    size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t n = ::send(client_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0)
            return;
        sent += static_cast<size_t>(n);
    }
}

void ScriptedServer::send(NETMSG_type type, const std::string &src, const void *record, size_t size,
                          const char *record_name, DWORD flags) {
    NETPACK_message message;
    NETPACK_msg_copy_from_parameters_int(&message, type, flags, nullptr, src.c_str(), record, size,
                                         record_name);
    size_t packed_size = 0;
    void *packed = NETPACK_package_message_lib(&message, &packed_size);
    const auto *bytes = static_cast<const unsigned char *>(packed);
    if (bytes == nullptr)
        throw std::runtime_error("cannot pack a message for the client");
    send_bytes(wire_frame(Bytes(bytes, bytes + packed_size)));
    free(packed);
    NETPACK_msg_free(&message);
}

void ScriptedServer::handshake(unsigned index) {
    const NET_SERVER_ServerHandshake record = {index};
    send(MSG_SERVER_SERVERHANDSHAKE, "", &record, sizeof record, "NET_SERVER_ServerHandshake");
}

void ScriptedServer::heartbeat(unsigned index) {
    const NET_SERVER_Heartbeat record = {index};
    send(MSG_SERVER_HEARTBEAT, "", &record, sizeof record, "NET_SERVER_Heartbeat");
}

void ScriptedServer::announce(const std::string &src, const NET_SERVER_InstrumentInfo &info) {
    send(MSG_SERVER_INSTRUMENTINFO, src, &info, sizeof info, "NET_SERVER_InstrumentInfo", 3);
}

void ScriptedServer::stop_reading() {
    shutdown(client_, SHUT_RD);
}

void ScriptedServer::close_client() {
    if (client_ >= 0)
        close(client_);
    client_ = -1;
}

void ScriptedServer::reset_client() {
    const linger abort = {1, 0};
    setsockopt(client_, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
    close_client();
}

void ScriptedServer::read_available() {
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

const Bytes &ScriptedServer::received_bytes() {
    read_available();
    return raw_;
}

std::optional<ServerMessage> ScriptedServer::next() {
    read_available();
    if (raw_.size() - taken_ < k_header)
        return std::nullopt;
    const size_t size = payload_size(raw_.data() + taken_);
    if (raw_.size() - taken_ < k_header + size)
        return std::nullopt;
    NETPACK_message message;
    if (!NETPACK_unpack_message_lib(raw_.data() + taken_ + k_header, size, &message))
        throw std::runtime_error("the client sent a message that cannot be unpacked");
    taken_ += k_header + size;
    ServerMessage result = to_message(message);
    NETPACK_msg_free(&message);
    return result;
}

std::optional<ServerMessage> ScriptedServer::wait_next(double seconds) {
    std::optional<ServerMessage> result;
    wait_until([&] { return (result = next()).has_value(); }, seconds);
    return result;
}

bool ScriptedServer::client_gone() {
    read_available();
    return gone_;
}

HookLoop::HookLoop(ZEBMSG_link *lnk, pthread_t *thread) : lnk_(lnk) {
    FD_ZERO(&rx);
    FD_ZERO(&tx);
    lost = !ZEBMSG_dispatch_init(lnk_, &rx, &tx, &fd_max, thread);
}

bool HookLoop::cycle() {
    if (lost)
        return false;
    ZEBMSG_dispatch_pre_select(lnk_, &rx, &tx, &fd_max);
    fd_set sel_rx = rx;
    fd_set sel_tx = tx;
    const timespec wait = {0, 5'000'000};
    const int ready = pselect(fd_max + 1, &sel_rx, &sel_tx, nullptr, &wait, nullptr);
    lost = ready > 0 ? !ZEBMSG_dispatch_post_select(lnk_, &rx, &tx, &sel_rx, &sel_tx, &fd_max)
                     : !ZEBMSG_dispatch_loop_continue(lnk_, &rx, &tx, &fd_max);
    return !lost;
}

bool HookLoop::run_until(const std::function<bool()> &condition, double seconds) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!condition())
        if (!cycle() || std::chrono::steady_clock::now() > limit)
            return false;
    return true;
}

bool HookLoop::run_until_lost(double seconds) {
    run_until([&] { return lost; }, seconds);
    return lost;
}

} // namespace zeb::test

#include "scripted_server.h"

#include <cstdlib>
#include <stdexcept>
#include <unistd.h>

namespace zeb::test {
namespace {

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

Bytes wire_message(const std::string &name, unsigned flags, const std::string &dest,
                   const std::string &src, const std::string &record_name) {
    return wire_u32(flags) + wire_text(name) + wire_text(dest) + wire_text(src) +
           wire_text(record_name);
}

ScriptedServer::ScriptedServer()
    : run_("ZEB2RUN", directory_.path().c_str()),
      listener_(listen_local(directory_ / ".mainsocket")) {}

ScriptedServer::ScriptedServer(const std::string &address, int port)
    : run_("ZEB2RUN", directory_.path().c_str()), port_(port) {
    listener_ = listen_host(address, &port_);
}

ScriptedServer::~ScriptedServer() {
    close(listener_);
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

std::optional<ServerMessage> ScriptedServer::next() {
    const std::optional<Bytes> payload = next_payload();
    if (!payload)
        return std::nullopt;
    NETPACK_message message;
    if (!NETPACK_unpack_message_lib(payload->data(), payload->size(), &message))
        throw std::runtime_error("the client sent a message that cannot be unpacked");
    ServerMessage result = to_message(message);
    NETPACK_msg_free(&message);
    return result;
}

std::optional<ServerMessage> ScriptedServer::wait_next(double seconds) {
    std::optional<ServerMessage> result;
    wait_until([&] { return (result = next()).has_value(); }, seconds);
    return result;
}

HookLoop::HookLoop(ZEBMSG_link *lnk, pthread_t *thread)
    : LinkHookLoop({ZEBMSG_dispatch_init, ZEBMSG_dispatch_pre_select, ZEBMSG_dispatch_post_select,
                    ZEBMSG_dispatch_loop_continue, nullptr},
                   {lnk}, thread) {}

} // namespace zeb::test

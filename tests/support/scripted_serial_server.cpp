#include "scripted_serial_server.h"

#include <cstring>
#include <stdexcept>
#include <unistd.h>

namespace zeb::test {
namespace {

// The request's header, read by its offsets rather than by the library's record.
constexpr size_t k_request_header = 20;
constexpr size_t k_handshake_size = 256;

SerialRequest to_request(const Bytes &payload) {
    SerialRequest request;
    if (payload.size() < k_request_header || payload.size() > 0xFFFFF) {
        request.data = payload;
        return request;
    }
    request.type =
        payload[0] | payload[1] << 8 | payload[2] << 16 | static_cast<unsigned>(payload[3]) << 24;
    memcpy(&request.timeout, &payload[4], sizeof request.timeout);
    memcpy(&request.burst_timeout, &payload[12], sizeof request.burst_timeout);
    request.data.assign(payload.begin() + k_request_header, payload.end());
    return request;
}

} // namespace

std::string SerialClient::wait_handshake(double seconds) {
    std::optional<Bytes> payload;
    wait_until([&] { return (payload = next_payload()).has_value(); }, seconds);
    if (!payload || payload->size() != k_handshake_size || payload->back() != 0)
        return "?";
    return reinterpret_cast<const char *>(payload->data());
}

std::optional<SerialRequest> SerialClient::next() {
    const std::optional<Bytes> payload = next_payload();
    if (!payload)
        return std::nullopt;
    return to_request(*payload);
}

std::optional<SerialRequest> SerialClient::wait_request(double seconds) {
    std::optional<SerialRequest> request;
    wait_until(
        [&] {
            do {
                request = next();
            } while (request && request->type == SERIALD_REQUEST_HEARTBEAT);
            return request.has_value();
        },
        seconds);
    return request;
}

void SerialClient::respond(unsigned type, const Bytes &data) {
    send_bytes(wire_frame(wire_u32(type) + data));
}

ScriptedSerialServer::ScriptedSerialServer() {
    run_.emplace("ZEB2RUN", directory_.path().c_str());
    listener_ = listen_local(directory_ / ".serialdsocket");
}

ScriptedSerialServer::ScriptedSerialServer(const std::string &run_directory)
    : listener_(listen_local(run_directory + "/.serialdsocket")) {}

ScriptedSerialServer::~ScriptedSerialServer() {
    close(listener_);
}

SerialClient &ScriptedSerialServer::accept(double seconds) {
    SerialClient &client = clients_.emplace_back();
    if (!client.accept_from(listener_, seconds))
        throw std::runtime_error("no serial link has connected");
    return client;
}

SerialResponder::SerialResponder(SerialClient &client, Answer answer)
    : client_(client), answer_(std::move(answer)), thread_([this] { run(); }) {}

const std::vector<SerialRequest> &SerialResponder::stop() {
    stopping_ = true;
    if (thread_.joinable()) {
        thread_.join();
        while (const std::optional<SerialRequest> request = client_.next())
            take(*request, false);
    }
    return requests_;
}

void SerialResponder::run() {
    constexpr double k_long = 3600;
    std::optional<SerialRequest> request;
    while (
        wait_until([&] { return stopping_ || (request = client_.next()).has_value(); }, k_long) &&
        request) {
        take(*request, true);
        request.reset();
    }
}

void SerialResponder::take(const SerialRequest &request, bool answered) {
    if (request.type == SERIALD_REQUEST_HEARTBEAT)
        return;
    requests_.push_back(request);
    if (answered && request.type != SERIALD_REQUEST_CLOSE)
        answer_(client_, request);
}

SerialHookLoop::SerialHookLoop(const std::vector<SERIALCOM_link *> &links, pthread_t *thread)
    : LinkHookLoop({SERIALCOM_dispatch_init, SERIALCOM_dispatch_pre_select,
                    SERIALCOM_dispatch_post_select, SERIALCOM_dispatch_loop_continue, nullptr},
                   links, thread) {}

} // namespace zeb::test

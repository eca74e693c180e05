#include "frame_link.h"

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>

#include <zeb2/util.h>

#include "session.h"
#include "text.h"

namespace zebctl {
namespace {

using serverkit::Transfer;

constexpr double k_look = 0.05; // s between looks for the program's end
constexpr size_t k_scratch = 256 * 1024;

struct FreeDeleter {
    void operator()(void *block) const { free(block); }
};

// A message of the library's catalogue as the library packs it.
std::string packed(const NETPACK_message &message) {
    size_t size = 0;
    const std::unique_ptr<void, FreeDeleter> bytes(NETPACK_package_message_lib(&message, &size));
    return {static_cast<const char *>(bytes.get()), size};
}

} // namespace

FrameLink::FrameLink() : link_(std::make_unique<ZEBMSG_link>()), out_(SIZE_MAX) {
    *link_ = {};
    link_->fh = -1;
}

FrameLink::~FrameLink() {
    if (is_open()) {
        send_notice(MSG_SERVER_TERMINATE, 0);
        transfer(false, nullptr);
    }
    if (link_->stat != ZEBMSG_S_UNINITIALIZED)
        ZEBMSG_multi_destroy(link_.get());
}

// The library's hook sends the introduction; from then on its side of the link rests.
bool FrameLink::connect(const char *host) {
    ZEBMSG_connect_params params;
    ZEBMSG_init_params(&params);
    params.id_str = name_.c_str();
    params.host_override = host;
    if (!ZEBMSG_multi_connect(&params, link_.get()))
        return false;
    fd_set none, ready;
    int highest = -1;
    FD_ZERO(&none);
    FD_ZERO(&ready);
    FD_SET(link_->fh, &ready);
    while (link_->fh >= 0 && (link_->tx_queue.head != nullptr || link_->tx_buff_size > 0)) {
        pollfd socket = {link_->fh, POLLOUT, 0};
        poll(&socket, 1, 1000);
        fd_set master = ready;
        ZEBMSG_dispatch_post_select(link_.get(), &none, &master, &none, &ready, &highest);
        if (UTIL_exit_poll())
            return false;
    }
    return link_->fh >= 0 && fcntl(link_->fh, F_SETFL, O_NONBLOCK) == 0;
}

bool FrameLink::open(const std::string &name, const char *host, double patience, const Hear &hear) {
    name_ = name;
    if (!connect(host))
        return false;
    state_ = State::waiting;
    using Clock = std::chrono::steady_clock;
    const auto limit = Clock::now() + std::chrono::duration<double>(patience);
    while (state_ == State::waiting) {
        if (Clock::now() > limit)
            end("the message server does not answer");
        else if (!serve({this}, k_look, hear))
            return false;
    }
    if (!is_open())
        fail(visible(name) + ": " + ending_);
    return is_open();
}

void FrameLink::send_notice(NETMSG_type type, uint32_t flags, const std::string &destination) {
    std::string name = destination;
    NETPACK_message message = {};
    message.type = type;
    message.flags = flags;
    message.dest_name = name.data();
    send(packed(message));
}

void FrameLink::hear_own_only() {
    NET_SERVER_FilterAdd filter = {};
    filter.uid = 1;
    filter.target = TRUE;
    filter.type_match = -1;
    UTIL_strncpynt(filter.dest_match, name_.c_str(), sizeof filter.dest_match);
    std::string record = "NET_SERVER_FilterAdd";
    NETPACK_message message = {};
    message.type = NET_SERVER_ADDFILTER;
    message.pds = &filter;
    message.sz_ds = sizeof filter;
    message.ds_name = record.data();
    send(packed(message));
}

void FrameLink::send(std::string_view payload) {
    if (!out_.push(serverkit::Frame::of_payload(payload)))
        end("no memory for what is to be sent");
}

void FrameLink::end(const std::string &why) {
    if (state_ != State::closed)
        ending_ = why;
    state_ = State::closed;
}

bool FrameLink::take(std::string_view payload, const Hear &hear) {
    const auto message = serverkit::parse_message(payload);
    if (message && message->name == "MSG_SERVER_HEARTBEAT") {
        send(payload);
    } else if (message && message->name == "MSG_SERVER_SERVERHANDSHAKE") {
        state_ = State::open;
    } else if (message && message->name == "MSG_SERVER_TERMINATE") {
        end("the message server said goodbye");
        return false;
    } else if (hear) {
        hear(serverkit::frame_around(payload));
    }
    return true;
}

void FrameLink::transfer(bool readable, const Hear &hear) {
    static char scratch[k_scratch];
    uint64_t bytes = 0;
    Transfer state = Transfer::going;
    if (readable)
        state = serverkit::receive(
            fd(), in_, scratch, sizeof scratch,
            [&](std::string_view payload) { return take(payload, hear); }, bytes);
    if (state == Transfer::going)
        state = serverkit::send_queued(fd(), out_, bytes);
    if (state == Transfer::ended)
        end("the message server closed the link");
    else if (state == Transfer::no_memory)
        end("no memory for what the server sends");
    else if (state == Transfer::failed)
        end(std::string("the message server is gone: ") + strerror(errno));
}

bool serve(const std::vector<FrameLink *> &links, double seconds, const FrameLink::Hear &hear) {
    std::vector<pollfd> sockets;
    sockets.reserve(links.size());
    for (FrameLink *link : links)
        sockets.push_back(
            {link->fd(), static_cast<short>(link->queued() > 0 ? POLLIN | POLLOUT : POLLIN), 0});
    const timespec limit = {
        static_cast<time_t>(seconds),
        static_cast<long>((seconds - static_cast<double>(static_cast<time_t>(seconds))) * 1e9)};
    if (ppoll(sockets.data(), sockets.size(), &limit, nullptr) > 0)
        for (size_t i = 0; i < links.size(); ++i)
            if (sockets[i].revents != 0)
                links[i]->transfer((sockets[i].revents & ~POLLOUT) != 0, hear);
    return !UTIL_exit_poll();
}

} // namespace zebctl

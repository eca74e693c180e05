#include "stream.h"

#include <cerrno>
#include <sys/socket.h>

namespace serverkit {
namespace {

constexpr size_t k_blocks = 1024; // as many as one call takes

bool passes_by_itself(int error) {
    return error == EAGAIN || error == EINTR || error == ENOBUFS || error == ENOMEM;
}

} // namespace

Transfer receive(int fd, InBuffer &in, char *scratch, size_t scratch_size,
                 const InBuffer::Sink &sink, uint64_t &bytes) {
    iovec blocks[2];
    const int used = in.prepare(blocks, scratch, scratch_size);
    if (used == 0)
        return Transfer::no_memory;
    const ssize_t count = readv(fd, blocks, used);
    if (count == 0)
        return Transfer::ended;
    if (count < 0)
        return passes_by_itself(errno) ? Transfer::going : Transfer::failed;
    bytes += static_cast<uint64_t>(count);
    bool stopped = false;
    const auto watched = [&](std::string_view payload) {
        stopped = !sink(payload);
        return !stopped;
    };
    if (in.commit(static_cast<size_t>(count), blocks, used, watched))
        return Transfer::going;
    return stopped ? Transfer::stopped : Transfer::no_memory;
}

Transfer send_queued(int fd, OutQueue &out, uint64_t &bytes) {
    static iovec blocks[k_blocks];
    while (!out.empty()) {
        msghdr message{};
        message.msg_iov = blocks;
        message.msg_iovlen = out.gather(blocks, k_blocks);
        size_t offered = 0;
        for (size_t i = 0; i < message.msg_iovlen; ++i)
            offered += blocks[i].iov_len;
        const ssize_t sent = sendmsg(fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0)
            return passes_by_itself(errno) ? Transfer::going : Transfer::failed;
        out.consume(static_cast<size_t>(sent));
        bytes += static_cast<uint64_t>(sent);
        if (static_cast<size_t>(sent) < offered)
            break;
    }
    return Transfer::going;
}

bool is_hang_up(int error) {
    return error == ECONNRESET || error == EPIPE;
}

std::string local_origin(int fd) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        return "local";
    return "pid " + std::to_string(peer.pid);
}

} // namespace serverkit

#include "client.h"

#include "serverkit/report.h"

#include <cerrno>
#include <sys/socket.h>

namespace zebmsgd {
namespace {

constexpr size_t k_blocks = 1024; // as many as one call takes

bool passes_by_itself(int error) {
    return error == EAGAIN || error == EINTR || error == ENOBUFS || error == ENOMEM;
}

// A peer that went without a word is no fault of the server's; anything else deserves a line.
bool is_hang_up(int error) {
    return error == ECONNRESET || error == EPIPE;
}

} // namespace

std::string describe(const Client &client) {
    const std::string origin = " (" + client.origin + ")";
    if (client.name.empty())
        return "connection" + origin;
    return "client \"" + serverkit::printable(client.name) + "\"" + origin;
}

void Client::read_some(char *scratch, size_t scratch_size, const InBuffer::Sink &sink,
                       Router &router) {
    iovec blocks[2];
    const int used = in.prepare(blocks, scratch, scratch_size);
    if (used == 0)
        return router.doom(*this, "memory is short for what it sends");
    const ssize_t count = readv(fd.get(), blocks, used);
    if (count == 0)
        return router.doom(*this, "it closed its connection", false);
    if (count < 0) {
        if (passes_by_itself(errno))
            return;
        return fail(router, "reading from it failed");
    }
    traffic.bytes_in += static_cast<uint64_t>(count);
    if (!in.commit(static_cast<size_t>(count), blocks, used, sink) && doom == nullptr)
        router.doom(*this, "memory is short for what it sends");
    if (in.garbage() > 0 && !reported_garbage) {
        reported_garbage = true;
        serverkit::report("%s sends bytes that are no packet; they are skipped",
                          describe(*this).c_str());
    }
}

void Client::fail(Router &router, const char *what) {
    if (doom == nullptr)
        error = errno;
    router.doom(*this, what, !is_hang_up(errno));
}

void Client::flush(Router &router) {
    static iovec blocks[k_blocks];
    while (!out.empty()) {
        msghdr message{};
        message.msg_iov = blocks;
        message.msg_iovlen = out.gather(blocks, k_blocks);
        size_t offered = 0;
        for (size_t i = 0; i < message.msg_iovlen; ++i)
            offered += blocks[i].iov_len;
        const ssize_t sent = sendmsg(fd.get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0) {
            if (passes_by_itself(errno))
                return;
            return fail(router, "writing to it failed");
        }
        out.consume(static_cast<size_t>(sent));
        traffic.bytes_out += static_cast<uint64_t>(sent);
        if (static_cast<size_t>(sent) < offered)
            return;
    }
}

} // namespace zebmsgd

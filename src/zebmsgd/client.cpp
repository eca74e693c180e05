#include "client.h"

#include "serverkit/report.h"

#include <cerrno>

namespace zebmsgd {

using serverkit::Transfer;

std::string describe(const Client &client) {
    const std::string origin = " (" + client.origin + ")";
    if (client.name.empty())
        return "connection" + origin;
    return "client \"" + serverkit::printable(client.name) + "\"" + origin;
}

void Client::read_some(char *scratch, size_t scratch_size, const serverkit::InBuffer::Sink &sink,
                       Router &router) {
    end(serverkit::receive(fd.get(), in, scratch, scratch_size, sink, traffic.bytes_in), router,
        "reading from it failed");
    if (in.garbage() > 0 && !reported_garbage) {
        reported_garbage = true;
        serverkit::report("%s sends bytes that are no packet; they are skipped",
                          describe(*this).c_str());
    }
}

void Client::flush(Router &router) {
    end(serverkit::send_queued(fd.get(), out, traffic.bytes_out), router, "writing to it failed");
}

void Client::end(Transfer transfer, Router &router, const char *failure) {
    switch (transfer) {
    case Transfer::going:
    case Transfer::stopped: // the sink has seen to it
        return;
    case Transfer::ended:
        return router.doom(*this, "it closed its connection", false);
    case Transfer::no_memory:
        return router.doom(*this, "memory is short for what it sends");
    case Transfer::failed:
        if (doom == nullptr)
            error = errno;
        router.doom(*this, failure, !serverkit::is_hang_up(errno));
    }
}

} // namespace zebmsgd

#include "client.h"

#include <cerrno>
#include <new>

namespace zebseriald {

using serverkit::Transfer;

void Client::read_some(char *scratch, size_t scratch_size, double now) {
    const auto sink = [this, now](std::string_view record) {
        receive(record, now);
        return doom == nullptr;
    };
    const uint64_t before = bytes_;
    try {
        after(serverkit::receive(fd.get(), in, scratch, scratch_size, sink, bytes_),
              "reading from it failed");
    } catch (const std::bad_alloc &) { // its stream is no longer in step
        end("memory is short for what it sends");
    }
    // A long request may be on its way for a while; a handshake may not.
    if (bytes_ > before && port() != nullptr)
        last_heard = now;
    if (in.garbage() > 0 && !reported_garbage_) {
        reported_garbage_ = true;
        complain(now, "it sends bytes that are no packet; they are skipped");
    }
}

void Client::flush() {
    after(serverkit::send_queued(fd.get(), out, bytes_), "writing to it failed");
}

void Client::after(Transfer transfer, const char *failure) {
    switch (transfer) {
    case Transfer::going:
    case Transfer::stopped:
        return;
    case Transfer::ended:
        return end("it closed its connection", false);
    case Transfer::no_memory:
        return end("memory is short for what it sends");
    case Transfer::failed:
        return end(failure, !serverkit::is_hang_up(errno));
    }
}

} // namespace zebseriald

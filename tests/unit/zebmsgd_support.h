// zebmsgd_support.h - what a routed message left in the queues of its receivers.
#pragma once

#include "packets.h"
#include "zebmsgd/router.h"

#include <string>
#include <string_view>
#include <vector>

namespace zebmsgd_test {

using namespace zeb::test;

// Takes what waits for a peer.
inline std::vector<Received> take(zebmsgd::Peer &peer) {
    std::vector<Received> result;
    while (!peer.out.empty()) {
        iovec block;
        peer.out.gather(&block, 1);
        const std::string_view frame(static_cast<const char *>(block.iov_base), block.iov_len);
        result.push_back(unpacked(frame.substr(serverkit::k_frame_header)));
        peer.out.consume(block.iov_len);
    }
    return result;
}

// "NAME from SOURCE", one text per message: easy to compare with a list.
inline std::vector<std::string> take_names(zebmsgd::Peer &peer) {
    std::vector<std::string> result;
    for (const Received &r : take(peer))
        result.push_back(r.source.empty() ? r.name : r.name + " from " + r.source);
    return result;
}

} // namespace zebmsgd_test

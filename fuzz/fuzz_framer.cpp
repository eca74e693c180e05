// A byte stream cut into packets: in any pieces, by the library's framer and by the servers', the
// payloads are the same; and what the framer makes of payloads, it takes apart again.
#include "fuzz.h"

#include "serverkit/inbuffer.h"
#include <zeb2/netmsg.h>

#include <vector>

namespace {

using Payloads = std::vector<std::string>;

void add_payload(void *data, size_t size, void *param) {
    static_cast<Payloads *>(param)->emplace_back(static_cast<const char *>(data), size);
}

// The pieces are as long as the bytes of `cuts` say, over and over; without any it is one piece.
template <class Take> void cut(std::string_view stream, std::string_view cuts, Take take) {
    for (size_t i = 0; !stream.empty(); ++i) {
        const size_t wanted =
            cuts.empty() ? stream.size() : 1 + static_cast<uint8_t>(cuts[i % cuts.size()]);
        fuzz::Exactly piece(stream.substr(0, wanted));
        take(piece.view());
        stream.remove_prefix(piece.size());
    }
}

Payloads framed_by_library(std::string_view stream, std::string_view cuts) {
    Payloads payloads;
    NETMSG_buffer buffer;
    NETMSG_init_buffer(&buffer);
    cut(stream, cuts, [&](std::string_view piece) {
        NETMSG_accept_data(piece.data(), piece.size(), &buffer, add_payload, &payloads);
    });
    NETMSG_delete_buffer(&buffer);
    return payloads;
}

Payloads framed_by_server(std::string_view stream, std::string_view cuts) {
    Payloads payloads;
    serverkit::InBuffer buffer;
    cut(stream, cuts, [&](std::string_view piece) {
        MUST(buffer.accept(piece, [&](std::string_view payload) {
            payloads.emplace_back(payload);
            return true;
        }));
    });
    return payloads;
}

struct Waiting {
    const Payloads &payloads;
    size_t next = 0;
};

void supply(void **data, size_t *size, void *param) {
    auto &waiting = *static_cast<Waiting *>(param);
    if (waiting.next == waiting.payloads.size())
        return;
    const std::string &payload = waiting.payloads[waiting.next++];
    *data = malloc(payload.size());
    memcpy(*data, payload.data(), payload.size());
    *size = payload.size();
}

std::string stream_of(const Payloads &payloads, size_t step) {
    std::string stream;
    Waiting waiting{payloads};
    NETMSG_buffer buffer;
    NETMSG_init_buffer(&buffer);
    std::string piece(step, '\0');
    for (size_t made = step; made == step;) {
        NETMSG_generate_data(piece.data(), step, &made, &buffer, supply, &waiting);
        stream.append(piece, 0, made);
    }
    MUST(!NETMSG_buffer_pending(&buffer));
    NETMSG_delete_buffer(&buffer);
    return stream;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::Input input(data, size);
    const std::string_view cuts = input.block(7);
    const std::string_view stream = input.rest();
    Payloads payloads = framed_by_library(stream, "");
    MUST(framed_by_library(stream, cuts) == payloads);
    MUST(framed_by_server(stream, "") == payloads);
    MUST(framed_by_server(stream, cuts) == payloads);
    std::erase(payloads, ""); // empty payloads are never sent
    const size_t step = cuts.empty() ? 256 : 1 + static_cast<uint8_t>(cuts[0]);
    MUST(framed_by_library(stream_of(payloads, step), cuts) == payloads);
    return 0;
}

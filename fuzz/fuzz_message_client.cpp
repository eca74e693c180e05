// A message link against a server that sends what it likes, in any pieces.
#include "connected.h"
#include "packages.h"

#include "zebmsg.h"

namespace {

using namespace fuzz;

constexpr Hooks<ZEBMSG_link> k_hooks = {ZEBMSG_dispatch_pre_select, ZEBMSG_dispatch_post_select};
constexpr NETMSG_type k_own_messages[] = {MSG_SERVER_SERVERHANDSHAKE, MSG_SERVER_HEARTBEAT,
                                          MSG_SERVER_INSTRUMENTINFO,  MSG_NOTIFY_CLIENT_TERMINATE,
                                          MSG_NOTIFY_CLIENT_CONNECT,  MSG_SERVER_TERMINATE};

std::string frame_of(std::string_view payload) {
    std::string frame("2BEZ\x01\x01", 6);
    put(frame, static_cast<uint32_t>(payload.size()));
    return frame.append(payload);
}

std::string message(Input &input) {
    const uint8_t op = input.byte();
    const size_t type = op % 8 < std::size(k_own_messages)
                            ? static_cast<size_t>(k_own_messages[op % 8])
                            : input.number<uint16_t>();
    const NETMSG_entry &row = _nmsg_list_ext[type % _nmsg_list_count_ext];
    std::string text;
    put(text, input.number<uint32_t>());
    put_text(text, row.name);
    put_text(text, input.byte() % 8 == 0 ? input.block(40) : "me");
    put_text(text, input.byte() % 4 == 0 ? input.block(40) : "you");
    put_text(text, row.ds_tie == nullptr ? "" : row.ds_tie);
    if (const NETDSD_entry *entry = row.ds_tie == nullptr ? nullptr : NETPACK_find_ds(row.ds_tie))
        text += PackageMaker(input).make(*entry);
    return frame_of(text);
}

void take(ZEBMSG_proc_msg *pm, void *) {
    MUST(pm->msg != nullptr && (pm->pds == nullptr || pm->dsd != nullptr));
}

// False when the link is lost.
bool step(Input &input, ZEBMSG_link &link, Loop<ZEBMSG_link> &loop) {
    const uint8_t op = input.byte();
    switch (op % 8) {
    case 0:
        return loop.deliver(input.block());
    case 1:
        ZEBMSG_process_messages(&link, take, nullptr);
        return true;
    case 2: {
        const NET_SERVER_Heartbeat beat = {op};
        ZEBMSG_queue_message(&link, MSG_SERVER_HEARTBEAT, op, "you", &beat, sizeof beat,
                             "NET_SERVER_Heartbeat");
        return loop.cycle();
    }
    case 3:
        return loop.cycle();
    default:
        return loop.deliver(message(input));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Input input(data, size);
    ZEBMSG_connect_params server;
    ZEBMSG_init_params(&server);
    server.id_str = "me";
    ZEBMSG_link link = {};
    MUST(ZEBMSG_multi_connect(&server, &link));
    Loop<ZEBMSG_link> loop(link, k_hooks);
    bool up = loop.cycle();
    while (up && !input.empty())
        up = step(input, link, loop);
    MUST(up || link.fh == -1);
    ZEBMSG_process_messages(&link, take, nullptr);
    ZEBMSG_multi_destroy(&link);
    close_server();
    return 0;
}

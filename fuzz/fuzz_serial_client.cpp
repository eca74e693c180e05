// A serial link against a server that answers what it likes, in any pieces.
#include "connected.h"

#include "serialcom.h"

namespace {

using namespace fuzz;

constexpr Hooks<SERIALCOM_link> k_hooks = {SERIALCOM_dispatch_pre_select,
                                           SERIALCOM_dispatch_post_select};

std::string response(SERIALD_RESP_TYPE type, std::string_view data) {
    std::string frame("2BEZ\x01\x01", 6);
    const auto size = static_cast<uint32_t>(sizeof type + data.size());
    frame.append(reinterpret_cast<const char *>(&size), sizeof size);
    frame.append(reinterpret_cast<const char *>(&type), sizeof type);
    return frame.append(data);
}

void check_data(SERIALCOM_link &link, size_t room) {
    Exactly dest(std::string(room + 1, '\x5A'));
    const size_t size =
        SERIALCOM_retrive_request_data(&link, reinterpret_cast<BYTE *>(dest.data()), dest.size());
    if (size != static_cast<size_t>(-1))
        MUST(size <= room && dest.data()[size] == '\0');
    MUST(link.r_buffer_size <= link.r_buffer_max);
}

// False when the link is lost.
bool step(Input &input, SERIALCOM_link &link, Loop<SERIALCOM_link> &loop) {
    const uint8_t op = input.byte();
    switch (op % 5) {
    case 0:
        return loop.deliver(input.block());
    case 1:
        return loop.deliver(response(static_cast<SERIALD_RESP_TYPE>(op / 5 % 4), input.block()));
    case 2: {
        const std::string_view data = input.block();
        SERIALCOM_issue_request(&link, static_cast<SERIALD_REQUEST_TYPE>(op / 5 % 16), 1, -1,
                                data.data(), data.size());
        return loop.cycle();
    }
    case 3:
        check_data(link, op / 5);
        return true;
    default: {
        // An answer that comes whole is the request's data.
        const std::string_view data = input.block();
        if (!SERIALCOM_test_connected(&link) || link.rx.start_buff != 0)
            return true;
        SERIALCOM_issue_request(&link, SERIALD_REQUEST_READNEW, 1, -1, nullptr, 0);
        if (!loop.cycle() || !loop.deliver(response(SERIALD_RESP_SUCCESS, data)))
            return false;
        MUST(SERIALCOM_poll_request_success(&link) && link.r_buffer_size == data.size());
        MUST(data.empty() || memcmp(link.r_buffer, data.data(), data.size()) == 0);
        return true;
    }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Input input(data, size);
    SERIALD_connect_params port = {"=a"};
    SERIALCOM_link link = {};
    MUST(SERIALCOM_multi_connect(&port, &link));
    Loop<SERIALCOM_link> loop(link, k_hooks);
    bool up = loop.cycle();
    if (input.byte() % 8 != 0)
        up = loop.deliver(response(SERIALD_RESP_SUCCESS, ""));
    while (up && !input.empty())
        up = step(input, link, loop);
    if (!up)
        MUST(link.stat == SERIALCOM_S_UNLINKED && link.fh == -1);
    check_data(link, 8);
    SERIALCOM_multi_destroy(&link);
    close_server();
    return 0;
}

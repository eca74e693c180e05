// A message from the wire: what it is taken for, is packed and taken apart to the same.
#include "packages.h"

namespace {

using namespace fuzz;

struct Message : NETPACK_message {
    Message() : NETPACK_message{} {}
    ~Message() { NETPACK_msg_free(this); }
    Message(const Message &) = delete;
    Message &operator=(const Message &) = delete;
};

bool equal(const char *a, const char *b) {
    return std::string_view(a == nullptr ? "" : a) == (b == nullptr ? "" : b);
}

bool equal(const NETPACK_message &a, const NETPACK_message &b) {
    return a.type == b.type && a.flags == b.flags && equal(a.dest_name, b.dest_name) &&
           equal(a.src_name, b.src_name) && equal(a.ds_name, b.ds_name) && a.sz_ds == b.sz_ds &&
           (a.sz_ds == 0 || memcmp(a.pds, b.pds, a.sz_ds) == 0);
}

// One of the catalogue, mostly with the record that belongs to it.
std::string make(Input &input) {
    const NETMSG_entry &row = _nmsg_list_ext[input.number<uint16_t>() % _nmsg_list_count_ext];
    std::string message;
    put(message, input.number<uint32_t>());
    put_text(message, row.name);
    put_text(message, input.block(40));
    put_text(message, input.block(40));
    const char *tie = row.ds_tie;
    if (input.byte() % 16 == 0)
        tie = _ndsd_structures_ext[input.number<uint16_t>() % _ndsd_structures_count_ext].name;
    put_text(message, tie == nullptr ? "" : tie);
    if (const NETDSD_entry *entry = tie == nullptr ? nullptr : NETPACK_find_ds(tie))
        message += PackageMaker(input).make(*entry);
    return message + std::string(input.block(3));
}

void send(const NETPACK_message &message, Message &received) {
    size_t size = 0;
    void *bytes = NETPACK_package_message(&message, &size);
    MUST(bytes != nullptr && NETPACK_unpack_message(bytes, size, &received));
    free(bytes);
}

void check(const NETPACK_message &message) {
    MUST((message.pds == nullptr) == (message.sz_ds == 0));
    if (message.ds_name != nullptr && message.pds == nullptr)
        return; // it named a record and brought none: that is not sent on
    Message copy, received, received_on;
    NETPACK_msg_copy(&message, &copy);
    MUST(equal(copy, message));
    // Texts that came raw, without their ends, are cut on the first way.
    send(message, received);
    send(received, received_on);
    MUST(equal(received_on, received) && equal(received.src_name, message.src_name));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Input input(data, size);
    const bool made = input.byte() % 8 != 0;
    Exactly bytes(made ? make(input) : input.rest());
    Message message, internal;
    const bool known = NETPACK_unpack_message(bytes.data(), bytes.size(), &message);
    // Both catalogues are the same in this program.
    MUST(known == !!NETPACK_unpack_message_lib(bytes.data(), bytes.size(), &internal));
    if (!known) {
        MUST(message.pds == nullptr && message.ds_name == nullptr && message.src_name == nullptr);
        return 0;
    }
    MUST(equal(message, internal));
    check(message);
    return 0;
}

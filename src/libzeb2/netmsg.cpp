#include "netmsg.h"

#include "diag.h"
#include "util.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t k_sync_size = 6;
constexpr BYTE k_sync[k_sync_size] = {'2', 'B', 'E', 'Z', 0x01, 0x01}; // magic, version 0x0101
constexpr size_t k_header_size = k_sync_size + sizeof(DWORD);
constexpr size_t k_smallest_buffer = 32;
// A longer input is taken in slices, so that it cannot make the buffer grow beyond what a packet
// may need.
constexpr size_t k_input_slice = 0x100000;

size_t capacity_for(size_t size) {
    return std::max<size_t>(UTIL_roundup_p2(static_cast<DWORD>(size)), k_smallest_buffer);
}

// Without memory the gathered bytes stay as they are.
bool make_room(NETMSG_buffer *buff, size_t size) {
    if (buff->buff != nullptr && buff->sz_buff > size)
        return true;
    const size_t capacity = capacity_for(size);
    BYTE *storage = static_cast<BYTE *>(calloc(1, capacity));
    if (!ZEB_CHECK_ERRNO(storage != nullptr))
        return false;
    if (buff->buff != nullptr)
        memcpy(storage, buff->buff, buff->sz_buff);
    free(buff->buff);
    buff->buff = storage;
    buff->sz_buff = capacity;
    return true;
}

struct Input {
    const BYTE *at;
    size_t size;
};

bool in_sync(const NETMSG_buffer *buff) {
    return memcmp(buff->buff, k_sync, k_sync_size) == 0;
}

// The buffer's first six bytes are the window through which the input slides until it shows the
// start of a packet.
void synchronise(NETMSG_buffer *buff, Input *in) {
    for (; in->size > 0 && !in_sync(buff); ++in->at, --in->size) {
        memmove(buff->buff, buff->buff + 1, k_sync_size - 1);
        buff->buff[k_sync_size - 1] = *in->at;
    }
    buff->start_buff = std::max(buff->start_buff, k_sync_size);
}

// True when the buffer holds `size` bytes of the packet.
bool gather(NETMSG_buffer *buff, Input *in, size_t size) {
    if (buff->start_buff < size) {
        const size_t taken = std::min(size - buff->start_buff, in->size);
        memcpy(buff->buff + buff->start_buff, in->at, taken);
        buff->start_buff += taken;
        in->at += taken;
        in->size -= taken;
    }
    return buff->start_buff >= size;
}

DWORD payload_length(const NETMSG_buffer *buff) {
    DWORD length;
    memcpy(&length, buff->buff + k_sync_size, sizeof length);
    return length;
}

// Synchronisation resumes one byte behind the start of a header that was none. No packet can start
// within its first six bytes, so the window moves on to its last six at once.
void resume_behind_header(NETMSG_buffer *buff) {
    memmove(buff->buff, buff->buff + k_header_size - k_sync_size, k_sync_size);
    buff->start_buff = k_sync_size;
}

// Takes input up to the end of one packet at most. False when it must not be called again.
bool accept_packet(NETMSG_buffer *buff, Input *in, NETMSG_recv_msg cb, void *param) {
    synchronise(buff, in);
    if (!in_sync(buff) || !gather(buff, in, k_header_size))
        return false;
    const DWORD length = payload_length(buff);
    if (length >= NETMSG_PAYLOAD_LIMIT) {
        ZEB_REPORT("Oversized packet recieved (size specified as 0x%08X bytes)", length);
        resume_behind_header(buff);
        return true;
    }
    if (!gather(buff, in, k_header_size + length))
        return false;
    cb(buff->buff + k_header_size, length, param);
    if (buff->buff == nullptr) // the callback ended the link
        return false;
    memset(buff->buff, 0, k_header_size);
    buff->start_buff = 0;
    return true;
}

size_t hand_out_pending(NETMSG_buffer *buff, BYTE *dest, size_t size) {
    if (!NETMSG_buffer_pending(buff))
        return 0;
    const size_t taken = std::min(size, buff->end_buff - buff->start_buff);
    memcpy(dest, buff->buff + buff->start_buff, taken);
    buff->start_buff += taken;
    return taken;
}

void make_send_room(NETMSG_buffer *buff, size_t size) {
    if (buff->buff != nullptr && buff->sz_buff >= size)
        return;
    free(buff->buff);
    buff->sz_buff = capacity_for(size);
    buff->buff = static_cast<BYTE *>(malloc(buff->sz_buff));
    if (!ZEB_CHECK_ERRNO(buff->buff != nullptr))
        exit(-1);
}

void load_packet(NETMSG_buffer *buff, const void *payload, size_t size) {
    const auto length = static_cast<DWORD>(size);
    make_send_room(buff, k_header_size + size);
    memcpy(buff->buff, k_sync, k_sync_size);
    memcpy(buff->buff + k_sync_size, &length, sizeof length);
    memcpy(buff->buff + k_header_size, payload, size);
    buff->start_buff = 0;
    buff->end_buff = k_header_size + size;
}

// False when there is nothing to send, or nothing that may be sent in this call.
bool next_packet(NETMSG_buffer *buff, NETMSG_send_msg cb, void *param) {
    void *payload = nullptr;
    size_t size = 0;
    cb(&payload, &size, param);
    const bool usable = payload != nullptr && size > 0 && size < NETMSG_PAYLOAD_LIMIT;
    if (payload != nullptr && size >= NETMSG_PAYLOAD_LIMIT)
        ZEB_REPORT("Maxium packet size exceeded, packet will not be sent");
    if (usable)
        load_packet(buff, payload, size);
    free(payload);
    return usable;
}

} // namespace

void NETMSG_init_buffer(NETMSG_buffer *buff) {
    if (ZEB_CHECK(buff != nullptr))
        *buff = {};
}

void NETMSG_delete_buffer(NETMSG_buffer *buff) {
    if (!ZEB_CHECK(buff != nullptr))
        return;
    free(buff->buff);
    *buff = {};
}

BOOL NETMSG_buffer_pending(NETMSG_buffer *buff) {
    return ZEB_CHECK(buff != nullptr) && buff->buff != nullptr &&
           buff->end_buff != buff->start_buff;
}

void NETMSG_accept_data(const void *in, size_t in_len, NETMSG_buffer *buff, NETMSG_recv_msg cb,
                        void *param) {
    if (!ZEB_CHECK(buff != nullptr) || !ZEB_CHECK(cb != nullptr) ||
        !ZEB_CHECK(in != nullptr || in_len == 0))
        return;
    Input rest = {static_cast<const BYTE *>(in), in_len};
    do {
        Input slice = {rest.at, std::min(rest.size, k_input_slice)};
        rest.at += slice.size;
        rest.size -= slice.size;
        if (!make_room(buff, buff->start_buff + slice.size))
            return;
        while (slice.size > 0 && accept_packet(buff, &slice, cb, param)) {
        }
    } while (rest.size > 0 && buff->buff != nullptr);
}

void NETMSG_generate_data(void *dest, size_t dest_size, size_t *bytes_generated,
                          NETMSG_buffer *buff, NETMSG_send_msg cb, void *param) {
    if (!ZEB_CHECK(bytes_generated != nullptr))
        return;
    *bytes_generated = 0;
    if (!ZEB_CHECK(buff != nullptr) || !ZEB_CHECK(cb != nullptr) ||
        !ZEB_CHECK(dest != nullptr || dest_size == 0))
        return;
    BYTE *to = static_cast<BYTE *>(dest);
    size_t written = hand_out_pending(buff, to, dest_size);
    while (written < dest_size && next_packet(buff, cb, param))
        written += hand_out_pending(buff, to + written, dest_size - written);
    *bytes_generated = written;
}

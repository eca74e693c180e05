#include "zebmsg_int.h"

#include "diag.h"
#include "dispatch.h"
#include "util.h"

namespace {

constexpr double k_silence_limit = 30.0; // s without a byte: the server is dead
constexpr unsigned int k_no_heartbeat = ~0U;

// What the incoming-message handler needs: the link and the loop's sets, for closing the socket.
struct ReceiveParams {
    ZEBMSG_link *lnk;
    fd_set *rx_fds;
    fd_set *tx_fds;
};

void drop_link(ZEBMSG_link *lnk, fd_set *rx_fds, fd_set *tx_fds) {
    zeb::select_remove(lnk->fh, rx_fds);
    zeb::select_remove(lnk->fh, tx_fds);
    zeb::link_lost(lnk);
}

bool is_named(const NETPACK_message *msg) {
    return msg->src_name != nullptr && msg->src_name[0] != '\0';
}

// ---- Messages of the link protocol; each returns whether the message is delivered ----

using Handler = bool (*)(const ReceiveParams *p, const NETPACK_message *msg);

bool on_client_terminate(const ReceiveParams *p, const NETPACK_message *msg) {
    if (is_named(msg))
        zeb::forget_instrument(p->lnk, msg->src_name);
    return true;
}

bool on_client_handshake(const ReceiveParams *, const NETPACK_message *msg) {
    ZEB_REPORT("Got message type %d - this shouldn't happen", static_cast<int>(msg->type));
    return false;
}

bool on_heartbeat(const ReceiveParams *p, const NETPACK_message *msg) {
    if (!ZEB_CHECK(msg->pds != nullptr))
        return false;
    ZEBMSG_link *lnk = p->lnk;
    NET_SERVER_Heartbeat hb = *static_cast<const NET_SERVER_Heartbeat *>(msg->pds);
    if (lnk->last_hb != k_no_heartbeat && lnk->last_hb > hb.hb_idx)
        ZEB_REPORT("Out of order heartbeat: %u - %u (%f)", hb.hb_idx, lnk->last_hb,
                   lnk->next_hb_time - UTIL_ftime());
    lnk->last_hb = hb.hb_idx;
    ZEBMSG_queue_message_lib(lnk, MSG_SERVER_HEARTBEAT, 0, nullptr, &hb, sizeof hb,
                             "NET_SERVER_Heartbeat", FALSE);
    return false;
}

bool on_instrument_info(const ReceiveParams *p, const NETPACK_message *msg) {
    if (is_named(msg) && msg->pds != nullptr)
        zeb::record_instrument(p->lnk, msg->src_name,
                               static_cast<const NET_SERVER_InstrumentInfo *>(msg->pds));
    return true;
}

bool on_server_handshake(const ReceiveParams *p, const NETPACK_message *msg) {
    if (!ZEB_CHECK(msg->pds != nullptr))
        return false;
    p->lnk->last_hb = static_cast<const NET_SERVER_ServerHandshake *>(msg->pds)->hb_idx;
    p->lnk->stat = ZEBMSG_S_OPEN;
    ZEBMSG_queue_message_lib(p->lnk, MSG_NOTIFY_CLIENT_CONNECT, 1, nullptr, nullptr, 0, nullptr,
                             FALSE);
    ZEB_REPORT("Received handshake - socket initialized");
    return false;
}

bool on_server_terminate(const ReceiveParams *p, const NETPACK_message *) {
    ZEB_REPORT("Server terminating - closing socket");
    drop_link(p->lnk, p->rx_fds, p->tx_fds);
    return false;
}

struct HandlerRow {
    NETMSG_type type;
    Handler handler;
};

constexpr HandlerRow k_handlers[] = {
    {MSG_NOTIFY_CLIENT_TERMINATE, on_client_terminate},
    {MSG_SERVER_CLIENTHANDSHAKE, on_client_handshake},
    {MSG_SERVER_HEARTBEAT, on_heartbeat},
    {MSG_SERVER_INSTRUMENTINFO, on_instrument_info},
    {MSG_SERVER_SERVERHANDSHAKE, on_server_handshake},
    {MSG_SERVER_TERMINATE, on_server_terminate},
};

bool act_on(const ReceiveParams *p, const NETPACK_message *msg) {
    for (const HandlerRow &row : k_handlers)
        if (row.type == msg->type)
            return row.handler(p, msg);
    return true;
}

// One whole message. A message that both catalogues know is delivered from both queues.
void receive_message(void *data, size_t size, void *param) {
    const auto *p = static_cast<const ReceiveParams *>(param);
    NETPACK_message msg;
    if (NETPACK_unpack_message_lib(data, size, &msg)) {
        if (!act_on(p, &msg)) {
            NETPACK_msg_free(&msg);
            return;
        }
        zeb::append_received(p->lnk, &msg, TRUE);
    }
    if (NETPACK_unpack_message(data, size, &msg))
        zeb::append_received(p->lnk, &msg, FALSE);
}

// ---- The halves of a post-select; each returns whether the link is still there ----

bool receive(ZEBMSG_link *lnk, FTIME now, fd_set *rx_fds, fd_set *tx_fds) {
    BYTE data[zeb::k_io_step];
    size_t received = 0;
    switch (zeb::receive_step(lnk->fh, data, sizeof data, &received)) {
    case zeb::Io::moved:
        break;
    case zeb::Io::nothing:
        return true;
    case zeb::Io::closed:
        ZEB_REPORT("Zero length read on message socket, assuming termination, closing connection");
        drop_link(lnk, rx_fds, tx_fds);
        return false;
    case zeb::Io::failed:
        ZEB_REPORT_ERRNO("Error reading from socket, closing connection");
        drop_link(lnk, rx_fds, tx_fds);
        return false;
    }
    ReceiveParams params = {lnk, rx_fds, tx_fds};
    NETMSG_accept_data(data, received, &lnk->rx_stream, receive_message, &params);
    lnk->last_rx_time = now;
    return lnk->fh != -1;
}

bool transmit(ZEBMSG_link *lnk, fd_set *rx_fds, fd_set *tx_fds) {
    if (lnk->tx_buff_size < sizeof lnk->tx_buff) {
        size_t generated = 0;
        NETMSG_generate_data(lnk->tx_buff + lnk->tx_buff_size,
                             sizeof lnk->tx_buff - lnk->tx_buff_size, &generated, &lnk->tx_stream,
                             zeb::package_next, lnk);
        lnk->tx_buff_size += generated;
    }
    if (lnk->tx_buff_size == 0 ||
        zeb::send_step(lnk->fh, lnk->tx_buff, &lnk->tx_buff_size) != zeb::Io::failed)
        return true;
    ZEB_REPORT_ERRNO("Error writing to socket, closing connection");
    drop_link(lnk, rx_fds, tx_fds);
    return false;
}

// Setting the station's clock must not look like silence, nor hide it.
void follow_clock(ZEBMSG_link *lnk, FTIME now) {
    lnk->last_rx_time += zeb::clock_step(now, &lnk->clock_offset);
}

bool drop_silent(ZEBMSG_link *lnk, FTIME now, fd_set *rx_fds, fd_set *tx_fds) {
    if (!(now - lnk->last_rx_time > k_silence_limit))
        return false;
    ZEB_REPORT("Socket timeout - closing");
    drop_link(lnk, rx_fds, tx_fds);
    return true;
}

bool wants_to_send(const ZEBMSG_link *lnk) {
    auto *stream = const_cast<NETMSG_buffer *>(&lnk->tx_stream);
    return lnk->tx_queue.head != nullptr || lnk->tx_buff_size != 0 || NETMSG_buffer_pending(stream);
}

} // namespace

namespace zeb {

void link_lost(ZEBMSG_link *lnk) {
    close_socket(&lnk->fh, &lnk->clear_fh);
}

} // namespace zeb

BOOL ZEBMSG_dispatch_init(ZEBMSG_link *lnk, fd_set *rx_fds, fd_set *tx_fds, int *fd_max,
                          pthread_t *parent_thd) {
    ZEB_LOCK(guard, &lnk->mtx);
    zeb::select_add(lnk->fh, rx_fds, fd_max);
    zeb::select_add(lnk->fh, tx_fds, fd_max);
    if (lnk->thd == nullptr && parent_thd != nullptr)
        lnk->thd = parent_thd;
    return TRUE;
}

BOOL ZEBMSG_dispatch_pre_select(ZEBMSG_link *lnk, fd_set *rx_fds, fd_set *tx_fds, int *fd_max) {
    ZEB_LOCK(guard, &lnk->mtx);
    if (zeb::select_forget(&lnk->clear_fh, rx_fds, tx_fds))
        lnk->stat = ZEBMSG_S_UNLINKED;
    if (lnk->fh == -1)
        return TRUE;
    zeb::select_add(lnk->fh, rx_fds, fd_max);
    if (wants_to_send(lnk))
        zeb::select_add(lnk->fh, tx_fds, fd_max);
    else
        zeb::select_remove(lnk->fh, tx_fds);
    return TRUE;
}

BOOL ZEBMSG_dispatch_post_select(ZEBMSG_link *lnk, fd_set *rx_fds, fd_set *tx_fds,
                                 fd_set *sel_rx_fds, fd_set *sel_tx_fds, int * /*fd_max*/) {
    ZEB_LOCK(guard, &lnk->mtx);
    if (lnk->fh == -1)
        return TRUE;
    const FTIME now = UTIL_ftime();
    follow_clock(lnk, now);
    if (zeb::pass_was_stopped())
        return TRUE;
    if (zeb::select_contains(lnk->fh, sel_rx_fds) && !receive(lnk, now, rx_fds, tx_fds))
        return FALSE;
    if (zeb::select_contains(lnk->fh, sel_tx_fds) && !transmit(lnk, rx_fds, tx_fds))
        return FALSE;
    return drop_silent(lnk, now, rx_fds, tx_fds) ? FALSE : TRUE;
}

BOOL ZEBMSG_dispatch_loop_continue(ZEBMSG_link *lnk, fd_set *rx_fds, fd_set *tx_fds,
                                   int * /*fd_max*/) {
    ZEB_LOCK(guard, &lnk->mtx);
    if (lnk->fh == -1)
        return TRUE;
    const FTIME now = UTIL_ftime();
    follow_clock(lnk, now);
    if (zeb::pass_was_stopped())
        return TRUE;
    return drop_silent(lnk, now, rx_fds, tx_fds) ? FALSE : TRUE;
}

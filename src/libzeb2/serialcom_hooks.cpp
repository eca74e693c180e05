#include "serialcom_int.h"

#include "diag.h"
#include "dispatch.h"
#include "util.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

constexpr double k_silence_limit = 30.0;   // s without a byte: the server is dead
constexpr double k_heartbeat_period = 1.0; // s

void drop_link(SERIALCOM_link *lnk, fd_set *rx_fds, fd_set *tx_fds) {
    zeb::select_remove(lnk->fh, rx_fds);
    zeb::select_remove(lnk->fh, tx_fds);
    zeb::link_lost(lnk);
}

bool is_before_handshake(const SERIALCOM_link *lnk) {
    return lnk->stat <= SERIALCOM_S_SEND_HANDSHAKE;
}

bool is_heartbeat_due(const SERIALCOM_link *lnk, FTIME now) {
    return now >= lnk->next_hb_time;
}

// ---- Sending: the framing asks for one record after the other ----

using Supply = void (*)(SERIALCOM_link *lnk, void **data, size_t *size);

// A block for the framing, which frees it; without memory the record is not sent.
BYTE *new_record(void **data, size_t *size, size_t wanted) {
    *data = calloc(1, wanted);
    if (!ZEB_CHECK_ERRNO(*data != nullptr))
        return nullptr;
    *size = wanted;
    return static_cast<BYTE *>(*data);
}

bool new_header(void **data, size_t *size, const SERIALD_request_header &header, size_t rest = 0) {
    BYTE *record = new_record(data, size, sizeof header + rest);
    if (record != nullptr)
        memcpy(record, &header, sizeof header);
    return record != nullptr;
}

void supply_handshake(SERIALCOM_link *lnk, void **data, size_t *size) {
    BYTE *record = new_record(data, size, sizeof lnk->cps);
    if (record == nullptr)
        return;
    memcpy(record, &lnk->cps, sizeof lnk->cps);
    lnk->stat = SERIALCOM_S_AWAITING_HANDSHAKE;
}

void supply_close(SERIALCOM_link *lnk, void **data, size_t *size) {
    if (new_header(data, size, {SERIALD_REQUEST_CLOSE, 0, 0}))
        lnk->stat = SERIALCOM_S_CLOSE_WAIT_NO_TX;
}

// A request that cannot be sent would never be answered: it ends here.
void supply_request(SERIALCOM_link *lnk, void **data, size_t *size) {
    if (!new_header(data, size, lnk->rq_header, lnk->r_buffer_size)) {
        zeb::finish_request(lnk, SERIALCOM_RS_FAILURE);
        return;
    }
    if (lnk->r_buffer_size != 0)
        memcpy(static_cast<BYTE *>(*data) + sizeof lnk->rq_header, lnk->r_buffer,
               lnk->r_buffer_size);
    lnk->rq_stat = SERIALCOM_RS_SENT;
}

void supply_open(SERIALCOM_link *lnk, void **data, size_t *size) {
    const FTIME now = UTIL_ftime();
    if (lnk->rq_stat == SERIALCOM_RS_START)
        supply_request(lnk, data, size);
    else if (is_heartbeat_due(lnk, now))
        new_header(data, size, {SERIALD_REQUEST_HEARTBEAT, 0, 0});
    else
        return;
    lnk->next_hb_time = now + k_heartbeat_period;
}

// `param` is the link.
void supply_record(void **data, size_t *size, void *param) {
    auto *lnk = static_cast<SERIALCOM_link *>(param);
    *data = nullptr;
    *size = 0;
    if (is_before_handshake(lnk))
        supply_handshake(lnk, data, size);
    else if (lnk->stat == SERIALCOM_S_NOTIFY_CLOSE)
        supply_close(lnk, data, size);
    else if (lnk->stat == SERIALCOM_S_OPEN)
        supply_open(lnk, data, size);
}

bool has_record(const SERIALCOM_link *lnk) {
    if (is_before_handshake(lnk) || lnk->stat == SERIALCOM_S_NOTIFY_CLOSE)
        return true;
    return lnk->stat == SERIALCOM_S_OPEN &&
           (lnk->rq_stat == SERIALCOM_RS_START || is_heartbeat_due(lnk, UTIL_ftime()));
}

bool wants_to_send(SERIALCOM_link *lnk) {
    return NETMSG_buffer_pending(&lnk->tx) || has_record(lnk) || lnk->tx_buff_size != 0;
}

// ---- Receiving: one call for each whole record ----

void take_handshake(SERIALCOM_recv_param *p, SERIALD_RESP_TYPE type) {
    if (type == SERIALD_RESP_SUCCESS) {
        ZEB_REPORT("Serial server handshake complete");
        p->lnk->stat = SERIALCOM_S_OPEN;
        return;
    }
    ZEB_REPORT("Error in serial server handsake, disconnecting");
    p->stat = FALSE;
    drop_link(p->lnk, p->rx_fds, p->tx_fds);
}

// The answer to the current request, whatever became of that meanwhile.
void take_answer(SERIALCOM_link *lnk, SERIALD_RESP_TYPE type, const BYTE *data, size_t size) {
    if (type == SERIALD_RESP_FAILURE) {
        lnk->r_buffer_size = 0;
        zeb::finish_request(lnk, SERIALCOM_RS_FAILURE);
        return;
    }
    if (size != 0) {
        if (!zeb::make_request_room(lnk, size))
            return;
        memcpy(lnk->r_buffer, data, size);
    }
    lnk->r_buffer_size = size;
    zeb::finish_request(lnk, SERIALCOM_RS_SUCCESS);
}

void receive_record(void *data, size_t size, void *param) {
    auto *p = static_cast<SERIALCOM_recv_param *>(param);
    SERIALD_resp_header header;
    if (size < sizeof header) {
        ZEB_REPORT("Serial server reply to small: %zu", size);
        return;
    }
    memcpy(&header, data, sizeof header);
    if (is_before_handshake(p->lnk))
        ZEB_REPORT("Serial server sent a message before the handshake sequeuence started");
    else if (p->lnk->stat == SERIALCOM_S_AWAITING_HANDSHAKE)
        take_handshake(p, header.type);
    else if (header.type != SERIALD_RESP_HEARTBEAT)
        take_answer(p->lnk, header.type, static_cast<const BYTE *>(data) + sizeof header,
                    size - sizeof header);
}

// ---- The halves of a post-select; each returns whether the link is still there ----

bool receive(SERIALCOM_link *lnk, FTIME now, fd_set *rx_fds, fd_set *tx_fds) {
    BYTE data[zeb::k_io_step];
    size_t received = 0;
    switch (zeb::receive_step(lnk->fh, data, sizeof data, &received)) {
    case zeb::Io::moved:
        break;
    case zeb::Io::nothing:
        return true;
    case zeb::Io::closed:
        ZEB_REPORT(
            "Zero length read on serial server socket, assuming termination, closing connection");
        drop_link(lnk, rx_fds, tx_fds);
        return false;
    case zeb::Io::failed:
        ZEB_REPORT_ERRNO("Error reading from socket, closing connection");
        drop_link(lnk, rx_fds, tx_fds);
        return false;
    }
    SERIALCOM_recv_param param = {lnk, rx_fds, tx_fds, TRUE};
    NETMSG_accept_data(data, received, &lnk->rx, receive_record, &param);
    if (!param.stat)
        return false;
    lnk->last_rx_time = now;
    return true;
}

void note_departure(SERIALCOM_link *lnk) {
    if (lnk->stat == SERIALCOM_S_CLOSE_WAIT_NO_TX)
        lnk->stat = SERIALCOM_S_CLOSE_DONE;
}

bool transmit(SERIALCOM_link *lnk, fd_set *rx_fds, fd_set *tx_fds) {
    if (lnk->tx_buff_size < sizeof lnk->tx_buff) {
        size_t generated = 0;
        NETMSG_generate_data(lnk->tx_buff + lnk->tx_buff_size,
                             sizeof lnk->tx_buff - lnk->tx_buff_size, &generated, &lnk->tx,
                             supply_record, lnk);
        lnk->tx_buff_size += generated;
    }
    if (lnk->tx_buff_size == 0) {
        note_departure(lnk);
        return true;
    }
    if (zeb::send_step(lnk->fh, lnk->tx_buff, &lnk->tx_buff_size) != zeb::Io::failed)
        return true;
    ZEB_REPORT_ERRNO("Error writing to socket, closing connection");
    drop_link(lnk, rx_fds, tx_fds);
    return false;
}

// Setting the station's clock must not look like silence, hide it, or delay a heartbeat. Whoever
// waits for an answer has a deadline of the old clock. A heartbeat that was sent while the time of
// a standstill was not yet known keeps its time.
void follow_clock(SERIALCOM_link *lnk, FTIME now) {
    const double step = zeb::clock_step(now, &lnk->clock_offset);
    if (step == 0.0)
        return;
    lnk->last_rx_time += step;
    lnk->next_hb_time = std::min(lnk->next_hb_time + step, now + k_heartbeat_period);
    pthread_cond_broadcast(&lnk->req_cond);
}

bool drop_silent(SERIALCOM_link *lnk, FTIME now, fd_set *rx_fds, fd_set *tx_fds) {
    if (now - k_silence_limit < lnk->last_rx_time)
        return false;
    ZEB_REPORT("Serial server socket timeout - closing");
    drop_link(lnk, rx_fds, tx_fds);
    return true;
}

bool has_sets(const SERIALCOM_link *lnk, const fd_set *rx_fds, const fd_set *tx_fds) {
    return ZEB_CHECK(lnk != nullptr) && ZEB_CHECK(rx_fds != nullptr) &&
           ZEB_CHECK(tx_fds != nullptr);
}

} // namespace

namespace zeb {

void link_lost(SERIALCOM_link *lnk) {
    close_socket(&lnk->fh, &lnk->clear_fh);
    lnk->stat = SERIALCOM_S_UNLINKED;
    pthread_cond_broadcast(&lnk->req_cond);
}

} // namespace zeb

BOOL SERIALCOM_dispatch_init(SERIALCOM_link *lnk, fd_set *rx_fds, fd_set *tx_fds, int *fd_max,
                             pthread_t *parent_thd) {
    if (!has_sets(lnk, rx_fds, tx_fds) || !ZEB_CHECK(fd_max != nullptr))
        return TRUE;
    ZEB_LOCK(guard, &lnk->mtx);
    zeb::select_add(lnk->fh, rx_fds, fd_max);
    zeb::select_add(lnk->fh, tx_fds, fd_max);
    if (lnk->thd == nullptr && parent_thd != nullptr)
        lnk->thd = parent_thd;
    return TRUE;
}

BOOL SERIALCOM_dispatch_pre_select(SERIALCOM_link *lnk, fd_set *rx_fds, fd_set *tx_fds,
                                   int *fd_max) {
    if (!has_sets(lnk, rx_fds, tx_fds) || !ZEB_CHECK(fd_max != nullptr))
        return TRUE;
    ZEB_LOCK(guard, &lnk->mtx);
    if (zeb::select_forget(&lnk->clear_fh, rx_fds, tx_fds) || lnk->fh == -1)
        return TRUE;
    zeb::select_add(lnk->fh, rx_fds, fd_max);
    if (wants_to_send(lnk)) {
        zeb::select_add(lnk->fh, tx_fds, fd_max);
        return TRUE;
    }
    zeb::select_remove(lnk->fh, tx_fds);
    // Not watched for writing any more, the socket would never say that the close request is out.
    note_departure(lnk);
    return TRUE;
}

BOOL SERIALCOM_dispatch_post_select(SERIALCOM_link *lnk, fd_set *rx_fds, fd_set *tx_fds,
                                    fd_set *sel_rx_fds, fd_set *sel_tx_fds, int * /*fd_max*/) {
    if (!has_sets(lnk, rx_fds, tx_fds) || !has_sets(lnk, sel_rx_fds, sel_tx_fds))
        return TRUE;
    ZEB_LOCK(guard, &lnk->mtx);
    if (lnk->fh == -1 || lnk->stat == SERIALCOM_S_CLOSE_DONE)
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

BOOL SERIALCOM_dispatch_loop_continue(SERIALCOM_link *lnk, fd_set *rx_fds, fd_set *tx_fds,
                                      int * /*fd_max*/) {
    if (!has_sets(lnk, rx_fds, tx_fds))
        return TRUE;
    ZEB_LOCK(guard, &lnk->mtx);
    if (lnk->fh == -1)
        return TRUE;
    const FTIME now = UTIL_ftime();
    follow_clock(lnk, now);
    if (zeb::pass_was_stopped())
        return TRUE;
    return drop_silent(lnk, now, rx_fds, tx_fds) ? FALSE : TRUE;
}

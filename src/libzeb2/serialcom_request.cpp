#include "serialcom_int.h"

#include "diag.h"
#include "dispatch.h"
#include "util.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

constexpr double k_no_timeout = -1.0;
constexpr size_t k_no_data = static_cast<size_t>(-1);
constexpr size_t k_data_limit = NETMSG_PAYLOAD_LIMIT - sizeof(SERIALD_request_header);

// ---- Issuing; with the link's mutex held ----

// False when it must not be sent at once: its data is missing, and that is reported.
bool store_data(SERIALCOM_link *lnk, const void *data, size_t size) {
    lnk->r_buffer_size = 0;
    if (data == nullptr || size == 0)
        return true;
    if (!zeb::make_request_room(lnk, size))
        return false;
    memcpy(lnk->r_buffer, data, size);
    lnk->r_buffer_size = size;
    return true;
}

// True when the servicing thread is to be woken.
bool start_request(SERIALCOM_link *lnk, const SERIALD_request_header &header, const void *data,
                   size_t size) {
    if (lnk->stat != SERIALCOM_S_OPEN) {
        ZEB_REPORT("Tried to issue a request while the serial server link is down, ignored %d",
                   static_cast<int>(lnk->stat));
        return false;
    }
    lnk->rq_header = header;
    // What no packet can carry would never be sent, nor answered.
    if (data != nullptr && size >= k_data_limit) {
        ZEB_REPORT("Maxium packet size exceeded, packet will not be sent");
        lnk->r_buffer_size = 0;
        zeb::finish_request(lnk, SERIALCOM_RS_FAILURE);
        return false;
    }
    lnk->rq_stat = SERIALCOM_RS_START;
    return store_data(lnk, data, size);
}

// ---- State; with the link's mutex held ----

bool is_done(const SERIALCOM_link *lnk) {
    return lnk->rq_stat == SERIALCOM_RS_NONE || lnk->rq_stat >= SERIALCOM_RS_DONE;
}

bool has_succeeded(const SERIALCOM_link *lnk) {
    return lnk->rq_stat == SERIALCOM_RS_SUCCESS && lnk->stat == SERIALCOM_S_OPEN;
}

// ---- The request family ----

struct Data {
    const void *at;
    size_t size;
};

constexpr Data k_none = {nullptr, 0};

Data text_data(const char *text) {
    return {text, strlen(text)};
}

struct Timeouts {
    double whole;
    double burst;
};

constexpr Timeouts k_unlimited = {k_no_timeout, k_no_timeout};
constexpr Timeouts k_setting = {0.0, 0.0};

BOOL request(SERIALCOM_link *lnk, SERIALD_REQUEST_TYPE type, const Timeouts &timeouts,
             const Data &data = k_none) {
    SERIALCOM_issue_request(lnk, type, timeouts.whole, timeouts.burst, data.at, data.size);
    return SERIALCOM_wait_request_done(lnk);
}

long read(SERIALCOM_link *lnk, SERIALD_REQUEST_TYPE type, const Timeouts &timeouts,
          const Data &data, void *dest, size_t sz_dest) {
    if (!request(lnk, type, timeouts, data))
        return -1;
    return static_cast<long>(
        SERIALCOM_retrive_request_data(lnk, static_cast<BYTE *>(dest), sz_dest));
}

} // namespace

namespace zeb {

bool make_request_room(SERIALCOM_link *lnk, size_t size) {
    if (lnk->r_buffer != nullptr && lnk->r_buffer_max >= size)
        return true;
    free(lnk->r_buffer);
    lnk->r_buffer_size = 0;
    lnk->r_buffer_max = UTIL_roundup_p2(static_cast<DWORD>(size));
    lnk->r_buffer = static_cast<BYTE *>(calloc(1, lnk->r_buffer_max));
    if (ZEB_CHECK_ERRNO(lnk->r_buffer != nullptr))
        return true;
    lnk->r_buffer_max = 0;
    return false;
}

void finish_request(SERIALCOM_link *lnk, SERIALCOM_REQUEST_STATUS result) {
    lnk->rq_stat = result;
    pthread_cond_broadcast(&lnk->req_cond);
}

} // namespace zeb

// ---- The core ----

void SERIALCOM_issue_request(SERIALCOM_link *lnk, SERIALD_REQUEST_TYPE rqt, double timeout,
                             double burst_timeout, const void *data, size_t szdata) {
    if (!ZEB_CHECK(lnk != nullptr))
        return;
    pthread_t *servicing;
    {
        ZEB_LOCK(guard, &lnk->mtx);
        if (!start_request(lnk, {rqt, timeout, burst_timeout}, data, szdata))
            return;
        servicing = lnk->thd;
    }
    zeb::wake_thread(servicing);
}

BOOL SERIALCOM_poll_request_done(SERIALCOM_link *lnk) {
    if (!ZEB_CHECK(lnk != nullptr))
        return TRUE;
    ZEB_LOCK(guard, &lnk->mtx);
    return is_done(lnk) ? TRUE : FALSE;
}

BOOL SERIALCOM_poll_request_success(SERIALCOM_link *lnk) {
    if (!ZEB_CHECK(lnk != nullptr))
        return FALSE;
    ZEB_LOCK(guard, &lnk->mtx);
    return has_succeeded(lnk) ? TRUE : FALSE;
}

BOOL SERIALCOM_wait_request_done(SERIALCOM_link *lnk) {
    if (!ZEB_CHECK(lnk != nullptr))
        return FALSE;
    ZEB_LOCK(guard, &lnk->mtx);
    while (!UTIL_exit_poll()) {
        if (lnk->stat != SERIALCOM_S_OPEN || is_done(lnk))
            return has_succeeded(lnk) ? TRUE : FALSE;
        zeb::wait_slice(&lnk->req_cond, &lnk->mtx, ZEB_HERE);
    }
    return FALSE;
}

size_t SERIALCOM_retrive_request_data(SERIALCOM_link *lnk, BYTE *dest, size_t szdest) {
    if (!ZEB_CHECK(lnk != nullptr))
        return k_no_data;
    ZEB_LOCK(guard, &lnk->mtx);
    if (!has_succeeded(lnk) || lnk->r_buffer == nullptr || lnk->r_buffer_max == 0)
        return k_no_data;
    // No room at all, not even for the terminator.
    if (!ZEB_CHECK(dest != nullptr) || !ZEB_CHECK(szdest != 0))
        return 0;
    const size_t size = std::min(lnk->r_buffer_size, szdest - 1);
    memcpy(dest, lnk->r_buffer, size);
    dest[size] = '\0';
    return size;
}

// ---- Line and server ----

void SERIALCOM_issue_flush(SERIALCOM_link *lnk, double timeout, double burst_timeout) {
    SERIALCOM_issue_request(lnk, SERIALD_REQUEST_FLUSH, timeout, burst_timeout, nullptr, 0);
}

BOOL SERIALCOM_flush(SERIALCOM_link *lnk, double timeout, double burst_timeout) {
    return request(lnk, SERIALD_REQUEST_FLUSH, {timeout, burst_timeout});
}

BOOL SERIALCOM_reset(SERIALCOM_link *lnk) {
    return request(lnk, SERIALD_REQUEST_RESET, k_unlimited);
}

void SERIALCOM_set_port_params(SERIALCOM_link *lnk, const SERIALD_port_params *pps) {
    if (ZEB_CHECK(pps != nullptr))
        request(lnk, SERIALD_REQUEST_SET_PORT_PARAMS, k_setting, {pps, sizeof *pps});
}

void SERIALCOM_set_int_params(SERIALCOM_link *lnk, const SERIALD_int_params *ips) {
    if (ZEB_CHECK(ips != nullptr))
        request(lnk, SERIALD_REQUEST_SET_INT_PARAMS, k_setting, {ips, sizeof *ips});
}

void SERIALCOM_add_repeater(SERIALCOM_link *lnk, const char *filename, BYTE mode,
                            BOOL line_buffer) {
    if (!ZEB_CHECK(filename != nullptr))
        return;
    SERIALD_repeater_add record = {};
    record.mode = mode;
    UTIL_strncpynt(record.filename, filename, sizeof record.filename);
    record.line_buffer = line_buffer;
    request(lnk, SERIALD_REQUEST_ADD_REPEATER, k_setting, {&record, sizeof record});
}

void SERIALCOM_delete_repeater(SERIALCOM_link *lnk, const char *filename) {
    if (!ZEB_CHECK(filename != nullptr))
        return;
    SERIALD_repeater_delete record = {};
    UTIL_strncpynt(record.filename, filename, sizeof record.filename);
    request(lnk, SERIALD_REQUEST_DEL_REPEATER, k_setting, {&record, sizeof record});
}

// ---- Writing ----

BOOL SERIALCOM_issue_write(SERIALCOM_link *lnk, const void *data, size_t n) {
    return request(lnk, SERIALD_REQUEST_WRITE, k_unlimited, {data, n});
}

BOOL SERIALCOM_issue_write_string(SERIALCOM_link *lnk, const char *s) {
    if (!ZEB_CHECK(s != nullptr))
        return FALSE;
    return request(lnk, SERIALD_REQUEST_WRITE, k_unlimited, text_data(s));
}

BOOL SERIALCOM_write_blocking(SERIALCOM_link *lnk, const void *data, size_t n, double timeout) {
    return request(lnk, SERIALD_REQUEST_BLOCKING_WRITE, {timeout, k_no_timeout}, {data, n});
}

BOOL SERIALCOM_write_string_blocking(SERIALCOM_link *lnk, const char *s, double timeout) {
    if (!ZEB_CHECK(s != nullptr))
        return FALSE;
    return request(lnk, SERIALD_REQUEST_BLOCKING_WRITE, {timeout, k_no_timeout}, text_data(s));
}

// ---- Reading ----

long SERIALCOM_read_new(SERIALCOM_link *lnk, void *dest, size_t sz_dest) {
    return read(lnk, SERIALD_REQUEST_READNEW, k_unlimited, k_none, dest, sz_dest);
}

long SERIALCOM_read_new_echo(SERIALCOM_link *lnk, void *dest, size_t sz_dest) {
    return read(lnk, SERIALD_REQUEST_READNEW_ECHO, k_unlimited, k_none, dest, sz_dest);
}

void SERIALCOM_issue_read_until(SERIALCOM_link *lnk, const void *stop_chars, size_t n,
                                double timeout, double burst_timeout) {
    SERIALCOM_issue_request(lnk, SERIALD_REQUEST_READUNTIL, timeout, burst_timeout, stop_chars, n);
}

void SERIALCOM_issue_read_until_string(SERIALCOM_link *lnk, const char *stop_chars_str,
                                       double timeout, double burst_timeout) {
    if (ZEB_CHECK(stop_chars_str != nullptr))
        SERIALCOM_issue_read_until(lnk, stop_chars_str, strlen(stop_chars_str), timeout,
                                   burst_timeout);
}

long SERIALCOM_read_until(SERIALCOM_link *lnk, const void *stop_chars, size_t n, double timeout,
                          double burst_timeout, void *dest, size_t sz_dest) {
    return read(lnk, SERIALD_REQUEST_READUNTIL, {timeout, burst_timeout}, {stop_chars, n}, dest,
                sz_dest);
}

long SERIALCOM_read_until_string(SERIALCOM_link *lnk, const char *stop_chars_str, double timeout,
                                 double burst_timeout, void *dest, size_t sz_dest) {
    if (!ZEB_CHECK(stop_chars_str != nullptr))
        return -1;
    return SERIALCOM_read_until(lnk, stop_chars_str, strlen(stop_chars_str), timeout, burst_timeout,
                                dest, sz_dest);
}

void SERIALCOM_issue_read_until_empty(SERIALCOM_link *lnk, const void *stop_chars, size_t n,
                                      double timeout, double burst_timeout) {
    SERIALCOM_issue_request(lnk, SERIALD_REQUEST_READUNTIL_EMPTY, timeout, burst_timeout,
                            stop_chars, n);
}

void SERIALCOM_issue_read_until_empty_string(SERIALCOM_link *lnk, const char *stop_chars_str,
                                             double timeout, double burst_timeout) {
    if (ZEB_CHECK(stop_chars_str != nullptr))
        SERIALCOM_issue_read_until_empty(lnk, stop_chars_str, strlen(stop_chars_str), timeout,
                                         burst_timeout);
}

long SERIALCOM_read_until_empty(SERIALCOM_link *lnk, const void *stop_chars, size_t n,
                                double timeout, double burst_timeout, void *dest, size_t sz_dest) {
    return read(lnk, SERIALD_REQUEST_READUNTIL_EMPTY, {timeout, burst_timeout}, {stop_chars, n},
                dest, sz_dest);
}

long SERIALCOM_read_until_empty_string(SERIALCOM_link *lnk, const char *stop_chars_str,
                                       double timeout, double burst_timeout, void *dest,
                                       size_t sz_dest) {
    if (!ZEB_CHECK(stop_chars_str != nullptr))
        return -1;
    return SERIALCOM_read_until_empty(lnk, stop_chars_str, strlen(stop_chars_str), timeout,
                                      burst_timeout, dest, sz_dest);
}

void SERIALCOM_issue_read_burst(SERIALCOM_link *lnk, double timeout, double burst_timeout) {
    SERIALCOM_issue_request(lnk, SERIALD_REQUEST_READBURST, timeout, burst_timeout, nullptr, 0);
}

long SERIALCOM_read_burst(SERIALCOM_link *lnk, double timeout, double burst_timeout, void *dest,
                          size_t sz_dest) {
    return read(lnk, SERIALD_REQUEST_READBURST, {timeout, burst_timeout}, k_none, dest, sz_dest);
}

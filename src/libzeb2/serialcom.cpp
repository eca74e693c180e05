#include "serialcom_int.h"

#include "diag.h"
#include "dispatch.h"
#include "util.h"

#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <cstring>

// The layout on the wire.
static_assert(sizeof(SERIALD_connect_params) == 256);
static_assert(sizeof(SERIALD_request_header) == 20);
static_assert(offsetof(SERIALD_request_header, timeout) == 4);
static_assert(offsetof(SERIALD_request_header, burst_timeout) == 12);
static_assert(sizeof(SERIALD_resp_header) == 4);
static_assert(sizeof(SERIALD_port_params) == 8);
static_assert(sizeof(SERIALD_int_params) == 12);
static_assert(sizeof(SERIALD_repeater_add) == 258);
static_assert(offsetof(SERIALD_repeater_add, line_buffer) == 257);
static_assert(sizeof(SERIALD_repeater_delete) == 256);

namespace {

constexpr char k_serial_socket[] = ".serialdsocket";
constexpr double k_departure_limit = 2.0;   // s, for the close request to leave
constexpr timespec k_cycle = {0, 50000000}; // pselect time-out of the link's own thread
constexpr double k_burst_margin = 0.02;     // s beyond the time of one character
constexpr SERIALD_port_params k_assumed_port = {9600, 8, 0, 1, 0};

// They work before their proper initialisation, which comes only after a successful connect.
constexpr pthread_mutex_t k_plain_mutex = PTHREAD_MUTEX_INITIALIZER;
constexpr pthread_cond_t k_plain_cond = PTHREAD_COND_INITIALIZER;

// ---- Port strings ----

constexpr char k_blanks[] = " \t\n\r";
constexpr char k_name_ends[] = ": \t\n\r";
constexpr size_t k_shortest_rest = 4; // characters from the separator to the end

void set_name(SERIALD_connect_params *params, const char *name, size_t length) {
    const size_t most = sizeof params->port_name - 1;
    memcpy(params->port_name, name, length < most ? length : most);
}

// The number may stand behind blanks; 0 and what no number of 32 bits can hold are refused.
bool read_baud(const char **at, DWORD *baud) {
    const char *digits = *at + strspn(*at, k_blanks);
    const auto [end, error] = std::from_chars(digits, digits + strlen(digits), *baud);
    *at = end;
    return error == std::errc() && *baud != 0;
}

bool read_parity(const char **at, BYTE *parity) {
    if (**at == '\0')
        return false;
    const char letter = *(*at)++;
    const bool odd = letter == 'o' || letter == 'O';
    const bool even = letter == 'e' || letter == 'E';
    *parity = odd ? 1 : even ? 2 : 0;
    return true;
}

bool read_digit(const char **at, BYTE *value) {
    if (**at < '0' || **at > '9')
        return false;
    *value = static_cast<BYTE>(*(*at)++ - '0');
    return true;
}

bool read_settings(const char *at, SERIALD_port_params *params) {
    SERIALD_port_params read = {};
    DWORD baud = 0;
    if (!read_baud(&at, &baud) || !read_parity(&at, &read.parity) || !read_digit(&at, &read.bits) ||
        !read_digit(&at, &read.stop_bits))
        return false;
    read.baud = baud;
    *params = read;
    return true;
}

// ---- Connecting ----

void reset_link(SERIALCOM_link *conn, const SERIALD_connect_params *cp) {
    conn->stat = SERIALCOM_S_UNINITIALIZED;
    conn->fh = -1;
    conn->clear_fh = -1;
    NETMSG_init_buffer(&conn->rx);
    NETMSG_init_buffer(&conn->tx);
    conn->tx_buff_size = 0;
    conn->last_rx_time = UTIL_ftime();
    conn->next_hb_time = conn->last_rx_time;
    UTIL_strncpynt(conn->cps.port_name, cp->port_name, sizeof conn->cps.port_name);
    conn->pps = k_assumed_port;
    conn->rq_stat = SERIALCOM_RS_NONE;
    conn->rq_header = {};
    conn->resp_header = {};
    conn->r_buffer = nullptr;
    conn->r_buffer_size = 0;
    conn->r_buffer_max = 0;
    conn->mtx = k_plain_mutex;
    conn->req_cond = k_plain_cond;
    conn->thd = nullptr;
    conn->clock_offset = 0;
    zeb::clock_step(conn->last_rx_time, &conn->clock_offset);
}

bool connect_socket(SERIALCOM_link *conn) {
    conn->fh = zeb::stream_socket(AF_UNIX);
    if (!ZEB_CHECK_ERRNO(conn->fh != -1) || !zeb::select_fits(conn->fh))
        return false;
    if (zeb::connect_local(conn->fh, k_serial_socket))
        return true;
    ZEB_REPORT_ERRNO("Unable to connect to serial server socket - it should be running by now...");
    return false;
}

// ---- The link's own thread ----

void drop_after_failed_select(SERIALCOM_link *lnk, int error) {
    errno = error;
    ZEB_REPORT_ERRNO("Select failed");
    ZEB_LOCK(guard, &lnk->mtx);
    zeb::link_lost(lnk);
}

constexpr zeb::LinkHooks<SERIALCOM_link> k_hooks = {
    SERIALCOM_dispatch_init,          SERIALCOM_dispatch_pre_select, SERIALCOM_dispatch_post_select,
    SERIALCOM_dispatch_loop_continue, drop_after_failed_select,
};

void *serve_link(void *param) {
    zeb::prepare_thread(zeb::Wakeups::always);
    zeb::LinkLoop(static_cast<SERIALCOM_link *>(param), k_hooks, k_cycle).run();
    return nullptr;
}

// ---- Disconnecting ----

SERIALCOM_LINK_STATUS status_of(SERIALCOM_link *lnk) {
    ZEB_LOCK(guard, &lnk->mtx);
    return lnk->stat;
}

// False when there is no server to tell.
bool notify_close(SERIALCOM_link *lnk, pthread_t **servicing) {
    ZEB_LOCK(guard, &lnk->mtx);
    if (lnk->stat < SERIALCOM_S_SEND_HANDSHAKE || lnk->stat > SERIALCOM_S_OPEN)
        return false;
    ZEB_REPORT("Notifying serial server disconnect");
    lnk->stat = SERIALCOM_S_NOTIFY_CLOSE;
    *servicing = lnk->thd;
    return true;
}

bool has_departed(SERIALCOM_link *lnk) {
    const SERIALCOM_LINK_STATUS stat = status_of(lnk);
    return stat == SERIALCOM_S_CLOSE_DONE || stat < SERIALCOM_S_SEND_HANDSHAKE;
}

// A record that was zeroed and never connected names descriptor 0, which is not the link's.
bool is_zeroed(const SERIALCOM_link *lnk) {
    return lnk->fh == 0 && lnk->clear_fh == 0;
}

// False when the link was not set up.
bool clean_up(SERIALCOM_link *lnk) {
    // A servicing thread that has lost the link may still be about to release the mutex.
    ZEB_LOCK(guard, &lnk->mtx);
    zeb::close_socket(&lnk->fh, &lnk->clear_fh);
    NETMSG_delete_buffer(&lnk->rx);
    NETMSG_delete_buffer(&lnk->tx);
    free(lnk->r_buffer);
    lnk->r_buffer = nullptr;
    lnk->r_buffer_size = 0;
    lnk->r_buffer_max = 0;
    lnk->tx_buff_size = 0;
    const bool was_set_up = lnk->stat != SERIALCOM_S_UNINITIALIZED;
    lnk->stat = SERIALCOM_S_UNINITIALIZED;
    return was_set_up;
}

} // namespace

BOOL SERIALCOM_breakdown_port_string(const char *str, SERIALD_connect_params *sc_params,
                                     SERIALD_port_params *port_params) {
    if (!ZEB_CHECK(sc_params != nullptr) || !ZEB_CHECK(port_params != nullptr))
        return FALSE;
    *sc_params = {};
    *port_params = {};
    if (!ZEB_CHECK(str != nullptr))
        return FALSE;
    const size_t length = strlen(str);
    if (length >= 2 && str[0] == '=') {
        set_name(sc_params, str, length);
        return TRUE;
    }
    const size_t name_length = strcspn(str, k_name_ends);
    if (length - name_length < k_shortest_rest)
        return FALSE;
    set_name(sc_params, str, name_length);
    return read_settings(str + name_length + 1, port_params) ? TRUE : FALSE;
}

double SERIALCOM_burst_timeout(SERIALCOM_link *lnk) {
    if (!ZEB_CHECK(lnk != nullptr))
        return k_burst_margin;
    ZEB_LOCK(guard, &lnk->mtx);
    const int bits = lnk->pps.bits + (lnk->pps.parity != 0 ? 1 : 0) + lnk->pps.stop_bits;
    return bits / static_cast<double>(lnk->pps.baud) + k_burst_margin;
}

BOOL SERIALCOM_multi_connect(SERIALD_connect_params *cp, SERIALCOM_link *conn) {
    if (!ZEB_CHECK(conn != nullptr) || !ZEB_CHECK(cp != nullptr))
        return FALSE;
    reset_link(conn, cp);
    if (!connect_socket(conn))
        return FALSE;
    ZEB_REPORT("Connected to serial server socket (%d), begining handshake sequeuence", conn->fh);
    conn->stat = SERIALCOM_S_SEND_HANDSHAKE;
    return ZEB_CHECK_CALL(pthread_mutex_init(&conn->mtx, nullptr)) &&
                   ZEB_CHECK_CALL(pthread_cond_init(&conn->req_cond, nullptr))
               ? TRUE
               : FALSE;
}

BOOL SERIALCOM_connect(SERIALD_connect_params *cp, SERIALCOM_link *conn) {
    if (!SERIALCOM_multi_connect(cp, conn))
        return FALSE;
    return zeb::start_thread(&conn->thd, serve_link, conn, ZEB_HERE) ? TRUE : FALSE;
}

BOOL SERIALCOM_test_connected(SERIALCOM_link *lnk) {
    return ZEB_CHECK(lnk != nullptr) && status_of(lnk) == SERIALCOM_S_OPEN ? TRUE : FALSE;
}

int SERIALCOM_test_connected_ext(SERIALCOM_link *lnk) {
    if (!ZEB_CHECK(lnk != nullptr))
        return -1;
    switch (status_of(lnk)) {
    case SERIALCOM_S_OPEN:
        return 1;
    case SERIALCOM_S_SEND_HANDSHAKE:
    case SERIALCOM_S_AWAITING_HANDSHAKE:
        return 0;
    default:
        return -1;
    }
}

BOOL SERIALCOM_wait_connected(SERIALCOM_link *lnk) {
    int progress;
    while ((progress = SERIALCOM_test_connected_ext(lnk)) == 0)
        UTIL_sched_yield();
    return progress == 1 ? TRUE : FALSE;
}

void SERIALCOM_multi_disconnect(SERIALCOM_link *lnk) {
    pthread_t *servicing = nullptr;
    if (!ZEB_CHECK(lnk != nullptr) || !notify_close(lnk, &servicing))
        return;
    zeb::wake_thread(servicing);
    const double limit = zeb::steady_time() + k_departure_limit;
    while (!has_departed(lnk) && zeb::steady_time() < limit)
        UTIL_sched_yield();
}

void SERIALCOM_multi_destroy(SERIALCOM_link *lnk) {
    if (!ZEB_CHECK(lnk != nullptr) || is_zeroed(lnk) || !clean_up(lnk))
        return;
    ZEB_CHECK_CALL(pthread_cond_destroy(&lnk->req_cond));
    ZEB_REPORT("Disconnected from serial server");
}

void SERIALCOM_disconnect(SERIALCOM_link *lnk) {
    if (!ZEB_CHECK(lnk != nullptr))
        return;
    const SERIALCOM_LINK_STATUS before = status_of(lnk);
    if (before == SERIALCOM_S_UNINITIALIZED)
        return;
    SERIALCOM_multi_disconnect(lnk);
    if (before > SERIALCOM_S_UNLINKED && lnk->thd != nullptr &&
        !zeb::stop_thread(&lnk->thd, ZEB_HERE))
        return;
    SERIALCOM_multi_destroy(lnk);
}

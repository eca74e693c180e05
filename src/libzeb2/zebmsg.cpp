#include "zebmsg_int.h"

#include "diag.h"
#include "dispatch.h"
#include "util.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int k_default_port = 8567;
constexpr char k_main_socket[] = ".mainsocket";
constexpr double k_departure_limit = 2.0; // s, for the closing message to leave
constexpr timespec k_cycle = {1, 0};      // pselect time-out of the link's own thread

// A mutex that works before its proper initialisation, which comes only after a successful connect.
constexpr pthread_mutex_t k_plain_mutex = PTHREAD_MUTEX_INITIALIZER;

// ---- Connecting ----

void reset_link(ZEBMSG_link *conn, const char *id_str) {
    conn->stat = ZEBMSG_S_UNINITIALIZED;
    conn->fh = -1;
    conn->clear_fh = -1;
    conn->msg_filter_next_uid = 1;
    NETMSG_init_buffer(&conn->tx_stream);
    NETMSG_init_buffer(&conn->rx_stream);
    LL_init(&conn->tx_queue);
    LL_init(&conn->rx_queue);
    LL_init(&conn->rx_lib_queue);
    conn->tx_buff_size = 0;
    conn->last_hb = ~0U;
    conn->last_rx_time = UTIL_ftime();
    conn->next_hb_time = conn->last_rx_time;
    LL_init(&conn->known_insts);
    LL_init(&conn->cl_rx);
    LL_init(&conn->cl_rx_lib);
    LL_init(&conn->cl_lib_cbs);
    UTIL_strncpynt(conn->name, id_str != nullptr ? id_str : "", sizeof conn->name);
    conn->mtx = k_plain_mutex;
    conn->thd = nullptr;
    conn->clock_offset = 0;
    zeb::clock_step(conn->last_rx_time, &conn->clock_offset);
    conn->tx_load = {};
    conn->rx_load = {};
    conn->rx_lib_load = {};
    conn->insts_full = FALSE;
}

const char *wanted_host(const ZEBMSG_connect_params *cp) {
    const char *host = getenv("ZEB2SERVER");
    return host != nullptr && host[0] != '\0' ? host : cp->host_override;
}

// "host:9000" is cut at its colon; a text after the colon that is no number, or 0, stays.
int cut_port(char *host) {
    char *colon = strchr(host, ':');
    const int port = colon != nullptr ? atoi(colon + 1) : 0;
    if (port == 0)
        return k_default_port;
    *colon = '\0';
    return port;
}

bool connect_tcp(ZEBMSG_link *conn, const char *wanted) {
    char host[256];
    UTIL_strncpynt(host, wanted, sizeof host);
    const int port = cut_port(host);
    in_addr address;
    if (!zeb::resolve_host(host, &address)) {
        ZEB_REPORT("Failed to find remote server host \"%s\": %s", host, UTIL_hstrerror(h_errno));
        return false;
    }
    conn->fh = zeb::stream_socket(AF_INET);
    if (!ZEB_CHECK_ERRNO(conn->fh != -1) || !zeb::select_fits(conn->fh))
        return false;
    if (!zeb::connect_host(conn->fh, address, port)) {
        ZEB_REPORT_ERRNO("Unable to connect to remote host \"%s\" port %d - is the server running?",
                         host, port);
        return false;
    }
    return true;
}

bool connect_unix(ZEBMSG_link *conn) {
    conn->fh = zeb::stream_socket(AF_UNIX);
    if (!ZEB_CHECK_ERRNO(conn->fh != -1) || !zeb::select_fits(conn->fh))
        return false;
    if (!zeb::connect_local(conn->fh, k_main_socket)) {
        ZEB_REPORT_ERRNO("Unable to connect to unix socket - is the server running?");
        return false;
    }
    return true;
}

void queue_handshake(ZEBMSG_link *conn) {
    NET_SERVER_ClientHandshake handshake = {};
    memcpy(handshake.name, conn->name, sizeof handshake.name);
    ZEBMSG_queue_message_lib(conn, MSG_SERVER_CLIENTHANDSHAKE, 0, nullptr, &handshake,
                             sizeof handshake, "NET_SERVER_ClientHandshake", FALSE);
}

// ---- The link's own thread ----

void close_after_failed_select(ZEBMSG_link *lnk, int error) {
    ZEB_LOCK(guard, &lnk->mtx);
    // A disconnect from another thread may close the socket just before the select.
    if (lnk->fh == -1 && error == EBADF)
        return;
    errno = error;
    ZEB_REPORT_ERRNO("Select failed");
    zeb::link_lost(lnk);
}

constexpr zeb::LinkHooks<ZEBMSG_link> k_hooks = {
    ZEBMSG_dispatch_init,          ZEBMSG_dispatch_pre_select, ZEBMSG_dispatch_post_select,
    ZEBMSG_dispatch_loop_continue, close_after_failed_select,
};

void *serve_link(void *param) {
    zeb::prepare_thread(zeb::Wakeups::never);
    zeb::LinkLoop(static_cast<ZEBMSG_link *>(param), k_hooks, k_cycle).run();
    return nullptr;
}

// ---- Disconnecting ----

bool is_up(const ZEBMSG_link *lnk) {
    return lnk->stat >= ZEBMSG_S_AWAITING_HANDSHAKE;
}

// Queues the closing message; false when there is no server to tell.
bool announce_closing(ZEBMSG_link *lnk, pthread_t **servicing) {
    ZEB_LOCK(guard, &lnk->mtx);
    if (!is_up(lnk))
        return false;
    ZEB_REPORT("Notifying server of socket closing");
    zeb::clear_queue(&lnk->tx_queue, &lnk->tx_load);
    ZEBMSG_queue_message_lib(lnk, MSG_SERVER_TERMINATE, 0, nullptr, nullptr, 0, nullptr, FALSE);
    *servicing = lnk->thd;
    return true;
}

bool has_departed(ZEBMSG_link *lnk) {
    ZEB_LOCK(guard, &lnk->mtx);
    // Without a socket nothing can leave any more.
    if (!is_up(lnk) || lnk->fh == -1)
        return true;
    return lnk->tx_queue.head == nullptr && lnk->tx_buff_size == 0 &&
           !NETMSG_buffer_pending(&lnk->tx_stream);
}

void close_if_up(ZEBMSG_link *lnk) {
    ZEB_LOCK(guard, &lnk->mtx);
    if (is_up(lnk))
        zeb::link_lost(lnk);
}

ZEBMSG_LINK_STATUS status_of(ZEBMSG_link *lnk) {
    ZEB_LOCK(guard, &lnk->mtx);
    return lnk->stat;
}

// 1 open, 0 still waiting for the handshake, -1 no longer possible.
int handshake_progress(ZEBMSG_link *lnk) {
    ZEB_LOCK(guard, &lnk->mtx);
    if (lnk->stat == ZEBMSG_S_OPEN)
        return 1;
    // A lost link keeps its status until a pre-select, which an ended own thread never runs.
    return is_up(lnk) && lnk->fh != -1 ? 0 : -1;
}

void clean_up(ZEBMSG_link *lnk) {
    zeb::link_lost(lnk);
    lnk->name[0] = '\0';
    lnk->tx_buff_size = 0;
    zeb::clear_queue(&lnk->tx_queue, &lnk->tx_load);
    zeb::clear_queue(&lnk->rx_queue, &lnk->rx_load);
    zeb::clear_queue(&lnk->rx_lib_queue, &lnk->rx_lib_load);
    zeb::clear_library_procs(lnk);
    LL_clear(&lnk->known_insts);
    NETMSG_delete_buffer(&lnk->tx_stream);
    NETMSG_delete_buffer(&lnk->rx_stream);
}

} // namespace

void ZEBMSG_init_params(ZEBMSG_connect_params *cp) {
    cp->id_str = nullptr;
    cp->host_override = nullptr;
}

char *ZEBMSG_get_host_str(CONF_node *root, CONF_node *local) {
    static char host[256];
    const char *value = local != nullptr ? CONF_lookup(local, "RemoteHost") : nullptr;
    if (value == nullptr && root != nullptr)
        value = CONF_lookup(root, "RemoteHost");
    if (value == nullptr)
        return nullptr;
    if (strlen(value) >= sizeof host)
        ZEB_REPORT("RemoteHost is cut to %zu characters: %s", sizeof host - 1, value);
    UTIL_strncpynt(host, value, sizeof host);
    return host;
}

BOOL ZEBMSG_multi_connect(ZEBMSG_connect_params *cp, ZEBMSG_link *conn) {
    reset_link(conn, cp->id_str);
    const char *host = wanted_host(cp);
    conn->stat = ZEBMSG_S_UNLINKED;
    const bool remote = host != nullptr && host[0] != '\0';
    if (!(remote ? connect_tcp(conn, host) : connect_unix(conn)))
        return FALSE;
    ZEB_REPORT("Message socket (%d) connected, begining handshake sequeuence", conn->fh);
    queue_handshake(conn);
    conn->stat = ZEBMSG_S_AWAITING_HANDSHAKE;
    return ZEB_CHECK_CALL(pthread_mutex_init(&conn->mtx, nullptr)) ? TRUE : FALSE;
}

BOOL ZEBMSG_connect(ZEBMSG_connect_params *cp, ZEBMSG_link *conn) {
    if (!ZEBMSG_multi_connect(cp, conn))
        return FALSE;
    return zeb::start_thread(&conn->thd, serve_link, conn, ZEB_HERE) ? TRUE : FALSE;
}

BOOL ZEBMSG_test_connected(ZEBMSG_link *lnk) {
    return status_of(lnk) == ZEBMSG_S_OPEN ? TRUE : FALSE;
}

int ZEBMSG_test_connected_ext(ZEBMSG_link *lnk) {
    const ZEBMSG_LINK_STATUS stat = status_of(lnk);
    if (stat < ZEBMSG_S_AWAITING_HANDSHAKE)
        return -1;
    return stat == ZEBMSG_S_OPEN ? 1 : 0;
}

BOOL ZEBMSG_wait_connected(ZEBMSG_link *lnk) {
    int progress;
    while ((progress = handshake_progress(lnk)) == 0)
        UTIL_sched_yield();
    return progress == 1 ? TRUE : FALSE;
}

void ZEBMSG_multi_disconnect(ZEBMSG_link *lnk) {
    pthread_t *servicing = nullptr;
    if (!announce_closing(lnk, &servicing))
        return;
    zeb::wake_thread(servicing);
    const double limit = zeb::steady_time() + k_departure_limit;
    while (!has_departed(lnk) && zeb::steady_time() < limit)
        UTIL_sched_yield();
    close_if_up(lnk);
}

void ZEBMSG_multi_destroy(ZEBMSG_link *lnk) {
    clean_up(lnk);
    lnk->stat = ZEBMSG_S_UNINITIALIZED;
    ZEB_REPORT("Disconnected socket");
}

void ZEBMSG_disconnect(ZEBMSG_link *lnk) {
    const ZEBMSG_LINK_STATUS before = status_of(lnk);
    if (before == ZEBMSG_S_UNINITIALIZED)
        return;
    ZEBMSG_multi_disconnect(lnk);
    if (before >= ZEBMSG_S_AWAITING_HANDSHAKE && lnk->thd != nullptr &&
        !zeb::stop_thread(&lnk->thd, ZEB_HERE))
        return;
    ZEBMSG_multi_destroy(lnk);
}

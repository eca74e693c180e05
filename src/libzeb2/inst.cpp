#include "inst_int.h"

#include "diag.h"
#include "dispatch.h"
#include "util.h"
#include "zebfile.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>

namespace {

constexpr double k_sleep_slice = 0.25; // s

// A mutex that works before its proper initialisation, which comes last of all.
constexpr pthread_mutex_t k_plain_mutex = PTHREAD_MUTEX_INITIALIZER;

// ---- Connecting ----

void reset_link(INST_link *lnk) {
    memset(lnk, 0, sizeof *lnk);
    LL_init(&lnk->ext_sc_links);
    lnk->mtx = k_plain_mutex;
}

bool connect_one_further(INST_link *lnk, SERIALCOM_link *serial, SERIALD_connect_params *params) {
    memset(serial, 0, sizeof *serial);
    if (!SERIALCOM_multi_connect(params, serial))
        return false;
    const INST_ext_link ext = {serial, TRUE};
    return LL_insert_tail(&lnk->ext_sc_links, &ext, sizeof ext) != nullptr;
}

// A null link ends the pairs too: nothing can be read behind a list that was ended so.
bool connect_further(INST_link *lnk, va_list pairs) {
    while (SERIALCOM_link *serial = va_arg(pairs, SERIALCOM_link *)) {
        SERIALD_connect_params *params = va_arg(pairs, SERIALD_connect_params *);
        if (params == nullptr)
            break;
        if (!connect_one_further(lnk, serial, params))
            return false;
    }
    return true;
}

bool connect_message(INST_link *lnk, ZEBMSG_connect_params *params) {
    lnk->status_ok = TRUE;
    if (!ZEBFILE_multi_init() || !ZEBMSG_multi_connect(params, &lnk->msg_lnk))
        return false;
    lnk->msg_lnk_up = TRUE;
    return true;
}

bool connect_serial(SERIALCOM_link *serial, SERIALD_connect_params *params, BOOL *enabled,
                    BOOL *up) {
    if (params == nullptr)
        return true;
    *enabled = TRUE;
    if (!SERIALCOM_multi_connect(params, serial))
        return false;
    *up = TRUE;
    return true;
}

bool start_dispatch(INST_link *lnk) {
    if (ZEB_CHECK_CALL(pthread_mutex_init(&lnk->mtx, nullptr)) &&
        zeb::start_thread(&lnk->thd, zeb::serve_instrument, lnk, ZEB_HERE))
        return true;
    // Nobody services the links, so nobody must wait for them.
    lnk->status_ok = FALSE;
    return false;
}

// ---- State; with the link's mutex held ----

bool is_up(const INST_link *lnk) {
    return lnk->status_ok && lnk->msg_lnk_up && (!lnk->sc_lnk_enabled || lnk->sc_lnk_up) &&
           (!lnk->log_sc_lnk_enabled || lnk->log_sc_lnk_up);
}

BOOL is_further_open(void *data, void *) {
    const INST_ext_link *ext = zeb::ext_of(data);
    return ext->lnk_up && SERIALCOM_test_connected(ext->lnk);
}

// Goes on while links are open. -1 of the link itself counts as open: only the dispatch thread says
// that a further link is lost.
BOOL note_further_progress(void *data, void *param) {
    const INST_ext_link *ext = zeb::ext_of(data);
    int *progress = static_cast<int *>(param);
    if (!ext->lnk_up)
        *progress = -1;
    else if (SERIALCOM_test_connected_ext(ext->lnk) == 0)
        *progress = 0;
    return *progress == 1;
}

int further_progress(INST_link *lnk) {
    int progress = 1;
    LL_transverse_until_forwards(&lnk->ext_sc_links, note_further_progress, &progress);
    return progress;
}

// 1 every link open, 0 some still waiting for the handshake, -1 no longer possible.
int handshake_progress(INST_link *lnk) {
    ZEB_LOCK(guard, &lnk->mtx);
    if (!is_up(lnk))
        return -1;
    return std::min({ZEBMSG_test_connected_ext(&lnk->msg_lnk),
                     lnk->sc_lnk_enabled ? SERIALCOM_test_connected_ext(&lnk->sc_lnk) : 1,
                     lnk->log_sc_lnk_enabled ? SERIALCOM_test_connected_ext(&lnk->log_sc_lnk) : 1,
                     further_progress(lnk)});
}

bool has_log_line(INST_link *lnk) {
    ZEB_LOCK(guard, &lnk->mtx);
    return lnk->log_sc_lnk_enabled && lnk->log_sc_lnk_up;
}

// ---- Disconnecting ----

bool is_flag_set(INST_link *lnk, const BOOL *flag) {
    ZEB_LOCK(guard, &lnk->mtx);
    return *flag != FALSE;
}

// The list itself is nobody else's to change, so each link is looked at in its turn.
void take_leave(INST_link *lnk) {
    if (is_flag_set(lnk, &lnk->sc_lnk_up))
        SERIALCOM_multi_disconnect(&lnk->sc_lnk);
    if (is_flag_set(lnk, &lnk->log_sc_lnk_up))
        SERIALCOM_multi_disconnect(&lnk->log_sc_lnk);
    if (is_flag_set(lnk, &lnk->msg_lnk_up))
        ZEBMSG_multi_disconnect(&lnk->msg_lnk);
    for (const LL_NODE *node = lnk->ext_sc_links.head; node != nullptr; node = node->next) {
        const INST_ext_link *ext = zeb::ext_of(node->data);
        if (is_flag_set(lnk, &ext->lnk_up))
            SERIALCOM_multi_disconnect(ext->lnk);
    }
}

void destroy_serial(SERIALCOM_link *serial, BOOL *enabled, BOOL *up) {
    if (*enabled)
        SERIALCOM_multi_destroy(serial);
    *enabled = FALSE;
    *up = FALSE;
}

void destroy_further(void *data, void *) {
    SERIALCOM_multi_destroy(zeb::ext_of(data)->lnk);
}

// Without a dispatch thread. What was never connected holds nothing, and before the message link
// the table of descriptors is not this link's.
void destroy_links(INST_link *lnk) {
    const bool was_prepared = lnk->msg_lnk.stat != ZEBMSG_S_UNINITIALIZED;
    destroy_serial(&lnk->sc_lnk, &lnk->sc_lnk_enabled, &lnk->sc_lnk_up);
    destroy_serial(&lnk->log_sc_lnk, &lnk->log_sc_lnk_enabled, &lnk->log_sc_lnk_up);
    if (was_prepared)
        ZEBMSG_multi_destroy(&lnk->msg_lnk);
    lnk->msg_lnk_up = FALSE;
    LL_transverse_forwards(&lnk->ext_sc_links, destroy_further, nullptr);
    if (was_prepared)
        ZEBFILE_multi_destroy();
    LL_clear(&lnk->ext_sc_links);
}

} // namespace

BOOL INST_connect(INST_link *lnk, ZEBMSG_connect_params *msg_params,
                  SERIALD_connect_params *sc_params, SERIALD_connect_params *log_sc_params, ...) {
    if (!ZEB_CHECK(lnk != nullptr))
        return FALSE;
    reset_link(lnk);
    if (!ZEB_CHECK(msg_params != nullptr))
        return FALSE;
    va_list pairs;
    va_start(pairs, log_sc_params);
    const bool further_connected = connect_further(lnk, pairs);
    va_end(pairs);
    return further_connected && connect_message(lnk, msg_params) &&
                   connect_serial(&lnk->sc_lnk, sc_params, &lnk->sc_lnk_enabled, &lnk->sc_lnk_up) &&
                   connect_serial(&lnk->log_sc_lnk, log_sc_params, &lnk->log_sc_lnk_enabled,
                                  &lnk->log_sc_lnk_up) &&
                   start_dispatch(lnk)
               ? TRUE
               : FALSE;
}

BOOL INST_test_connected(INST_link *lnk) {
    if (!ZEB_CHECK(lnk != nullptr))
        return FALSE;
    ZEB_LOCK(guard, &lnk->mtx);
    return is_up(lnk) && ZEBMSG_test_connected(&lnk->msg_lnk) &&
                   (!lnk->sc_lnk_enabled || SERIALCOM_test_connected(&lnk->sc_lnk)) &&
                   (!lnk->log_sc_lnk_enabled || SERIALCOM_test_connected(&lnk->log_sc_lnk)) &&
                   LL_transverse_until_forwards(&lnk->ext_sc_links, is_further_open, nullptr) ==
                       nullptr
               ? TRUE
               : FALSE;
}

BOOL INST_wait_connected(INST_link *lnk) {
    if (!ZEB_CHECK(lnk != nullptr))
        return FALSE;
    int progress;
    while ((progress = handshake_progress(lnk)) == 0)
        UTIL_sched_yield();
    return progress == 1 ? TRUE : FALSE;
}

BOOL INST_sleep(INST_link *lnk, double time) {
    if (!ZEB_CHECK(lnk != nullptr))
        return FALSE;
    const double end = zeb::steady_time() + time;
    while (INST_test_connected(lnk) && !UTIL_exit_poll()) {
        const double left = end - zeb::steady_time();
        if (!(left > 0))
            return TRUE;
        UTIL_fsleep(std::min(left, k_sleep_slice));
    }
    return FALSE;
}

void INST_logecho(INST_link *lnk, const char *rec) {
    if (ZEB_CHECK(lnk != nullptr) && ZEB_CHECK(rec != nullptr) && has_log_line(lnk))
        SERIALCOM_issue_write_string(&lnk->log_sc_lnk, rec);
}

void INST_disconnect(INST_link *lnk) {
    if (!ZEB_CHECK(lnk != nullptr))
        return;
    // Without the thread nobody would carry a farewell.
    if (lnk->thd != nullptr) {
        take_leave(lnk);
        if (!zeb::stop_thread(&lnk->thd, ZEB_HERE))
            return;
    }
    destroy_links(lnk);
}

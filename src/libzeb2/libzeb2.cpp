#include "libzeb2.h"

#include "diag.h"

#include <cerrno>
#include <csignal>
#include <cstdio>

namespace {

int g_libzeb2_sysinit = 0;

void set_title(const char *id) {
    if (!ZEB_CHECK(id != nullptr))
        id = "";
    char *title = g_dbg_msg_title_static;
    snprintf(title, sizeof g_dbg_msg_title_static, "%s: ", id);
    title[sizeof g_dbg_msg_title_static - 1] = '\0';
    g_dbg_msg_title = title;
}

void make_wake_up_deliverable() {
    sigset_t wake_up;
    sigemptyset(&wake_up);
    sigaddset(&wake_up, SIGUSR1);
    pthread_sigmask(SIG_UNBLOCK, &wake_up, nullptr);
    sigprocmask(SIG_UNBLOCK, &wake_up, nullptr);
    struct sigaction action = {};
    action.sa_handler = UTIL_empty_sighandler;
    action.sa_mask = wake_up;
    // No SA_RESTART: a wake-up is worth nothing unless the blocking call returns.
    ZEB_CHECK_ERRNO(sigaction(SIGUSR1, &action, nullptr) == 0);
}

} // namespace

BOOL LIBZEB_init(const char *id) {
    set_title(id);
    g_libzeb2_sysinit = 0;
    CRC16_inittable();
    UTIL_init();
    if (!EVENTAT_init())
        return FALSE;
    make_wake_up_deliverable();
    ++g_libzeb2_sysinit;
    return TRUE;
}

void LIBZEB_cleanup(void) {
    if (g_libzeb2_sysinit > 0)
        EVENTAT_cleanup();
    g_libzeb2_sysinit = 0;
}

/* Needs a message server; ends by SIGTERM. */
#include <zeb2/libzeb2.h>

#include "check.h"
#include <string.h>

static void on_message(ZEBMSG_proc_msg *message, void *param) {
    (void)message;
    (void)param;
}

int main(void) {
    NET_NEPH_Instant rec;
    CONF_node *root = CONF_alloc(), *local = CONF_lookup_tree(root, "");
    CHECK(LIBZEB_init("neph1"));
    NETPACK_fill_mvc(&rec, "NET_NEPH_Instant", sizeof rec);
    UTIL_exit_signal_poll_setup();
#include "zebmsg.1.function"
    CHECK(UTIL_exit_poll());
    CONF_free(root);
    LIBZEB_cleanup();
    return 0;
}

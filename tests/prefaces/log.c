/* Needs a message server, and the directory that its argument names; ends by SIGTERM. */
#include <zeb2/libzeb2.h>

#include "check.h"

static INST_link inst;
static double read_instrument(void) {
    return 12.5;
}
static void on_message(ZEBMSG_proc_msg *message, void *param) {
    (void)message;
    (void)param;
}
#include "log.1.file"

static int work(CONF_node *root, CONF_node *local) {
#include "log.1.function"
    return 0;
}

int main(int argc, char **argv) {
    ZEBMSG_connect_params msg;
    CONF_node *root = CONF_alloc();
    CHECK(argc == 2);
    CONF_set(root, "Disk;LogDir", argv[1]);
    CONF_set(root, "Disk;StationID", "abc");
    CONF_set(root, "logger1;fil;name", "X1");
    CHECK(LIBZEB_init("logger1"));
    UTIL_exit_signal_poll_setup();
    ZEBMSG_init_params(&msg);
    msg.id_str = "logger1";
    CHECK(INST_connect(&inst, &msg, NULL, NULL, NULL, NULL) && INST_wait_connected(&inst));
    CHECK(work(root, CONF_lookup_tree(root, "logger1")) == 0);
    INST_disconnect(&inst);
    CONF_free(root);
    LIBZEB_cleanup();
    return 0;
}

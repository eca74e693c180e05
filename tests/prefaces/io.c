/* Needs a message server. */
#include <zeb2/libzeb2.h>

#include "check.h"
#include <string.h>

static int reads;
static BOOL read_channel(const char *name, void *pd, double *value) {
    CHECK(strcmp(name, "T1") == 0 && pd == NULL);
    *value = 0.6;
    ++reads;
    return TRUE;
}
static void define(IO_define_real_input_in *in, IO_define_real_input_out *out) {
    CHECK(strcmp(in->channel, "3") == 0);
    out->valid = TRUE;
    out->get = read_channel;
}
static void on_message(ZEBMSG_proc_msg *message, void *param) {
    (void)message;
    (void)param;
}

int main(void) {
    ZEBMSG_connect_params server;
    ZEBMSG_link lnk;
    CONF_node *local = CONF_alloc();
    CONF_set(local, "analog;T1;chan", "3");
    CONF_set(local, "analog;T1;cal", "-40;100");
    CHECK(LIBZEB_init("weather"));
    ZEBMSG_init_params(&server);
    server.id_str = "weather";
    CHECK(ZEBMSG_connect(&server, &lnk) && ZEBMSG_wait_connected(&lnk));
#include "io.1.function"
    CHECK(reads == 1);
#include "io.2.function"
    CONF_free(local);
    LIBZEB_cleanup();
    return 0;
}

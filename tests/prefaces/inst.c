/* Needs a message server and a serial server with the line "=line"; ends by SIGTERM. */
#include <zeb2/libzeb2.h>

#include "check.h"

static void on_message(ZEBMSG_proc_msg *message, void *param) {
    (void)message;
    (void)param;
}

int main(void) {
    ZEBMSG_connect_params msg;
    SERIALD_connect_params port;
    SERIALD_port_params settings;
    CHECK(LIBZEB_init("pump1"));
    UTIL_exit_signal_poll_setup();
    ZEBMSG_init_params(&msg);
    msg.id_str = "pump1";
    CHECK(SERIALCOM_breakdown_port_string("=line", &port, &settings));
#include "inst.1.function"
    CHECK(UTIL_exit_poll());
    LIBZEB_cleanup();
    return 0;
}

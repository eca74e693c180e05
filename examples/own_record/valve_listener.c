/* Prints what a valve publishes; built with the same catalogue. */
#include <zeb2/libzeb2.h>

#include <stdio.h>
#include <string.h>

static void received(ZEBMSG_proc_msg *message, void *param) {
    (void)param;
    if (message->msg->msg != MSG_VALVE_STATUS || message->pds == NULL)
        return;
    const NET_VALVE_Status *status = message->pds;
    printf("%s: %s, %g l/min\n", message->src_name, status->open ? "open" : "closed", status->flow);
    fflush(stdout);
}

int main(void) {
    ZEBMSG_connect_params server;
    ZEBMSG_link link;
    BOOL connected;
    if (!LIBZEB_init("listener"))
        return 1;
    UTIL_exit_signal_poll_setup();
    memset(&link, 0, sizeof link);
    ZEBMSG_init_params(&server);
    server.id_str = "listener";
    connected = ZEBMSG_connect(&server, &link) && ZEBMSG_wait_connected(&link);
    while (connected && ZEBMSG_test_connected(&link) && !UTIL_exit_poll()) {
        ZEBMSG_process_messages(&link, received, NULL);
        UTIL_fsleep(0.25);
    }
    ZEBMSG_disconnect(&link);
    LIBZEB_cleanup();
    return connected ? 0 : 1;
}

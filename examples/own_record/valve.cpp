// Publishes the state of a valve once a second, in a record of its own.
#include <zeb2/libzeb2.h>

int main() {
    if (!LIBZEB_init("valve"))
        return 1;
    UTIL_exit_signal_poll_setup();
    ZEBMSG_connect_params server;
    ZEBMSG_init_params(&server);
    server.id_str = "valve";
    ZEBMSG_link link = {};
    const bool connected = ZEBMSG_connect(&server, &link) && ZEBMSG_wait_connected(&link);
    while (connected && ZEBMSG_test_connected(&link) && !UTIL_exit_poll()) {
        NET_VALVE_Status status;
        NETPACK_fill_mvc(&status, "NET_VALVE_Status", sizeof status);
        status.time = UTIL_ftime();
        status.open = TRUE;
        status.flow = 4.5;
        ZEBMSG_queue_message(&link, MSG_VALVE_STATUS, 1, nullptr, &status, sizeof status,
                             "NET_VALVE_Status");
        ZEBMSG_process_messages(&link, nullptr, nullptr);
        UTIL_fsleep(1.0);
    }
    ZEBMSG_disconnect(&link);
    LIBZEB_cleanup();
    return connected ? 0 : 1;
}

/* Looks a variable of another program up, and sets an output of it. */
#include <zeb2/libzeb2.h>

#include <string.h>

static void run(ZEBMSG_link *link) {
    double asked = MVC;
    while (ZEBMSG_test_connected(link) && !UTIL_exit_poll()) {
        ZEBMSG_process_messages(link, NULL, NULL);
        const double T = IO_lookup("T1"); /* MVC until somebody publishes it */
        const double speed = T > 15.0 ? 1200 : 0;
        if (T != MVC && speed != asked) {
            asked = speed;
            IO_set(link, "fan", speed);
        }
        UTIL_fsleep(0.5);
    }
}

int main(void) {
    ZEBMSG_connect_params server;
    ZEBMSG_link link;
    BOOL connected;
    if (!LIBZEB_init("cooling"))
        return 1;
    UTIL_exit_signal_poll_setup();
    memset(&link, 0, sizeof link);
    ZEBMSG_init_params(&server);
    server.id_str = "cooling";
    IO_init();
    connected = ZEBMSG_connect(&server, &link) && ZEBMSG_wait_connected(&link);
    if (connected) {
        IO_register_link(&link);
        run(&link);
    }
    ZEBMSG_disconnect(&link);
    IO_cleanup();
    LIBZEB_cleanup();
    return connected ? 0 : 1;
}

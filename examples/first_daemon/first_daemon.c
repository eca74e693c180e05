/* The same daemon in C: announces a hygrometer and publishes what it reads, once a second. */
#include <zeb2/libzeb2.h>

#include <string.h>

/* Your instrument is read here. This one makes up a temperature that climbs for a minute. */
static void read_instrument(FTIME now, NET_HYGROMETER_Instant *reading) {
    NETPACK_fill_mvc(reading, "NET_HYGROMETER_Instant", sizeof *reading); /* nothing measured yet */
    reading->time = now;
    reading->T = 15.0 + (double)((long long)now % 60) / 10;
    reading->Td = 8.0;
    reading->flags = 0;
}

static void announce(ZEBMSG_link *link) {
    NET_SERVER_InstrumentInfo info;
    ZEBMSG_register_init(&info);
    UTIL_strncpynt(info.type, "hygrometer", sizeof info.type);
    UTIL_strncpynt(info.display_name, "My hygrometer", sizeof info.display_name);
    UTIL_strncpynt(info.tags[0].tag, "humidity", sizeof info.tags[0].tag);
    info.id_ch = 'H';
    ZEBMSG_register_instrument(link, &info);
}

/* Other programs' messages arrive here: look at message->msg->msg, read the record at
 * message->pds. */
static void received(ZEBMSG_proc_msg *message, void *param) {
    (void)message;
    (void)param;
}

static void run(ZEBMSG_link *link) {
    NET_HYGROMETER_Instant reading;
    while (!UTIL_exit_poll()) {
        read_instrument(UTIL_ftime(), &reading);
        ZEBMSG_queue_message(link, MSG_HYGROMETER_INSTANT, 1, NULL, &reading, sizeof reading,
                             "NET_HYGROMETER_Instant");
        ZEBMSG_process_messages(link, received, NULL);
        UTIL_fsleep(1.0);
    }
}

int main(int argc, char **argv) {
    const char *name = argc > 1 ? argv[1] : "hygro2";
    ZEBMSG_connect_params server;
    ZEBMSG_link link;
    BOOL connected;

    if (!LIBZEB_init(name))
        return 1;
    UTIL_exit_signal_poll_setup(); /* Ctrl-C and SIGTERM end the loop */

    ZEBMSG_init_params(&server);
    server.id_str = name;
    memset(&link, 0, sizeof link);
    connected = ZEBMSG_connect(&server, &link) && ZEBMSG_wait_connected(&link);
    if (connected) {
        announce(&link);
        run(&link);
    }
    ZEBMSG_disconnect(&link);
    LIBZEB_cleanup();
    return connected ? 0 : 1;
}

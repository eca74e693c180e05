// Step 1: asks the flow controller once a second what flows, and prints its answers.
#include <zeb2/libzeb2.h>

#include <cstdio>

int main() {
    if (!LIBZEB_init("step1"))
        return 1;
    UTIL_exit_signal_poll_setup(); // Ctrl-C and SIGTERM end the loop

    SERIALD_connect_params port = {};
    UTIL_strncpynt(port.port_name, "=pump", sizeof port.port_name);
    SERIALCOM_link line = {};
    const bool connected = SERIALCOM_connect(&port, &line) && SERIALCOM_wait_connected(&line);
    while (connected && SERIALCOM_test_connected(&line) && !UTIL_exit_poll()) {
        char answer[64];
        if (SERIALCOM_issue_write_string(&line, ":01F*E1\r") &&
            SERIALCOM_read_until_string(&line, "\r", 0.5, -1.0, answer, sizeof answer) > 0)
            printf("%s\n", answer);
        else
            printf("no answer\n");
        fflush(stdout);
        UTIL_fsleep(1.0);
    }
    const bool stopped = UTIL_exit_poll(); // else the server is gone
    SERIALCOM_disconnect(&line);
    LIBZEB_cleanup();
    return stopped ? 0 : 1;
}

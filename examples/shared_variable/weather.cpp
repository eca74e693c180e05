// Shares the variables that its branch of the configuration names: inputs below "analog", outputs
// below "output".
#include <zeb2/libzeb2.h>

#include <cstdio>
#include <cstdlib>

namespace {

// The hardware is here: a voltage for each channel.
BOOL read_channel(const char *, void *channel, double *volts) {
    *volts = 0.1 * *static_cast<int *>(channel);
    return TRUE;
}

void drive(double value, const char *name, void *) {
    printf("%s is to be %g\n", name, value);
    fflush(stdout);
}

int g_channels[8] = {0, 1, 2, 3, 4, 5, 6, 7};

void define_input(IO_define_real_input_in *in, IO_define_real_input_out *out) {
    const int channel = in->channel != nullptr ? atoi(in->channel) : -1;
    if (channel >= 0 && channel < 8)
        *out = {TRUE, read_channel, &g_channels[channel], "*3.2f"};
}

void define_output(IO_define_real_output_in *, IO_define_real_output_out *out) {
    *out = {TRUE, drive, nullptr};
}

void run(ZEBMSG_link *link, CONF_node *local) {
    IO_real_input_def inputs;
    IO_real_output_def outputs;
    IO_real_input_init(&inputs);
    IO_real_output_init(&outputs);
    IO_real_input_build(&inputs, CONF_lookup_tree(local, "analog"), define_input, nullptr, nullptr,
                        nullptr, nullptr);
    IO_real_output_build(&outputs, CONF_lookup_tree(local, "output"), define_output);
    IO_real_output_register_link(&outputs, link);
    IO_request_resend_real(link); // what was asked for before this program ran
    while (ZEBMSG_test_connected(link) && !UTIL_exit_poll()) {
        ZEBMSG_process_messages(link, nullptr, nullptr);
        IO_real_input_update(&inputs, nullptr);
        IO_real_input_send_instant(&inputs, link);
        UTIL_fsleep(1.0);
    }
    ZEBMSG_disconnect(link);
    IO_real_output_delete(&outputs);
    IO_real_input_delete(&inputs);
}

} // namespace

int main() {
    if (!LIBZEB_init("weather"))
        return 1;
    UTIL_exit_signal_poll_setup();
    CONF_node *root = CONF_get_default();
    CONF_node *local = CONF_lookup_tree(root, "weather");
    ZEBMSG_connect_params server;
    ZEBMSG_init_params(&server);
    server.id_str = "weather";
    server.host_override = ZEBMSG_get_host_str(root, local);
    ZEBMSG_link link = {};
    const bool connected = ZEBMSG_connect(&server, &link) && ZEBMSG_wait_connected(&link);
    if (connected)
        run(&link, local);
    ZEBMSG_disconnect(&link);
    CONF_free(root);
    LIBZEB_cleanup();
    return connected ? 0 : 1;
}

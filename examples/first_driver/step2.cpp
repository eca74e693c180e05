// Step 2: publishes what the flow controller measures once a second, and announces it.
#include <zeb2/libzeb2.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

INST_link station; // message server and serial line, served by one thread

// The sum of all characters before the "*", which ends each line.
unsigned checksum(const char *text, long length) {
    unsigned sum = 0;
    while (length-- > 0)
        sum += static_cast<unsigned char>(*text++);
    return sum % 256;
}

// Asks, as in ":01F*E1\r", for the number in the answer, ">01F7.503*E2\r"; MVC without a good one.
double ask(char command) {
    SERIALCOM_link *line = &station.sc_lnk;
    char question[16], answer[64] = "", *end;
    snprintf(question, sizeof question, ":01%c", command);
    snprintf(question + 4, sizeof question - 4, "*%02X\r", checksum(question, 4));
    if (!SERIALCOM_issue_write_string(line, question))
        return MVC;
    const long body = SERIALCOM_read_until_string(line, "\r", 0.5, -1.0, answer, sizeof answer) - 4;
    const double number = strtod(answer + 4, &end);
    if (body >= 5 && end == answer + body && strncmp(answer + 1, question + 1, 3) == 0 &&
        answer[0] == '>' && strtoul(end + 1, nullptr, 16) == checksum(answer, body))
        return number;
    SERIALCOM_flush(line, 0.5, 0.05); // a late answer must not be taken for the next one
    return MVC;
}

NET_TSITMF_Instant read_instrument() {
    NET_TSITMF_Instant reading;
    NETPACK_fill_mvc(&reading, "NET_TSITMF_Instant", sizeof reading); // nothing measured yet
    reading.time = UTIL_ftime();
    reading.Q = ask('F');
    if (reading.Q != MVC) {
        reading.T = ask('T');
        reading.P = ask('P');
    }
    return reading;
}

bool connect(const char *name) {
    ZEBMSG_connect_params server;
    ZEBMSG_init_params(&server);
    server.id_str = name;
    SERIALD_connect_params port = {};
    snprintf(port.port_name, sizeof port.port_name, "=%s", name);
    return INST_connect(&station, &server, &port, nullptr, nullptr, nullptr) &&
           INST_wait_connected(&station);
}

void announce() {
    NET_SERVER_InstrumentInfo info;
    ZEBMSG_register_init(&info);
    UTIL_strncpynt(info.type, "flow", sizeof info.type);
    UTIL_strncpynt(info.display_name, "Pump", sizeof info.display_name);
    UTIL_strncpynt(info.tags[0].tag, "inlet", sizeof info.tags[0].tag);
    info.id_ch = 'Q';
    ZEBMSG_register_instrument(&station.msg_lnk, &info);
}

void run() {
    while (INST_sleep(&station, 1.0)) {
        ZEBMSG_process_messages(&station.msg_lnk, nullptr, nullptr);
        const NET_TSITMF_Instant reading = read_instrument();
        ZEBMSG_queue_message(&station.msg_lnk, MSG_TSITMF_INSTANT, 1, nullptr, &reading,
                             sizeof reading, "NET_TSITMF_Instant");
    }
}

} // namespace

int main(int argc, char **argv) {
    const char *name = argc > 1 ? argv[1] : "pump";
    if (!LIBZEB_init(name))
        return 1;
    UTIL_exit_signal_poll_setup();
    if (connect(name)) {
        announce();
        run();
    }
    const bool stopped = UTIL_exit_poll(); // else a server is gone
    INST_disconnect(&station);
    LIBZEB_cleanup();
    return stopped ? 0 : 1;
}

// Step 3: the whole driver. Publishes what the flow controller measures, averages and logs it.
#include <zeb2/libzeb2.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

INST_link station; // message server and serial line, served by one thread
LOG_file log_file;
LOG_avg_control control; // what the station says about the air
AVG_simple flow, temperature, pressure;

LOG_map_defn columns[] = {
    {"Q", "*3.3f", nullptr, LVT_AVG_SIMPLE, &flow, nullptr, nullptr, nullptr, "Flow (slpm)"},
    {"T", "*3.2f", nullptr, LVT_AVG_SIMPLE, &temperature, nullptr, nullptr, nullptr, "Gas (C)"},
    {"P", "*4.1f", nullptr, LVT_AVG_SIMPLE, &pressure, nullptr, nullptr, nullptr, "Gas (hPa)"},
    {nullptr, nullptr, nullptr, LVT_END, nullptr, nullptr, nullptr, nullptr, nullptr}};

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

// One line with the averages up to `time`; the next averages begin.
void write_average(LOG_file *file, FTIME time) {
    LOG_write(file, nullptr, "S", time);
    AVG_simple_clear(&flow);
    AVG_simple_clear(&temperature);
    AVG_simple_clear(&pressure);
}

bool connect(const char *name, CONF_node *root, CONF_node *local) {
    ZEBMSG_connect_params server;
    ZEBMSG_init_params(&server);
    server.id_str = name;
    server.host_override = ZEBMSG_get_host_str(root, local);
    SERIALD_connect_params port = {};
    snprintf(port.port_name, sizeof port.port_name, "=%s", name);
    return INST_connect(&station, &server, &port, nullptr, nullptr, nullptr) &&
           INST_wait_connected(&station);
}

void announce(CONF_node *root, CONF_node *local) {
    NET_SERVER_InstrumentInfo info;
    ZEBMSG_register_init(&info);
    UTIL_strncpynt(info.type, "flow", sizeof info.type);
    UTIL_strncpynt(info.display_name, "Pump", sizeof info.display_name);
    ZEBMSG_do_tags(&info, root, local);
    info.id_ch = 'Q';
    ZEBMSG_register_instrument(&station.msg_lnk, &info);
}

bool open_log(CONF_node *root, CONF_node *local) {
    LOG_define_record(&log_file, "S", "*", columns, local, FALSE);
    LOG_avg_control_init(&control, root, local);
    if (!LOG_open(&log_file, root, local, &station.msg_lnk)) {
        fprintf(stderr, "%sno log file; are Disk;LogDir and fil;name set?\n", g_dbg_msg_title);
        return false;
    }
    LOG_avg_register_link(&control, &station.msg_lnk);
    LOG_register_link(&log_file, &station.msg_lnk, nullptr, write_average);
    return true;
}

// Tells when the instrument falls silent and when it is back; a single damaged answer is neither.
void note(bool answers) {
    static int failed = 0; // readings in a row
    const bool told = failed >= 3;
    failed = answers ? 0 : failed + 1;
    if ((failed >= 3) == told)
        return;
    const char *text = told ? "the instrument answers again" : "the instrument does not answer";
    fprintf(stderr, "%s%s\n", g_dbg_msg_title, text);
    ZEBMSG_writemonitor(&station.msg_lnk, 0, UTIL_ftime(), "%s", text);
}

void run() {
    while (INST_sleep(&station, 1.0)) {
        ZEBMSG_process_messages(&station.msg_lnk, nullptr, nullptr);
        EVENTAT_run(0); // the averages that are due, before the reading that is none of theirs
        const NET_TSITMF_Instant reading = read_instrument();
        if (!INST_sleep(&station, 0))
            return; // requests fail as well while the driver stops, or when a server is gone
        note(reading.Q != MVC);
        ZEBMSG_queue_message(&station.msg_lnk, MSG_TSITMF_INSTANT, 1, nullptr, &reading,
                             sizeof reading, "NET_TSITMF_Instant");
        if (!LOG_avg_averaging(&control))
            continue;                     // contaminated, flushed, bypassed, or just started
        AVG_simple_add(&flow, reading.Q); // "no value" is passed over
        AVG_simple_add(&temperature, reading.T);
        AVG_simple_add(&pressure, reading.P);
    }
}

} // namespace

int main(int argc, char **argv) {
    const char *name = argc > 1 ? argv[1] : "pump";
    if (!LIBZEB_init(name))
        return 1;
    UTIL_exit_signal_poll_setup();
    CONF_node *root = CONF_get_default(); // etc/zeb.conf below $ZEB2
    CONF_node *local = CONF_lookup_tree(root, name);
    LOG_init(&log_file);
    if (connect(name, root, local) && open_log(root, local)) {
        announce(root, local);
        run();
    }
    const bool stopped = UTIL_exit_poll(); // else a server is gone, or there is no log file
    LOG_close(&log_file);
    INST_disconnect(&station);
    CONF_free(root);
    LIBZEB_cleanup();
    return stopped ? 0 : 1;
}

// link_peer ROUNDS PORT - connects to the servers and disconnects, over and over, after any time:
// while a connection is being made, or when it is open. Prints what it uses after a tenth of the
// rounds and at the end: "DESCRIPTORS THREADS KIB".
#include <zeb2/libzeb2.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>

namespace {

int entries(const char *path) {
    int count = 0;
    DIR *directory = opendir(path);
    while (const dirent *entry = directory != nullptr ? readdir(directory) : nullptr)
        count += entry->d_name[0] != '.';
    if (directory != nullptr)
        closedir(directory);
    return count;
}

long resident() {
    long kib = 0;
    char line[128];
    FILE *status = fopen("/proc/self/status", "r");
    while (status != nullptr && fgets(line, sizeof line, status) != nullptr)
        if (strncmp(line, "VmRSS:", 6) == 0)
            kib = atol(line + 6);
    if (status != nullptr)
        fclose(status);
    return kib;
}

void show() {
    printf("%d %d %ld\n", entries("/proc/self/fd"), entries("/proc/self/task"), resident());
    fflush(stdout);
}

bool one_round(const char *port, int round) {
    static INST_link link;
    ZEBMSG_connect_params server;
    ZEBMSG_init_params(&server);
    server.id_str = "link_peer";
    SERIALD_connect_params line;
    SERIALD_port_params settings = {};
    SERIALCOM_link *const no_links = nullptr;
    SERIALD_connect_params *const no_lines = nullptr;
    if (!SERIALCOM_breakdown_port_string(port, &line, &settings) ||
        !INST_connect(&link, &server, &line, nullptr, no_links, no_lines))
        return false;
    bool good = true;
    if (round % 4 == 0) {
        good = INST_wait_connected(&link);
        ZEBMSG_queue_message(&link.msg_lnk, MSG_LOG_FLUSH, 1, nullptr, nullptr, 0, nullptr);
    } else {
        UTIL_fsleep((rand() % 2000) / 1e6);
    }
    INST_disconnect(&link);
    return good;
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 3 || !LIBZEB_init("link_peer"))
        return 2;
    UTIL_exit_signal_poll_setup();
    const int rounds = atoi(argv[1]);
    for (int i = 0; i < rounds; ++i) {
        if (!one_round(argv[2], i))
            return 1;
        if (i == rounds / 10)
            show();
    }
    show();
    LIBZEB_cleanup();
    return 0;
}

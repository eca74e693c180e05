// log_peer - a program of the station that logs what its standard input says, a command a line:
//   write N      N further lines, numbered from 1, with their number and half of it
//   flush, switch, open (once more)
// and answers "NUMBER LOST" with the number of the last line and how many are counted as lost.
//   log_peer DIRECTORY [KIB] [locale]    KiB held back; takes the environment's locale
#include <zeb2/libzeb2.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

LOG_map_defn column(const char *name, LOG_VAR_TYPE type, void *value, const char *format) {
    return {name, format, nullptr, type, value, nullptr, nullptr, nullptr, nullptr};
}

struct Logger {
    CONF_node *root = nullptr;
    LOG_file file = {};
    DWORD number = 0;
    double half = 0;
    double latitude = 0;

    bool open(const char *directory, const char *kib) {
        root = CONF_alloc();
        CONF_set(root, "Disk;LogDir", directory);
        CONF_set(root, "Disk;BufferSize", kib);
        LOG_init(&file);
        static const LOG_map_defn k_columns[] = {column("n", LVT_DWORD, &number, "%u"),
                                                 column("half", LVT_DOUBLE, &half, "* 8.1f"),
                                                 column("lat", LVT_DOUBLE, &latitude, "%.1f"),
                                                 column(nullptr, LVT_END, nullptr, nullptr)};
        LOG_define_record(&file, "S", "*", k_columns, nullptr, FALSE);
        return LOG_open_basename(&file, "P", root, nullptr, nullptr);
    }
    void write(long count) {
        for (; count > 0; --count) {
            ++number;
            half = latitude = number / 2.0;
            LOG_write(&file, nullptr, "S", UTIL_ftime());
        }
    }
    void obey(const char *command) {
        if (strncmp(command, "open", 4) == 0)
            LOG_open_basename(&file, "P", root, nullptr, nullptr);
        if (strncmp(command, "write ", 6) == 0)
            write(atol(command + 6));
        else if (strncmp(command, "flush", 5) == 0)
            LOG_flush(&file);
        else if (strncmp(command, "switch", 6) == 0)
            LOG_switch(&file, 0);
    }
};

} // namespace

int main(int argc, char **argv) {
    if (argc < 2 || !LIBZEB_init("log_peer"))
        return 2;
    if (argc > 3)
        setlocale(LC_ALL, "");
    UTIL_exit_signal_poll_setup();
    if (!ZEBFILE_init())
        return 2;
    static Logger logger;
    printf("%s\n", logger.open(argv[1], argc > 2 ? argv[2] : "0") ? "open" : "no file");
    fflush(stdout);
    char command[64];
    while (fgets(command, sizeof command, stdin) != nullptr) {
        logger.obey(command);
        printf("%u %zu\n", logger.number, logger.file.lost);
        fflush(stdout);
    }
    LOG_close(&logger.file);
    CONF_free(logger.root);
    ZEBFILE_destroy();
    LIBZEB_cleanup();
    return 0;
}

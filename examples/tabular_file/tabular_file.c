/* Writes a record to a tabular text file, whose name is the argument. */
#include <zeb2/libzeb2.h>

#include <fcntl.h>

int main(int argc, char **argv) {
    NET_PUMP_Instant record;
    int fh;
    if (argc != 2 || !LIBZEB_init("tabular_file") || !ZEBFILE_init())
        return 1;
    NETPACK_fill_mvc(&record, "NET_PUMP_Instant", sizeof record);
    record.on = TRUE;
    record.since = (TIME)UTIL_string2time("20140821_142401");
    record.n[0] = 1;
    record.n[1] = 2;
    record.n[2] = 3;
    record.parts[0].v = 1.5;
    UTIL_strncpynt(record.parts[0].tag, "ab", sizeof record.parts[0].tag);

    fh = ZEBFILE_open(argv[1], ZEBFILE_WRITE, O_TRUNC);
    NETPACK_print_tabular_header_zebfile(NETPACK_find_ds("NET_PUMP_Instant"), fh, "");
    ZEBFILE_printf(fh, "\n");
    NETPACK_print_ds_tabular_raw_zebfile(&record, "NET_PUMP_Instant", sizeof record, fh);
    ZEBFILE_printf(fh, "\n");
    ZEBFILE_close(fh);
    ZEBFILE_destroy();
    LIBZEB_cleanup();
    return 0;
}

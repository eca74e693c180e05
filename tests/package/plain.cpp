#include <zeb2/libzeb2.h>

#include <cstdio>
#include <cstring>

// Reads the public tables directly, which makes them data of this program on some hosts: the
// library must then search the same copy.
int main() {
    const NETDSD_entry *entry = &_ndsd_structures_ext[_ndsd_structures_count_ext - 1];
    NET_SERVER_Heartbeat heartbeat = {};
    heartbeat.hb_idx = 7;
    const bool same =
        NETPACK_find_ds(entry->name) == entry &&
        NETPACK_find_msg_by_type(MSG_SERVER_HEARTBEAT) == &_nmsg_list_ext[MSG_SERVER_HEARTBEAT];
    if (!same || strlen(g_libzeb2_revision) != 21 || heartbeat.hb_idx != 7) {
        printf("the program and the library see different tables\n");
        return 1;
    }
    return 0;
}

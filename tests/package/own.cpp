#include <zeb2/libzeb2.h>

#include <cstdio>
#include <cstring>

#define EXPECT(condition)                                                                          \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            printf("line %d: %s\n", __LINE__, #condition);                                         \
            failures++;                                                                            \
        }                                                                                          \
    } while (0)

int main() {
    int failures = 0;
    EXPECT(sizeof(NET_VALVE_Status) == 12);
    EXPECT(NETPACK_find_ds("NET_VALVE_Status") != nullptr);
    EXPECT(NETPACK_find_ds_lib("NET_VALVE_Status") == nullptr);
    EXPECT(strcmp(NETPACK_find_msg_by_type(MSG_VALVE_STATUS)->name, "MSG_VALVE_STATUS") == 0);
    EXPECT(NETPACK_find_ds_lib("NET_SERVER_Heartbeat") != nullptr);
#ifdef ALONE
    EXPECT(MSG_VALVE_STATUS == 0);
    EXPECT(NETPACK_find_ds("NET_SERVER_Heartbeat") == nullptr);
#else
    EXPECT(NETPACK_find_ds("NET_SERVER_Heartbeat") != nullptr);
    EXPECT(strcmp(NETPACK_find_msg_by_type(MSG_SERVER_HEARTBEAT)->name, "MSG_SERVER_HEARTBEAT") ==
           0);
#endif
    return failures != 0;
}

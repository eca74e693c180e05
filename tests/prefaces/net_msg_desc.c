#include <zeb2/net_msg_desc.h>

#include "check.h"
#include <string.h>

int main(void) {
#include "net_msg_desc.1.function"
    CHECK(strcmp(message->name, "MSG_GPS_INSTANT") == 0);
    return 0;
}

#include <zeb2/port.h>

#include "check.h"

int main(void) {
#include "port.1.function"
    CHECK(sizeof(NET_DEMO_Instant) == 20);
    return 0;
}

#include <zeb2/crc16.h>

#include "check.h"

int main(void) {
    char line[] = "123456789";
    size_t length = 9;
#include "crc16.1.function"
    CHECK(crc == 0xBB3D);
    return 0;
}

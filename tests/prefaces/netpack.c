#include <zeb2/libzeb2.h>

#include "check.h"

int main(void) {
#include "netpack.1.function"
    CHECK(size > sizeof beat);
    return 0;
}

#include <zeb2/net_ds_desc.h>

#include "check.h"

static int printed;
#define printf(...) printed += (fprintf(stdout, __VA_ARGS__) > 0)

int main(void) {
#include "net_ds_desc.1.function"
    CHECK(printed > 1000); /* the station's catalogue */
    return 0;
}

#include <zeb2/conf.h>
#include <zeb2/physunits.h>

#include "check.h"

int main(void) {
    double volts = 3;
    CONF_node *local = CONF_alloc();
    CONF_set(local, "cal", "0.5;2");
#include "physunits.1.function"
    CHECK(flow == 6.5);
    CONF_free(local);
    return 0;
}

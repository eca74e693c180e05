#include <zeb2/conf.h>
#include <zeb2/smoother.h>

#include "check.h"

int main(void) {
    double x = 8;
    CONF_node *local = CONF_alloc();
    CONF_set(local, "Smooth;A", "0.5");
#include "smoother.1.function"
    CHECK(y == 4);
    CONF_free(local);
    return 0;
}

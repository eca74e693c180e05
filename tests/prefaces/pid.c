#include <zeb2/conf.h>
#include <zeb2/pid.h>

#include "check.h"

static double driven = -1;
static void drive(double percent) {
    driven = percent;
}

int main(void) {
    double volts = 5; /* 0.1 + 2 volts: 10.1 litres per minute */
    CONF_node *local = CONF_alloc();
    CONF_set(local, "Pump;P", "0.5");
    CONF_set(local, "Pump;P;min", "0");
    CONF_set(local, "Pump;P;max", "100");
    CONF_set(local, "Pump;I", "30");
    CONF_set(local, "Pump;D", "0");
    CONF_set(local, "Pump;cal;PV", "0.1;2");
#include "pid.1.function"
    CHECK(driven > 3.2 && driven <= 100); /* half of 6.6, and the integral's beginning */
    CONF_free(local);
    return 0;
}

#include <zeb2/avg.h>

#include "check.h"

static double mean, running;
static void write_line(double a, double b) {
    mean = a;
    running = b;
}

int main(void) {
    double reading = 7.5;
#include "avg.1.function"
    CHECK(mean == 7.5 && running == 7.5);
    return 0;
}

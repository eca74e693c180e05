#include <zeb2/util.h>

#include "check.h"
#include <signal.h>

/* Whoever ends the daemon does so at once. */
static void open_instrument(void) {
    raise(SIGTERM);
}

int main(void) {
#include "util.1.function"
    CHECK(UTIL_exit_poll());
    return 0;
}

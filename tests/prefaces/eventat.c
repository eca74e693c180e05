#include <zeb2/eventat.h>
#include <zeb2/util.h>

#include "check.h"
#include <signal.h>

struct channel {
    int samples;
};
static void take_sample(struct channel *channel) {
    ++channel->samples;
}
#include "eventat.1.file"

int main(void) {
    struct channel first = {0}, *channel = &first;
    EVENTAT_init();
    UTIL_exit_signal_poll_setup();
    raise(SIGTERM);
#include "eventat.1.function"
    EVENTAT_run(UTIL_ftime() + 61);
    EVENTAT_run(UTIL_ftime() + 122);
    CHECK(first.samples == 2);
    EVENTAT_cleanup();
    return 0;
}

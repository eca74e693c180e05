/* Started with ZEB2 leading to a bin/pump that writes its arguments and its input to "asked". */
#include <zeb2/prgpipe.h>
#include <zeb2/zebfile.h>

#include "check.h"

static void take(const char *line) {
    puts(line);
}

int main(void) {
    const double flow = 2.5;
    char line[128];
    ZEBFILE_init();
#include "prgpipe.1.function"
    ZEBFILE_destroy();
    return 0;
}

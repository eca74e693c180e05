#include <zeb2/zebfile.h>

#include "check.h"
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

static int taken;
static void take(const char *line) {
    CHECK(strncmp(line, "one", 3) == 0);
    ++taken;
}

int main(int argc, char **argv) {
    const char *file_name = argc > 1 ? argv[1] : "neph", *station = "ABC";
    const double pressure = 1013.25;
    int ends[2];
    CHECK(pipe(ends) == 0);
    const int pipe_fh = ends[0];
    CHECK(write(ends[1], "one\n", 4) == 4 && close(ends[1]) == 0);
#include "zebfile.1.function"
    CHECK(taken <= 1); /* what is unread goes with the end of the pipe */
    FILE *file = fopen(file_name, "r");
    char written[32] = "";
    CHECK(file != NULL && fgets(written, sizeof written, file) != NULL);
    CHECK(strcmp(written, "ABC,1013.25\n") == 0);
    fclose(file);
    return 0;
}

#include <zeb2/sfmt.h>

#include "check.h"
#include <string.h>

static char shown[64];
static int keep(const char *text, FILE *stream) {
    strncpy(shown, text, sizeof shown - 1);
    return fprintf(stream, "%s", text);
}
#define fputs keep

int main(void) {
#include "sfmt.1.function"
    CHECK(strcmp(shown, "S11,  3.14,      \n") == 0);
    return 0;
}

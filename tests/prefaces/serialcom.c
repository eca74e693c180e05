/* Needs a serial server with the line "=line" and a simulated flow controller behind that. */
#include <zeb2/libzeb2.h>

#include "check.h"
#include <string.h>

/* The line is the server's "=line", with the settings of the text. */
static BOOL take_apart(const char *text, SERIALD_connect_params *line,
                       SERIALD_port_params *settings) {
    CHECK(SERIALCOM_breakdown_port_string(text, line, settings));
    UTIL_strncpynt(line->port_name, "=line", sizeof line->port_name);
    return TRUE;
}
#define SERIALCOM_breakdown_port_string         take_apart
/* "RD" means nothing to the flow controller. */
#define SERIALCOM_issue_write_string(lnk, text) SERIALCOM_issue_write_string(lnk, ":01F*E1\r")

static int taken;
static void take(const char *line) {
    puts(line);
    ++taken;
}

int main(void) {
    CHECK(LIBZEB_init("reader"));
#include "serialcom.1.function"
    CHECK(taken == 1);
    LIBZEB_cleanup();
    return 0;
}

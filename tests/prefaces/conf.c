/* Started with ZEB2 leading to a configuration with the lines of the preface. */
#include <zeb2/conf.h>

#include "check.h"
#include <string.h>

static char directory[16], speed[16];
/* What was looked up goes with the tree. */
static void free_tree(CONF_node *conf, const char *dir, const char *baud) {
    strncpy(directory, dir, sizeof directory - 1);
    strncpy(speed, baud, sizeof speed - 1);
    CONF_free(conf);
}
#define CONF_free(conf) free_tree(conf, dir, baud)

int main(void) {
#include "conf.1.function"
    CHECK(strcmp(directory, "/data") == 0);
    CHECK(strcmp(speed, "9600") == 0);
    return 0;
}

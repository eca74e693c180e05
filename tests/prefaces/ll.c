#include <zeb2/ll.h>

#include "check.h"

struct record {
    int number;
};
static int printed;
static void print_record(void *data, void *stream) {
    printed += fprintf((FILE *)stream, "%d\n", ((struct record *)data)->number);
}

int main(void) {
    struct record record = {42};
#include "ll.1.function"
    CHECK(printed == 3);
    return 0;
}

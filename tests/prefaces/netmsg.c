#include <zeb2/netmsg.h>

#include "check.h"
#include <string.h>
#include <unistd.h>

struct link {
    int payloads;
};
static void handle_payload(void *data, size_t size, void *link) {
    CHECK(size == 5 && memcmp(data, "hello", 5) == 0);
    ++((struct link *)link)->payloads;
}

static void supply(void **data, size_t *size, void *left) {
    if ((*(int *)left)-- <= 0)
        return;
    *data = malloc(5);
    CHECK(*data != NULL);
    memcpy(*data, "hello", 5);
    *size = 5;
}

/* What somebody sends: two packets. */
static void send_to(int fd) {
    NETMSG_buffer out;
    BYTE stream[64];
    size_t size = 0;
    int left = 2;
    NETMSG_init_buffer(&out);
    NETMSG_generate_data(stream, sizeof stream, &size, &out, supply, &left);
    NETMSG_delete_buffer(&out);
    CHECK(write(fd, stream, size) == (ssize_t)size && close(fd) == 0);
}

int main(void) {
    struct link here = {0}, *link = &here;
    char block[64];
    ssize_t n;
    int ends[2];
    CHECK(pipe(ends) == 0);
    send_to(ends[1]);
    const int fd = ends[0];
#include "netmsg.1.function"
    CHECK(here.payloads == 2);
    return 0;
}

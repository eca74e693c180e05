/* start_program.c - a program that does nothing, alone and linked with the library, for
 * start_driver. */
#ifdef ZEB_BENCH_LINKED
#include <zeb2/libzeb2.h>
#endif

int main(void) {
#ifdef ZEB_BENCH_LINKED
    if (!LIBZEB_init("start"))
        return 1;
    LIBZEB_cleanup();
#endif
    return 0;
}

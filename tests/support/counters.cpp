// counters.cpp - in every test program of the coverage form: a process that ends by _exit keeps what it
// has counted, too.
#include <sys/syscall.h>
#include <unistd.h>

extern "C" {
void __gcov_dump(void); // its header lacks the linkage

[[noreturn]] void _exit(int status) {
    __gcov_dump();
    for (;;)
        syscall(SYS_exit_group, status);
}
}

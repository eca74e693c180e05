/* prgpipe.h - child processes whose standard streams are served by the buffered descriptors. */
#ifndef ZEB2_PRGPIPE_H
#define ZEB2_PRGPIPE_H

#include "port.h"
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct PRGPIPE_link {
    int write_stdin;
    int read_stdout;
    int read_stderr;
    pid_t child_pid;
} PRGPIPE_link;

ZEB_API BOOL PRGPIPE_createchild(const char *cmd, PRGPIPE_link *lnk, BOOL grab_stderr, char **args);
ZEB_API void PRGPIPE_killchild(PRGPIPE_link *lnk);
ZEB_API BOOL PRGPIPE_test_dead(PRGPIPE_link *lnk);
ZEB_API void PRGPIPE_kill_child_proc(pid_t child_pid);
ZEB_API void PRGPIPE_disconnectchild(PRGPIPE_link *lnk);

#ifdef __cplusplus
}
#endif
#endif

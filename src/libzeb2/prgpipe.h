/* prgpipe.h - child processes whose standard streams are served by the buffered descriptors.
 *
 *   PRGPIPE_link pump;
 *   char *args[] = {(char *)"--port", (char *)"3", (char *)"end", NULL}; // "end" is not passed on
 *   if (PRGPIPE_createchild("bin/pump", &pump, FALSE, args)) {
 *       ZEBFILE_printf(pump.write_stdin, "flow %g\n", flow);
 *       const int answers = pump.read_stdout;
 *       while (ZEBFILE_readuntil_blocking(answers, line, sizeof line, "\n", 0) != (size_t)-1)
 *           take(line);
 *       PRGPIPE_killchild(&pump);
 *   }
 *
 * The daemon's ends of the pipes are entries of zebfile.h: somebody must be servicing these
 * (ZEBFILE_init, or the loop of an INST_link). A child that closes its output or dies shows as the
 * end of file there, with which unread output goes; PRGPIPE_test_dead, called now and then, notices
 * and cleans up.
 *
 * A child takes SIGINT and SIGKILL only, until it changes its signal mask itself, and gets no other
 * descriptor of the daemon that is closed on exec.
 *
 * Threads: no lock is taken; the calls on one link come from one thread, not from the one that
 * services the descriptors. */
#ifndef ZEB2_PRGPIPE_H
#define ZEB2_PRGPIPE_H

#include "port.h"
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A child and the daemon's ends of its pipes; the caller's. What is not there is -1. */
typedef struct PRGPIPE_link {
    int write_stdin; /* writing entry: the child's standard input */
    int read_stdout; /* reading entry: its standard output */
    int read_stderr; /* reading entry: its standard error, when it was asked for */
    pid_t child_pid;
} PRGPIPE_link;

/* Starts a program.
 * cmd: program, 255 characters at most. Begins with "/": that file. Otherwise the file below the
 *   directory that the environment variable ZEB2 names (or below "/"), and when that cannot be run,
 *   the search path. Not null.
 * lnk: not null; every field is set, whatever it held.
 * grab_stderr: whether standard error is a pipe too; otherwise it is the daemon's own.
 * args: arguments, ended by null. The last one before the null is a placeholder and is not passed;
 *   null, or nothing but the end, is no arguments. Argument 0 is always `cmd`. Borrowed.
 * Returns TRUE when the child has been forked and its pipes are registered. What fails in the child
 *   (memory, a stream, the program) appears on its standard error, and the child ends with status
 *   255. FALSE, reported, with nothing left behind and the link empty, when the command is too
 *   long, or a pipe, the fork or a registration fails; but when the flags of the error pipe cannot
 *   be had, what was opened stays open, the daemon's ends in the link.
 * Threads: see above; other threads may run meanwhile. */
ZEB_API BOOL PRGPIPE_createchild(const char *cmd, PRGPIPE_link *lnk, BOOL grab_stderr, char **args);

/* Stops the child, first with SIGINT, then with SIGKILL, and closes the pipes as ZEBFILE_close
 * does: what is unread is lost. Each step gives the child ten yields of the processor, so a child
 * that takes long over SIGINT is killed. How it ended is reported.
 * lnk: not null; empty afterwards, whether or not the child was seen to end. Without a child only
 *   the pipes are closed.
 * Waits for nothing but what is queued for the child's input, which an ended child refuses; a
 * process of the child's own that keeps that input open, unread, keeps the caller too. The
 * descriptor of the input may stay open until the next child is there, see ZEBFILE_close.
 * Threads: see above. */
ZEB_API void PRGPIPE_killchild(PRGPIPE_link *lnk);

/* Tells whether the child has ended, and then closes its pipes: take what it wrote before.
 * lnk: not null; emptied when the child has ended (reported once).
 * Returns FALSE while it runs; TRUE when it has ended, or there is none.
 * Threads: see above. Never waits while the child runs. */
ZEB_API BOOL PRGPIPE_test_dead(PRGPIPE_link *lnk);

/* Stops a child as PRGPIPE_killchild does and touches nothing else.
 * child_pid: a child of this process; -1 does nothing, 0 and other negative numbers are reported
 *   and do nothing.
 * Threads: any, one per child. */
ZEB_API void PRGPIPE_kill_child_proc(pid_t child_pid);

/* Closes the pipes as ZEBFILE_close does, after what is queued for the child has been written, and
 * lets the child run; it stays the caller's to stop.
 * lnk: not null; keeps child_pid alone.
 * A running child that does not read what is queued for it keeps the caller for ever.
 * Threads: see above. */
ZEB_API void PRGPIPE_disconnectchild(PRGPIPE_link *lnk);

#ifdef __cplusplus
}
#endif
#endif

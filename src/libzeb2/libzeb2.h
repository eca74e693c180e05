/* libzeb2.h - the whole library in one header, and its start-up and clean-up.
 *
 *   #include <zeb2/libzeb2.h>
 *
 *   int main(void) {
 *       if (!LIBZEB_init("gps"))
 *           return 1;
 *       UTIL_exit_signal_poll_setup();
 *       // connect, UTIL_startupokay(), the main loop until UTIL_exit_poll()
 *       LIBZEB_cleanup();
 *       return 0;
 *   }
 */
#ifndef ZEB2_LIBZEB2_H
#define ZEB2_LIBZEB2_H

#include "avg.h"
#include "conf.h"
#include "crc16.h"
#include "eventat.h"
#include "inst.h"
#include "io.h"
#include "ll.h"
#include "log.h"
#include "netmsg.h"
#include "netpack.h"
#include "physunits.h"
#include "pid.h"
#include "port.h"
#include "prgpipe.h"
#include "serialcom.h"
#include "sfmt.h"
#include "smoother.h"
#include "util.h"
#include "zebfile.h"
#include "zebmsg.h"

/* The records of the catalogue in use; zeb_add_catalogue() names the application's own here. */
#ifdef ZEB_RECORDS_HEADER
#include ZEB_RECORDS_HEADER
#else
#include "records.h"
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* What every line on standard error begins with: "PREINIT: " until LIBZEB_init has run, then the
 * identifier given to it, ": " behind. Written before threads exist, only read afterwards. */
ZEB_API extern const char *g_dbg_msg_title;

/* When the library was built: a blank and an ISO 8601 time in UTC, as in " 2014-08-21T14:24:01Z".
 */
ZEB_API extern const char *const g_libzeb2_revision;

/* Starts the library: sets the title of diagnostic lines, builds the CRC table, initialises the
 * utilities and the timed events, and makes SIGUSR1 interrupt blocking calls and do nothing else,
 * which is how threads of the library wake each other.
 * id: the program's name, copied; the title is the name and ": ", cut to 255 characters in all. Null is
 * reported and stands for an empty name.
 * Returns TRUE; FALSE when the timed events cannot start: SIGUSR1 then still ends the process and
 * no thread of the library may be started. A sigaction that fails is reported and passed over.
 * Another call starts anew without a clean-up: events of the first are lost. Threads: main thread,
 * before any other call and before other threads exist. */
ZEB_API BOOL LIBZEB_init(const char *id);

/* Releases the timed events. Links are closed by their own disconnect calls before; title and
 * signal handler stay. Without a start-up, or a second time, does nothing. Threads: main thread,
 * after other threads have ended. */
ZEB_API void LIBZEB_cleanup(void);

#ifdef __cplusplus
}
#endif
#endif

#ifndef ZEB2_LIBZEB2_H
#define ZEB2_LIBZEB2_H

#include "conf.h"
#include "crc16.h"
#include "eventat.h"
#include "ll.h"
#include "netmsg.h"
#include "netpack.h"
#include "port.h"
#include "sfmt.h"
#include "util.h"
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

ZEB_API extern const char *g_dbg_msg_title;
ZEB_API extern const char *const g_libzeb2_revision;

ZEB_API BOOL LIBZEB_init(const char *id);
ZEB_API void LIBZEB_cleanup(void);

#ifdef __cplusplus
}
#endif
#endif

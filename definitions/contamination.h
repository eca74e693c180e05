/* contamination.h - commands that mark the sampled air as contaminated or take the whole
 * station's instruments off the air. The plain commands switch, the MULTI ones count holders, the
 * OVERRIDE ones hold against both. */
#ifndef ZEB2_DEFINITIONS_CONTAMINATION_H
#define ZEB2_DEFINITIONS_CONTAMINATION_H

#include <zeb2/definitions/io.h>
#include <zeb2/port.h>

ZEB_MESSAGE_BARE(MSG_CONTAMINATION_BYPASS, "contamination");
ZEB_MESSAGE(MSG_CONTAMINATION_BYPASSMULTI, "contamination", NET_IO_LockID);
ZEB_MESSAGE_BARE(MSG_CONTAMINATION_BYPASSOVERRIDE, "contamination");
ZEB_MESSAGE_BARE(MSG_CONTAMINATION_CONTAMINATE, "contamination");
ZEB_MESSAGE(MSG_CONTAMINATION_CONTAMINATEMULTI, "contamination", NET_IO_LockID);
ZEB_MESSAGE_BARE(MSG_CONTAMINATION_CONTAMINATEOVERRIDE, "contamination");
ZEB_MESSAGE_BARE(MSG_CONTAMINATION_UNBYPASS, "contamination");
ZEB_MESSAGE(MSG_CONTAMINATION_UNBYPASSMUTLI, "contamination", NET_IO_LockID);
ZEB_MESSAGE_BARE(MSG_CONTAMINATION_UNBYPASSOVERRIDE, "contamination");
ZEB_MESSAGE_BARE(MSG_CONTAMINATION_UNCONTAMINATE, "contamination");
ZEB_MESSAGE(MSG_CONTAMINATION_UNCONTAMINATEMUTLI, "contamination", NET_IO_LockID);
ZEB_MESSAGE_BARE(MSG_CONTAMINATION_UNCONTAMINATEOVERRIDE, "contamination");

#endif

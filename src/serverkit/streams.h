// streams.h - the standard streams of a program that was started without them.
#pragma once

namespace serverkit {

// Puts something in place of each standard stream that is closed, before anything else is opened:
// a socket or a log file under its number would get what is meant for it. Reading and writing fail
// there as before.
void hold_standard_streams();

} // namespace serverkit

// wire.h - the messages that the server passes on, by the names of serverkit/message.h.
#pragma once

#include "serverkit/message.h"

namespace zebmsgd {

using serverkit::Frame;
using serverkit::frame_message;
using serverkit::k_flag_publish;
using serverkit::k_flag_retain;
using serverkit::Message;
using serverkit::parse_message;

} // namespace zebmsgd

// frame_link.h - a link to the message server that carries frames as they are.
//
// The library connects and introduces the program; the frames behind that are the caller's, none of
// them unpacked. Heartbeats are answered here and not handed on.
//
//   FrameLink link;
//   if (!link.open("zebctl-17", host, 10)) return k_failed;
//   while (serve({&link}, 0.25, hear) && link.is_open()) ...
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <zeb2/zebmsg.h>

#include "serverkit/message.h"
#include "serverkit/stream.h"

namespace zebctl {

class FrameLink {
  public:
    // Gets each frame that is no heartbeat and no handshake, header included.
    using Hear = std::function<void(std::string_view frame)>;

    FrameLink();
    ~FrameLink(); // tells the server, as far as it listens
    FrameLink(const FrameLink &) = delete;
    FrameLink &operator=(const FrameLink &) = delete;

    // Connects under a name and waits for the server's handshake, at most so many seconds. `host`
    // may be null; `hear` gets what comes right behind the handshake. False after a report, or when
    // the program is to stop.
    bool open(const std::string &name, const char *host, double patience, const Hear &hear = {});
    bool is_open() const { return state_ == State::open; }
    const std::string &name() const { return name_; }

    // Queues a message without a record.
    void send_notice(NETMSG_type type, uint32_t flags, const std::string &destination = {});
    // Asks the server for nothing but what is sent to this link by its name.
    void hear_own_only();
    // Queues a payload; what is queued grows as long as nobody waits for it to leave.
    void send(std::string_view payload);
    size_t queued() const { return out_.bytes(); }

    int fd() const { return link_->fh; }
    // Moves what the socket has and takes.
    void transfer(bool readable, const Hear &hear);
    // Why the link ended.
    const std::string &ending() const { return ending_; }

  private:
    enum class State { closed, waiting, open };
    bool connect(const char *host);
    bool take(std::string_view payload, const Hear &hear);
    void end(const std::string &why);

    std::string name_;
    std::unique_ptr<ZEBMSG_link> link_;
    State state_ = State::closed;
    serverkit::InBuffer in_;
    serverkit::OutQueue out_;
    std::string ending_;
};

// Waits until something moves on one of the links, for at most so many seconds, and moves it. False
// when the program is to stop.
bool serve(const std::vector<FrameLink *> &links, double seconds, const FrameLink::Hear &hear);

} // namespace zebctl

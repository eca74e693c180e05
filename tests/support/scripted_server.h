// scripted_server.h - a message server that does exactly what a test tells it, good or bad, and the
// select loop of a test that services a link. Neither has a thread: the test drives both.
//
//   ScriptedServer server;                  // listens in a private run directory
//   ZEBMSG_multi_connect(&params, &lnk);    // finds it there
//   HookLoop loop(&lnk);
//   ASSERT_TRUE(server.accept());
//   server.handshake(7);
//   loop.run_until([&] { return lnk.stat == ZEBMSG_S_OPEN; });
#pragma once

#include "scripted_peer.h"
#include "support.h"
#include "zebmsg.h"

#include <cstring>
#include <optional>
#include <string>

namespace zeb::test {

// A message as the server received it.
struct ServerMessage {
    NETMSG_type type;
    DWORD flags;
    std::string dest, src, record_name;
    Bytes record; // in the local layout

    template <typename T> T as() const {
        T value = {};
        memcpy(&value, record.data(), record.size() < sizeof value ? record.size() : sizeof value);
        return value;
    }
};

// A message without a record package; record_name may announce one all the same.
Bytes wire_message(const std::string &name, unsigned flags = 0, const std::string &dest = "",
                   const std::string &src = "", const std::string &record_name = "");

class ScriptedServer : public ScriptedConnection {
  public:
    ScriptedServer(); // local socket in a private directory, which ZEB2RUN names meanwhile
    explicit ScriptedServer(const std::string &address, int port = 0); // TCP; 0: any port
    ~ScriptedServer();
    int port() const { return port_; }
    const std::string &run_directory() const { return directory_.path(); }

    bool accept(double seconds = 20) { return accept_from(listener_, seconds); }
    // A message of the library's catalogue, framed.
    void send(NETMSG_type type, const std::string &src = "", const void *record = nullptr,
              size_t size = 0, const char *record_name = nullptr, DWORD flags = 0);
    void handshake(unsigned index);
    void heartbeat(unsigned index);
    void announce(const std::string &src, const NET_SERVER_InstrumentInfo &info);

    // The next message of the client that is here already.
    std::optional<ServerMessage> next();
    // The same, waiting for a client that another thread services.
    std::optional<ServerMessage> wait_next(double seconds = 20);

    ScriptedServer(const ScriptedServer &) = delete;
    ScriptedServer &operator=(const ScriptedServer &) = delete;

  private:
    TempDir directory_;
    ScopedEnv run_;
    int listener_ = -1;
    int port_ = 0;
};

// Services one link.
class HookLoop : public LinkHookLoop<ZEBMSG_link> {
  public:
    explicit HookLoop(ZEBMSG_link *lnk, pthread_t *thread = nullptr);
};

} // namespace zeb::test

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

#include "support.h"
#include "zebmsg.h"

#include <cstring>
#include <optional>
#include <string>
#include <vector>

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

// The pieces of the wire, written out here so that a test can also get them wrong.
Bytes wire_u16(unsigned value);
Bytes wire_u32(unsigned value);
Bytes wire_text(const std::string &text); // 16-bit length and the characters
Bytes operator+(Bytes left, const Bytes &right);
// One frame around a payload.
Bytes wire_frame(const Bytes &payload);
// A message without a record package; record_name may announce one all the same.
Bytes wire_message(const std::string &name, unsigned flags = 0, const std::string &dest = "",
                   const std::string &src = "", const std::string &record_name = "");

class ScriptedServer {
  public:
    ScriptedServer(); // local socket in a private directory, which ZEB2RUN names meanwhile
    explicit ScriptedServer(const std::string &address, int port = 0); // TCP; 0: any port
    ~ScriptedServer();
    int port() const { return port_; }
    const std::string &run_directory() const { return directory_.path(); }

    // Takes the client that waits, or waits for one.
    bool accept(double seconds = 20);
    void send_bytes(const Bytes &bytes);
    // A message of the library's catalogue, framed.
    void send(NETMSG_type type, const std::string &src = "", const void *record = nullptr,
              size_t size = 0, const char *record_name = nullptr, DWORD flags = 0);
    void handshake(unsigned index);
    void heartbeat(unsigned index);
    void announce(const std::string &src, const NET_SERVER_InstrumentInfo &info);
    void stop_reading(); // the client's next send finds nobody
    void close_client(); // end of stream
    void reset_client(); // connection reset (TCP)
    int client() const { return client_; }

    // What the client sent and is here already: everything as bytes, then as messages.
    const Bytes &received_bytes();
    std::optional<ServerMessage> next();
    // The same, waiting for a client that another thread services.
    std::optional<ServerMessage> wait_next(double seconds = 20);
    bool client_gone(); // the client closed its end

    ScriptedServer(const ScriptedServer &) = delete;
    ScriptedServer &operator=(const ScriptedServer &) = delete;

  private:
    void read_available();
    TempDir directory_;
    ScopedEnv run_;
    int listener_ = -1;
    int client_ = -1;
    int port_ = 0;
    bool gone_ = false;
    Bytes raw_;
    size_t taken_ = 0; // bytes of raw_ already given out as messages
};

// Services a link as a daemon's own loop would.
class HookLoop {
  public:
    explicit HookLoop(ZEBMSG_link *lnk, pthread_t *thread = nullptr);
    // One cycle with a short wait; false once a hook reported the link lost.
    bool cycle();
    // Cycles until the condition holds; false when the link is lost before or time runs out.
    bool run_until(const std::function<bool()> &condition, double seconds = 20);
    // Cycles until the link is lost.
    bool run_until_lost(double seconds = 20);

    fd_set rx, tx;
    int fd_max = -1;
    bool lost = false;

  private:
    ZEBMSG_link *lnk_;
};

} // namespace zeb::test

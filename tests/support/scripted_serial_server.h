// scripted_serial_server.h - a serial-port server that does exactly what a test tells it, good or
// bad, and the select loop of a test that services serial links.
//
//   ScriptedSerialServer server;              // listens in a private run directory
//   SERIALCOM_multi_connect(&params, &lnk);   // finds it there
//   SerialHookLoop loop({&lnk});
//   SerialClient &client = server.accept();
//   client.success();                         // answers the handshake
//   loop.run_until([&] { return lnk.stat == SERIALCOM_S_OPEN; });
//
// Requests that wait for their answer need somebody to give it: SerialResponder does in a thread of
// its own.
#pragma once

#include "scripted_peer.h"
#include "serialcom.h"

#include <atomic>
#include <deque>
#include <memory>
#include <thread>

namespace zeb::test {

// A request as the server received it. A payload of another size than a request's is kept whole in
// `data`, with a type that no request has.
struct SerialRequest {
    static constexpr unsigned k_no_type = 0xFFFFFFFFU;
    unsigned type = k_no_type;
    double timeout = 0;
    double burst_timeout = 0;
    Bytes data;
};

// One link, as the server sees it.
class SerialClient : public ScriptedConnection {
  public:
    // The port name of the handshake, waiting for it; "?" when none comes.
    std::string wait_handshake(double seconds = 20);
    // What the client sent next and is here already.
    std::optional<SerialRequest> next();
    // The next that is no heartbeat, waiting for a client that another thread services.
    std::optional<SerialRequest> wait_request(double seconds = 20);

    void success(const Bytes &data = {}) { respond(SERIALD_RESP_SUCCESS, data); }
    void failure(const Bytes &data = {}) { respond(SERIALD_RESP_FAILURE, data); }
    void heartbeat() { respond(SERIALD_RESP_HEARTBEAT); }
    void respond(unsigned type, const Bytes &data = {});
};

class ScriptedSerialServer {
  public:
    ScriptedSerialServer(); // in a private directory, which ZEB2RUN names meanwhile
    // Beside another server, in its directory.
    explicit ScriptedSerialServer(const std::string &run_directory);
    ~ScriptedSerialServer();

    // The next link that connects, waiting for it; throws when none comes. Valid as long as this.
    SerialClient &accept(double seconds = 20);

    ScriptedSerialServer(const ScriptedSerialServer &) = delete;
    ScriptedSerialServer &operator=(const ScriptedSerialServer &) = delete;

  private:
    TempDir directory_;
    std::optional<ScopedEnv> run_;
    int listener_ = -1;
    std::deque<SerialClient> clients_;
};

// Answers the requests of a client, whose handshake has been answered, in a thread of its own until
// it is destroyed. Heartbeats and the closing request are not shown to the function.
class SerialResponder {
  public:
    using Answer = std::function<void(SerialClient &client, const SerialRequest &request)>;
    SerialResponder(SerialClient &client, Answer answer);
    ~SerialResponder() { stop(); }
    // Ends the thread; what was received until then, heartbeats left out.
    const std::vector<SerialRequest> &stop();

    SerialResponder(const SerialResponder &) = delete;
    SerialResponder &operator=(const SerialResponder &) = delete;

  private:
    void run();
    void take(const SerialRequest &request, bool answered);
    SerialClient &client_;
    Answer answer_;
    std::vector<SerialRequest> requests_;
    std::atomic<bool> stopping_ = false;
    std::thread thread_;
};

// Services one or several links.
class SerialHookLoop : public LinkHookLoop<SERIALCOM_link> {
  public:
    explicit SerialHookLoop(const std::vector<SERIALCOM_link *> &links,
                            pthread_t *thread = nullptr);
};

} // namespace zeb::test

// dialogue.h - what one client and the server say to each other: the handshake, then requests that
// are answered in order, one at a time. Knows nothing of sockets.
#pragma once

#include "ports.h"
#include "reads.h"
#include "serverkit/outqueue.h"
#include "serverkit/report.h"

#include <deque>
#include <optional>
#include <string>
#include <string_view>

namespace zebseriald {

// What all dialogues share.
struct Surroundings {
    Ports &ports;
    const Limits &limits;
    serverkit::Complaints &complaints;
    std::string repeater_directory;
};

struct Request {
    SERIALD_REQUEST_TYPE type = SERIALD_REQUEST_HEARTBEAT;
    double timeout = 0;
    double burst = 0;
    std::string data;
};

// The request that is being answered.
struct ActiveRequest {
    Request request;
    Read read;
    double deadline = 0;
    uint64_t output_end = 0;
    unsigned breaks = 0;
};

class Dialogue {
  public:
    Dialogue(Surroundings &around, uint64_t number, std::string origin);
    virtual ~Dialogue() = default;
    Dialogue(const Dialogue &) = delete;
    Dialogue &operator=(const Dialogue &) = delete;

    // One record of the client's.
    void receive(std::string_view record, double now);
    // Answers what can be answered; called when anything changed at the port and when it is due.
    void progress(double now);
    double due() const { return due_; }

    Port *port() const { return port_; }
    void move_to(Port &port); // the same device by another name

    // "client (pid 123) of "=GPS""
    std::string who() const;
    void end(const char *why, bool at_fault = true);
    void complain(double now, const std::string &what);

    serverkit::OutQueue out;
    const char *doom = nullptr; // why it must go; null while it may stay
    bool at_fault = false;      // the doom is worth a line even when nobody asked for lines
    double last_heard = 0;
    double leave_by = 0; // after CLOSE: when the client should have hung up; 0: it has not closed

  private:
    using Begin = void (Dialogue::*)(double now);
    struct Row {
        Begin begin;
        bool needs_device;
        size_t data_size; // exactly; k_any
    };
    static const Row k_rows[];
    static const size_t k_row_count;

    void handshake(std::string_view record, double now);
    void enqueue(std::string_view record, double now);
    void close(double now);
    void begin(double now);
    void go_on(double now);
    bool is_interrupted() const;

    void begin_echo(double now);
    void begin_read(double now);
    void begin_reset(double now);
    void begin_line(double now);
    void begin_settings(double now);
    void begin_write(double now);
    void begin_blocking_write(double now);
    void begin_add_repeater(double now);
    void begin_delete_repeater(double now);
    void go_on_reading(double now);
    void go_on_writing(double now);
    void go_on_setting_line(double now);
    bool write_data(double now);

    void answer(SERIALD_RESP_TYPE type, std::string_view data = {});
    void answer_input(uint64_t upto);
    void finish(bool success) {
        active_.reset();
        answer(success ? SERIALD_RESP_SUCCESS : SERIALD_RESP_FAILURE);
    }
    void push(const serverkit::Frame &frame);

    Surroundings &around_;
    uint64_t number_; // of this client, among writers
    std::string origin_;
    std::string name_; // of the port, from the handshake
    Port *port_ = nullptr;
    std::deque<Request> waiting_;
    size_t waiting_bytes_ = 0;
    std::optional<ActiveRequest> active_;
    uint64_t position_ = 0; // of the port's input
    uint64_t echo_position_ = 0;
    double due_ = k_no_limit;
};

} // namespace zebseriald

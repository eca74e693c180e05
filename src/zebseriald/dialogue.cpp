#include "dialogue.h"

#include <algorithm>
#include <cstring>

namespace zebseriald {
namespace {

using serverkit::Frame;
using serverkit::printable;

constexpr size_t k_any = SIZE_MAX;
constexpr size_t k_header = sizeof(SERIALD_request_header);
constexpr size_t k_request_cost = 64; // counted beside its data
constexpr double k_farewell = 1;
constexpr double k_line_patience = 2; // for output before the line's settings change under it

static_assert(sizeof(SERIALD_connect_params) == 256 && k_header == 20);
static_assert(sizeof(SERIALD_port_params) == 8 && sizeof(SERIALD_int_params) == 12);
static_assert(sizeof(SERIALD_repeater_add) == 258 && sizeof(SERIALD_repeater_delete) == 256);

template <typename Record> Record record_of(const std::string &data) {
    Record record;
    memcpy(&record, data.data(), sizeof record);
    return record;
}

// The characters of a field; nothing when it has no end.
template <size_t N> std::optional<std::string> text_of(const char (&field)[N]) {
    const void *end = memchr(field, '\0', N);
    if (end == nullptr)
        return std::nullopt;
    return std::string(field);
}

} // namespace

const Dialogue::Row Dialogue::k_rows[] = {
    {nullptr, false, k_any}, // HEARTBEAT and CLOSE do not wait for their turn
    {nullptr, false, k_any},
    {&Dialogue::begin_read, true, k_any},
    {&Dialogue::begin_echo, true, k_any},
    {&Dialogue::begin_read, true, k_any},
    {&Dialogue::begin_read, true, k_any},
    {&Dialogue::begin_read, true, k_any},
    {&Dialogue::begin_read, true, k_any},
    {&Dialogue::begin_reset, false, k_any},
    {&Dialogue::begin_line, false, sizeof(SERIALD_port_params)},
    {&Dialogue::begin_settings, false, sizeof(SERIALD_int_params)},
    {&Dialogue::begin_write, true, k_any},
    {&Dialogue::begin_blocking_write, true, k_any},
    {&Dialogue::begin_add_repeater, false, sizeof(SERIALD_repeater_add)},
    {&Dialogue::begin_delete_repeater, false, sizeof(SERIALD_repeater_delete)},
};
const size_t Dialogue::k_row_count = sizeof k_rows / sizeof k_rows[0];

Dialogue::Dialogue(Surroundings &around, uint64_t number, std::string origin)
    : out(around.limits.queue_bytes), around_(around), number_(number), origin_(std::move(origin)) {
}

std::string Dialogue::who() const {
    if (name_.empty())
        return "client (" + origin_ + ")";
    return "client (" + origin_ + ") of \"" + printable(name_, 255) + "\"";
}

void Dialogue::complain(double now, const std::string &what) {
    around_.complaints.about(now, who(), what);
}

void Dialogue::end(const char *why, bool fault) {
    if (doom != nullptr)
        return;
    doom = why;
    at_fault = fault;
}

void Dialogue::push(const Frame &frame) {
    if (!frame)
        end("memory is short for an answer");
    else if (!out.push(frame))
        end("it does not read its answers");
}

void Dialogue::answer(SERIALD_RESP_TYPE type, std::string_view data) {
    Frame frame = Frame::blank(sizeof(SERIALD_resp_header) + data.size());
    if (frame) {
        const auto number = static_cast<size_t>(type);
        serverkit::put_bytes(serverkit::put_number(frame.to_fill(), number, 4), data);
    }
    push(frame);
}

void Dialogue::answer_input(uint64_t upto) {
    const auto count = static_cast<size_t>(upto - position_);
    Frame frame = Frame::blank(sizeof(SERIALD_resp_header) + count);
    if (frame)
        port_->input().copy(position_, count,
                            serverkit::put_number(frame.to_fill(), SERIALD_RESP_SUCCESS, 4));
    position_ = upto;
    push(frame);
}

// --- records -----------------------------------------------------------------------------------

void Dialogue::receive(std::string_view record, double now) {
    last_heard = now;
    if (leave_by != 0)
        return;
    if (port_ == nullptr)
        handshake(record, now);
    else
        enqueue(record, now);
    progress(now);
}

void Dialogue::handshake(std::string_view record, double now) {
    std::string why = "its handshake cannot be read";
    if (record.size() == sizeof(SERIALD_connect_params) && record.find('\0') != record.npos) {
        name_ = record.substr(0, record.find('\0'));
        if (around_.ports.users() < around_.limits.clients)
            port_ = around_.ports.attach(*this, name_, now, why);
        else
            why = "too many clients are connected";
    }
    if (port_ == nullptr) {
        complain(now, "refused: " + why);
        answer(SERIALD_RESP_FAILURE);
        end("its port was refused", false);
        return;
    }
    move_to(*port_);
    answer(SERIALD_RESP_SUCCESS);
}

// What waits knows positions of the port that it leaves.
void Dialogue::move_to(Port &port) {
    if (active_)
        finish(false);
    port_ = &port;
    position_ = port.input().end();
    echo_position_ = port.echo().end();
}

void Dialogue::enqueue(std::string_view record, double now) {
    Request request;
    SERIALD_request_header header{};
    memcpy(&header, record.data(), std::min(record.size(), k_header));
    const auto type = static_cast<uint32_t>(header.type);
    if (record.size() < k_header || type >= k_row_count) {
        complain(now, record.size() < k_header
                          ? "a request of " + std::to_string(record.size()) + " bytes"
                          : "a request of the unknown type " + std::to_string(type));
        request.type = static_cast<SERIALD_REQUEST_TYPE>(k_row_count); // fails in its turn
    } else if (header.type == SERIALD_REQUEST_HEARTBEAT) {
        return answer(SERIALD_RESP_HEARTBEAT);
    } else if (header.type == SERIALD_REQUEST_CLOSE) {
        return close(now);
    } else {
        request = {header.type, wait_of(header.timeout), wait_of(header.burst_timeout),
                   std::string(record.substr(k_header))};
    }
    waiting_bytes_ += request.data.size() + k_request_cost;
    waiting_.push_back(std::move(request));
    if (waiting_.size() > around_.limits.requests || waiting_bytes_ > around_.limits.queue_bytes)
        end("it sends more requests than it waits for");
}

// The client hangs up when its request has left; if we did so first, it would take that for a fault.
void Dialogue::close(double now) {
    active_.reset();
    waiting_.clear();
    around_.ports.detach(*this, now);
    port_ = nullptr;
    leave_by = now + k_farewell;
}

void Dialogue::progress(double now) {
    while (doom == nullptr) {
        if (active_)
            go_on(now);
        if (active_)
            return;
        due_ = k_no_limit;
        if (waiting_.empty() || doom != nullptr)
            return;
        begin(now);
    }
}

// --- requests ----------------------------------------------------------------------------------

void Dialogue::begin(double now) {
    active_.emplace();
    active_->request = std::move(waiting_.front());
    waiting_.pop_front();
    const Request &request = active_->request;
    waiting_bytes_ -= request.data.size() + k_request_cost;
    active_->deadline = now + request.timeout;
    active_->breaks = port_->breaks();
    const auto type = static_cast<size_t>(request.type);
    if (type >= k_row_count || port_->blocked_for(*this))
        return finish(false);
    const Row &row = k_rows[type];
    if (row.data_size != k_any && row.data_size != request.data.size()) {
        complain(now, "a request of type " + std::to_string(type) + " with " +
                          std::to_string(request.data.size()) + " bytes of data");
        return finish(false);
    }
    if (row.needs_device && !port_->present())
        return finish(false);
    (this->*row.begin)(now);
}

bool Dialogue::is_interrupted() const {
    return port_->blocked_for(*this) || port_->breaks() != active_->breaks;
}

void Dialogue::go_on(double now) {
    switch (active_->request.type) {
    case SERIALD_REQUEST_SET_PORT_PARAMS:
        return go_on_setting_line(now);
    case SERIALD_REQUEST_BLOCKING_WRITE:
        return is_interrupted() ? finish(false) : go_on_writing(now);
    default:
        return is_interrupted() ? finish(false) : go_on_reading(now);
    }
}

void Dialogue::begin_read(double now) {
    const Request &request = active_->request;
    port_->read_input(now, Port::Depth::all); // what has come before the request counts
    Read &read = active_->read;
    read.type = request.type;
    read.timeout = request.timeout;
    read.burst = request.burst;
    read.started = now;
    read.stops = bytes_of(request.data);
    if (request.type == SERIALD_REQUEST_READUNTIL_EMPTY)
        position_ = port_->input().end();
}

void Dialogue::go_on_reading(double now) {
    position_ = std::max(position_, port_->input().begin());
    const Verdict verdict =
        judge(active_->read, position_, port_->input(), port_->last_input(), now);
    if (active_->read.type == SERIALD_REQUEST_FLUSH)
        position_ = verdict.upto;
    if (verdict.kind == Verdict::Kind::pending) {
        due_ = verdict.due;
        return;
    }
    if (verdict.kind == Verdict::Kind::failure)
        return finish(false);
    active_.reset();
    answer_input(verdict.upto);
}

void Dialogue::begin_echo(double) {
    const std::string text = port_->echo().of_others(number_, echo_position_);
    echo_position_ = port_->echo().end();
    active_.reset();
    answer(SERIALD_RESP_SUCCESS, text);
}

void Dialogue::begin_reset(double now) {
    port_->read_input(now, Port::Depth::all); // for the others
    const bool open = port_->reset(now);
    position_ = port_->input().end();
    finish(open);
}

bool Dialogue::write_data(double now) {
    const std::string &data = active_->request.data;
    if (port_->queue(number_, data, now))
        return port_->write_output(now);
    complain(now, "there is no room for " + std::to_string(data.size()) + " more bytes to write");
    return false;
}

void Dialogue::begin_write(double now) {
    finish(write_data(now));
}

void Dialogue::begin_blocking_write(double now) {
    if (!write_data(now))
        return finish(false);
    active_->output_end = port_->queued_until();
}

void Dialogue::go_on_writing(double now) {
    if (port_->has_drained(active_->output_end))
        return finish(true);
    if (now >= active_->deadline)
        return finish(false);
    // Before the device has it all there is nothing to look after.
    const bool written = port_->has_written(active_->output_end);
    due_ = written ? std::min(active_->deadline, now + port_->drain_time()) : active_->deadline;
}

void Dialogue::begin_line(double now) {
    const auto line = record_of<SERIALD_port_params>(active_->request.data);
    if (const std::string fault = fault_of(line); !fault.empty()) {
        complain(now, fault + " cannot be used");
        return finish(false);
    }
    active_->deadline = now + k_line_patience;
    active_->output_end = port_->queued_until();
}

// What was written before is still meant for the old settings.
void Dialogue::go_on_setting_line(double now) {
    if (port_->blocked_for(*this))
        return finish(false);
    if (!port_->has_drained(active_->output_end) && now < active_->deadline) {
        due_ = std::min(active_->deadline, now + port_->drain_time());
        return;
    }
    std::string why;
    const bool set = port_->set_line(record_of<SERIALD_port_params>(active_->request.data), why);
    if (!set)
        complain(now, why);
    finish(set);
}

void Dialogue::begin_settings(double now) {
    const auto settings = record_of<SERIALD_int_params>(active_->request.data);
    std::string why;
    if (!port_->resize(settings.max_buffer_size, settings.max_echo_size, why)) {
        complain(now, why);
        return finish(false);
    }
    port_->claim(*this, settings.exclusive_mode != FALSE);
    finish(true);
}

void Dialogue::begin_add_repeater(double now) {
    const auto record = record_of<SERIALD_repeater_add>(active_->request.data);
    const auto name = text_of(record.filename);
    std::string why = "its name has no end";
    const bool added = name && port_->add_repeater(*name, record.mode, record.line_buffer != FALSE,
                                                   around_.repeater_directory,
                                                   around_.complaints, why);
    if (!added)
        complain(now, "repeater \"" + printable(name.value_or(""), 255) + "\" refused: " + why);
    finish(added);
}

void Dialogue::begin_delete_repeater(double) {
    const auto name = text_of(record_of<SERIALD_repeater_delete>(active_->request.data).filename);
    finish(name && port_->remove_repeater(*name));
}

} // namespace zebseriald

#include "serial_line.h"

#include <cstdio>
#include <cstdlib>
#include <poll.h>

#include <zeb2/util.h>

namespace zebctl {
namespace {

constexpr size_t k_largest_answer = 1 << 20; // more than any frame of the link holds
constexpr int k_handshake_look = 5;          // ms

} // namespace

SerialLine::~SerialLine() {
    SERIALCOM_disconnect(&link_);
    // The thread of a link that was lost has ended by itself, and nobody joined it.
    if (started_ && link_.thd != nullptr) {
        pthread_join(*link_.thd, nullptr);
        free(link_.thd);
    }
}

bool SerialLine::open() {
    SERIALD_connect_params name = {};
    UTIL_strncpynt(name.port_name, choice_.name.c_str(), sizeof name.port_name);
    buffer_.resize(k_largest_answer);
    started_ = SERIALCOM_connect(&name, &link_);
    if (!started_) {
        fprintf(stderr, "zebctl: is the serial-port server running? Start zebseriald, or set "
                        "ZEB2RUN to the directory of its socket\n");
        return false;
    }
    return wait_for_server() && configure();
}

bool SerialLine::wait_for_server() {
    while (SERIALCOM_test_connected_ext(&link_) == 0 && !UTIL_exit_poll())
        poll(nullptr, 0, k_handshake_look);
    if (SERIALCOM_test_connected(&link_))
        return true;
    if (!UTIL_exit_poll())
        fprintf(stderr,
                "zebctl: the serial-port server does not open %s; its own messages say why "
                "(journalctl -u zebseriald)\n",
                name().c_str());
    return false;
}

bool SerialLine::configure() {
    if (!choice_.settings)
        return true;
    SERIALCOM_set_port_params(&link_, &*choice_.settings);
    if (SERIALCOM_poll_request_success(&link_))
        return true;
    fprintf(stderr,
            "zebctl: %s does not take these settings; the serial-port server's messages say why "
            "(journalctl -u zebseriald)\n",
            name().c_str());
    return false;
}

SerialLine::Outcome SerialLine::outcome(bool good) {
    if (good)
        return Outcome::done;
    return SERIALCOM_test_connected(&link_) && !UTIL_exit_poll() ? Outcome::refused : Outcome::over;
}

SerialLine::Outcome SerialLine::take(long size, std::string &data) {
    data.assign(buffer_.data(), size > 0 ? static_cast<size_t>(size) : 0);
    // Before its first bytes a link has none to hand out, which is no failure of the request.
    return outcome(size >= 0 || SERIALCOM_poll_request_success(&link_));
}

SerialLine::Outcome SerialLine::read_new(std::string &data) {
    return take(SERIALCOM_read_new(&link_, buffer_.data(), buffer_.size()), data);
}

SerialLine::Outcome SerialLine::read_echo(std::string &data) {
    return take(SERIALCOM_read_new_echo(&link_, buffer_.data(), buffer_.size()), data);
}

SerialLine::Outcome SerialLine::read_until(std::string_view stops, double seconds,
                                           std::string &data) {
    return take(SERIALCOM_read_until(&link_, stops.data(), stops.size(), seconds, -1.0,
                                     buffer_.data(), buffer_.size()),
                data);
}

SerialLine::Outcome SerialLine::write(std::string_view data) {
    return outcome(SERIALCOM_issue_write(&link_, data.data(), data.size()));
}

SerialLine::Outcome SerialLine::write_out(std::string_view data, double seconds) {
    return outcome(SERIALCOM_write_blocking(&link_, data.data(), data.size(), seconds));
}

} // namespace zebctl

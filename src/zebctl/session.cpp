#include "session.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <unistd.h>

#include "command.h"

namespace zebctl {
namespace {

constexpr double k_look = 0.02;    // s between looks for what has come
constexpr double k_patience = 5.0; // s for a message to leave

using Listener = std::function<void(const ZEBMSG_proc_msg &)>;

void received(ZEBMSG_proc_msg *message, void *listener) {
    (*static_cast<const Listener *>(listener))(*message);
}

} // namespace

int fail(const std::string &text) {
    fprintf(stderr, "zebctl: %s\n", text.c_str());
    return k_failed;
}

Session::Session(const std::string &config, const std::string &name)
    : daemon_{name.empty() ? "zebctl-" + std::to_string(getpid()) : name, config},
      configuration_(daemon_, daemon_kit::Configuration::Missing::allowed) {
    is_connected_ = !configuration_.is_refused() && station_.connect(daemon_.name, configuration_);
}

Session::Heard Session::listen(double seconds, const Listener &hear,
                               const std::function<bool()> &is_enough) {
    using Clock = std::chrono::steady_clock;
    const auto started = Clock::now();
    while (!is_enough()) {
        const std::chrono::duration<double> passed = Clock::now() - started;
        const double left = seconds < 0 ? k_look : seconds - passed.count();
        if (left <= 0)
            return Heard::too_little;
        if (!station_.wait(std::min(left, k_look)))
            return station_.result() == 0 ? Heard::interrupted : Heard::gone;
        ZEBMSG_process_messages(messages(), received, const_cast<Listener *>(&hear));
    }
    return Heard::enough;
}

int Session::send() {
    return drain(k_patience) ? k_done : fail("the message server does not take the message");
}

} // namespace zebctl

#include "server.h"

#include <algorithm>
#include <new>

namespace zebseriald {
namespace {

using serverkit::monotonic;
using serverkit::report;
using serverkit::UniqueFd;

constexpr size_t k_scratch = 65536;
constexpr int k_events = 256;
constexpr size_t k_newcomers = 32; // connections without a handshake, beside the clients
constexpr int k_accepts = 64;      // per cycle
constexpr double k_latest = 15;    // s behind a due time: more is a stop of the machine
constexpr double k_accept_pause = 1;
constexpr double k_drain = 1; // for what the ports still have to send when the server stops
constexpr double k_deaf = 1;  // until a descriptor that cannot be watched is tried again

uint32_t wanted(const Port &port) {
    return port.queued() > 0 ? EPOLLIN | EPOLLOUT : EPOLLIN;
}

uint32_t wanted(const Client &client) {
    return client.out.empty() ? EPOLLIN : EPOLLIN | EPOLLOUT;
}

} // namespace

Server::Server(const Config &config)
    : config_(config), now_(monotonic()), next_check_(k_no_limit),
      ports_(config_.ports, config_.limits), around_{ports_, config_.limits, complaints_,
                                                     config_.repeater_directory},
      scratch_(std::make_unique<char[]>(k_scratch)) {
    ports_.on_stir = [this](Port &port) { stirred_.push_back(&port); };
    ports_.on_open = [this](Port &port) {
        port_of_[port.fd()] = &port;
        listen_for(port.fd(), Kind::port, EPOLLIN, port.interest);
    };
    ports_.on_close = [this](Port &port) {
        std::erase(stirred_, &port);
        std::erase_if(port_of_, [&](const auto &entry) { return entry.second == &port; });
    };
}

bool Server::watch(int fd, Kind kind, uint32_t events) {
    return watch_.add(fd, static_cast<uint32_t>(kind), events);
}

// Lets the loop report what is wanted; what fails is tried again by check_deaf().
void Server::listen_for(int fd, Kind kind, uint32_t events, uint32_t &interest) {
    if (events == interest)
        return;
    const bool done = interest == 0 ? watch(fd, kind, events)
                                    : watch_.change(fd, static_cast<uint32_t>(kind), events);
    if (done)
        interest = events;
    else
        wake_at(now_ + k_deaf);
}

bool Server::open() {
    if (!watch_.open())
        return false;
    serverkit::raise_descriptor_limit(2 * config_.limits.clients + k_newcomers + 32);
    signals_ = serverkit::catch_stop_signals();
    if (!signals_ || !watch(signals_.get(), Kind::signal, EPOLLIN))
        return false;
    auto local = serverkit::listen_local(serverkit::run_path(".serialdsocket"), config_.access);
    if (!local)
        return false;
    listener_.emplace(std::move(*local));
    return watch(listener_->fd(), Kind::listener, EPOLLIN);
}

bool Server::run() {
    epoll_event events[k_events];
    while (!stopped()) {
        const double due = next_check_;
        const int count = watch_.wait(events, k_events, due - monotonic());
        if (count < 0)
            return false;
        now_ = monotonic();
        if (now_ - due > k_latest)
            forgive(now_ - due);
        try {
            for (int i = 0; i < count; ++i)
                dispatch(static_cast<Kind>(serverkit::Watch::kind(events[i])),
                         serverkit::Watch::fd(events[i]), events[i].events);
            settle();
            run_timers();
            if (memory_fault_.over() > 0)
                report("memory suffices again");
        } catch (const std::bad_alloc &) {
            if (memory_fault_.occurred())
                report("memory is short; what could not be done is left");
            wake_at(now_ + 1); // timers may be among it
        }
    }
    return true;
}

// The machine was stopped: the clients could say as little as this server could hear.
void Server::forgive(double seconds) {
    for (auto &[fd, client] : clients_)
        client->last_heard += seconds;
}

void Server::dispatch(Kind kind, int fd, uint32_t events) {
    switch (kind) {
    case Kind::signal:
        if (serverkit::take_signal(signals_))
            stop();
        return;
    case Kind::listener:
        return accept_all();
    case Kind::client:
        return serve_client(fd);
    case Kind::port:
        return serve_port(fd, events);
    }
}

// --- connections -------------------------------------------------------------------------------

void Server::accept_all() {
    using Result = serverkit::Acceptor::Result;
    for (int i = 0; i < k_accepts && resume_at_ == 0 && stop_deadline_ == 0; ++i) {
        UniqueFd connection;
        sockaddr_storage address{};
        const Result result = acceptor_.accept(listener_->fd(), connection, address);
        if (result == Result::none)
            return;
        if (result == Result::accepted)
            admit(std::move(connection));
        if (result == Result::pause) {
            watch_.remove(listener_->fd());
            resume_at_ = now_ + k_accept_pause;
            wake_at(resume_at_);
        }
    }
}

void Server::admit(UniqueFd fd) {
    if (clients_.size() >= config_.limits.clients + k_newcomers)
        return complaints_.about(now_, "connection (" + serverkit::local_origin(fd.get()) + ")",
                                 "refused: too many connections");
    const int number = fd.get();
    if (!watch(number, Kind::client, EPOLLIN))
        return;
    auto client = std::make_unique<Client>(around_, ++next_number_, std::move(fd), now_);
    client->interest = EPOLLIN;
    wake_at(patience(*client));
    clients_[number] = std::move(client);
}

void Server::serve_client(int fd) {
    const auto found = clients_.find(fd);
    if (found == clients_.end())
        return;
    Client &client = *found->second;
    touch(client); // there may be room for more of its queue
    if (client.doom == nullptr)
        client.read_some(scratch_.get(), k_scratch, now_);
}

void Server::serve_port(int fd, uint32_t events) {
    const auto found = port_of_.find(fd);
    if (found == port_of_.end() || found->second->fd() != fd)
        return;
    Port &port = *found->second;
    if (port.read_input(now_, Port::Depth::once) && (events & EPOLLOUT) != 0)
        port.write_output(now_);
}

// --- the end of a cycle ------------------------------------------------------------------------

void Server::touch(Client &client) {
    if (!client.touched)
        touched_.push_back(&client);
    client.touched = true;
}

// A change at a port lets its users' requests go on; their answers, and their leaving, may again
// change ports.
void Server::settle() {
    while (!stirred_.empty() || !touched_.empty()) {
        if (!stirred_.empty()) {
            Port &port = *stirred_.back();
            stirred_.pop_back();
            settle_port(port);
        } else {
            Client &client = *touched_.back();
            touched_.pop_back();
            client.touched = false;
            settle_client(client);
        }
    }
}

void Server::settle_port(Port &port) {
    port.stirred = false;
    for (Dialogue *user : port.users()) { // nobody leaves before its client is settled
        user->progress(now_);
        touch(static_cast<Client &>(*user));
    }
    if (!port.present() || port.users().empty())
        wake_at(std::max(port.retry_at, now_));
    if (port.present())
        listen_for(port.fd(), Kind::port, wanted(port), port.interest);
}

void Server::settle_client(Client &client) {
    client.flush();
    if (client.doom != nullptr)
        return close_client(client);
    wake_at(client.due());
    wake_at(patience(client));
    listen_for(client.fd.get(), Kind::client, wanted(client), client.interest);
}

void Server::close_client(Client &client) {
    if (client.at_fault)
        complaints_.about(now_, client.who(), std::string("disconnected: ") + client.doom);
    else if (config_.verbose)
        report("%s left: %s", client.who().c_str(), client.doom);
    ports_.detach(client, now_);
    clients_.erase(client.fd.get());
}

// --- timers ------------------------------------------------------------------------------------

// When the silence of a client is enough.
double Server::patience(const Client &client) const {
    if (client.leave_by != 0)
        return client.leave_by;
    return client.last_heard +
           (client.port() == nullptr ? config_.handshake_timeout : config_.heartbeat_timeout);
}

void Server::run_timers() {
    if (now_ < next_check_)
        return;
    next_check_ = k_no_limit;
    resume_accepting();
    check_clients();
    ports_.run_timers(now_);
    settle();
    check_deaf();
    if (!ports_.empty())
        wake_at(std::max(ports_.due(), now_ + 0.01));
    if (stop_deadline_ != 0)
        wake_at(stop_deadline_);
}

void Server::resume_accepting() {
    if (resume_at_ == 0 || stop_deadline_ != 0)
        return;
    if (now_ >= resume_at_) {
        const bool listening = watch(listener_->fd(), Kind::listener, EPOLLIN);
        resume_at_ = listening ? 0 : now_ + k_accept_pause;
    }
    if (resume_at_ != 0)
        wake_at(resume_at_);
}

void Server::check_deaf() {
    for (auto &[fd, port] : port_of_)
        if (port->fd() == fd)
            listen_for(fd, Kind::port, wanted(*port), port->interest);
    for (auto &[fd, client] : clients_)
        listen_for(fd, Kind::client, wanted(*client), client->interest);
}

void Server::check_clients() {
    for (auto &[fd, owned] : clients_) {
        Client &client = *owned;
        // After a stop of this process or of the whole machine everybody looks silent.
        if (now_ >= patience(client))
            client.read_some(scratch_.get(), k_scratch, now_);
        if (now_ >= patience(client))
            end_silent(client);
        if (client.doom != nullptr || now_ >= client.due()) {
            client.progress(now_);
            touch(client);
        }
        wake_at(client.due());
        wake_at(patience(client));
    }
}

void Server::end_silent(Client &client) {
    if (client.leave_by != 0)
        client.end("it closed its link", false);
    else if (client.port() == nullptr)
        client.end("it made no handshake in time");
    else
        client.end("it is silent");
}

// --- the stop ----------------------------------------------------------------------------------

void Server::stop() {
    stop_deadline_ = stop_deadline_ == 0 ? now_ + k_drain : now_; // asked twice: at once
    listener_->close();
    for (auto &[fd, client] : clients_) {
        client->end("the server stops", false);
        touch(*client);
    }
    settle();
    ports_.hurry(stop_deadline_);
    wake_at(now_);
}

bool Server::stopped() const {
    return stop_deadline_ != 0 && (ports_.empty() || monotonic() >= stop_deadline_);
}

} // namespace zebseriald

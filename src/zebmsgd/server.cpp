#include "server.h"

#include "records.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <netinet/tcp.h>
#include <new>
#include <sys/socket.h>
#include <unistd.h>

namespace zebmsgd {
namespace {

using serverkit::monotonic;
using serverkit::report;
using serverkit::UniqueFd;

constexpr size_t k_scratch = 65536;
constexpr int k_events = 256;
constexpr size_t k_newcomers = 32;     // connections without a handshake, beside the clients
constexpr size_t k_status_readers = 8; // the oldest goes when one more comes
constexpr double k_status_patience = 10;
constexpr double k_drain = 2;
constexpr double k_accept_pause = 1;
constexpr int k_accepts = 64; // per cycle and socket

} // namespace

Server::Server(const Config &config, std::string version)
    : config_(config), version_(std::move(version)), router_(config.limits),
      protocol_(router_, config.limits), started_(monotonic()), now_(started_),
      next_beat_(started_ + config.heartbeat_interval), next_check_(next_beat_),
      scratch_(std::make_unique<char[]>(k_scratch)) {
    protocol_.verbose = config.verbose;
    totals_.version = version_;
    // Every peer of this router is a connection of this server.
    router_.relieve = [this](Peer &peer) { static_cast<Client &>(peer).flush(router_); };
}

bool Server::watch(int fd, Kind kind, uint32_t events) {
    return watch_.add(fd, static_cast<uint32_t>(kind), events);
}

bool Server::open() {
    if (!watch_.open())
        return false;
    serverkit::raise_descriptor_limit(config_.limits.clients + k_newcomers + k_status_readers + 32);
    signals_ = serverkit::catch_stop_signals();
    if (!signals_ || !watch(signals_.get(), Kind::signal, EPOLLIN))
        return false;
    auto local = serverkit::listen_local(serverkit::run_path(".mainsocket"), config_.access);
    if (!local)
        return false;
    local_.emplace(std::move(*local));
    auto status = serverkit::listen_local(serverkit::run_path(".mainstatus"), config_.access);
    if (!status)
        return false;
    status_.emplace(std::move(*status));
    if (config_.tcp_port != 0) {
        tcp_ = serverkit::listen_tcp(config_.tcp_address, config_.tcp_port);
        if (!tcp_ || !watch(tcp_.get(), Kind::tcp, EPOLLIN))
            return false;
    }
    return watch(local_->fd(), Kind::local, EPOLLIN) && watch(status_->fd(), Kind::status, EPOLLIN);
}

bool Server::run() {
    epoll_event events[k_events];
    while (!stopped()) {
        const int count = watch_.wait(events, k_events, next_deadline() - monotonic());
        if (count < 0)
            return false;
        now_ = monotonic();
        try {
            for (int i = 0; i < count; ++i)
                dispatch(static_cast<Kind>(serverkit::Watch::kind(events[i])),
                         serverkit::Watch::fd(events[i]));
            run_timers();
            settle();
            if (memory_fault_.over() > 0)
                report("memory suffices again");
        } catch (const std::bad_alloc &) {
            if (memory_fault_.occurred())
                report("memory is short; what could not be done is left");
        }
    }
    return true;
}

void Server::dispatch(Kind kind, int fd) {
    switch (kind) {
    case Kind::signal:
        if (serverkit::take_signal(signals_))
            stop();
        return;
    case Kind::local:
    case Kind::tcp:
    case Kind::status:
        return accept_all(fd, kind);
    case Kind::client:
        return serve(fd);
    case Kind::status_reader:
        return continue_status(fd);
    }
}

// --- connections -------------------------------------------------------------------------------

void Server::accept_all(int fd, Kind kind) {
    for (int i = 0; i < k_accepts && accept_one(fd, kind); ++i)
        ;
}

bool Server::accept_one(int fd, Kind kind) {
    if (resume_at_ != 0 || stop_deadline_ != 0)
        return false;
    sockaddr_storage address{};
    UniqueFd connection;
    switch (acceptor_.accept(fd, connection, address)) {
    case serverkit::Acceptor::Result::accepted:
        break;
    case serverkit::Acceptor::Result::again:
        return true;
    case serverkit::Acceptor::Result::none:
        return false;
    case serverkit::Acceptor::Result::pause:
        pause_listening();
        return false;
    }
    if (kind == Kind::status) {
        open_status(std::move(connection));
        return true;
    }
    if (kind == Kind::local) {
        std::string origin = serverkit::local_origin(connection.get());
        admit(std::move(connection), std::move(origin));
        return true;
    }
    const std::string origin = serverkit::address_text(address);
    if (!config_.tcp_allow.empty() && !config_.tcp_allow.contains(address)) {
        refuse(origin, "its address is not allowed");
        return true;
    }
    const int on = 1;
    setsockopt(connection.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    admit(std::move(connection), origin);
    return true;
}

void Server::refuse(const std::string &origin, const char *why) {
    ++totals_.refused;
    if (refusal_fault_.occurred())
        report("connection (%s) refused: %s; more such are only counted", origin.c_str(), why);
}

void Server::admit(UniqueFd fd, std::string origin) {
    if (clients_.size() >= config_.limits.clients + k_newcomers)
        return refuse(origin, "too many connections");
    if (const size_t refused = refusal_fault_.over(); refused > 1)
        report("connections are admitted again, %zu were refused", refused);
    const int number = fd.get();
    if (!watch(number, Kind::client, EPOLLIN))
        return;
    auto client = std::make_unique<Client>(std::move(fd), std::move(origin), now_,
                                           config_.limits.queue_bytes);
    client->interest = EPOLLIN;
    clients_[number] = std::move(client);
    ++totals_.connections;
    next_check_ = std::min(next_check_, now_ + config_.handshake_timeout);
}

void Server::pause_listening() {
    resume_at_ = now_ + k_accept_pause;
    for (const int fd : {local_->fd(), status_->fd(), tcp_.get()})
        if (fd >= 0)
            watch_.remove(fd);
}

void Server::resume_listening() {
    resume_at_ = 0;
    watch(local_->fd(), Kind::local, EPOLLIN);
    watch(status_->fd(), Kind::status, EPOLLIN);
    if (tcp_)
        watch(tcp_.get(), Kind::tcp, EPOLLIN);
}

void Server::serve(int fd) {
    const auto found = clients_.find(fd);
    if (found == clients_.end())
        return;
    Client &client = *found->second;
    router_.touch(client); // there may be room for more of its queue
    if (client.doom != nullptr)
        return;
    if (stop_deadline_ != 0)
        return discard(client);
    const auto sink = [&](std::string_view payload) {
        protocol_.receive(client, payload, now_);
        return client.doom == nullptr;
    };
    try {
        client.read_some(scratch_.get(), k_scratch, sink, router_);
    } catch (const std::bad_alloc &) { // its stream is no longer in step
        router_.doom(client, "memory is short for what it sends");
    }
}

// The client is to hang up: one that is just sending would find its link broken, and not look for
// the farewell.
void Server::discard(Client &client) {
    const ssize_t got = recv(client.fd.get(), scratch_.get(), k_scratch, MSG_DONTWAIT);
    if (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR))
        router_.doom(client, "the server stops", false);
}

void Server::change(Client &client) {
    uint32_t wanted = EPOLLIN;
    if (!client.out.empty())
        wanted |= EPOLLOUT;
    if (wanted == client.interest)
        return;
    if (watch_.change(client.fd.get(), static_cast<uint32_t>(Kind::client), wanted))
        client.interest = wanted;
}

// Sends what the cycle has queued and lets go of who must go; both may give others more to send.
void Server::settle() {
    while (Peer *peer = router_.take_touched()) {
        Client &client = static_cast<Client &>(*peer);
        if (client.doom == nullptr) {
            client.flush(router_);
            if (client.replay_next < client.replay_end)
                router_.continue_replay(client);
        }
        if (client.doom != nullptr)
            close_client(client);
        else
            change(client);
    }
}

void Server::close_client(Client &client) {
    router_.leave(client);
    if (client.at_fault) {
        client.flush(router_); // an older connection learns that its name was taken
        ++totals_.cut_off;
    }
    if (client.at_fault || config_.verbose) {
        const std::string reason = client.error == 0
                                       ? client.doom
                                       : std::string(client.doom) + ": " + strerror(client.error);
        report("%s disconnected: %s (%zu bytes unsent, %llu of its messages dropped)",
               describe(client).c_str(), reason.c_str(), client.out.bytes(),
               static_cast<unsigned long long>(client.traffic.dropped));
    }
    router_.forget(client);
    totals_.gone.add(client.traffic);
    shutdown(client.fd.get(), SHUT_WR);
    clients_.erase(client.fd.get());
}

// --- status ------------------------------------------------------------------------------------

Totals Server::totals() const {
    Totals totals = totals_;
    totals.failed_accepts = acceptor_.failures();
    totals.uptime = now_ - started_;
    totals.heartbeat = protocol_.heartbeat_index();
    totals.retained = router_.retained();
    return totals;
}

void Server::open_status(UniqueFd fd) {
    std::vector<const Client *> clients;
    for (const auto &[number, client] : clients_)
        clients.push_back(client.get());
    std::sort(clients.begin(), clients.end(), [](const Client *a, const Client *b) {
        return std::pair(a->connected, a->fd.get()) < std::pair(b->connected, b->fd.get());
    });
    StatusReader reader{std::move(fd), status_document(totals(), clients, now_), 0,
                        now_ + k_status_patience};
    if (!write_status(reader))
        return;
    if (readers_.size() >= k_status_readers)
        readers_.pop_front();
    if (watch(reader.fd.get(), Kind::status_reader, EPOLLOUT))
        readers_.push_back(std::move(reader));
}

bool Server::write_status(StatusReader &reader) {
    while (reader.sent < reader.text.size()) {
        const ssize_t count = send(reader.fd.get(), reader.text.data() + reader.sent,
                                   reader.text.size() - reader.sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0)
            return errno == EAGAIN || errno == EINTR;
        reader.sent += static_cast<size_t>(count);
    }
    return false;
}

void Server::continue_status(int fd) {
    const auto reader = std::find_if(readers_.begin(), readers_.end(),
                                     [fd](const StatusReader &r) { return r.fd.get() == fd; });
    if (reader != readers_.end() && !write_status(*reader))
        readers_.erase(reader);
}

// --- timers ------------------------------------------------------------------------------------

double Server::next_deadline() const {
    if (stop_deadline_ != 0)
        return stop_deadline_;
    double deadline = std::min(next_beat_, next_check_);
    if (resume_at_ != 0)
        deadline = std::min(deadline, resume_at_);
    if (!readers_.empty())
        deadline = std::min(deadline, readers_.front().deadline);
    return deadline;
}

void Server::run_timers() {
    if (stop_deadline_ != 0)
        return;
    if (now_ >= next_beat_) {
        protocol_.beat(now_);
        next_beat_ = now_ + config_.heartbeat_interval;
    }
    if (now_ >= next_check_)
        check_clients();
    if (resume_at_ != 0 && now_ >= resume_at_)
        resume_listening();
    while (!readers_.empty() && now_ >= readers_.front().deadline)
        readers_.pop_front();
}

// A silent client goes only when it has had an interval to answer a heartbeat: after a stop of this
// process or of the whole machine everybody looks silent.
void Server::check_clients() {
    const double answer_time = std::min(config_.heartbeat_interval, config_.heartbeat_timeout);
    next_check_ = now_ + answer_time;
    for (auto &[fd, owned] : clients_) {
        Client &client = *owned;
        if (!client.open) {
            const double limit = client.connected + config_.handshake_timeout;
            if (now_ >= limit)
                router_.doom(client, "it made no handshake in time");
            else
                next_check_ = std::min(next_check_, limit);
            continue;
        }
        if (client.unanswered_since == 0)
            continue;
        const double limit = std::max(client.last_echo + config_.heartbeat_timeout,
                                      client.unanswered_since + answer_time);
        if (now_ >= limit)
            router_.doom(client, "it does not answer heartbeats");
        else
            next_check_ = std::min(next_check_, limit);
    }
}

// --- the stop ----------------------------------------------------------------------------------

void Server::stop() {
    if (stop_deadline_ != 0) { // asked twice: at once
        stop_deadline_ = now_;
        return;
    }
    stop_deadline_ = now_ + k_drain;
    local_->close();
    status_->close();
    tcp_.reset();
    readers_.clear();
    router_.send_all(make_terminate());
    router_.tells_of_leaving = false;
    for (auto &[fd, client] : clients_) {
        if (!client->open)
            router_.doom(*client, "the server stops", false);
        router_.touch(*client);
    }
}

bool Server::stopped() const {
    if (stop_deadline_ == 0)
        return false;
    return clients_.empty() || monotonic() >= stop_deadline_;
}

} // namespace zebmsgd

#include "router.h"

#include "records.h"
#include "serverkit/report.h"

#include <algorithm>
#include <cctype>

namespace zebmsgd {
namespace {

using serverkit::printable;

// Names differ only in more than case, as everywhere in the station.
std::string key_of(std::string_view name) {
    std::string key(name);
    for (char &c : key)
        c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return key;
}

// A replay leaves this part of a queue to what is said meanwhile.
constexpr size_t k_replay_share = 4;

} // namespace

void Router::touch(Peer &peer) {
    if (peer.touched)
        return;
    touched_.push_back(&peer); // first: without memory for it the peer must not look as if it waited
    peer.touched = true;
}

void Traffic::add(const Traffic &more) {
    messages_in += more.messages_in;
    bytes_in += more.bytes_in;
    messages_out += more.messages_out;
    bytes_out += more.bytes_out;
    filtered += more.filtered;
    dropped += more.dropped;
}

Peer *Router::take_touched() {
    if (touched_.empty())
        return nullptr;
    Peer *peer = touched_.back();
    touched_.pop_back();
    peer->touched = false;
    return peer;
}

void Router::doom(Peer &peer, const char *why, bool at_fault) {
    if (peer.doom == nullptr) {
        peer.doom = why;
        peer.at_fault = at_fault;
    }
    touch(peer);
}

void Router::join(Peer &peer) {
    peer.open = true;
    peer.joined_at = next_stamp_;
    peers_.push_back(&peer);
    if (!peer.name.empty())
        by_name_[key_of(peer.name)] = &peer;
}

void Router::forget(Peer &peer) {
    std::erase(touched_, &peer);
    peer.touched = false;
}

void Router::leave(Peer &peer) {
    forget(peer);
    if (!peer.open)
        return;
    peer.open = false;
    std::erase(peers_, &peer);
    std::erase_if(by_name_, [&](const auto &entry) { return entry.second == &peer; });
    forget_retained(peer);
    if (tells_of_leaving)
        send_all(make_client_left(peer.name));
}

Peer *Router::find(std::string_view name) const {
    const auto found = name.empty() ? by_name_.end() : by_name_.find(key_of(name));
    return found == by_name_.end() ? nullptr : found->second;
}

void Router::drop(Peer &from, const char *why) {
    ++from.traffic.dropped;
    if (std::find(from.reported_drops.begin(), from.reported_drops.end(), why) !=
        from.reported_drops.end())
        return;
    from.reported_drops.push_back(why);
    serverkit::report("client \"%s\": %s; message dropped, more such are only counted",
                      printable(from.name).c_str(), why);
}

void Router::send(Peer &to, const Frame &frame) {
    if (!frame || to.doom != nullptr)
        return;
    if (!to.out.push(frame)) {
        // Queued in this cycle alone it may be more than the limit: see what the socket takes.
        if (relieve)
            relieve(to);
        if (to.doom != nullptr)
            return;
        if (!to.out.push(frame))
            return doom(to, "it does not read and its queue is full");
    }
    ++to.traffic.messages_out;
    touch(to);
}

void Router::send_all(const Frame &frame) {
    for (Peer *peer : peers_)
        send(*peer, frame);
}

void Router::deliver(Peer &to, const Subject &subject, const Frame &frame) {
    if (to.filters.empty() || to.filters.accepts(subject))
        send(to, frame);
    else
        ++to.traffic.filtered;
}

void Router::publish(Peer &from, const Message &message, const Frame &frame) {
    const Subject subject(message, from.name, from.announced);
    for (Peer *peer : peers_)
        if (peer != &from)
            deliver(*peer, subject, frame);
}

void Router::pass_on(Peer &from, const Message &message, const Frame &frame) {
    if (Peer *to = find(message.destination))
        deliver(*to, Subject(message, from.name, from.announced), frame);
    else if ((message.flags & k_flag_retain) == 0)
        drop(from, "the destination is not connected");
}

void Router::retain(Peer &from, const Message &message, const Frame &frame) {
    const auto key = std::pair<const Peer *, std::string>(&from, message.name);
    const auto known = retained_at_.find(key);
    const size_t before =
        known == retained_at_.end() ? 0 : retained_.at(known->second).frame.size();
    if (known == retained_at_.end() && from.retained >= limits_.retained) {
        drop(from, "has too many retained messages");
        return;
    }
    if (from.retained_bytes - before + frame.size() > limits_.retained_bytes) {
        drop(from, "has too many bytes in retained messages");
        return;
    }
    from.retained_bytes = from.retained_bytes - before + frame.size();
    if (known != retained_at_.end()) {
        Retained &entry = retained_.at(known->second);
        entry.frame = frame;
        entry.stamp = next_stamp_++;
        return;
    }
    ++from.retained;
    retained_at_.emplace(key, next_retained_);
    retained_.emplace(next_retained_++, Retained{&from, key.second, frame, next_stamp_++});
}

void Router::forget_retained(const Peer &peer) {
    std::erase_if(retained_, [&](const auto &entry) { return entry.second.from == &peer; });
    std::erase_if(retained_at_, [&](const auto &entry) { return entry.first.first == &peer; });
}

void Router::route(Peer &from, const Message &message) {
    const bool publishes = (message.flags & k_flag_publish) != 0;
    const bool retains = (message.flags & k_flag_retain) != 0;
    if (!publishes && !retains && message.destination.empty()) {
        drop(from, "sent the server a message that it does not know");
        return;
    }
    const Frame frame = frame_message(message, from.name);
    if (!frame) {
        drop(from, "a message is too long to pass on");
        return;
    }
    if (retains)
        retain(from, message, frame);
    if (publishes)
        publish(from, message, frame);
    else if (!message.destination.empty())
        pass_on(from, message, frame);
}

void Router::begin_replay(Peer &peer) {
    if (peer.greeted)
        return;
    peer.greeted = true;
    peer.replay_next = 0;
    peer.replay_end = next_retained_;
    continue_replay(peer);
}

void Router::continue_replay(Peer &peer) {
    const size_t room = peer.out.limit() / k_replay_share;
    auto entry = retained_.lower_bound(peer.replay_next);
    while (entry != retained_.end() && entry->first < peer.replay_end && peer.doom == nullptr) {
        if (!peer.out.empty() && peer.out.load() > room) {
            peer.replay_next = entry->first;
            return;
        }
        if (entry->second.from != &peer)
            replay(peer, entry->second);
        ++entry;
    }
    peer.replay_next = peer.replay_end;
}

// One that was meant for a single client is replayed to that client alone; one that passed while
// the client was connected already is not said twice.
void Router::replay(Peer &to, const Retained &entry) {
    const auto message = parse_message(entry.frame.payload());
    if (!message)
        return;
    const bool published = (message->flags & k_flag_publish) != 0;
    if (entry.stamp >= to.joined_at && (published || !message->destination.empty()))
        return;
    const bool for_all = published || message->destination.empty();
    if (for_all || key_of(message->destination) == key_of(to.name))
        deliver(to, Subject(*message, entry.from->name, entry.from->announced), entry.frame);
}

} // namespace zebmsgd

#include "replayer.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <unistd.h>

#include <zeb2/util.h>

#include "command.h"
#include "option_checks.h"
#include "session.h"
#include "status_client.h"
#include "text.h"

namespace zebctl {
namespace {

constexpr double k_look = 0.05;         // s between looks for the program's end
constexpr double k_patience = 30;       // s for the server to answer
constexpr double k_show = 0.25;         // s between lines of progress
constexpr size_t k_ahead = 1024 * 1024; // bytes queued before the server must take some

// What a link asks itself through the server. Nobody else gets it.
constexpr NETMSG_type k_question = MSG_TEST_THREE;
constexpr std::string_view k_question_name = "MSG_TEST_THREE";

// Lasts as long as the server takes something from time to time.
class Patience {
  public:
    explicit Patience(const FrameLink &link) : link_(link), queued_(link.queued()) {}

    // False, reported, when it is over.
    bool lasts() {
        const size_t queued = link_.queued();
        if (queued < queued_)
            since_ = Clock::now();
        queued_ = queued;
        if (std::chrono::duration<double>(Clock::now() - since_).count() <= k_patience)
            return true;
        fail("the message server does not answer");
        return false;
    }

  private:
    using Clock = std::chrono::steady_clock;
    const FrameLink &link_;
    size_t queued_;
    Clock::time_point since_ = Clock::now();
};

} // namespace

Replayer::Replayer(const ReplayOptions &options, ByteFaults &faults)
    : options_(options), faults_(faults), started_(Clock::now()),
      shows_(isatty(STDERR_FILENO) != 0), shown_(started_) {}

int Replayer::run(ByteWindow &window, const std::string &name, uint64_t size) {
    size_ = size;
    RecordingReader reader(window, [this](uint64_t offset, const std::string &what) {
        faults_.skipped(offset, what);
    });
    if (!reader.open())
        return fail(name + ": " +
                    (window.error() != 0 ? strerror(window.error()) : "this is no recording"));
    if (!options_.as_sources && !open_own())
        return k_failed;
    started_ = Clock::now();
    const bool good = send_all(reader);
    show_progress(true);
    fprintf(stderr, "zebctl: %ld messages replayed", sent_);
    if (left_out_ > 0)
        fprintf(stderr, ", %ld left out", left_out_);
    fprintf(stderr, "%s\n", good ? "" : ", then stopped");
    if (good && window.error() != 0 && window.error() != EINTR)
        return fail(name + ": " + strerror(window.error()));
    return good && window.error() == 0 && !faults_.any() ? k_done : k_failed;
}

bool Replayer::attend(int fd) {
    pollfd input = {fd, POLLIN, 0};
    do {
        if (!step(0))
            return false;
    } while (poll(&input, 1, static_cast<int>(k_look * 1000)) <= 0);
    return true;
}

bool Replayer::open_own() {
    return open_link(options_.name) != nullptr;
}

bool Replayer::send_all(RecordingReader &reader) {
    RecordingEntry entry;
    while (reader.next(entry)) {
        offset_ = entry.offset;
        if (!send(entry))
            return false;
        show_progress(false);
    }
    for (const auto &[name, link] : links_)
        if (!settle(*link))
            return false;
    return true;
}

bool Replayer::send(const RecordingEntry &entry) {
    const auto message = serverkit::parse_message(entry.payload());
    if (!message) {
        faults_.skipped(entry.offset, "a frame that holds no message");
        return true;
    }
    if (!options_.choice.matches(message->name, message->source))
        return true;
    if (is_of_the_link(message->name)) {
        ++left_out_;
        return true;
    }
    if (!wait_for_turn(entry.time))
        return false;
    if (options_.as_sources)
        return send_as_source(*message, entry.payload());
    // Under one name only that name's coming and going is true.
    if (message->name == "MSG_NOTIFY_CLIENT_CONNECT" ||
        message->name == "MSG_NOTIFY_CLIENT_TERMINATE") {
        ++left_out_;
        return true;
    }
    return send_on(*links_.begin()->second, entry.payload());
}

bool Replayer::send_as_source(const serverkit::Message &message, std::string_view payload) {
    const std::string source(message.source);
    if (source.empty() || source.size() > k_longest_name ||
        source.find('\0') != std::string::npos) {
        ++left_out_;
        return true;
    }
    if (message.name == "MSG_NOTIFY_CLIENT_TERMINATE")
        return leave_as(source);
    FrameLink *link = link_of(source);
    return link != nullptr && send_on(*link, payload);
}

bool Replayer::send_on(FrameLink &link, std::string_view payload) {
    // The server reads from many links in an order of its own: the frames of one are passed on
    // before another's are sent.
    if (latest_ != nullptr && latest_ != &link && !settle(*latest_))
        return false;
    latest_ = &link;
    link.send(payload);
    ++sent_;
    link.transfer(false, nullptr);
    while (link.queued() > k_ahead)
        if (!step(k_look))
            return false;
    return is_sound();
}

// The server itself tells the others that a client left.
bool Replayer::leave_as(const std::string &source) {
    FrameLink *link = link_of(source);
    if (link == nullptr || (latest_ != nullptr && !settle(*latest_)))
        return false;
    latest_ = nullptr;
    link->send_notice(MSG_SERVER_TERMINATE, 0);
    Patience patience(*link);
    while (link->is_open())
        if (!serve({link}, k_look, nullptr) || !patience.lasts())
            return false;
    links_.erase(source);
    ++sent_;
    return true;
}

FrameLink *Replayer::link_of(const std::string &source) {
    const auto known = links_.find(source);
    if (known != links_.end())
        return known->second.get();
    if (latest_ != nullptr && !settle(*latest_))
        return nullptr;
    return may_be(source) ? open_link(source) : nullptr;
}

FrameLink *Replayer::open_link(const std::string &name) {
    auto link = std::make_unique<FrameLink>();
    if (!link->open(name, options_.host.empty() ? nullptr : options_.host.c_str(), k_patience))
        return nullptr;
    link->hear_own_only();
    return (links_[name] = std::move(link)).get();
}

// A newcomer of the same name would throw a program off the server.
bool Replayer::may_be(const std::string &source) {
    const char *server = getenv("ZEB2SERVER");
    if (options_.take_over)
        return true;
    if (!options_.host.empty() || (server != nullptr && *server != '\0')) {
        fail(
            "who is connected to a remote server cannot be told: --take-over replays all the same");
        return false;
    }
    const auto status = fetch_status();
    if (!status)
        return false;
    for (const auto &client : status->value("clients", nlohmann::json::array()))
        if (UTIL_strcasecmp(client.value("name", "").c_str(), source.c_str()) == 0) {
            fail("a program named " + visible(source) +
                 " is connected: --take-over replays in its place");
            return false;
        }
    return true;
}

bool Replayer::wait_for_turn(FTIME time) {
    if (!std::isfinite(time))
        time = time_; // of another's recording: it adds no pause
    double pause = time_ >= 0 && time > time_ ? time - time_ : 0;
    if (options_.longest_pause >= 0)
        pause = std::min(pause, options_.longest_pause);
    time_ = time;
    if (options_.fast)
        return is_sound();
    elapsed_ += pause / options_.speed;
    for (;;) {
        const std::chrono::duration<double> passed = Clock::now() - started_;
        if (passed.count() >= elapsed_)
            return is_sound();
        if (!step(std::min(elapsed_ - passed.count(), k_look)))
            return false;
        show_progress(false);
    }
}

// Waits until the server has passed on what a link sent: it answers in order.
bool Replayer::settle(FrameLink &link) {
    Patience patience(link);
    answered_.clear();
    link.send_notice(k_question, 0, link.name());
    while (answered_ != link.name())
        if (!step(k_look) || !patience.lasts())
            return false;
    return true;
}

bool Replayer::step(double seconds) {
    std::vector<FrameLink *> links;
    for (const auto &[name, link] : links_)
        links.push_back(link.get());
    const bool going = serve(links, seconds, [this](std::string_view frame) {
        const auto message = serverkit::parse_message(frame.substr(serverkit::k_frame_header));
        if (message && message->name == k_question_name && message->source == message->destination)
            answered_ = message->source;
    });
    return going && is_sound();
}

bool Replayer::is_sound() {
    for (const auto &[name, link] : links_)
        if (!link->is_open()) {
            fail(visible(name) + ": " + link->ending());
            return false;
        }
    return true;
}

void Replayer::show_progress(bool last) {
    const auto now = Clock::now();
    if (!shows_ || (!last && now - shown_ < std::chrono::duration<double>(k_show)))
        return;
    shown_ = now;
    const std::chrono::duration<double> passed = now - started_;
    const std::string part =
        size_ > 0 ? std::to_string((last ? size_ : offset_) * 100 / size_) + " %, " : "";
    fprintf(stderr, "\r%s%ld messages, %s %s", part.c_str(), sent_,
            duration(passed.count()).c_str(), last ? "\n" : "");
}

} // namespace zebctl

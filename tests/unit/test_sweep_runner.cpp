#include "test_sweep_runner.h"

#include "netpack_int.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <malloc.h>
#include <map>
#include <new>
#include <poll.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace zeb::test {

struct SharedSweep {
    FailingState state;
    SessionReport failing, clean;
    bool struck, stopped, lifted, done;
    long calls[k_calls];
    long blocks; // more than before, behind both sessions
    size_t descriptors_before, descriptors_behind, threads_behind;
};

namespace {

constexpr double k_limit = 100; // s of one point, on however busy a machine
constexpr int k_clean_line = 1000;

// What the library says when nothing is wrong.
constexpr const char *k_talk[] = {
    "Message socket (", "Connected to serial server socket", "Received handshake - ",
    "Serial server handshake complete", "Notifying server of socket closing",
    "Notifying serial server disconnect", "Disconnected socket", "Disconnected from serial server",
    "Created child process", "terminated by SIGINT", "terminated by SIGKILL",
    "assuming EOF, flagged for closing",
    // of a busy machine
    "didn't respond to SIGINT or SIGKILL"};

// Lines of two threads may have become mixed: a place in the sources may stand alone. What a child
// says before it becomes another program may stand within a line, too.
bool is_talk(const std::string &line) {
    for (const char *failed : {"malloc: ", "dup2: ", "execv: ", "execvp: ", "fcntl: "})
        if (line.find(failed) != std::string::npos)
            return false;
    return line.rfind(" (", 0) == 0 ||
           std::any_of(std::begin(k_talk), std::end(k_talk),
                       [&](const char *text) { return line.find(text) != std::string::npos; });
}

std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

bool has_diagnostics(const std::string &errors) {
    for (const std::string &line : lines_of(errors))
        if (!is_talk(line))
            return true;
    return false;
}

size_t threads() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return static_cast<size_t>(std::distance(begin(tasks), end(tasks)));
}

// The ends of a process that are settled: no memory for a message on its way or for its packet, and
// a wait for news that cannot be trusted.
struct FatalEnd {
    Call call;
    int status;
    const char *text;
};
constexpr FatalEnd k_fatal_ends[] = {
    {Call::allocation, 255, "assertion failed (netpack_message.cpp:"},
    {Call::allocation, 255, "assertion failed (netmsg.cpp:"},
    {Call::pthread_cond_timedwait, 1, "Unknown error on pthread_cond_timedwait: "},
};

// Lines of the log by their numbers, with how often each is there.
struct LogContent {
    std::map<int, int> lines;
    std::string fault;
};

// Without memory for a key of the configuration its default stands in the line, and a column that
// found no memory when the record was defined is not there.
bool is_data_line(const std::string &line, int *number) {
    char station[8], date[24];
    long time;
    int end = 0;
    const size_t start = line.rfind("X1", 0) == 0 ? 2 : 0;
    if (sscanf(line.c_str() + start, "S,%3[A-Z],%10ld,%20[0-9T:Z-]%n", station, &time, date,
               &end) != 3 ||
        strlen(date) != 20)
        return false;
    *number = static_cast<int>(time - k_first_time);
    const std::string columns = line.substr(start + static_cast<size_t>(end));
    return std::count(columns.begin(), columns.end(), ',') <= 3 &&
           columns.find_first_not_of("0123456789.,") == std::string::npos;
}

void take_file(const std::filesystem::path &path, LogContent *content) {
    const std::string text = read_file(path);
    const std::vector<std::string> lines = lines_of(text);
    for (size_t i = 0; i < lines.size(); ++i) {
        const bool torn = i + 1 == lines.size() && text.back() != '\n';
        int number;
        if (torn || (!lines[i].empty() && lines[i][0] == '!'))
            continue;
        if (is_data_line(lines[i], &number))
            ++content->lines[number];
        else
            content->fault = "a damaged line in " + path.string() + ": " + lines[i];
    }
}

// What the catalogues keep for the life of the process.
void forget_plans() {
    netpack::free_plans(netpack::public_catalogue());
    netpack::free_plans(netpack::private_catalogue());
}

std::string line_text(int number) {
    return "line " + std::to_string(number);
}

} // namespace

SweepRunner::SweepRunner(const Scenario &scenario)
    : scenario_(scenario), zeb2_("ZEB2", home_.path().c_str()), db_("DB", nullptr),
      server_("ZEB2SERVER", nullptr) {
    std::filesystem::create_directory(home_ / "etc");
    write_file(home_ / "etc/zeb.conf", session_configuration(logs_.path(), peer_.port()));
    void *memory = mmap(nullptr, sizeof(SharedSweep), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    errors_ = open((home_ / "errors").c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (memory == MAP_FAILED || errors_ == -1)
        throw std::runtime_error("no room for a sweep");
    shared_ = static_cast<SharedSweep *>(memory);
    const PointResult clean = run({});
    EXPECT_EQ(clean.fault, "") << errors();
    std::copy(std::begin(shared_->calls), std::end(shared_->calls), calls_);
}

SweepRunner::~SweepRunner() {
    close(errors_);
    munmap(shared_, sizeof *shared_);
}

std::string SweepRunner::errors() const {
    return read_file(home_ / "errors");
}

void SweepRunner::empty_log() const {
    for (const auto &entry : std::filesystem::directory_iterator(logs_.path()))
        std::filesystem::remove(entry);
}

void SweepRunner::run_here(const FailingPoint &point) {
    dup2(errors_, STDERR_FILENO);
    mallopt(M_ARENA_MAX, 1); // one for each thread takes most of a point's time
    place_failing_state(&shared_->state);
    shared_->descriptors_before = open_descriptors().size();
    arm(point);
    scenario_.run(&shared_->failing, 0);
    shared_->struck = shared_->state.failed;
    shared_->stopped = shared_->state.stops != 0;
    shared_->lifted = shared_->state.lifted;
    std::copy(std::begin(shared_->state.counts), std::end(shared_->state.counts), shared_->calls);
    forget_plans();
    arm({});
    scenario_.run(&shared_->clean, k_clean_line);
    forget_plans();
    shared_->blocks = shared_->state.live_blocks;
    // A thread that was joined may be seen for a moment.
    wait_until([] { return threads() == 1; }, 1);
    shared_->threads_behind = threads();
    shared_->descriptors_behind = open_descriptors().size();
    shared_->done = true;
    _exit(0);
}

// The status of the process, which holds the other end of `alive`.
int SweepRunner::wait_for(int process, int alive, bool *hangs) const {
    pollfd end = {alive, POLLIN, 0};
    *hangs = poll(&end, 1, static_cast<int>(k_limit * 1000)) != 1;
    if (*hangs)
        kill(process, SIGKILL);
    int status = 0;
    waitpid(process, &status, 0);
    return status;
}

PointResult SweepRunner::run(const FailingPoint &point) {
    empty_log();
    if (ftruncate(errors_, 0) != 0)
        throw std::runtime_error("errors cannot be emptied");
    memset(static_cast<void *>(shared_), 0, sizeof *shared_);
    new (shared_) SharedSweep{};
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    const pid_t process = fork();
    if (process == -1)
        throw std::runtime_error("no process for a point");
    if (process == 0) {
        close(ends[0]);
        run_here(point);
    }
    close(ends[1]);
    bool hangs = false;
    const int status = wait_for(process, ends[0], &hangs);
    close(ends[0]);
    PointResult result;
    result.struck = shared_->struck || shared_->state.failed;
    result.stopped = shared_->stopped;
    result.lifted = shared_->lifted;
    result.fault = hangs ? std::string("it hangs") : judge(point, status, &result);
    if (!result.fault.empty())
        result.fault = std::string(scenario_.name) + ", " + to_string(point) + ": " + result.fault +
                       " (step " + shared_->failing.step.load() + ", then " +
                       shared_->clean.step.load() + ")";
    return result;
}

std::string SweepRunner::judge(const FailingPoint &point, int status, PointResult *result) const {
    const std::string text = errors();
    for (const char *found : {"Sanitizer", "runtime error: "})
        if (text.find(found) != std::string::npos)
            return "a sanitizer reports";
    if (!shared_->done) {
        const std::string fault = judge_end(point, status, result);
        return fault.empty() ? judge_log(point, true) : fault;
    }
    const bool silent = !has_diagnostics(text);
    const char *step = shared_->failing.failed;
    if (step != nullptr && point.passes)
        return std::string("fails in ") + step;
    if (step != nullptr && silent && !result->stopped)
        return std::string("fails without a word in ") + step;
    if (!result->struck && !silent)
        return "a clean session complains: " + text;
    const std::string fault = judge_rest();
    return fault.empty() ? judge_log(point, false) : fault;
}

std::string SweepRunner::judge_end(const FailingPoint &point, int status,
                                   PointResult *result) const {
    // Without a handler a program that is asked to end does so at once.
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM && point.call == Call::sigaction &&
        shared_->state.stops != 0) {
        result->fatal = true;
        return "";
    }
    if (WIFSIGNALED(status))
        return "the process ends by signal " + std::to_string(WTERMSIG(status));
    result->fatal = true;
    for (const FatalEnd &end : k_fatal_ends)
        if (point.call == end.call && result->struck && shared_->state.exits == 1 &&
            WEXITSTATUS(status) == end.status && errors().find(end.text) != std::string::npos)
            return "";
    return "the process ends with status " + std::to_string(WEXITSTATUS(status));
}

std::string SweepRunner::judge_rest() const {
    if (const char *step = shared_->clean.failed)
        return std::string("no clean session afterwards: ") + step;
    if (shared_->threads_behind != 1)
        return std::to_string(shared_->threads_behind - 1) + " threads are left";
    // Of a child with three pipes of which the last has no flags, the ends stay open.
    const bool stays_open = errors().find(" on new stderr") != std::string::npos;
    if (shared_->descriptors_behind != shared_->descriptors_before && !stays_open)
        return std::to_string(shared_->descriptors_before) + " descriptors before, " +
               std::to_string(shared_->descriptors_behind) + " behind";
    // The nodes of a configuration stay allocated without memory for an array of them: somebody may
    // hold their values.
    const bool keeps = errors().find("assertion failed (conf.cpp:") != std::string::npos;
    if (shared_->blocks != 0 && !keeps)
        return std::to_string(shared_->blocks) + " blocks are left";
    return "";
}

std::string SweepRunner::judge_log(const FailingPoint &point, bool ended_early) const {
    if (!scenario_.logs)
        return "";
    LogContent content;
    for (const auto &entry : std::filesystem::directory_iterator(logs_.path())) {
        const bool hidden = entry.path().filename().string()[0] == '.';
        if (hidden && point.call != Call::unlink && point.call != Call::rename)
            content.fault = "a file is left: " + entry.path().string();
        if (!hidden)
            take_file(entry.path(), &content);
    }
    if (!content.fault.empty())
        return content.fault;
    // Without memory for a line the one before is written once more.
    const bool repeats = point.call == Call::allocation;
    for (const auto &[number, count] : content.lines)
        if (count != 1 && (!repeats || number >= k_clean_line))
            return line_text(number) + " is there " + std::to_string(count) + " times";
    for (int i = 0; i < shared_->failing.kept; ++i)
        if (content.lines[i] == 0)
            return line_text(i) + " was flushed and is gone";
    const bool silent = !has_diagnostics(errors());
    for (int i = 0; i < shared_->failing.lines && silent; ++i)
        if (content.lines[i] == 0)
            return line_text(i) + " is lost without a word";
    for (int i = 0; i < shared_->clean.lines && !ended_early; ++i)
        if (content.lines[k_clean_line + i] != 1)
            return line_text(k_clean_line + i) + " of the clean session is not there";
    return "";
}

} // namespace zeb::test

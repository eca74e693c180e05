// Reads a recording of 100 MB with the programs that a user would run, and says how fast and in how
// much memory.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <zeb2/libzeb2.h>

#include "command_line/command_line.h"
#include "recording.h"
#include "serverkit/message.h"

namespace {

using Clock = std::chrono::steady_clock;

std::string message_of(NETMSG_type type, const char *structure) {
    const NETDSD_entry *entry = NETPACK_find_ds(structure);
    std::string record(entry->total_size, '\0'), name(structure), source("instrument");
    for (size_t i = 0; i < entry->count_fields; ++i) {
        const NETDSD_field &field = entry->fields[i];
        const double value = 1234.5678 + static_cast<double>(i) / 3;
        if (field.ft == NETDSD_FT_STRING)
            memset(record.data() + field.offset, 'x', std::min<size_t>(field.count - 1, 100));
        else if (field.ft == NETDSD_FT_DOUBLE || field.ft == NETDSD_FT_FTIME)
            memcpy(record.data() + field.offset, &value, sizeof value);
    }
    NETPACK_message message = {};
    message.type = type;
    message.flags = 3;
    message.src_name = source.data();
    message.pds = record.data();
    message.sz_ds = record.size();
    message.ds_name = name.data();
    size_t size = 0;
    void *bytes = NETPACK_package_message(&message, &size);
    std::string payload(static_cast<char *>(bytes), size);
    free(bytes);
    const auto frame = serverkit::Frame::of_payload(payload);
    return {frame.data(), frame.size()};
}

// The instants, texts and small notices of a station.
void make_recording(const char *path, size_t size) {
    const std::vector<std::string> frames = {message_of(MSG_AE33_INSTANT, "NET_AE33_Instant"),
                                             message_of(MSG_GPS_INSTANT, "NET_GPS_Fixinfo"),
                                             message_of(MSG_LOG_MONITOR, "NET_LOG_MonitorMessage"),
                                             message_of(MSG_LOG_NEW_AVERAGE, "NET_LOG_NewAverage")};
    FILE *file = fopen(path, "we");
    std::string entries(zebctl::k_recording_line);
    size_t written = 0;
    for (size_t i = 0; written < size; ++i) {
        zebctl::append_entry(entries, 1.7e9 + static_cast<double>(i) / 100, frames[i % 4]);
        if (entries.size() < 1 << 20)
            continue;
        written += fwrite(entries.data(), 1, entries.size(), file);
        entries.clear();
    }
    fclose(file);
}

void measure(const std::string &zebctl, std::vector<std::string> words, double size) {
    words.insert(words.begin(), zebctl);
    std::vector<char *> arguments;
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const auto started = Clock::now();
    const pid_t child = fork();
    if (child == 0) {
        dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), 1);
        execv(zebctl.c_str(), arguments.data());
        _exit(127);
    }
    int status = 0;
    rusage used = {};
    wait4(child, &status, 0, &used);
    const std::chrono::duration<double> passed = Clock::now() - started;
    const double cpu = static_cast<double>(used.ru_utime.tv_sec + used.ru_stime.tv_sec) +
                       static_cast<double>(used.ru_utime.tv_usec + used.ru_stime.tv_usec) / 1e6;
    printf("%-28s %8.1f MB/s %8.1f MB/s of processor time %6.1f MiB resident%s\n",
           (words[1] + (words.size() > 3 ? " " + words[3] : "")).c_str(), size / passed.count(),
           size / cpu, static_cast<double>(used.ru_maxrss) / 1024, status == 0 ? "" : "  FAILED");
    fflush(stdout);
}

} // namespace

int main(int argc, char **argv) {
    double megabytes = 100;
    std::string zebctl = ZEB_ZEBCTL;
    command_line::Parser app("Speed and memory of zebctl decode and table on a recording.");
    app.add_option("--megabytes", megabytes, "size of the recording").capture_default_str();
    app.add_option("--zebctl", zebctl, "the program").capture_default_str();
    if (const auto status = app.parse(argc, argv))
        return *status;
    LIBZEB_init("recording_driver");
    char path[] = "/tmp/recordingXXXXXX";
    close(mkstemp(path));
    make_recording(path, static_cast<size_t>(megabytes * 1e6));
    measure(zebctl, {"decode", path}, megabytes);
    measure(zebctl, {"decode", path, "--json"}, megabytes);
    measure(zebctl, {"decode", path, "--type=none"}, megabytes);
    measure(zebctl, {"table", path, "--type=MSG_GPS_INSTANT"}, megabytes);
    unlink(path);
    LIBZEB_cleanup();
    return 0;
}

// gps.cpp - the daemon of a satellite navigation receiver that speaks NMEA 0183: reads its
// sentences from a line or a file, and publishes a NET_GPS_Fixinfo for each instant. Written to be
// copied: what another instrument needs to change is the record, the reading and the publishing
// below.
//
// Keys of its branch of the configuration (its name, "gps" unless --name says otherwise):
//   Source       the terminal, pseudo terminal or file that the sentences come from (required)
//   Baud         speed of a terminal, default 4800
//   AtEnd        at the end of a file: "stop" (default) or "wait" for more
//   DisplayName  for people, default "GPS"
//   ID           one character, default "G"
//   Tags         up to eight, separated by ";"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include "daemon.h"
#include "gps_record.h"
#include "nmea.h"

namespace {

constexpr double k_reopen_interval = 1.0;  // s between attempts to open a line that is gone
constexpr double k_quiet = 0.3;            // s of silence that end the sentences of an instant
constexpr double k_status_interval = 10.0; // s
constexpr double k_slice = 0.25;           // s that the loop waits at most

// The receiver's line. One that disappears is reported once and opened again until it is back.
class Receiver {
  public:
    Receiver(std::string path, speed_t speed, bool stop_at_end)
        : path_(std::move(path)), speed_(speed), stop_at_end_(stop_at_end) {}
    ~Receiver() { close_line(); }
    Receiver(const Receiver &) = delete;
    Receiver &operator=(const Receiver &) = delete;

    int descriptor() const { return fd_; }
    bool is_finished() const { return finished_; }

    void open_when_due(FTIME now) {
        if (fd_ >= 0 || finished_ || now < next_attempt_)
            return;
        next_attempt_ = now + k_reopen_interval;
        fd_ = open(path_.c_str(), O_RDONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
        if (fd_ < 0)
            return report_missing(strerror(errno));
        if (missing_)
            fprintf(stderr, "%s%s is back\n", g_dbg_msg_title, path_.c_str());
        missing_ = false;
        set_up_terminal();
    }

    void read(char *buffer, size_t size, const nmea::Lines::Callback &line) {
        const ssize_t n = ::read(fd_, buffer, size);
        if (n > 0)
            return lines_.add(buffer, static_cast<size_t>(n), line);
        if (n < 0 && (errno == EAGAIN || errno == EINTR))
            return;
        lines_.finish(line);
        const bool at_end_of_file = n == 0 && is_file();
        if (at_end_of_file && stop_at_end_)
            finished_ = true;
        if (at_end_of_file && !stop_at_end_)
            return UTIL_fsleep(k_slice);
        close_line();
        if (!at_end_of_file)
            report_missing(n < 0 ? strerror(errno) : "hung up");
    }

  private:
    bool is_file() const {
        struct stat info;
        return fstat(fd_, &info) == 0 && S_ISREG(info.st_mode);
    }

    void set_up_terminal() {
        termios settings;
        if (tcgetattr(fd_, &settings) != 0)
            return;
        cfmakeraw(&settings);
        settings.c_cflag |= CLOCAL | CREAD;
        cfsetspeed(&settings, speed_);
        if (tcsetattr(fd_, TCSANOW, &settings) != 0)
            fprintf(stderr, "%scannot set up %s: %s\n", g_dbg_msg_title, path_.c_str(),
                    strerror(errno));
    }

    void report_missing(const char *reason) {
        if (!missing_)
            fprintf(stderr, "%scannot read %s: %s; trying again every second\n", g_dbg_msg_title,
                    path_.c_str(), reason);
        missing_ = true;
    }

    void close_line() {
        if (fd_ >= 0)
            close(fd_);
        fd_ = -1;
    }

    std::string path_;
    speed_t speed_;
    bool stop_at_end_;
    int fd_ = -1;
    bool missing_ = false;
    bool finished_ = false;
    FTIME next_attempt_ = 0;
    nmea::Lines lines_;
};

// Sends what the receiver says to whoever listens, and keeps count for the status record.
class Publisher {
  public:
    explicit Publisher(ZEBMSG_link *link) : link_(link) {}

    void line(std::string_view text) {
        nmea::Sentence sentence;
        const nmea::Verdict verdict = nmea::parse(text, sentence);
        ++(verdict == nmea::Verdict::ok ? counts_.sentences : counts_.refused);
        if (verdict != nmea::Verdict::ok)
            return;
        last_sentence_ = UTIL_ftime();
        if (const auto fix = assembler_.add(sentence))
            publish(*fix);
    }

    // The last sentence of an instant does not say so: silence does.
    void quiet_until(FTIME now) {
        if (now - last_sentence_ > k_quiet || now < last_sentence_)
            finish();
    }

    void finish() {
        if (const auto fix = assembler_.finish())
            publish(*fix);
    }

    void status_when_due(FTIME now) {
        if (now < next_status_ && next_status_ - now <= k_status_interval)
            return;
        next_status_ = now + k_status_interval;
        const NET_GPS_Status status = gps::to_record(counts_, last_, last_valid_);
        ZEBMSG_queue_message(link_, MSG_GPS_STATUS, 1, nullptr, &status, sizeof status,
                             "NET_GPS_Status");
    }

    const gps::Counts &counts() const { return counts_; }

  private:
    void publish(const nmea::Fix &fix) {
        const NET_GPS_Fixinfo record = gps::to_record(fix);
        ZEBMSG_queue_message(link_, MSG_GPS_INSTANT, 1, nullptr, &record, sizeof record,
                             "NET_GPS_Fixinfo");
        ++counts_.instants;
        counts_.fixes += fix.valid ? 1 : 0;
        last_ = fix;
        if (fix.valid)
            last_valid_ = fix.fix_time;
    }

    ZEBMSG_link *link_;
    nmea::FixAssembler assembler_;
    nmea::Fix last_;
    FTIME last_valid_ = -1.0;
    gps::Counts counts_;
    FTIME last_sentence_ = 0;
    FTIME next_status_ = 0;
};

speed_t terminal_speed(double baud) {
    static const std::pair<int, speed_t> speeds[] = {
        {1200, B1200},   {2400, B2400},   {4800, B4800},     {9600, B9600},    {19200, B19200},
        {38400, B38400}, {57600, B57600}, {115200, B115200}, {230400, B230400}};
    for (const auto &[number, speed] : speeds)
        if (number == baud)
            return speed;
    fprintf(stderr, "%sno line has %g baud; using 4800\n", g_dbg_msg_title, baud);
    return B4800;
}

void announce(ZEBMSG_link *link, const daemon_kit::Configuration &configuration) {
    NET_SERVER_InstrumentInfo info;
    ZEBMSG_register_init(&info);
    UTIL_strncpynt(info.type, "gps", sizeof info.type);
    UTIL_strncpynt(info.display_name, configuration.text("DisplayName", "GPS").c_str(),
                   sizeof info.display_name);
    info.id_ch = configuration.text("ID", "G")[0];
    if (configuration.local() != nullptr)
        ZEBMSG_do_tags(&info, configuration.root(), configuration.local());
    ZEBMSG_register_instrument(link, &info);
}

// What the message server delivers. The receiver takes no orders; an instrument that does looks at
// message->msg->msg here and reads the record at message->pds.
void received(ZEBMSG_proc_msg *, void *) {}

int run(daemon_kit::ServerLink &link, Receiver &receiver) {
    Publisher publisher(link.get());
    char buffer[4096];
    const auto line = [&](std::string_view text) { publisher.line(text); };
    while (!UTIL_exit_poll() && !receiver.is_finished()) {
        receiver.open_when_due(UTIL_ftime());
        bool readable;
        if (!link.cycle(k_slice, receiver.descriptor(), readable)) {
            fprintf(stderr, "%sthe message server is gone\n", g_dbg_msg_title);
            return 1;
        }
        if (readable)
            receiver.read(buffer, sizeof buffer, line);
        else
            publisher.quiet_until(UTIL_ftime());
        publisher.status_when_due(UTIL_ftime());
        ZEBMSG_process_messages(link.get(), received, nullptr);
        EVENTAT_run(0);
    }
    publisher.finish();
    fprintf(stderr, "%s%u sentences, %u refused, %u instants, %u with a fix\n", g_dbg_msg_title,
            publisher.counts().sentences, publisher.counts().refused, publisher.counts().instants,
            publisher.counts().fixes);
    return link.drain(1.0) ? 0 : 1;
}

} // namespace

int main(int argc, char **argv) {
    daemon_kit::Options options{"gps", ""};
    const int status = daemon_kit::parse_command_line(
        argc, argv, "Publishes the fixes of an NMEA 0183 receiver on the station's message server.",
        options);
    if (status >= 0)
        return status;
    if (!LIBZEB_init(options.name.c_str()))
        return 1;
    UTIL_exit_signal_poll_setup();
    const daemon_kit::Configuration configuration(options);
    if (configuration.is_refused())
        return 1;
    const std::string source = configuration.text("Source", "");
    if (source.empty()) {
        fprintf(stderr, "%sno receiver: set %s;Source in the configuration to its line or file\n",
                g_dbg_msg_title, options.name.c_str());
        return 1;
    }
    Receiver receiver(source, terminal_speed(configuration.number("Baud", 4800)),
                      configuration.text("AtEnd", "stop") != "wait");
    int result = 1;
    {
        daemon_kit::ServerLink link;
        if (link.connect(options.name, configuration)) {
            announce(link.get(), configuration);
            UTIL_startupokay();
            result = run(link, receiver);
        }
    }
    LIBZEB_cleanup();
    return result;
}

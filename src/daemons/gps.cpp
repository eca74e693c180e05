// gps.cpp - the daemon of a satellite navigation receiver that speaks NMEA 0183: reads its
// sentences through the serial server, and publishes and logs a NET_GPS_Fixinfo for each instant.
// A model for an instrument that talks by itself; flow.cpp is the one for an instrument that is
// asked.
//
// The keys of its branch of the configuration are in gps_keys.cpp.

#include <cstdio>

#include "daemon.h"
#include "gps_keys.h"
#include "gps_record.h"
#include "nmea.h"

namespace {

constexpr size_t k_kept = 128 * 1024;      // more than the port server keeps unless configured
constexpr double k_quiet = 0.3;            // s of silence that end the sentences of an instant
constexpr double k_retry = 1.0;            // s between attempts on a line that is gone
constexpr double k_status_interval = 10.0; // s

// The log file: a line for each instant. Nothing is averaged, so that only files change by message.
class FixLog {
  public:
    explicit FixLog(daemon_kit::Daemon &daemon) : link_(daemon.station().link()) {
        const daemon_kit::Configuration &configuration = daemon.configuration();
        CONF_node *const local = configuration.local();
        LOG_init(&file_);
        LOG_define_record(&file_, "S", "*", columns_, local, FALSE);
        if (!LOG_open(&file_, configuration.root(), local, &link_->msg_lnk))
            daemon.station().tell("no log file; its directory is missing?");
        LOG_register_link(&file_, &link_->msg_lnk, nullptr, nullptr);
    }
    ~FixLog() { LOG_close(&file_); }
    FixLog(const FixLog &) = delete;
    FixLog &operator=(const FixLog &) = delete;

    void write(const NET_GPS_Fixinfo &fix) {
        latitude_ = fix.lat;
        longitude_ = fix.lon;
        altitude_ = fix.alt;
        speed_ = fix.speed;
        track_ = fix.track;
        quality_ = static_cast<DWORD>(fix.quality);
        satellites_ = static_cast<DWORD>(fix.sats_used);
        LOG_write(&file_, link_, "S", UTIL_ftime());
    }

  private:
    static LOG_map_defn column(const char *name, const char *format, double *value,
                               const char *description) {
        return {name, format, nullptr, LVT_DOUBLE, value, nullptr, nullptr, nullptr, description};
    }
    static LOG_map_defn column(const char *name, DWORD *value, const char *description) {
        return {name, "%d", nullptr, LVT_DWORD, value, nullptr, nullptr, nullptr, description};
    }

    INST_link *link_;
    LOG_file file_ = {};
    // Copies: the fields of a packed record are not aligned.
    double latitude_ = MVC, longitude_ = MVC, altitude_ = MVC, speed_ = MVC, track_ = MVC;
    DWORD quality_ = 0, satellites_ = 0;
    const LOG_map_defn columns_[8] = {
        column("Lat", "* 2.6f", &latitude_, "Latitude (deg, north positive)"),
        column("Lon", "* 3.6f", &longitude_, "Longitude (deg, east positive)"),
        column("Alt", "* 5.1f", &altitude_, "Altitude above mean sea level (m)"),
        column("Speed", "*3.2f", &speed_, "Speed over ground (m/s)"),
        column("Track", "*3.1f", &track_, "Course over ground (deg)"),
        column("Quality", &quality_, "0 none, 1 autonomous, 2 differential, -1 unknown"),
        column("Nsat", &satellites_, "Satellites used, -1 unknown"),
        {nullptr, nullptr, nullptr, LVT_END, nullptr, nullptr, nullptr, nullptr, nullptr}};
};

// Sends what the receiver says to whoever listens, and keeps count for the status record.
class Publisher {
  public:
    Publisher(ZEBMSG_link *link, FixLog &log) : link_(link), log_(log) {}

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
        log_.write(record);
        ++counts_.instants;
        counts_.fixes += fix.valid ? 1 : 0;
        last_ = fix;
        if (fix.valid)
            last_valid_ = fix.fix_time;
    }

    ZEBMSG_link *link_;
    FixLog &log_;
    nmea::FixAssembler assembler_;
    nmea::Fix last_;
    FTIME last_valid_ = -1.0;
    gps::Counts counts_;
    FTIME last_sentence_ = 0;
    FTIME next_status_ = 0;
};

// The receiver's line. One that is gone is reported once; the serial server opens it again.
class Receiver {
  public:
    Receiver(daemon_kit::Station &station, std::string port)
        : station_(station), port_(std::move(port)) {}

    enum class Said { something, nothing, unreadable };

    // Reads up to the end of a line, or what has come when that takes too long.
    Said read(const nmea::Lines::Callback &line) {
        char bytes[k_kept];
        long got =
            SERIALCOM_read_until_string(station_.line(), "\n", k_quiet, -1.0, bytes, sizeof bytes);
        const bool complete = got >= 0;
        // A read that timed out has failed as one on a dead line has. The next read tells which:
        // the beginning of a line, or nothing at all, but not a failure.
        if (!complete)
            got = SERIALCOM_read_new(station_.line(), bytes, sizeof bytes);
        if (got < 0)
            return gone(line);
        if (missing_)
            station_.tell("the line %s is back", port_.c_str());
        missing_ = false;
        lines_.add(bytes, static_cast<size_t>(got), line);
        // What does not fit is cut off, and the end of the line with it.
        if (got == static_cast<long>(sizeof bytes) - 1)
            lines_.add("\n", 1, line);
        return complete ? Said::something : Said::nothing;
    }

    // Hands out what came without a line end.
    void finish(const nmea::Lines::Callback &line) { lines_.finish(line); }

  private:
    Said gone(const nmea::Lines::Callback &line) {
        // Requests fail as well while the daemon stops, or when the server is gone: no fault of the
        // line.
        if (UTIL_exit_poll() || !SERIALCOM_test_connected(station_.line()))
            return Said::unreadable;
        lines_.finish(line);
        if (!missing_)
            station_.tell("the line %s is gone; trying again every second", port_.c_str());
        missing_ = true;
        return Said::unreadable;
    }

    daemon_kit::Station &station_;
    std::string port_;
    bool missing_ = false;
    nmea::Lines lines_;
};

// What the message server delivers. The receiver takes no orders; an instrument that does looks at
// message->msg->msg here and reads the record at message->pds.
void received(ZEBMSG_proc_msg *, void *) {}

int run(daemon_kit::Station &station, Receiver receiver, FixLog &log) {
    Publisher publisher(station.messages(), log);
    const auto line = [&](std::string_view text) { publisher.line(text); };
    double pause = 0;
    while (station.wait(pause)) {
        const auto said = receiver.read(line);
        if (said != Receiver::Said::something)
            publisher.quiet_until(UTIL_ftime());
        pause = said == Receiver::Said::unreadable ? k_retry : 0;
        publisher.status_when_due(UTIL_ftime());
        ZEBMSG_process_messages(station.messages(), received, nullptr);
        EVENTAT_run(0);
    }
    receiver.finish(line);
    publisher.finish();
    fprintf(stderr, "%s%u sentences, %u refused, %u instants, %u with a fix\n", g_dbg_msg_title,
            publisher.counts().sentences, publisher.counts().refused, publisher.counts().instants,
            publisher.counts().fixes);
    return station.result();
}

} // namespace

int main(int argc, char **argv) {
    daemon_kit::Daemon daemon(
        gps::k_keys,
        "Publishes the fixes of an NMEA 0183 receiver on the station's message server.");
    if (!daemon.start(argc, argv) || !daemon.connect_with_line())
        return daemon.exit_status();
    FixLog log(daemon);
    daemon.announce("gps");
    return run(daemon.station(), Receiver(daemon.station(), daemon.port()), log);
}

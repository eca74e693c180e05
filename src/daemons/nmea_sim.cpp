// nmea_sim.cpp - a satellite navigation receiver on a pseudo terminal, for demos and trials: sends
// the sentences of a receiver that moves on a circle, or plays a captured file at its own pace.

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>
#include <system_error>

#include <zeb2/libzeb2.h>

#include "command_line/command_line.h"
#include "nmea.h"
#include "pty.h"

namespace {

struct Options {
    std::string link;
    std::string replay;
    double interval = 1.0; // s between fixes
    double speed = 1.0;    // of a replay, as a factor of its own pace
    double latitude = 40.13, longitude = -105.24, radius = 500.0; // deg, deg, m
};

std::string sentence(const std::string &body) {
    int sum = 0;
    for (const char c : body)
        sum ^= c;
    char tail[8];
    snprintf(tail, sizeof tail, "*%02X\r\n", static_cast<unsigned>(sum & 0xFF));
    return "$" + body + tail;
}

template <typename... Values> std::string text(const char *format, Values... values) {
    char buffer[128];
    snprintf(buffer, sizeof buffer, format, values...);
    return buffer;
}

std::string angle(double degrees, int width, char positive, char negative) {
    const double magnitude = std::fabs(degrees), whole = std::floor(magnitude);
    return text("%0*d%07.4f,%c", width, static_cast<int>(whole),
                std::min((magnitude - whole) * 60, 59.9999), degrees < 0 ? negative : positive);
}

// One second of a receiver that drives once round its circle in ten minutes.
std::string simulated_fix(const Options &options, FTIME now) {
    const double metres_per_degree = 111320.0;
    const double phase = std::fmod(now, 600.0) / 600.0 * 2 * M_PI;
    const double latitude = options.latitude + options.radius * std::cos(phase) / metres_per_degree;
    const double longitude =
        options.longitude + options.radius * std::sin(phase) /
                                (metres_per_degree * std::cos(options.latitude * M_PI / 180));
    const double track = std::fmod(phase * 180 / M_PI + 90, 360);
    const double knots = options.radius * 2 * M_PI / 600 * 3600 / 1852;
    const double altitude = 1655 + 5 * std::sin(phase);

    const time_t seconds = static_cast<time_t>(std::floor(now));
    struct tm utc;
    gmtime_r(&seconds, &utc);
    const std::string clock = text("%02d%02d%02d.%02d", utc.tm_hour, utc.tm_min, utc.tm_sec,
                                   static_cast<int>((now - std::floor(now)) * 100));
    const std::string position = angle(latitude, 2, 'N', 'S') + "," + angle(longitude, 3, 'E', 'W');

    std::string fix;
    fix += sentence("GPRMC," + clock + ",A," + position + text(",%.2f,%.2f,", knots, track) +
                    text("%02d%02d%02d,,,A", utc.tm_mday, utc.tm_mon + 1, utc.tm_year % 100));
    fix +=
        sentence("GPGGA," + clock + "," + position + text(",1,08,1.1,%.1f,M,-16.2,M,,", altitude));
    fix += sentence("GPGSA,A,3,02,05,12,15,20,24,25,29,,,,,2.0,1.1,1.7");
    fix += sentence("GPGSV,1,1,04,02,45,120,41,05,62,300,44,12,18,045,36,15,30,210,39");
    fix += sentence(text("GPVTG,%.2f,T,,M,%.2f,N,%.2f,K,A", track, knots, knots * 1.852));
    return fix;
}

void simulate(const Options &options, pty::Terminal &terminal) {
    while (!UTIL_exit_poll()) {
        const FTIME now = UTIL_ftime();
        const FTIME next = (std::floor(now / options.interval) + 1) * options.interval;
        UTIL_fsleep(next - now);
        if (UTIL_ftime() >= next)
            terminal.send(simulated_fix(options, next));
    }
}

// The second of the day of the first sentence field that looks like a time.
std::optional<double> second_of_line(const std::string &line) {
    nmea::Sentence s;
    if (nmea::parse(line, s) != nmea::Verdict::ok || (s.type != "RMC" && s.type != "GGA"))
        return std::nullopt;
    int hour, minute;
    double second;
    if (sscanf(std::string(s.field(1)).c_str(), "%2d%2d%lf", &hour, &minute, &second) != 3)
        return std::nullopt;
    return hour * 3600 + minute * 60 + second;
}

int replay(const Options &options, pty::Terminal &terminal) {
    std::ifstream file(options.replay, std::ios::binary);
    if (!file) {
        std::cerr << "zeb-nmea-sim: cannot read " << options.replay << ": " << strerror(errno)
                  << "\n";
        return 1;
    }
    double before = -1;
    for (std::string line; std::getline(file, line) && !UTIL_exit_poll();) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (const auto second = second_of_line(line)) {
            const double pause = before < 0 ? 0 : (*second - before) / options.speed;
            if (pause > 0 && pause < 60)
                UTIL_fsleep(pause);
            before = *second;
        }
        terminal.send(line + "\r\n");
    }
    terminal.drain(2.0);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    Options options;
    command_line::Parser app(
        "A satellite navigation receiver on a pseudo terminal: simulated, or replayed from a "
        "captured file.");
    app.set_version_flag("--version", std::string("zeb-nmea-sim ") + ZEB_VERSION);
    app.add_option("-l,--link", options.link, "name of a link to the terminal to make").required();
    app.add_option("-r,--replay", options.replay, "play this file of sentences at its own pace");
    app.add_option("--speed", options.speed, "factor on the pace of a replay")
        .check(command_line::positive())
        .capture_default_str();
    app.add_option("--interval", options.interval, "seconds between simulated fixes")
        .check(command_line::in_range(0.05, 3600.0))
        .capture_default_str();
    app.add_option("--latitude", options.latitude, "centre of the circle, degrees")
        .check(command_line::in_range(-89.0, 89.0))
        .capture_default_str();
    app.add_option("--longitude", options.longitude, "centre of the circle, degrees")
        .check(command_line::in_range(-180.0, 180.0))
        .capture_default_str();
    app.add_option("--radius", options.radius, "of the circle, metres")
        .check(command_line::in_range(0.0, 100000.0))
        .capture_default_str();
    if (const auto status = app.parse(argc, argv))
        return *status;

    UTIL_init();
    UTIL_exit_signal_poll_setup();
    try {
        pty::Terminal terminal;
        const pty::Link link(terminal.path(), options.link);
        if (!options.replay.empty())
            return replay(options, terminal);
        simulate(options, terminal);
        return 0;
    } catch (const std::system_error &error) {
        std::cerr << "zeb-nmea-sim: " << error.what() << "\n";
        return 1;
    }
}

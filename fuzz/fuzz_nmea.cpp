// What a satellite receiver sends, or what is left of it behind a bad line.
#include "fuzz.h"

#include "gps_record.h"
#include "nmea.h"

#include <cmath>
#include <vector>

namespace {

std::vector<std::string> lines_of(std::string_view stream, size_t step) {
    std::vector<std::string> lines;
    nmea::Lines cutter;
    const auto take = [&](std::string_view line) { lines.emplace_back(line); };
    for (; !stream.empty(); stream.remove_prefix(std::min(step, stream.size()))) {
        fuzz::Exactly piece(stream.substr(0, step));
        cutter.add(piece.data(), piece.size(), take);
    }
    cutter.finish(take);
    return lines;
}

bool lies_between(double value, double low, double high) {
    return value == MVC || (value >= low && value <= high);
}

void check(const nmea::Fix &fix) {
    MUST(lies_between(fix.latitude, -90, 90) && lies_between(fix.longitude, -180, 180));
    for (const double value : {fix.altitude, fix.geoid, fix.speed, fix.track, fix.magvar, fix.pdop,
                               fix.hdop, fix.vdop, fix.sigma_altitude, fix.fix_time})
        MUST(std::isfinite(value));
    const NET_GPS_Fixinfo record = gps::to_record(fix);
    const NET_GPS_WaypointDef waypoint = {};
    gps::way_to(waypoint, record);
    gps::to_record(gps::Counts{}, fix, fix.fix_time);
}

// The checksum that it takes, so that an input need not know it.
std::string with_checksum(std::string_view line) {
    unsigned sum = 0;
    for (const char c : line)
        sum ^= static_cast<unsigned char>(c);
    char end[8];
    snprintf(end, sizeof end, "*%02X", sum & 0xFFu);
    return "$" + std::string(line) + end;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::Input input(data, size);
    const size_t step = 1 + input.below(64);
    const std::string_view stream = input.rest();
    const std::vector<std::string> lines = lines_of(stream, stream.size() + 1);
    MUST(lines_of(stream, step) == lines);
    nmea::FixAssembler assembler;
    for (const std::string &line : lines) {
        MUST(line.size() <= nmea::k_max_line + 1);
        for (const std::string &text : {line, with_checksum(line)}) {
            fuzz::Exactly bytes(text);
            nmea::Sentence sentence;
            if (nmea::parse(bytes.view(), sentence) != nmea::Verdict::ok)
                continue;
            MUST(sentence.count <= nmea::k_max_fields);
            if (const auto fix = assembler.add(sentence))
                check(*fix);
        }
    }
    if (const auto fix = assembler.finish())
        check(*fix);
    return 0;
}

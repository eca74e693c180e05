#include "nmea.h"

#include <cmath>
#include <filesystem>
#include <gtest/gtest.h>
#include <vector>

#include "gps_record.h"
#include "support.h"

namespace {

using nmea::Fix;
using nmea::Verdict;

std::string with_checksum(const std::string &body) {
    int sum = 0;
    for (const char c : body)
        sum ^= c;
    char tail[8];
    snprintf(tail, sizeof tail, "*%02X", static_cast<unsigned>(sum));
    return "$" + body + tail;
}

// Every fix that the lines of a text make.
std::vector<Fix> fixes_of(const std::string &text) {
    std::vector<Fix> fixes;
    nmea::Lines lines;
    nmea::FixAssembler assembler;
    const auto take = [&](std::string_view line) {
        nmea::Sentence sentence;
        if (nmea::parse(line, sentence) != Verdict::ok)
            return;
        if (const auto fix = assembler.add(sentence))
            fixes.push_back(*fix);
    };
    lines.add(text.data(), text.size(), take);
    lines.finish(take);
    if (const auto fix = assembler.finish())
        fixes.push_back(*fix);
    return fixes;
}

Verdict verdict_of(const std::string &line) {
    nmea::Sentence sentence;
    return nmea::parse(line, sentence);
}

} // namespace

TEST(Nmea, SplitsASentenceIntoTalkerTypeAndFields) {
    nmea::Sentence s;
    ASSERT_EQ(nmea::parse("$GPVTG,86.03,T,,,2.20,N,4.07,K,A*4E", s), Verdict::ok);
    EXPECT_EQ(s.talker, "GP");
    EXPECT_EQ(s.type, "VTG");
    EXPECT_EQ(s.count, 9u);
    EXPECT_EQ(s.field(1), "86.03");
    EXPECT_EQ(s.field(3), "");
    EXPECT_EQ(s.field(9), "A");
    EXPECT_EQ(s.field(0), "");
    EXPECT_EQ(s.field(10), "");
}

TEST(Nmea, TellsAProprietarySentenceByItsTalker) {
    const std::string line = with_checksum("PUBX,00,1");
    nmea::Sentence s;
    ASSERT_EQ(nmea::parse(line, s), Verdict::ok);
    EXPECT_EQ(s.talker, "P");
    EXPECT_EQ(s.type, "UBX");
}

TEST(Nmea, RefusesAWrongChecksum) {
    EXPECT_EQ(verdict_of("$GPVTG,86.03,T,,,2.20,N,4.07,K,A*4F"), Verdict::bad_checksum);
}

TEST(Nmea, RefusesWhatIsNoSentence) {
    for (const char *line : {"", "$", "$*00", "hello, world", "$GPVTG,86.03", "GPVTG,1*11",
                             "$GPVTG,1*1", "$GPVTG,1*ZZ", "$GP\x01VTG,1*11"})
        EXPECT_EQ(verdict_of(line), Verdict::not_a_sentence) << line;
}

TEST(Nmea, RefusesALineBeyondTheLimit) {
    EXPECT_EQ(verdict_of("$" + std::string(nmea::k_max_line, 'x')), Verdict::too_long);
}

TEST(Nmea, CutsALineWithoutEndAndGoesOnWithTheNext) {
    const std::string good = with_checksum("GPRMC,120000,A,1000.0,N,02000.0,E,1.0,2.0,010203,,");
    EXPECT_EQ(fixes_of(std::string(100000, '$') + "\n" + good + "\r\n").size(), 1u);
}

TEST(Nmea, ReadsPositionSpeedAndTime) {
    const auto fixes = fixes_of(
        with_checksum("GPRMC,123519.50,A,4807.038,N,01131.000,W,022.4,084.4,230394,003.1,W") +
        "\n");
    ASSERT_EQ(fixes.size(), 1u);
    const Fix &fix = fixes[0];
    EXPECT_TRUE(fix.valid);
    EXPECT_NEAR(fix.latitude, 48 + 7.038 / 60, 1e-12);
    EXPECT_NEAR(fix.longitude, -(11 + 31.0 / 60), 1e-12);
    EXPECT_NEAR(fix.speed, 22.4 * 1852 / 3600, 1e-12);
    EXPECT_EQ(fix.track, 84.4);
    EXPECT_EQ(fix.magvar, -3.1);
    EXPECT_EQ(fix.fix_time, 764426119.5); // 1994-03-23T12:35:19.5Z
    EXPECT_EQ(fix.talker, "GP");
    EXPECT_EQ(fix.altitude, MVC);
    EXPECT_EQ(fix.satellites_used, -1);
}

TEST(Nmea, JoinsTheSentencesOfAnInstant) {
    const auto fixes = fixes_of(
        with_checksum("GPGGA,000001,1000.0,S,02000.0,E,2,07,1.5,100.5,M,-20.5,M,,") + "\n" +
        with_checksum("GPGSA,A,3,1,2,3,,,,,,,,,,2.5,1.4,2.1") + "\n" +
        with_checksum("GPGSV,1,1,09,1,2,3,4") + "\n" + with_checksum("GLGSV,1,1,03,1,2,3,4") +
        "\n" + with_checksum("GPGST,000001,1,2,3,4,0.5,0.6,0.7") + "\n" +
        with_checksum("GPVTG,10.5,T,,,,,36.0,K") + "\n");
    ASSERT_EQ(fixes.size(), 1u);
    const Fix &fix = fixes[0];
    EXPECT_NEAR(fix.latitude, -10, 1e-12);
    EXPECT_EQ(fix.quality, 2);
    EXPECT_EQ(fix.satellites_used, 7);
    EXPECT_EQ(fix.satellites_in_view, 12);
    EXPECT_EQ(fix.altitude, 100.5);
    EXPECT_EQ(fix.geoid, -20.5);
    EXPECT_EQ(fix.pdop, 2.5);
    EXPECT_EQ(fix.hdop, 1.5);
    EXPECT_EQ(fix.vdop, 2.1);
    EXPECT_EQ(fix.mode, 3);
    EXPECT_EQ(fix.sigma_altitude, 0.7);
    EXPECT_NEAR(fix.speed, 10, 1e-12);
    EXPECT_EQ(fix.track, 10.5);
    EXPECT_EQ(fix.fix_time, -1.0) << "no sentence gave a date";
}

TEST(Nmea, VoidPositionIsMissingThoughItIsPrinted) {
    const auto fixes =
        fixes_of(with_checksum("GPRMC,000001,V,1000.0,N,02000.0,E,0.0,0.0,010203,,") + "\n");
    ASSERT_EQ(fixes.size(), 1u);
    EXPECT_FALSE(fixes[0].valid);
    EXPECT_EQ(fixes[0].latitude, MVC);
    EXPECT_EQ(fixes[0].speed, MVC);
    EXPECT_EQ(fixes[0].fix_time, 1044057601.0) << "the clock runs without a position";
}

TEST(Nmea, DateGoesOnPastMidnight) {
    const auto fixes = fixes_of(
        with_checksum("GPRMC,235959,A,1000.0,N,02000.0,E,0.0,0.0,311299,,") + "\n" +
        with_checksum("GPGGA,000000,1000.0,N,02000.0,E,1,07,1.5,100.5,M,-20.5,M,,") + "\n");
    ASSERT_EQ(fixes.size(), 2u);
    EXPECT_EQ(fixes[0].fix_time, 946684799.0);
    EXPECT_EQ(fixes[1].fix_time, 946684800.0);
}

TEST(Nmea, ALeapSecondIsATimeAndTheOneBehindItIsNone) {
    const auto fixes_at = [](const std::string &time) {
        return fixes_of(with_checksum("GPRMC," + time + ",A,1000.0,N,02000.0,E,0.0,0.0,311216,,") +
                        "\n");
    };
    const auto fixes = fixes_at("235960.5");
    ASSERT_EQ(fixes.size(), 1u);
    EXPECT_EQ(fixes[0].fix_time, 1483228800.5); // 2017-01-01T00:00:00.5Z
    EXPECT_TRUE(fixes_at("235961").empty());
}

TEST(Nmea, DateAlsoComesFromZda) {
    const auto fixes =
        fixes_of(with_checksum("GNGGA,000000,1000.0,N,02000.0,E,1,07,1.5,100.5,M,-20.5,M,,") +
                 "\n" + with_checksum("GNZDA,000000,01,01,2000,00,00") + "\n");
    ASSERT_EQ(fixes.size(), 1u);
    EXPECT_EQ(fixes[0].fix_time, 946684800.0);
    EXPECT_EQ(fixes[0].talker, "GN");
}

TEST(Nmea, ImpossibleFieldsStayMissing) {
    const auto fixes =
        fixes_of(with_checksum("GPGGA,000001,9900.0,N,02000.0,E,1,xx,1e999,nan,M,inf,M,,") + "\n" +
                 with_checksum("GPGGA,256101,1000.0,N,02000.0,E,1,07,1.5,1.5,M,1.5,M,,") + "\n");
    ASSERT_EQ(fixes.size(), 1u);
    EXPECT_FALSE(fixes[0].valid) << "there is no latitude of 99 degrees";
    EXPECT_EQ(fixes[0].satellites_used, -1);
    EXPECT_EQ(fixes[0].hdop, MVC);
    EXPECT_EQ(fixes[0].geoid, MVC);
}

// What the receivers of the captured files said, counted by hand with text tools: instants by
// distinct times, valid ones by an RMC status of A or a GGA quality above 0.
TEST(Nmea, CountsTheFixesOfCapturedReceivers) {
    const std::string folder = zeb::test::source_path("../shared/data/nmea/");
    if (!std::filesystem::exists(folder))
        GTEST_SKIP() << "no captured sentences in ../shared/data/nmea beside the checkout";
    struct Expected {
        const char *file;
        size_t instants, valid;
    };
    for (const Expected &expected :
         {Expected{"haicom-305N.nmea", 74, 68}, Expected{"ublox-neo-m9n-nmea.nmea", 61, 61}}) {
        const auto fixes = fixes_of(zeb::test::read_file(folder + expected.file));
        size_t valid = 0;
        for (const Fix &fix : fixes)
            valid += fix.valid ? 1u : 0u;
        EXPECT_EQ(fixes.size(), expected.instants) << expected.file;
        EXPECT_EQ(valid, expected.valid) << expected.file;
    }
}

TEST(GpsRecord, WayOfOneDegreeAlongTheEquator) {
    NET_GPS_WaypointDef waypoint = {};
    waypoint.lon = 1;
    waypoint.radius = 100;
    NET_GPS_Fixinfo fix = {};
    const NET_GPS_WaypointStatus status = gps::way_to(waypoint, fix);
    EXPECT_NEAR(status.distance, 6371008.8 * M_PI / 180, 1e-6);
    EXPECT_NEAR(status.bearing, 90, 1e-9);
    EXPECT_FALSE(status.reached);
    fix.lon = 1;
    EXPECT_TRUE(gps::way_to(waypoint, fix).reached);
}

TEST(GpsRecord, MissingValuesStayMissing) {
    const NET_GPS_Fixinfo record = gps::to_record(Fix());
    EXPECT_EQ(record.lat, MVC);
    EXPECT_EQ(record.fix_time, -1.0);
    EXPECT_EQ(record.sats_used, -1);
    EXPECT_FALSE(record.valid);
}

// nmea.h - NMEA 0183 sentences of a satellite navigation receiver: lines out of a byte stream,
// sentences out of lines, and one fix out of the sentences of one instant.
//
//   nmea::Lines lines;  nmea::FixAssembler assembler;
//   lines.add(bytes, n, [&](std::string_view line) {
//       nmea::Sentence sentence;
//       if (nmea::parse(line, sentence) == nmea::Verdict::ok)
//           if (auto fix = assembler.add(sentence)) publish(*fix);
//   });
#pragma once

#include <array>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include <zeb2/port.h>

namespace nmea {

// A sentence holds at most 82 characters by the standard; some receivers send longer ones.
constexpr size_t k_max_line = 512;
constexpr size_t k_max_fields = 64;

enum class Verdict {
    ok,
    not_a_sentence, // no "$" or "!" at the start, no checksum, or characters that are not text
    bad_checksum,
    too_long
};

// One sentence; the views point into the line that was parsed.
struct Sentence {
    std::string_view talker; // "GP", "GN", ...; "P" for a proprietary sentence
    std::string_view type;   // "RMC", "GGA", ...
    std::array<std::string_view, k_max_fields> fields;
    size_t count = 0;

    // Field i counted from 1 behind the address; empty when the sentence has fewer.
    std::string_view field(size_t i) const {
        return i >= 1 && i <= count ? fields[i - 1] : std::string_view();
    }
};

// Takes one line without its end. The checksum is the exclusive or of the characters between "$"
// and
// "*", as two hexadecimal digits.
Verdict parse(std::string_view line, Sentence &out);

// Cuts a byte stream into lines ended by CR, LF or both. A line longer than k_max_line is handed
// out once, cut, and its rest skipped.
class Lines {
  public:
    using Callback = std::function<void(std::string_view line)>;
    void add(const char *bytes, size_t size, const Callback &line);
    // Hands out what is left without a line end.
    void finish(const Callback &line);

  private:
    std::string pending_;
    bool skipping_ = false;
};

// What is known of one instant. Real quantities are MVC, counts and codes -1 when no sentence gave
// them; fix_time is -1.0 without a date.
struct Fix {
    FTIME fix_time = -1.0;
    double latitude = MVC;  // deg, north positive
    double longitude = MVC; // deg, east positive
    double altitude = MVC;  // m above mean sea level
    double geoid = MVC;     // m, height of the geoid above the ellipsoid
    double speed = MVC;     // m/s over ground
    double track = MVC;     // deg over ground, clockwise from true north
    double magvar = MVC;    // deg, east positive
    double pdop = MVC, hdop = MVC, vdop = MVC;
    double sigma_latitude = MVC, sigma_longitude = MVC, sigma_altitude = MVC; // m
    int satellites_used = -1;
    int satellites_in_view = -1;
    int quality = -1; // GGA: 0 none, 1 autonomous, 2 differential, 4 and 5 real-time kinematic, ...
    int mode = -1;    // GSA: 1 none, 2 two-dimensional, 3 three-dimensional
    bool valid = false;
    std::string talker; // of the sentence that gave the position
};

// Collects the sentences of one instant. Sentences that carry a time tell where the next begins.
class FixAssembler {
  public:
    // The finished fix of the instant before, when this sentence begins another.
    std::optional<Fix> add(const Sentence &sentence);
    // The fix being collected, when the receiver has fallen silent or the file has ended.
    std::optional<Fix> finish();

  private:
    std::optional<Fix> begin_instant(double second);
    void set_date(int year, int month, int day);
    void stamp();
    void add_rmc(const Sentence &s);
    void add_gga(const Sentence &s);
    void add_gll(const Sentence &s);
    void add_vtg(const Sentence &s);
    void add_gsa(const Sentence &s);
    void add_gsv(const Sentence &s);
    void add_gst(const Sentence &s);
    void add_zda(const Sentence &s);
    void set_position(const Sentence &s, size_t first_field);
    void void_position();

    Fix fix_;
    bool collecting_ = false;
    bool voided_ = false;                // the receiver says that the position is not to be used
    double second_of_day_ = -1;          // of the instant being collected
    double day_ = -1;                    // start of the last known day, s since 1970
    double day_second_ = -1;             // second of day at which day_ was last right
    std::map<std::string, int> in_view_; // per talker; a full set takes several instants
};

} // namespace nmea

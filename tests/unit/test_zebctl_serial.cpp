#include "serial_text.h"

#include <ctime>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "support.h"
#include "text.h"

using namespace zebctl;
using zeb::test::ScopedEnv;

namespace {

const FTIME k_noon = 946728000.25; // 2000-01-01T12:00:00.250Z

std::string all_bytes() {
    std::string data;
    for (int c = 0; c < 256; ++c)
        data += static_cast<char>(c);
    return data;
}

std::string unescaped(const std::string &text) {
    std::string data, error;
    EXPECT_TRUE(unescape(text, data, error)) << error;
    return data;
}

std::string reason(const std::string &text) {
    std::string data, error;
    EXPECT_FALSE(unescape(text, data, error)) << text;
    return error;
}

PortChoice chosen(const std::string &port, const std::string &settings = "") {
    PortChoice choice;
    std::string error;
    EXPECT_TRUE(parse_port(port, settings, choice, error)) << port << ": " << error;
    return choice;
}

std::string refusal(const std::string &port, const std::string &settings = "") {
    PortChoice choice;
    std::string error;
    EXPECT_FALSE(parse_port(port, settings, choice, error)) << port;
    return error;
}

// What a grouper handed on, as "<data" and ">data".
class Groups {
  public:
    explicit Groups(Grouper::Cut cut) : grouper_(cut) {}
    void in(const std::string &data, FTIME time = 1) { add(Direction::in, data, time); }
    void out(const std::string &data, FTIME time = 1) { add(Direction::out, data, time); }
    void flush() { grouper_.flush(sink()); }
    std::vector<std::string> take() { return std::exchange(seen_, {}); }
    std::vector<FTIME> times;

  private:
    void add(Direction direction, const std::string &data, FTIME time) {
        grouper_.add(direction, data, time, sink());
    }
    Grouper::Sink sink() {
        return [this](const Group &group) {
            seen_.push_back((group.direction == Direction::in ? "<" : ">") + group.data);
            times.push_back(group.time);
        };
    }
    Grouper grouper_;
    std::vector<std::string> seen_;
};

using Seen = std::vector<std::string>;

std::string in(TextView &view, const std::string &data, FTIME time = k_noon) {
    return view.show({Direction::in, time, data});
}
std::string out(TextView &view, const std::string &data, FTIME time = k_noon) {
    return view.show({Direction::out, time, data});
}

} // namespace

TEST(SerialText, ShowsEveryByteAsPrintableAscii) {
    for (const char c : escaped(all_bytes()))
        EXPECT_TRUE(c >= 0x20 && c < 0x7F);
    EXPECT_EQ(escaped("a\tb\r\n"), "a\\tb\\r\\n");
    EXPECT_EQ(escaped("\x1b[2J"), "\\x1b[2J");
    EXPECT_EQ(escaped("\\x1b"), "\\\\x1b");
    EXPECT_EQ(escaped("\x9b\x7f"), "\\x9b\\x7f");
    EXPECT_EQ(escaped(std::string("\0", 1)), "\\x00");
}

TEST(SerialText, ReadsBackWhatItShows) {
    EXPECT_EQ(unescaped(escaped(all_bytes())), all_bytes());
}

TEST(SerialText, ReadsEscapes) {
    EXPECT_EQ(unescaped("V?\\r\\n"), "V?\r\n");
    EXPECT_EQ(unescaped("\\x02id\\x3A\\xfF\\\\"), "\x02id:\xff\\");
    EXPECT_EQ(unescaped("\\x411"), "A1");
    EXPECT_EQ(unescaped(""), "");
}

TEST(SerialText, RefusesWhatIsNoEscape) {
    EXPECT_NE(reason("a\\q").find("\"\\q\" is no escape"), std::string::npos);
    EXPECT_NE(reason("\\").find("is no escape"), std::string::npos);
    reason("\\x");
    reason("\\x4");
    reason("\\x4g");
    reason("\\x 4");
}

TEST(SerialText, HexRowHasAnAsciiColumnAtAFixedPlace) {
    EXPECT_EQ(hex_row("OK\r"), "4f 4b 0d                                         |OK.|");
    EXPECT_EQ(hex_row("0123456789abcde\xff"),
              "30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 ff  |0123456789abcde.|");
    EXPECT_EQ(hex(std::string("\0\x1b", 2)), "001b");
}

TEST(SerialPort, TakesConfiguredNamesAsTheyStand) {
    EXPECT_EQ(chosen("=pump").name, "=pump");
    EXPECT_FALSE(chosen("=pump").settings);
    EXPECT_EQ(chosen("=/dev/ttyUSB0").name, "=/dev/ttyUSB0");
    // A colon belongs to the name.
    EXPECT_EQ(chosen("=pump:1").name, "=pump:1");
}

TEST(SerialPort, TakesDevicesByNameAndPath) {
    EXPECT_EQ(chosen("ttyUSB0").name, "ttyUSB0");
    EXPECT_EQ(chosen("/dev/ttyUSB0").name, "=/dev/ttyUSB0");
    EXPECT_EQ(chosen("/dev/ttyUSB0:19200n81").name, "=/dev/ttyUSB0");
}

TEST(SerialPort, ReadsTheSettingsOfAPortString) {
    const PortChoice choice = chosen("ttyS0:1200e72");
    EXPECT_EQ(choice.name, "ttyS0");
    ASSERT_TRUE(choice.settings);
    EXPECT_EQ(choice.settings->baud, 1200u);
    EXPECT_EQ(choice.settings->parity, 2);
    EXPECT_EQ(choice.settings->bits, 7);
    EXPECT_EQ(choice.settings->stop_bits, 2);
}

TEST(SerialPort, SettingsOfTheirOwnGoWithAnyName) {
    const PortChoice choice = chosen("=pump", "9600o81");
    EXPECT_EQ(choice.name, "=pump");
    ASSERT_TRUE(choice.settings);
    EXPECT_EQ(choice.settings->baud, 9600u);
    EXPECT_EQ(choice.settings->parity, 1);
}

TEST(SerialPort, RefusesWhatNamesNoLine) {
    refusal("");
    refusal("=");
    EXPECT_NE(refusal("ttyS0:9600").find("\"9600\" is no line setting"), std::string::npos);
    EXPECT_NE(refusal("ttyS0", "fast").find("\"fast\" is no line setting"), std::string::npos);
    EXPECT_NE(refusal("ttyS0:9600n81", "9600n81").find("twice"), std::string::npos);
    EXPECT_NE(refusal("=" + std::string(255, 'x')).find("long"), std::string::npos);
    EXPECT_EQ(chosen("=" + std::string(254, 'x')).name.size(), 255u);
}

TEST(SerialGrouper, AtOnceHandsOnWhatComes) {
    Groups groups(Grouper::Cut::at_once);
    groups.in("ab");
    groups.out("c\r\n");
    groups.flush();
    EXPECT_EQ(groups.take(), (Seen{"<ab", ">c\r\n"}));
}

TEST(SerialGrouper, LinesEndAtReturnLineFeedOrBoth) {
    Groups groups(Grouper::Cut::lines);
    groups.in("one\ntwo\r\nthree\rfour");
    EXPECT_EQ(groups.take(), (Seen{"<one\n", "<two\r\n", "<three\r"}));
    groups.flush();
    EXPECT_EQ(groups.take(), Seen{"<four"});
    groups.flush();
    EXPECT_EQ(groups.take(), Seen{});
}

TEST(SerialGrouper, AReturnWaitsForItsLineFeed) {
    Groups groups(Grouper::Cut::lines);
    groups.in("one\r");
    EXPECT_EQ(groups.take(), Seen{});
    groups.in("\ntwo\r");
    EXPECT_EQ(groups.take(), Seen{"<one\r\n"});
    groups.in("three");
    EXPECT_EQ(groups.take(), Seen{"<two\r"});
    groups.in("\r");
    groups.flush();
    EXPECT_EQ(groups.take(), Seen{"<three\r"});
}

TEST(SerialGrouper, DirectionsKeepTheirOwnLines) {
    Groups groups(Grouper::Cut::lines);
    groups.in("ans");
    groups.out("ask\n");
    groups.in("wer\n");
    EXPECT_EQ(groups.take(), (Seen{">ask\n", "<answer\n"}));
}

TEST(SerialGrouper, AGroupHasTheTimeOfItsFirstByte) {
    Groups groups(Grouper::Cut::lines);
    groups.in("a", 10);
    groups.in("b\nc", 11);
    groups.in("d\n", 12);
    EXPECT_EQ(groups.times, (std::vector<FTIME>{10, 11}));
}

TEST(SerialGrouper, ALineWithoutAnEndIsCut) {
    Groups groups(Grouper::Cut::lines);
    groups.in(std::string(4095, 'x'));
    EXPECT_EQ(groups.take().size(), 0u);
    groups.in("xx");
    const Seen seen = groups.take();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].size(), 4097u);
    groups.flush();
    EXPECT_EQ(groups.take(), Seen{"<x"});
}

TEST(SerialGrouper, RowsHoldSixteenBytes) {
    Groups groups(Grouper::Cut::rows);
    groups.in("0123456789abcdef0123\n");
    EXPECT_EQ(groups.take(), Seen{"<0123456789abcdef"});
    groups.flush();
    EXPECT_EQ(groups.take(), Seen{"<0123\n"});
}

TEST(SerialView, MarksWhereALineCameFrom) {
    TextView view({});
    EXPECT_EQ(out(view, "V?\r"), "> V?\n");
    EXPECT_EQ(in(view, "1.2\r\n"), "< 1.2\n");
    EXPECT_EQ(in(view, "\r\n\n"), "< \n< \n");
}

TEST(SerialView, ShowsAPromptBeforeItsLineEnds) {
    TextView view({});
    EXPECT_EQ(in(view, "cmd> "), "< cmd> ");
    EXPECT_EQ(in(view, "on\r"), "on\n");
    EXPECT_EQ(view.finish(), "");
}

TEST(SerialView, ALineFeedBehindAReturnEndsNothingMore) {
    TextView view({});
    EXPECT_EQ(in(view, "a\r"), "< a\n");
    EXPECT_EQ(in(view, "\n"), "");
    EXPECT_EQ(in(view, "\n"), "< \n");
    // The other direction's return has nothing to do with it.
    EXPECT_EQ(out(view, "x\r"), "> x\n");
    EXPECT_EQ(in(view, "\n"), "< \n");
}

TEST(SerialView, TheOtherDirectionBeginsALineOfItsOwn) {
    TextView view({});
    EXPECT_EQ(in(view, "one"), "< one");
    EXPECT_EQ(out(view, "two"), "\n> two");
    EXPECT_EQ(view.finish(), "\n");
    EXPECT_EQ(in(view, "three"), "< three");
}

TEST(SerialView, AfterAnInterruptionALineBegins) {
    TextView view({});
    in(view, "cmd> ");
    view.interrupted();
    EXPECT_EQ(in(view, "done"), "< done");
}

TEST(SerialView, NeverPassesAnEscapeSequence) {
    TextView view({});
    EXPECT_EQ(in(view, "\x1b[2J\x07\t\n"), "< \\x1b[2J\\x07\\t\n");
}

TEST(SerialView, StampsEachLineWithItsTime) {
    TextView view({Stamps::utc, true, false});
    EXPECT_EQ(in(view, "a\nb"), "2000-01-01T12:00:00.250Z < a\n2000-01-01T12:00:00.250Z < b");
    EXPECT_EQ(in(view, "c\n", k_noon + 1), "c\n");
}

TEST(SerialView, StampsInLocalTimeWithItsZone) {
    const ScopedEnv zone("TZ", "XYZ-5:30");
    tzset();
    EXPECT_EQ(iso_local_time(k_noon), "2000-01-01T17:30:00.250+05:30");
    EXPECT_EQ(hex_line({Direction::in, k_noon, "A"}, {Stamps::local, true, false}).substr(0, 34),
              "2000-01-01T17:30:00.250+05:30 < 41");
}

TEST(SerialView, LocalTimeWestOfGreenwich) {
    const ScopedEnv zone("TZ", "XYZ3:30");
    tzset();
    EXPECT_EQ(iso_local_time(k_noon), "2000-01-01T08:30:00.250-03:30");
    EXPECT_EQ(iso_local_time(-1), "-");
}

TEST(SerialView, ColourTellsTheDirectionsApartAndEndsWithTheText) {
    TextView view({Stamps::none, false, true});
    EXPECT_EQ(in(view, "a\nb"), "\x1b[36ma\x1b[0m\n\x1b[36mb\x1b[0m");
    EXPECT_EQ(out(view, "c"), "\n\x1b[2mc\x1b[0m");
}

TEST(SerialView, WithoutMarksThereIsOnlyTheText) {
    TextView view({Stamps::none, false, false});
    EXPECT_EQ(in(view, "menu\r\n1) on"), "menu\n1) on");
}

TEST(SerialView, HexLinesHaveTheSameHead) {
    EXPECT_EQ(hex_line({Direction::out, k_noon, "V\r"}, {Stamps::utc, true, false}),
              "2000-01-01T12:00:00.250Z > 56 0d" + std::string(43, ' ') + " |V.|\n");
}

TEST(SerialView, JsonHoldsTheBytesExactly) {
    const std::string line = json_line({Direction::in, k_noon, "\xb0\\C\r\n"});
    EXPECT_EQ(line.back(), '\n');
    const auto object = nlohmann::json::parse(line);
    EXPECT_EQ(object["time"], k_noon);
    EXPECT_EQ(object["direction"], "in");
    EXPECT_EQ(object["text"], "\\xb0\\\\C\\r\\n");
    EXPECT_EQ(object["hex"], "b05c430d0a");
}

TEST(SerialTyping, LinesEndAsTheInstrumentWantsThem) {
    Typing typing(Typing::Source::lines, "\r\n", true);
    EXPECT_EQ(typing.take("V?\nW?\nun"), "V?\r\nW?\r\nun");
    Typing none(Typing::Source::lines, "", true);
    EXPECT_EQ(none.take("V?\n"), "V?");
}

TEST(SerialTyping, TheEnterKeySendsTheLineEnd) {
    Typing typing(Typing::Source::keys, "\n", true);
    EXPECT_EQ(typing.take("a\r"), "a\n");
    EXPECT_EQ(typing.take("\x03"), "\x03");
}

TEST(SerialTyping, BytesOfAFilePassUnchanged) {
    Typing typing(Typing::Source::bytes, "\n", false);
    EXPECT_EQ(typing.take(all_bytes()), all_bytes());
    EXPECT_FALSE(typing.has_left());
}

TEST(SerialTyping, TheWayOutSendsWhatCameBefore) {
    Typing typing(Typing::Source::keys, "\r", true);
    EXPECT_EQ(typing.take("ab\x1d"
                          "cd"),
              "ab");
    EXPECT_TRUE(typing.has_left());
}

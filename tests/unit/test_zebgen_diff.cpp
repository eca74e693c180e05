// What --diff says of two revisions, held against what the library does with packages and messages
// that travel between them, in both directions.
#include "diff.h"
#include "zebgen_testing.h"

#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <sys/wait.h>

using namespace zeb::test;
using zebgen::Change;
namespace netpack = zeb::netpack;

namespace {

std::string record_text(const std::string &members, const std::string &name = "NET_T") {
    return "typedef struct {\n" + members + "\n} " + name + ";\n";
}

std::vector<std::string> lines_of(const Revision &older, const Revision &newer) {
    std::vector<std::string> lines;
    for (const Change &change : compare(older.model(), newer.model()))
        lines.push_back(text_of(change));
    return lines;
}

// The fields of which something that the old revision carries did not arrive, named as --diff does.
using Names = std::set<std::string>;

std::string top_field(const std::string &path) {
    return path.substr(0, path.find('['));
}

// By sending the record full of extreme values, and full of missing ones.
Names lost_fields(const Revision &sender, const Revision &receiver, const std::string &name,
                  const Revision &older) {
    Names lost;
    const Elements known = elements_of(older, name, image_of(older, name, Filling::missing));
    for (const Filling filling : {Filling::highest, Filling::lowest, Filling::missing}) {
        const Image sent = image_of(sender, name, filling);
        const Elements before = elements_of(sender, name, sent);
        const Image arrived = travelled(sender, receiver, name, sent);
        EXPECT_FALSE(arrived.empty());
        const Elements after = elements_of(receiver, name, arrived);
        for (const auto &[path, ignored] : known) {
            const auto from = before.find(path);
            const auto to = after.find(path);
            if (from == before.end() || to == after.end() || from->second != to->second)
                lost.insert(top_field(path));
        }
    }
    return lost;
}

// The claims for fields of one record that nests nothing that changed.
void expect_claims_hold(const Revision &older, const Revision &newer, const std::string &name) {
    Names to_new;
    Names to_old;
    for (const Change &change : compare(older.model(), newer.model())) {
        if (change.subject != name)
            continue;
        if (change.to_new.lost)
            to_new.insert(change.field);
        if (change.to_old.lost)
            to_old.insert(change.field);
    }
    EXPECT_EQ(to_new, lost_fields(older, newer, name, older)) << "old to new";
    EXPECT_EQ(to_old, lost_fields(newer, older, name, older)) << "new to old";
}

struct Case {
    const char *older; // members
    const char *newer;
    const char *line;
};

void expect_line(const Case &row) {
    SCOPED_TRACE(std::string(row.older) + " -> " + row.newer);
    const Revision older(record_text(row.older));
    const Revision newer(record_text(row.newer));
    const std::vector<std::string> lines = lines_of(older, newer);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), row.line), 1)
        << (lines.empty() ? "no line" : lines.back());
    expect_claims_hold(older, newer, "NET_T");
}

// To as many digits as the lines have.
std::string rounded(const std::string &digits) {
    char text[64];
    snprintf(text, sizeof text, "%.10g", atof(digits.c_str()));
    return text;
}

const char *const k_types[] = {"BOOL", "char",  "BYTE",  "short", "WORD",  "int",    "DWORD",
                               "LONG", "ULONG", "SIZET", "TIME",  "FTIME", "double", "float"};

} // namespace

TEST(ZebgenDiff, NothingChangedSaysNothing) {
    const std::string text = record_text("int i; /* I */\nSTRING s[4];\ndouble d[3];");
    EXPECT_TRUE(lines_of(Revision(text), Revision(text)).empty());
}

TEST(ZebgenDiff, AddedFieldIsMissingFromOldSenders) {
    for (const Case &row : std::initializer_list<Case>{
             {"int i;", "int i; double d;",
              "t.h: NET_T.d: compatible: added (double); old to new: missing (9.999e-99); new to "
              "old: ignored"},
             {"int i;", "int i; DWORD n[2];",
              "t.h: NET_T.n: compatible: added (DWORD[2]); old to new: missing (1431655765); new "
              "to old: ignored"},
             {"int i;", "int i; WORD w;",
              "t.h: NET_T.w: compatible: added (WORD); old to new: missing (0); new to old: "
              "ignored"},
             {"int i;", "int i; TIME t;",
              "t.h: NET_T.t: compatible: added (time_t); old to new: missing (-1); new to old: "
              "ignored"},
             {"int i;", "int i; STRING s[8];",
              "t.h: NET_T.s: compatible: added (STRING[8]); old to new: missing (empty); new to "
              "old: ignored"}})
        expect_line(row);
}

// The value that a line calls missing is the one that a receiver finds.
TEST(ZebgenDiff, MissingValuesAreThoseOfTheLibrary) {
    for (const char *type : k_types) {
        const Revision revision(record_text(std::string(type) + " x;"));
        const Image image = image_of(revision, "NET_T", Filling::missing);
        const NETDSD_field &field = revision.record("NET_T")->fields[0];
        EXPECT_EQ(missing_text(revision.model().records[0].fields[0]),
                  "missing (" + rounded(number_kind_of(field.ft).digits(image.data())) + ")")
            << type;
    }
}

TEST(ZebgenDiff, RemovedFieldIsLost) {
    expect_line({"int i; double d;", "int i;",
                 "t.h: NET_T.d: breaking: removed (double); old to new: dropped; new to old: "
                 "missing (9.999e-99)"});
}

TEST(ZebgenDiff, TypesOfTheSameCodeAreTheSame) {
    for (const Case &row : std::initializer_list<Case>{
             {"WORD w;", "uint16_t w;",
              "t.h: NET_T.w: compatible: WORD to uint16_t; either way: the same values"},
             {"double d;", "double d[1];",
              "t.h: NET_T.d: compatible: double to double[1]; either way: the same values"}})
        expect_line(row);
}

TEST(ZebgenDiff, NumbersAreConvertedAsTheirTypesAllow) {
    for (const Case &row : std::initializer_list<Case>{
             {"BYTE x;", "WORD x;",
              "t.h: NET_T.x: breaking: BYTE to WORD; old to new: converted exactly; new to old: "
              "values outside 0 to 255 change: the low 8 bits arrive"},
             {"int x;", "short x;",
              "t.h: NET_T.x: breaking: int to short; old to new: values outside -32768 to 32767 "
              "change: the low 16 bits arrive, a missing value arrives as 21845; new to old: "
              "converted exactly"},
             {"int x;", "double x;",
              "t.h: NET_T.x: breaking: int to double; old to new: converted exactly, a missing "
              "value arrives as 1431655765; new to old: fractions cut off, limited to -2147483648 "
              "to 2147483647, a missing value arrives as 0"},
             {"float x;", "double x;",
              "t.h: NET_T.x: breaking: float to double; old to new: converted exactly; new to old: "
              "rounded to 24 bits, a missing value arrives as 0"},
             {"TIME x;", "FTIME x;",
              "t.h: NET_T.x: breaking: time_t to FTIME; old to new: converted exactly; new to old: "
              "fractions cut off, limited to -2147483648 to 2147483647"},
             {"FTIME x;", "double x;",
              "t.h: NET_T.x: breaking: FTIME to double; old to new: converted exactly, a missing "
              "value arrives as -1; new to old: converted exactly, a missing value arrives as "
              "9.999e-99"},
             {"int x;", "LONG x;",
              "t.h: NET_T.x: compatible: int to long; either way: converted exactly"},
             {"BOOL x;", "BYTE x;",
              "t.h: NET_T.x: compatible: BOOL to BYTE; either way: converted exactly"},
             {"DWORD x;", "float x;",
              "t.h: NET_T.x: breaking: DWORD to float; old to new: integers above 16777216 rounded "
              "to 24 bits, a missing value arrives as 1431655808; new to old: fractions cut off, "
              "limited to 0 to 4294967295"}})
        expect_line(row);
}

TEST(ZebgenDiff, ClaimsHoldForEveryPairOfTypes) {
    for (const char *from : k_types)
        for (const char *to : k_types) {
            SCOPED_TRACE(std::string(from) + " -> " + to);
            expect_claims_hold(Revision(record_text(std::string(from) + " x;")),
                               Revision(record_text(std::string(to) + " x;")), "NET_T");
        }
}

TEST(ZebgenDiff, MissingValuesArriveAsTheLinesSay) {
    for (const char *from : k_types)
        for (const char *to : k_types) {
            const Revision sender(record_text(std::string(from) + " x;"));
            const Revision receiver(record_text(std::string(to) + " x;"));
            const Image arrived =
                travelled(sender, receiver, "NET_T", image_of(sender, "NET_T", Filling::missing));
            const NETDSD_field &field = receiver.record("NET_T")->fields[0];
            const std::string text = zebgen::convert(sender.model().records[0].fields[0].code,
                                                     receiver.model().records[0].fields[0].code)
                                         .text;
            const std::string mark = "arrives as ";
            if (text.find(mark) == std::string::npos)
                continue;
            EXPECT_EQ(text.substr(text.find(mark) + mark.size()),
                      rounded(number_kind_of(field.ft).digits(arrived.data())))
                << from << " -> " << to;
        }
}

TEST(ZebgenDiff, WhatIsNoNumberIsNotConverted) {
    for (const Case &row : std::initializer_list<Case>{
             {"char x[8];", "STRING x[8];",
              "t.h: NET_T.x: breaking: char[8] to STRING[8]; old to new: not converted: missing "
              "(empty); new to old: not converted: missing (0)"},
             {"STRING x[8];", "double x;",
              "t.h: NET_T.x: breaking: STRING[8] to double; old to new: not converted: missing "
              "(9.999e-99); new to old: not converted: missing (empty)"}})
        expect_line(row);
}

TEST(ZebgenDiff, GrownArraysAreCompatibleAndShrunkOnesLose) {
    for (const Case &row : std::initializer_list<Case>{
             {"double d[3];", "double d[5];",
              "t.h: NET_T.d: compatible: double[3] to double[5]; old to new: the same values, but "
              "elements 3 to 4 missing (9.999e-99); new to old: the same values, but elements 3 to "
              "4 dropped"},
             {"WORD d[3];", "WORD d[2];",
              "t.h: NET_T.d: breaking: WORD[3] to WORD[2]; old to new: the same values, but "
              "element 2 dropped; new to old: the same values, but element 2 missing (0)"},
             {"double d;", "double d[2];",
              "t.h: NET_T.d: compatible: double to double[2]; old to new: the same values, but "
              "element 1 missing (9.999e-99); new to old: the same values, but element 1 dropped"}})
        expect_line(row);
}

TEST(ZebgenDiff, LongTextsAreCutWhereTheyDoNotFit) {
    for (const Case &row : std::initializer_list<Case>{
             {"STRING s[8];", "STRING s[4];",
              "t.h: NET_T.s: breaking: STRING[8] to STRING[4]; old to new: texts of more than 3 "
              "bytes cut; new to old: the same values"},
             {"STRING s[8];", "STRING s[9];",
              "t.h: NET_T.s: breaking: STRING[8] to STRING[9]; old to new: the same values; new to "
              "old: texts of more than 7 bytes cut"}})
        expect_line(row);
}

TEST(ZebgenDiff, MovedFieldsArriveByName) {
    for (const Case &row : std::initializer_list<Case>{
             {"int i; double d; BYTE b;", "BYTE b; double d; int i;",
              "t.h: NET_T: compatible: layout in memory changed, moved: b, i; either way: the "
              "same values, as fields travel by name"},
             {"BYTE a; double d;", "BYTE a; BYTE b; double d; int i;",
              "t.h: NET_T: compatible: layout in memory changed, 12 to 16 bytes; either way: the "
              "same values, as fields travel by name"}})
        expect_line(row);
}

TEST(ZebgenDiff, CommentsAreForReaders) {
    const std::vector<std::string> lines =
        lines_of(Revision(record_text("double T; /* Temperature (C) */")),
                 Revision(record_text("double T; /* Temperature (K) */")));
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], "t.h: NET_T.T: compatible: comment \"Temperature (C)\" to \"Temperature "
                        "(K)\"; either way: the same values");
}

TEST(ZebgenDiff, NestedRecordsNameWhereTheyAreNested) {
    const std::string whole =
        record_text("NET_P in; int n; NET_P many[2];", "NET_W") + record_text("NET_W w;", "NET_X");
    const Revision older(record_text("int a; double b;", "NET_P") + whole);
    const Revision newer(record_text("int a;", "NET_P") + whole);
    const std::vector<std::string> lines = lines_of(older, newer);
    ASSERT_FALSE(lines.empty());
    const auto removed = std::find_if(lines.begin(), lines.end(), [](const std::string &line) {
        return line.find("removed") != std::string::npos;
    });
    ASSERT_NE(removed, lines.end());
    EXPECT_EQ(*removed,
              "t.h: NET_P.b: breaking: removed (double); old to new: dropped; new to old: "
              "missing (9.999e-99); within NET_W.in, NET_W.many, NET_X.w.in, "
              "NET_X.w.many");
    EXPECT_EQ(lost_fields(older, newer, "NET_W", older), (Names{"in", "many"}));
    EXPECT_EQ(lost_fields(newer, older, "NET_X", older), (Names{"w"}));
}

TEST(ZebgenDiff, NestedRecordOfAnotherNameIsNotConverted) {
    const std::string parts = record_text("int a;", "NET_P") + record_text("int a;", "NET_Q");
    const Revision older(parts + record_text("NET_P p; int n;"));
    const Revision newer(parts + record_text("NET_Q p; int n;"));
    const std::vector<std::string> lines = lines_of(older, newer);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0],
              "t.h: NET_T.p: breaking: NET_P to NET_Q; either way: not converted: missing "
              "(every field)");
    expect_claims_hold(older, newer, "NET_T");
}

TEST(ZebgenDiff, NestedRecordsInPlaceOfNumbersAreNotConverted) {
    const std::string part = record_text("int a;", "NET_P");
    const Revision older(part + record_text("NET_P p; int n;"));
    const Revision newer(part + record_text("int p; int n;"));
    // A receiver has other elements then: "p[0]" where the sender has "p[0].a".
    EXPECT_EQ(lost_fields(older, newer, "NET_T", older), Names{"p"});
    EXPECT_EQ(lost_fields(newer, older, "NET_T", older), Names{"p"});
    EXPECT_EQ(lines_of(older, newer),
              std::vector<std::string>{
                  "t.h: NET_T.p: breaking: NET_P to int; old to new: not converted: missing "
                  "(1431655765); new to old: not converted: missing (every field)"});
}

TEST(ZebgenDiff, ArraysOfRecordsGrowAndShrinkAsOthersDo) {
    const std::string part = record_text("int a; STRING s[4];", "NET_P");
    const Revision two(part + record_text("NET_P p[2];"));
    const Revision three(part + record_text("NET_P p[3];"));
    expect_claims_hold(two, three, "NET_T");
    expect_claims_hold(three, two, "NET_T");
    const std::vector<std::string> lines = lines_of(three, two);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1],
              "t.h: NET_T.p: breaking: NET_P[3] to NET_P[2]; old to new: the same values, "
              "but element 2 dropped; new to old: the same values, but element 2 missing "
              "(every field)");
}

TEST(ZebgenDiff, RecordsThatVanishAreBreakingAndNewOnesAreNot) {
    const std::string kept = record_text("int i;");
    const std::string other = record_text("int i;", "NET_U");
    EXPECT_EQ(lines_of(Revision(kept + other), Revision(kept)),
              std::vector<std::string>{"t.h: NET_U: breaking: record removed; either way: no such "
                                       "record: messages and members that carry it are dropped"});
    EXPECT_EQ(lines_of(Revision(kept), Revision(kept + other)),
              std::vector<std::string>{
                  "t.h: NET_U: compatible: record added; old to new: not sent; new to old: no such "
                  "record: messages and members that carry it are dropped"});
}

namespace {

// Whether a message of that name with the record that its sender ties to it is taken by a receiver.
bool delivered(const Revision &sender, const Revision &receiver, const std::string &name) {
    const netpack::Catalogue from = sender.get();
    const NETMSG_entry *row = netpack::find_message(from, name);
    if (row == nullptr)
        return false;
    NETPACK_message message = {};
    message.type = row->msg;
    Image image;
    std::string tie = row->ds_tie ? row->ds_tie : "";
    if (row->ds_tie) {
        image = image_of(sender, tie, Filling::highest);
        message.pds = image.data();
        message.sz_ds = image.size();
        message.ds_name = tie.data();
    }
    size_t size = 0;
    void *bytes = netpack::package_message(from, &message, &size);
    NETPACK_message arrived = {};
    const netpack::Catalogue to = receiver.get();
    const StderrCapture silence;
    const bool taken = netpack::unpack_message(to, bytes, size, &arrived) &&
                       name == to.messages[arrived.type].name;
    NETPACK_msg_free(&arrived);
    free(bytes);
    return taken;
}

const char k_two_records[] = "typedef struct { int i; } NET_A;\ntypedef struct { int i; } NET_B;\n";

struct MessageCase {
    const char *older;
    const char *newer;
    bool to_new; // delivered
    bool to_old;
    std::vector<std::string> lines;
};

} // namespace

TEST(ZebgenDiff, MessagesGoByNameAndTie) {
    const std::vector<std::string> discarded = {
        "t.h: MSG_T: breaking: carries NET_A, now NET_B; either way: discarded: it does not carry "
        "what is expected"};
    for (
        const MessageCase &row : std::initializer_list<MessageCase>{
            {"ZEB_MESSAGE(MSG_T, \"t\", NET_A);", "ZEB_MESSAGE(MSG_T, \"t\", NET_B);", false, false,
             discarded},
            {"ZEB_MESSAGE(MSG_T, \"t\", NET_A);",
             "ZEB_MESSAGE_BARE(MSG_T, \"t\");",
             false,
             false,
             {"t.h: MSG_T: breaking: carries NET_A, now nothing; either way: discarded: it does "
              "not carry what is expected"}},
            {"ZEB_MESSAGE(MSG_T, \"t\", NET_A);",
             "",
             false,
             false,
             {"t.h: MSG_T: breaking: message removed; old to new: dropped: no such message; new to "
              "old: no longer sent"}},
            {"",
             "ZEB_MESSAGE(MSG_T, \"t\", NET_A);",
             false,
             false,
             {"t.h: MSG_T: compatible: message added, carries NET_A; old to new: not sent; new to "
              "old: dropped: no such message"}},
            {"ZEB_MESSAGE_BARE(MSG_T, \"t\");",
             "ZEB_MESSAGE_BARE(MSG_T, \"u\");",
             true,
             true,
             {"t.h: MSG_T: breaking: class \"t\" to \"u\"; old to new: filters for \"t\" miss it "
              "at a new server; new to old: filters for \"u\" miss it at an old server"}},
            {"ZEB_MESSAGE_BARE(MSG_T, \"t\");",
             "ZEB_MESSAGE_BARE(MSG_T, \"t\");\n"
             "ZEB_MESSAGE_BARE(MSG_S, \"t\");",
             true,
             true,
             {"(all): messages: breaking: 1 renumbered, the first MSG_T from 0 to 1; old to new: "
              "the number in a filter at a new server may be another message's; all else goes by "
              "name; new to old: the number in a filter at an old server may be another message's; "
              "all else goes by name",
              "t.h: MSG_S: compatible: message added; old to new: not sent; new to old: dropped: "
              "no such message"}}}) {
        SCOPED_TRACE(std::string(row.older) + " -> " + row.newer);
        const Revision older(k_two_records, row.older);
        const Revision newer(k_two_records, row.newer);
        EXPECT_EQ(lines_of(older, newer), row.lines);
        EXPECT_EQ(delivered(older, newer, "MSG_T"), row.to_new);
        EXPECT_EQ(delivered(newer, older, "MSG_T"), row.to_old);
    }
}

// Messages at the end of the order renumber nothing.
TEST(ZebgenDiff, MessageAddedLastIsCompatible) {
    for (const Change &change :
         compare(Revision(k_two_records, "ZEB_MESSAGE_BARE(MSG_T, \"t\");").model(),
                 Revision(k_two_records, "ZEB_MESSAGE_BARE(MSG_T, \"t\");\n"
                                         "ZEB_MESSAGE_BARE(MSG_U, \"t\");")
                     .model()))
        EXPECT_FALSE(change.breaking()) << text_of(change);
}

namespace {

std::string random_members(std::mt19937 &random) {
    const auto below = [&](unsigned limit) { return static_cast<unsigned>(random() % limit); };
    std::string members;
    for (const char *name : {"a", "b", "c", "d", "e", "f"}) {
        if (below(5) == 0)
            continue;
        const unsigned kind = below(10);
        const std::string count = std::to_string(1 + below(4));
        if (kind == 0)
            members += "STRING " + std::string(name) + "[" + count + "];\n";
        else if (kind == 1)
            members += "NET_P " + std::string(name) + "[" + count + "];\n";
        else
            members += std::string(k_types[below(14)]) + " " + name +
                       (kind < 5 ? "[" + count + "];\n" : ";\n");
    }
    return members + "int last;\n";
}

} // namespace

TEST(ZebgenDiff, ClaimsHoldForRandomRevisions) {
    std::mt19937 random(20261121);
    const std::string part = record_text("int a; STRING s[4]; double d[2];", "NET_P");
    for (int i = 0; i < 300 && !HasFailure(); i++) {
        const std::string older = random_members(random);
        const std::string newer = random_members(random);
        SCOPED_TRACE(older + "->\n" + newer);
        expect_claims_hold(Revision(part + record_text(older)), Revision(part + record_text(newer)),
                           "NET_T");
    }
}

TEST(ZebgenDiff, LinesAreSortedByFileRecordAndField) {
    const auto catalogue = [](const std::string &members) {
        zebgen::Problems problems;
        const auto header = [&](const char *path, const char *name) {
            return zebgen::parse(path, path,
                                 "#pragma pack(push, 4)\n" + record_text(members, name) +
                                     "#pragma pack(pop)\n",
                                 problems);
        };
        return zebgen::merge(
            {header("old/z.h", "NET_A"), header("a.h", "NET_Z"), header("z.h", "NET_B")}, problems);
    };
    std::vector<std::string> order;
    for (const Change &change : compare(catalogue("int x; int y;"), catalogue("float x; float y;")))
        order.push_back(change.file + " " + change.subject + " " + change.field);
    EXPECT_EQ(order, (std::vector<std::string>{"a.h NET_Z x", "a.h NET_Z y", "z.h NET_A x",
                                               "z.h NET_A y", "z.h NET_B x", "z.h NET_B y"}));
}

// Each of the 32 nests the one before twice: more ways than could ever be listed.
TEST(ZebgenDiff, ListsNoMoreThanAFewOfManyWaysToARecord) {
    std::string text;
    for (int i = 1; i <= 32; i++) {
        const std::string below = "NET_" + std::to_string(i - 1);
        text += record_text(below + " x; " + below + " y;", "NET_" + std::to_string(i));
    }
    const std::vector<Change> changes =
        compare(Revision(record_text("int i;", "NET_0") + text).model(),
                Revision(record_text("int j;", "NET_0") + text).model());
    ASSERT_EQ(changes.size(), 2u);
    EXPECT_EQ(changes[0].within.size(), 8u);
    EXPECT_EQ(changes[0].within[0], "NET_1.x");
}

// The program itself.

namespace {

struct Outcome {
    int status = -1;
    std::string output;
};

Outcome run_diff(const TempDir &dir, const std::string &arguments) {
    const std::string log = dir / "log";
    const std::string command = "cd " + dir.path() + " && " + built_path("src/zebgen/zebgen") +
                                " --diff " + arguments + " >" + log + " 2>&1";
    const int status = system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read_file(log)};
}

std::string header_of(const std::string &members) {
    return "#pragma pack(push, 4)\n" + record_text(members) + "#pragma pack(pop)\n";
}

} // namespace

TEST(ZebgenDiffProgram, StatusTellsWhetherDataIsLost) {
    const TempDir dir;
    write_file(dir / "a.h", header_of("int i;"));
    write_file(dir / "b.h", header_of("int i; int j;"));
    const Outcome same = run_diff(dir, "a.h a.h");
    EXPECT_EQ(same.status, 0);
    EXPECT_EQ(same.output, "");
    EXPECT_EQ(run_diff(dir, "a.h b.h").status, 0);
    const Outcome lost = run_diff(dir, "b.h a.h");
    EXPECT_EQ(lost.status, 1);
    EXPECT_NE(lost.output.find("a.h: NET_T.j: breaking: removed (int)"), std::string::npos)
        << lost.output;
}

TEST(ZebgenDiffProgram, StatusTwoIsForWhatCannotBeCompared) {
    const TempDir dir;
    write_file(dir / "a.h", header_of("int i;"));
    write_file(dir / "bad.h", header_of("time_t t;"));
    ASSERT_EQ(system(("mkdir " + (dir / "empty")).c_str()), 0);
    for (const char *arguments : {"", "a.h", "a.h missing.h", "missing.h a.h", "a.h bad.h",
                                  "a.h empty", "a.h a.h --out out", "a.h a.h a.h", "a.h ''"}) {
        const Outcome run = run_diff(dir, arguments);
        EXPECT_EQ(run.status, 2) << arguments << "\n" << run.output;
        EXPECT_NE(run.output, "") << arguments;
    }
}

TEST(ZebgenDiffProgram, SaysWhyItCannotCompare) {
    const TempDir dir;
    write_file(dir / "a.h", header_of("int i;"));
    ASSERT_EQ(system(("mkdir " + (dir / "empty")).c_str()), 0);
    EXPECT_EQ(run_diff(dir, "a.h empty").output, "empty: error: holds no definition header\n");
    EXPECT_EQ(run_diff(dir, "a.h missing.h").output,
              "missing.h: error: cannot be read: No such file or directory\n");
    const std::string full = "cd " + dir.path() + " && " + built_path("src/zebgen/zebgen") +
                             " --diff a.h a.h --json >/dev/full 2>log";
    const int status = system(full.c_str());
    EXPECT_EQ(WEXITSTATUS(status), 2);
    EXPECT_EQ(read_file(dir / "log"), "standard output: error: cannot be written\n");
}

TEST(ZebgenDiffProgram, TakesDirectoriesAndSets) {
    const TempDir dir;
    ASSERT_EQ(system(("mkdir " + (dir / "old") + " " + (dir / "new")).c_str()), 0);
    const std::string nest =
        "#pragma pack(push, 4)\ntypedef struct { NET_T t; } NET_U;\n#pragma pack(pop)\n";
    write_file(dir / "old/a.h", header_of("int i;"));
    write_file(dir / "old/b.h", nest);
    write_file(dir / "new/a.h", header_of("int i; int j;"));
    write_file(dir / "own.h", nest);
    const Outcome run = run_diff(dir, "old new,own.h");
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.output.find("a.h: NET_T.j: compatible: added (int)"), std::string::npos)
        << run.output;
    EXPECT_NE(run.output.find("own.h: NET_U: compatible: moved here from b.h"), std::string::npos)
        << run.output;
}

TEST(ZebgenDiffProgram, JsonHoldsWhatTheLinesSay) {
    const TempDir dir;
    write_file(dir / "a.h", header_of("int i;"));
    write_file(dir / "b.h", header_of("int i; double d;"));
    const Outcome run = run_diff(dir, "b.h a.h --json");
    EXPECT_EQ(run.status, 1);
    const auto json = nlohmann::json::parse(run.output);
    EXPECT_EQ(json["breaking"], true);
    const auto change = json["changes"][2];
    EXPECT_EQ(change["file"], "a.h");
    EXPECT_EQ(change["subject"], "NET_T");
    EXPECT_EQ(change["field"], "d");
    EXPECT_EQ(change["kind"], "removed");
    EXPECT_EQ(change["breaking"], true);
    EXPECT_EQ(change["old_to_new"]["seen"], "dropped");
    EXPECT_EQ(change["old_to_new"]["lost"], true);
    EXPECT_EQ(change["new_to_old"]["seen"], "missing (9.999e-99)");
    EXPECT_EQ(change["within"].size(), 0u);
    EXPECT_EQ(json["changes"][0]["kind"], "file");
    EXPECT_TRUE(json["changes"][0]["field"].is_null());
    EXPECT_EQ(nlohmann::json::parse(run_diff(dir, "a.h a.h --json").output)["changes"].size(), 0u);
}

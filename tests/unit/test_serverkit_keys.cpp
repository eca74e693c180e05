#include "serverkit/inspect.h"
#include "serverkit/nearest.h"
#include "serverkit/station_keys.h"

#include "support.h"

#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace serverkit;
using namespace zeb::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr Key k_server_table[] = {mode("Server;Socket;Mode", "660", "mode"),
                                  text("Server;Socket;Group", "", "group"),
                                  count("Server;TCP;Port", "0", 0, 65535, "port"),
                                  seconds("Server;Heartbeat;Timeout", "30", 0.01, 100, "wait"),
                                  word("Port;*;Parity", "none", "none|odd|even", "parity"),
                                  count("Port;*;Baud", "9600", 300, 4000000, "rate")};
const ProgramKeys k_server = {"server", {k_server_table}};

constexpr Key k_daemon_table[] = {line_key("line"), number("@;Radius", "50", 0, HUGE_VAL, "m"),
                                  text("@;DisplayName", "GPS", "name"),
                                  polynomial("@;cal;PV", "coefficients"),
                                  truth("@;AverageOnContam", "true", "averages")};
const ProgramKeys k_daemon = {
    "gps", {k_daemon_table, k_tags_keys, k_directory_keys, k_log_keys, k_link_keys}};

zeb::ConfCheck file_of(const std::string &text) {
    FILE *stream = tmpfile();
    fwrite(text.data(), 1, text.size(), stream);
    rewind(stream);
    zeb::ConfCheck check = zeb::check_conf(stream);
    fclose(stream);
    return check;
}

std::vector<std::string> findings(const ProgramKeys &program, const std::string &text,
                                  const std::string &name = "") {
    const Keys keys(program, name);
    std::vector<std::string> lines;
    for (const auto &finding : check_keys(file_of(text), {&keys}))
        lines.push_back(std::to_string(finding.line) + ": " + finding.text);
    return lines;
}

std::string fault(const Key &key, const std::string &value) {
    return fault_of(key, value).value_or("");
}

std::optional<std::string> nearest(const std::string &written) {
    const Keys keys(k_server);
    std::vector<Names> patterns;
    for (const Keys::Entry &entry : keys.entries())
        patterns.push_back(entry.pattern);
    return nearest_path(written, patterns);
}

// ---- Values ----

TEST(Keys, AValueOfTheWrongKindIsToldWhatIsAllowed) {
    const Key port = count("a;b", "0", 0, 65535, "");
    EXPECT_EQ(fault(port, "65535"), "");
    for (const char *bad :
         {"65536", "-1", "1.5", "http", "", " 1", "1 ", "0x10", "99999999999999999999"})
        EXPECT_EQ(fault(port, bad), "a whole number from 0 to 65535") << bad;
    const Key wait = seconds("a;b", "1", 0.5, 60, "");
    EXPECT_EQ(fault(wait, "0.5"), "");
    for (const char *bad : {"0.4", "61", "nan", "inf", "soon", "1s"})
        EXPECT_EQ(fault(wait, bad), "a number of seconds from 0.5 to 60") << bad;
    EXPECT_EQ(fault(number("a;b", "", 0, HUGE_VAL, ""), "-1"), "a number from 0 on");
    EXPECT_EQ(fault(number("a;b", "", -HUGE_VAL, HUGE_VAL, ""), "x"), "a number");
    EXPECT_EQ(fault(mode("a;b", "", ""), "0777"), "");
    EXPECT_EQ(fault(mode("a;b", "", ""), "888"), "an octal mode up to 777");
    EXPECT_EQ(fault(mode("a;b", "", ""), "-1"), "an octal mode up to 777");
    EXPECT_EQ(fault(word("a;b", "", "none|odd|even", ""), "ODD"), "");
    EXPECT_EQ(fault(word("a;b", "", "none|odd|even", ""), "mark"), "none, odd or even");
}

TEST(Keys, WhatTheLibraryReadsOtherwiseThanItSeemsIsAFault) {
    EXPECT_EQ(fault(truth("a;b", "", ""), "False"), "");
    EXPECT_EQ(fault(truth("a;b", "", ""), "yes"), "true or false");
    EXPECT_EQ(fault_of_logging("TRUE"), "1 or 0");
    EXPECT_EQ(fault_of_logging("0"), std::nullopt);
    EXPECT_EQ(fault_of_polynomial("0;1.02;-3e-4"), std::nullopt);
    EXPECT_NE(fault_of_polynomial("0;1.02;x"), std::nullopt);
    EXPECT_EQ(fault_of_duration("1:30"), std::nullopt);
    EXPECT_NE(fault_of_duration("5 min"), std::nullopt);
    EXPECT_EQ(fault_of_port("=gps"), std::nullopt);
    EXPECT_EQ(fault_of_port("ttyS0:4800n81"), std::nullopt);
    EXPECT_NE(fault_of_port("ttyS0"), std::nullopt);
    EXPECT_EQ(fault_of_tags("a; b;c;d;e;f;g;h"), std::nullopt);
    EXPECT_NE(fault_of_tags("a;b;c;d;e;f;g;h;i"), std::nullopt);
}

TEST(Keys, ACommentBehindAValueIsNoFaultWhereTheLibraryReadsIt) {
    EXPECT_EQ(fault_in_file(polynomial("a;b", ""), "0;1 !of May"), std::nullopt);
    EXPECT_NE(fault_in_file(polynomial("a;b", ""), "x !of May"), std::nullopt);
    EXPECT_NE(fault_in_file(polynomial("a;b", ""), "!of May"), std::nullopt);
    EXPECT_NE(fault_in_file(count("a;b", "", 0, 9, ""), "1 !of May"), std::nullopt);
}

TEST(Keys, AProgramsBranchHasItsName) {
    const Keys keys(k_daemon, "gps2");
    EXPECT_NE(keys.find("GPS2;radius"), nullptr);
    EXPECT_EQ(keys.find("gps;Radius"), nullptr);
    EXPECT_NE(keys.find("gps2;var;Lat_gps2;format"), nullptr);
    EXPECT_EQ(keys.find("gps2;var;Lat_gps2"), nullptr);
    EXPECT_EQ(keys.find(""), nullptr);
    EXPECT_EQ(keys.find(";"), nullptr);
}

// ---- Reading ----

TEST(Settings, AKeyIsReadByItsRowOfTheTable) {
    const Tree tree(CONF_alloc());
    CONF_set(tree.get(), "Server;TCP;Port", "8567");
    CONF_set(tree.get(), "Port;A;Parity", "Even");
    const Keys keys(k_server);
    Settings settings(keys, tree.get());
    EXPECT_EQ(settings.count("Server;TCP;Port"), 8567u);
    EXPECT_EQ(settings.mode("Server;Socket;Mode"), 0660u);
    EXPECT_EQ(settings.number("Server;Heartbeat;Timeout"), 30);
    EXPECT_EQ(settings.word("Port;A;Parity"), 2u);
    EXPECT_EQ(settings.word("Port;B;Parity"), 0u);
    EXPECT_TRUE(settings.good());
}

TEST(Settings, ABadValueIsToldOnceAndTheDefaultTaken) {
    const Tree tree(CONF_alloc());
    CONF_set(tree.get(), "gps;Radius", "far");
    const Keys keys(k_daemon);
    Settings settings(keys, tree.get(), Settings::Tell::with_default);
    StderrCapture errors;
    EXPECT_EQ(settings.number("gps;Radius"), 50);
    EXPECT_EQ(settings.number("gps;Radius"), 50);
    const std::string text = errors.finish();
    EXPECT_THAT(text, HasSubstr("gps;Radius: \"far\" is not a number from 0 on; using 50\n"));
    EXPECT_EQ(occurrences(text, "far"), 1u);
    EXPECT_FALSE(settings.good());
}

TEST(Settings, WhatTheLibraryReadsIsUsedAsItIs) {
    constexpr Key table[] = {library(count("gps;Level", "3", 0, 9, "level")),
                             count("gps;Own", "3", 0, 9, "level")};
    const ProgramKeys program = {"gps", {table}};
    const Tree tree(CONF_alloc());
    CONF_set(tree.get(), "gps;Level", "12");
    CONF_set(tree.get(), "gps;Own", "12");
    const Keys keys(program);
    const Settings settings(keys, tree.get());
    EXPECT_EQ(settings.usable("gps;Level"), "12") << "the library knows of no limit";
    EXPECT_EQ(settings.usable("gps;Own"), "3");
}

TEST(Settings, AKeyThatTheTableLacksIsAFaultOfTheProgram) {
    const Keys keys(k_server);
    Settings settings(keys, nullptr);
    StderrCapture errors;
    EXPECT_EQ(settings.count("Server;TCP;Prot"), 0u);
    EXPECT_FALSE(settings.good());
    EXPECT_THAT(errors.finish(), HasSubstr("Server;TCP;Prot"));
}

TEST(Settings, DefaultsFollowTheNameAndOtherKeys) {
    const ScopedEnv db("DB", nullptr);
    const Tree tree(CONF_alloc());
    CONF_set(tree.get(), "RemoteHost", "hub");
    CONF_set(tree.get(), "Disk;StationID", "BRW");
    const Keys keys(k_daemon, "gps2");
    Settings settings(keys, tree.get());
    EXPECT_EQ(settings.text("gps2;Port"), "=gps2");
    EXPECT_EQ(settings.text("gps2;RemoteHost"), "hub");
    EXPECT_EQ(settings.text("Disk;LogDir"), "/oru/db/stn/brw/log");
}

// ---- What somebody may have meant ----

TEST(Nearest, SlipsOfThePenAreFew) {
    EXPECT_EQ(slips("Server", "server"), 0u);
    EXPECT_EQ(slips("Sever", "Server"), 1u);
    EXPECT_EQ(slips("Sevrer", "Server"), 1u) << "two letters swapped";
    EXPECT_EQ(slips("Prot", "Port"), 1u);
    EXPECT_EQ(slips("Serial", "Server"), std::nullopt);
    EXPECT_EQ(slips("D", "P"), std::nullopt) << "one letter is no slip of another";
    EXPECT_EQ(slips("", "P"), std::nullopt);
    EXPECT_EQ(slips(std::string(100000, 'x'), "Port"), std::nullopt);
}

TEST(Nearest, ThePathMayHaveSlipsInSeveralNames) {
    EXPECT_EQ(nearest("Server;TPC;Prot"), "Server;TCP;Port");
    EXPECT_EQ(nearest("server;heartbeet;timeout"), "Server;Heartbeat;Timeout");
    EXPECT_EQ(nearest("Server;Colour"), std::nullopt);
    EXPECT_EQ(nearest(""), std::nullopt);
}

TEST(Nearest, ANameMayBeMissingOrTooMuch) {
    EXPECT_EQ(nearest("Server;Port"), "Server;TCP;Port");
    EXPECT_EQ(nearest("Server;TCP;Limit;Port"), "Server;TCP;Port");
}

TEST(Nearest, ANameThatIsFreeIsKept) {
    EXPECT_EQ(nearest("Port;Mast;Buad"), "Port;Mast;Baud");
    EXPECT_EQ(nearest("Port;Baud"), std::nullopt) << "of which port?";
}

TEST(Nearest, LongPathsAreNotSearched) {
    std::string path = "Server";
    for (int i = 0; i < 500; ++i)
        path += ";a";
    EXPECT_EQ(nearest(path), std::nullopt);
}

// ---- Files ----

TEST(CheckKeys, AGoodFileHasNoFindings) {
    EXPECT_THAT(findings(k_server, "Server;TCP;Port,8567 # usual\nport;A;baud,4800\n"), IsEmpty());
    EXPECT_THAT(findings(k_server, ""), IsEmpty());
}

TEST(CheckKeys, AnUnknownKeyIsToldWithItsLineAndTheNearest) {
    EXPECT_THAT(findings(k_server, "\nServer;TCP;Prot,8567\n"),
                ElementsAre("2: Server;TCP;Prot: unknown key; did you mean Server;TCP;Port?"));
    EXPECT_THAT(findings(k_server, "Server;Colour,red\n"),
                ElementsAre("1: Server;Colour: unknown key"));
    EXPECT_THAT(findings(k_daemon, "gps2;Radus,1\n", "gps2"),
                ElementsAre("1: gps2;Radus: unknown key; did you mean gps2;Radius?"));
}

TEST(CheckKeys, AnUnknownSectionNearAKnownOneIsTold) {
    EXPECT_THAT(findings(k_server, "Sever;TCP;Port,1\n"),
                ElementsAre("1: Sever;TCP;Port: unknown section; did you mean Server;TCP;Port?"));
    EXPECT_THAT(findings(k_daemon, "RemotHost,hub\n"),
                ElementsAre("1: RemotHost: unknown section; did you mean RemoteHost?"));
    EXPECT_THAT(findings(k_daemon, "gsp;Port,=gps\n"),
                ElementsAre("1: gsp;Port: unknown section; did you mean gps;Port?"));
    EXPECT_THAT(findings(k_daemon, "gas;Port,=gas\n"), IsEmpty())
        << "short names that differ in a letter are two programs";
}

TEST(CheckKeys, TheBranchOfAProgramMayLieWithinAnother) {
    EXPECT_THAT(findings(k_daemon, "lab;gps;Radius,1\nlab;gps;DisplayName,x\n", "lab;gps"),
                IsEmpty());
    EXPECT_THAT(findings(k_daemon, "lab;gps;Radius,far\n", "lab;gps"),
                ElementsAre("1: lab;gps;Radius: \"far\" is not a number from 0 on"));
}

TEST(CheckKeys, AKeyOfAnotherProgramIsNoError) {
    EXPECT_THAT(findings(k_server, "Serial;Nonsense,1\nneph;Port,x\nfil;site,ABC\n"), IsEmpty());
    EXPECT_THAT(findings(k_daemon, "gps;Port,=gps\ngsp;Port,=gsp\n"), IsEmpty())
        << "a daemon of that name";
    EXPECT_THAT(findings(k_daemon, "gps2;Port,=gps\n"), IsEmpty()) << "a second one of its kind";
    EXPECT_THAT(findings(k_daemon, "Server;TCP;Prot,1\nneph;Tags\n"),
                ElementsAre(HasSubstr("2: no comma")));
}

TEST(CheckKeys, InSharedSectionsOnlySlipsAreTold) {
    EXPECT_THAT(findings(k_daemon, "Disk;Model,x\nGlobal;Operator,y\n"), IsEmpty());
    EXPECT_THAT(findings(k_daemon, "Disk;LogDri,/data\n"),
                ElementsAre("1: Disk;LogDri: unknown key; did you mean Disk;LogDir?"));
}

TEST(CheckKeys, LinesForTheHeadersOfLogFilesAreNoKeys) {
    EXPECT_THAT(findings(k_daemon, "!gps;site,ABC\n"), IsEmpty());
}

TEST(CheckKeys, ABadValueIsToldWithWhatIsAllowed) {
    EXPECT_THAT(findings(k_server, "Server;TCP;Port,http\nPort;A;Parity,mark\n"),
                ElementsAre("1: Server;TCP;Port: \"http\" is not a whole number from 0 to 65535",
                            "2: Port;A;Parity: \"mark\" is not none, odd or even"));
}

TEST(CheckKeys, ADuplicateOfOnesOwnKeyIsTold) {
    const std::string text = "Server;TCP;Port,1\nserver;tcp;port,2\n";
    EXPECT_THAT(findings(k_server, text), ElementsAre(HasSubstr("overwritten by line 2")));
    EXPECT_THAT(findings(k_daemon, text), IsEmpty());
}

TEST(CheckKeys, LinesThatSetNothingAreTold) {
    EXPECT_THAT(findings(k_server, "Server;TCP;Port 8567\nServer;TCP;Port,\n"),
                ElementsAre(HasSubstr("1: no comma"), HasSubstr("2: nothing after the comma")));
}

TEST(CheckKeys, WhatTheProgramRefusesIsTold) {
    const ProgramKeys picky = {"server", {k_server_table}, [](Settings &settings) {
                                   settings.count("Server;TCP;Port");
                                   settings.complain("Server;Socket;Group", "is missing");
                               }};
    EXPECT_THAT(findings(picky, "Server;TCP;Port,x\n"),
                ElementsAre("0: Server;Socket;Group: is missing", HasSubstr("1: Server;TCP;Port")));
}

TEST(CheckKeys, FindingsArePrintable) {
    for (const std::string &line :
         findings(k_server, "Server;\x1B[2J\xFF,1\nServer;TCP;Port,\x07\n"))
        for (const char c : line)
            EXPECT_TRUE(c >= ' ' && c <= '~') << line;
}

// ---- Effective values ----

TEST(EffectiveKeys, EveryKeyHasItsValueAndSource) {
    const ScopedEnv server("ZEB2SERVER", "hub:9000");
    const ScopedEnv db("DB", "/data");
    const auto file = file_of("\ngps2;Radius,7\nGPS2;cal;PV,0;1\ngps2;var;Lat;format,%f\n");
    const Tree tree = tree_of(file);
    const Keys keys(k_daemon, "gps2");
    Settings settings(keys, tree.get());
    std::vector<std::string> shown;
    for (const EffectiveKey &key : effective_keys(file, settings))
        shown.push_back(key.path + "=" + key.value + " " + std::to_string(int(key.source)) + " " +
                        std::to_string(key.line) + key.variable);
    EXPECT_THAT(shown,
                ElementsAre("Disk;BufferSize=0 1 0", "Disk;LogDir=/data/stn/nil/log 2 0DB",
                            "Disk;MaxFileSize=0 1 0", "Disk;StationID=nil 1 0",
                            "gps2;AverageOnContam=true 1 0", "gps2;cal;PV=0;1 0 3",
                            "gps2;DisplayName=GPS 1 0", "gps2;EnableLogging=1 1 0",
                            "gps2;fil;name=gps2 3 0", "gps2;Port==gps2 3 0", "gps2;Radius=7 0 2",
                            "gps2;RemoteHost=hub:9000 2 0ZEB2SERVER", "gps2;Tags= 1 0",
                            "gps2;var;Lat;enable=true 1 0", "gps2;var;Lat;format=%f 0 4",
                            "gps2;var;Lat;mvc= 1 0", "RemoteHost=hub:9000 2 0ZEB2SERVER"));
}

} // namespace

// The tables of every program against the texts that show their keys.

#include "flow_keys.h"
#include "gps_keys.h"
#include "serverkit/key_check.h"
#include "waypoint_keys.h"
#include "zeblogd/config.h"
#include "zebmsgd/config.h"
#include "zebseriald/config.h"

#include "support.h"

#include <algorithm>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <sstream>

using namespace serverkit;
using testing::IsEmpty;

namespace {

const std::vector<Keys> &programs() {
    static const std::vector<Keys> all = {Keys(zebmsgd::k_keys), Keys(zebseriald::k_keys),
                                          Keys(zeblogd::k_keys), Keys(gps::k_keys),
                                          Keys(flow::k_keys),    Keys(waypoint::k_keys)};
    return all;
}

std::vector<const Keys *> all_programs() {
    std::vector<const Keys *> all;
    for (const Keys &keys : programs())
        all.push_back(&keys);
    return all;
}

std::vector<std::string> lines_of(const std::string &file) {
    std::istringstream text(zeb::test::read_file(zeb::test::source_path(file)));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    return lines;
}

std::string standard_of(const Keys &keys, const Key &key) {
    return Settings(keys, nullptr).standard(key).value;
}

// A line of the sample that shows a key, behind "#" or not.
struct Shown {
    std::string path, value;
    bool commented;
};

std::vector<Shown> sample() {
    std::vector<Shown> shown;
    for (std::string line : lines_of("/etc/zeb.conf")) {
        const bool commented = line[0] == '#';
        if (line.empty() || (commented && (line[1] == ' ' || line[1] == '\0')))
            continue;
        line.erase(0, commented ? 1 : 0);
        const size_t comma = line.find(',');
        shown.push_back({line.substr(0, comma), line.substr(comma + 1), commented});
    }
    return shown;
}

TEST(StationKeys, EachDefaultIsAllowedAndEachMeaningThere) {
    for (const Keys &keys : programs())
        for (const Keys::Entry &entry : keys.entries()) {
            const std::string standard = standard_of(keys, *entry.key);
            EXPECT_TRUE(standard.empty() || !fault_of(*entry.key, standard)) << entry.key->path;
            EXPECT_GT(strlen(entry.key->meaning), 3u) << entry.key->path;
        }
}

TEST(StationKeys, TheSampleShowsEveryKey) {
    const auto shown = sample();
    for (const Keys &keys : programs())
        for (const Keys::Entry &entry : keys.entries())
            EXPECT_TRUE(std::any_of(shown.begin(), shown.end(), [&](const Shown &line) {
                return matches(entry.pattern, split_path(line.path));
            })) << join_path(entry.pattern);
}

TEST(StationKeys, TheSampleShowsKeysThatThereAreAtTheirDefaults) {
    for (const Shown &line : sample()) {
        const Keys *of = nullptr;
        const Key *key = nullptr;
        for (const Keys &keys : programs())
            if (key == nullptr && (key = keys.find(line.path)) != nullptr)
                of = &keys;
        ASSERT_NE(key, nullptr) << line.path;
        const std::string standard = standard_of(*of, *key);
        const bool free = strchr(key->path, '*') != nullptr && standard.empty();
        if (line.commented && !free && key->derive == nullptr) {
            EXPECT_EQ(line.value, standard) << line.path;
        }
        EXPECT_TRUE(line.value.empty() || !fault_of(*key, line.value)) << line.path;
    }
}

TEST(StationKeys, TheSampleIsGoodForEveryProgram) {
    FILE *stream = fopen(zeb::test::source_path("etc/zeb.conf").c_str(), "r");
    const zeb::ConfCheck file = zeb::check_conf(stream);
    fclose(stream);
    for (const auto &finding : check_keys(file, all_programs(), true))
        ADD_FAILURE() << finding.line << ": " << finding.text;
}

// ---- The manual page ----

// "Port; NAME ;Baud" as the page's macros have it.
std::string heading(const Keys &keys, const Keys::Entry &entry) {
    std::string standard = standard_of(keys, *entry.key);
    if (entry.key->derive != nullptr)
        standard.clear();
    const std::string path = join_path(entry.pattern);
    const size_t star = path.find('*');
    if (star == std::string::npos)
        return standard.empty() ? ".B " + path : ".BR " + path + " \" (" + standard + ")\"";
    const std::string rest = path.substr(star + 1);
    return ".BI " + path.substr(0, star) + " NAME " +
           (standard.empty() ? rest : "\"" + rest + "\\fR (" + standard + ")\"");
}

std::string sentence(std::string text) {
    text[0] = static_cast<char>(toupper(static_cast<unsigned char>(text[0])));
    return text + ".";
}

TEST(StationKeys, TheManualPageExplainsEveryKey) {
    const auto lines = lines_of("/docs/zeb.conf.5");
    for (const Keys &keys : programs())
        for (const Keys::Entry &entry : keys.entries()) {
            const auto at = std::find(lines.begin(), lines.end(), heading(keys, entry));
            EXPECT_TRUE(at != lines.end() && at + 1 != lines.end() &&
                        at[1] == sentence(entry.key->meaning))
                << "wanted in " << keys.name() << ":\n.TP\n"
                << heading(keys, entry) << "\n"
                << sentence(entry.key->meaning);
        }
}

TEST(StationKeys, TheManualPageExplainsNoOtherKeys) {
    std::set<std::string> wanted;
    for (const Keys &keys : programs())
        for (const Keys::Entry &entry : keys.entries())
            wanted.insert(heading(keys, entry));
    const auto lines = lines_of("/docs/zeb.conf.5");
    auto line = std::find(lines.begin(), lines.end(), ".SH KEYS");
    size_t headings = 0;
    for (; line != lines.end() && *line != ".SH SEE ALSO"; ++line)
        if (*line == ".TP" && line + 1 != lines.end()) {
            EXPECT_EQ(wanted.count(line[1]), 1u) << line[1];
            ++headings;
        }
    EXPECT_EQ(headings, wanted.size());
}

// ---- Programs ----

TEST(StationKeys, FlowCompletesItsControllerAndItsVariables) {
    const Tree tree(CONF_alloc());
    CONF_set(tree.get(), "flow2;PID;P", "4");
    const Keys keys(flow::k_keys, "flow2");
    Settings settings(keys, tree.get());
    flow::k_keys.read(settings);
    EXPECT_TRUE(settings.good());
    EXPECT_STREQ(CONF_lookup(tree.get(), "flow2;PID;I;max"), "25.000000");
    EXPECT_STREQ(CONF_lookup(tree.get(), "flow2;PID;I;min"), "0");
    EXPECT_STREQ(CONF_lookup(tree.get(), "flow2;analog;Q_flow2;chan"), "flow");
    EXPECT_STREQ(CONF_lookup(tree.get(), "flow2;output;Set_flow2;chan"), "setpoint");
}

// The controller reads its gain by itself, and would take "much" for 0.
TEST(StationKeys, FlowGivesTheControllerTheGainThatItSaysItUses) {
    const Tree tree(CONF_alloc());
    CONF_set(tree.get(), "flow;PID;P", "much");
    const Keys keys(flow::k_keys);
    Settings settings(keys, tree.get(), Settings::Tell::no);
    flow::k_keys.read(settings);
    ASSERT_EQ(settings.refusals().size(), 1u);
    EXPECT_STREQ(CONF_lookup(tree.get(), "flow;PID;P"), "3");
}

TEST(StationKeys, FlowRefusesASetPointAboveTheHighest) {
    const Tree tree(CONF_alloc());
    CONF_set(tree.get(), "flow;Setpoint", "25");
    const Keys keys(flow::k_keys);
    Settings settings(keys, tree.get(), Settings::Tell::no);
    flow::k_keys.read(settings);
    ASSERT_EQ(settings.refusals().size(), 1u);
    EXPECT_EQ(settings.refusals()[0].text, "\"25\" is not within flow;MaxFlow");
}

TEST(StationKeys, EveryChannelIsAllowed) {
    const Keys keys(flow::k_keys);
    for (const flow::Quantity &quantity : flow::k_quantities)
        EXPECT_EQ(fault_of(*keys.find("flow;analog;x;chan"), quantity.channel), std::nullopt);
    EXPECT_NE(fault_of(*keys.find("flow;analog;x;chan"), "Flow"), std::nullopt);
}

} // namespace

#include "serverkit/conf_check.h"

#include <zeb2/conf.h>
#include <zeb2/util.h>

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <random>
#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using zeb::ConfCheck;
using zeb::ConfFinding;
using zeb::ConfSetting;
using zeb::ConfSeverity;

namespace {

FILE *stream_of(const std::string &text) {
    FILE *stream = tmpfile();
    fwrite(text.data(), 1, text.size(), stream);
    rewind(stream);
    return stream;
}

ConfCheck check(const std::string &text) {
    FILE *stream = stream_of(text);
    ConfCheck result = zeb::check_conf(stream);
    fclose(stream);
    return result;
}

std::vector<ConfFinding> findings(const std::string &text) {
    return check(text).findings;
}

auto finding(size_t line, ConfSeverity severity, const std::string &text) {
    return AllOf(testing::Field("line", &ConfFinding::line, line),
                 testing::Field("severity", &ConfFinding::severity, severity),
                 testing::Field("text", &ConfFinding::text, HasSubstr(text)));
}
auto error(size_t line, const std::string &text) {
    return finding(line, ConfSeverity::error, text);
}
auto warning(size_t line, const std::string &text) {
    return finding(line, ConfSeverity::warning, text);
}
auto note(size_t line, const std::string &text) {
    return finding(line, ConfSeverity::note, text);
}

// Paths compare as the tree's names do.
struct LessPath {
    bool operator()(const std::string &a, const std::string &b) const {
        return UTIL_strcasecmp(a.c_str(), b.c_str()) < 0;
    }
};
using Settings = std::map<std::string, std::string, LessPath>;

void collect(const CONF_node *node, const std::string &prefix, Settings &settings) {
    for (size_t i = 0; i < node->n_children; ++i) {
        const CONF_node *child = node->children[i];
        if (child->value != nullptr)
            settings[prefix + child->name] = child->value;
        collect(child, prefix + child->name + ";", settings);
    }
}

Settings loaded(const std::string &text) {
#ifdef __SANITIZE_ADDRESS__
    __lsan::ScopedDisabler comments_that_are_replaced_stay_allocated;
#endif
    CONF_node *root = CONF_alloc();
    FILE *stream = stream_of(text);
    CONF_load(root, stream);
    fclose(stream);
    Settings settings;
    collect(root, "", settings);
    CONF_free(root);
    return settings;
}

Settings predicted(const std::string &text) {
    Settings settings;
    for (const ConfSetting &setting : check(text).settings)
        settings[setting.path] = setting.value;
    return settings;
}

bool same_paths(const Settings &a, const Settings &b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto &x, const auto &y) {
        return UTIL_strcasecmp(x.first.c_str(), y.first.c_str()) == 0 && x.second == y.second;
    });
}

} // namespace

TEST(ConfCheck, PlainFileHasNoFindings) {
    const ConfCheck result = check("# station settings\n"
                                   "\n"
                                   "   # indented\n"
                                   "Disk;LogDir, /oru/db\r\n"
                                   "Inst;Name,\" two words \"\n"
                                   "!fil;site,ABC\n");
    EXPECT_THAT(result.findings, IsEmpty());
    ASSERT_THAT(result.settings, SizeIs(3));
    EXPECT_EQ(result.settings[0].path, "Disk;LogDir");
    EXPECT_EQ(result.settings[0].value, "/oru/db");
    EXPECT_EQ(result.settings[0].line, 4u);
    EXPECT_EQ(result.settings[1].path, "fil;site");
    EXPECT_EQ(result.settings[2].value, " two words ");
}

TEST(ConfCheck, EmptyFileHasNeitherFindingsNorSettings) {
    EXPECT_THAT(findings(""), IsEmpty());
    EXPECT_THAT(check("").settings, IsEmpty());
}

TEST(ConfCheck, LineWithoutComma) {
    EXPECT_THAT(findings("\nDisk;LogDir /data\n"), ElementsAre(error(2, "no comma")));
    EXPECT_THAT(findings("Disk # ,x\n"), ElementsAre(error(1, "no comma before the '#'")));
    EXPECT_THAT(findings("!a note\n"), ElementsAre(error(1, "its comment is lost")));
}

TEST(ConfCheck, NothingAfterTheComma) {
    EXPECT_THAT(findings("Disk;LogDir,\n"), ElementsAre(error(1, "nothing after the comma")));
}

TEST(ConfCheck, EmptyValue) {
    EXPECT_THAT(findings("ab,\"\"\n"), ElementsAre(error(1, "value is empty")));
    EXPECT_THAT(findings("ab,  \n"), ElementsAre(error(1, "value is empty")));
}

TEST(ConfCheck, KeyOfLessThanTwoCharacters) {
    EXPECT_THAT(findings("a,1\n"), ElementsAre(error(1, "'a' has less than two characters")));
    EXPECT_THAT(findings(",1\n"), ElementsAre(error(1, "'' has less than two characters")));
}

TEST(ConfCheck, KeyQuotedAtBothEnds) {
    EXPECT_THAT(findings("\"Disk;LogDir\",x\n"),
                ElementsAre(warning(1, "'\"Disk;LogDir\"' is read as 'Disk;LogDi'")));
    EXPECT_THAT(findings("\"ab\",x\n"),
                ElementsAre(warning(1, "loses its last character"), error(1, "less than two")));
}

TEST(ConfCheck, KeyQuotedAtOneEnd) {
    EXPECT_THAT(findings("\"abc,1\n"), ElementsAre(note(1, "read as 'abc'")));
    EXPECT_THAT(findings("abc\",1\n"), ElementsAre(note(1, "read as 'abc'")));
}

TEST(ConfCheck, KeyThatIsNormalised) {
    EXPECT_THAT(findings("Disk ;; Log Dir,1\n"), ElementsAre(note(1, "'Disk;LogDir'")));
}

TEST(ConfCheck, PathOfWhichNothingIsLeft) {
    EXPECT_THAT(findings("! !,1\n"), ElementsAre(error(1, "nothing is left of the key")));
}

TEST(ConfCheck, PathWithAnEmptyName) {
    EXPECT_THAT(findings("a; ;b,1\n"), ElementsAre(note(1, "'a;;b'"), warning(1, "empty name")));
    EXPECT_THAT(findings(";ab,1\n"), ElementsAre(warning(1, "empty name")));
}

TEST(ConfCheck, ValueCutAtHash) {
    EXPECT_THAT(findings("ab,x#y\n"), ElementsAre(warning(1, "'#y' is dropped")));
    EXPECT_THAT(findings("ab,\"x #y\"\n"),
                ElementsAre(warning(1, "cut at '#'"), note(1, "double quote at the beginning")));
    EXPECT_THAT(findings("ab,x # bytes\n"), ElementsAre(note(1, "'# bytes' is dropped")));
}

TEST(ConfCheck, ValueQuotedAtOneEnd) {
    EXPECT_THAT(findings("ab,\"x\n"), ElementsAre(note(1, "at the beginning")));
    EXPECT_THAT(findings("ab,x\"\n"), ElementsAre(note(1, "at the end")));
    EXPECT_THAT(findings("ab,\"x\" or \"y\"\n"), ElementsAre(note(1, "'x\" or \"y'")));
}

TEST(ConfCheck, CommentInsideTheValue) {
    EXPECT_THAT(findings("Key,value !note\n"),
                ElementsAre(note(1, "'!note' is the comment and stays part of the value")));
    EXPECT_THAT(findings("Key,value!\n"), IsEmpty());
}

TEST(ConfCheck, ValueOverwrittenByALaterLine) {
    const std::string text = "Disk;LogDir,/a\n\ndisk;logdir;,/b\nDisk;LogDir,/c\n";
    EXPECT_THAT(findings(text),
                ElementsAre(warning(1, "overwritten by line 3: '/a' becomes '/b'"),
                            warning(3, "overwritten by line 4: '/b' becomes '/c'")));
    ASSERT_THAT(check(text).settings, SizeIs(1));
    EXPECT_EQ(check(text).settings[0].value, "/c");
    EXPECT_EQ(check(text).settings[0].line, 4u);
}

TEST(ConfCheck, SameValueTwiceIsADuplicate) {
    EXPECT_THAT(findings("ab,1\nAB,1\n"), ElementsAre(note(1, "duplicate: line 2")));
}

TEST(ConfCheck, NulByte) {
    EXPECT_THAT(findings(std::string("ab,1\0junk\n", 10)),
                ElementsAre(warning(1, "NUL byte in column 5")));
    EXPECT_THAT(findings(std::string("# a\0b\n", 6)), IsEmpty());
}

TEST(ConfCheck, LineOfMoreThan1023Characters) {
    const std::string line = "ab," + std::string(1020, 'x');
    EXPECT_THAT(findings(line + "\n"), IsEmpty());
    EXPECT_THAT(findings(line), IsEmpty());
    EXPECT_THAT(findings(line + "cd,1\nef,2,\n"),
                ElementsAre(warning(1, "longer than 1023 characters")));
    EXPECT_THAT(findings("#" + std::string(5000, 'x') + "\nab\n"),
                ElementsAre(warning(1, "longer than"), error(1, "no comma"), error(1, "no comma"),
                            error(1, "no comma"), error(1, "no comma"), error(2, "no comma")));
}

TEST(ConfCheck, FindingsArePrintableAndShort) {
    const auto found = findings("\x1B[2J\x07" + std::string(500, 'k') + ",1\nab\"" +
                                std::string(500, ' ') + "\x01" + std::string(400, 'v') + "\",1\n");
    ASSERT_THAT(found, testing::Not(IsEmpty()));
    for (const ConfFinding &one : found) {
        EXPECT_LT(one.text.size(), 600u);
        for (const char c : one.text)
            EXPECT_GE(static_cast<unsigned char>(c), ' ');
    }
}

TEST(ConfCheck, FindingsAreBounded) {
    std::string text;
    for (size_t i = 0; i < zeb::k_conf_max_findings + 5; ++i)
        text += "x\n";
    const auto found = findings(text);
    ASSERT_THAT(found, SizeIs(zeb::k_conf_max_findings + 1));
    EXPECT_THAT(found.back().text, HasSubstr("5 further findings left out"));
}

TEST(ConfCheck, PredictsWhatLoadingYieldsForRandomFiles) {
    std::mt19937 random(11);
    const char alphabet[] = "aabbAB;;,,,\"\"!#  \t\r\n\n\n\0x";
    size_t settings = 0;
    for (int round = 0; round < 3000; ++round) {
        std::string text(random() % 200, '\0');
        for (char &c : text)
            c = alphabet[random() % (sizeof alphabet - 1)];
        const Settings expected = loaded(text);
        settings += expected.size();
        EXPECT_TRUE(same_paths(predicted(text), expected)) << testing::PrintToString(text);
    }
    EXPECT_GT(settings, 3000u);
}

TEST(ConfCheck, PredictsWhatLoadingYieldsForOverlongLines) {
    std::mt19937 random(12);
    for (int round = 0; round < 200; ++round) {
        std::string text;
        while (text.size() < 6000) {
            text += "key" + std::to_string(random() % 5) + ",v";
            text += std::string(1000 + random() % 40, "x ;,!"[random() % 5]);
            text += "tail" + std::to_string(random() % 5);
            text += random() % 2 != 0 ? "\n" : ",1";
        }
        EXPECT_TRUE(same_paths(predicted(text), loaded(text))) << testing::PrintToString(text);
    }
}

TEST(ConfCheck, LineWithoutAFindingIsKeptAsItStands) {
    std::mt19937 random(13);
    const char alphabet[] = "aabbcd;,\"!# ";
    for (int round = 0; round < 20000; ++round) {
        std::string key(2 + random() % 5, ' '), value(1 + random() % 5, ' ');
        for (char &c : key)
            c = alphabet[random() % 6];
        for (char &c : value)
            c = alphabet[random() % (sizeof alphabet - 1)];
        const std::string line = key + "," + value;
        const bool tidy = value.front() != ' ' && value.back() != ' ' && value.front() != '"';
        if (!findings(line).empty() || !tidy || line.find('#') != std::string::npos)
            continue;
        const Settings settings = loaded(line);
        ASSERT_THAT(settings, SizeIs(1)) << line;
        EXPECT_EQ(settings.begin()->second, value) << line;
    }
}

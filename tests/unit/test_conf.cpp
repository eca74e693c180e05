#include "conf.h"
#include "support.h"
#include "util.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <unistd.h>
#include <vector>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using zeb::test::ScopedEnv;
using zeb::test::StderrCapture;
using zeb::test::TempDir;

namespace {

class Tree {
  public:
    Tree() = default;
    explicit Tree(const std::string &text) { load(text); }
    ~Tree() { CONF_free(root_); }
    Tree(const Tree &) = delete;
    Tree &operator=(const Tree &) = delete;

    void load(const std::string &text) {
        FILE *stream = tmpfile();
        fwrite(text.data(), 1, text.size(), stream);
        rewind(stream);
        CONF_load(root_, stream);
        EXPECT_TRUE(feof(stream));
        fclose(stream);
    }
    std::string written() const {
        char *text = nullptr;
        size_t size = 0;
        FILE *stream = open_memstream(&text, &size);
        CONF_write(root_, stream);
        fclose(stream);
        const std::string result(text, size);
        free(text);
        return result;
    }
    // The value, or "(null)".
    std::string value(const char *path) const {
        const char *value = CONF_lookup(root_, path);
        return value != nullptr ? value : "(null)";
    }
    std::string comment(const char *path) const {
        const CONF_node *node = CONF_lookup_tree(root_, path);
        return node != nullptr && node->comment != nullptr ? node->comment : "(null)";
    }
    operator CONF_node *() const { return root_; }
    CONF_node *operator->() const { return root_; }

  private:
    CONF_node *root_ = CONF_alloc();
};

std::vector<std::string> child_names(const CONF_node *node) {
    std::vector<std::string> names;
    for (size_t i = 0; i < node->n_children; ++i)
        names.push_back(node->children[i]->name);
    return names;
}

constexpr char k_blanks[] = " \t\n\v\f\r";

} // namespace

// Trees

TEST(Conf, NewTreeIsEmptyAndItsRootHasTheEmptyName) {
    const Tree tree;
    ASSERT_NE(tree.operator->(), nullptr);
    EXPECT_STREQ(tree->name, "");
    EXPECT_EQ(tree->value, nullptr);
    EXPECT_EQ(tree->children, nullptr);
    EXPECT_EQ(tree->n_children, 0u);
    EXPECT_EQ(tree->comment, nullptr);
}

TEST(Conf, FreeingNothingDoesNothing) {
    CONF_free(nullptr);
}

TEST(Conf, SetMakesTheMissingNodes) {
    Tree tree;
    CONF_set(tree, "Disk;Log;Dir", "/data");
    EXPECT_THAT(child_names(tree), ElementsAre("Disk"));
    const CONF_node *disk = tree->children[0];
    EXPECT_EQ(disk->value, nullptr);
    ASSERT_THAT(child_names(disk), ElementsAre("Log"));
    EXPECT_STREQ(disk->children[0]->children[0]->value, "/data");
}

TEST(Conf, NodeHoldsValueAndChildren) {
    Tree tree;
    CONF_set(tree, "Disk;LogDir", "/data");
    CONF_set(tree, "Disk", "sda");
    EXPECT_EQ(tree.value("Disk"), "sda");
    EXPECT_EQ(tree.value("Disk;LogDir"), "/data");
}

TEST(Conf, ChildrenAreSortedByNameWithTheLongerOfTwoPrefixesFirst) {
    Tree tree;
    for (const char *name : {"beta", "Alpha", "ALP", "gamma", "alphabet", "BET", "a"})
        CONF_set(tree, name, "1");
    EXPECT_THAT(child_names(tree),
                ElementsAre("alphabet", "Alpha", "ALP", "a", "beta", "BET", "gamma"));
}

TEST(Conf, SettingNullOrEmptyRemovesTheValueButKeepsTheNode) {
    Tree tree;
    CONF_set(tree, "Disk;LogDir", "/data");
    CONF_set(tree, "Disk;LogDir", nullptr);
    ASSERT_NE(CONF_lookup_tree(tree, "Disk;LogDir"), nullptr);
    EXPECT_EQ(CONF_lookup_tree(tree, "Disk;LogDir")->value, nullptr);
    CONF_set(tree, "Disk;LogDir", "/data");
    CONF_set(tree, "Disk;LogDir", "");
    EXPECT_EQ(CONF_lookup_tree(tree, "Disk;LogDir")->value, nullptr);
}

TEST(Conf, SettingNothingStillMakesTheNode) {
    Tree tree;
    CONF_set(tree, "Disk;LogDir", nullptr);
    EXPECT_NE(CONF_lookup_tree(tree, "Disk;LogDir"), nullptr);
}

TEST(Conf, ValueMayBeSetToItself) {
    Tree tree;
    CONF_set(tree, "ab", "same");
    CONF_set(tree, "ab", CONF_lookup(tree, "ab"));
    EXPECT_EQ(tree.value("ab"), "same");
}

TEST(Conf, SettingAnEmptyPathDoesNothing) {
    Tree tree;
    for (const char *path : {"", " \t", "!", " ! \n"})
        CONF_set(tree, path, "1");
    CONF_set(tree, nullptr, "1");
    CONF_set_va(tree, "1", "", "!", NULL);
    CONF_set_va(tree, "1", NULL);
    EXPECT_EQ(tree->n_children, 0u);
    EXPECT_EQ(tree->value, nullptr);
}

TEST(Conf, SetWithoutATreeIsReported) {
    StderrCapture errors;
    CONF_set(nullptr, "ab", "1");
    EXPECT_THAT(errors.finish(), HasSubstr("assertion failed (conf.cpp:"));
}

// Look-ups

TEST(Conf, LookupOfAnEmptyPathOrOfBlanksMarksAndSeparatorsOnlyIsNull) {
    Tree tree;
    CONF_set(tree, "ab", "1");
    const std::string before = tree.written();
    for (const char *path : {"", " ", k_blanks, "!", "!!", " ! ", ";", ";;;", " ; ! ;"}) {
        EXPECT_EQ(CONF_lookup(tree, path), nullptr) << path;
        EXPECT_EQ(CONF_lookup_tree(tree, path), nullptr) << path;
        EXPECT_EQ(CONF_lookup_va(tree, path, NULL), nullptr) << path;
        EXPECT_EQ(CONF_lookup_tree_va(tree, path, NULL), nullptr) << path;
    }
    EXPECT_EQ(CONF_lookup(tree, nullptr), nullptr);
    EXPECT_EQ(CONF_lookup_va(tree, NULL), nullptr);
    EXPECT_EQ(tree.written(), before);
    EXPECT_EQ(tree->n_children, 1u);
}

TEST(Conf, LookupOfSeparatorsOnlyIsNullEvenWhereSuchANodeWasMade) {
    Tree tree;
    CONF_set(tree, ";", "1");
    EXPECT_EQ(CONF_lookup(tree, ";"), nullptr);
    EXPECT_EQ(CONF_lookup_tree(tree, ";"), nullptr);
}

TEST(Conf, LookupOfANodeWithoutValueGivesTheNodeButNoValue) {
    Tree tree;
    CONF_set(tree, "Disk;LogDir", "/data");
    EXPECT_EQ(CONF_lookup(tree, "Disk"), nullptr);
    EXPECT_EQ(CONF_lookup_tree(tree, "Disk"), tree->children[0]);
}

TEST(Conf, LookupIgnoresCaseAndTheNodeKeepsItsFirstSpelling) {
    Tree tree;
    CONF_set(tree, "Disk;LogDir", "/data");
    EXPECT_EQ(tree.value("DISK;logdir"), "/data");
    CONF_set(tree, "disk;LOGDIR", "/other");
    EXPECT_EQ(tree.value("Disk;LogDir"), "/other");
    EXPECT_EQ(tree->n_children, 1u);
    EXPECT_EQ(tree->children[0]->n_children, 1u);
    EXPECT_STREQ(CONF_lookup_tree(tree, "disk;LOGDIR")->name, "LogDir");
}

TEST(Conf, LookupOfAMissingNameIsNull) {
    Tree tree;
    CONF_set(tree, "Disk;LogDir", "/data");
    EXPECT_EQ(CONF_lookup(tree, "Disk;LogDi"), nullptr);
    EXPECT_EQ(CONF_lookup(tree, "Disk;LogDirs"), nullptr);
    EXPECT_EQ(CONF_lookup(tree, "Disk;LogDir;x"), nullptr);
    EXPECT_EQ(CONF_lookup(tree, "LogDir"), nullptr);
}

TEST(Conf, LookupInNoTreeIsNull) {
    StderrCapture errors;
    EXPECT_EQ(CONF_lookup(nullptr, "ab"), nullptr);
    EXPECT_EQ(CONF_lookup_tree(nullptr, "ab"), nullptr);
    EXPECT_EQ(CONF_lookup_va(nullptr, "ab", NULL), nullptr);
    EXPECT_EQ(errors.finish(), "");
}

TEST(Conf, LookupIsRelativeToABranch) {
    Tree tree;
    CONF_set(tree, "Neph;Port;Baud", "9600");
    CONF_node *local = CONF_lookup_tree(tree, "Neph");
    EXPECT_STREQ(CONF_lookup(local, "Port;Baud"), "9600");
    EXPECT_STREQ(CONF_lookup_va(local, "Port", "Baud", NULL), "9600");
}

TEST(Conf, EveryOneOfManyNamesIsFound) {
    Tree tree;
    std::vector<std::string> names;
    for (int i = 0; i < 1000; ++i)
        names.push_back("Key" + std::to_string(i)); // many are prefixes of others
    std::shuffle(names.begin(), names.end(), std::mt19937(7));
    for (const std::string &name : names)
        CONF_set(tree, name.c_str(), name.c_str());
    ASSERT_EQ(tree->n_children, names.size());
    for (const std::string &name : names)
        EXPECT_EQ(tree.value(name.c_str()), name);
    for (const char *missing : {"A", "Key", "Key1000", "Key5a", "Key55x", "zz"})
        EXPECT_EQ(CONF_lookup_tree(tree, missing), nullptr) << missing;
    const std::vector<std::string> sorted = child_names(tree);
    EXPECT_TRUE(std::is_sorted(sorted.begin(), sorted.end(), [](const auto &a, const auto &b) {
        return UTIL_strcasecmp(a.c_str(), b.c_str()) < 0;
    }));
}

TEST(Conf, EveryOneOfFewNamesIsFound) {
    for (size_t count = 1; count <= 6; ++count) {
        Tree tree;
        for (size_t i = 0; i < count; ++i)
            CONF_set(tree, std::string(2, static_cast<char>('b' + i)).c_str(), "1");
        for (size_t i = 0; i < count; ++i)
            EXPECT_EQ(tree.value(std::string(2, static_cast<char>('B' + i)).c_str()), "1");
        EXPECT_EQ(tree.value("aa"), "(null)");
        EXPECT_EQ(tree.value("bbb"), "(null)");
        EXPECT_EQ(tree.value("zz"), "(null)");
    }
}

// Paths

TEST(Conf, PathLosesBlanksAndMarksEverywhere) {
    Tree tree;
    CONF_set(tree, " \tDi!sk ;\v\f Log\r\n Dir ! ", "/data");
    EXPECT_EQ(tree.written(), "Disk;LogDir,/data\n");
    EXPECT_EQ(tree.value("Disk ; Log Dir"), "/data");
}

TEST(Conf, RunOfSeparatorsCountsAsOne) {
    Tree tree;
    CONF_set(tree, "Disk;;;LogDir;;", "/data");
    EXPECT_EQ(tree.written(), "Disk;LogDir,/data\n");
    EXPECT_EQ(tree.value("Disk;;LogDir"), "/data");
}

TEST(Conf, SeparatorAtTheEndNamesTheSameNode) {
    Tree tree;
    CONF_set(tree, "Disk;LogDir;", "/data");
    EXPECT_EQ(tree.value("Disk;LogDir"), "/data");
    EXPECT_EQ(tree.value("Disk;LogDir;"), "/data");
    EXPECT_EQ(CONF_lookup_tree(tree, "Disk;"), tree->children[0]);
}

TEST(Conf, BlankOrMarkBetweenSeparatorsLeavesAnEmptyNameThatFindsNothing) {
    Tree tree;
    CONF_set(tree, "Disk;LogDir", "/data");
    EXPECT_EQ(CONF_lookup(tree, "Disk; ;LogDir"), nullptr);
    EXPECT_EQ(CONF_lookup(tree, "Disk;!;LogDir"), nullptr);
    EXPECT_EQ(CONF_lookup(tree, ";Disk;LogDir"), nullptr);
}

TEST(Conf, EmptyNameThatWasSetIsANodeOfItsOwn) {
    Tree tree;
    CONF_set(tree, "Disk; ;LogDir", "/data");
    CONF_set(tree, "Disk; ;LogDir", "/other");
    EXPECT_EQ(CONF_lookup(tree, "Disk;LogDir"), nullptr);
    ASSERT_THAT(child_names(tree->children[0]), ElementsAre(""));
    EXPECT_THAT(child_names(tree->children[0]->children[0]), ElementsAre("LogDir"));
}

TEST(Conf, PiecesAreJoinedBySeparators) {
    Tree tree;
    CONF_set_va(tree, "/data", "Disk", "Log", "Dir", NULL);
    EXPECT_EQ(tree.value("Disk;Log;Dir"), "/data");
    for (const char *first : {"Disk", "Disk;", "Disk;;", " Disk ; "}) {
        EXPECT_STREQ(CONF_lookup_va(tree, first, "Log", "Dir", NULL), "/data") << first;
        EXPECT_STREQ(CONF_lookup_va(tree, first, "Log;Dir", NULL), "/data") << first;
    }
    EXPECT_STREQ(CONF_lookup_va(tree, "Disk", ";Log", ";;Dir;", NULL), "/data");
    EXPECT_STREQ(CONF_lookup_tree_va(tree, "disk", "log", NULL)->name, "Log");
}

TEST(Conf, EmptyPiecesAddNothing) {
    Tree tree;
    CONF_set(tree, "Disk;LogDir", "/data");
    EXPECT_STREQ(CONF_lookup_va(tree, "", "Disk", "", "!", " ", "LogDir", "", NULL), "/data");
}

TEST(Conf, SeparatorsOfNeighbouringPiecesBothStay) {
    Tree tree;
    CONF_set(tree, "Disk;LogDir", "/data");
    EXPECT_EQ(CONF_lookup_va(tree, "Disk;", ";LogDir", NULL), nullptr);
}

TEST(Conf, LongPiecesAreJoinedWhole) {
    for (size_t length : {30u, 31u, 32u, 33u, 63u, 64u, 65u, 5000u}) {
        Tree tree;
        const std::string name(length, 'n');
        CONF_set_va(tree, "1", name.c_str(), name.c_str(), NULL);
        EXPECT_EQ(tree.value((name + ";" + name).c_str()), "1") << length;
        EXPECT_STREQ(CONF_lookup_va(tree, name.c_str(), name.c_str(), NULL), "1") << length;
    }
}

// Loading

TEST(Conf, LoadsASettingPerLine) {
    const Tree tree("# station settings\n"
                    "Disk;LogDir, /oru/db\n"
                    "\n"
                    "Disk;MaxFileSize,4000000   # bytes\n"
                    "Inst;Name,\" two words \"\n"
                    "Disk;Other,\n");
    EXPECT_EQ(tree.written(), "Disk;LogDir,/oru/db\n"
                              "Disk;MaxFileSize,4000000\n"
                              "Inst;Name,\" two words \"\n");
}

TEST(Conf, LineWithAKeyOfOneCharacterIsIgnored) {
    const Tree tree("a,1\nab,1\n \"c ,1\n\"\",1\n");
    EXPECT_EQ(tree.written(), "ab,1\n");
}

TEST(Conf, KeyLengthIsTakenBeforeBlanksInsideVanish) {
    const Tree tree("a!,1\n");
    EXPECT_EQ(tree.written(), "a,1\n");
}

TEST(Conf, LineWhoseValueIsTwoQuotesIsIgnored) {
    const Tree tree("ab,\"\"\ncd,\"\nef,   \ngh, \" \" \n");
    EXPECT_EQ(tree.written(), "gh,\" \"\n");
}

TEST(Conf, QuotedKeyLosesItsLastCharacter) {
    const Tree tree("\"Disk;LogDir\",x\n");
    EXPECT_EQ(tree.written(), "Disk;LogDi,x\n");
}

TEST(Conf, QuotedKeyBehindBlanksLosesItsLastCharacterToo) {
    const Tree tree("   \"ab;cd\"  ,x\n");
    EXPECT_EQ(tree.written(), "ab;c,x\n");
}

TEST(Conf, QuotedKeyOfTwoCharactersIsTooShort) {
    const Tree tree("\"ab\",x\n\"c\",x\n\"\",x\n\",x\n");
    EXPECT_EQ(tree->n_children, 0u);
}

TEST(Conf, QuoteAtOneEndOfAKeyIsJustDropped) {
    const Tree tree("\"abc,1\nxyz\",2\n");
    EXPECT_EQ(tree.written(), "abc,1\nxyz,2\n");
}

TEST(Conf, QuotesAtTheEndsOfAValueAreDroppedEachByItself) {
    const Tree tree("aa,\"x\nbb,x\"\ncc,\"\"x\"\"\n");
    EXPECT_EQ(tree.value("aa"), "x");
    EXPECT_EQ(tree.value("bb"), "x");
    EXPECT_EQ(tree.value("cc"), "\"x\"");
}

TEST(Conf, LaterCommasBelongToTheValue) {
    EXPECT_EQ(Tree("ab,1,2,,3\n").value("ab"), "1,2,,3");
    EXPECT_EQ(Tree("ab,,\n").value("ab"), ",");
}

TEST(Conf, HashCutsTheLineAlsoInQuotesAndBeforeAnythingElse) {
    const Tree tree("ab,\"x#y\"\ncd#,1\nef,#1\ngh,1#!note\n");
    EXPECT_EQ(tree.value("ab"), "x");
    EXPECT_EQ(tree.written(), "ab,x\ngh,1\n");
    EXPECT_EQ(tree.comment("gh"), "(null)");
}

TEST(Conf, LastLineNeedsNoLineEnd) {
    EXPECT_EQ(Tree("ab,1\ncd,2").value("cd"), "2");
}

TEST(Conf, CarriageReturnsAreBlanks) {
    const Tree tree("ab,1\r\n\r\ncd,2\r\n");
    EXPECT_EQ(tree.written(), "ab,1\ncd,2\n");
}

TEST(Conf, LaterLineOverwritesAndLoadingMerges) {
    Tree tree("Disk;LogDir,/a\nDisk;Size,1\ndisk;logdir,/b\n");
    EXPECT_EQ(tree.written(), "Disk;LogDir,/b\nDisk;Size,1\n");
    tree.load("Disk;Size,2\nNew,3\n");
    EXPECT_EQ(tree.written(), "Disk;LogDir,/b\nDisk;Size,2\nNew,3\n");
}

TEST(Conf, IgnoredLineLeavesAnEarlierValue) {
    EXPECT_EQ(Tree("ab,1\nab,\nab,\"\"\nab\n").value("ab"), "1");
}

TEST(Conf, LineOf1500CharactersIsReadAsTwo) {
    const std::string first = "ab," + std::string(1020, 'x');
    const std::string rest = "cd," + std::string(474, 'y');
    ASSERT_EQ((first + rest).size(), 1500u);
    const Tree tree(first + rest + "\nef,1\n");
    EXPECT_EQ(tree.value("ab"), std::string(1020, 'x'));
    EXPECT_EQ(tree.value("cd"), std::string(474, 'y'));
    EXPECT_EQ(tree.value("ef"), "1");
}

TEST(Conf, LineOf1023CharactersIsReadWhole) {
    const std::string value(1020, 'x');
    const Tree tree("ab," + value + "\ncd,2\n");
    EXPECT_EQ(tree.written(), "ab," + value + "\ncd,2\n");
}

TEST(Conf, CommentBeyond1023CharactersIsReadAsALine) {
    const Tree tree("#" + std::string(1022, 'x') + "ab,1\n");
    EXPECT_EQ(tree.written(), "ab,1\n");
}

// Comments

TEST(Conf, MarkInTheKeyMakesTheWholeRestOfTheLineTheComment) {
    const Tree tree("!fil;site,ABC\n");
    EXPECT_EQ(tree.value("fil;site"), "ABC");
    EXPECT_EQ(tree.comment("fil;site"), "!fil;site,ABC");
    EXPECT_EQ(tree.comment("fil"), "(null)");
}

TEST(Conf, CommentBehindAValueStaysPartOfIt) {
    const Tree tree("Key,value !note\n");
    EXPECT_EQ(tree.value("Key"), "value !note");
    EXPECT_EQ(tree.comment("Key"), "!note");
}

TEST(Conf, MarkWithNothingBehindItIsNoComment) {
    const Tree tree("Key,value!\n");
    EXPECT_EQ(tree.value("Key"), "value!");
    EXPECT_EQ(tree.comment("Key"), "(null)");
}

TEST(Conf, OfARunOfMarksOneStays) {
    const Tree tree("k1,v!!!note\nk2,v!!!\nk3,v!!\nk4,v!a!!b\n");
    EXPECT_EQ(tree.comment("k1"), "!note");
    EXPECT_EQ(tree.comment("k2"), "!!");
    EXPECT_EQ(tree.comment("k3"), "!!");
    EXPECT_EQ(tree.comment("k4"), "!a!!b");
}

TEST(Conf, CommentKeepsItsBlanks) {
    const Tree tree("Key,v ! a note \t\n");
    EXPECT_EQ(tree.comment("Key"), "! a note \t");
    EXPECT_EQ(tree.value("Key"), "v ! a note");
}

TEST(Conf, CommentOfAnIgnoredLineIsDropped) {
    const Tree tree("ab,1\n!ab\n!ab,\n!ab,\"\"\n!,1\n!!,1\n! !,1\n");
    EXPECT_EQ(tree.written(), "ab,1\n");
    EXPECT_EQ(tree.comment("ab"), "(null)");
}

TEST(Conf, LineWithoutCommentKeepsTheEarlierOne) {
    const Tree tree("!ab,1\nab,2\n");
    EXPECT_EQ(tree.value("ab"), "2");
    EXPECT_EQ(tree.comment("ab"), "!ab,1");
}

TEST(Conf, ReplacedCommentStaysReadable) {
    Tree tree("!ab,1\n");
    char *old = CONF_lookup_tree(tree, "ab")->comment;
    tree.load("!ab,2\n");
    EXPECT_EQ(tree.comment("ab"), "!ab,2");
    EXPECT_STREQ(old, "!ab,1");
    free(old);
}

// Hostile and odd files

TEST(Conf, NulByteEndsItsLine) {
    const Tree tree(std::string("ab,1\0junk\ncd,2\n\0ef,3\ng\0h,4\n", 28));
    EXPECT_EQ(tree.written(), "ab,1\ncd,2\n");
}

TEST(Conf, BinaryGarbageIsSurvived) {
    std::mt19937 random(42);
    std::string garbage(300000, '\0');
    for (char &c : garbage)
        c = static_cast<char>(random());
    Tree tree;
    tree.load(garbage);
    tree.load("\nab,1\n");
    EXPECT_EQ(tree.value("ab"), "1");
    EXPECT_NE(tree.written(), "");
}

TEST(Conf, HugeFileIsReadInOnePass) {
    struct Source {
        const std::string line = "Key;x," + std::string(120, '7') + "\n";
        size_t left = 100u << 20;
        static ssize_t read(void *cookie, char *buffer, size_t size) {
            auto *source = static_cast<Source *>(cookie);
            const size_t n = std::min(size, source->left);
            for (size_t i = 0; i < n; ++i)
                buffer[i] = source->line[i % source->line.size()];
            source->left -= n;
            return static_cast<ssize_t>(n);
        }
    } source;
    FILE *stream = fopencookie(&source, "r", {Source::read, nullptr, nullptr, nullptr});
    ASSERT_NE(stream, nullptr);
    Tree tree;
    CONF_load(tree, stream);
    fclose(stream);
    EXPECT_EQ(source.left, 0u);
    EXPECT_THAT(tree.value("Key;x"), StartsWith("7777"));
}

TEST(Conf, PathOfAHundredThousandNamesIsHandledWithoutRecursion) {
    std::string path;
    for (int i = 0; i < 100000; ++i)
        path += "n;";
    path.pop_back();
    Tree tree;
    CONF_set(tree, path.c_str(), "deep");
    EXPECT_EQ(tree.value(path.c_str()), "deep");
    EXPECT_EQ(tree.written(), path + ",deep\n");
}

TEST(Conf, DeepestPathOfALineIsLoaded) {
    std::string line;
    for (int i = 0; i < 510; ++i)
        line += "n;";
    const Tree tree(line + ",1\n");
    EXPECT_EQ(tree.value(line.c_str()), "1");
}

TEST(Conf, LoadAndWriteReportNullArguments) {
    Tree tree;
    StderrCapture errors;
    CONF_load(tree, nullptr);
    CONF_load(nullptr, stdin);
    CONF_write(tree, nullptr);
    CONF_write(nullptr, stdout);
    const std::string text = errors.finish();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 4) << text;
}

// Writing

TEST(Conf, WritesParentsBeforeChildrenInTheirOrder) {
    Tree tree;
    for (const char *path : {"bb;yy;z", "bb;yy", "bb", "aa;xx", "bb;y", "cc"})
        CONF_set(tree, path, path);
    EXPECT_EQ(tree.written(),
              "aa;xx,aa;xx\nbb,bb\nbb;yy,bb;yy\nbb;yy;z,bb;yy;z\nbb;y,bb;y\ncc,cc\n");
}

TEST(Conf, WritesOuterBlanksInQuotes) {
    Tree tree;
    CONF_set(tree, "aa", " x");
    CONF_set(tree, "bb", "x\t");
    CONF_set(tree, "cc", "x y");
    CONF_set(tree, "dd", "\"x\"");
    EXPECT_EQ(tree.written(), "aa,\" x\"\nbb,\"x\t\"\ncc,x y\ndd,\"x\"\n");
}

TEST(Conf, WritesABranchByTheNamesBelowIt) {
    Tree tree;
    CONF_set(tree, "aa;bb", "1");
    CONF_node *branch = CONF_lookup_tree(tree, "aa");
    FILE *stream = tmpfile();
    CONF_write(branch, stream);
    rewind(stream);
    char line[64] = "";
    EXPECT_NE(fgets(line, sizeof line, stream), nullptr);
    fclose(stream);
    EXPECT_STREQ(line, "aa;bb,1\n");
}

TEST(Conf, NodeWithoutNameStartsThePathAfresh) {
    Tree tree;
    CONF_set(tree, "aa; ;bb;cc", "1");
    CONF_set(tree, "aa; ", "2");
    CONF_set(tree, "aa;zz", "3");
    CONF_set(tree, "aa; ;", "4");
    EXPECT_EQ(tree.written(), "aa,2\naa;zz,3\naa;,4\nbb;cc,1\n");
}

TEST(Conf, WrittenTreeLoadsToTheSame) {
    std::mt19937 random(3);
    const auto text = [&random](const char *alphabet, size_t longest) {
        std::string result(1 + random() % longest, ' ');
        for (char &c : result)
            c = alphabet[random() % strlen(alphabet)];
        return result;
    };
    for (int round = 0; round < 200; ++round) {
        Tree tree;
        for (int i = 0; i < 30; ++i) {
            std::string path = "k" + text("abAB1_", 3);
            for (size_t depth = random() % 4; depth > 0; --depth)
                path += ";" + text("abAB1_\"", 3) + "x";
            // Neither '#' nor quotes of its own at the ends.
            const std::string value = text("  ax", 1) + text("ab,;! \t\"", 20) + text("  ax", 1);
            CONF_set(tree, path.c_str(), value.c_str());
        }
        Tree copy;
        FILE *stream = tmpfile();
        CONF_write(tree, stream);
        rewind(stream);
        CONF_load(copy, stream);
        fclose(stream);
        EXPECT_EQ(copy.written(), tree.written());
    }
}

TEST(Conf, ValueWithHashComesBackCut) {
    Tree tree;
    CONF_set(tree, "ab", "x#y");
    const Tree copy(tree.written());
    EXPECT_EQ(copy.value("ab"), "x");
}

TEST(Conf, AFileThatCannotBeReadToItsEndIsReported) {
    TempDir directory; // opened like a file, and refused when it is read
    FILE *stream = fopen(directory.path().c_str(), "r");
    ASSERT_NE(stream, nullptr);
    CONF_node *root = CONF_alloc();
    StderrCapture err;
    CONF_load(root, stream);
    EXPECT_THAT(err.finish(),
                HasSubstr("The configuration cannot be read to its end: Is a directory (conf.cpp:"));
    CONF_free(root);
    fclose(stream);
}

// The default file

TEST(Conf, DefaultFileIsBelowTheInstallationRoot) {
    const TempDir dir;
    ASSERT_EQ(system(("mkdir " + dir / "etc").c_str()), 0);
    zeb::test::write_file(dir / "etc/zeb.conf", "Disk;LogDir,/data\n");
    const ScopedEnv home("ZEB2", dir.path().c_str());
    CONF_node *conf = CONF_get_default();
    ASSERT_NE(conf, nullptr);
    EXPECT_STREQ(CONF_lookup(conf, "Disk;LogDir"), "/data");
    CONF_free(conf);
}

TEST(Conf, MissingDefaultFileIsNullWithoutAReport) {
    const TempDir dir;
    const ScopedEnv home("ZEB2", dir.path().c_str());
    StderrCapture errors;
    EXPECT_EQ(CONF_get_default(), nullptr);
    EXPECT_EQ(errors.finish(), "");
}

TEST(Conf, InstallationRootOfAnyLengthIsSafe) {
    const ScopedEnv home("ZEB2", std::string(100000, 'x').c_str());
    EXPECT_EQ(CONF_get_default(), nullptr);
}

TEST(Conf, DefaultFileIsClosed) {
    const TempDir dir;
    ASSERT_EQ(system(("mkdir " + dir / "etc").c_str()), 0);
    zeb::test::write_file(dir / "etc/zeb.conf", "ab,1\n");
    const ScopedEnv home("ZEB2", dir.path().c_str());
    const int before = dup(STDERR_FILENO);
    close(before);
    CONF_free(CONF_get_default());
    const int after = dup(STDERR_FILENO);
    close(after);
    EXPECT_EQ(after, before);
}

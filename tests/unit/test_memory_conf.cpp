// The configuration without memory: each allocation in turn fails, is reported, and does no harm.
#include "conf.h"
#include "fail_alloc.h"
#include "support.h"

#include <cstdlib>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

using testing::HasSubstr;
using zeb::test::Alloc;
using zeb::test::FailingAlloc;
using zeb::test::ScopedEnv;
using zeb::test::StderrCapture;
using zeb::test::TempDir;

namespace {

constexpr char k_report[] = "Cannot allocate memory";

struct Tree {
    CONF_node *root = CONF_alloc();
    ~Tree() { CONF_free(root); }
};

void load(CONF_node *root, const std::string &text) {
    FILE *stream = tmpfile();
    fwrite(text.data(), 1, text.size(), stream);
    rewind(stream);
    CONF_load(root, stream);
    fclose(stream);
}

// Runs `action` on a tree that holds ab=1 and cd;ef=2, with its first, second ... allocation
// failing, until none is left to fail. Returns how many could.
int for_each_failure(Alloc kind, const std::function<void(CONF_node *)> &action) {
    for (int n = 1;; ++n) {
        Tree tree;
        load(tree.root, "ab,1\ncd;ef,2\n");
        StderrCapture errors;
        FailingAlloc failing(kind, n);
        action(tree.root);
        const bool failed = failing.failed();
        const std::string text = errors.finish();
        if (!failed) {
            EXPECT_EQ(text, "");
            return n - 1;
        }
        EXPECT_THAT(text, HasSubstr("assertion failed (conf.cpp:"));
        EXPECT_THAT(text, HasSubstr(k_report));
        EXPECT_STREQ(CONF_lookup(tree.root, "ab"), "1");
        EXPECT_STREQ(CONF_lookup(tree.root, "cd;ef"), "2");
    }
}

} // namespace

TEST(ConfMemory, TreeThatCannotBeMadeIsNull) {
    for (int n = 1; n <= 2; ++n) {
        StderrCapture errors;
        FailingAlloc failing(Alloc::fresh, n);
        EXPECT_EQ(CONF_alloc(), nullptr);
        EXPECT_TRUE(failing.failed());
        EXPECT_THAT(errors.finish(), HasSubstr(k_report));
    }
}

TEST(ConfMemory, LookupIsNull) {
    Tree tree;
    load(tree.root, "ab,1\n");
    StderrCapture errors;
    {
        FailingAlloc failing(Alloc::fresh, 1);
        EXPECT_EQ(CONF_lookup(tree.root, "ab"), nullptr);
    }
    {
        FailingAlloc failing(Alloc::resized, 1);
        EXPECT_EQ(CONF_lookup_va(tree.root, "ab", NULL), nullptr);
    }
    EXPECT_THAT(errors.finish(), HasSubstr(k_report));
    EXPECT_STREQ(CONF_lookup(tree.root, "ab"), "1");
}

TEST(ConfMemory, FailedSetLeavesTheOtherSettings) {
    const auto set = [](CONF_node *root) { CONF_set(root, "gh;ij", "3"); };
    // The path; node and name, twice; the value.
    EXPECT_EQ(for_each_failure(Alloc::fresh, set), 6);
}

TEST(ConfMemory, ValueThatCannotBeCopiedIsUnset) {
    Tree tree;
    CONF_set(tree.root, "ab", "1");
    StderrCapture errors;
    {
        FailingAlloc failing(Alloc::fresh, 2);
        CONF_set(tree.root, "ab", "2");
        EXPECT_TRUE(failing.failed());
    }
    errors.finish();
    ASSERT_NE(CONF_lookup_tree(tree.root, "ab"), nullptr);
    EXPECT_EQ(CONF_lookup_tree(tree.root, "ab")->value, nullptr);
}

TEST(ConfMemory, ArrayOfChildrenThatCannotGrowIsLostButBorrowedValuesStay) {
    Tree tree;
    load(tree.root, "ab,1\ncd;ef,2\n");
    std::vector<CONF_node *> lost(tree.root->children, tree.root->children + 2);
    const char *borrowed = CONF_lookup(tree.root, "ab");
    StderrCapture errors;
    {
        FailingAlloc failing(Alloc::resized, 1);
        CONF_set(tree.root, "gh", "3");
    }
    EXPECT_THAT(errors.finish(), HasSubstr(k_report));
    EXPECT_EQ(tree.root->n_children, 0u);
    EXPECT_EQ(CONF_lookup(tree.root, "ab"), nullptr);
    EXPECT_STREQ(borrowed, "1");
    CONF_set(tree.root, "gh", "3");
    EXPECT_STREQ(CONF_lookup(tree.root, "gh"), "3");
    for (CONF_node *node : lost)
        CONF_free(node);
}

TEST(ConfMemory, LoadingGoesOnBehindAFailedSetting) {
    Tree tree;
    StderrCapture errors;
    FILE *stream = fmemopen(const_cast<char *>("ab,1\ncd,2\n"), 10, "r");
    setvbuf(stream, nullptr, _IONBF, 0);
    {
        FailingAlloc failing(Alloc::fresh, 1);
        CONF_load(tree.root, stream);
    }
    fclose(stream);
    errors.finish();
    EXPECT_EQ(CONF_lookup(tree.root, "ab"), nullptr);
    EXPECT_STREQ(CONF_lookup(tree.root, "cd"), "2");
}

TEST(ConfMemory, LoadingEndsAtACommentThatCannotBeKept) {
    Tree tree;
    StderrCapture errors;
    FILE *stream = fmemopen(const_cast<char *>("!ab,1\ncd,2\n"), 11, "r");
    {
        FailingAlloc failing(Alloc::fresh, 1);
        CONF_load(tree.root, stream);
    }
    fclose(stream);
    EXPECT_THAT(errors.finish(), HasSubstr(k_report));
    EXPECT_EQ(tree.root->n_children, 0u);
}

TEST(ConfMemory, WritingEndsWithAReport) {
    const auto write = [](CONF_node *root) {
        FILE *stream = fopen("/dev/null", "w");
        CONF_write(root, stream);
        fclose(stream);
    };
    EXPECT_EQ(for_each_failure(Alloc::resized, write), 2); // levels and prefix
}

TEST(ConfMemory, DefaultFileIsNull) {
    const TempDir dir;
    ASSERT_EQ(system(("mkdir " + dir / "etc").c_str()), 0);
    zeb::test::write_file(dir / "etc/zeb.conf", "ab,1\n");
    const ScopedEnv home("ZEB2", dir.path().c_str());
    for (int n = 1; n <= 3; ++n) { // the file's name; the root and its name
        StderrCapture errors;
        FailingAlloc failing(Alloc::fresh, n);
        EXPECT_EQ(CONF_get_default(), nullptr);
        EXPECT_THAT(errors.finish(), HasSubstr(k_report));
    }
}

#include "serverkit/report.h"
#include "serverkit/settings.h"
#include "serverkit/sockets.h"

#include "support.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using namespace serverkit;
using testing::HasSubstr;
using zeb::test::ScopedEnv;
using zeb::test::StderrCapture;
using zeb::test::TempDir;

namespace {

TEST(Report, OtherThanPrintableTextIsEscapedAndLongTextCut) {
    EXPECT_EQ(printable("cpc 1"), "cpc 1");
    EXPECT_EQ(printable(std::string_view("\0\x7f\xff\n", 4)), "\\x00\\x7f\\xff\\x0a");
    EXPECT_EQ(printable("abcdef", 3), "abc...");
}

TEST(Report, ALineHasTheTitleAndTheReason) {
    StderrCapture errors;
    errno = ENOENT;
    report_errno("cannot do %d", 7);
    EXPECT_THAT(errors.finish(), HasSubstr("cannot do 7: No such file or directory\n"));
}

TEST(Fault, OnlyTheFirstOccurrenceIsToBeReportedAndTheEndHasTheCount) {
    Fault fault;
    EXPECT_EQ(fault.over(), 0u);
    EXPECT_TRUE(fault.occurred());
    EXPECT_FALSE(fault.occurred());
    EXPECT_EQ(fault.over(), 2u);
    EXPECT_EQ(fault.over(), 0u);
    EXPECT_TRUE(fault.occurred());
}

TEST(Complaints, BeyondANumberOfLinesPerMinuteTheyAreOnlyCounted) {
    StderrCapture errors;
    Complaints complaints(2);
    for (int i = 0; i < 10; ++i)
        complaints.about(100 + i, "client", "what " + std::to_string(i));
    const std::string first = errors.text();
    EXPECT_EQ(std::count(first.begin(), first.end(), '\n'), 2);
    EXPECT_THAT(first, HasSubstr("client: what 0\n"));
    EXPECT_THAT(first, HasSubstr("client: what 1 (more like this are left out for a minute)\n"));
    complaints.about(160, "client", "again");
    const std::string all = errors.finish();
    EXPECT_THAT(all, HasSubstr("8 lines like the next were left out\n"));
    EXPECT_THAT(all, testing::EndsWith("client: again\n"));
}

TEST(RunPath, IsTheFixedDirectoryUnlessTheEnvironmentNamesAnother) {
    const ScopedEnv unset("ZEB2RUN", nullptr);
    EXPECT_EQ(run_path(".mainsocket"), "/var/run/zeb/.mainsocket");
    const ScopedEnv empty("ZEB2RUN", "");
    EXPECT_EQ(run_path(".mainsocket"), "/var/run/zeb/.mainsocket");
    const ScopedEnv set("ZEB2RUN", "/tmp/x");
    EXPECT_EQ(run_path(".mainsocket"), "/tmp/x/.mainsocket");
}

sockaddr_storage v4(const char *text) {
    sockaddr_storage address{};
    address.ss_family = AF_INET;
    inet_pton(AF_INET, text, &reinterpret_cast<sockaddr_in &>(address).sin_addr);
    return address;
}

sockaddr_storage v6(const char *text) {
    sockaddr_storage address{};
    address.ss_family = AF_INET6;
    inet_pton(AF_INET6, text, &reinterpret_cast<sockaddr_in6 &>(address).sin6_addr);
    return address;
}

TEST(AddressList, ANetworkContainsItsAddressesAndNoOthers) {
    AddressList list;
    ASSERT_TRUE(list.add("192.0.2.7"));
    ASSERT_TRUE(list.add("10.64.0.0/10"));
    ASSERT_TRUE(list.add("fd00::/8"));
    EXPECT_TRUE(list.contains(v4("192.0.2.7")));
    EXPECT_FALSE(list.contains(v4("192.0.2.8")));
    EXPECT_TRUE(list.contains(v4("10.127.255.255")));
    EXPECT_FALSE(list.contains(v4("10.128.0.0")));
    EXPECT_TRUE(list.contains(v6("fd12::1")));
    EXPECT_FALSE(list.contains(v6("fe80::1")));
    EXPECT_TRUE(list.contains(v6("::ffff:192.0.2.7")));
}

TEST(AddressList, APrefixOfZeroIsEverybodyOfItsFamily) {
    AddressList list;
    ASSERT_TRUE(list.add("0.0.0.0/0"));
    EXPECT_TRUE(list.contains(v4("203.0.113.9")));
    EXPECT_FALSE(list.contains(v6("2001:db8::1")));
}

TEST(AddressList, WhatIsNoAddressIsRefused) {
    AddressList list;
    for (const char *text :
         {"", "localhost", "10.0.0.0/33", "10.0.0.0/", "::/129", "10.0.0.1/-1", "10.0.0.1/8x"})
        EXPECT_FALSE(list.add(text)) << text;
}

bool exists(const std::string &path) {
    struct stat info;
    return lstat(path.c_str(), &info) == 0;
}

// A socket file that nobody answers any more.
void leave_stale_socket(const std::string &path) {
    const UniqueFd fd(socket(AF_UNIX, SOCK_STREAM, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(bind(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
}

TEST(LocalListener, HasTheModeAskedForAndTakesItsFileAway) {
    const TempDir dir;
    const std::string path = dir / "s";
    {
        const auto listener = listen_local(path, {0600, ""});
        ASSERT_TRUE(listener);
        struct stat info;
        ASSERT_EQ(lstat(path.c_str(), &info), 0);
        EXPECT_TRUE(S_ISSOCK(info.st_mode));
        EXPECT_EQ(info.st_mode & 0777, 0600u);
    }
    EXPECT_FALSE(exists(path));
}

TEST(LocalListener, ReplacesAStaleSocket) {
    const TempDir dir;
    leave_stale_socket(dir / "s");
    EXPECT_TRUE(listen_local(dir / "s", {}));
}

TEST(LocalListener, LeavesALiveSocketAlone) {
    const TempDir dir;
    const auto first = listen_local(dir / "s", {});
    ASSERT_TRUE(first);
    StderrCapture errors;
    EXPECT_FALSE(listen_local(dir / "s", {}));
    EXPECT_THAT(errors.finish(), HasSubstr("already listening"));
    EXPECT_TRUE(exists(dir / "s"));
}

TEST(LocalListener, NeverRemovesWhatIsNoSocket) {
    const TempDir dir;
    zeb::test::write_file(dir / "s", "data");
    StderrCapture errors;
    EXPECT_FALSE(listen_local(dir / "s", {}));
    EXPECT_THAT(errors.finish(), HasSubstr("is not a socket"));
    EXPECT_EQ(zeb::test::read_file(dir / "s"), "data");
}

TEST(LocalListener, DoesNotRemoveAFileThatTookItsPlace) {
    const TempDir dir;
    auto listener = listen_local(dir / "s", {});
    ASSERT_TRUE(listener);
    unlink((dir / "s").c_str());
    zeb::test::write_file(dir / "s", "data");
    listener->close();
    EXPECT_TRUE(exists(dir / "s"));
}

TEST(LocalListener, ReportsADirectoryThatIsNotThere) {
    const TempDir dir;
    StderrCapture errors;
    EXPECT_FALSE(listen_local(dir / "missing/s", {}));
    EXPECT_THAT(errors.finish(), HasSubstr("missing/\": No such file or directory"));
}

TEST(LocalListener, ReportsAPathThatIsTooLong) {
    StderrCapture errors;
    EXPECT_FALSE(listen_local("/tmp/" + std::string(200, 'x'), {}));
    EXPECT_THAT(errors.finish(), HasSubstr("longer than 107 bytes"));
}

TEST(LocalListener, ReportsAGroupThatIsNotThere) {
    const TempDir dir;
    StderrCapture errors;
    EXPECT_FALSE(listen_local(dir / "s", {0660, "no-such-group"}));
    EXPECT_THAT(errors.finish(), HasSubstr("no group \"no-such-group\""));
    EXPECT_FALSE(exists(dir / "s"));
}

TEST(TcpListener, ListensOnANumericAddress) {
    EXPECT_TRUE(listen_tcp("127.0.0.1", 0));
    StderrCapture errors;
    EXPECT_FALSE(listen_tcp("localhost", 0));
    EXPECT_THAT(errors.finish(), HasSubstr("not a numeric address"));
}

TEST(Settings, AFileThatCannotBeReadIsReported) {
    CONF_node *tree = nullptr;
    StderrCapture errors;
    EXPECT_FALSE(load_configuration("/nonexistent/zeb.conf", &tree));
    EXPECT_EQ(tree, nullptr);
    EXPECT_FALSE(load_configuration("/", &tree));
    const std::string text = errors.finish();
    EXPECT_THAT(text, HasSubstr("/nonexistent/zeb.conf: No such file"));
    EXPECT_THAT(text, HasSubstr("/: Is a directory"));
}

} // namespace

// Faults: of the surroundings. Descriptors, standard streams, permissions, sockets, the locale.

#include "faults.h"
#include "flow_station.h"
#include "zebmsgd_peer.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sstream>
#include <sys/resource.h>

using namespace zeb::test;
using testing::AnyOf;
using testing::Eq;
using testing::HasSubstr;
using testing::Not;

namespace {

class FaultLimits : public Flow {
  protected:
    FaultLimits() {
        std::filesystem::create_directory(dir_ / "log");
        configure("Disk;LogDir,log\nflow;Interval,0.05\nflow;Timeout,3\n");
    }
    static void stop(Process &daemon) {
        daemon.signal(SIGTERM);
        EXPECT_EQ(daemon.wait(), 0) << daemon.errors();
    }
    std::string text_of_logs() {
        std::string text;
        for (const auto &entry : std::filesystem::directory_iterator(dir_ / "log"))
            text += read_file(entry.path());
        return text;
    }
};

// ---- Descriptors ----

TEST_F(FaultLimits, ADaemonWithTooFewDescriptorsEndsOrWorks) {
    ASSERT_TRUE(ready_);
    const auto instrument = pump();
    for (const char *name : {"flow", "zeblogd", "waypoint"}) {
        bool worked = false;
        for (rlim_t limit = 4; !worked && limit < 40; ++limit) {
            before_ = [limit] {
                const rlimit few{limit, limit};
                setrlimit(RLIMIT_NOFILE, &few);
            };
            const auto daemon = run({name});
            before_ = nullptr;
            ASSERT_TRUE(wait_until([&] {
                worked = daemon->running() && clients().size() == 1;
                return worked || !daemon->running();
            }));
            if (worked)
                daemon->signal(SIGTERM);
            // Below a handful, not even the program's libraries can be loaded.
            EXPECT_THAT(daemon->wait(), AnyOf(Eq(worked ? 0 : 1), Eq(limit < 6 ? 127 : 1)))
                << name << " with " << limit << ": " << daemon->errors();
        }
        EXPECT_TRUE(worked) << name;
    }
}

// So that every descriptor that it opens has a higher number.
void open_1100() {
    const rlimit many{4096, 4096};
    setrlimit(RLIMIT_NOFILE, &many);
    for (int number = 3; number < 1100; ++number)
        dup2(STDERR_FILENO, number);
}

bool may_open_4096() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    return limit.rlim_max >= 4096;
}

TEST_F(FaultLimits, ServersWorkWithDescriptorsAbove1024) {
    if (!may_open_4096())
        GTEST_SKIP() << "so many descriptors are not allowed here";
    before_ = open_1100;
    ASSERT_TRUE(start_servers());
    before_ = nullptr;
    const auto instrument = pump();
    const auto daemon = run({"flow"});
    EXPECT_EQ(watch("MSG_TSITMF_INSTANT", 2).size(), 2u);
    stop(*daemon);
}

TEST_F(FaultLimits, DaemonsRefuseDescriptorsAbove1024) {
    ASSERT_TRUE(ready_);
    if (!may_open_4096())
        GTEST_SKIP() << "so many descriptors are not allowed here";
    before_ = open_1100;
    for (const char *name : {"flow", "gps", "zeblogd", "waypoint"}) {
        const auto daemon = run({name});
        EXPECT_EQ(daemon->wait(), 1) << name;
        EXPECT_THAT(daemon->errors(), HasSubstr("cannot connect to the station")) << name;
    }
}

// ---- Closed standard streams ----

void close_streams() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        close(fd);
}

TEST_F(FaultLimits, WithoutStandardStreamsServersSpeakToClientsOnly) {
    before_ = close_streams;
    ASSERT_TRUE(start_servers());
    Wire a(connect_local(dir_ / ".mainsocket"));
    a.send(handshake("a"));
    EXPECT_EQ(a.next_name(), "MSG_SERVER_SERVERHANDSHAKE");
    a.send_raw("no packet at all");
    for (int i = 0; i < 5; ++i) {
        Wire wrong(connect_local(dir_ / ".mainsocket"));
        wrong.send(packed(1, "MSG_X"));
        EXPECT_TRUE(wrong.sees_end());
    }
    a.send(packed(0, "MSG_SELF", "a"));
    EXPECT_EQ(a.next_name(), "MSG_SELF from a"); // whatever is no packet would fail here
    for (Process *server : {server_.get(), serial_.get()})
        stop(*server);
}

TEST_F(FaultLimits, WithoutStandardStreamsDaemonsWriteLinesOnlyIntoTheirFiles) {
    const auto instrument = pump({"--valve", "50"});
    before_ = close_streams;
    ASSERT_TRUE(start_servers());
    const auto daemon = run({"flow"});
    const auto conductor = run({"zeblogd"});
    before_ = nullptr;
    ASSERT_TRUE(wait_for_daemons(2));
    EXPECT_EQ(watch("MSG_TSITMF_INSTANT", 2).size(), 2u);
    order({"name=flow", "manual=true", "output=40"}); // of which people are told
    order({"name=flow", "manual=true", "output=900"});
    ask({"log", "average"});
    EXPECT_TRUE(wait_until([&] { return text_of_logs().find("\nflowA,") != std::string::npos; }));
    stop(*daemon);
    stop(*conductor);
    std::istringstream in(text_of_logs());
    for (std::string line; std::getline(in, line);)
        EXPECT_TRUE(line[0] == '!' || line.rfind("flowA,", 0) == 0 || isdigit(line[0])) << line;
}

TEST_F(FaultLimits, WithoutStandardStreamsAToolFailsInsteadOfWritingElsewhere) {
    ASSERT_TRUE(ready_);
    before_ = close_streams;
    const auto tool = run({"zebctl", "status"});
    EXPECT_EQ(tool->wait(), 1);
    const auto record = run({"zebctl", "record", dir_ / "all.zrec"});
    before_ = nullptr;
    ASSERT_TRUE(wait_for_clients(1));
    stop(*record);
    EXPECT_EQ(read_file(dir_ / "all.zrec").find("recorded"), std::string::npos);
}

// ---- Sockets and permissions ----

TEST_F(FaultLimits, WhatIsNoSocketIsLeftAloneByThePortServer) {
    serial_->signal(SIGTERM);
    EXPECT_EQ(serial_->wait(), 0);
    write_file(dir_ / ".serialdsocket", "precious");
    serial_ = run({"zebseriald"});
    EXPECT_EQ(serial_->wait(), 1);
    EXPECT_THAT(serial_->errors(), HasSubstr("is not a socket"));
    EXPECT_EQ(read_file(dir_ / ".serialdsocket"), "precious");
}

TEST_F(FaultLimits, ASocketAtWhichAnotherProgramListensIsLeftAlone) {
    ASSERT_TRUE(ready_);
    server_->signal(SIGTERM);
    EXPECT_EQ(server_->wait(), 0);
    const int foreign = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    (dir_ / ".mainsocket").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(foreign, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(listen(foreign, 5), 0);
    server_ = run({"zebmsgd"});
    EXPECT_EQ(server_->wait(), 1);
    EXPECT_THAT(server_->errors(), HasSubstr("already listening"));
    EXPECT_TRUE(is_listening(dir_ / ".mainsocket"));
    close(foreign);
}

TEST_F(FaultLimits, SocketsWithoutPermissionAreNamed) {
    ASSERT_TRUE(ready_);
    chmod(dir_.path().c_str(), 0755);
    chmod((dir_ / ".mainsocket").c_str(), 0);
    before_ = become_nobody;
    const auto daemon = run({"waypoint"});
    EXPECT_EQ(daemon->wait(), 1);
    EXPECT_THAT(daemon->errors(), HasSubstr("Permission denied"));
    const auto tool = run({"zebctl", "watch"});
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_THAT(tool->errors(), HasSubstr("Permission denied"));
}

TEST_F(FaultLimits, ARunDirectoryWithoutPermissionIsNamed) {
    ASSERT_TRUE(ready_);
    stop(*server_);
    stop(*serial_);
    chmod(dir_.path().c_str(), 0555);
    before_ = become_nobody;
    for (const char *name : {"zebmsgd", "zebseriald"}) {
        const auto server = shell(std::string("exec ") + name);
        EXPECT_EQ(server->wait(), 1) << name;
        EXPECT_THAT(server->errors(), HasSubstr("Permission denied")) << name;
    }
    chmod(dir_.path().c_str(), 0755);
}

// ---- The locale ----

// A locale with a comma in its numbers, made here.
class FaultLocale : public FaultLimits {
  protected:
    FaultLocale() {
        std::filesystem::create_directory(dir_ / "locale");
        const auto made = shell("localedef --no-archive -i de_DE -f ISO-8859-1 " +
                                (dir_ / "locale/de_DE.ISO-8859-1"));
        wait_until([&] { return !made->running(); }, 60);
        has_locale_ = std::filesystem::exists(dir_ / "locale/de_DE.ISO-8859-1/LC_NUMERIC");
        environment_ = {{"LOCPATH", dir_ / "locale"}, {"LC_ALL", "de_DE.ISO-8859-1"}};
    }
    bool has_locale_ = false;
};

TEST_F(FaultLocale, ADecimalCommaChangesNoLineOfTheStation) {
    if (!has_locale_)
        GTEST_SKIP() << "no locale with a decimal comma can be made here";
    ASSERT_TRUE(start_servers());
    const auto instrument = pump({"--valve", "50"});
    const auto daemon = run({"flow"});
    ASSERT_TRUE(wait_for_daemons(1));
    const auto meter = watch("MSG_TSITMF_INSTANT", 1);
    ASSERT_EQ(meter.size(), 1u);
    EXPECT_EQ(meter[0]["record"]["Q"], 6.75);
    ask({"log", "average"});
    EXPECT_TRUE(wait_until([&] {
        return text_of_logs().find(" 813.13,  6.750,999.999, 21.00, 50.00,0000\n") !=
               std::string::npos;
    }));
    ask({"io", "set", "Set_flow", "7.5"});
    EXPECT_TRUE(says(*daemon, "the set point is 7.5 l/min"));
    stop(*daemon);
}

TEST_F(FaultLocale, ADecimalCommaOfAProgramChangesNoneOfItsLines) {
    if (!has_locale_)
        GTEST_SKIP() << "no locale with a decimal comma can be made here";
    const auto peer = shell("echo 'write 1' | exec " + built_path("tests/integration/log_peer") +
                            " " + (dir_ / "log") + " 0 locale");
    EXPECT_EQ(peer->wait(), 0) << peer->errors();
    EXPECT_THAT(text_of_logs(), HasSubstr("Z,1,        0.5,0.5\n"));
}

} // namespace

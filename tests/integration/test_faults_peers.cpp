// Faults: peers that vanish, hang or come back.

#include "faults.h"
#include "flow_station.h"
#include "zebmsgd_peer.h"
#include "zebseriald_peer.h"

#include <gmock/gmock.h>
#include <thread>

using namespace zeb::test;
using testing::HasSubstr;
using testing::Not;

namespace {

// ---- Clients of the message server ----

class FaultPeers : public Zebmsgd {};

void reset(int fd) {
    const linger at_once = {1, 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    close(fd);
}

TEST_F(FaultPeers, ConnectionsResetInTheMiddleOfAWriteAreForgotten) {
    const int port = free_port();
    start("Server;TCP;Port," + std::to_string(port) + "\n");
    Wire watcher = client("watcher");
    const std::string half =
        framed(packed(1, "MSG_X", "", "", "", std::string(1000, 'x'))).substr(0, 500);
    for (int i = 0; i < 50; ++i) {
        const int fd = connect_tcp(port);
        const std::string bytes =
            framed(handshake("brief")) + framed(packed(1, "MSG_NOTIFY_CLIENT_CONNECT")) + half;
        ASSERT_EQ(send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
        ASSERT_EQ(watcher.next_name(), "MSG_NOTIFY_CLIENT_CONNECT from brief");
        watcher.send(packed(1, "MSG_Y", "", "", "", std::string(100000, 'y')));
        reset(fd);
        ASSERT_EQ(watcher.next_name(), "MSG_NOTIFY_CLIENT_TERMINATE from brief");
    }
    EXPECT_EQ(status().at("clients").size(), 1u);
    EXPECT_LT(open_files(server->pid()), 20u);
}

TEST_F(FaultPeers, AClientThatOnlyListensOnIsForgotten) {
    start();
    Wire watcher = client("watcher");
    const int fd = connect_local(socket_path());
    Wire half = introduce(Wire(fd), "half");
    EXPECT_EQ(watcher.next_name(), "MSG_NOTIFY_CLIENT_CONNECT from half");
    shutdown(fd, SHUT_WR);
    EXPECT_EQ(watcher.next_name(), "MSG_NOTIFY_CLIENT_TERMINATE from half");
    EXPECT_TRUE(half.sees_end());
}

// ---- Servers, as daemons have them ----

class FaultServers : public Flow {
  protected:
    FaultServers() : seam_(dir_ / "seam") {
        std::filesystem::create_directory(dir_ / "log");
        configure("Disk;LogDir,log\nflow;Interval,0.05\nflow;Timeout,3\n");
    }
    std::unique_ptr<Process> flow() { return run({"flow"}, seam_.environment()); }
    // What a launcher does: starts a daemon again when it has ended.
    bool publishes_again(std::unique_ptr<Process> &daemon) {
        return wait_until([&] {
            if (!daemon->running()) {
                EXPECT_EQ(daemon->wait(), 1) << daemon->errors();
                daemon = flow();
            }
            return !lines_of(ask({"watch", "--json", "--type", "MSG_TSITMF_INSTANT", "--count", "1",
                                  "--timeout", "1"},
                                 k_any))
                        .empty();
        });
    }
    // Twenty seconds in each from now on; the message server waits by its clock of before
    // otherwise.
    void rush() {
        seam_.run(20);
        EXPECT_TRUE(is_listening(dir_ / ".mainstatus"));
    }
    Seam seam_;
};

TEST_F(FaultServers, ServersKilledAndStartedAgainAreFoundAgain) {
    ASSERT_TRUE(ready_);
    const auto instrument = pump();
    auto daemon = flow();
    ASSERT_TRUE(publishes_again(daemon));
    for (int i = 0; i < 3; ++i) {
        for (auto *one : {&server_, &serial_}) {
            (*one)->signal(SIGKILL);
            (*one)->wait();
            *one = run({one == &server_ ? "zebmsgd" : "zebseriald"});
            EXPECT_EQ(daemon->wait(), 1) << daemon->errors();
            ASSERT_TRUE(publishes_again(daemon)) << daemon->errors();
        }
    }
}

TEST_F(FaultServers, AServerAwayForHundredsOfStartsLeavesNothingBehind) {
    ASSERT_TRUE(ready_);
    server_->signal(SIGKILL);
    server_->wait();
    const auto instrument = pump();
    const auto entries = [this] {
        size_t count = 0;
        for (const auto &entry : std::filesystem::directory_iterator(dir_.path()))
            count += !entry.is_directory();
        return count;
    };
    const size_t before = entries();
    for (int i = 0; i < 100; ++i) {
        auto daemon = flow();
        ASSERT_EQ(daemon->wait(), 1);
        ASSERT_THAT(daemon->errors(), HasSubstr("cannot connect to the station"));
    }
    EXPECT_EQ(entries(), before);
    EXPECT_TRUE(std::filesystem::is_empty(dir_ / "log"));
    EXPECT_LT(open_files(serial_->pid()), 30u);
    server_ = run({"zebmsgd"});
    auto daemon = flow();
    EXPECT_TRUE(publishes_again(daemon));
}

// Half a minute of silence, at twenty seconds in each.
TEST_F(FaultServers, AMuteMessageServerIsGivenUpAfterHalfAMinute) {
    ASSERT_TRUE(ready_);
    const auto instrument = pump();
    auto daemon = flow();
    ASSERT_TRUE(publishes_again(daemon));
    server_->signal(SIGSTOP);
    const double start = seam_.wall();
    seam_.run(20);
    EXPECT_EQ(daemon->wait(), 1);
    EXPECT_GT(seam_.wall() - start, 24); // its last heartbeat was up to 5 s old
    EXPECT_THAT(daemon->errors(), HasSubstr("the message server is gone"));
    server_->signal(SIGCONT);
}

TEST_F(FaultServers, AMutePortServerIsGivenUpAfterHalfAMinute) {
    ASSERT_TRUE(ready_);
    server_ = run({"zebmsgd"}, seam_.environment()); // its heartbeats are as fast
    ASSERT_TRUE(wait_until([&] { return is_listening(dir_ / ".mainstatus"); }));
    const auto instrument = pump();
    auto daemon = flow();
    ASSERT_TRUE(publishes_again(daemon));
    serial_->signal(SIGSTOP);
    rush();
    EXPECT_EQ(daemon->wait(), 1);
    EXPECT_THAT(daemon->errors(), HasSubstr("the serial server is gone"));
    serial_->signal(SIGCONT);
}

// Takes the handshake, and gives half an answer to what is asked then.
void answer_by_halves(int listener) {
    const int fd = accept(listener, nullptr, nullptr);
    char block[4096];
    recv(fd, block, sizeof block, 0);
    std::string bytes = framed(u32(1));
    send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    recv(fd, block, sizeof block, 0);
    bytes = framed(u32(1) + "half of this").substr(0, 14);
    send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    while (recv(fd, block, sizeof block, 0) > 0)
        continue;
    close(fd);
}

TEST_F(FaultServers, APortServerThatHalfAnswersIsGivenUpAfterHalfAMinute) {
    ASSERT_TRUE(ready_);
    server_ = run({"zebmsgd"}, seam_.environment());
    ASSERT_TRUE(wait_until([&] { return is_listening(dir_ / ".mainstatus"); }));
    serial_->signal(SIGTERM);
    EXPECT_EQ(serial_->wait(), 0);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    (dir_ / ".serialdsocket").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener, 1), 0);
    std::thread half(answer_by_halves, listener);
    const auto daemon = flow();
    ASSERT_TRUE(wait_until([&] { return clients().size() == 1; }));
    rush();
    EXPECT_EQ(daemon->wait(), 1);
    EXPECT_THAT(daemon->errors(), HasSubstr("the serial server is gone"));
    half.join();
    close(listener);
}

TEST_F(FaultServers, ASecondDaemonOfANameEndsTheFirst) {
    ASSERT_TRUE(ready_);
    const auto first = run({"waypoint"});
    ASSERT_TRUE(wait_for_daemons(1));
    const auto second = run({"waypoint"});
    EXPECT_EQ(first->wait(), 1);
    EXPECT_THAT(first->errors(), HasSubstr("the message server is gone"));
    EXPECT_TRUE(wait_for_daemons(1));
    EXPECT_TRUE(second->running());
}

// ---- A device of the port server ----

class FaultDevice : public Zebseriald {};

// Three days at twenty thousand seconds in each.
TEST_F(FaultDevice, ADeviceAwayForDaysIsToldOnceAndFoundAgain) {
    Seam seam(dir / "seam");
    plug(terminal);
    write_file(dir / "zeb.conf", port("A", dir / "device") + "Serial;Heartbeat;Timeout,86400\n");
    Process::Options options{seam.environment()};
    options.environment.emplace_back("ZEB2RUN", dir.path());
    server.emplace(
        dir.path(),
        std::vector<std::string>{built_path("bin/zebseriald"), "--config", dir / "zeb.conf"},
        options);
    ASSERT_TRUE(wait_until([&] { return is_listening(socket_path()); })) << server->errors();
    Peer peer = opened("=A");
    unlink((dir / "device").c_str());
    terminal.unplug();
    ASSERT_TRUE(wait_until([&] { return peer.ask({k_write, -1, -1, "x"}) == "failure"; }));
    const size_t before = resident_kib(server->pid()), files = open_files(server->pid());
    const double start = seam.wall();
    seam.run(20000);
    ASSERT_TRUE(wait_until(
        [&] {
            EXPECT_EQ(peer.ask({k_heartbeat}), "heartbeat");
            return seam.wall() - start > 3 * 86400;
        },
        60));
    seam.run(1);
    EXPECT_EQ(open_files(server->pid()), files);
    if (!is_sanitized()) {
        EXPECT_LT(resident_kib(server->pid()), before + 1024);
    }
    EXPECT_LE(occurrences(server->errors(), "\n"), 4u) << server->errors();
    Terminal next;
    plug(next);
    EXPECT_TRUE(wait_until([&] { return peer.ask({k_write, -1, -1, "x"}) == "success"; }));
    EXPECT_EQ(next.receive(1), "x");
}

} // namespace

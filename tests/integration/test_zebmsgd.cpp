// The real message server in a private run directory, talked to by peers that write and read the
// bytes themselves.

#include "zebmsgd_peer.h"

#include <csignal>
#include <gmock/gmock.h>

using namespace zeb::test;
using testing::HasSubstr;
using testing::Not;

namespace {

// --- the link protocol -------------------------------------------------------------------------

TEST_F(Zebmsgd, AnswersAHandshakeAndTellsTheOthersOfTheClient) {
    start();
    Wire a = client("a");
    Wire b = client("b");
    const auto notice = a.next();
    ASSERT_TRUE(notice);
    EXPECT_EQ(notice->name, "MSG_NOTIFY_CLIENT_CONNECT");
    EXPECT_EQ(notice->source, "b");
    EXPECT_EQ(notice->flags, 1u);
    EXPECT_EQ(notice->record, "");
}

TEST_F(Zebmsgd, PublishesToEveryOtherClientUnderTheSendersName) {
    start();
    Wire a = client("a");
    Wire b = client_seen_by(a, "b");
    Wire c = client_seen_by(a, "c");
    EXPECT_EQ(b.next_name(), "MSG_NOTIFY_CLIENT_CONNECT from c");
    a.send(packed(1, "MSG_NOT_IN_ANY_CATALOGUE", "", "forged", "NET_Strange", "\x01\x02package"));
    for (Wire *receiver : {&b, &c}) {
        const auto got = receiver->next();
        ASSERT_TRUE(got);
        EXPECT_EQ(got->name, "MSG_NOT_IN_ANY_CATALOGUE");
        EXPECT_EQ(got->source, "a");
        EXPECT_EQ(got->record, "NET_Strange");
        EXPECT_EQ(got->rest, "\x01\x02package");
    }
    b.send(packed(1, "MSG_FENCE"));
    EXPECT_EQ(a.next_name(), "MSG_FENCE from b"); // and nothing of its own before it
}

TEST_F(Zebmsgd, DeliversToTheDestinationOnly) {
    start();
    Wire a = client("a");
    Wire b = client_seen_by(a, "b");
    Wire c = client_seen_by(a, "c");
    b.next();
    a.send(packed(0, "MSG_DIRECT", "c"));
    a.send(packed(1, "MSG_FENCE"));
    EXPECT_EQ(b.next_name(), "MSG_FENCE from a");
    EXPECT_EQ(c.next_name(), "MSG_DIRECT from a");
}

TEST_F(Zebmsgd, ReplaysTheLatestRetainedMessagesAndForgetsThoseOfTheGone) {
    start();
    Wire a = client("a");
    Wire b = client_seen_by(a, "b");
    a.send(packed(3, "MSG_STATE", "", "", "", "old"));
    a.send(packed(3, "MSG_STATE", "", "", "", "new"));
    EXPECT_EQ(b.next()->rest, "old");
    EXPECT_EQ(b.next()->rest, "new");
    b.send(packed(3, "MSG_OTHER"));
    EXPECT_EQ(a.next_name(), "MSG_OTHER from b");
    Wire late = client_seen_by(a, "late");
    const auto first = late.next();
    ASSERT_TRUE(first);
    EXPECT_EQ(first->name + " " + first->rest, "MSG_STATE new");
    EXPECT_EQ(late.next_name(), "MSG_OTHER from b");
    b.hang_up();
    EXPECT_EQ(a.next_name(), "MSG_NOTIFY_CLIENT_TERMINATE from b");
    Wire later = client_seen_by(a, "later");
    EXPECT_EQ(later.next_name(), "MSG_STATE from a");
    a.send(packed(1, "MSG_FENCE"));
    EXPECT_EQ(later.next_name(), "MSG_FENCE from a");
}

TEST_F(Zebmsgd, FiltersDecideInTheOrderAdded) {
    start();
    Wire a = client("cpc1");
    Wire b = client("b");
    a.next();
    FilterText accept{.accept = true, .uid = 1, .source = "cpc*", .metatype = "log"};
    FilterText reject{.accept = false, .uid = 2, .source = "cpc*"};
    b.send(add_filter(accept));
    b.send(add_filter(reject));
    b.send(packed(0, "MSG_DONE", "cpc1"));
    EXPECT_EQ(a.next_name(), "MSG_DONE from b");
    a.send(packed(1, "MSG_AE33_STATUS"));
    a.send(packed(1, "MSG_LOG_INFO"));
    EXPECT_EQ(b.next_name(), "MSG_LOG_INFO from cpc1");
    b.send(delete_filter(false, 2));
    b.send(delete_filter(true, 0));
    b.send(packed(0, "MSG_DONE", "cpc1"));
    EXPECT_EQ(a.next_name(), "MSG_DONE from b");
    a.send(packed(1, "MSG_AE33_STATUS"));
    EXPECT_EQ(b.next_name(), "MSG_AE33_STATUS from cpc1");
}

TEST_F(Zebmsgd, ANewerClientTakesTheNameOver) {
    start();
    Wire watcher = client("watcher");
    Wire older = client_seen_by(watcher, "cpc1");
    older.send(packed(3, "MSG_STATE"));
    EXPECT_EQ(watcher.next_name(), "MSG_STATE from cpc1");
    Wire newer = client("cpc1");
    EXPECT_EQ(older.next_name(), "MSG_SERVER_TERMINATE");
    EXPECT_EQ(older.next_name(), "end");
    EXPECT_EQ(watcher.next_name(), "MSG_NOTIFY_CLIENT_TERMINATE from cpc1");
    EXPECT_EQ(watcher.next_name(), "MSG_NOTIFY_CLIENT_CONNECT from cpc1");
    watcher.send(packed(0, "MSG_HELLO", "cpc1"));
    EXPECT_EQ(newer.next_name(), "MSG_HELLO from watcher"); // and no state of its ghost
}

TEST_F(Zebmsgd, TellsTheOthersWhoLeftHoweverItLeft) {
    start();
    Wire watcher = client("watcher");
    Wire polite = client_seen_by(watcher, "polite");
    Wire rude = client_seen_by(watcher, "rude");
    polite.send(packed(0, "MSG_SERVER_TERMINATE"));
    EXPECT_EQ(watcher.next_name(), "MSG_NOTIFY_CLIENT_TERMINATE from polite");
    EXPECT_TRUE(polite.sees_end());
    rude.hang_up();
    EXPECT_EQ(watcher.next_name(), "MSG_NOTIFY_CLIENT_TERMINATE from rude");
}

TEST_F(Zebmsgd, MessagesSentJustBeforeLeavingArriveBeforeTheNotice) {
    start();
    Wire watcher = client("watcher");
    Wire brief = client_seen_by(watcher, "brief");
    brief.send(packed(1, "MSG_LAST_WORDS"));
    brief.hang_up();
    EXPECT_EQ(watcher.next_name(), "MSG_LAST_WORDS from brief");
    EXPECT_EQ(watcher.next_name(), "MSG_NOTIFY_CLIENT_TERMINATE from brief");
}

TEST_F(Zebmsgd, HeartbeatsCarryARunningIndex) {
    start("Server;Heartbeat;Interval,0.05\n");
    Wire a = client("a");
    for (unsigned i = 0, first = 0; i < 3; ++i) {
        const auto beat = a.next_of_all();
        ASSERT_TRUE(beat);
        ASSERT_EQ(beat->name, "MSG_SERVER_HEARTBEAT");
        EXPECT_EQ(beat->flags, 0u);
        const size_t index = number_at(beat->rest, beat->rest.size() - 4, 4);
        first = i == 0 ? static_cast<unsigned>(index) : first;
        EXPECT_EQ(index, first + i);
    }
}

TEST_F(Zebmsgd, AClientThatDoesNotAnswerHeartbeatsIsDropped) {
    start("Server;Heartbeat;Interval,0.05\nServer;Heartbeat;Timeout,2\n");
    Wire alive = client("alive");
    Wire silent = client_seen_by(alive, "silent");
    silent.echoes = false;
    EXPECT_EQ(alive.next_name(), "MSG_NOTIFY_CLIENT_TERMINATE from silent"); // echoing meanwhile
    EXPECT_TRUE(silent.sees_end());
    EXPECT_THAT(server->errors(), HasSubstr("does not answer heartbeats"));
}

// --- hostile and broken clients ----------------------------------------------------------------

TEST_F(Zebmsgd, AnythingButAHandshakeFirstEndsTheConnection) {
    start();
    Wire eager = raw();
    eager.send(packed(1, "MSG_X"));
    EXPECT_TRUE(eager.sees_end());
    EXPECT_THAT(server->errors(), HasSubstr("did not begin with its handshake"));
}

TEST_F(Zebmsgd, AClientThatMakesNoHandshakeInTimeIsDropped) {
    start("Server;Handshake;Timeout,0.1\n");
    Wire idle = raw();
    EXPECT_TRUE(idle.sees_end());
    EXPECT_TRUE(says("it made no handshake in time"));
}

TEST_F(Zebmsgd, ATrickleOfBytesIsNoHandshake) {
    start("Server;Handshake;Timeout,0.3\n");
    Wire slow = raw();
    EXPECT_TRUE(wait_until([&] { return !slow.send_raw("2"); }));
}

TEST_F(Zebmsgd, GarbageIsSkippedAndTheNextPacketCounts) {
    start();
    Wire a = client("a");
    Wire b = client_seen_by(a, "b");
    b.send_raw("GET / HTTP/1.1\r\n\r\n");
    b.send_raw(std::string("2BEZ\x01\x01\xff\xff\x0f\x00", 10)); // a length of 0xFFFFF
    b.send(packed(1, "MSG_AFTER"));
    EXPECT_EQ(a.next_name(), "MSG_AFTER from b");
    EXPECT_EQ(status_of("b").at("garbage_bytes"), 28);
    EXPECT_THAT(server->errors(), HasSubstr("sends bytes that are no packet"));
}

TEST_F(Zebmsgd, AMessageWhoseLengthsLieIsDroppedAndTheClientStays) {
    start();
    Wire a = client("a");
    Wire b = client_seen_by(a, "b");
    b.send("");
    b.send("\x01");
    b.send(u32(1) + u16(0xffff) + "MSG_SHORT");
    b.send(u32(1) + u16(0) + u16(0) + u16(0) + u16(0));
    b.send(packed(0, "NET_SERVER_ADDFILTER", "", "", "NET_SERVER_FilterAdd", "\x01\xff\xff"));
    b.send(packed(0, "MSG_X", std::string(60000, 'd')));
    b.send(packed(1, "MSG_AFTER"));
    EXPECT_EQ(a.next_name(), "MSG_AFTER from b");
    EXPECT_EQ(status_of("b").at("dropped"), 6);
}

TEST_F(Zebmsgd, APacketThatNeverEndsHurtsNobody) {
    start();
    Wire a = client("a");
    Wire b = client_seen_by(a, "b");
    b.send_raw(std::string("2BEZ\x01\x01", 6) + u32(0xFFFFE) + "the rest never comes");
    Wire c = client_seen_by(a, "c");
    EXPECT_EQ(b.next_name(), "MSG_NOTIFY_CLIENT_CONNECT from c");
    b.hang_up();
    EXPECT_EQ(a.next_name(), "MSG_NOTIFY_CLIENT_TERMINATE from b");
}

TEST_F(Zebmsgd, TheLongestMessageIsRelayedIntact) {
    start();
    Wire a = client("a");
    Wire b = client_seen_by(a, "b");
    std::string package(1000000, '\0');
    for (size_t i = 0; i < package.size(); ++i)
        package[i] = static_cast<char>(i * 31);
    b.send(packed(1, "MSG_LONG", "", "", "R", package));
    const auto got = a.next();
    ASSERT_TRUE(got);
    EXPECT_TRUE(got->rest == package);
    b.send(packed(1, "MSG_TOO_LONG", "", "", "", std::string(0xFFFFE - 22, 'x')));
    b.send(packed(1, "MSG_AFTER"));
    EXPECT_EQ(a.next_name(), "MSG_AFTER from b");
}

TEST_F(Zebmsgd, AClientThatNeverReadsIsDisconnectedWhileTheOthersGoOn) {
    start("Server;Limit;QueueBytes,65536\n");
    Wire sender = client("sender");
    Wire reader = client_seen_by(sender, "reader");
    Wire stuck = client_seen_by(sender, "stuck");
    EXPECT_EQ(reader.next_name(), "MSG_NOTIFY_CLIENT_CONNECT from stuck");
    const std::string message = packed(1, "MSG_X", "", "", "", std::string(1024, 'x'));
    std::string heard;
    int sent = 0;
    for (; sent < 100000 && heard != "MSG_NOTIFY_CLIENT_TERMINATE from stuck"; ++sent) {
        ASSERT_TRUE(sender.send(message));
        do
            heard = reader.next_name();
        while (heard != "MSG_X from sender" && heard != "MSG_NOTIFY_CLIENT_TERMINATE from stuck");
    }
    EXPECT_EQ(heard, "MSG_NOTIFY_CLIENT_TERMINATE from stuck");
    EXPECT_TRUE(says("it does not read and its queue is full"));
    EXPECT_EQ(status().at("cut_off"), 1);
}

TEST_F(Zebmsgd, OneClientTooManyIsTurnedAway) {
    start("Server;Limit;Clients,1\n");
    Wire a = client("a");
    Wire b = raw();
    b.send(handshake("b"));
    EXPECT_TRUE(b.sees_end());
    EXPECT_THAT(server->errors(), HasSubstr("too many clients"));
    a.send(packed(0, "MSG_SELF", "a"));
    EXPECT_EQ(a.next_name(), "MSG_SELF from a");
}

TEST_F(Zebmsgd, RunningOutOfDescriptorsIsReportedAtItsBeginAndItsEnd) {
    start("", 24);
    Wire first = client("first");
    std::vector<int> crowd;
    for (int i = 0; i < 40; ++i)
        crowd.push_back(connect_local(socket_path()));
    EXPECT_TRUE(says("cannot accept connections for now: Too many open files"));
    first.send(packed(0, "MSG_SELF", "first"));
    EXPECT_EQ(first.next_name(), "MSG_SELF from first");
    for (const int fd : crowd)
        close(fd);
    EXPECT_TRUE(says("connections are accepted again"));
    Wire second = client("second");
    const std::string text = server->errors();
    EXPECT_EQ(text.find("cannot accept"), text.rfind("cannot accept"));
}

// --- status ------------------------------------------------------------------------------------

TEST_F(Zebmsgd, StatusIsOneDocumentAboutItselfAndItsClients) {
    start();
    Wire a = client("a\xff");
    Wire b = client("b");
    a.next();
    a.send(announcement("cpc_3010", "inlet"));
    EXPECT_EQ(b.next()->name, "MSG_SERVER_INSTRUMENTINFO");
    b.send(add_filter({.accept = true, .uid = 9, .source = "cpc*", .type = 160}));
    b.send(packed(1, "MSG_X"));
    a.next();
    const auto all = status();
    EXPECT_EQ(all.at("server"), "zebmsgd");
    EXPECT_FALSE(all.at("version").get<std::string>().empty());
    EXPECT_GE(all.at("uptime_seconds").get<double>(), 0);
    EXPECT_EQ(all.at("retained"), 1);
    EXPECT_EQ(all.at("dropped"), 0);
    ASSERT_EQ(all.at("clients").size(), 2u);
    const auto &first = all.at("clients")[0];
    EXPECT_EQ(first.at("name"), "a\xef\xbf\xbd"); // not UTF-8: the replacement character
    EXPECT_EQ(first.at("origin"), "pid " + std::to_string(getpid()));
    EXPECT_EQ(first.at("instrument").at("type"), "cpc_3010");
    EXPECT_EQ(first.at("instrument").at("display_name"), "Display");
    EXPECT_EQ(first.at("instrument").at("id"), "A");
    EXPECT_EQ(first.at("instrument").at("tags"), nlohmann::json::array({"inlet"}));
    EXPECT_EQ(first.at("messages_in"), 3); // handshake, notice, announcement
    EXPECT_EQ(first.at("queue_bytes"), 0);
    const auto &second = all.at("clients")[1];
    EXPECT_TRUE(second.at("instrument").is_null());
    EXPECT_EQ(
        second.at("filters"),
        nlohmann::json::array({{{"uid", 9}, {"accept", true}, {"type", 160}, {"source", "cpc*"}}}));
    EXPECT_GT(second.at("bytes_in").get<int>(), 0);
    EXPECT_GT(second.at("bytes_out").get<int>(), 0);
}

// A client whose filters fill more than a socket takes at once: six bytes of the document for each
// character.
class LongStatus : public Zebmsgd {
  protected:
    static constexpr unsigned k_filters = 256;
    const std::string pattern = std::string(255, '\x01');
    void fill(Wire &client, const std::string &name) {
        for (unsigned uid = 1; uid <= k_filters; ++uid)
            client.send(add_filter({.uid = uid, .tag = pattern, .metatype = pattern}));
        ASSERT_TRUE(wait_until([&] { return status_of(name).at("filters").size() == k_filters; }));
    }
    static std::string rest_of(int fd) {
        std::string text;
        char block[4096];
        for (ssize_t n; (n = recv(fd, block, sizeof block, 0)) > 0;)
            text.append(block, static_cast<size_t>(n));
        close(fd);
        return text;
    }
};

TEST_F(LongStatus, IsReadWhole) {
    start();
    Wire a = client("a");
    fill(a, "a");
    const int brief = connect_local(status_path());
    close(brief); // a reader that hangs up in the middle
    const auto all = status();
    EXPECT_EQ(all.at("clients").at(0).at("filters").at(255).at("uid"), 256);
    EXPECT_EQ(all.at("clients").at(0).at("filters").at(255).at("metatype"), pattern);
}

TEST_F(LongStatus, OfNineSlowReadersTheFirstIsLetGo) {
    start();
    Wire a = client("a");
    fill(a, "a");
    std::vector<int> readers;
    for (int i = 0; i < 9; ++i)
        readers.push_back(connect_local(status_path()));
    EXPECT_EQ(status_of("a").at("filters").size(), k_filters); // all nine are accepted by now
    EXPECT_FALSE(nlohmann::json::accept(rest_of(readers[0])));
    EXPECT_TRUE(nlohmann::json::accept(rest_of(readers[8])));
    for (size_t i = 1; i < 8; ++i)
        close(readers[i]);
}

TEST_F(Zebmsgd, StatusReadersThatDoNotReadHurtNobody) {
    start();
    std::vector<int> readers;
    for (int i = 0; i < 50; ++i)
        readers.push_back(connect_local(status_path()));
    Wire a = client("a");
    EXPECT_EQ(status().at("clients").size(), 1u);
    for (const int fd : readers)
        close(fd);
}

// --- sockets -----------------------------------------------------------------------------------

TEST_F(Zebmsgd, ReplacesStaleSocketsOfAServerThatWasKilled) {
    start();
    server->signal(SIGKILL);
    EXPECT_EQ(server->wait(), 128 + SIGKILL);
    ASSERT_TRUE(exists(socket_path()));
    start();
    Wire a = client("a");
}

TEST_F(Zebmsgd, ASecondServerLeavesTheFirstAlone) {
    start();
    Process second(dir.path(), {built_path("bin/zebmsgd")}, options());
    EXPECT_EQ(second.wait(), 1);
    EXPECT_THAT(second.errors(), HasSubstr("already listening at \"" + socket_path() + "\""));
    Wire a = client("a");
}

TEST_F(Zebmsgd, AFileInPlaceOfTheSocketIsNeverRemoved) {
    write_file(socket_path(), "precious");
    EXPECT_EQ(run({built_path("bin/zebmsgd")}), 1);
    EXPECT_THAT(server->errors(), HasSubstr("is not a socket"));
    EXPECT_EQ(read_file(socket_path()), "precious");
}

TEST_F(Zebmsgd, AFileInPlaceOfTheStatusSocketIsNeverRemoved) {
    write_file(status_path(), "precious");
    EXPECT_EQ(run({built_path("bin/zebmsgd")}), 1);
    EXPECT_EQ(read_file(status_path()), "precious");
    EXPECT_FALSE(exists(socket_path()));
}

TEST_F(Zebmsgd, AMissingRunDirectoryIsNamed) {
    server.emplace(dir.path(), std::vector<std::string>{built_path("bin/zebmsgd")},
                   Process::Options{{{"ZEB2RUN", dir / "missing"}}, 0});
    EXPECT_EQ(server->wait(), 1);
    EXPECT_THAT(server->errors(), HasSubstr(dir / "missing/\": No such file or directory"));
}

TEST_F(Zebmsgd, AReadOnlyRunDirectoryIsNamed) {
    if (geteuid() == 0)
        GTEST_SKIP() << "nothing is read-only for root";
    chmod(dir.path().c_str(), 0500);
    const TempDir elsewhere;
    Process server_process(elsewhere.path(), {built_path("bin/zebmsgd")}, options());
    EXPECT_EQ(server_process.wait(), 1);
    EXPECT_THAT(server_process.errors(), HasSubstr("cannot create the socket"));
    chmod(dir.path().c_str(), 0700);
}

TEST_F(Zebmsgd, TheSocketsHaveTheConfiguredMode) {
    start("Server;Socket;Mode,0600\n");
    struct stat info;
    ASSERT_EQ(stat(socket_path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
}

TEST_F(Zebmsgd, TcpClientsMeetLocalOnes) {
    const int port = free_port();
    start("Server;TCP;Port," + std::to_string(port) + "\n");
    Wire local = client("local");
    Wire remote = introduce(Wire(connect_tcp(port)), "remote");
    EXPECT_EQ(local.next_name(), "MSG_NOTIFY_CLIENT_CONNECT from remote");
    local.send(packed(0, "MSG_X", "remote"));
    EXPECT_EQ(remote.next_name(), "MSG_X from local");
    EXPECT_THAT(status_of("remote").at("origin"), testing::StartsWith("127.0.0.1:"));
}

TEST_F(Zebmsgd, TcpIsOffUnlessConfigured) {
    start();
    EXPECT_LT(connect_tcp(8567), 0);
}

TEST_F(Zebmsgd, AddressesThatAreNotAllowedAreTurnedAway) {
    const int port = free_port();
    start("Server;TCP;Port," + std::to_string(port) + "\nServer;TCP;Allow,192.0.2.0/24\n");
    Wire stranger(connect_tcp(port));
    EXPECT_TRUE(stranger.sees_end());
    EXPECT_TRUE(says("its address is not allowed"));
    EXPECT_EQ(status().at("refused"), 1);
}

// --- the process -------------------------------------------------------------------------------

TEST_F(Zebmsgd, StopsOnASignalTellingEveryClient) {
    for (const int number : {SIGTERM, SIGINT}) {
        start();
        Wire a = client("a");
        Wire b = client_seen_by(a, "b");
        Wire mute = raw();
        server->signal(number);
        EXPECT_EQ(a.next_name(), "MSG_SERVER_TERMINATE");
        EXPECT_EQ(a.next_name(), "end");
        EXPECT_EQ(b.next_name(), "MSG_SERVER_TERMINATE");
        EXPECT_TRUE(mute.sees_end());
        EXPECT_EQ(server->wait(), 0);
        EXPECT_FALSE(exists(socket_path()));
        EXPECT_FALSE(exists(status_path()));
    }
}

TEST_F(Zebmsgd, StopsThoughAClientDoesNotRead) {
    start();
    Wire sender = client("sender");
    Wire stuck = client_seen_by(sender, "stuck");
    const std::string message = packed(1, "MSG_X", "", "", "", std::string(100000, 'x'));
    for (int i = 0; i < 20; ++i) // more than its socket holds, less than its queue
        sender.send(message);
    ASSERT_TRUE(wait_until([&] { return status_of("stuck").at("queue_bytes").get<int>() > 0; }));
    server->signal(SIGTERM);
    EXPECT_EQ(server->wait(), 0);
}

TEST_F(Zebmsgd, SpeaksTheStartUpHandshakeWhenItIsReady) {
    Process::Options with = options();
    with.environment.emplace_back("ZEB2STARTUP", "1");
    server.emplace(dir.path(), command(""), with);
    ASSERT_TRUE(wait_until([&] { return server->output() == "STARTUP OKAY\n"; }));
    Wire a = client("a");
}

TEST_F(Zebmsgd, AnUnusableConfigurationEndsTheStart) {
    EXPECT_EQ(run(command("Server;TCP;Port,http\n")), 1);
    EXPECT_THAT(server->errors(), HasSubstr("Server;TCP;Port: \"http\" is not a whole number"));
    EXPECT_EQ(run({built_path("bin/zebmsgd"), "--config", dir / "missing.conf"}), 1);
    EXPECT_THAT(server->errors(), HasSubstr("missing.conf: No such file"));
    EXPECT_FALSE(exists(socket_path()));
}

TEST_F(Zebmsgd, HelpAndVersionSucceedAndAWrongOptionIsAUsageError) {
    EXPECT_EQ(run({built_path("bin/zebmsgd"), "--help"}), 0);
    EXPECT_THAT(server->output(), HasSubstr("--config"));
    EXPECT_EQ(run({built_path("bin/zebmsgd"), "--version"}), 0);
    EXPECT_THAT(server->output(), testing::StartsWith("zebmsgd "));
    EXPECT_EQ(run({built_path("bin/zebmsgd"), "--no-such-option"}), 2);
    EXPECT_EQ(server->output(), "");
    EXPECT_THAT(server->errors(), HasSubstr("--no-such-option"));
}

TEST_F(Zebmsgd, SaysNothingOfOrdinaryClientsUnlessAsked) {
    server.emplace(dir.path(), std::vector<std::string>{built_path("bin/zebmsgd")}, options());
    ASSERT_TRUE(wait_until([&] { return exists(status_path()); }));
    Wire watcher = client("watcher");
    { Wire brief = client_seen_by(watcher, "brief"); }
    EXPECT_EQ(watcher.next_name(), "MSG_NOTIFY_CLIENT_TERMINATE from brief");
    EXPECT_EQ(server->errors(), "");
}

} // namespace

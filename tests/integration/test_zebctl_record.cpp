// Traffic of one station recorded and replayed on another, by the real programs.

#include "recording.h"
#include "station.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <zeb2/crc16.h>

#include "serverkit/sockets.h"

using namespace zeb::test;
using testing::HasSubstr;
using testing::Not;

namespace {

struct Contents {
    std::vector<std::string> frames;
    size_t faults = 0;
};

Contents contents_of(const std::string &path) {
    CRC16_inittable();
    Contents contents;
    const serverkit::UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    zebctl::ByteWindow window(zebctl::file_source(file.get()));
    zebctl::RecordingReader reader(window,
                                   [&](uint64_t, const std::string &) { ++contents.faults; });
    EXPECT_TRUE(reader.open()) << path;
    zebctl::RecordingEntry entry;
    while (reader.next(entry))
        contents.frames.emplace_back(entry.frame);
    return contents;
}

class TwoStations : public Station {
  protected:
    TwoStations() {
        std::filesystem::create_directory(other());
        other_server_ = elsewhere("exec zebmsgd");
        both_ready_ =
            ready_ && wait_until([this] { return is_listening(other() + "/.mainstatus"); });
    }
    std::string other() const { return dir_ / "other"; }
    std::unique_ptr<Process> elsewhere(const std::string &line) {
        return shell("export ZEB2RUN=" + other() + "; " + line);
    }
    bool waits_elsewhere(const std::string &for_whom) {
        return wait_until([&] {
            const auto status = elsewhere("zebctl status --json");
            status->wait();
            return status->output().find("\"" + for_whom + "\"") != std::string::npos;
        });
    }
    std::unique_ptr<Process> record(const std::string &file,
                                    const std::vector<std::string> &more = {}) {
        std::vector<std::string> command = {"zebctl", "record", dir_ / file, "--name", "recorder"};
        command.insert(command.end(), more.begin(), more.end());
        auto recorder = run(command);
        EXPECT_TRUE(wait_until([&] {
            const auto names = clients();
            return std::find(names.begin(), names.end(), "recorder") != names.end();
        }));
        return recorder;
    }
    bool holds(const std::string &file, size_t frames) {
        size_t found = 0;
        const bool enough = wait_until([&] {
            if (std::filesystem::exists(dir_ / file) &&
                std::filesystem::file_size(dir_ / file) > 17)
                found = contents_of(dir_ / file).frames.size();
            return found >= frames;
        });
        EXPECT_TRUE(enough) << found << " of " << frames << " frames";
        return enough;
    }

    std::unique_ptr<Process> other_server_;
    bool both_ready_ = false;
};

} // namespace

TEST_F(TwoStations, AReplayUnderTheSourcesNamesIsTheSameTrafficByteForByte) {
    ASSERT_TRUE(both_ready_);
    const auto first = record("one.zrec");
    const auto daemon = run({"waypoint"});
    ASSERT_TRUE(wait_for_daemons(1));
    std::string lines;
    for (int i = 0; i < 100; ++i)
        lines += "{\"type\":\"MSG_LOG_SET_INTERVAL_AVG\",\"flags\":3,\"record\":{\"interval\":" +
                 std::to_string(i) + "}}\n{\"type\":\"MSG_LOG_FLUSH\"}\n";
    write_file(dir_ / "lines", lines);
    const auto a = shell("exec zebctl send --name Alpha --json < " + (dir_ / "lines"));
    const auto b = shell("exec zebctl send --name beta --json < " + (dir_ / "lines"));
    EXPECT_EQ(a->wait(), 0) << a->errors();
    EXPECT_EQ(b->wait(), 0) << b->errors();
    daemon->signal(SIGTERM);
    EXPECT_EQ(daemon->wait(), 0);
    ASSERT_TRUE(holds("one.zrec", 400 + 6)); // each program's coming and going, too
    first->signal(SIGTERM);
    ASSERT_EQ(first->wait(), 0) << first->errors();
    EXPECT_THAT(first->errors(), HasSubstr("messages recorded"));

    const auto second = elsewhere("exec zebctl record --name recorder " + (dir_ / "two.zrec"));
    ASSERT_TRUE(waits_elsewhere("recorder"));
    const auto replay = elsewhere("exec zebctl replay --as-sources --fast " + (dir_ / "one.zrec"));
    ASSERT_EQ(replay->wait(), 0) << replay->errors();
    const Contents one = contents_of(dir_ / "one.zrec");
    ASSERT_TRUE(holds("two.zrec", one.frames.size()));
    second->signal(SIGINT);
    ASSERT_EQ(second->wait(), 0) << second->errors();

    Contents two = contents_of(dir_ / "two.zrec");
    ASSERT_GE(two.frames.size(), one.frames.size());
    // Whom the recording left connected leaves when the replay ends.
    for (size_t i = one.frames.size(); i < two.frames.size(); ++i)
        EXPECT_THAT(two.frames[i], HasSubstr("MSG_NOTIFY_CLIENT_TERMINATE"));
    two.frames.resize(one.frames.size());
    EXPECT_TRUE(one.frames == two.frames);
    EXPECT_EQ(one.faults + two.faults, 0u);
}

TEST_F(TwoStations, AReplayUnderItsOwnNameLeavesTheRecordsUntouched) {
    ASSERT_TRUE(both_ready_);
    write_file(dir_ / "table", "interval\n+1.500000E+00\n+2.500000E+00\n");
    ask({"table", "--from-table", dir_ / "table", "--type", "MSG_LOG_SET_INTERVAL_AVG", "-o",
         dir_ / "made.zrec", "--start", "2003-02-01", "--interval", "0.25"});
    const auto watch = run(
        {"zebctl", "watch", "--json", "--count", "2", "--timeout", "20", "--type", "MSG_LOG_SET*"});
    ASSERT_TRUE(wait_for_clients(1));
    ask({"replay", dir_ / "made.zrec", "--name", "player", "--speed", "10"});
    ASSERT_EQ(watch->wait(), 0) << watch->errors();
    const auto seen = lines_of(watch->output());
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0]["from"], "player");
    EXPECT_EQ(seen[0]["record"]["interval"], 1.5);
    EXPECT_EQ(seen[1]["record"]["interval"], 2.5);
    EXPECT_THAT(errors_, HasSubstr("2 messages replayed"));
}

TEST_F(TwoStations, AReplayThrowsNobodyOffTheServerUnasked) {
    ASSERT_TRUE(both_ready_);
    write_file(dir_ / "table", "interval\n1\n");
    ask({"table", "--from-table", dir_ / "table", "--type", "MSG_LOG_SET_INTERVAL_AVG", "-o",
         dir_ / "made.zrec", "--source", "Recorder"});
    const auto recorder = record("out.zrec");
    ask({"replay", dir_ / "made.zrec", "--as-sources"}, 1);
    EXPECT_THAT(errors_, HasSubstr("a program named Recorder is connected"));
    ask({"replay", dir_ / "made.zrec", "--as-sources", "--take-over"});
    EXPECT_EQ(recorder->wait(), 1);
    EXPECT_THAT(recorder->errors(), HasSubstr("said goodbye"));
}

TEST_F(TwoStations, AKilledRecorderLeavesOneTornEntryAtMostAndGoesOn) {
    ASSERT_TRUE(both_ready_);
    const auto sender = shell("i=0; while :; do echo '{\"type\":\"MSG_LOG_FLUSH\"}'; done | exec "
                              "zebctl send --json --name busy");
    for (int run = 0; run < 3; ++run) {
        const size_t before = run == 0 ? 0 : contents_of(dir_ / "killed.zrec").frames.size();
        const auto recorder = record("killed.zrec", {"--append"});
        EXPECT_TRUE(holds("killed.zrec", before + 50));
        recorder->signal(SIGKILL);
        EXPECT_EQ(recorder->wait(), 128 + SIGKILL);
        EXPECT_LE(contents_of(dir_ / "killed.zrec").faults, static_cast<size_t>(run) + 1);
        EXPECT_GE(contents_of(dir_ / "killed.zrec").frames.size(), before + 50);
    }
    sender->signal(SIGKILL);
}

TEST_F(TwoStations, RecordingsAreChosenCountedAndTimed) {
    ASSERT_TRUE(both_ready_);
    const auto chosen = record("chosen.zrec", {"--type", "*FLUSH", "--count", "1"});
    ask({"send", "MSG_LOG_SET_INTERVAL_AVG", "interval=1", "--name", "a"});
    ask({"send", "MSG_LOG_FLUSH", "--name", "a"});
    EXPECT_EQ(chosen->wait(), 0);
    EXPECT_EQ(contents_of(dir_ / "chosen.zrec").frames.size(), 1u);
    EXPECT_THAT(ask({"record", "--seconds", "0", "-"}), "ZEB2 recording 1\n");
    ask({"record", "--seconds", "0", "--count", "1", "--force", dir_ / "chosen.zrec"}, 1);
    ask({"record", "--seconds", "0", dir_ / "table"});
    ask({"record"}, 2);
    ask({"record", "--append", "--force", "x"}, 2);
}

TEST_F(TwoStations, ATableGoesBothWays) {
    const std::string table = "bypassed,flush_until\n0,INVALID\n1,20140821_1424010500\n";
    write_file(dir_ / "table", table);
    ask({"table", "--from-table", dir_ / "table", "--type", "MSG_LOG_AVG_BYPASS", "-o",
         dir_ / "made.zrec"});
    EXPECT_EQ(ask({"table", dir_ / "made.zrec", "--type", "MSG_LOG_AVG_BYPASS"}), table);
    write_file(dir_ / "bad", table + "1\nyes,noon\n1,INVALID,3\n");
    ask({"table", "--from-table", dir_ / "bad", "--type", "MSG_LOG_AVG_BYPASS", "-o",
         dir_ / "bad.zrec"},
        1);
    for (const char *expected :
         {"line 4: 1 columns, not 2", "line 5: flush_until: no time", "line 6: 3 columns, not 2"})
        EXPECT_THAT(errors_, HasSubstr(expected));
    EXPECT_EQ(ask({"table", dir_ / "bad.zrec", "--type", "MSG_LOG_AVG_BYPASS"}), table);
    ask({"table", dir_ / "made.zrec", "--type", "MSG_LOG_FLUSH"}, 1);
    ask({"table", "--type", "MSG_LOG_FLUSH"}, 2);
    ask({"table", dir_ / "made.zrec", "--type", "MSG_LOG_AVG_BYPASS", "-o", "/dev/full"}, 1);
    // A table of another record that begins with the same column.
    ask({"table", "--from-table", dir_ / "table", "--type", "MSG_LOG_AVG_CONTAMINATION", "-o",
         dir_ / "other.zrec"},
        1);
    write_file(dir_ / "endless", "recorded,bypassed,flush_until\ninf,1,INVALID\n");
    ask({"table", "--from-table", dir_ / "endless", "--type", "MSG_LOG_AVG_BYPASS", "-o",
         dir_ / "endless.zrec"},
        1);
    EXPECT_THAT(errors_, HasSubstr("line 2: no time: inf"));
    // With times the way back keeps them.
    const std::string timed =
        ask({"table", dir_ / "made.zrec", "--type", "MSG_LOG_AVG_BYPASS", "--times"});
    write_file(dir_ / "timed", timed);
    ask({"table", "--from-table", dir_ / "timed", "--type", "MSG_LOG_AVG_BYPASS", "-o",
         dir_ / "again.zrec"});
    EXPECT_EQ(ask({"table", dir_ / "again.zrec", "--type", "MSG_LOG_AVG_BYPASS", "--times"}),
              timed);
}

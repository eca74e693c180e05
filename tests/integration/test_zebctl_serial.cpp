// zebctl serial with the real serial-port server, an instrument and a user on pseudo terminals.

#include "process.h"
#include "recording_pty.h"
#include "support.h"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <unistd.h>

using namespace zeb::test;
using nlohmann::json;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

namespace {

const std::string k_bin = built_path("bin/");
const std::string k_ready = "handshake complete";
const std::string k_leave = "\x1d";

bool same(const termios &a, const termios &b) {
    return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_cflag == b.c_cflag &&
           a.c_lflag == b.c_lflag && memcmp(a.c_cc, b.c_cc, sizeof a.c_cc) == 0;
}

// A pipe into a program.
class Pipe {
  public:
    Pipe() {
        if (pipe2(ends_, O_CLOEXEC) != 0)
            throw std::runtime_error("no pipe");
    }
    ~Pipe() {
        shut();
        close(ends_[0]);
    }
    int reader() const { return ends_[0]; }
    void type(const std::string &data) {
        ASSERT_EQ(write(ends_[1], data.data(), data.size()), static_cast<ssize_t>(data.size()));
    }
    void shut() {
        if (ends_[1] >= 0)
            close(ends_[1]);
        ends_[1] = -1;
    }

  private:
    int ends_[2] = {-1, -1};
};

class SerialTool : public ::testing::Test {
  protected:
    SerialTool() {
        std::filesystem::create_directories(dir_ / "etc");
        write_file(dir_ / "etc/zeb.conf", "Port;pump;Device," + device() + "\n");
        plug(std::make_unique<Pty>());
        start_server();
    }

    std::string device() const { return dir_ / "pump"; }

    void plug(std::unique_ptr<Pty> instrument) {
        std::filesystem::remove(device());
        instrument_ = std::move(instrument);
        if (instrument_)
            std::filesystem::create_symlink(instrument_->path(), device());
    }

    void start_server() {
        server_ = start({"zebseriald"}, {});
        ready_ = wait_until([this] { return is_listening(dir_ / ".serialdsocket"); });
    }

    std::unique_ptr<Process> start(std::vector<std::string> command, Process::Options options) {
        command[0] = k_bin + command[0];
        options.environment.emplace_back("ZEB2RUN", dir_.path());
        options.environment.emplace_back("ZEB2", dir_.path());
        const std::string own = dir_ / std::to_string(++count_);
        std::filesystem::create_directory(own);
        return std::make_unique<Process>(own, command, options);
    }

    std::unique_ptr<Process> tool(std::vector<std::string> arguments,
                                  Process::Options options = {}) {
        arguments.insert(arguments.begin(), {"zebctl", "serial"});
        return start(arguments, std::move(options));
    }

    // In a session with the line.
    std::unique_ptr<Process> session(const std::vector<std::string> &arguments,
                                     Process::Options options) {
        auto process = tool(arguments, std::move(options));
        EXPECT_TRUE(wait_for_error(*process, k_ready)) << process->errors();
        return process;
    }
    std::unique_ptr<Process> piped(const std::vector<std::string> &arguments) {
        Process::Options options;
        options.input = pipe_.reader();
        return session(arguments, options);
    }
    std::unique_ptr<Process> on_terminal(const std::vector<std::string> &arguments,
                                         Process::Options options = {}) {
        options.terminal = user_.path();
        before_ = user_.settings();
        auto process = session(arguments, options);
        EXPECT_TRUE(wait_until([&] { return !same(user_.settings(), before_); }))
            << process->errors() << server_->errors();
        return process;
    }

    static bool wait_for_error(Process &process, const std::string &text, size_t times = 1) {
        return wait_until(
            [&] { return occurrences(process.errors(), text) >= times || !process.running(); });
    }
    static bool wait_for_output(Process &process, const std::string &text) {
        return wait_until(
            [&] { return process.output().find(text) != std::string::npos || !process.running(); });
    }

    const ScopedEnv colour_{"NO_COLOR", nullptr};
    TempDir dir_;
    Pipe pipe_;
    Pty user_{Pty::Kind::user};
    termios before_ = {};
    std::unique_ptr<Pty> instrument_;
    std::unique_ptr<Process> server_;
    bool ready_ = false;
    int count_ = 0;
};

} // namespace

// ---- One question ----

TEST_F(SerialTool, SendPrintsTheAnswerAndNothingElse) {
    ASSERT_TRUE(ready_);
    const auto asking = tool({"=pump", "--send", "V?\\r", "--until", "\\n"});
    ASSERT_TRUE(instrument_->expect("V?\r")) << asking->errors();
    instrument_->type("1.25\x07\r\n");
    EXPECT_EQ(asking->wait(), 0) << asking->errors();
    EXPECT_EQ(asking->output(), "1.25\\x07\n");
}

TEST_F(SerialTool, SendAsksOneQuestionAfterTheOther) {
    ASSERT_TRUE(ready_);
    const auto asking =
        tool({"=pump", "--send", "A\\r", "--send", "\\x42\\r", "--until", "\\r;", "--json"});
    ASSERT_TRUE(instrument_->expect("A\r"));
    instrument_->type("one;");
    ASSERT_TRUE(instrument_->expect("A\rB\r"));
    instrument_->type("two\r");
    EXPECT_EQ(asking->wait(), 0) << asking->errors();
    std::istringstream lines(asking->output());
    std::string line;
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(json::parse(line)["text"], "one;");
    ASSERT_TRUE(std::getline(lines, line));
    const json second = json::parse(line);
    EXPECT_EQ(second["text"], "two\\r");
    EXPECT_EQ(second["hex"], "74776f0d");
    EXPECT_EQ(second["direction"], "in");
    EXPECT_TRUE(second["time"].is_number());
    EXPECT_FALSE(std::getline(lines, line));
}

TEST_F(SerialTool, SendWithoutUntilEndsWhenTheTextIsOnTheLine) {
    ASSERT_TRUE(ready_);
    const auto sending = tool({"=pump", "-s", "ON\\r"});
    ASSERT_TRUE(instrument_->expect("ON\r"));
    EXPECT_EQ(sending->wait(), 0) << sending->errors();
    EXPECT_EQ(sending->output(), "");
}

TEST_F(SerialTool, AQuestionWithoutAnAnswerFails) {
    ASSERT_TRUE(ready_);
    const auto asking = tool({"=pump", "--send", "V?\\r", "--until", "\\n", "--timeout", "0.3"});
    EXPECT_EQ(asking->wait(), 1);
    EXPECT_EQ(asking->output(), "");
    EXPECT_THAT(asking->errors(), HasSubstr("zebctl: no answer of =pump ended with \\n within 0.3 "
                                            "s\n"));
}

TEST_F(SerialTool, AnAnswerWithoutItsEndIsShownInTheReport) {
    ASSERT_TRUE(ready_);
    const auto asking = tool({"=pump", "--send", "V?\\r", "--until", "\\n", "--timeout", "3"});
    ASSERT_TRUE(instrument_->expect("V?\r"));
    instrument_->type("1.2\r");
    EXPECT_EQ(asking->wait(), 1);
    EXPECT_THAT(asking->errors(), HasSubstr("within 3 s; what came: 1.2\\r\n"));
}

// ---- What can be wrong ----

TEST_F(SerialTool, SaysHowToStartAMissingServer) {
    ASSERT_TRUE(ready_);
    server_->signal(SIGTERM);
    server_->wait();
    const auto asking = tool({"=pump", "--send", "V?"});
    EXPECT_EQ(asking->wait(), 1);
    EXPECT_THAT(asking->errors(), HasSubstr("zebctl: is the serial-port server running?"));
}

TEST_F(SerialTool, SaysWhoRefusedAPort) {
    ASSERT_TRUE(ready_);
    const auto asking = tool({"=nothing", "--listen"});
    EXPECT_EQ(asking->wait(), 1);
    EXPECT_THAT(asking->errors(),
                HasSubstr("zebctl: the serial-port server does not open =nothing;"));
}

TEST_F(SerialTool, WrongEscapesAndPortsAreUsageErrors) {
    for (const std::vector<std::string> &arguments :
         {std::vector<std::string>{"=pump", "--send", "\\q"},
          {"=pump", "--send", "V", "--until", "\\x4"},
          {"=pump", "--send", "V", "--until", ""},
          {"=pump", "--until", "\\r"},
          {"=pump", "--listen", "--raw"},
          {"=pump", "--json", "--hex"},
          {"ttyS0:9600"},
          {"="}}) {
        const auto wrong = tool(arguments);
        EXPECT_EQ(wrong->wait(), 2) << arguments[1];
        EXPECT_NE(wrong->errors(), "");
    }
}

TEST_F(SerialTool, AServerThatGoesEndsTheSession) {
    ASSERT_TRUE(ready_);
    const auto talking = piped({"=pump"});
    pipe_.type("A\n");
    ASSERT_TRUE(instrument_->expect("A\r"));
    server_->signal(SIGTERM);
    EXPECT_EQ(talking->wait(), 1);
    EXPECT_THAT(talking->errors(), HasSubstr("zebctl: the serial-port server is gone\n"));
}

TEST_F(SerialTool, AnUnpluggedDeviceIsReportedOnceAndWaitedFor) {
    ASSERT_TRUE(ready_);
    const auto talking = piped({"=pump"});
    pipe_.type("A\n");
    ASSERT_TRUE(instrument_->expect("A\r"));
    EXPECT_THAT(talking->errors(), Not(HasSubstr("does not answer")));
    plug(nullptr);
    ASSERT_TRUE(wait_for_error(*talking, "zebctl: =pump does not answer"));
    pipe_.type("B\n");
    ASSERT_TRUE(wait_for_error(*talking, "zebctl: not sent: B\\r\n"));
    plug(std::make_unique<Pty>());
    ASSERT_TRUE(wait_for_error(*talking, "zebctl: =pump answers again"));
    pipe_.type("C\n");
    ASSERT_TRUE(instrument_->expect("C\r"));
    instrument_->type("back\r\n");
    EXPECT_TRUE(wait_for_output(*talking, "< back\n"));
    pipe_.shut();
    EXPECT_EQ(talking->wait(), 0);
    EXPECT_EQ(occurrences(talking->errors(), "does not answer"), 1u);
}

// ---- Settings ----

TEST_F(SerialTool, SettingsGoToTheLine) {
    ASSERT_TRUE(ready_);
    const auto sending = tool({"=pump", "--settings", "19200n81", "--send", "V"});
    EXPECT_EQ(sending->wait(), 0) << sending->errors();
    const termios settings = instrument_->settings();
    EXPECT_EQ(cfgetospeed(&settings), B19200);
}

TEST_F(SerialTool, SettingsThatTheLineDoesNotTakeAreAFailure) {
    ASSERT_TRUE(ready_);
    const auto sending = tool({"=pump", "--settings", "12345n81", "--send", "V"});
    EXPECT_EQ(sending->wait(), 1);
    EXPECT_THAT(sending->errors(), HasSubstr("zebctl: =pump does not take these settings"));
}

// ---- Sessions with a pipe ----

TEST_F(SerialTool, APipesLinesAreSentAndShownWithTheAnswers) {
    ASSERT_TRUE(ready_);
    const auto talking = piped({"=pump", "--eol", "crlf"});
    pipe_.type("V?\n");
    ASSERT_TRUE(instrument_->expect("V?\r\n"));
    instrument_->type("1.25\r\n");
    EXPECT_TRUE(wait_for_output(*talking, "< 1.25\n"));
    pipe_.shut();
    EXPECT_EQ(talking->wait(), 0) << talking->errors();
    EXPECT_EQ(talking->output(), "> V?\n< 1.25\n");
}

TEST_F(SerialTool, APipesBytesPassUnchangedWithRaw) {
    ASSERT_TRUE(ready_);
    const auto talking = piped({"=pump", "--raw"});
    pipe_.type("a\r\n\x1d\x03z");
    EXPECT_TRUE(instrument_->expect("a\r\n\x1d\x03z"));
    pipe_.shut();
    EXPECT_EQ(talking->wait(), 0);
}

TEST_F(SerialTool, AfterTheEndOfAPipeTheSessionLastsItsTime) {
    ASSERT_TRUE(ready_);
    const auto talking = piped({"=pump", "--seconds", "1e9"});
    pipe_.type("V?\n");
    pipe_.shut();
    ASSERT_TRUE(instrument_->expect("V?\r"));
    instrument_->type("late\r\n");
    EXPECT_TRUE(wait_for_output(*talking, "< late\n"));
    EXPECT_TRUE(talking->running());
    talking->signal(SIGTERM);
    EXPECT_EQ(talking->wait(), 0);
}

TEST_F(SerialTool, HexRowsHaveTimeAndText) {
    ASSERT_TRUE(ready_);
    const auto talking = piped({"=pump", "--hex", "--timestamps"});
    instrument_->type("OK\r");
    ASSERT_TRUE(wait_for_output(*talking, "|OK.|\n"));
    EXPECT_THAT(talking->output(), MatchesRegex("[-0-9]+T[:0-9]+\\.[0-9][0-9][0-9]Z < 4f 4b 0d "
                                                " +\\|OK\\.\\|\n"));
}

TEST_F(SerialTool, JsonLinesHoldWholeLines) {
    ASSERT_TRUE(ready_);
    const auto talking = piped({"=pump", "--json"});
    instrument_->type("1.25\r\n");
    ASSERT_TRUE(wait_for_output(*talking, "\n"));
    EXPECT_EQ(json::parse(talking->output())["text"], "1.25\\r\\n");
}

// ---- Watching ----

TEST_F(SerialTool, ListenMarksTheLineAndTheOthers) {
    ASSERT_TRUE(ready_);
    const auto watching = session({"=pump", "--listen"}, {});
    const auto asking = tool({"=pump", "--send", "V?\\r", "--until", "\\n"});
    ASSERT_TRUE(instrument_->expect("V?\r"));
    EXPECT_TRUE(wait_for_output(*watching, "> V?\n"));
    instrument_->type("1.25\r\n");
    EXPECT_EQ(asking->wait(), 0);
    EXPECT_TRUE(wait_for_output(*watching, "< 1.25\n"));
    watching->signal(SIGINT);
    EXPECT_EQ(watching->wait(), 0);
    EXPECT_EQ(watching->output(), "> V?\n< 1.25\n");
}

TEST_F(SerialTool, ListenEndsAfterItsSeconds) {
    ASSERT_TRUE(ready_);
    const auto watching = tool({"=pump", "--listen", "--seconds", "0.2"});
    EXPECT_EQ(watching->wait(), 0) << watching->errors();
}

// ---- Sessions on a terminal ----

TEST_F(SerialTool, ATypedLineIsSentAndTheAnswerToldApart) {
    ASSERT_TRUE(ready_);
    const auto talking = on_terminal({"=pump"});
    EXPECT_TRUE(wait_for_error(*talking, "each line is sent; Ctrl-] or Ctrl-D ends"));
    user_.type("V?\r");
    ASSERT_TRUE(instrument_->expect("V?\r"));
    instrument_->type("1.25\r\n");
    EXPECT_TRUE(user_.expect("\x1b[36m< 1.25\x1b[0m")) << user_.came();
    // Without Enter.
    user_.type(k_leave);
    EXPECT_EQ(talking->wait(), 0) << talking->errors();
    EXPECT_TRUE(same(user_.settings(), before_));
    EXPECT_THAT(user_.came(), Not(HasSubstr("> V?")));
}

TEST_F(SerialTool, NoColourWhenTheUserWantsNone) {
    ASSERT_TRUE(ready_);
    Process::Options options;
    options.environment = {{"NO_COLOR", "1"}};
    const auto talking = on_terminal({"=pump", "--timestamps=local"}, options);
    user_.type("V?\r");
    ASSERT_TRUE(instrument_->expect("V?\r"));
    EXPECT_TRUE(user_.expect(" > V?"));
    instrument_->type("1.25\r\n");
    EXPECT_TRUE(user_.expect(" < 1.25"));
    user_.type("\x04");
    EXPECT_EQ(talking->wait(), 0) << talking->errors();
    EXPECT_THAT(user_.came(), Not(HasSubstr("\x1b")));
}

TEST_F(SerialTool, AnInstrumentCannotCommandTheTerminal) {
    ASSERT_TRUE(ready_);
    const auto talking = on_terminal({"=pump", "--raw"});
    instrument_->type("\x1b[2J\x9b"
                      "2J\x07prompt> ");
    EXPECT_TRUE(user_.expect("\\x1b[2J\\x9b2J\\x07prompt> "));
    EXPECT_THAT(user_.came(), Not(HasSubstr("\x1b[2J")));
    EXPECT_THAT(user_.came(), Not(HasSubstr("\x07")));
}

TEST_F(SerialTool, RawSendsEachKeyAtOnce) {
    ASSERT_TRUE(ready_);
    const auto talking = on_terminal({"=pump", "--raw", "--eol", "lf"});
    user_.type("a\x03");
    EXPECT_TRUE(instrument_->expect("a\x03"));
    user_.type("\r");
    EXPECT_TRUE(instrument_->expect("a\x03\n"));
    user_.type(k_leave);
    EXPECT_EQ(talking->wait(), 0);
    EXPECT_TRUE(same(user_.settings(), before_));
    EXPECT_EQ(user_.came(), "");
}

TEST_F(SerialTool, EchoShowsTheKeysThatRawHides) {
    ASSERT_TRUE(ready_);
    const auto talking = on_terminal({"=pump", "--raw", "--echo"});
    user_.type("a");
    EXPECT_TRUE(user_.expect("> a"));
    instrument_->type("b");
    EXPECT_TRUE(user_.expect("< b"));
}

TEST_F(SerialTool, TheTerminalIsRestoredAfterEachSignal) {
    ASSERT_TRUE(ready_);
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        const auto talking = on_terminal({"=pump", "--raw"});
        EXPECT_EQ(user_.settings().c_lflag & ICANON, 0u);
        talking->signal(number);
        EXPECT_EQ(talking->wait(), 0) << number;
        EXPECT_TRUE(same(user_.settings(), before_)) << number;
    }
}

TEST_F(SerialTool, TheTerminalIsRestoredWhenTheServerGoes) {
    ASSERT_TRUE(ready_);
    const auto talking = on_terminal({"=pump", "--raw"});
    server_->signal(SIGTERM);
    EXPECT_EQ(talking->wait(), 1);
    EXPECT_TRUE(same(user_.settings(), before_));
}

// Logging: lines echoed on an instrument's link, and files served by its thread.
#include "log_testing.h"

#include "scripted_serial_server.h"
#include "scripted_server.h"

using namespace zeb::test;
using testing::EndsWith;

namespace {

class LogEcho : public testing::Test {
  protected:
    LogEcho() {
        root.set("Disk;LogDir", dir.path().c_str());
        LOG_init(&f);
        LOG_define_record(&f, "S", "*", vars, nullptr, FALSE);
        LOG_define_record(&f, "E", "", vars, nullptr, FALSE);
    }
    ~LogEcho() override {
        LOG_close(&f);
        responder.reset();
        INST_disconnect(&inst);
    }
    void SetUp() override {
        ZEBMSG_connect_params message_params = {"neph", nullptr};
        SERIALD_connect_params log_params = {"=echo"};
        ASSERT_TRUE(INST_connect(&inst, &message_params, nullptr, &log_params,
                                 static_cast<SERIALCOM_link *>(nullptr),
                                 static_cast<SERIALD_connect_params *>(nullptr)));
        ASSERT_TRUE(server.accept());
        server.handshake(1);
        client = &serial_server.accept();
        EXPECT_EQ(client->wait_handshake(), "=echo");
        client->success();
        responder.emplace(
            *client, [](SerialClient &answered, const SerialRequest &) { answered.success(); });
        ASSERT_TRUE(INST_wait_connected(&inst));
    }
    // What was echoed, all of it.
    std::string echoed() {
        std::string text;
        for (const SerialRequest &request : responder->stop()) {
            EXPECT_EQ(request.type, static_cast<unsigned>(SERIALD_REQUEST_WRITE));
            text.append(request.data.begin(), request.data.end());
        }
        return text;
    }

    StderrCapture err;
    ScopedEnv no_server{"ZEB2SERVER", nullptr};
    ScriptedServer server;
    ScriptedSerialServer serial_server{server.run_directory()};
    SerialClient *client = nullptr;
    std::optional<SerialResponder> responder;
    INST_link inst = {};
    TempDir dir;
    Conf root;
    LOG_file f;
    DWORD number = 5;
    Table vars = {row("n", LVT_DWORD, &number, "%u")};
};

TEST_F(LogEcho, ALineIsWrittenAndEchoed) {
    ASSERT_TRUE(LOG_open_basename(&f, "X1", root, nullptr, &inst.msg_lnk));
    LOG_write(&f, &inst, "S", 1400000000);
    const std::string line = "S,NIL,1400000000,2014-05-13T16:53:20Z,5\n";
    EXPECT_EQ(echoed(), line);
    LOG_flush(&f);
    EXPECT_THAT(read_file(f.filename), EndsWith("ID code\n" + line));
}

TEST_F(LogEcho, LinesAreEchoedWhileLoggingIsDisabledAndEmptyOnesNever) {
    LOG_write(&f, &inst, "E", 1400000000);
    LOG_write(&f, &inst, "none", 1400000000);
    LOG_write(&f, &inst, "S", 1400000000);
    EXPECT_EQ(echoed(), "S,STN,1400000000,2014-05-13T16:53:20Z,5\n");
}

} // namespace

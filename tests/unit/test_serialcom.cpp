#include "scripted_serial_server.h"

#include <gtest/gtest.h>

using namespace zeb::test;

TEST(Serialcom, SmokeOpen) {
    ScriptedSerialServer server;
    SERIALCOM_link lnk = {};
    SERIALD_connect_params cp = {"ttyS0"};
    ASSERT_TRUE(SERIALCOM_multi_connect(&cp, &lnk));
    SerialClient &client = server.accept();
    SerialHookLoop loop({&lnk});
    loop.cycle();
    EXPECT_TRUE(loop.run_until([&] { return client.received_bytes().size() == 266; }));
    EXPECT_EQ(client.wait_handshake(), "ttyS0");
    client.success();
    EXPECT_TRUE(loop.run_until([&] { return lnk.stat == SERIALCOM_S_OPEN; }));
    SERIALCOM_multi_destroy(&lnk);
}

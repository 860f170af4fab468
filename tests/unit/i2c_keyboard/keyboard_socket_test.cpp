// The connection that carries a code to the front-panel program.

#include <string>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "orvan_sdk/i2cKeyboard/i2cKeyboard.h"
#include "panel_program.h"
#include "support/loopback.h"

using namespace orvan_test;

namespace {

TEST(KeyboardSocket, SendsAllBytesInOneConnectionAndCloses)
{
    PanelProgram panel;
    uint8_t message[] = {0x23, 0x00, 0xff};
    const size_t descriptors = open_descriptors();
    EXPECT_EQ(kb_socket_sender(LOCALHOST, message, sizeof message), 0);
    ASSERT_TRUE(panel.wait_for(1));
    EXPECT_EQ(panel.connections(), std::vector<std::string>{std::string("\x23\x00\xff", 3)});
    EXPECT_EQ(open_descriptors(), descriptors);
}

TEST(KeyboardSocket, FailsForBytesThatCannotBeSentAndCloses)
{
    PanelProgram panel;
    const size_t descriptors = open_descriptors();
    EXPECT_EQ(kb_socket_sender(LOCALHOST, nullptr, 1), 1); // EFAULT
    ASSERT_TRUE(panel.wait_for(1));
    EXPECT_EQ(panel.connections(), std::vector<std::string>{""});
    EXPECT_EQ(open_descriptors(), descriptors);
}

TEST(KeyboardSocket, FailsWithoutAListenerAndCloses)
{
    uint8_t code = 1;
    const size_t descriptors = open_descriptors();
    EXPECT_EQ(kb_socket_sender(LOCALHOST, &code, 1), 1);
    EXPECT_EQ(open_descriptors(), descriptors);
}

TEST(KeyboardSocket, WithoutItsLimitsItDoesNotConnectAndLeavesTheSocketOpen)
{
    PanelProgram panel;
    uint8_t code = 1;
    for (const int option : {SO_RCVTIMEO, SO_SNDTIMEO}) {
        refuse_socket_option(option);
        const size_t descriptors = open_descriptors();
        EXPECT_EQ(kb_socket_sender(LOCALHOST, &code, 1), 1);
        EXPECT_EQ(open_descriptors(), descriptors + 1);
    }
    refuse_socket_option(0);
    EXPECT_EQ(panel_attempts(), 0u);
}

TEST(KeyboardSocket, FailsForAnInvalidAddressAndCloses)
{
    uint8_t code = 1;
    const size_t descriptors = open_descriptors();
    EXPECT_EQ(kb_socket_sender("localhost", &code, 1), 1);
    EXPECT_EQ(kb_socket_sender("", &code, 1), 1);
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(panel_attempts(), 0u);
}

TEST(KeyboardSocket, GivesUpOnAListenerThatNeverAcceptsWithinItsLimit)
{
    const int listener = listen_on_loopback("127.0.0.1", 0);
    redirect_panel_port(local_port(listener));
    uint8_t code = 1;
    int failed = 0;
    for (int attempt = 0; attempt < 3; ++attempt) { // the first ones wait in the listener's queue
        failed += kb_socket_sender(LOCALHOST, &code, 1);
    }
    EXPECT_GE(failed, 1);
    EXPECT_EQ(kb_socket_sender(LOCALHOST, &code, 1), 1);
    redirect_panel_port(0);
    ::close(listener);
}

} // namespace

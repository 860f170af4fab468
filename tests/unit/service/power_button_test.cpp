#include "service/power_button.h"

#include "board/current_board.h"
#include "orvan_sdk/IOrvanDeviceManager.h"
#include "service/process.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <hw/hw.h>
#include <poll.h>
#include <syslog.h>
#include <wiringPi.h>

using namespace orvan_service;
using namespace orvan_test;

namespace {

constexpr int kPin = 22;

/** The button of a portable board, and nothing else of a device. */
class Device : public HaldeElec::Orvan::IOrvanDeviceManager {
public:
    bool Initialized() override { return true; }
    bool Connected() override { return true; }
    bool InitHW() override { return true; }
    int GetHardware(uint8_t*) override { return 0; }
    int GetOption(uint8_t*, size_t) override { return 0; }
    int GetOptionsTable(void**, size_t*) override { return 0; }
    bool SetupPowerButtonIrq(void (*handler)()) override
    {
        return wiringPiISR(kPin, INT_EDGE_FALLING, handler) >= 0;
    }
    void WaitPowerButtonRelease() override
    {
        ++waits;
        while (digitalRead(kPin) == 0) {
            hw_delay_us(50000);
        }
    }
    int detectDevicePin() const override { return 0; }
    void RunKbdServer() override {}
    int bit_register() override { return 0; }

    std::atomic<int> waits = 0;
};

class PowerButtonTest : public ::testing::Test {
protected:
    bool stop_requested() const
    {
        pollfd waiting{stop.descriptor(), POLLIN, 0};
        return ::poll(&waiting, 1, 0) > 0;
    }
    void press(bool down)
    {
        board->power_button(down);
        ASSERT_TRUE(board->gpio().wait_for_handlers());
    }

    LogCapture log;
    sim_board::InstalledBoard board{sim_board::kPortableWiring};
    StopRequest stop;
    Device device;
    bool set_up = wiringPiSetup() == 0;
    PowerButton button{device};
};

TEST_F(PowerButtonTest, AsksForTheEndOnceAndLogsIt)
{
    EXPECT_FALSE(stop_requested());
    press(true);
    EXPECT_TRUE(stop_requested());
    press(false);
    press(true); // it bounces
    EXPECT_EQ(log.lines(), (std::vector<LogLine>{{LOG_NOTICE, "power button pressed"}}));
}

TEST_F(PowerButtonTest, ItsReleaseIsAwaited)
{
    press(true);
    std::thread ending([&] { button.wait_for_release(); });
    ASSERT_TRUE(board->clock().wait_for_sleepers(1));
    board->clock().advance(50000);
    ASSERT_TRUE(board->clock().wait_for_sleepers(1)) << "still held";
    press(false);
    board->clock().advance(50000);
    ending.join();
    EXPECT_EQ(device.waits, 1);
}

TEST_F(PowerButtonTest, AnEndForAnotherReasonWaitsForNothing)
{
    StopRequest::request();
    EXPECT_TRUE(stop_requested());
    button.wait_for_release();
    EXPECT_EQ(device.waits, 0);
    EXPECT_TRUE(log.lines().empty());
}

} // namespace

// The portable's battery and charge monitor from start to shutdown.

#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include <syslog.h>

#include "portable_start_bench.h"

using namespace board_test;

namespace {

using Lines = std::vector<std::string>;

TEST_F(PortableStart, TheBatteryOptionWithoutABatteryRunsNoChargeMonitor)
{
    without_battery();
    start();
    EXPECT_EQ(settings().options & 0x800, 0x800);
    EXPECT_FALSE(device->batteryOn);
    EXPECT_TRUE(threads(2)) << "fans and temperature";
    uint16_t charge = 0xffff;
    EXPECT_EQ(device->GetBatteryCharge(charge), 0);
    EXPECT_EQ(charge, 0);
    EXPECT_EQ(record().SYSTEM.Battery, -1);
    EXPECT_EQ(record().SYSTEM.CurrentStatus, 0);
    board->trace().clear();
    EXPECT_TRUE(board->clock().run(60 * kSecond, 2));
    EXPECT_TRUE(board->trace().lines_with({"i2c 0x0b", "i2c 0x09"}).empty());
    EXPECT_EQ(record().SYSTEM.Battery, -1);
}

TEST_F(PortableStart, ABatteryWithoutItsOptionRunsNoChargeMonitor)
{
    without_battery();
    start();
    settings().options &= static_cast<uint16_t>(~0x800);
    store_settings();
    board->battery()->set_fitted(true);
    restart();
    EXPECT_TRUE((PortableDeviceTestPeer{static_cast<OrvanPortableDevice&>(*device)}.battery_is_alive()));
    EXPECT_FALSE(device->batteryOn);
    EXPECT_TRUE(threads(2));
    uint16_t charge = 0xffff;
    EXPECT_EQ(device->GetBatteryCharge(charge), 0);
    EXPECT_EQ(charge, 0);
}

/** How the charge monitor's readings change. */
struct ChargeHistory {
    void read(unsigned percentage)
    {
        shown = percentage <= 30 ? 0 : static_cast<int>(percentage - 30) * 100 / 70;
        power = shown == 0 ? false : shown >= 5 ? true : power;
        last = percentage;
    }

    int shown = -1;
    bool power = true;
    unsigned last = 0;
};

TEST_F(PortableStart, ABatteryIsFollowedFromFullToEmptyAndBack)
{
    in_a_process_that_ends([this] {
        using sim_board::SmartBattery;
        board->battery()->set_flow(SmartBattery::Flow::kDrain);
        start();
        EXPECT_TRUE(device->Initialized());
        EXPECT_TRUE(device->batteryOn);
        ASSERT_TRUE(threads(3)) << "fans, temperature and charge";

        const auto run = [this](SmartBattery::Flow flow, int status) {
            ChargeHistory history;
            history.power = board->module_power();
            Lines switches;
            board->battery()->set_flow(flow);
            // A reading at every percent: simulating the hours in between would take some 100,000 thread
            // switches.
            for (int done = 0; done <= 100; ++done) {
                board->battery()->set_charge(flow == SmartBattery::Flow::kDrain ? 100 - done : done);
                board->trace().clear();
                if (!board->clock().run(5 * kSecond, 3)) {
                    ADD_FAILURE() << "a thread hangs";
                    return switches;
                }
                for (const std::string& line :
                     board->trace().lines_with({"i2c 0x0b [0x0d]", "i2c 0x20 [0x14] ="})) {
                    unsigned percentage = 0;
                    if (std::sscanf(line.c_str(), "i2c 0x0b [0x0d] -> %x", &percentage) == 1) {
                        history.read(percentage);
                    } else {
                        switches.push_back(std::to_string(history.last) + "%: " + line.substr(9));
                    }
                }
                EXPECT_EQ(record().SYSTEM.Battery, history.shown);
                EXPECT_EQ(board->module_power(), history.power);
                const bool flows = history.last > 0 && history.last < 100;
                EXPECT_TRUE(record().SYSTEM.CurrentStatus == status ||
                            (!flows && record().SYSTEM.CurrentStatus == 0));
            }
            EXPECT_EQ(history.last, flow == SmartBattery::Flow::kDrain ? 0u : 100u);
            EXPECT_EQ(record().SYSTEM.CurrentStatus, 0);
            return switches;
        };
        EXPECT_EQ(run(SmartBattery::Flow::kDrain, -1), Lines{"30%: [0x14] = 0x18"});
        EXPECT_EQ(run(SmartBattery::Flow::kFill, 1), Lines{"34%: [0x14] = 0x98"});
        uint16_t charge = 0;
        EXPECT_EQ(device->GetBatteryCharge(charge), 0);
        EXPECT_EQ(charge, 100);
    });
}

TEST_F(PortableStart, ARemovedBatteryLeavesItsLastCharge)
{
    in_a_process_that_ends([this] {
        board->battery()->set_charge(80);
        board->battery()->set_flow(sim_board::SmartBattery::Flow::kRest);
        start();
        ASSERT_TRUE(threads(3));
        EXPECT_EQ(record().SYSTEM.Battery, 71);
        board->battery()->set_fitted(false);
        logs.clear();
        board->trace().clear();
        // A round is five short waits and a long one.
        ASSERT_TRUE(board->clock().run(5 * kSecond + 2 * (5 * kSecond + 500'000), 3));
        EXPECT_EQ(logs.count(LOG_INFO, "ChargeMonitor: Battery access failed"), 2u);
        EXPECT_EQ(board->trace().lines_with({"i2c 0x0b open -> ENXIO"}).size(), 13u);
        EXPECT_EQ(record().SYSTEM.Battery, 71);
        EXPECT_TRUE(board->module_power());
    });
}

TEST_F(PortableStart, ChargeMonitorsOfAProcessShareTheModulesState)
{
    in_a_process_that_ends([this] {
        board->battery()->set_charge(20);
        board->battery()->set_flow(sim_board::SmartBattery::Flow::kRest);
        start();
        ASSERT_TRUE(threads(3));
        EXPECT_FALSE(board->module_power());
        ASSERT_TRUE(board->clock().run(kSecond, 3)); // so that the two threads are never awake at once
        board->trace().clear();
        std::thread([this] {
            PortableDeviceTestPeer{static_cast<OrvanPortableDevice&>(*device)}.charge_monitor();
        }).detach();
        ASSERT_TRUE(threads(4));
        ASSERT_TRUE(board->clock().run(10 * kSecond, 4));
        EXPECT_EQ(board->trace().lines_with({"i2c 0x0b [0x0d]"}).size(), 5u);
        EXPECT_TRUE(board->trace().lines_with({"i2c 0x20 [0x14]"}).empty()) << "it is off already";

        board->battery()->set_charge(80);
        ASSERT_TRUE(board->clock().run(10 * kSecond, 4));
        EXPECT_EQ(board->trace().lines_with({"i2c 0x20 [0x14] ="}).size(), 1u) << "one has switched it on";
        EXPECT_TRUE(board->module_power());
    });
}

TEST_F(PortableStart, DestructionWaitsForARunningChargeMonitor)
{
    in_a_process_that_ends([this] {
        start();
        ASSERT_TRUE(threads(3));
        std::atomic<bool> ended = false;
        std::thread([&] {
            delete device.release();
            ended = true;
        }).detach();
        board->trace().clear();
        for (int seconds = 0; seconds < 60; ++seconds) {
            ASSERT_TRUE(board->clock().run(kSecond, 3)) << "all three threads keep running";
        }
        EXPECT_FALSE(ended);
        EXPECT_EQ(board->trace().lines_with({"i2c 0x0b open"}).size(), 12u);
    });
}

} // namespace

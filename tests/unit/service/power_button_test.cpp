#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <semaphore>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <poll.h>
#include <syslog.h>

#include <gtest/gtest.h>

#include "board/current_board.h"
#include "orvan_sdk/Benchtop/OrvanBenchtopDevice.h"
#include "orvan_sdk/Portable/OrvanPortableDevice.h"
#include "orvan_sdk/ksr7000/OrvanKsr7000Device.h"
#include "service/power_button.h"
#include "service/process.h"
#include "support/log_capture.h"

using namespace HaldeElec::Orvan;
using namespace orvan_service;
using namespace orvan_test;

namespace {

/** A device's button, and the waits for its release. */
class Device : public IOrvanDeviceManager {
public:
    explicit Device(std::unique_ptr<IOrvanDeviceManager> real) : m_real(std::move(real)) {}

    bool Initialized() override { return true; }
    bool Connected() override { return true; }
    bool InitHW() override { return m_real->InitHW(); }
    int GetHardware(uint8_t*) override { return 0; }
    int GetOption(uint8_t*, size_t) override { return 0; }
    int GetOptionsTable(void**, size_t*) override { return 0; }
    bool SetupPowerButtonIrq(void (*handler)()) override { return m_real->SetupPowerButtonIrq(handler); }
    void WaitPowerButtonRelease() override
    {
        ++waits;
        m_real->WaitPowerButtonRelease();
        released.release();
    }
    int detectDevicePin() const override { return 0; }
    void RunKbdServer() override {}
    int bit_register() override { return 0; }

    bool wait_for_release() { return released.try_acquire_for(std::chrono::seconds(10)); }

    std::atomic<int> waits = 0;
    std::counting_semaphore<> released{0};

private:
    std::unique_ptr<IOrvanDeviceManager> m_real;
};

template <class RealDevice>
std::unique_ptr<IOrvanDeviceManager> make()
{
    return std::make_unique<RealDevice>("/dev/null", 4);
}

struct Platform {
    const char* name;
    const sim_board::BoardWiring& wiring;
    std::unique_ptr<IOrvanDeviceManager> (*make_device)();
    bool reports_release; /**< the expander interrupts on either edge */
};
const Platform kPlatforms[] = {
    {"Portable", sim_board::kPortableWiring, make<OrvanPortableDevice>, false},
    {"Benchtop", sim_board::kBenchtopWiring, make<OrvanBenchtopDevice>, true},
    {"Ksr7000", sim_board::kKsr7000Wiring, make<OrvanKsr7000Device>, true},
};

class PowerButtonTest : public ::testing::TestWithParam<Platform> {
protected:
    void SetUp() override
    {
        board->spi().set_node_present("/dev/spidev0.1", false);
        const sim_board::SelfAdvancing self{board->clock()};
        device.emplace(GetParam().make_device()); // its start ends at the bus
        device->InitHW();
        log.clear();
    }
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
    /** After the wait at start-up. */
    void make_button()
    {
        button.emplace(*device);
        ASSERT_TRUE(device->wait_for_release());
    }
    std::vector<LogLine> notices() const
    {
        std::vector<LogLine> found;
        for (const LogLine& line : log.lines()) {
            if (line.priority == LOG_NOTICE) {
                found.push_back(line);
            }
        }
        return found;
    }

    LogCapture log;
    sim_board::InstalledBoard board{GetParam().wiring};
    StopRequest stop;
    std::optional<Device> device;
    std::optional<PowerButton> button;
};
INSTANTIATE_TEST_SUITE_P(Platforms, PowerButtonTest, ::testing::ValuesIn(kPlatforms),
                         [](const auto& tested) { return std::string(tested.param.name); });

const LogLine kPressed{LOG_NOTICE, "power button pressed"};

TEST_P(PowerButtonTest, RequestsTheEndOnceAndLogsIt)
{
    make_button();
    EXPECT_FALSE(stop_requested());
    press(true);
    EXPECT_TRUE(stop_requested());
    press(false);
    press(true); // it bounces
    EXPECT_EQ(notices(), std::vector{kPressed});
}

TEST_P(PowerButtonTest, APressDuringStartUpIsForgottenAndTheNextOneCounts)
{
    press(true);
    press(false);
    make_button();
    EXPECT_FALSE(stop_requested());
    EXPECT_TRUE(notices().empty());
    press(true);
    EXPECT_TRUE(stop_requested());
    EXPECT_EQ(notices(), std::vector{kPressed});
}

TEST_P(PowerButtonTest, AButtonThatIsHeldDoesNotDelayStartUp)
{
    press(true);
    button.emplace(*device);
    ASSERT_TRUE(board->clock().wait_for_sleepers(1)) << "for the release";
    press(false);
    board->clock().advance(50000);
    ASSERT_TRUE(device->wait_for_release());
    ASSERT_TRUE(board->gpio().wait_for_handlers());
    EXPECT_EQ(stop_requested(), GetParam().reports_release);
    press(true);
    EXPECT_TRUE(stop_requested());
}

TEST_P(PowerButtonTest, WaitsForItsRelease)
{
    make_button();
    press(true);
    std::thread ending([&] { button->wait_for_release(); });
    ASSERT_TRUE(board->clock().wait_for_sleepers(1));
    board->clock().advance(50000);
    ASSERT_TRUE(board->clock().wait_for_sleepers(1)) << "still held";
    press(false);
    board->clock().advance(50000);
    ending.join();
    EXPECT_EQ(device->waits, 2);
}

TEST_P(PowerButtonTest, AnEndForAnotherReasonWaitsForNothing)
{
    make_button();
    StopRequest::request();
    EXPECT_TRUE(stop_requested());
    button->wait_for_release();
    EXPECT_EQ(device->waits, 1) << "that of the start";
    EXPECT_TRUE(notices().empty());
}

} // namespace

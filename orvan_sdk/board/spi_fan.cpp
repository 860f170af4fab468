#include "spi_fan.h"

#include <cstdint>
#include <string>

#include "board/fan_test.h"
#include "board/spi_multiplexer.h"
#include "hw/hw.h"
#include "orvan_sdk/IDeviceConnectionHandler.h"
#include "orvan_sdk/IOrvanDeviceManager.h"
#include "orvan_sdk/OrvanDebug.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"

namespace HaldeElec::Orvan {
namespace {

constexpr double HIGH_TEMP = 100; // without a module service
constexpr uint64_t kPeriodUs = 120'000'000;

// Smaller values mean more cooling.
constexpr uint8_t kFixedDrive = 0x19;
constexpr uint8_t kFullDrive = 0x00;
constexpr struct {
    double below;
    uint8_t drive;
} kBands[] = {
    {48.0, 0x7F},
    {58.0, 0x3F},
};

uint8_t drive_value(double temp)
{
    for (const auto& [below, drive] : kBands) {
        if (temp < below) {
            return drive;
        }
    }
    return kFullDrive;
}

} // namespace

int send_fan_speed(IOrvanDeviceManager& device, double temp)
{
    // The third platform also logs the benchtop's name.
    OrvanDebug::Log("OrvanBenchtopDevice::fanSpeed start", true);
    uint32_t lastChannel = 0;
    device.GetSelectChannel(lastChannel);
    device.SetSelectChannel(kFanChannel);
    const uint8_t spi_bytes[3] = {0, 0, device.GetFanMode() != 0 ? kFixedDrive : drive_value(temp)};
    uint8_t out_vec[3] = {};
    const int err = device.GetSPIhandler()->DataTransfer(spi_bytes, out_vec, sizeof spi_bytes);
    device.SetSelectChannel(lastChannel);
    return err;
}

void control_spi_fan(const std::atomic<bool>& run, std::mutex& bus, BITManager* const& manager,
                     const std::function<int(double temp)>& update)
{
    FanTest test;
    while (run) {
        double maxTemp = HIGH_TEMP;
        if (Scpi_Orvanx* const modules = Scpi_Orvanx::getInstance()) {
            maxTemp = modules->getTempMaxOrvanx();
        }
        OrvanDebug::Log("Temperature: " + std::to_string(maxTemp), true);
        bus.lock();
        const int err = update(maxTemp);
        bus.unlock();

        if (manager != nullptr) {
            // The count before this cycle: a failure shows two minutes later.
            test.report(*manager);
            test.count(err != 0);
        }
        hw_delay_us(kPeriodUs);
    }
}

} // namespace HaldeElec::Orvan

#include <syslog.h>

#include "board/expanders.h"
#include "board/fan_test.h"
#include "board/mcp23017.h"
#include "hw/hw.h"
#include "orvan_sdk/Portable/OrvanPortableDevice.h"
#include "orvan_sdk/i2cdev.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include "portable_board.h"

namespace HaldeElec::Orvan {
namespace {

constexpr double kFastFrom = 54.0; // degrees Celsius
constexpr double kSlowBelow = 52.0;
constexpr uint64_t kCycleUs = 5'000'000;
constexpr uint64_t kCycleAfterErrorUs = 1'000'000;

// Between the two temperatures the fans keep their speed.
uint8_t fan_port(uint8_t port, double temperature, bool fixed)
{
    if (fixed || temperature >= kFastFrom) {
        return static_cast<uint8_t>(port & ~kFansSlow);
    }
    if (temperature < kSlowBelow) {
        return port | kFansSlow;
    }
    return port;
}

} // namespace

void OrvanPortableDevice::fan_control(IDeviceConnectionHandler*)
{
    I2CFd exp(kExpanderAddress); // open for the life of the thread
    if (!exp.isOpen()) {
        ::syslog(LOG_ERR, "%s: failed to open i2c, addr: %xh", __func__, unsigned{kExpanderAddress});
        return;
    }
    uint8_t val = 0;
    exp.read8(GPIOA, val);
    exp.write8(GPIOA, static_cast<uint8_t>((val & ~kFansInReset) | kFansSlow));
    if (exp.status != 0) {
        ::syslog(LOG_ERR, "%s: failed to take fans out of reset", __func__);
    }

    FanTest test;
    while (m_runFanThread) {
        const double maxTemp = Scpi_Orvanx::getInstance()->getTempMaxOrvanx();
        if (exp.read8(GPIOA, val) == 0) {
            exp.write8(GPIOA, fan_port(val, maxTemp, fixedPwmFan));
        }
        if (m_bitManager != nullptr) {
            test.report(*m_bitManager);
        }
        const bool failed = exp.status != 0;
        test.count(failed);
        exp.status = 0; // the handle stays in use
        hw_delay_us(failed ? kCycleAfterErrorUs : kCycleUs);
    }
}

} // namespace HaldeElec::Orvan

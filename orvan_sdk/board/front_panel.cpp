#include "front_panel.h"

#include <cstdint>

#include <syslog.h>

#include <wiringPi.h>

#include "board/expanders.h"
#include "board/mcp23017.h"
#include "hw/hw.h"
#include "orvan_sdk/i2cKeyboard/i2cKeyboard.h"
#include "orvan_sdk/i2cdev.h"

namespace HaldeElec::Orvan {
namespace {

constexpr int I2C_INTC = 2; // pin of the expander's interrupt
constexpr uint8_t kPressed = 0x40;
constexpr uint64_t kPollUs = 50000;

} // namespace

bool set_up_power_button(void (*handler)())
{
    if (wiringPiISR(I2C_INTC, INT_EDGE_RISING, handler) >= 0) {
        return true;
    }
    ::syslog(LOG_USER | LOG_ERR, "%s: unable to setup ISR on pin %d", "SetupPowerButtonIrq", I2C_INTC);
    return false;
}

void await_power_button_release()
{
    static constexpr char kCaller[] = "WaitPowerButtonRelease";
    I2CFd exp(kExpanderAddress);
    if (!exp.isOpen()) {
        ::syslog(LOG_USER | LOG_ERR, "%s: expander %xh not reachable", kCaller, kExpanderAddress);
        return;
    }
    uint8_t port = 0;
    exp.read8(INTCAPB, port);
    exp.read8(GPIOB, port);
    for (;;) {
        if (exp.read8(GPIOB, port) != 0) {
            ::syslog(LOG_ERR, "%s: failed to read GPIO expander, aborting wait", kCaller);
            return;
        }
        if ((port & kPressed) == 0) {
            return;
        }
        hw_delay_us(kPollUs);
    }
}

void start_keyboard()
{
    if (kb_setup() != 0) {
        ::syslog(LOG_ERR, "%s: unable to setup I2C ISR", "RunKbdServer");
    }
    i2cIRQhandler();
}

} // namespace HaldeElec::Orvan

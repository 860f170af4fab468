#include "power_button.h"

#include <atomic>
#include <thread>

#include <syslog.h>

#include "orvan_sdk/IOrvanDeviceManager.h"
#include "process.h"

namespace orvan_service {
namespace {

std::atomic<bool> g_pressed{false};

// Runs on the interrupt's thread; a button may bounce.
void on_press()
{
    if (!g_pressed.exchange(true)) {
        ::syslog(LOG_NOTICE, "power button pressed");
        StopRequest::request();
    }
}

} // namespace

PowerButton::PowerButton(HaldeElec::Orvan::IOrvanDeviceManager& device) : m_device(device)
{
    g_pressed = false;
    m_device.SetupPowerButtonIrq(on_press);
    // A press during start-up has left the expander's interrupt pending, and no edge would ever follow.
    // Waiting for the release clears it. On a separate thread, as a held or stuck button must delay neither
    // the start nor the end of the service.
    std::thread([&device] { device.WaitPowerButtonRelease(); }).detach();
}

void PowerButton::wait_for_release()
{
    if (g_pressed) {
        m_device.WaitPowerButtonRelease();
    }
}

} // namespace orvan_service

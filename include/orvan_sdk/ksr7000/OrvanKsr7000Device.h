/**
 * The third platform: one channel, the benchtop's front panel and fan, the portable's battery.
 */
#ifndef ORVAN_SDK_KSR7000_ORVANKSR7000DEVICE_H
#define ORVAN_SDK_KSR7000_ORVANKSR7000DEVICE_H

#include <atomic>
#include <thread>

#include "orvan_sdk/IOrvanDeviceManager.h"
#include "orvan_sdk/orvan_api.h"

namespace HaldeElec::Orvan {

/**
 * The fan thread and, with a battery, the charge monitor run from the constructor on. Its only routing is
 * the RF output; the trigger impedance is only stored.
 */
class ORVAN_API OrvanKsr7000Device : public IOrvanDeviceManager {
public:
    /**
     * Starts the instrument, which takes up to a minute if its module does not answer. Hardware that fails
     * is logged and skipped; without a connection handler, an SPI port or an owner of settings it returns
     * early, with Initialized() false and no thread started.
     *
     * @param log_path log file of OrvanDebug, which is emptied
     * @param log_mode OrvanDebug::SetLogMode
     */
    OrvanKsr7000Device(const char* log_path, int log_mode);

    /** Ends the charge monitor, which may sleep for 5 seconds, then the fan thread, which can take two
     * minutes, and the maintenance server, which waits for one more frame. */
    ~OrvanKsr7000Device() override;

    bool Initialized() override { return initialized; }
    bool Connected() override { return connected; }

    /**
     * Resets and sets up the port expanders, 2 seconds and more, sets up the charge controller, and finds out
     * whether a battery answers. An I2C device that can't be opened counts as not fitted and is skipped.
     *
     * @return false, and logged, at the first part that failed; later parts are not touched
     */
    bool InitHW() override;

    /** Kept for the selected channel, and nothing more. @return 0 */
    int SetTriggerInpImp(OnOff value) override;
    int GetTriggerInpImp(OnOff& value) override;

    /**
     * RF output enable of the selected channel.
     *
     * @return 0; -1 without settings, for a channel that is not installed or has no such switch, without an
     *         expander, and, logged, when an access failed
     */
    int SetRFOutput(OnOff value) override;

    int GetHardware(uint8_t* value) override;
    int GetOption(uint8_t* value, size_t size) override;
    int GetOptionsTable(void** table, size_t* size) override;

    /** Charge of the battery in percent; 0 without one, and, logged, when it does not answer. @return 0 */
    int GetBatteryCharge(uint16_t& percentage) override;

    bool SetupPowerButtonIrq(void (*handler)()) override;
    void WaitPowerButtonRelease() override;
    int detectDevicePin() const override { return 1; }
    void RunKbdServer() override;
    int bit_register() override;

private:
    friend struct Ksr7000DeviceTestPeer;

    // Bodies of the fan thread and the charge monitor.
    void fanController();
    void ChargeMonitor();
    // One update of the fan drive; the caller holds the bus. 0 or -1
    int fanSpeed(double temp);
    // One reading of the battery, and the wait until the next one.
    void charge_cycle(int& retry);

    std::atomic<bool> m_runFanThread = false;
    std::thread m_fanThread;
    std::atomic<bool> m_runChargerThread = false;
    std::thread m_chargerThread;
};

} // namespace HaldeElec::Orvan

#endif

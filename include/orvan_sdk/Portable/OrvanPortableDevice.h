/**
 * The portable: one channel, a battery, no routing.
 */
#ifndef ORVAN_SDK_PORTABLE_ORVANPORTABLEDEVICE_H
#define ORVAN_SDK_PORTABLE_ORVANPORTABLEDEVICE_H

#include <atomic>
#include <thread>

#include "orvan_sdk/IOrvanDeviceManager.h"
#include "orvan_sdk/orvan_api.h"

namespace HaldeElec::Orvan {

/**
 * The fan thread and, with a battery, the charge monitor run from the constructor on. The fan thread uses
 * the expander without the bus lock, so it and turn_orvanx_on may overwrite each other's change of port A.
 */
class ORVAN_API OrvanPortableDevice : public IOrvanDeviceManager {
public:
    /**
     * Starts the instrument, which takes up to a minute if a module does not answer.
     *
     * @param log_path log file of OrvanDebug, which is emptied
     * @param log_mode OrvanDebug::SetLogMode
     */
    OrvanPortableDevice(const char* log_path, int log_mode);

    /** Waits for the fan thread, which sleeps up to 5 seconds, and for one more maintenance frame.
     *  Never returns while a charge monitor is running. */
    ~OrvanPortableDevice() override;

    bool Initialized() override { return initialized; }
    bool Connected() override { return connected; }

    /**
     * Sets up pins, charge controller and expander, and finds out whether a battery answers. An I2C device
     * that can't be opened counts as not fitted and is skipped.
     *
     * @return false, and logged, when charge controller or expander failed; later parts are not touched
     */
    bool InitHW() override;

    /** No trigger source can be chosen. @return 0 */
    int SetTriggerSource(TriggerSource value) override;
    /** Kept for the selected channel, and nothing more. @return 0 */
    int SetTriggerInpImp(OnOff value) override;
    int GetTriggerInpImp(OnOff& value) override;

    int GetHardware(uint8_t* value) override;
    int GetOption(uint8_t* value, size_t size) override;
    int GetOptionsTable(void** table, size_t* size) override;

    /** Charge of the battery in percent; 0 without one, and, logged, when it does not answer. @return 0 */
    int GetBatteryCharge(uint16_t& percentage) override;

    /** Calls `handler` when the button is pressed. @return false, and logged, without the interrupt */
    bool SetupPowerButtonIrq(void (*handler)()) override;
    /** Polls the button until it is released. */
    void WaitPowerButtonRelease() override;

    /**
     * Switches the supply of the channel module.
     * @return 0, also where no expander is fitted; -1, and logged, when an access failed
     */
    int turn_orvanx_on(bool on);

    int detectDevicePin() const override { return 0; }
    /** There is no keypad. */
    void RunKbdServer() override {}
    int bit_register() override;
    double tempSensorReadConvert(uint32_t value) override;

private:
    friend struct PortableDeviceTestPeer;

    // Thread bodies. The charge monitor never ends.
    void fan_control(IDeviceConnectionHandler* devConnHandler);
    void ChargeMonitor();

    // Reads the battery, acts on the reading and waits until the next one is due.
    void charge_cycle(int& retry, bool& orvanx_on);

    std::atomic<bool> m_runFanThread = false;
    std::thread m_fanThread;
    std::atomic<bool> m_runChargerThread = false;
    std::thread m_chargerThread;
};

} // namespace HaldeElec::Orvan

#endif

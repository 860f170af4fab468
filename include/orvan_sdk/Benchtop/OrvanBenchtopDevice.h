/**
 * The benchtop: up to four channel modules, trigger coupling between them, and external modulation.
 */
#ifndef ORVAN_SDK_BENCHTOP_ORVANBENCHTOPDEVICE_H
#define ORVAN_SDK_BENCHTOP_ORVANBENCHTOPDEVICE_H

#include <atomic>
#include <thread>

#include "orvan_sdk/IOrvanDeviceManager.h"
#include "orvan_sdk/orvan_api.h"

namespace HaldeElec::Orvan {

/**
 * Its constructor is the start-up of the whole library on this platform. Hardware that fails and modules that
 * do not answer are logged and skipped; without a connection handler, an SPI port or an owner of settings
 * it returns early, with Initialized() false and no thread started.
 *
 * The routing operations work on the selected channel and return the connection handler's result
 * (OrvanConnBenchtop). They do not take the bus lock.
 *
 * Final, as the constructor starts a thread on the object.
 */
class ORVAN_API OrvanBenchtopDevice final : public IOrvanDeviceManager {
public:
    /**
     * Waits up to 60 seconds for the modules, in addition to setting them up.
     *
     * @param log_path log file of OrvanDebug, which is emptied
     * @param log_mode OrvanDebug::SetLogMode
     */
    OrvanBenchtopDevice(const char* log_path, int log_mode);
    /** Ends the fan thread, which may sleep for up to two minutes, and the maintenance server, which waits
     * for one more frame. */
    ~OrvanBenchtopDevice() override;

    bool Initialized() override { return initialized; }
    bool Connected() override { return connected; }

    /** Resets and sets up the port expanders, 3 seconds and more. One that is not fitted is skipped until
     *  the external modulations are reset. @return false, and logged, at the first part that failed */
    bool InitHW() override;

    /**
     * Applies a coupling to channels 1 to `modulesNo`; the selected channel is selected again.
     * @param coupling an eCoupling
     * @return 0, or the failure of the last channel that failed
     */
    int SetTriggerCouple(int modulesNo, uint8_t coupling) override;

    /** The source is used as the eCoupling of the same number, without translation. */
    int SetTriggerSource(TriggerSource value) override;
    int SetTriggerInpImp(OnOff value) override;
    int GetTriggerInpImp(OnOff& value) override;
    int SetRFOutput(OnOff value) override;

    /** On connects the external input, Off disconnects it. Only AM prints so to standard output, and returns
     *  ERR_FAILED without settings. */
    int SetAMModulationSource(OnOff value) override;
    int SetFMModulationSource(OnOff value) override;
    int SetPulseModulationSource(OnOff value) override;

    int GetHardware(uint8_t* value) override;
    int GetOption(uint8_t* value, size_t size) override;
    int GetOptionsTable(void** table, size_t* size) override;

    bool SetupPowerButtonIrq(void (*handler)()) override;
    void WaitPowerButtonRelease() override;
    int detectDevicePin() const override { return 1; }
    void RunKbdServer() override;
    int bit_register() override;

private:
    friend struct BenchtopDeviceTestPeer;

    // Body of the fan thread.
    void fanController();
    // One update of the fan drive; the caller holds the bus. 0 or -1
    int fanSpeed(double temp);

    std::atomic<bool> m_runFanThread = false;
    std::thread m_fanThread;
};

} // namespace HaldeElec::Orvan

#endif

/**
 * A device that implements only the pure virtual functions.
 */
#ifndef ORVAN_TESTS_BOARD_BARE_DEVICE_H
#define ORVAN_TESTS_BOARD_BARE_DEVICE_H

#include "orvan_sdk/IOrvanDeviceManager.h"
#include "support/stand_ins.h"

namespace board_test {

/** Requires the stand-ins to construct. */
class BareDevice : public HaldeElec::Orvan::IOrvanDeviceManager {
public:
    BareDevice(const orvan_test::StandIns&, HaldeElec::Orvan::CPersistentData* data)
    {
        pPersistentData = data;
    }

    bool Initialized() override { return initialized; }
    bool Connected() override { return connected; }
    bool InitHW() override { return true; }
    int GetHardware(uint8_t*) override { return 0; }
    int GetOption(uint8_t*, size_t) override { return 0; }
    int GetOptionsTable(void**, size_t*) override { return 0; }
    bool SetupPowerButtonIrq(void (*)()) override { return true; }
    void WaitPowerButtonRelease() override {}
    int detectDevicePin() const override { return 0; }
    void RunKbdServer() override {}
    int bit_register() override { return 0; }
};

} // namespace board_test

#endif

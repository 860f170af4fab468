/**
 * A benchtop that runs its complete start.
 */
#ifndef ORVAN_TESTS_BENCHTOP_START_BENCH_H
#define ORVAN_TESTS_BENCHTOP_START_BENCH_H

#include <cstring>
#include <memory>

#include "benchtop_device_peer.h"
#include "start_bench.h"

namespace board_test {

class BenchtopStart : public StartBench {
protected:
    BenchtopStart() : StartBench(sim_board::kBenchtopWiring) {}
    std::unique_ptr<HaldeElec::Orvan::IOrvanDeviceManager> make_device() override
    {
        return std::make_unique<HaldeElec::Orvan::OrvanBenchtopDevice>("/dev/null", kLogToCallback);
    }

    /** Settings of a four-channel instrument that a start leaves unchanged. */
    static EEPROM_DEVICE_SETTINGS settled_settings()
    {
        EEPROM_DEVICE_SETTINGS record = settings_of_modules();
        record.options = 0x009E; // code 14, MOD, LP
        std::strcpy(record.modelName, "OVX3654B");
        std::strcpy(record.serialNum, "240017");
        record.hardwareVersion = 'D';
        std::strcpy(record.description, "Halde Electronics Ltd.");
        record.numDevices = 4;
        std::strcpy(record.hostName, "bench-4");
        record.maxCwFreq = 20'000'000'000;
        std::strcpy(record.scpiPort, "5025");
        record.device_type = 1;
        record.vendor_id = 0x168c;
        record.product_id = 0x3604;
        std::strcpy(record.fwVersion, "1.19.145");
        return record;
    }
    HaldeElec::Orvan::BenchtopDeviceTestPeer inside()
    {
        return {static_cast<HaldeElec::Orvan::OrvanBenchtopDevice&>(*device)};
    }
};

} // namespace board_test

#endif

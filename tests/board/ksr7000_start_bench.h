/**
 * An instrument of the third platform that runs its complete start.
 */
#ifndef ORVAN_TESTS_KSR7000_START_BENCH_H
#define ORVAN_TESTS_KSR7000_START_BENCH_H

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "ksr7000_device_peer.h"
#include "start_bench.h"

namespace board_test {

inline constexpr uint64_t kSecond = 1'000'000;
inline constexpr TestResult kPass{BIT_PASS, 0};

class Ksr7000Start : public StartBench {
protected:
    Ksr7000Start() : StartBench(sim_board::kKsr7000Wiring) {}
    std::unique_ptr<HaldeElec::Orvan::IOrvanDeviceManager> make_device() override
    {
        return std::make_unique<HaldeElec::Orvan::OrvanKsr7000Device>("/dev/null", kLogToCallback);
    }

    /** Settings with the battery option that a start leaves unchanged. */
    static EEPROM_DEVICE_SETTINGS settled_settings()
    {
        EEPROM_DEVICE_SETTINGS record = settings_of_modules();
        record.options = 0x011E; // code 14, MOD, BAT
        std::strcpy(record.modelName, "KSR-7036");
        std::strcpy(record.serialNum, "240017");
        record.hardwareVersion = 'D';
        std::strcpy(record.description, "Marrick Signal Corp.");
        record.numDevices = 1;
        std::strcpy(record.hostName, "bench-1");
        record.maxCwFreq = 20'000'000'000;
        std::strcpy(record.scpiPort, "5025");
        record.device_type = 1;
        record.vendor_id = 0xb001;
        record.product_id = 0x7036;
        std::strcpy(record.fwVersion, "1.19.148");
        return record;
    }
    void start_without_battery()
    {
        board->battery()->set_fitted(false);
        store(settled_settings());
        start_and_settle();
    }
    void start_with_battery()
    {
        store(settled_settings());
        start_and_let_charge_monitor_settle();
    }
    void start_and_let_charge_monitor_settle()
    {
        start();
        // The monitor may find the bus held by the fan, which waits for the multiplexer to settle.
        pass(kSettlingUs);
        threads = 3;
        ASSERT_TRUE(board->clock().wait_for_sleepers(threads));
        pass(kSettlingUs); // the fan may have been second
    }
    /** Polls the module at its own address. */
    void module_reports(const std::string& celsius)
    {
        Scpi_Orvanx::getInstance()->setSelectedChannel(0);
        module(1).always(ModuleAnswer::reply(celsius + ";+OK\r\n"));
    }
    HaldeElec::Orvan::Ksr7000DeviceTestPeer inside()
    {
        return {static_cast<HaldeElec::Orvan::OrvanKsr7000Device&>(*device)};
    }
    int shown_charge() { return record(1).SYSTEM.Battery; }
    int shown_status() { return record(1).SYSTEM.CurrentStatus; }
};

} // namespace board_test

#endif

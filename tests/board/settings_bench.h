/**
 * The two stores of the settings, an EEPROM on a simulated board and a backup file in a private home, and an
 * owner of settings that can be restarted any number of times.
 */
#ifndef ORVAN_TESTS_SETTINGS_BENCH_H
#define ORVAN_TESTS_SETTINGS_BENCH_H

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>

#include <unistd.h>

#include "board_bench.h"
#include "orvan_sdk/IOrvanDeviceManager.h"
#include "orvan_sdk/bit/bit_manager.h"
#include "orvan_sdk/bit/bit_tests.h"
#include "orvan_sdk/lxi/option_tables.h"
#include "support/bytes.h"
#include "support/log_capture.h"
#include "support/output_capture.h"
#include "support/persistent_data_peer.h"
#include "support/private_home.h"
#include "support/stand_ins.h"

namespace board_test {

using HaldeElec::Orvan::Blob;
using HaldeElec::Orvan::EEPROM_DEVICE_SETTINGS;

inline const std::string kFolder = "/home/orvan/halde/config";
inline const std::string kFile = kFolder + "/flash.ini";

using orvan_test::bytes_of;

class SettingsTest : public BoardTest {
protected:
    static constexpr HaldeElec::Orvan::sDevDefaults_t kDefaults{"OVX3651P", "Halde Electronics Ltd.",
                                                                "230000", "D"};

    void SetUp() override
    {
        if (!home.refusal().empty()) {
            GTEST_SKIP() << home.refusal();
        }
        BITManager* const tests = BITManager::getInstance(0); // with no periodic thread
        if (tests->getTestsNumber(PBIT) == 0) {
            tests->registerTest(PBIT, {kEepromTest});
        }
        connect();
        uint32_t channel = 2;
        handler.SetCommChannel(channel);
        fault = sim_board::insert_fault(board->spi(), "eeprom");
        restart();
        logs.clear();
    }

    /** GoogleTest reports failures on standard output. */
    void TearDown() override
    {
        const std::string output = HasFailure() ? out->text() : "";
        out.reset();
        std::fputs(output.c_str(), stdout);
    }

    /** A new owner, as after a restart of the process. */
    void restart()
    {
        peer.emplace(handler, HaldeElec::Orvan::g_portableModelsTable);
        (*peer)->setEEPROMch(kEepromChannel);
    }
    const HaldeElec::Orvan::sDevArch_t* read_data()
    {
        return (*peer)->readData(&kDefaults, HaldeElec::Orvan::optPortable_Tbl,
                                 HaldeElec::Orvan::kOptionRows);
    }

    /** Result of the EEPROM's power-up test. */
    static int eeprom_test()
    {
        bitReport_t report = {};
        return BITManager::getInstance(0)->getTestResult(PBIT, 0, report) && report.errorCode == ERR_NONE
                   ? report.result
                   : -1;
    }

    static EEPROM_DEVICE_SETTINGS settings(const char* model, const char* serial)
    {
        EEPROM_DEVICE_SETTINGS record;
        std::memset(&record, 0, sizeof record);
        std::strcpy(record.modelName, model);
        std::strcpy(record.serialNum, serial);
        std::strcpy(record.description, "Halde Electronics Ltd.");
        std::strcpy(record.fwVersion, "1.19.140");
        record.numDevices = 1;
        record.bootDBConfig = 9;
        return record;
    }
    Blob blob(const char* serial, uint32_t generation = 57, uint16_t version = 1)
    {
        const EEPROM_DEVICE_SETTINGS record = settings("OVX3651P", serial);
        return peer->build(&record, version, generation);
    }
    static Blob legacy(const char* serial)
    {
        const EEPROM_DEVICE_SETTINGS record = settings("OVX3651P", serial);
        Blob image = {};
        std::memcpy(image.data(), &record, sizeof record);
        return image;
    }
    /** The settings of a new instrument. */
    static EEPROM_DEVICE_SETTINGS factory_settings()
    {
        EEPROM_DEVICE_SETTINGS record;
        std::memset(&record, 0, sizeof record);
        record.options = 0x0818; // code 8, MOD, BAT
        std::strcpy(record.modelName, "OVX3651P");
        std::strcpy(record.serialNum, "230000");
        std::strcpy(record.calibrationDate, "271020");
        record.hardwareVersion = 'D';
        std::strcpy(record.description, "Halde Electronics Ltd.");
        record.numDevices = 1;
        record.dhcpEnabled = 1;
        std::strcpy(record.hostName, "OVX3651P-230000");
        std::strcpy(record.fixIp, "192.168.0.100");
        std::strcpy(record.fixMask, "255.255.255.0");
        std::strcpy(record.mac, "b8:27:eb:4f:3b:7d");
        std::strcpy(record.fixGw, "10.0.0.138");
        std::strcpy(record.dns1, "8.8.8.8");
        std::strcpy(record.dns2, "1.1.1.1");
        record.maxCwFreq = 20'000'000'000;
        record.minCwFreq = 50'000;
        record.defCwFreq = 1'000'000'000;
        record.maxCwPow = 15;
        record.minCwPow = -30;
        record.defCwPow = 5;
        std::strcpy(record.scpiPort, "5025");
        std::strcpy(record.pldVersion, "A-1");
        std::strcpy(record.fwVersion, "01.0.001");
        std::strcpy(record.scpiRevision, "01.0.00");
        return record;
    }
    /** The image's record, signed again. */
    Blob rebuilt(const Blob& image, uint32_t generation) { return peer->build(image.data(), 1, generation); }

    void program(const Blob& image) { board->eeprom().program(0, image); }
    static void put_file(const Blob& image, size_t size = image_size) { put_file(bytes_of(image), size); }
    static void put_file(const Bytes& bytes, size_t size)
    {
        std::filesystem::create_directories(kFolder);
        std::ofstream(kFile, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(size));
    }
    /** Empty for a missing file too. */
    static Bytes file()
    {
        std::ifstream stream(kFile, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(stream), {});
    }
    uint32_t channel()
    {
        uint32_t value = 0;
        handler.GetCommChannel(value);
        return value;
    }
    Bytes cells(size_t from = 0, size_t to = image_size)
    {
        const Bytes all = board->eeprom().contents();
        return {all.begin() + static_cast<std::ptrdiff_t>(from),
                all.begin() + static_cast<std::ptrdiff_t>(to)};
    }

    static constexpr size_t image_size = HaldeElec::Orvan::TOTAL_BLOB_SIZE;

    orvan_test::PrivateHome home;
    orvan_test::StandIns stand_ins;
    orvan_test::LogCapture logs;
    std::optional<orvan_test::OutputCapture> out{std::in_place, STDOUT_FILENO};
    orvan_test::OutputCapture err{STDERR_FILENO};
    std::shared_ptr<sim_board::FaultySpiDevice> fault;
    std::optional<HaldeElec::Orvan::PersistentDataTestPeer> peer;
};

} // namespace board_test

#endif

/**
 * The two stores of the settings as a test finds them: a simulated EEPROM, through which faults can be put,
 * and a folder for the backup file.
 */
#ifndef ORVAN_TESTS_SETTINGS_BENCH_H
#define ORVAN_TESTS_SETTINGS_BENCH_H

#include "board_bench.h"
#include "orvan_sdk/IOrvanDeviceManager.h"
#include "support/log_capture.h"
#include "support/output_capture.h"
#include "support/persistent_data_peer.h"
#include "support/private_home.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <unistd.h>

namespace board_test {

using namespace HaldeElec::Orvan;
using namespace orvan_test;

namespace fs = std::filesystem;

inline const std::string kFolder = "/home/orvan/halde/config";
inline const std::string kFile = kFolder + "/flash.ini";

inline Bytes bytes_of(const Blob& blob)
{
    return {blob.begin(), blob.end()};
}

/** An EEPROM on channel 5, with channel 2 selected, and a backup folder of the test's own. */
class SettingsBench : public BoardTest {
protected:
    void SetUp() override
    {
        if (!home.refusal().empty())
            GTEST_SKIP() << home.refusal();
        connect();
        uint32_t channel = 2;
        handler.SetCommChannel(channel);
        peer.emplace(handler, g_portableModelsTable);
        (*peer)->setEEPROMch(kEepromChannel);
        fault = insert_fault(board->spi(), "eeprom");
        logs.clear();
    }

    static EEPROM_DEVICE_SETTINGS settings(const char* model, const char* serial)
    {
        EEPROM_DEVICE_SETTINGS record;
        std::memset(&record, 0, sizeof record);
        std::strcpy(record.modelName, model);
        std::strcpy(record.serialNum, serial);
        std::strcpy(record.description, "Halde Electronics Ltd.");
        std::strcpy(record.fwVersion, "1.19.140");
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
    void program(const Blob& image) { board->eeprom().program(0, image); }
    static void put_file(const Blob& image, size_t size = TOTAL_BLOB_SIZE)
    {
        fs::create_directories(kFolder);
        std::ofstream(kFile, std::ios::binary)
            .write(reinterpret_cast<const char*>(image.data()), static_cast<std::streamsize>(size));
    }
    static Bytes file()
    {
        std::ifstream stream(kFile, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(stream), {});
    }
    std::string loaded_serial()
    {
        const bool loaded = (*peer)->loadSettings();
        return loaded ? (*peer)->getSettings()->serialNum : "nothing";
    }
    uint32_t channel()
    {
        uint32_t value = 0;
        handler.GetCommChannel(value);
        return value;
    }
    Bytes cells(size_t from, size_t to)
    {
        const Bytes all = board->eeprom().contents();
        return {all.begin() + static_cast<std::ptrdiff_t>(from),
                all.begin() + static_cast<std::ptrdiff_t>(to)};
    }

    PrivateHome home;
    LogCapture logs;
    OutputCapture out{STDOUT_FILENO};
    OutputCapture err{STDERR_FILENO};
    std::shared_ptr<sim_board::FaultySpiDevice> fault;
    std::optional<PersistentDataTestPeer> peer;
};

} // namespace board_test

#endif

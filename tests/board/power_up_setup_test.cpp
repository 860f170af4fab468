// The power-up setup, from the client's command to the two stores of the settings.

#include <csignal>

#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include "settings_bench.h"
#include "support/loopback.h"

using namespace board_test;
using namespace HaldeElec::Orvan;

namespace {

class PowerUpSetup : public SettingsTest {};

// A single case: the process's only owner of the settings keeps this board until it exits.
TEST_F(PowerUpSetup, IsStoredAtOnce)
{
    program(blob("230042"));
    put_file(blob("230042"));
    CPersistentData* const owner = CPersistentData::Init(&handler, g_portableModelsTable);
    owner->setEEPROMch(kEepromChannel);
    ASSERT_NE(owner->readData(&kDefaults, optPortable_Tbl, kOptionRows), nullptr);
    EEPROM_DEVICE_SETTINGS expected = *owner->getSettings();
    ASSERT_EQ(expected.bootDBConfig, 9);
    expected.bootDBConfig = 2;
    std::filesystem::create_directories("/home/orvan/halde/preset/1");
    std::ofstream("/home/orvan/halde/preset/1/preset-2.json") << "{}";

    std::signal(SIGPIPE, SIG_IGN);
    const orvan_test::TcpPair client;
    Scpi_Orvanx* const orvanx = Scpi_Orvanx::getInstance();
    orvanx->setNumberofChannels(1);
    char device;
    orvanx->setDevicePtr(&device); // which this command does not use
    orvanx->setCallerSocket(client.server(), 0);
    std::string command = ":SYST:POW:SET 2\n";
    orvanx->sendScpiToNewParser(command.data(), static_cast<int>(command.size()));

    EXPECT_EQ(orvan_test::read_ready(client.client()), "+OK\r\n");
    const auto* const begin = reinterpret_cast<const uint8_t*>(&expected);
    const Bytes record(begin, begin + sizeof expected);
    EXPECT_EQ(cells(0, sizeof expected), record);
    EXPECT_EQ(file(), cells());
    delete orvanx;
}

} // namespace

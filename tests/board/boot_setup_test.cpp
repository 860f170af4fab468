// The number of the boot setup in the two stores of the settings.

#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include "settings_bench.h"

using namespace board_test;
using namespace HaldeElec::Orvan;

namespace {

class BootSetup : public SettingsTest {
protected:
    Blob blob_with(uint8_t setup, uint32_t generation)
    {
        EEPROM_DEVICE_SETTINGS record = settings("OVX3651P", "230042");
        record.bootDBConfig = setup;
        return peer->build(&record, 1, generation);
    }
    Bytes eeprom() { return cells(0, TOTAL_BLOB_SIZE); }
};

// A single case: the process's only owner of the settings keeps this board until it exits.
TEST_F(BootSetup, IsStoredOnlyOnRequestAndWithADevice)
{
    const Blob before = blob_with(0, 57);
    program(before);
    put_file(before);
    CPersistentData* const owner = CPersistentData::Init(&handler, g_portableModelsTable);
    owner->setEEPROMch(kEepromChannel);
    ASSERT_NE(owner->readData(&kDefaults, optPortable_Tbl, kOptionRows), nullptr);
    Scpi_Orvanx* const orvanx = Scpi_Orvanx::getInstance();

    orvanx->set_bootDBConfig(3, true); // no device
    EXPECT_EQ(orvanx->get_bootDBConfig(), 3);
    EXPECT_EQ(eeprom(), bytes_of(before));
    EXPECT_EQ(file(), bytes_of(before));

    char device;
    orvanx->setDevicePtr(&device);
    orvanx->set_bootDBConfig(4, false);
    EXPECT_EQ(orvanx->get_bootDBConfig(), 4);
    EXPECT_EQ(eeprom(), bytes_of(before));
    EXPECT_EQ(file(), bytes_of(before));

    orvanx->set_bootDBConfig(5, true);
    EXPECT_EQ(eeprom(), bytes_of(blob_with(5, 58)));
    EXPECT_EQ(file(), eeprom());

    const size_t cycles = board->eeprom().write_cycles();
    orvanx->set_bootDBConfig(5, true);
    EXPECT_EQ(board->eeprom().write_cycles(), cycles) << "nothing new";
    delete orvanx;
}

} // namespace

// The SCPI port, which is written to both stores and takes effect at the next start.

#include <limits>
#include <ostream>
#include <string>
#include <vector>

#include <syslog.h>

#include "bare_device.h"
#include "settings_bench.h"

using namespace board_test;
using namespace HaldeElec::Orvan;
using namespace orvan_test;

namespace {

class ScpiPort : public SettingsTest {
protected:
    void SetUp() override
    {
        SettingsTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        program(blob("230042"));
        put_file(blob("230042"));
        read_data();
        device.emplace(stand_ins, peer->data);
        logs.clear();
    }
    Blob blob_with_port(const char* port, uint32_t generation)
    {
        EEPROM_DEVICE_SETTINGS record = settings("OVX3651P", "230042");
        std::strcpy(record.scpiPort, port);
        return peer->build(&record, 1, generation);
    }

    std::optional<BareDevice> device;
    const std::vector<std::string> rebooted{"sudo reboot"};
};

TEST_F(ScpiPort, IsStoredInBothStoresAndTheControllerReboots)
{
    EXPECT_EQ(device->SetScpiPort(5026), 0);
    EXPECT_EQ(cells(), bytes_of(blob_with_port("5026", 58)));
    EXPECT_EQ(file(), cells());
    EXPECT_EQ(stand_ins.calls(), rebooted);
    EXPECT_EQ(logs.lines(),
              (std::vector<LogLine>{{LOG_INFO, "[CPersistentData] readEeprom: read 1024 bytes, ok"}}));
}

TEST_F(ScpiPort, ZeroAndTheHighestNumberAreStoredUnchanged)
{
    EXPECT_EQ(device->SetScpiPort(0), 0);
    EXPECT_EQ(cells(), bytes_of(blob_with_port("0", 58)));
    EXPECT_EQ(device->SetScpiPort(std::numeric_limits<uint16_t>::max()), 0);
    EXPECT_EQ(cells(), bytes_of(blob_with_port("65535", 59)));
    EXPECT_EQ(stand_ins.calls().size(), 2u);
}

TEST_F(ScpiPort, AShorterTextEndsAtItsTerminatorAndKeepsTheRestOfTheField)
{
    EXPECT_EQ(device->SetScpiPort(65000), 0);
    EXPECT_EQ(device->SetScpiPort(80), 0);
    EEPROM_DEVICE_SETTINGS record = settings("OVX3651P", "230042");
    std::strcpy(record.scpiPort, "65000");
    std::strcpy(record.scpiPort, "80");
    EXPECT_EQ(cells(), bytes_of(peer->build(&record, 1, 59)));
}

TEST_F(ScpiPort, AlreadySetIsNotWrittenButStillReboots)
{
    EXPECT_EQ(device->SetScpiPort(5026), 0);
    const size_t cycles = board->eeprom().write_cycles();
    EXPECT_EQ(device->SetScpiPort(5026), 0);
    EXPECT_EQ(board->eeprom().write_cycles(), cycles);
    EXPECT_EQ(stand_ins.calls().size(), 2u);
}

TEST_F(ScpiPort, IsUsedByTheNextStart)
{
    EXPECT_EQ(device->SetScpiPort(5026), 0);
    device.reset();
    restart();
    read_data();
    EXPECT_STREQ((*peer)->getSettings()->scpiPort, "5026");
}

TEST_F(ScpiPort, AFailedStoreOrRebootIsNotReported)
{
    fault->absent(true);
    stand_ins.exit_with(1);
    EXPECT_EQ(device->SetScpiPort(5026), 0);
    EXPECT_EQ(logs.count(LOG_ERR, "CPersistentData::writeData() EEPROM write/verify FAILED - "), 1u);
    EXPECT_EQ(file(), bytes_of(blob_with_port("5026", 58)));
    EXPECT_EQ(stand_ins.calls(), rebooted);
}

} // namespace

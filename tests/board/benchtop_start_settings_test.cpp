// The settings and setups that a benchtop starts with, and what it stores.

#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <syslog.h>

#include "benchtop_start_bench.h"
#include "orvan_sdk/IDeviceConnectionHandler.h"

using namespace board_test;
using namespace HaldeElec::Orvan;

namespace {

TEST_F(BenchtopStart, LeavesOtherSettingsUnchanged)
{
    store(settled_settings());
    const Blob before = eeprom_image();
    const size_t cycles = board->eeprom().write_cycles();
    start_and_settle();
    EXPECT_EQ(board->eeprom().write_cycles(), cycles);
    EXPECT_EQ(eeprom_image(), before);
    EXPECT_EQ(file_image(), before);
}

TEST_F(BenchtopStart, StoresANewSoftwareVersionOnce)
{
    EEPROM_DEVICE_SETTINGS old = settled_settings();
    std::strcpy(old.fwVersion, "1.19.144");
    store(old, 57);
    start_and_settle();
    EXPECT_EQ(eeprom_image(), signed_image(settled_settings(), 58));
    EXPECT_EQ(file_image(), eeprom_image());
    EXPECT_EQ(settings().fwVersion, std::string("1.19.145"));
}

TEST_F(BenchtopStart, StoresWhatModuleOneReportsAgain)
{
    EEPROM_DEVICE_SETTINGS old = settled_settings();
    std::strcpy(old.fpgaVersion, "0.9");
    store(old, 57);
    start_and_settle();
    EXPECT_EQ(eeprom_image(), signed_image(settled_settings(), 58));
}

TEST_F(BenchtopStart, FollowsTheModelOfItsSettings)
{
    EEPROM_DEVICE_SETTINGS other = settled_settings();
    std::strcpy(other.modelName, "OVX6132R");
    store(other);
    start_and_settle();
    EXPECT_EQ(settings().numDevices, 2);
    EXPECT_EQ(settings().maxCwFreq, 8'000'000'000);
    EXPECT_EQ(settings().product_id, 0x61a2);
    EXPECT_EQ(settings().options, 0x0098); // code 8
    EXPECT_EQ(Scpi_Orvanx::getInstance()->getNumberofChannels(), 2);
    EXPECT_EQ(module(1).requests().front(), "*TST?\r\n");
    EXPECT_EQ(module(3).connections(), 0u);
    // The installed channels are those of the routing, too: channel 1 has the switch 0x02 of its row.
    EXPECT_EQ(device->SetTriggerSource(IOrvanDeviceManager::External), 0);
    board->trace().clear();
    EXPECT_EQ(device->SetRFOutput(IOrvanDeviceManager::On), 0);
    EXPECT_EQ(board->trace().lines_with({"i2c 0x20 [0x13] ="}).size(), 1u);
}

TEST_F(BenchtopStart, HoldsTheBusOnlyWhileItReadsOrStoresItsSettings)
{
    EEPROM_DEVICE_SETTINGS old = settled_settings();
    std::strcpy(old.fwVersion, "1.19.144");
    store_in_file(old);
    board->spi().attach("eeprom", nullptr); // so that storing logs an error
    std::vector<std::string> found;
    logs.on_line([&found](const orvan_test::LogLine& line) {
        const char* const step = line.text == "CPersistentData::readData"                        ? "read"
                                 : line.text.starts_with("[CPersistentData] readData modelname") ? "rows"
                                 : line.text.starts_with("CPersistentData::writeData() EEPROM")  ? "write"
                                                                                                 : nullptr;
        if (step == nullptr) {
            return;
        }
        std::mutex& bus = HaldeElec::Orvan::PersistentDataTestPeer::bus_of_instance().mtx;
        bool free = false;
        std::thread([&] {
            free = bus.try_lock();
            if (free) {
                bus.unlock();
            }
        }).join();
        found.push_back(std::string(step) + (free ? ": free" : ": held"));
    });
    start();
    logs.on_line({});
    pass(kSettlingUs);
    EXPECT_EQ(found, (std::vector<std::string>{"read: held", "rows: free", "write: held"}));
}

TEST_F(BenchtopStart, TreatsAnInstrumentWithoutSettingsAsTheFactoryModel)
{
    start_and_settle();
    EXPECT_TRUE(device->Initialized());
    EXPECT_STREQ(device->getDeviceArch()->model, "OVX3651B");
    uint8_t identity[128];
    EXPECT_EQ(device->GetIdentification(identity), 0);
    EXPECT_STREQ(reinterpret_cast<const char*>(identity), "Halde Electronics,OVX3651B,230000,1.19.145");
    EXPECT_EQ(settings().numDevices, 1);
    EXPECT_EQ(settings().product_id, 0x3601);
    EXPECT_EQ(settings().hardwareVersion, 'D');
    EXPECT_STREQ(settings().description, "Halde Electronics Ltd.");
    // MOD and LP are the factory options; the frequency code comes from the model.
    EXPECT_EQ(settings().options, 0x009E);
    EXPECT_EQ(file_image(), eeprom_image());
    EXPECT_EQ(module(2).connections(), 0u);
}

TEST_F(BenchtopStart, RestoresTheMissingStore)
{
    store_in_file(settled_settings());
    start_and_settle();
    EXPECT_STREQ(settings().serialNum, "240017");
    EXPECT_EQ(eeprom_image(), file_image());
}

TEST_F(BenchtopStart, RestoresAMissingBackup)
{
    store_in_eeprom(settled_settings());
    start_and_settle();
    EXPECT_STREQ(settings().serialNum, "240017");
    EXPECT_EQ(file_image(), eeprom_image());
}

TEST_F(BenchtopStart, FallsBackToTheFactorySetupWithoutItsBootSetup)
{
    EEPROM_DEVICE_SETTINGS with_setup = settled_settings();
    with_setup.bootDBConfig = 3;
    store(with_setup, 57);
    start_and_settle();
    EXPECT_EQ(logs.count(LOG_WARNING, "Validation Failed: Config 3 missing for Module 1"), 1u);
    EXPECT_EQ(record(1).ANALOGOUTPUT.Frequency, 1'000'000'000);
    EXPECT_EQ(eeprom_image(), signed_image(settled_settings(), 58)) << "the change has been stored";
}

TEST_F(BenchtopStart, RecallsItsBootSetup)
{
    EEPROM_DEVICE_SETTINGS with_setup = settled_settings();
    with_setup.bootDBConfig = 3;
    store(with_setup, 57);
    for (int channel = 1; channel <= 4; ++channel) {
        files.write_preset(channel, 3,
                           R"({"ANALOGOUTPUT": {"Frequency": )" + std::to_string(channel) + "000000}}");
    }
    start_and_settle();
    for (int channel = 1; channel <= 4; ++channel) {
        EXPECT_EQ(record(channel).ANALOGOUTPUT.Frequency, channel * 1'000'000) << channel;
    }
    EXPECT_EQ(eeprom_image(), signed_image(with_setup, 57));
}

} // namespace

// The benchtop's start with missing modules.

#include <algorithm>
#include <set>

#include "benchtop_start_bench.h"
#include "skipped_waits.h"

using namespace board_test;
using namespace HaldeElec::Orvan;

namespace {

class BenchtopWithout : public BenchtopStart, public testing::WithParamInterface<std::set<int>> {};
INSTANTIATE_TEST_SUITE_P(Modules, BenchtopWithout,
                         testing::Values(std::set{1}, std::set{2}, std::set{3}, std::set{4},
                                         std::set{1, 2, 3, 4}));

TEST_P(BenchtopWithout, ModulesContinuesAfterAMinute)
{
    store(settled_settings());
    int error_word = 0;
    for (const int channel : GetParam()) {
        modules[static_cast<size_t>(channel - 1)].reset(); // nothing listens on it
        error_word |= kModuleLinkMissing << 4 * (channel - 1);
    }
    {
        // The present modules have received their first query.
        const SkippedWaits no_minute([this] {
            return std::all_of(modules.begin(), modules.end(),
                               [](const auto& each) { return each == nullptr || each->finished() > 0; });
        });
        start();
    }
    pass(kSettlingUs);
    // A worker's last wait can begin just before the deadline.
    EXPECT_GE(SkippedWaits::skipped_ms(), 55'000);
    EXPECT_LE(SkippedWaits::skipped_ms(), 62'000 * static_cast<long>(GetParam().size()));
    EXPECT_TRUE(device->Initialized());
    EXPECT_EQ(test_result(PBIT, kModulesTest), (TestResult{BIT_FAIL, error_word}));
    for (int channel = 1; channel <= 4; ++channel) {
        const bool dead = GetParam().contains(channel);
        EXPECT_EQ(Scpi_Orvanx::getInstance()->m_isLive[channel - 1], !dead) << channel;
        EXPECT_EQ(record(channel).CHANNEL.State, dead ? Off : On) << channel;
        EXPECT_STREQ(record(channel).SYSTEM.Model, "OVX3654B") << channel;
    }
    EXPECT_EQ(logs.count(LOG_ERR, "getModuleData: :SYST:INF:CAL?\r\n reply: -ERR Unable to connect"),
              GetParam().size());
    EXPECT_EQ(eeprom_image(), signed_image(settled_settings(), 57)) << "what is stored is not replaced";
    EXPECT_EQ(count("spi fan: 00 00 7f -> ff ff ff"), 1u);
}

TEST_F(BenchtopStart, ContinuesWithNothingButItsSpiPort)
{
    for (auto& each : modules) {
        each.reset();
    }
    i2c_fault(0x20)->absent(true);
    i2c_fault(0x24)->absent(true);
    board->spi().attach("eeprom", nullptr);
    std::filesystem::remove_all(files.halde() / "json");
    std::filesystem::remove_all(files.halde() / "config");
    files.stand_in_for_sudo("exit 1");
    {
        const SkippedWaits no_minute([] { return true; });
        start();
    }
    pass(kSettlingUs);
    EXPECT_TRUE(device->Initialized());
    EXPECT_STREQ(device->getDeviceArch()->model, "OVX3651B");
    EXPECT_EQ(test_result(PBIT, kEepromTest).result, BIT_FAIL);
}

} // namespace

// Model, software version and host name in the settings.
#include <algorithm>
#include <csignal>
#include <cstring>
#include <string>
#include <vector>

#include <syslog.h>

#include "flash_params_bench.h"

using namespace HaldeElec::Orvan;
using namespace orvan_test;

namespace {

TEST_F(FlashParams, AModelSetsItsOwnFieldsOnly)
{
    std::memset(settings, 0x5a, sizeof *settings);
    EEPROM_DEVICE_SETTINGS expected;
    std::memset(&expected, 0x5a, sizeof expected);
    expected.options = 0x5a5e;
    expected.numDevices = 4;
    expected.maxCwFreq = 20'000'000'000;
    expected.device_type = 1;
    expected.vendor_id = 0x168c;
    expected.product_id = 0x3604;
    (*peer)->setDeviceArch(&g_benchtopModelsTable[5]);
    EXPECT_EQ(std::memcmp(settings, &expected, sizeof expected), 0);
}

TEST_F(FlashParams, TheFrequencyCodeFollowsEveryModel)
{
    const auto follows = [this](const sDevArch_t* models) {
        for (const sDevArch_t* model = models; model->model != nullptr; ++model) {
            settings->options = 0xfff3;
            (*peer)->setDeviceArch(model);
            const uint64_t ghz = model->maxFrequency / 1'000'000'000;
            EXPECT_EQ(settings->options, 0xfff0 | (ghz == 8    ? 8
                                                   : ghz == 14 ? 13
                                                   : ghz == 20 ? 14
                                                               : 15))
                << model->model;
            EXPECT_EQ(settings->numDevices, model->channelsNo);
        }
    };
    follows(g_portableModelsTable);
    follows(g_benchtopModelsTable);
    follows(g_ksr7000ModelsTable);
}

TEST_F(FlashParams, AModelOfAnUnknownFrequencyHasCode0AndItsNumbersAreCutTo16Bits)
{
    const sDevArch_t odd{"odd", 7'999'999'999, 2, 255, 0x12345678, 0x9abcdef0, 0};
    settings->options = 0xffff;
    (*peer)->setDeviceArch(&odd);
    EXPECT_EQ(settings->options, 0xfff0);
    EXPECT_EQ(settings->maxCwFreq, 7'999'999'999);
    EXPECT_EQ(settings->product_id, 0x5678);
    EXPECT_EQ(settings->vendor_id, 0xdef0);
    EXPECT_EQ(settings->device_type, 255);
}

TEST_F(FlashParams, NoModelAndNoVersionChangeNothing)
{
    std::memset(settings, 0x5a, sizeof *settings);
    (*peer)->setDeviceArch(nullptr);
    (*peer)->setSwVersion(nullptr);
    const auto* const bytes = reinterpret_cast<const uint8_t*>(settings);
    EXPECT_TRUE(std::all_of(bytes, bytes + sizeof *settings, [](uint8_t byte) { return byte == 0x5a; }));
}

TEST_F(FlashParams, TheSoftwareVersionIsStoredAndZeroFilled)
{
    put(settings->fwVersion, "1.19.1400000");
    put(settings->scpiRevision, "next");
    (*peer)->setSwVersion("1.19.140");
    EXPECT_EQ(std::string(settings->fwVersion, 31), "1.19.140" + std::string(23, '\0'));
    (*peer)->setSwVersion(std::string(40, '9').c_str());
    EXPECT_EQ(std::string(settings->fwVersion, 31), std::string(31, '9'));
    EXPECT_STREQ(settings->scpiRevision, "next");
}

TEST_F(FlashParams, ANullHostNameChangesNothingAndIsLogged)
{
    (*peer)->setHostname(nullptr);
    EXPECT_TRUE(stand_ins.calls().empty());
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_INFO, "invalid host name. aborting change"}}));
}

TEST_F(FlashParams, AFailedHostNameScriptIsLogged)
{
    stand_ins.exit_with(3);
    (*peer)->setHostname("bench-3");
    EXPECT_EQ(logs.lines(),
              (std::vector<LogLine>{{LOG_INFO, "setHostname: failed setting host name to bench-3"}}));
    logs.clear();
    stand_ins.exit_with(0);
    (*peer)->setHostname("bench-3");
    EXPECT_TRUE(logs.lines().empty());
    EXPECT_EQ(stand_ins.calls().size(), 2u);
}

TEST_F(FlashParams, AHostNameScriptWithoutAnExitStatusIsLogged)
{
    // With its children reaped by the kernel, system() has no status to return.
    const auto before = std::signal(SIGCHLD, SIG_IGN);
    (*peer)->setHostname("bench-3");
    std::signal(SIGCHLD, before);
    EXPECT_EQ(logs.lines(),
              (std::vector<LogLine>{{LOG_INFO, "setHostname: failed setting host name to bench-3"}}));
}

TEST_F(FlashParams, TheHostNameReachesTheShellUnquoted)
{
    (*peer)->setHostname("two  words; exit 0");
    (*peer)->setHostname("");
    EXPECT_EQ(stand_ins.calls(), (std::vector<std::string>{std::string(kScript) + "two words",
                                                           "sudo /usr/local/bin/he_set_hostname.sh"}));
}

TEST_F(FlashParams, TheHostNameCommandIsCutAt255Characters)
{
    (*peer)->setHostname(std::string(300, 'h').c_str());
    const std::string command = std::string(kScript) + std::string(300, 'h');
    EXPECT_EQ(stand_ins.calls(), (std::vector{command.substr(0, 255)}));
}

} // namespace

// Firmware sent from a host on the LAN to the controller and the modules, to the end of an update.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "module_images.h"
#include "support/files.h"

using namespace orvan_test;
using testing::HasSubstr;

namespace {

namespace fs = std::filesystem;

constexpr int kModules = 2;
const std::vector<std::string> kBenchtop = {"--model", "OVX3652B"};

/** The tool on the LAN. */
Outcome tool(const Instrument& instrument, const std::vector<std::string>& arguments)
{
    std::vector<std::string> command = {"/usr/bin/python3", ORVAN_INSTRUMENT_TESTS_DIR "/firmware_tool.py"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return instrument.exec("lan", command);
}

/** A package for the benchtop, with a program to install and an image for the modules. */
fs::path make_package(const Instrument& instrument, const std::string& image)
{
    const fs::path work = instrument.state() / "work";
    const fs::path folder = work / "Orvan_Benchtop_FW_2.0";
    write_file(work / "patch/bin/orvan-service", "the new program\n");
    write_file(folder / "ovx_module_2.0.tar.gz", image);
    const fs::path package = work / "package.tar.gz";
    for (const std::vector<std::string>& command : std::vector<std::vector<std::string>>{
             {"tar", "-czf", folder / "benchtop_fw_2.0.tar.gz", "-C", work, "patch"},
             {"tar", "-czf", package, "-C", work, folder.filename()}}) {
        const Outcome outcome = run_program(command);
        EXPECT_EQ(outcome.status, 0) << outcome.output;
    }
    return package;
}

} // namespace

TEST(FirmwareDownload, APackageFromTheLanIsInstalledEverywhereAndLeavesNoFiles)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument(kBenchtop);
    const std::string image = image_of(300'000);
    const fs::path package = make_package(instrument, image);
    const Outcome sent = tool(instrument, {"HESU", "10.0.0.2", package});
    EXPECT_EQ(sent.status, 0) << sent.output;

    EXPECT_TRUE(instrument.wait_for_output("reboot requested, restarting the service"));
    EXPECT_TRUE(instrument.wait_for_output("the service is ready again"));
    EXPECT_EQ(contents(instrument.state() / "installed/bin/orvan-service"), "the new program\n");
    for (int module = 1; module <= kModules; ++module) {
        EXPECT_TRUE(eventually([&] {
            return status(instrument, module).find("\"restarts\":1,\"away\":false") != std::string::npos;
        })) << module;
        EXPECT_THAT(status(instrument, module), HasSubstr(stored("software", image))) << module;
    }
    EXPECT_TRUE(eventually([&] { return fs::is_empty(instrument.state() / "halde/upgrade"); }));
    const std::string calls = contents(instrument.state() / "log/calls.log");
    const size_t start = calls.find(" systemctl start orvan-upgrade.service\n");
    const size_t unit = calls.find(" orvan-upgrade.service\n", start + 30);
    ASSERT_NE(unit, std::string::npos) << calls;
    EXPECT_NE(calls.find(" reboot\n", unit), std::string::npos) << calls;

    EXPECT_EQ(tool(instrument, {"HEID", "10.0.0.2"}).output, "534\n");
    EXPECT_EQ(instrument.client().ask(":FREQ 3e9;:FREQ?"), "3000000000;+OK\r\n");
}

TEST(FirmwareDownload, KeepsAPackageThatOneModuleRefuses)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument(kBenchtop);
    const fs::path package = make_package(instrument, image_of(5000));
    ASSERT_EQ(instrument.ctl({"module", "2", "update", "refuse"}).status, 0);
    const Outcome sent = tool(instrument, {"HESU", "10.0.0.2", package});
    EXPECT_EQ(sent.status, 0) << sent.output; // the failure is not reported
    EXPECT_TRUE(eventually([&] {
        return instrument.service_log().find("OrvanX software update failed. Skip restart.") !=
               std::string::npos;
    }));
    EXPECT_EQ(tool(instrument, {"HEID", "10.0.0.2"}).output, "534\n");
    EXPECT_THAT(status(instrument, 1), HasSubstr("\"restarts\":0,"));
    EXPECT_TRUE(fs::exists(instrument.state() / "halde/upgrade/host_sw/Orvan_Benchtop_FW_2.0"));
    EXPECT_FALSE(fs::exists(instrument.state() / "halde/upgrade/upgrade_init_done.txt"));
    EXPECT_FALSE(fs::exists(instrument.state() / "installed"));
}

TEST(FirmwareDownload, OfAnImageReachesEveryModuleAndStopsMaintenanceUntilARestart)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument(kBenchtop);
    const std::string image = image_of(20'000);
    write_file(instrument.state() / "work/image", image);
    const Outcome sent = tool(instrument, {"HEPD", "10.0.0.2", instrument.state() / "work/image", "23"});
    std::string expected;
    for (int module = 1; module <= kModules; ++module) {
        for (int percent = 10; percent <= 100; percent += 10) {
            expected += "HEPD " + std::to_string(percent) + " 0x0 0x0 0x0\n";
        }
        expected += "HEPD 0 0xffff 0xffff 0x0\n";
    }
    expected += "HEPD 0 0xffff 0xffff 0x0\n";
    EXPECT_EQ(sent.output, expected);
    for (int module = 1; module <= kModules; ++module) {
        EXPECT_THAT(status(instrument, module), HasSubstr(stored("program", image))) << module;
    }

    EXPECT_EQ(instrument.client().ask(":FREQ 3e9;:FREQ?"), "3000000000;+OK\r\n");
    EXPECT_NE(tool(instrument, {"HEID", "10.0.0.2"}).status, 0);
    ASSERT_TRUE(instrument.reboot());
    EXPECT_EQ(tool(instrument, {"HEID", "10.0.0.2"}).output, "534\n");
}

TEST(FirmwareDownload, OfAnImageWithAMissingModuleEndsWithAnErrorFrame)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument(kBenchtop);
    write_file(instrument.state() / "work/image", image_of(3000));
    ASSERT_EQ(instrument.ctl({"module", "2", "kill"}).status, 0);
    const Outcome sent = tool(instrument, {"HEPD", "10.0.0.2", instrument.state() / "work/image"});
    EXPECT_EQ(sent.output, "block 0, size 65535 instead of block 2\n");
    EXPECT_THAT(instrument.service_log(),
                HasSubstr("[CUdpServer] Timeout/Error receiving ACK from Channel 2"));
    EXPECT_EQ(tool(instrument, {"HEID", "10.0.0.2"}).output, "534\n");
}

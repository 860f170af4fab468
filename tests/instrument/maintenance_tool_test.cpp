// orvan-maint on a host of the instrument's LAN, and through the launcher's relay.
#include <fstream>
#include <regex>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "module_images.h"
#include "stored_settings.h"
#include "support/lossy_relay.h"

using namespace orvan_test;
using testing::HasSubstr;

namespace {

namespace fs = std::filesystem;

const std::vector<std::string> kBenchtop = {"--model", "OVX3652B"};

/** An instrument whose start takes longer than the polling interval of update. */
const std::vector<std::string> kSlowBenchtop = {"--model", "OVX3652B", "--clock-rate", "1"};

Outcome tool(const Instrument& instrument, std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), program("orvan-maint"));
    return instrument.exec("lan", arguments);
}

Outcome tool_through(int port, std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), program("orvan-maint"));
    arguments.insert(arguments.end(), {"--address", "127.0.0.1", "--port", std::to_string(port)});
    return run_program(arguments);
}

/** UDP port on the host that leads to the instrument. */
int maintenance_port(const Instrument& instrument)
{
    const std::string text = instrument.output();
    std::smatch match;
    return std::regex_search(text, match, std::regex("UDP 127\\.0\\.0\\.1:([0-9]+)")) ? std::stoi(match[1])
                                                                                      : 0;
}

fs::path put(const Instrument& instrument, const std::string& name, const std::string& contents)
{
    const fs::path path = instrument.state() / "work" / name;
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << contents;
    return path;
}

/** Without a search, which listens for its whole time. */
Outcome tool_at_address(const Instrument& instrument, std::vector<std::string> arguments)
{
    arguments.insert(arguments.end(), {"--address", "10.0.0.2"});
    return tool(instrument, arguments);
}

std::string pack(const Instrument& instrument, const std::string& image)
{
    const fs::path package = instrument.state() / "work/package.tar.gz";
    put(instrument, "patch/bin/orvan-service", "the new program\n");
    const Outcome packed =
        run_program({program("orvan-maint"), "pack", package, "--force", "--platform", "benchtop", "--module",
                     put(instrument, "module", image), "--patch", instrument.state() / "work/patch"});
    EXPECT_EQ(packed.status, 0) << packed.output;
    return package;
}

std::vector<std::string> update(const std::string& package)
{
    return {"update", "--yes", "--after", "120", package};
}

void expect_installed(const Outcome& updated)
{
    EXPECT_EQ(updated.status, 0) << updated.output;
    // The running version is that of the build, whatever a package contains.
    EXPECT_THAT(
        updated.output,
        HasSubstr(
            "installed: the instrument went away and came back; its software is 1.19.145, as before\n"));
}

void expect_updated(const Instrument& instrument, const Outcome& updated, const std::string& image)
{
    EXPECT_THAT(updated.output, HasSubstr("the whole package has arrived"));
    EXPECT_TRUE(instrument.wait_for_output("reboot requested, restarting the service"));
    EXPECT_TRUE(instrument.wait_for_output("the service is ready again"));
    EXPECT_EQ(contents(instrument.state() / "installed/bin/orvan-service"), "the new program\n");
    for (int module = 1; module <= 2; ++module) {
        EXPECT_THAT(status(instrument, module), HasSubstr(stored("software", image))) << module;
    }
}

} // namespace

TEST(MaintenanceTool, FindsAnInstrumentOnTheLanAndThroughTheRelay)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument(kBenchtop);
    const Outcome found = tool(instrument, {"discover", "--interface", "eth0", "--wait", "600"});
    EXPECT_EQ(found.status, 0);
    EXPECT_EQ(found.output,
              "address   hardware address   model     serial number  host name        software\n"
              "10.0.0.2  02:00:0a:00:00:02  OVX3652B  100001         OVX3652B-100001  1.19.145\n");
    const Outcome shown = tool(instrument, {"show", "--json", "--mac", "02:00:0a:00:00:02"});
    EXPECT_EQ(shown.status, 0);
    EXPECT_THAT(shown.output, HasSubstr("\"ip_address\":\t\"10.0.0.2\""));
    EXPECT_THAT(shown.output, HasSubstr("\"options\":\t\"20G,"));
    const Outcome relayed = tool_through(maintenance_port(instrument), {"show"});
    EXPECT_EQ(relayed.status, 0);
    EXPECT_THAT(relayed.output, HasSubstr("serial number     100001\n"));

    const Outcome other = tool(instrument, {"show", "--mac", "02:00:0a:00:00:03", "--wait", "200"});
    EXPECT_EQ(other.status, 1);
    EXPECT_THAT(other.output, HasSubstr("no instrument with the hardware address 02:00:0a:00:00:03 answers"));
    EXPECT_THAT(tool(instrument, {"discover", "--interface", "usb9"}).output,
                HasSubstr("there is no interface usb9; usable: eth0"));
}

TEST(MaintenanceTool, MovesAnInstrumentToAnotherAddress)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument(kBenchtop);
    const Outcome changed =
        tool(instrument, {"set-network", "--yes", "--dhcp", "off", "--ip", "10.0.0.9", "--mask",
                          "255.255.255.0", "--gateway", "10.0.0.1", "--host-name", "bench-9"});
    EXPECT_EQ(changed.status, 0) << changed.output;
    EXPECT_THAT(changed.output, HasSubstr("  the instrument will answer at 10.0.0.9\n"));
    EXPECT_THAT(tool(instrument, {"discover"}).output,
                HasSubstr("10.0.0.9  02:00:0a:00:00:02  OVX3652B  100001"));
    // The host's relay follows the change of address.
    EXPECT_EQ(tool_through(maintenance_port(instrument), {"show"}).status, 0);
    ASSERT_TRUE(instrument.reboot());
    EXPECT_TRUE(instrument.wait_for_output("address on the LAN is now 10.0.0.9\n"));
    const Outcome shown = tool(instrument, {"show", "--address", "10.0.0.9"});
    EXPECT_THAT(shown.output, HasSubstr("IP address        10.0.0.9\n"));
    EXPECT_THAT(shown.output, HasSubstr("DHCP              OFF\n"));
    EXPECT_THAT(shown.output, HasSubstr("host name         bench-9\n"));
    EXPECT_EQ(instrument.exec("controller", {"hostname"}).output, "bench-9\n");
}

TEST(MaintenanceTool, WritesWhatTheFactorySets)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument(kBenchtop);
    EXPECT_EQ(tool_at_address(instrument, {"set-factory", "--yes", "--serial-number", "241108",
                                           "--calibration-date", "010125"})
                  .status,
              0);
    const Outcome options = tool_at_address(instrument, {"options"});
    EXPECT_EQ(options.status, 0);
    EXPECT_THAT(options.output, HasSubstr("MOD             4     1\n"));
    EXPECT_THAT(options.output, HasSubstr("PLS             5     0\n"));
    // A start replaces it with the modules' date.
    EXPECT_THAT(bytes_of(read_eeprom(instrument.state())), HasSubstr("010125"));
    const Outcome changed =
        tool_at_address(instrument, {"options", "--yes", "--set", "PLS,ELP", "--clear", "MOD"});
    EXPECT_EQ(changed.status, 0) << changed.output;
    EXPECT_THAT(tool_at_address(instrument, {"options", "--yes", "--set", "BAT"}).output,
                HasSubstr("the instrument has no option BAT; there are: MOD PLS FS"));
    ASSERT_TRUE(instrument.reboot());
    Client client = instrument.client();
    EXPECT_THAT(client.ask("*IDN?"), HasSubstr(",OVX3652B,241108,"));
    EXPECT_EQ(client.ask("*OPT?"), "20G,PLS,LP,ELP;+OK\r\n");
    const Outcome shown = tool_at_address(instrument, {"show"});
    EXPECT_THAT(shown.output, HasSubstr("options           20G,PLS,LP,ELP\n"));
}

TEST(MaintenanceTool, PacksAndCompletesAnUpdate)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument(kSlowBenchtop);
    const std::string image = image_of(300'000);
    const Outcome updated = tool_at_address(instrument, update(pack(instrument, image)));
    expect_installed(updated);
    expect_updated(instrument, updated, image);
}

TEST(MaintenanceTool, SendsAnUpdateOverALossyDuplicatingLink)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument(kSlowBenchtop);
    const std::string image = image_of(200'000);
    LossyRelay relay(maintenance_port(instrument), 0.1, 0.1);
    const Outcome updated = tool_through(relay.port(), update(pack(instrument, image)));
    EXPECT_GT(relay.lost(), 20U);
    // The datagrams that show the restart may be lost too; the tool then reports an unknown result.
    if (updated.status == 5) {
        EXPECT_THAT(updated.output, HasSubstr("orvan-maint: not known: ")) << updated.output;
    } else {
        expect_installed(updated);
    }
    expect_updated(instrument, updated, image);
}

TEST(MaintenanceTool, UpdatesAnInstrumentLeftInAnAbortedTransfer)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument(kSlowBenchtop);
    const std::string header = "48455355"
                               "00000000"
                               "ffffffffffff"
                               "0000000000000000";
    ASSERT_EQ(instrument.exec("lan", {program("orvan-datagram"), "10.0.0.2", "7502", "1", header}).status, 0);
    EXPECT_EQ(tool(instrument, {"show", "--wait", "200"}).status, 1);
    const std::string image = image_of(5'000);
    std::vector<std::string> arguments = update(pack(instrument, image));
    arguments.insert(arguments.end(), {"--address", "10.0.0.2", "--wait", "500"});
    const Outcome updated = tool(instrument, arguments);
    EXPECT_THAT(updated.output, HasSubstr("it may be in an interrupted download"));
    expect_installed(updated);
    expect_updated(instrument, updated, image);
}

TEST(MaintenanceTool, ReportsAnUpdateThatTheInstrumentRefuses)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument(kBenchtop);
    ASSERT_EQ(instrument.ctl({"module", "2", "update", "refuse"}).status, 0);
    const Outcome refused = tool_at_address(instrument, update(pack(instrument, image_of(5'000))));
    EXPECT_EQ(refused.status, 4) << refused.output;
    EXPECT_THAT(refused.output, HasSubstr("refused: the instrument has processed the package and has not "
                                          "restarted, as it does to install one; its log has the reason\n"));
    EXPECT_THAT(instrument.service_log(), HasSubstr("OrvanX software update failed. Skip restart."));
    EXPECT_FALSE(fs::exists(instrument.state() / "installed"));
}

TEST(MaintenanceTool, ReportsAModuleThatIsSilentWhileBurningAndTheOthers)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument(kBenchtop);
    const std::string image = image_of(20'000);
    ASSERT_EQ(instrument.ctl({"module", "1", "update", "silent-burn"}).status, 0);
    const Outcome silent = tool_at_address(instrument, {"program", "--yes", put(instrument, "image", image)});
    EXPECT_EQ(silent.status, 4) << silent.output;
    EXPECT_THAT(silent.output, HasSubstr("module 1: failed, a module did not answer in time (0x8000010A)\n"));
    EXPECT_THAT(silent.output, HasSubstr("module 2: done\n"));
    EXPECT_THAT(silent.output, testing::Not(HasSubstr("all modules have accepted the image")));
    EXPECT_THAT(status(instrument, 2), HasSubstr(stored("program", image)));
    EXPECT_THAT(instrument.service_log(), HasSubstr("[CUdpServer] Channel 1 burn timeout."));
    EXPECT_EQ(tool_at_address(instrument, {"discover", "--wait", "200"}).status, 1); // until a restart
}

TEST(MaintenanceTool, RefusesAPackageForAnotherPlatformBeforeItSendsAny)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({"--model", "OVX3651P"});
    const Outcome refused = tool_at_address(instrument, {"update", "--yes", pack(instrument, "image")});
    EXPECT_EQ(refused.status, 3);
    EXPECT_THAT(refused.output, HasSubstr("has no folder with Orvan_Portable_FW in its name"));
    EXPECT_FALSE(fs::exists(instrument.state() / "halde/upgrade/host_sw"));
}

TEST(MaintenanceTool, ProgramsAllModulesAndReportsWhichFailed)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument(kBenchtop);
    const std::string image = image_of(50'000);
    const fs::path file = put(instrument, "image", image);
    ASSERT_EQ(instrument.ctl({"module", "2", "update", "silent-stream", "20"}).status, 0);
    const Outcome silent = tool_at_address(instrument, {"program", "--yes", file});
    EXPECT_EQ(silent.status, 4) << silent.output;
    EXPECT_THAT(silent.output,
                HasSubstr("the instrument abandoned the stream at block 20: a module did not answer"));

    ASSERT_EQ(instrument.ctl({"module", "2", "update", "refuse"}).status, 0);
    const Outcome refused = tool_at_address(instrument, {"program", "--yes", file});
    EXPECT_EQ(refused.status, 4) << refused.output;
    EXPECT_THAT(refused.output, HasSubstr("module 1: done\n"));
    EXPECT_THAT(refused.output, HasSubstr("module 2: failed, not an image for this module (0x80000022)\n"));
    EXPECT_EQ(tool_at_address(instrument, {"discover", "--wait", "200"}).status, 1);
    ASSERT_TRUE(instrument.reboot());

    ASSERT_EQ(instrument.ctl({"module", "2", "update", "up"}).status, 0);
    const Outcome programmed = tool_at_address(instrument, {"program", "--yes", file});
    EXPECT_EQ(programmed.status, 0) << programmed.output;
    EXPECT_THAT(programmed.output, HasSubstr("module 2: done\nall modules have accepted the image"));
    EXPECT_THAT(status(instrument, 2), HasSubstr(stored("program", image)));
}

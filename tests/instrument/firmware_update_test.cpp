// Images sent from a client to the modules through the running instrument.
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "module_images.h"

using namespace orvan_test;
using testing::HasSubstr;

namespace {

namespace fs = std::filesystem;

const std::string kVersion = "1999.0;+OK\r\n"; // answered by the controller alone
const std::string kOk = "+OK\r\n";
const std::string kFailed = "-ERR -223, \"Too much data\";+OK\r\n";
constexpr int kModules = 4;

std::string block(const std::string& image)
{
    const std::string size = std::to_string(image.size());
    return " #" + std::to_string(size.size()) + size + image;
}

fs::path upgrade_folder(const Instrument& instrument)
{
    return instrument.state() / "halde/upgrade/orvanx";
}

} // namespace

TEST(FirmwareUpdate, OfMegabytesReachesEveryModuleWhileOthersWait)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    const std::string image = image_of(2'900'000);
    Client updater = instrument.client();
    std::vector<Client> others;
    for (int i = 0; i < 3; ++i) {
        others.push_back(instrument.client());
    }
    // The selected channel does not affect where an image is sent.
    EXPECT_EQ(updater.ask(":INST 3"), kOk);
    // The last module is late, so that for a while all have the image and no client has a reply.
    ASSERT_EQ(instrument.ctl({"module", "4", "update", "late", "2000"}).status, 0);
    ASSERT_TRUE(updater.send(":SYST:UPD:SOFT" + block(image) + "\n"));
    ASSERT_TRUE(eventually(
        [&] { return status(instrument, 4).find(stored("software", image)) != std::string::npos; }));
    for (Client& other : others) {
        other.send(":SYST:VERS?\n");
    }
    for (Client& other : others) {
        EXPECT_TRUE(other.stays_silent(std::chrono::milliseconds(100)));
    }
    EXPECT_EQ(updater.read_line(), kOk);
    for (Client& other : others) {
        EXPECT_EQ(other.read_line(std::chrono::seconds(5)), kVersion);
    }

    for (int module = 1; module <= kModules; ++module) {
        EXPECT_THAT(status(instrument, module), HasSubstr(stored("software", image))) << module;
        EXPECT_EQ(updater.ask(":INST " + std::to_string(module) + ";:FREQ " + std::to_string(module) +
                              "000000;:FREQ?"),
                  std::to_string(module) + "000000;+OK\r\n");
    }
    EXPECT_TRUE(fs::is_empty(upgrade_folder(instrument)));
}

TEST(FirmwareUpdate, OfSoftwareFailsWithOneModuleAndReachesTheOthers)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    Client client = instrument.client();
    const std::string image = image_of(100'000);
    ASSERT_EQ(instrument.ctl({"module", "2", "update", "refuse"}).status, 0);
    ASSERT_EQ(instrument.ctl({"module", "3", "refuse"}).status, 0); // its port is closed
    EXPECT_EQ(client.ask(":SYST:UPD:SOFT" + block(image)), kFailed);
    EXPECT_THAT(status(instrument, 1), HasSubstr(stored("software", image)));
    EXPECT_THAT(status(instrument, 2), HasSubstr("\"software\":{\"stored\":0,"));
    EXPECT_THAT(status(instrument, 3), HasSubstr("\"software\":{\"stored\":0,"));
    EXPECT_THAT(status(instrument, 4), HasSubstr(stored("software", image)));
    EXPECT_TRUE(fs::is_empty(upgrade_folder(instrument)));
    const std::string log = instrument.service_log();
    EXPECT_THAT(log, HasSubstr("OrvanX module 1 software update failed"));
    EXPECT_THAT(log, HasSubstr("OrvanX module 2 software update failed"));
    EXPECT_THAT(log, HasSubstr("OrvanX_softwareUpdate: Failed to update orvanx software"));

    ASSERT_EQ(instrument.ctl({"module", "2", "update", "up"}).status, 0);
    ASSERT_EQ(instrument.ctl({"module", "3", "up"}).status, 0);
    EXPECT_EQ(client.ask(":SYST:UPD:SOFT" + block(image)), kOk);
    EXPECT_THAT(status(instrument, 3), HasSubstr(stored("software", image)));
    EXPECT_THAT(status(instrument, 4), HasSubstr(stored("software", image, 2)));
}

TEST(FirmwareUpdate, OfTheFpgaFailsOnlyWithTheLastModuleAndKeepsTheFile)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    Client client = instrument.client();
    const fs::path file = upgrade_folder(instrument) / "fpga_image.bin";
    ASSERT_EQ(instrument.ctl({"module", "1", "update", "refuse"}).status, 0);
    EXPECT_EQ(client.ask(":SYST:UPD:FPGA" + block(image_of(5000))), kOk);
    EXPECT_THAT(status(instrument, 1), HasSubstr("\"fpga\":{\"stored\":0,"));
    EXPECT_THAT(status(instrument, 4), HasSubstr(stored("fpga", image_of(5000))));
    ASSERT_EQ(instrument.ctl({"module", "4", "update", "refuse"}).status, 0);
    EXPECT_EQ(client.ask(":SYST:UPD:FPGA" + block(image_of(4000))), kFailed);
    EXPECT_THAT(status(instrument, 3), HasSubstr(stored("fpga", image_of(4000), 2)));
    EXPECT_EQ(contents(file), image_of(4000));
    EXPECT_EQ(client.ask(":SYST:UPD:FPGA #10"), "-ERR -200, \"Execution error\";+OK\r\n");
    EXPECT_EQ(contents(file), image_of(4000));
}

TEST(FirmwareUpdate, OfAClientThatDisconnectsDuringItsImageIsNotStarted)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    const std::string message = ":SYST:UPD:SOFT" + block(image_of(2'000'000)) + "\n";
    {
        Client client = instrument.client();
        ASSERT_TRUE(client.send(message.substr(0, 1'500'000)));
        client.finish_sending();
        EXPECT_EQ(client.read_line(), "");
    }
    EXPECT_EQ(instrument.client().ask(":SYST:VERS?"), kVersion);
    EXPECT_TRUE(fs::is_empty(upgrade_folder(instrument)));
    EXPECT_THAT(status(instrument, 1), HasSubstr("\"software\":{\"stored\":0,"));
}

TEST(FirmwareUpdate, OfTheUserInterfaceRestartsModulesAndController)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    const std::string image = image_of(300'000);
    std::ofstream(upgrade_folder(instrument) / "ovx_module_2.0.0.tar.gz", std::ios::binary) << image;
    instrument.ask_module(2, ":POW 1");
    Client client = instrument.client();
    client.send(":INT:GUI:UPD:SOFT\n");
    // The command flushes all file systems of the machine first, which takes long after a large build.
    EXPECT_TRUE(
        instrument.wait_for_output("reboot requested, restarting the service", std::chrono::seconds(90)))
        << instrument.output() << instrument.service_log();
    const std::string reply = client.read_line();
    EXPECT_TRUE(reply == kOk || reply.empty()) << reply; // the reboot is on its way
    for (int module = 1; module <= kModules; ++module) {
        EXPECT_TRUE(eventually([&] {
            return status(instrument, module).find("\"restarts\":1,\"away\":false") != std::string::npos;
        })) << module;
        EXPECT_THAT(status(instrument, module), HasSubstr(stored("software", image)));
    }
    EXPECT_TRUE(
        eventually([&] { return instrument.ctl({"status"}).output.find("ready") != std::string::npos; }));
    EXPECT_EQ(instrument.client().ask(":INST 2;:POW?"), "5;+OK\r\n") << instrument.service_log();
    EXPECT_TRUE(fs::is_empty(upgrade_folder(instrument)));
}

TEST(FirmwareUpdate, EveryModuleHasItsFirmwarePort)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    const std::string program =
        "import socket, sys\n"
        "s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)\n"
        "s.settimeout(5)\n"
        "s.sendto(b'HEPD\\x00\\x01\\x00\\x03' + bytes(14) + b'abc', (sys.argv[1], 7502))\n"
        "print(s.recv(2000).hex())\n";
    for (int module = 1; module <= kModules; ++module) {
        const std::string address = "192.168." + std::to_string(6 + module) + ".1";
        const Outcome outcome = instrument.exec("controller", {"python3", "-c", program, address});
        EXPECT_EQ(outcome.output, "4845504400020000" + std::string(28, '0') + "\n") << module;
    }
}

TEST(FirmwareUpdate, OfAModuleThatAnswersTooLateFailsAndDelaysOthersUntilThen)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    const std::string image = image_of(1000);
    Client updater = instrument.client();
    Client other = instrument.client();
    // Longer than the link waits for a reply, which is longer than a client may pause in a message.
    ASSERT_EQ(instrument.ctl({"module", "2", "update", "late", "12000"}).status, 0);
    ASSERT_TRUE(updater.send(":SYST:UPD:SOFT" + block(image) + "\n"));
    ASSERT_TRUE(eventually(
        [&] { return status(instrument, 2).find(stored("software", image)) != std::string::npos; }));
    ASSERT_TRUE(other.send(":SYST:VERS?\n"));
    EXPECT_TRUE(other.stays_silent(std::chrono::seconds(6)));
    EXPECT_EQ(updater.read_line(), kFailed);
    EXPECT_EQ(other.read_line(), kVersion);
    for (int module = 1; module <= kModules; ++module) {
        EXPECT_THAT(status(instrument, module), HasSubstr(stored("software", image))) << module;
    }
    EXPECT_THAT(instrument.service_log(), HasSubstr("OrvanX module 1 software update failed"));
    EXPECT_TRUE(fs::is_empty(upgrade_folder(instrument)));
}

TEST(FirmwareUpdate, OfTheFpgaFailsWithALastModuleThatStaysSilent)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    Client client = instrument.client();
    ASSERT_EQ(instrument.ctl({"module", "4", "update", "silent-burn"}).status, 0);
    EXPECT_EQ(client.ask(":SYST:UPD:FPGA" + block(image_of(5000))), kFailed);
    EXPECT_THAT(status(instrument, 3), HasSubstr(stored("fpga", image_of(5000))));
    EXPECT_THAT(status(instrument, 4), HasSubstr("\"fpga\":{\"stored\":0,"));
    EXPECT_EQ(contents(upgrade_folder(instrument) / "fpga_image.bin"), image_of(5000));
    EXPECT_EQ(client.ask(":SYST:VERS?"), kVersion);
}

// Texts of the settings reach a shell unquoted. Commands that a client puts into them run in the sandbox,
// where the files of the instrument's user are out of reach.
#include <cstdlib>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "instrument.h"
#include "support/hex.h"
#include "support/maintenance_client.h"

using namespace orvan_test;

namespace {

namespace fs = std::filesystem;

/** A folder with a home and a project, outside the folders that a sandbox replaces anyway. */
class DevelopersFiles : public testing::Test {
protected:
    void SetUp() override
    {
        ORVAN_NEEDS_SANDBOX();
        std::string name = "/var/tmp/orvan-test-XXXXXX";
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        m_folder = name;
        fs::create_directory(m_folder / "home");
        fs::create_directory(m_folder / "project");
        ::setenv("HOME", (m_folder / "home").c_str(), 1);
        fs::current_path(m_folder / "project");
    }
    void TearDown() override
    {
        fs::current_path("/");
        std::error_code code;
        fs::remove_all(m_folder, code);
    }

    /** For a text of a setting, which has at most 31 characters. */
    static constexpr const char* kCommand = ";touch m ~/m $ORVAN_STATE/m #";

    void expect_untouched(const Instrument& instrument) const
    {
        EXPECT_TRUE(eventually([&] { return fs::exists(instrument.state() / "m"); }))
            << "the command did not run:\n"
            << instrument.service_log();
        EXPECT_TRUE(fs::is_empty(m_folder / "home"));
        EXPECT_TRUE(fs::is_empty(m_folder / "project"));
    }

    fs::path m_folder;
};

} // namespace

TEST_F(DevelopersFiles, AreOutOfReachOfACommandInAHostName)
{
    const Instrument instrument;
    Client client = instrument.client();
    EXPECT_EQ(client.ask(std::string(":SYST:COMM:LAN:HOST \"x") + kCommand + "\""), "+OK\r\n");
    client.send(":SYST:COMM:LAN:PORT 5026\n"); // stores the settings and restarts
    EXPECT_TRUE(instrument.wait_for_output("the service is ready again"));
    expect_untouched(instrument);
}

TEST_F(DevelopersFiles, AreOutOfReachOfACommandInANetworkAddress)
{
    const Instrument instrument;
    Client client = instrument.client();
    EXPECT_EQ(client.ask(std::string(":SYST:COMM:LAN:IPAD \"1") + kCommand + "\""), "+OK\r\n");
    EXPECT_EQ(client.ask(":SYST:COMM:LAN:DHCP OFF"), "+OK\r\n");
    expect_untouched(instrument);
}

TEST_F(DevelopersFiles, AreOutOfReachOfAHostNameSetByMaintenance)
{
    const Instrument instrument;
    std::string frame =
        request({"HEOT", 1, 0, std::string(6, '\xff')}, {request_row('H', std::string("x") + kCommand)});
    const Outcome sent =
        instrument.exec("lan", {program("orvan-datagram"), "10.0.0.255", "7502", "1", hex_of(frame)});
    EXPECT_EQ(sent.status, 0) << sent.output;
    EXPECT_TRUE(instrument.reboot());
    expect_untouched(instrument);
}

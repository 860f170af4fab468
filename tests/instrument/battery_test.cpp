// The battery of a portable: how the service reports its charge, and when the module is switched off.
#include <optional>

#include <gtest/gtest.h>

#include "orvan_db.h"

using namespace orvan_test;

namespace {

class PortableBattery : public testing::Test {
protected:
    void start(const char* clock_rate)
    {
        instrument.emplace(std::vector<std::string>{"--model", "OVX3651P", "--clock-rate", clock_rate,
                                                    "--log-level", "info"});
    }
    /** Inserts it and waits until the charge monitor has seen it twice, and so has acted on it. */
    void put_in(const char* percent)
    {
        const size_t before = instrument->service_log().size();
        EXPECT_EQ(instrument->ctl({"battery", percent, "charging"}).output, "");
        const std::string line = "Battery:" + std::string(percent) + "% status:1 volt:";
        EXPECT_TRUE(eventually([&] {
            const std::string log = instrument->service_log();
            const size_t first = log.find(line, before);
            return first != std::string::npos && log.find(line, first + 1) != std::string::npos;
        })) << instrument->service_log();
    }
    bool board_has_module_power(const char* state) const
    {
        const std::string line = "\nmodule power                      " + std::string(state) + "\n";
        return instrument->ctl({"board"}).output.find(line) != std::string::npos;
    }
    /**
     * Inserts it so that the module's power is switched. The fan thread writes the same port without a lock
     * and may write back what it read before the switch; this then retries.
     */
    void put_in_to_switch(const char* percent, const char* state, const char* percent_of_other_state)
    {
        for (int tries = 0; tries < 5; ++tries) {
            put_in(percent);
            if (board_has_module_power(state)) {
                return;
            }
            put_in(percent_of_other_state);
        }
        ADD_FAILURE() << "module power never " << state;
    }
    bool shows(const char* charge, const char* status) const
    {
        return element(*instrument, 1, "batt") == charge &&
               element(*instrument, 1, "current_status") == status;
    }
    bool module_runs() const
    {
        return instrument->ctl({"status"}).output.find("module 1  running") != std::string::npos;
    }
    bool module_is_without_power() const
    {
        return instrument->ctl({"status"}).output.ends_with("module 1  no power\n");
    }

    std::optional<Instrument> instrument;
};

TEST_F(PortableBattery, TheModuleIsSwitchedOffAtThirtyPercentAndOnAtThirtyFour)
{
    ORVAN_NEEDS_SANDBOX();
    start("10"); // a percent is charged in twelve seconds
    EXPECT_TRUE(eventually([&] { return shows("100", "0"); }));
    put_in("31");
    EXPECT_TRUE(shows("1", "1"));
    EXPECT_TRUE(module_runs());
    put_in_to_switch("30", "off", "34");
    EXPECT_TRUE(shows("0", "1"));
    EXPECT_TRUE(instrument->wait_for_output("module power off\n"));
    EXPECT_TRUE(eventually([&] { return module_is_without_power(); }));
    put_in("33");
    EXPECT_TRUE(shows("4", "1"));
    EXPECT_TRUE(module_is_without_power());
    put_in_to_switch("34", "on", "30");
    EXPECT_TRUE(shows("5", "1"));
    EXPECT_TRUE(instrument->wait_for_output("module power on\n"));
    EXPECT_TRUE(eventually([&] { return module_runs(); }));
    EXPECT_EQ(instrument->client().ask(":SYST:BAT?"), "34;+OK\r\n");
}

TEST_F(PortableBattery, ItDrainsUntilTheModuleIsSwitchedOffAndChargesUntilItIsOn)
{
    ORVAN_NEEDS_SANDBOX();
    start("500"); // a percent is drained in a third of a second
    Client client = instrument->client();
    EXPECT_EQ(client.ask(":FREQ 2e9;:FREQ?"), "2000000000;+OK\r\n");
    EXPECT_EQ(instrument->ctl({"battery", "33", "discharging"}).output, "");
    EXPECT_TRUE(instrument->wait_for_output("module power off\n"));
    EXPECT_NE(instrument->service_log().find("Battery:31% status:-1 volt:"), std::string::npos);
    EXPECT_TRUE(shows("0", "-1"));
    EXPECT_TRUE(module_is_without_power());
    EXPECT_EQ(instrument->ctl({"charger", "on"}).output, "");
    EXPECT_TRUE(instrument->wait_for_output("module power on\n"));
    EXPECT_NE(instrument->service_log().find("Battery:33% status:1 volt:"), std::string::npos);
    EXPECT_TRUE(eventually([&] { return module_runs(); }));
    EXPECT_EQ(client.ask(":FREQ 3e9;:FREQ?"), "3000000000;+OK\r\n");
}

TEST_F(PortableBattery, RemovalLeavesItsLastStateInTheRecords)
{
    ORVAN_NEEDS_SANDBOX();
    start("10");
    EXPECT_EQ(instrument->ctl({"battery", "65", "charging"}).output, "");
    EXPECT_TRUE(eventually([&] { return shows("50", "1"); }));
    EXPECT_EQ(instrument->ctl({"battery", "20", "absent"}).output, "");
    EXPECT_TRUE(eventually([&] {
        return instrument->service_log().find("ChargeMonitor: Battery access failed\n") != std::string::npos;
    })) << instrument->service_log();
    EXPECT_TRUE(shows("50", "1"));
    EXPECT_TRUE(module_runs());
    EXPECT_NE(instrument->ctl({"board"}).output.find("\nbattery                           taken out\n"),
              std::string::npos);
}

TEST_F(PortableBattery, AModuleThatIsOffHasPowerAgainAfterAReboot)
{
    ORVAN_NEEDS_SANDBOX();
    start("20");
    put_in_to_switch("30", "off", "34");
    EXPECT_TRUE(instrument->wait_for_output("module power off\n"));
    ASSERT_TRUE(instrument->reboot());
    EXPECT_NE(instrument->output().find("module power on\n"), std::string::npos);
    EXPECT_TRUE(module_runs());
    EXPECT_EQ(instrument->client().ask(":FREQ 4e9;:FREQ?"), "4000000000;+OK\r\n");
}

} // namespace

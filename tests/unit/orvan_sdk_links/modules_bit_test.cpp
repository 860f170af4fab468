#include <sys/mount.h>
#include <unistd.h>

#include "orvan_sdk/bit/bit_manager.h"
#include "orvan_sdk/scpi-parser/scpi-def.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include "support/log_capture.h"
#include "support/output_capture.h"
#include "support/scripted_module.h"
#include "usb_links_bench.h"
#include <scpi/scpi.h>

using namespace orvan_test;

namespace {

struct Verdict {
    int result;
    int errorCode;
    bool operator==(const Verdict&) const = default;
};
void PrintTo(const Verdict& verdict, std::ostream* out)
{
    *out << "result " << verdict.result << ", error word 0x" << std::hex << verdict.errorCode << std::dec;
}
constexpr Verdict kUntouched = {BIT_NOT_PERFORMED, -77};

/** The module service over links that a case creates; the case sets which modules are live. */
class ModulesBit : public LaidLinks {
protected:
    void SetUp() override
    {
        LaidLinks::SetUp();
        manager = BITManager::getInstance(0);
        if (manager->getTestsNumber(PBIT) == 0) {
            register_bit_tests(manager, nullptr);
        }
        for (const eBitType type : {PBIT, CBIT}) {
            for (const char* name : {"EEPROM test", "FAN test", "TEMP test", "MODULES test"}) {
                manager->setTestResult(type, name, kUntouched.result, kUntouched.errorCode);
            }
        }
        orvanx = Scpi_Orvanx::getInstance();
        set_live({});
        logs.clear();
    }

    void TearDown() override
    {
        delete orvanx;
        SCPI_Deinit(&scpi_context);
        LaidLinks::TearDown();
    }

    /** Only the modules named, 1 to 4, have answered. */
    void set_live(const std::vector<int>& modules)
    {
        for (bool& live : orvanx->m_isLive) {
            live = false;
        }
        for (const int module : modules) {
            orvanx->m_isLive[module - 1] = true;
        }
    }

    Verdict verdict(eBitType type, const std::string& name = "MODULES test")
    {
        bitReport_t report = {};
        for (int index = 0; manager->getTestResult(type, index, report); ++index) {
            if (report.testName == name) {
                return {report.result, report.errorCode};
            }
        }
        return {-1, -1};
    }

    Verdict test(int devNo)
    {
        orvanx->modules_bit(devNo, PBIT);
        return verdict(PBIT);
    }

    LogCapture logs;
    BITManager* manager = nullptr;
    Scpi_Orvanx* orvanx = nullptr;
};

TEST_F(ModulesBit, AllLinksAndAllModulesPass)
{
    add_modules({1, 2, 3, 4});
    set_live({1, 2, 3, 4});
    EXPECT_EQ(test(4), (Verdict{BIT_PASS, 0}));
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(ModulesBit, InstrumentOfOneModulePassesWithItsOne)
{
    add_modules({1});
    set_live({1});
    EXPECT_EQ(test(1), (Verdict{BIT_PASS, 0}));
}

TEST_F(ModulesBit, SilentSecondOfThreeReportsC0)
{
    add_modules({1, 2, 3});
    set_live({1, 3});
    EXPECT_EQ(test(3), (Verdict{BIT_FAIL, 0xC0}));
}

TEST_F(ModulesBit, MissingLinkOfTheSecondOfTwoReportsD0)
{
    add_modules({1});
    set_live({1});
    EXPECT_EQ(test(2), (Verdict{BIT_FAIL, 0xD0}));
}

TEST_F(ModulesBit, LinkOffTheSubnetThoughTheirNumberIsRightReportsA)
{
    add_modules({1, 4});
    set_live({1});
    EXPECT_EQ(test(2), (Verdict{BIT_FAIL, 0xA0}));
}

TEST_F(ModulesBit, LinkWithoutAnAddressMatchesNoSubnet)
{
    add_modules({1});
    add("usb7", "1-1.7:1.0");
    set_live({1});
    EXPECT_EQ(test(2), (Verdict{BIT_FAIL, 0xA0}));
}

TEST_F(ModulesBit, EachModuleHasItsFourBits)
{
    add_modules({1, 2, 4});
    EXPECT_EQ(test(4), (Verdict{BIT_FAIL, 0xCDCC}));
    set_live({4});
    EXPECT_EQ(test(4), (Verdict{BIT_FAIL, 0x0DCC}));
    set_live({1, 2});
    EXPECT_EQ(test(4), (Verdict{BIT_FAIL, 0xCD00}));
}

TEST_F(ModulesBit, WrongNumberOfLinksWithAllModulesLiveFailsWithoutAnErrorWord)
{
    add_modules({1, 2, 3});
    set_live({1, 2, 3, 4});
    EXPECT_EQ(test(4), (Verdict{BIT_FAIL, 0}));
    EXPECT_EQ(test(2), (Verdict{BIT_FAIL, 0}));
    EXPECT_EQ(test(3), (Verdict{BIT_PASS, 0}));
}

TEST_F(ModulesBit, OnlyInstalledModulesAreChecked)
{
    add_modules({1, 2});
    set_live({1, 2});
    EXPECT_EQ(test(2), (Verdict{BIT_PASS, 0})); // 3 and 4 are not live
}

TEST_F(ModulesBit, NoModulesAndNoLinksPass)
{
    EXPECT_EQ(test(0), (Verdict{BIT_PASS, 0}));
}

TEST_F(ModulesBit, AtMostFourModulesAreChecked)
{
    add_modules({1, 2, 3, 4});
    EXPECT_EQ(test(5), (Verdict{BIT_FAIL, 0xCCCC}));
}

TEST_F(ModulesBit, FifthLinkIsNotSeen)
{
    add_modules({1, 2, 3, 4});
    add("usb7", "1-1.7:1.0");
    set_live({1, 2, 3, 4});
    EXPECT_EQ(test(4), (Verdict{BIT_PASS, 0}));
}

TEST_F(ModulesBit, ModuleIsQueriedAtItsAddressInTheTable)
{
    add_modules({1, 3});
    set_live({1});
    orvanx->m_orvanXIp[1] = "192.168.9.77";
    EXPECT_EQ(test(2), (Verdict{BIT_FAIL, 0xC0}));
}

TEST_F(ModulesBit, ListThatCannotBeReadFailsTheTest)
{
    set_live({1});
    ASSERT_EQ(mount("tmpfs", "/sys/class", "tmpfs", 0, nullptr), 0);
    OutputCapture errors(STDERR_FILENO);
    const Verdict both = test(2);
    const Verdict live = test(1);
    ::umount("/sys/class");
    EXPECT_EQ(both, (Verdict{BIT_FAIL, 0xD0}));
    EXPECT_EQ(live, (Verdict{BIT_FAIL, 0}));
}

TEST_F(ModulesBit, ReportsTheRequestedKind)
{
    add_modules({1});
    orvanx->modules_bit(1, CBIT);
    EXPECT_EQ(verdict(CBIT), (Verdict{BIT_FAIL, 0xC}));
    EXPECT_EQ(verdict(PBIT), kUntouched);
    orvanx->modules_bit(1, PBIT);
    EXPECT_EQ(verdict(PBIT), (Verdict{BIT_FAIL, 0xC}));
}

TEST_F(ModulesBit, TouchesNoOtherTest)
{
    add_modules({1});
    orvanx->modules_bit(1, CBIT);
    orvanx->modules_bit(1, PBIT);
    EXPECT_EQ(verdict(PBIT, "EEPROM test"), kUntouched);
    EXPECT_EQ(verdict(CBIT, "FAN test"), kUntouched);
    EXPECT_EQ(verdict(CBIT, "TEMP test"), kUntouched);
}

TEST_F(ModulesBit, KindWithoutTheRowIsNotLogged)
{
    add_modules({1});
    orvanx->modules_bit(1, IBIT);
    EXPECT_TRUE(logs.lines().empty());
    EXPECT_EQ(verdict(PBIT), kUntouched);
    EXPECT_EQ(verdict(CBIT), kUntouched);
}

TEST_F(ModulesBit, BadKindScansButReportsNothing)
{
    ASSERT_EQ(mount("tmpfs", "/sys/class", "tmpfs", 0, nullptr), 0);
    OutputCapture errors(STDERR_FILENO);
    for (const int type : {3, 4, -1}) {
        orvanx->modules_bit(1, type);
    }
    ::umount("/sys/class");
    std::string scans;
    for (int scan = 0; scan < 3; ++scan) {
        scans += "opendir(/sys/class/net): No such file or directory\n";
    }
    EXPECT_EQ(errors.text(), scans);
    EXPECT_EQ(verdict(PBIT), kUntouched);
    EXPECT_EQ(verdict(CBIT), kUntouched);
}

TEST_F(ModulesBit, RepairedInstrumentPassesAgain)
{
    add_modules({1});
    EXPECT_EQ(test(1), (Verdict{BIT_FAIL, 0xC}));
    set_live({1});
    EXPECT_EQ(test(1), (Verdict{BIT_PASS, 0}));
}

// ---- from the temperature poll

/** Modules 1 and 3 answer on the loopback; module 2's address in the sandbox refuses connections.
 */
TEST_F(ModulesBit, APollWithAModuleDownReportsItAndItsRecoveryDoesNot)
{
    add_modules({1, 2, 3});
    ScriptedModule answering;
    answering.always(ModuleAnswer::reply("30;+OK\r\n"));
    const auto attach = [&](int channel) {
        orvanx->m_orvanXIp[channel - 1] = answering.address();
        orvanx->m_OrvanXport[channel - 1] = static_cast<uint32_t>(answering.port());
    };
    attach(1);
    attach(3);
    set_live({1, 2, 3});
    orvanx->getTempOrvanXForAlltheChannel(3);
    EXPECT_EQ(verdict(CBIT), (Verdict{BIT_FAIL, 0xC0}));
    EXPECT_EQ(verdict(PBIT), kUntouched);
    EXPECT_EQ(verdict(CBIT, "TEMP test"), (Verdict{BIT_PASS, 0}));
    attach(2);
    orvanx->getTempOrvanXForAlltheChannel(3);
    EXPECT_TRUE(orvanx->m_isLive[1]);
    EXPECT_EQ(verdict(CBIT), (Verdict{BIT_FAIL, 0xC0}));
    EXPECT_EQ(verdict(CBIT, "TEMP test"), (Verdict{BIT_PASS, 0}));
}

} // namespace

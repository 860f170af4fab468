#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "bit_bench.h"
#include "orvan_sdk/bit/bit_manager.h"
#include "orvan_sdk/bit/bit_tests.h"
#include "readdir_tap.h"
#include "support/log_capture.h"
#include "support/output_capture.h"

using namespace orvan_test;

namespace {

// ---- what a device registers

TEST(DeviceTests, FiveRowsAreRegisteredInOrder)
{
    LogCapture logs;
    BITManager* const manager = BITManager::getInstance(0);
    logs.clear();
    int device = 0;
    EXPECT_EQ(register_bit_tests(manager, &device), 0);

    const auto names = [manager](eBitType type) {
        std::vector<std::string> found;
        bitReport_t report = {};
        for (int index = 0; manager->getTestResult(type, index, report); ++index) {
            EXPECT_EQ(report.result, BIT_NOT_PERFORMED);
            EXPECT_EQ(report.errorCode, ERR_NONE);
            found.emplace_back(report.testName);
        }
        return found;
    };
    EXPECT_EQ(names(PBIT), (std::vector<std::string>{"EEPROM test", "MODULES test"}));
    EXPECT_EQ(names(CBIT), (std::vector<std::string>{"FAN test", "TEMP test", "MODULES test"}));
    EXPECT_EQ(names(IBIT), std::vector<std::string>{});
    EXPECT_TRUE(logs.lines().empty());
}

TEST(DeviceTests, WithoutAManagerNothingIsRegistered)
{
    LogCapture logs;
    int device = 0;
    EXPECT_EQ(register_bit_tests(nullptr, &device), -1);
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_ERR, "Failed regitering bit tests"}}));
}

TEST(DeviceTests, FullTableIsNoFailure)
{
    LogCapture logs;
    BITManager* const manager = BITManager::getInstance(0);
    for (int index = 0; index < kMaxTestsOfType; ++index) {
        manager->registerTest(PBIT, {"other", {}, nullptr, false});
    }
    EXPECT_EQ(register_bit_tests(manager, nullptr), 0);
    EXPECT_EQ(logs.count(LOG_ERR, "Error: Maximum number of tests reached for PBIT!"), 2u);
    EXPECT_EQ(manager->getTestsNumber(CBIT), 3);
}

TEST(DeviceTests, ModuleFailuresHaveFixedNumbers)
{
    EXPECT_EQ(kModuleOffSubnet, 10);
    EXPECT_EQ(kModuleSilent, 12);
    EXPECT_EQ(kModuleLinkMissing, 13);
}

// ---- the scan for links; what it finds is tested where there are links

TEST(DeviceLinks, AFolderThatCannotBeReadIsReported)
{
    const OutputCapture errors(STDERR_FILENO);
    rndis_device_t links[1];
    fail_readdir(EIO);
    EXPECT_EQ(scan_rndis_devices(links, 1), 0);
    fail_readdir(0);
    EXPECT_EQ(errors.text(), "readdir(/sys/class/net): Input/output error\n");
}

// ---- the link on an address's subnet

rndis_device_t link_with(const char* ipv4)
{
    rndis_device_t link = {"usb0", "1-1:1.0", {}};
    std::strncpy(link.ipv4, ipv4, sizeof link.ipv4 - 1);
    return link;
}

TEST(DeviceSubnet, LinkOnTheSameSubnetIsFound)
{
    const rndis_device_t links[] = {link_with("192.168.7.2"), link_with("192.168.8.2")};
    EXPECT_EQ(find_device_subnet(links, 2, "192.168.8.1"), 1);
    EXPECT_EQ(find_device_subnet(links, 2, "192.168.7.255"), 0);
    EXPECT_EQ(find_device_subnet(links, 2, "192.168.9.1"), -1);
}

TEST(DeviceSubnet, FirstThreePartsOfTheAddressCount)
{
    const rndis_device_t links[] = {link_with("192.168.7.2")};
    EXPECT_EQ(find_device_subnet(links, 1, "192.168.6.2"), -1);
    EXPECT_EQ(find_device_subnet(links, 1, "192.169.7.2"), -1);
    EXPECT_EQ(find_device_subnet(links, 1, "193.168.7.2"), -1);
    EXPECT_EQ(find_device_subnet(links, 1, "192.168.7.0"), 0);
    EXPECT_EQ(RNDIS_SUBNET_MASK, 0xFFFFFF00u);
}

TEST(DeviceSubnet, FirstOfTwoLinksOnASubnetIsFound)
{
    const rndis_device_t links[] = {link_with(""), link_with("192.168.8.3"), link_with("192.168.8.2")};
    EXPECT_EQ(find_device_subnet(links, 3, "192.168.8.1"), 1);
}

TEST(DeviceSubnet, LinkWithoutAnAddressMatchesNothing)
{
    const rndis_device_t links[] = {link_with("")};
    EXPECT_EQ(find_device_subnet(links, 1, "192.168.7.1"), -1);
    EXPECT_EQ(find_device_subnet(links, 1, "0.0.0.0"), -1);
    EXPECT_EQ(find_device_subnet(links, 1, "255.255.255.255"), -1);
    EXPECT_EQ(find_device_subnet(links, 1, ""), -1);
}

TEST(DeviceSubnet, OnlyTheCountedRowsAreSearched)
{
    const rndis_device_t links[] = {link_with("192.168.7.2"), link_with("192.168.8.2")};
    EXPECT_EQ(find_device_subnet(links, 1, "192.168.8.1"), -1);
}

TEST(DeviceSubnet, BadArgumentsFindNothing)
{
    const rndis_device_t links[] = {link_with("192.168.7.2")};
    EXPECT_EQ(find_device_subnet(nullptr, 1, "192.168.7.1"), -1);
    EXPECT_EQ(find_device_subnet(links, 0, "192.168.7.1"), -1);
    EXPECT_EQ(find_device_subnet(links, -1, "192.168.7.1"), -1);
    EXPECT_EQ(find_device_subnet(links, 1, nullptr), -1);
    EXPECT_EQ(find_device_subnet(links, 1, "module 1"), -1);
}

TEST(DeviceTests, EveryRowIsRunByTheDeviceAndNotByTheManager)
{
    LogCapture logs;
    BITManager* const manager = BITManager::getInstance(0);
    int device = 0;
    ASSERT_EQ(register_bit_tests(manager, &device), 0);
    for (const eBitType type : {PBIT, CBIT}) {
        const BITType_t& kind = kind_of(*manager, type);
        for (int row = 0; row < kind.testCount; ++row) {
            SCOPED_TRACE(kind.testTable[row].testName);
            EXPECT_TRUE(kind.testTable[row].testFunction == nullptr);
            EXPECT_FALSE(kind.testTable[row].autoMode);
            EXPECT_EQ(kind.testTable[row].object, &device);
            EXPECT_EQ(kind.testRecords[row].object, &device);
        }
    }
}

} // namespace

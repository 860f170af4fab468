#include <gtest/gtest.h>

#include "orvan_sandbox/addresses.h"
#include "orvan_sandbox/role.h"

using namespace orvan_sandbox;

TEST(Role, EachNameReadsBackAsItsRole)
{
    const char* names[] = {"controller", "lan", "module-1", "module-2", "module-3", "module-4"};
    for (int index = 0; index < role_count(kMaxModules); ++index) {
        EXPECT_EQ(Role::at(index).name(), names[index]);
        EXPECT_EQ(Role::parse(names[index]), Role::at(index));
    }
    EXPECT_EQ(Role::module(3), Role::at(4));
}

TEST(Role, OtherTextsAreNoRole)
{
    for (const char* text : {"", "Controller", "module-0", "module-5", "module-", "module-1 ", "module1"}) {
        EXPECT_FALSE(Role::parse(text)) << text;
    }
}

TEST(Addresses, FollowTheModuleNumber)
{
    EXPECT_EQ(module_address(1), "192.168.7.1");
    EXPECT_EQ(module_address(4), "192.168.10.1");
    EXPECT_EQ(module_link_address(2), "192.168.8.2");
    EXPECT_EQ(module_loopback_address(3), "127.0.9.1");
    EXPECT_EQ(module_port(1), 6001);
    EXPECT_EQ(module_port(4), 6004);
    EXPECT_EQ(module_interface(1), "usb0");
    EXPECT_EQ(module_interface(4), "usb3");
}

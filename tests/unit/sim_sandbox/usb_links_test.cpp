#include <set>

#include "sandbox_fixture.h"

namespace fs = std::filesystem;
using namespace orvan_sandbox;
using namespace sandbox_test;

namespace {

std::string names_in(const fs::path& folder)
{
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
        names.insert(entry.path().filename());
    }
    std::string text;
    for (const std::string& name : names) {
        text += name + "\n";
    }
    return text;
}

} // namespace

TEST(UsbLinks, ListHasOneAdapterForEachModule)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 3}));
    EXPECT_EQ(shell(sandbox, Role::controller(), "ls /sys/class/net"), "eth0\nlo\nusb0\nusb1\nusb2\n");
}

TEST(UsbLinks, ListWithoutModulesHasNoAdapter)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    EXPECT_EQ(shell(sandbox, Role::controller(), "ls /sys/class/net"), "eth0\nlo\n");
}

TEST(UsbLinks, OnlyModulesHaveTheRndisHostDriver)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 2}));
    EXPECT_EQ(
        shell(
            sandbox, Role::controller(),
            "for i in usb0 usb1 eth0 lo; do basename \"$(readlink /sys/class/net/$i/device/driver)\"; done"),
        "rndis_host\nrndis_host\nbcmgenet\n\n");
}

TEST(UsbLinks, RealPathOfTheDeviceEndsInAUsbNumber)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 4}));
    EXPECT_EQ(shell(sandbox, Role::controller(),
                    "for i in 0 1 2 3; do basename \"$(realpath -e /sys/class/net/usb$i/device)\"; done"),
              "1-1.1:1.0\n1-1.2:1.0\n1-1.3:1.0\n1-1.4:1.0\n");
}

TEST(UsbLinks, ListOfTheMachineIsUntouched)
{
    const std::string before = names_in("/sys/class/net");
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 4}));
    EXPECT_EQ(names_in("/sys/class/net"), before);
}

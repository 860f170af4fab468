#include <cstring>
#include <fstream>

#include <arpa/inet.h>
#include <linux/capability.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "support/loopback.h"
#include "support/output_capture.h"
#include "usb_links_bench.h"

namespace fs = std::filesystem;
using namespace orvan_test;

namespace {

using RndisScan = SandboxLinks;
using RndisScanOfTree = LaidLinks;
using LinkAddress = SandboxLinks;

bool interface_ioctl(unsigned long request, const char* ifname, const auto& fill)
{
    ifreq change = {};
    std::strncpy(change.ifr_name, ifname, IFNAMSIZ - 1);
    fill(change);
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool done = ::ioctl(fd, request, &change) == 0;
    ::close(fd);
    return done;
}

bool rename_interface(const char* from, const char* to)
{
    return interface_ioctl(SIOCSIFFLAGS, from, [](ifreq& change) { change.ifr_flags = 0; }) &&
           interface_ioctl(SIOCSIFNAME, from,
                           [to](ifreq& change) { std::strncpy(change.ifr_newname, to, IFNAMSIZ - 1); });
}

/** Drops this thread's capabilities to read files without permission. */
class PlainPermissions {
public:
    PlainPermissions()
    {
        ::syscall(SYS_capget, &m_header, m_before);
        __user_cap_data_struct without[_LINUX_CAPABILITY_U32S_3] = {m_before[0], m_before[1]};
        without[0].effective &= ~((1u << CAP_DAC_OVERRIDE) | (1u << CAP_DAC_READ_SEARCH));
        ::syscall(SYS_capset, &m_header, without);
    }
    ~PlainPermissions() { ::syscall(SYS_capset, &m_header, m_before); }
    PlainPermissions(const PlainPermissions&) = delete;
    PlainPermissions& operator=(const PlainPermissions&) = delete;

private:
    __user_cap_header_struct m_header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct m_before[_LINUX_CAPABILITY_U32S_3] = {};
};

/** Makes every further open fail. */
class NoDescriptors {
public:
    NoDescriptors()
    {
        ::getrlimit(RLIMIT_NOFILE, &m_before);
        const rlimit none = {0, m_before.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptors() { ::setrlimit(RLIMIT_NOFILE, &m_before); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

private:
    rlimit m_before = {};
};

// ---- the tree of an instrument with four modules

TEST_F(RndisScan, EveryModuleLinkIsFoundWithItsDeviceAndAddress)
{
    const Scan scan;
    ASSERT_EQ(scan.count, 4);
    for (int module = 1; module <= 4; ++module) {
        const rndis_device_t* const link = scan.find(orvan_sandbox::module_interface(module));
        ASSERT_NE(link, nullptr);
        EXPECT_EQ(link->usb_id, "1-1." + std::to_string(module) + ":1.0");
        EXPECT_EQ(link->ipv4, orvan_sandbox::module_link_address(module));
    }
}

TEST_F(RndisScan, EveryModuleAddressIsOnTheSubnetOfItsLink)
{
    const Scan scan;
    for (int module = 1; module <= 4; ++module) {
        const std::string address = orvan_sandbox::module_address(module);
        const int index = find_device_subnet(scan.rows.data(), scan.count, address.c_str());
        ASSERT_GE(index, 0);
        EXPECT_EQ(scan.rows[static_cast<size_t>(index)].ifname, orvan_sandbox::module_interface(module));
    }
    EXPECT_EQ(find_device_subnet(scan.rows.data(), scan.count, "192.168.11.1"), -1);
}

TEST_F(RndisScan, LanInterfaceIsNoLink)
{
    const Scan scan(8);
    EXPECT_EQ(scan.count, 4);
    EXPECT_EQ(scan.find("eth0"), nullptr);
    EXPECT_EQ(scan.find("lo"), nullptr);
}

TEST_F(RndisScan, LeavesNoDescriptorOpen)
{
    const size_t before = open_descriptors();
    const Scan whole;
    const Scan part(1);
    EXPECT_EQ(part.count, 1);
    EXPECT_EQ(open_descriptors(), before);
}

// ---- other trees

TEST_F(RndisScanOfTree, MachineWithoutLinksHasNone)
{
    EXPECT_EQ(Scan().count, 0);
    add("eth0", "fd580000.ethernet", "bcmgenet");
    fs::create_directory(net / "lo");
    EXPECT_EQ(Scan().count, 0);
}

TEST_F(RndisScanOfTree, InterfaceWithoutADriverIsSkipped)
{
    add("usb0");
    fs::remove(net / ".devices/1-1.1:1.0/driver");
    add("usb1", "1-1.2:1.0");
    fs::create_directory(net / "veth0"); // a virtual one has no device either
    std::ofstream(net / "bonding_masters") << "\n";
    const Scan scan;
    EXPECT_EQ(scan.count, 1);
    EXPECT_NE(scan.find("usb1"), nullptr);
}

TEST_F(RndisScanOfTree, DriverThatIsAFileOrFolderIsNoLink)
{
    fs::create_directories(net / "usb0/device/driver");
    fs::create_directories(net / "usb1/device");
    std::ofstream(net / "usb1/device/driver") << "rndis_host";
    EXPECT_EQ(Scan().count, 0);
}

TEST_F(RndisScanOfTree, LastPathComponentOfTheDriverIsUsed)
{
    add("usb0", "1-1.1:1.0", "rndis_host2");
    add("usb1", "1-1.2:1.0", "a_rndis_host");
    add("usb2", "1-1.3:1.0", "rndis_host/cdc_ether");
    add("usb3", "1-1.4:1.0", "rndis_host/");
    add("usb4", "1-1.5:1.0", "cdc_ether/rndis_host");
    const Scan scan(8);
    EXPECT_EQ(scan.count, 1);
    EXPECT_NE(scan.find("usb4"), nullptr);
}

TEST_F(RndisScanOfTree, DriverLinkOfOneComponentCounts)
{
    fs::create_directories(net / "usb0/device");
    fs::create_symlink("rndis_host", net / "usb0/device/driver");
    EXPECT_EQ(Scan().count, 1);
}

TEST_F(RndisScanOfTree, NamesThatBeginWithADotAreSkipped)
{
    add(".usb0");
    add("usb1", "1-1.2:1.0");
    const Scan scan;
    EXPECT_EQ(scan.count, 1);
    EXPECT_EQ(scan.find(".usb0"), nullptr);
}

TEST_F(RndisScanOfTree, StopsWhenItsRoomIsFull)
{
    add_modules({1, 2, 3, 4});
    for (int room = 0; room <= 3; ++room) {
        const Scan scan(room);
        EXPECT_EQ(scan.count, room);
        EXPECT_EQ(scan.rows.back().ifname[0], '#'); // and writes nothing after it
    }
    EXPECT_EQ(Scan(5).count, 4);
    EXPECT_EQ(scan_rndis_devices(nullptr, 0), 0);
    EXPECT_EQ(scan_rndis_devices(nullptr, -1), 0);
}

TEST_F(RndisScanOfTree, RowsAfterTheLinksFoundAreUnchanged)
{
    add_modules({2});
    const Scan scan;
    EXPECT_EQ(scan.count, 1);
    EXPECT_EQ(scan.rows[1].ifname[0], '#');
}

TEST_F(RndisScanOfTree, LinkWithoutAnAddressIsListedAndMatchesNoSubnet)
{
    add("usb7"); // the kernel knows no such interface
    add("usb1", "1-1.2:1.0");
    const Scan scan;
    EXPECT_EQ(scan.count, 2);
    ASSERT_NE(scan.find("usb7"), nullptr);
    EXPECT_STREQ(scan.find("usb7")->ipv4, "");
    EXPECT_STREQ(scan.find("usb7")->usb_id, "1-1.1:1.0");
    EXPECT_EQ(find_device_subnet(scan.rows.data(), 2, "192.168.7.1"), -1);
    EXPECT_GE(find_device_subnet(scan.rows.data(), 2, "192.168.8.1"), 0);
}

TEST_F(RndisScanOfTree, RowIsClearedBeforeItIsFilled)
{
    add("usb7");
    const Scan scan;
    const rndis_device_t expected = {"usb7", "1-1.1:1.0", ""};
    EXPECT_EQ(std::memcmp(scan.rows.data(), &expected, sizeof expected), 0);
}

TEST_F(RndisScanOfTree, LongNamesAreCut)
{
    const std::string name = "usb-link-name-of-20c";
    const std::string device(80, '7');
    add(name, device);
    const Scan scan;
    ASSERT_EQ(scan.count, 1);
    EXPECT_EQ(scan.rows[0].ifname, name.substr(0, 15));
    EXPECT_EQ(scan.rows[0].usb_id, device.substr(0, 63));
}

TEST_F(RndisScanOfTree, DeviceWithoutARealPathIsListedWithoutAUsbId)
{
    // Reached over links, but with a whole path longer than any path may be.
    fs::path half;
    for (int level = 0; level < 12; ++level) {
        half /= std::string(200, 'd');
    }
    fs::create_directories(net / ".first" / half);
    fs::create_directory_symlink(".first" / half, net / ".half");
    fs::create_directories(net / ".half" / half);
    fs::create_symlink("rndis_host", net / ".half" / half / "driver");
    fs::create_directory(net / "usb1");
    fs::create_directory_symlink("../.half" / half, net / "usb1/device");
    const Scan scan;
    ASSERT_EQ(scan.count, 1);
    EXPECT_STREQ(scan.rows[0].usb_id, "");
    EXPECT_STREQ(scan.rows[0].ipv4, "192.168.8.2");
}

TEST_F(RndisScanOfTree, MissingDirectoryIsReportedOnStandardError)
{
    ASSERT_EQ(mount("tmpfs", "/sys/class", "tmpfs", 0, nullptr), 0);
    OutputCapture errors(STDERR_FILENO);
    const int count = Scan().count;
    ::umount("/sys/class");
    EXPECT_EQ(count, -1);
    EXPECT_EQ(errors.text(), "opendir(/sys/class/net): No such file or directory\n");
}

TEST_F(RndisScanOfTree, UnreadableDirectoryIsReportedOnStandardError)
{
    add_modules({1});
    fs::permissions(net, fs::perms::none);
    OutputCapture errors(STDERR_FILENO);
    const PlainPermissions permissions;
    EXPECT_EQ(Scan().count, -1);
    EXPECT_EQ(errors.text(), "opendir(/sys/class/net): Permission denied\n");
}

// ---- the address of an interface

TEST_F(LinkAddress, IsThatOfTheInterface)
{
    char text[16] = "";
    EXPECT_EQ(get_ipv4("usb1", text, sizeof text), 0);
    EXPECT_STREQ(text, "192.168.8.2");
    EXPECT_EQ(get_ipv4("eth0", text, sizeof text), 0);
    EXPECT_EQ(text, std::string(orvan_sandbox::kControllerLanAddress));
}

TEST_F(LinkAddress, UnknownInterfaceHasNone)
{
    char text[16] = "before";
    EXPECT_EQ(get_ipv4("usb9", text, sizeof text), -1);
    EXPECT_EQ(get_ipv4("", text, sizeof text), -1);
    EXPECT_STREQ(text, "before");
}

TEST_F(LinkAddress, InterfaceWithoutAnAddressHasNone)
{
    const auto set_address = [](const char* address) {
        return interface_ioctl(SIOCSIFADDR, "usb2", [address](ifreq& change) {
            sockaddr_in inet = {};
            inet.sin_family = AF_INET;
            ::inet_pton(AF_INET, address, &inet.sin_addr);
            std::memcpy(&change.ifr_addr, &inet, sizeof inet);
        });
    };
    ASSERT_TRUE(set_address("0.0.0.0"));
    char text[16] = "before";
    EXPECT_EQ(get_ipv4("usb2", text, sizeof text), -1);
    EXPECT_STREQ(text, "before");

    const Scan scan;
    EXPECT_EQ(scan.count, 4);
    ASSERT_NE(scan.find("usb2"), nullptr);
    EXPECT_STREQ(scan.find("usb2")->ipv4, "");
    EXPECT_EQ(find_device_subnet(scan.rows.data(), scan.count, "192.168.9.1"), -1);
    ASSERT_TRUE(set_address("192.168.9.2"));
}

TEST_F(LinkAddress, TextThatDoesNotFitIsRefused)
{
    char text[16] = "before";
    EXPECT_EQ(get_ipv4("usb0", text, 11), -1);
    EXPECT_EQ(get_ipv4("usb0", text, 0), -1);
    EXPECT_STREQ(text, "before");
    EXPECT_EQ(get_ipv4("usb0", text, 12), 0);
    EXPECT_STREQ(text, "192.168.7.2");
}

TEST_F(LinkAddress, FifteenCharactersOfTheNameAreSignificant)
{
    ASSERT_TRUE(rename_interface("usb3", "usb-link-name15"));
    char text[16] = "";
    EXPECT_EQ(get_ipv4("usb-link-name15 and more", text, sizeof text), 0);
    EXPECT_STREQ(text, "192.168.10.2");
    ASSERT_TRUE(rename_interface("usb-link-name15", "usb3"));
}

TEST_F(LinkAddress, WithoutASocketThereIsNone)
{
    char text[16] = "before";
    int result = 0;
    {
        const NoDescriptors limit;
        result = get_ipv4("usb0", text, sizeof text);
    }
    EXPECT_EQ(result, -1);
    EXPECT_STREQ(text, "before");
}

TEST_F(LinkAddress, LeavesNoDescriptorOpen)
{
    const size_t before = open_descriptors();
    char text[16];
    get_ipv4("usb0", text, sizeof text);
    get_ipv4("usb9", text, sizeof text);
    get_ipv4("usb0", text, 1);
    EXPECT_EQ(open_descriptors(), before);
}

} // namespace

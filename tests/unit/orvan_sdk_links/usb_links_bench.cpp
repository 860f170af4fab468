#include "usb_links_bench.h"

#include <cstring>

#include <sys/mount.h>

namespace fs = std::filesystem;

namespace orvan_test {

fs::path SandboxLinks::s_state;
std::optional<orvan_sandbox::Result<orvan_sandbox::Inside>> SandboxLinks::s_inside;

void SandboxLinks::SetUpTestSuite()
{
    if (s_inside) {
        return;
    }
    std::string name = (fs::temp_directory_path() / "orvan-test-XXXXXX").string();
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    s_state = name;
    s_inside.emplace(orvan_sandbox::enter({s_state, 4}));
}

void SandboxLinks::TearDownTestSuite()
{
    std::error_code code;
    fs::remove_all(s_state, code);
}

void SandboxLinks::SetUp()
{
    if (!s_inside->ok() && s_inside->error().refused) {
        GTEST_SKIP() << s_inside->error().text();
    }
    ASSERT_TRUE(s_inside->ok()) << s_inside->error().text();
}

void LaidLinks::SetUp()
{
    SandboxLinks::SetUp();
    if (IsSkipped() || HasFatalFailure()) {
        return;
    }
    ASSERT_EQ(mount("tmpfs", net.c_str(), "tmpfs", 0, "mode=755"), 0) << std::strerror(errno);
    m_mounted = true;
}

void LaidLinks::TearDown()
{
    if (m_mounted) {
        ::umount(net.c_str());
    }
}

void LaidLinks::add(const std::string& ifname, const std::string& device, const std::string& driver)
{
    const fs::path devices = net / ".devices";
    fs::create_directories(net / ifname);
    fs::create_directories(devices / device);
    if (!fs::is_symlink(devices / device / "driver")) {
        fs::create_directory_symlink("../../../../bus/usb/drivers/" + driver, devices / device / "driver");
    }
    fs::create_directory_symlink("../.devices/" + device, net / ifname / "device");
}

void LaidLinks::add_modules(const std::vector<int>& modules)
{
    for (const int module : modules) {
        add(orvan_sandbox::module_interface(module), "1-1." + std::to_string(module) + ":1.0");
    }
}

Scan::Scan(int room) : rows(static_cast<size_t>(room > 0 ? room : 0) + 1)
{
    std::memset(rows.data(), '#', rows.size() * sizeof(rndis_device_t));
    count = scan_rndis_devices(rows.data(), room);
}

const rndis_device_t* Scan::find(const std::string& ifname) const
{
    for (int index = 0; index < count; ++index) {
        if (rows[static_cast<size_t>(index)].ifname == ifname) {
            return &rows[static_cast<size_t>(index)];
        }
    }
    return nullptr;
}

} // namespace orvan_test

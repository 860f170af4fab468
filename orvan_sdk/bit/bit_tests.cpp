#include "orvan_sdk/bit/bit_tests.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include <arpa/inet.h>
#include <dirent.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include "orvan_sdk/bit/bit_manager.h"

namespace {

const char* last_component(const char* path)
{
    const char* const slash = std::strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

// Copies what fits into a cleared field; its last byte stays zero.
template <size_t kSize>
void copy_text(char (&field)[kSize], const char* text)
{
    std::memcpy(field, text, ::strnlen(text, kSize - 1));
}

bool is_rndis_link(const std::string& device)
{
    char driver[PATH_MAX] = {};
    return ::readlink((device + "/driver").c_str(), driver, sizeof driver - 1) >= 0 &&
           std::strcmp(last_component(driver), DRIVER_NAME) == 0;
}

rndis_device_t describe_link(const char* ifname, const std::string& device)
{
    rndis_device_t link = {};
    copy_text(link.ifname, ifname);
    char path[PATH_MAX];
    if (::realpath(device.c_str(), path) != nullptr) {
        copy_text(link.usb_id, last_component(path));
    }
    get_ipv4(ifname, link.ipv4, sizeof link.ipv4);
    return link;
}

// In host order; nothing if the text, which may be empty, is not an address.
std::optional<uint32_t> subnet_of(const char* ip)
{
    in_addr address = {};
    if (::inet_pton(AF_INET, ip, &address) != 1) {
        return std::nullopt;
    }
    return ntohl(address.s_addr) & RNDIS_SUBNET_MASK;
}

} // namespace

int register_bit_tests(BITManager* manager, void* device)
{
    if (manager == nullptr) {
        ::syslog(LOG_ERR, "Failed regitering bit tests");
        return -1;
    }
    // No functions: the owner of each check reports its outcome.
    const Test_t eeprom = {kEepromTest, {}, device, false};
    const Test_t modules = {kModulesTest, {}, device, false};
    const Test_t fan = {kFanTest, {}, device, false};
    const Test_t temperature = {kTempTest, {}, device, false};
    manager->registerTest(PBIT, eeprom);
    manager->registerTest(PBIT, modules);
    manager->registerTest(CBIT, fan);
    manager->registerTest(CBIT, temperature);
    manager->registerTest(CBIT, modules);
    return 0;
}

int scan_rndis_devices(rndis_device_t* out, int devsNo)
{
    DIR* const folder = ::opendir(SYS_CLASS_NET);
    if (folder == nullptr) {
        perror("opendir(/sys/class/net)");
        return -1;
    }
    int found = 0;
    while (found < devsNo) {
        errno = 0;
        const dirent* const entry = ::readdir(folder);
        if (entry == nullptr) {
            if (errno != 0) {
                perror("readdir(/sys/class/net)");
            }
            break;
        }
        if (entry->d_name[0] == '.') {
            continue;
        }
        const std::string device = std::string(SYS_CLASS_NET) + "/" + entry->d_name + "/device";
        if (is_rndis_link(device)) {
            out[found++] = describe_link(entry->d_name, device);
        }
    }
    ::closedir(folder);
    return found;
}

int find_device_subnet(const rndis_device_t* devices, int count, const char* ip)
{
    if (devices == nullptr || count < 1 || ip == nullptr) {
        return -1;
    }
    const std::optional<uint32_t> wanted = subnet_of(ip);
    if (!wanted) {
        return -1;
    }
    for (int index = 0; index < count; ++index) {
        if (subnet_of(devices[index].ipv4) == wanted) {
            return index;
        }
    }
    return -1;
}

int get_ipv4(const char* ifname, char* ip_out, size_t ip_len)
{
    ifreq request = {};
    copy_text(request.ifr_name, ifname);
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return -1;
    }
    const int result = ::ioctl(fd, SIOCGIFADDR, &request);
    ::close(fd);
    if (result < 0) {
        return -1;
    }
    sockaddr_in address = {};
    std::memcpy(&address, &request.ifr_addr, sizeof address);
    const auto length = static_cast<socklen_t>(ip_len);
    return ::inet_ntop(AF_INET, &address.sin_addr, ip_out, length) != nullptr ? 0 : -1;
}

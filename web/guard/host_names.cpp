#include "guard/host_names.h"

#include <algorithm>
#include <climits>
#include <memory>

#include <ifaddrs.h>
#include <unistd.h>

#include "guard/authority.h"
#include "http/socket_address.h"

namespace orvan_web {
namespace {

// As parse_authority() has hosts.
std::string canonical(const std::string& name)
{
    const bool is_v6 = std::count(name.begin(), name.end(), ':') > 1 && !name.starts_with('[');
    const auto authority = parse_authority(is_v6 ? '[' + name + ']' : name);
    return authority ? authority->host : "";
}

std::string host_name()
{
    char name[HOST_NAME_MAX + 1] = "";
    ::gethostname(name, sizeof name - 1);
    return name;
}

std::vector<std::string> addresses()
{
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) {
        return {};
    }
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(list, ::freeifaddrs);
    std::vector<std::string> result;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr != nullptr) {
            result.push_back(address_text(*entry->ifa_addr));
        }
    }
    return result;
}

} // namespace

HostNames::Machine HostNames::this_machine()
{
    return {host_name, addresses};
}

HostNames::HostNames(const std::vector<std::string>& names, Machine machine)
    : m_machine(std::move(machine)), m_names{"localhost", "127.0.0.1", "::1"}
{
    std::transform(names.begin(), names.end(), std::back_inserter(m_names), canonical);
}

void HostNames::set_announced(const std::string& name)
{
    const std::lock_guard lock(m_mutex);
    m_announced = canonical(name);
}

bool HostNames::allows(const std::string& host, const std::string& local) const
{
    if (host.empty()) {
        return false;
    }
    if (host == local || std::find(m_names.begin(), m_names.end(), host) != m_names.end()) {
        return true;
    }
    if (const std::lock_guard lock(m_mutex); host == m_announced) {
        return true;
    }
    const std::string whole = canonical(m_machine.host_name());
    const std::string first = whole.substr(0, whole.find('.'));
    if (!first.empty() && (host == whole || host == first || host == first + ".local")) {
        return true;
    }
    const auto all = m_machine.addresses();
    return std::find(all.begin(), all.end(), host) != all.end();
}

} // namespace orvan_web

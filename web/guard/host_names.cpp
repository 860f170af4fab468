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

// avahi announces "NAME.local", or "NAME-2.local" and so on if another machine has that name. No server
// outside the local network can make such a name lead anywhere.
bool is_announced_name(std::string_view host, const std::string& name)
{
    constexpr std::string_view kDomain = ".local";
    if (!host.starts_with(name) || !host.ends_with(kDomain) || host.size() < name.size() + kDomain.size()) {
        return false;
    }
    const std::string_view number = host.substr(name.size(), host.size() - name.size() - kDomain.size());
    return number.empty() || (number.size() > 1 && number.front() == '-' &&
                              number.find_first_not_of("0123456789", 1) == std::string_view::npos);
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

bool HostNames::allows(const std::string& host, const std::string& local) const
{
    if (host.empty()) {
        return false;
    }
    if (host == local || std::find(m_names.begin(), m_names.end(), host) != m_names.end()) {
        return true;
    }
    const std::string whole = canonical(m_machine.host_name());
    const std::string first = whole.substr(0, whole.find('.'));
    if (!first.empty() && (host == whole || host == first || is_announced_name(host, first))) {
        return true;
    }
    const auto all = m_machine.addresses();
    return std::find(all.begin(), all.end(), host) != all.end();
}

} // namespace orvan_web

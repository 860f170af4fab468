#include "change.h"
#include "checks.h"
#include "commands.h"
#include "console.h"

namespace orvan_maint {

using namespace HaldeElec::Orvan;

namespace {

std::string value_of(const SettingValues& values, char letter)
{
    const auto found = values.find(letter);
    return found != values.end() ? found->second : std::string();
}

// What the instrument is going to do, where that is not obvious.
std::vector<std::string> notes(const SettingValues& values, const Rows& rows)
{
    std::vector<std::string> lines;
    const std::string dhcp = value_of(values, FLASH_DHCPSTAT);
    const bool is_on = dhcp.empty() ? text_of(rows, FLASH_DHCPSTAT) == "ON" : dhcp == "on";
    const bool has_fixed =
        values.contains(FLASH_IPADDR) || values.contains(FLASH_MASK) || values.contains(FLASH_GATEWAY);
    if (is_on && has_fixed) {
        lines.push_back("  DHCP " + std::string(dhcp == "on" ? "is to be" : "was") +
                        " on: the fixed address is stored, and not used while it is");
    }
    if (dhcp == "off" && !(values.contains(FLASH_IPADDR) && values.contains(FLASH_MASK))) {
        lines.emplace_back("  what is not given of address, mask and gateway stays as it was stored before");
    }
    // Every change but the port makes it reconfigure its network.
    if (is_on && values.size() > values.count(FLASH_SCPI_PORT)) {
        lines.emplace_back("  DHCP assigns the address again: discover shows it");
    }
    if (!is_on && values.contains(FLASH_IPADDR)) {
        lines.push_back("  the instrument will answer at " + value_of(values, FLASH_IPADDR));
    }
    if (!is_on && dhcp.empty() && has_fixed) {
        const auto then = [&](char letter) {
            return values.contains(letter) ? value_of(values, letter) : text_of(rows, letter);
        };
        const std::string complaint =
            check_network(then(FLASH_IPADDR), then(FLASH_MASK), then(FLASH_GATEWAY));
        if (!complaint.empty()) {
            lines.push_back("  careful: " + complaint);
        }
    }
    return lines;
}

} // namespace

void set_network(const Options& options, int stop)
{
    const Target target = choose_instrument(options.reach, stop);
    std::vector<std::string> plan = change_plan(target.identity, kNetworkSettings, options.settings);
    for (const std::string& line : notes(options.settings, target.identity.rows)) {
        plan.push_back(line);
    }
    agree(plan, options.yes, stop);

    std::vector<RequestRow> rows;
    for (const auto& [letter, value] : options.settings) {
        // The instrument only looks at the first letter.
        rows.push_back({letter, letter != FLASH_DHCPSTAT ? value : value == "on" ? "Y" : "N"});
    }
    send_rows(target, kOpcodeNetwork, rows, options.reach.wait);
    say("stored; show reports it after the instrument's next start");
}

} // namespace orvan_maint

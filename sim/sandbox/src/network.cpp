#include "network.h"

#include <sstream>

#include <fcntl.h>
#include <sched.h>
#include <sys/socket.h>

#include "ip_program.h"
#include "namespaces.h"
#include "orvan_sandbox/addresses.h"
#include "orvan_sandbox/link.h"
#include "orvan_sandbox/role.h"

using orvan_common::UniqueFd;

namespace orvan_sandbox {

namespace {

/**
 * The controller's ends are numbered from here, the far ones from 2. The kernel reports a link's state at
 * once when the numbers of its ends differ, otherwise up to a second later.
 */
constexpr int kControllerIndex = 10;

Result<UniqueFd> new_network()
{
    if (Failure failure = unshare_namespace(CLONE_NEWNET, "network")) {
        return *failure;
    }
    // Inherited by `ip`, which uses these descriptors to move the far ends of the links.
    UniqueFd network(::open("/proc/self/ns/net", O_RDONLY));
    if (!network) {
        return system_failure("opening the network namespace");
    }
    return network;
}

/** The MAC addresses are the same in each run: locally administered, containing the IPv4 address. */
std::string mac(int third, int fourth)
{
    char text[18];
    std::snprintf(text, sizeof text, "02:00:0a:00:%02x:%02x", static_cast<unsigned>(third) & 0xffU,
                  static_cast<unsigned>(fourth) & 0xffU);
    return text;
}

std::string end_commands(const std::string& interface, const std::string& address)
{
    return "link set lo up\naddress add " + address + "/24 broadcast + dev " + interface + "\nlink set " +
           interface + " up\n";
}

std::string controller_commands(const std::vector<UniqueFd>& networks, int modules)
{
    std::ostringstream batch;
    batch << "link set lo up\n";
    batch << "link add " << kLanInterface << " index " << kControllerIndex << " address " << mac(0, 2)
          << " type veth peer name " << kLanInterface << " address " << mac(0, 1) << " netns /proc/self/fd/"
          << networks[static_cast<size_t>(Role::lan().index())].get() << '\n';
    batch << "address add " << kControllerLanAddress << "/24 broadcast + dev " << kLanInterface
          << "\nlink set " << kLanInterface << " up\nroute add default via " << kLanAddress << '\n';
    for (int module = 1; module <= modules; ++module) {
        const std::string interface = module_interface(module);
        batch << "link add " << interface << " index " << kControllerIndex + module << " address "
              << mac(6 + module, 2) << " type veth peer name "
              << kModuleOwnInterface << " address " << mac(6 + module, 1) << " netns /proc/self/fd/"
              << networks[static_cast<size_t>(Role::module(module).index())].get() << '\n'
              << "address add " << module_link_address(module) << "/24 dev " << interface << "\nlink set "
              << interface << " up\n"
              // A known neighbour: a link that is down then swallows packets, as a dead module does, instead
              // of failing the address resolution after three seconds.
              << "neighbour add " << module_address(module) << " lladdr " << mac(6 + module, 1) << " dev "
              << interface << " nud permanent\n";
    }
    return batch.str();
}

/**
 * What deploy/sysctl.d sets on an instrument, so that requests to the modules do not run out of ports. In a
 * container /proc/sys may be read-only; then everything works, but gets slower after many requests.
 */
Failure reuse_ports(int network_fd, const UniqueFd& settings)
{
    // /proc/sys/net shows the settings of the process's network namespace.
    if (::setns(network_fd, CLONE_NEWNET) != 0) {
        return system_failure("entering a network namespace");
    }
    const UniqueFd setting(::openat(settings.get(), "net/ipv4/tcp_tw_reuse", O_WRONLY | O_CLOEXEC));
    if (setting && ::write(setting.get(), "1\n", 2) != 2) {
        return system_failure("setting net.ipv4.tcp_tw_reuse");
    }
    return std::nullopt;
}

Failure wait_for_links(int network_fd, const std::vector<std::string>& interfaces)
{
    if (::setns(network_fd, CLONE_NEWNET) != 0) {
        return system_failure("entering a network namespace");
    }
    const UniqueFd socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    for (const std::string& interface : interfaces) {
        if (!wait_for_link(socket.get(), interface, true)) {
            return Error{"waiting for " + interface, 0, "the link does not come up", "", false};
        }
    }
    return std::nullopt;
}

Failure wait_for_all_links(const std::vector<UniqueFd>& networks, int modules)
{
    const auto network_of = [&](Role role) { return networks[static_cast<size_t>(role.index())].get(); };
    std::vector<std::string> at_controller{kLanInterface};
    for (int module = 1; module <= modules; ++module) {
        at_controller.push_back(module_interface(module));
        if (Failure failure = wait_for_links(network_of(Role::module(module)), {kModuleOwnInterface})) {
            return failure;
        }
    }
    if (Failure failure = wait_for_links(network_of(Role::lan()), {kLanInterface})) {
        return failure;
    }
    return wait_for_links(network_of(Role::controller()), at_controller);
}

} // namespace

Result<std::vector<UniqueFd>> build_network(int modules, const UniqueFd& settings)
{
    std::vector<UniqueFd> networks(static_cast<size_t>(role_count(modules)));
    for (size_t index = networks.size(); index-- > 0;) {
        Result<UniqueFd> network = new_network();
        if (!network) {
            return network.error();
        }
        networks[index] = std::move(*network);
    }
    const auto network_of = [&](Role role) { return networks[static_cast<size_t>(role.index())].get(); };
    if (Failure failure = reuse_ports(network_of(Role::controller()), settings)) {
        return *failure;
    }
    if (Failure failure =
            run_ip_batch(controller_commands(networks, modules), network_of(Role::controller()))) {
        return *failure;
    }
    if (Failure failure = run_ip_batch(end_commands(kLanInterface, kLanAddress), network_of(Role::lan()))) {
        return *failure;
    }
    for (int module = 1; module <= modules; ++module) {
        if (Failure failure = run_ip_batch(end_commands(kModuleOwnInterface, module_address(module)),
                                           network_of(Role::module(module)))) {
            return *failure;
        }
    }
    if (Failure failure = wait_for_all_links(networks, modules)) {
        return *failure;
    }
    for (const UniqueFd& network : networks) {
        ::fcntl(network.get(), F_SETFD, FD_CLOEXEC);
    }
    return networks;
}

} // namespace orvan_sandbox

#ifndef ORVAN_SIM_SANDBOX_ORVAN_SANDBOX_ADDRESSES_H
#define ORVAN_SIM_SANDBOX_ORVAN_SANDBOX_ADDRESSES_H

#include <string>

namespace orvan_sandbox {

/** IPv4 addresses, ports and interface names of the virtual instrument; `module` counts from 1. */

inline constexpr const char* kControllerLanAddress = "10.0.0.2";
inline constexpr const char* kLanAddress = "10.0.0.1";
inline constexpr const char* kLanInterface = "eth0";
inline constexpr int kScpiPort = 5025;
inline constexpr int kHislipPort = 4880;
inline constexpr int kMaintenancePort = 7502;

/** Module's end of its link, "192.168.7.1" for module 1. */
std::string module_address(int module);

/** Controller's end of that link, "192.168.7.2" for module 1. */
std::string module_link_address(int module);

/** Where a module listens when there is no sandbox: "127.0.7.1" for module 1. */
std::string module_loopback_address(int module);

/** SCPI port of a module, 6001 for module 1. */
constexpr int module_port(int module)
{
    return 6000 + module;
}

/** Interface of a link on the controller's side, "usb0" for module 1; always "usb0" on the module's. */
std::string module_interface(int module);
inline constexpr const char* kModuleOwnInterface = "usb0";

} // namespace orvan_sandbox

#endif

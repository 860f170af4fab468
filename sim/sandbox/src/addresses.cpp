#include "orvan_sandbox/addresses.h"

namespace orvan_sandbox {

std::string module_address(int module)
{
    return "192.168." + std::to_string(6 + module) + ".1";
}

std::string module_link_address(int module)
{
    return "192.168." + std::to_string(6 + module) + ".2";
}

std::string module_loopback_address(int module)
{
    return "127.0." + std::to_string(6 + module) + ".1";
}

std::string module_interface(int module)
{
    return "usb" + std::to_string(module - 1);
}

} // namespace orvan_sandbox

#include "settings.h"

#include "checks.h"
#include <maintenance_frame.h>

namespace orvan_maint {

using namespace HaldeElec::Orvan;

// clang-format off
const std::vector<Setting> kNetworkSettings = {
    {FLASH_IPADDR,    "--ip",               "ADDRESS", "Fixed address, used with DHCP off",         check_host_address},
    {FLASH_MASK,      "--mask",             "MASK",    "Its network mask",                          check_mask},
    {FLASH_GATEWAY,   "--gateway",          "ADDRESS", "Its gateway; 0.0.0.0 for none",             check_gateway},
    {FLASH_DHCPSTAT,  "--dhcp",             "on|off",  "Whether a DHCP server assigns the address", check_on_off},
    {FLASH_HOSTNAME,  "--host-name",        "NAME",    "Host name, from the next start",            check_host_name},
    {FLASH_SCPI_PORT, "--scpi-port",        "PORT",    "SCPI port, from the next start",            check_port},
    {FLASH_MAC,       "--hardware-address", "MAC",     "Hardware address, for the record only",     check_hardware_address},
};

const std::vector<Setting> kFactorySettings = {
    {FLASH_MODELNAME,    "--model",            "NAME", "Model, which decides the platform and the number of channels", check_text},
    {FLASH_SERIALNUMBER, "--serial-number",    "TEXT", "Serial number",    check_text},
    {FLASH_CALIBDATE,    "--calibration-date", "TEXT", "Calibration date; replaced by module 1's at the next start", check_text},
    {FLASH_HOSTNAME,     "--host-name",        "NAME", "Host name",        check_host_name},
    {FLASH_PLDVER,       "--pld-version",      "TEXT", "PLD version",      check_text},
};
// clang-format on

} // namespace orvan_maint

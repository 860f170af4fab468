#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <syslog.h>

#include "dataorvan.h"
#include "orvan_sdk/lxi/PersistentData.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include "sys_cmd.h"

using HaldeElec::Orvan::CPersistentData;
using HaldeElec::Orvan::EEPROM_DEVICE_SETTINGS;
using HaldeElec::Orvan::sNetCfg_t;

int Scpi_Orvanx::network_if_detect()
{
    CPersistentData* const persistent = CPersistentData::GetInstance();
    if (persistent == nullptr) {
        return -1;
    }
    const EEPROM_DEVICE_SETTINGS& settings = *persistent->getSettings();
    m_scpiPort = std::atoi(settings.scpiPort);

    char output[256] = {};
    if (read_system_cmd("sudo /usr/local/bin/he_get_net_config.sh", output, sizeof output) != 0) {
        return -1;
    }
    sNetCfg_t& live = *persistent->getNetIfConfig();
    live = {};
    char type[32] = {};
    sNetCfg_t found = {};
    if (std::sscanf(output, "%31s %31s %31s %31s %31s %31s", type, found.nic, found.addr, found.mask,
                    found.gw, found.mac) != 6) {
        ::syslog(LOG_ERR, "[Orvan Service]: Invalid network configuration response: %s\n", output);
        return -1;
    }
    if (std::strcmp(type, "NoLink") == 0) {
        ::syslog(LOG_ERR, "NO LINK detected!.\n");
    }
    ::syslog(LOG_ERR, "[Orvan Service]: Network configuration: %s %s %s %s %s %s\n", type, found.nic,
             found.addr, found.mask, found.gw, found.mac);
    found.dhcp = std::strcmp(type, "Dynamic") == 0;
    live = found;

    std::snprintf(type, sizeof type, "%d", found.dhcp ? 1 : 0);
    const struct {
        OrvanElement tag;
        const char* value;
    } elements[] = {
        {ODT_IF_DHCP, type},
        {ODT_IF_NAME, found.nic},
        {ODT_IF_ADDR, found.addr},
        {ODT_IF_MASK, found.mask},
        {ODT_IF_GATE, found.gw},
        {ODT_IF_MAC, found.mac},
        {ODT_IF_PORT, settings.scpiPort},
        {ODT_IF_DNS1, settings.dns1},
        {ODT_IF_DNS2, settings.dns2},
    };
    for (int ch = 1; ch <= m_modules; ++ch) {
        for (const auto& element : elements) {
            update_orvan_DB(get_channelDB(ch), get_ElemByTag(element.tag), element.value);
        }
    }
    return 0;
}

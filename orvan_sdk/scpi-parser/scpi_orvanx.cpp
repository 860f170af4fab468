#include "orvan_sdk/scpi-parser/scpi_orvanx.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <sys/mman.h>
#include <syslog.h>
#include <system_error>
#include <vector>

#include "dataorvan.h"
#include "modules/module_request.h"
#include "orvan_sdk/lxi/PersistentData.h"
#include "orvan_sdk/scpi-parser/scpi-bypass.h"
#include "sys_cmd.h"

using HaldeElec::Orvan::CPersistentData;
using HaldeElec::Orvan::EEPROM_DEVICE_SETTINGS;
using HaldeElec::Orvan::kSettingsTextSize;
using HaldeElec::Orvan::request_module;
using HaldeElec::Orvan::sNetCfg_t;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

constexpr std::string_view kSelfTestQuery = "*TST?\r\n";

} // namespace

Scpi_Orvanx* Scpi_Orvanx::m_instance = nullptr;

Scpi_Orvanx* Scpi_Orvanx::getInstance()
{
    if (m_instance == nullptr) {
        syslog(LOG_USER | LOG_ERR, "Scpi_Orvanx :: getInstance");
        m_instance = new Scpi_Orvanx();
    }
    return m_instance;
}

Scpi_Orvanx::Scpi_Orvanx() : p_scpi_parser(new ScpiParser)
{
    p_scpi_parser->init_new_scpi(this);
    setTrigSourceCouple(0);
    syslog(LOG_DEBUG, "Singleton instance created");
}

Scpi_Orvanx::~Scpi_Orvanx()
{
    m_runTemperatureThread = false;
    if (m_temperatureThread.joinable())
        m_temperatureThread.join();
    delete p_scpi_parser;
    p_scpi_parser = nullptr;
    if (m_orvanDB != nullptr) {
        munmap(m_orvanDB, static_cast<size_t>(m_modules) * sizeof(ORVAN_CONFIG));
        m_orvanDB = nullptr;
        shm_unlink(g_shmemName);
        delete m_orvanData;
    }
    m_instance = nullptr;
    syslog(LOG_DEBUG, "Singleton instance destroy");
}

void Scpi_Orvanx::setDevicePtr(void* ptrDevice)
{
    p_devicePtr = ptrDevice;
    if (p_scpi_parser != nullptr)
        p_scpi_parser->setDevicePtr(ptrDevice);
}

bool Scpi_Orvanx::isExternalCommand()
{
    return p_scpi_parser != nullptr && p_scpi_parser->isExternalCommand();
}

void Scpi_Orvanx::wait_for_channels_ready(int numChannels, int max_wait_sec)
{
    if (numChannels < 1 || numChannels > kMaxChannels)
        return;
    const steady_clock::time_point deadline = steady_clock::now() + std::chrono::seconds(max_wait_sec);

    const auto poll_until_ready = [this, deadline](int ch) {
        milliseconds delay_ms(100);
        while (steady_clock::now() < deadline) {
            if (checkOrvanReply(request_module(*this, ch, kSelfTestQuery))) {
                m_isLive[ch - 1] = true;
                return;
            }
            std::this_thread::sleep_for(delay_ms);
            // 1000 bounds the doubling, not the delay: from 800 it goes on to 1600 and stays there.
            if (delay_ms < milliseconds(1000))
                delay_ms *= 2;
        }
    };

    std::vector<std::thread> workers;
    workers.reserve(static_cast<size_t>(numChannels));
    for (int ch = 1; ch <= numChannels; ++ch) {
        try {
            workers.emplace_back(poll_until_ready, ch);
        } catch (const std::system_error& error) {
            syslog(LOG_ERR, "%s: channel %d not polled: %s", __func__, ch, error.what());
        }
    }
    for (std::thread& worker : workers)
        worker.join();
}

int Scpi_Orvanx::network_if_detect()
{
    CPersistentData* const persistent = CPersistentData::GetInstance();
    if (persistent == nullptr)
        return -1;
    const EEPROM_DEVICE_SETTINGS& settings = *persistent->getSettings();
    m_scpiPort = std::atoi(settings.scpiPort);

    char output[256] = {};
    if (read_system_cmd("sudo /usr/local/bin/he_get_net_config.sh", output, sizeof output) != 0)
        return -1;
    sNetCfg_t& live = *persistent->getNetIfConfig();
    live = {};
    char type[32] = {};
    sNetCfg_t found = {};
    if (std::sscanf(output, "%31s %31s %31s %31s %31s %31s", type, found.nic, found.addr, found.mask,
                    found.gw, found.mac) != 6) {
        syslog(LOG_ERR, "[Orvan Service]: Invalid network configuration response: %s\n", output);
        return -1;
    }
    if (std::strcmp(type, "NoLink") == 0)
        syslog(LOG_ERR, "NO LINK detected!.\n");
    syslog(LOG_ERR, "[Orvan Service]: Network configuration: %s %s %s %s %s %s\n", type, found.nic,
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
    for (int ch = 1; ch <= m_modules; ++ch)
        for (const auto& element : elements)
            update_orvan_DB(get_channelDB(ch), get_ElemByTag(element.tag), element.value);
    return 0;
}

bool Scpi_Orvanx::getModuleData(int ch)
{
    CPersistentData* const persistent = CPersistentData::GetInstance();
    EEPROM_DEVICE_SETTINGS* const settings = persistent != nullptr ? persistent->getSettings() : nullptr;
    const auto field = [settings](char(EEPROM_DEVICE_SETTINGS::*text)[kSettingsTextSize]) {
        return settings != nullptr ? reinterpret_cast<uint8_t*>(settings->*text) : nullptr;
    };
    const struct {
        const char* query;
        int tag;
        uint8_t* nvInfo; // field of the settings that module 1's answer goes to, or null
        size_t len;
    } queries[] = {
        {":SYST:INF:CAL?\r\n", ODT_CALIB_DATE, field(&EEPROM_DEVICE_SETTINGS::calibrationDate),
         kSettingsTextSize},
        {":SYST:INF:FPGA?\r\n", ODT_FPGA, field(&EEPROM_DEVICE_SETTINGS::fpgaVersion), kSettingsTextSize},
        {":SYST:INF:SCPI?\r\n", ODT_SCPI, field(&EEPROM_DEVICE_SETTINGS::scpiRevision), kSettingsTextSize},
        {":ROSC:OUTP:FREQ?\r\n", ODT_REF_OSC_FREQ, nullptr, 0},
    };

    bool all_answered = true;
    for (const auto& [query, tag, nvInfo, len] : queries) {
        std::string reply = request_module(*this, ch, query);
        if (!checkOrvanReply(reply)) {
            syslog(LOG_ERR, "%s: %s reply: %s", __func__, query, reply.c_str());
            all_answered = false;
            continue;
        }
        // The length stays: update_db ends the text at it, behind the value.
        if (const size_t end = reply.find(';'); end != std::string::npos)
            reply[end] = '\0';
        if (uint8_t* const base = get_channelDB(ch))
            update_db(base, tag, reply.data(), reply.size());
        if (ch == 1 && nvInfo != nullptr) {
            std::strncpy(reinterpret_cast<char*>(nvInfo), reply.c_str(), len);
            nvInfo[len - 1] = '\0';
        }
    }
    return all_answered;
}

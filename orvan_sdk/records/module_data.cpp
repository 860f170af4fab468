#include <cstring>

#include <syslog.h>

#include "dataorvan.h"
#include "modules/module_request.h"
#include "orvan_sdk/lxi/PersistentData.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"

using HaldeElec::Orvan::CPersistentData;
using HaldeElec::Orvan::EEPROM_DEVICE_SETTINGS;
using HaldeElec::Orvan::kSettingsTextSize;
using HaldeElec::Orvan::request_module;

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
        uint8_t* nvInfo; // field of the settings for module 1's answer, or null
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
            ::syslog(LOG_ERR, "%s: %s reply: %s", __func__, query, reply.c_str());
            all_answered = false;
            continue;
        }
        // The length is kept: update_db terminates the text there, after the value.
        if (const size_t end = reply.find(';'); end != std::string::npos) {
            reply[end] = '\0';
        }
        if (uint8_t* const base = get_channelDB(ch)) {
            update_db(base, tag, reply.data(), reply.size());
        }
        if (ch == 1 && nvInfo != nullptr) {
            std::strncpy(reinterpret_cast<char*>(nvInfo), reply.c_str(), len);
            nvInfo[len - 1] = '\0';
        }
    }
    return all_answered;
}

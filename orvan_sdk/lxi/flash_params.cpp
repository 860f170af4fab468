#include "flash_params.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>

#include <syslog.h>

#include "orvan_sdk/device_records.h"
#include "orvan_sdk/lxi/PersistentData.h"
#include "orvan_sdk/lxi/option_tables.h"
#include "settings_text.h"

namespace HaldeElec::Orvan {
namespace {

constexpr char kDelimiter = ',';
constexpr int kNoFrequency = -1;
constexpr uint64_t kHzPerGHz = 1'000'000'000;
constexpr uint16_t kFrequencyBits = 0x000F;
constexpr size_t kOptionBits = 16;

} // namespace

void CPersistentData::updateOptTable(optEntry_t* optTable, size_t tblSize, uint16_t options) const
{
    if (optTable == nullptr) {
        return;
    }
    for (optEntry_t* row = optTable; row != optTable + tblSize; ++row) {
        const uint16_t mask = bitsToMask[std::min<size_t>(row->bitNum, kOptionBits)];
        row->defaults =
            static_cast<uint8_t>(row->bitStart < kOptionBits ? options >> row->bitStart & mask : 0);
    }
}

std::string CPersistentData::optToString(optEntry_t* optTable, size_t tblSize, uint16_t options) const
{
    updateOptTable(optTable, tblSize, options);
    std::string text;
    if (optTable == nullptr || tblSize == 0) {
        return text;
    }

    const size_t code = optTable[0].defaults;
    if (code < std::size(maskToFrequency) && maskToFrequency[code] != kNoFrequency) {
        text = std::to_string(maskToFrequency[code]) + 'G' + kDelimiter;
    }
    for (const optEntry_t* row = optTable + 1; row != optTable + tblSize; ++row) {
        if (row->symbol[0] != '\0' && row->defaults != 0) {
            text += text_of(row->symbol) + kDelimiter;
        }
    }
    if (!text.empty()) {
        text.back() = '\0';
    }
    return text;
}

void CPersistentData::setFlashParams(optEntry_t* optTable, size_t tblSize)
{
    if (optTable == nullptr || tblSize == 0) {
        ::syslog(LOG_ERR, "%s invalid parameters: no defaults", __func__);
        return;
    }
    const EEPROM_DEVICE_SETTINGS& settings = device_settings_eeprom;
    const std::string options = optToString(optTable, tblSize, settings.options);
    const std::string host_name = text_of(settings.hostName);
    ::syslog(LOG_INFO, "[CPersistentData] readData modelname = %s", text_of(settings.modelName).c_str());
    ::syslog(LOG_INFO, "[CPersistentData] readData hostname = %s", host_name.c_str());

    // In the order of flash_ids.
    const std::string texts[FP_MAX_LINE] = {
        text_of(m_netIfConf.addr),
        text_of(m_netIfConf.mask),
        text_of(m_netIfConf.mac),
        text_of(m_netIfConf.gw),
        settings.dhcpEnabled != 0 ? "ON" : "OFF",
        host_name,
        text_of(settings.description),
        text_of(settings.modelName),
        text_of(settings.serialNum),
        text_of(settings.fwVersion),
        // As a C string, which is shorter than the string: NOLINTNEXTLINE(readability-redundant-string-cstr)
        options.c_str(),
        text_of(settings.calibrationDate),
        text_of(settings.scpiPort),
        {settings.hardwareVersion},
        text_of(settings.fpgaVersion),
        text_of(settings.pldVersion),
        "",
    };

    std::memset(flash_params, 0, sizeof flash_params);
    std::puts("EEPROM settings:");
    for (size_t line = 0; line < FP_MAX_LINE; ++line) {
        char* const row = flash_params[line];
        row[0] = flash_ids[line];
        texts[line].copy(row + 1, FP_MAX_DATA_LEN);
        std::printf("[%c]  [%.*s]\n ", row[0], int{FP_MAX_DATA_LEN}, row + 1);
    }
    setHostname(host_name.c_str());
}

void CPersistentData::setDeviceArch(const sDevArch_t* arch)
{
    if (arch == nullptr) {
        return;
    }
    EEPROM_DEVICE_SETTINGS& settings = device_settings_eeprom;
    const uint8_t code = Freq2Mask(static_cast<int>(arch->maxFrequency / kHzPerGHz));
    settings.numDevices = arch->channelsNo;
    settings.maxCwFreq = static_cast<int64_t>(arch->maxFrequency);
    settings.device_type = arch->protocol;
    settings.vendor_id = static_cast<uint16_t>(arch->vendor);
    settings.product_id = static_cast<uint16_t>(arch->product);
    settings.options = static_cast<uint16_t>((settings.options & ~kFrequencyBits) | code);
}

uint8_t CPersistentData::Freq2Mask(int freq) const
{
    for (size_t code = 0; code < std::size(maskToFrequency); ++code) {
        if (maskToFrequency[code] == freq) {
            return static_cast<uint8_t>(code);
        }
    }
    return 0;
}

void CPersistentData::setHostname(const char* hostname) const
{
    if (hostname == nullptr) {
        ::syslog(LOG_INFO, "invalid host name. aborting change");
        return;
    }
    char command[256];
    std::snprintf(command, sizeof command, "sudo /usr/local/bin/he_set_hostname.sh %s", hostname);
    if (std::system(command) != 0) {
        ::syslog(LOG_INFO, "%s: failed setting host name to %s", __func__, hostname);
    }
}

void CPersistentData::setSwVersion(const char* version)
{
    if (version != nullptr) {
        put_text(device_settings_eeprom.fwVersion, version);
    }
}

} // namespace HaldeElec::Orvan

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

#include <syslog.h>

#include "dataorvan.h"
#include "orvan_sdk/IOrvanDeviceManager.h"
#include "orvan_sdk/lxi/PersistentData.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"

using HaldeElec::Orvan::CPersistentData;
using HaldeElec::Orvan::EEPROM_DEVICE_SETTINGS;
using HaldeElec::Orvan::IOrvanDeviceManager;
using HaldeElec::Orvan::kSettingsTextSize;
using HaldeElec::Orvan::sDevArch_t;

namespace {

constexpr size_t kTextSize = 32;

constexpr int kLowPowerLimit = -80; // dBm

// The elements that hold one limit.
using Group = std::array<int, 4>;
constexpr Group kMaxFrequency = {ODT_FREQ_MAX, ODT_LIST_FREQ_MAX, ODT_FRS_START_MAX, ODT_FRS_STOP_MAX};
constexpr Group kMinPower = {ODT_PWR_MIN, ODT_LIST_PWR_MIN, ODT_PRS_START_MIN, ODT_PRS_STOP_MIN};

void write_limit(Scpi_Orvanx& orvanx, uint8_t* base, Group tags, char (&text)[kTextSize])
{
    orvanx.updateDBFeature(base, tags.data(), static_cast<int>(tags.size()), text, sizeof text);
}

struct OptionEntry {
    const char* name;
    int tag; // affected by the option
};

constexpr OptionEntry options_table[] = {
    {"LP", ODT_PWR_MIN},
};

} // namespace

void Scpi_Orvanx::sync_db_to_orvanx(void* arch)
{
    CPersistentData* const persistent = CPersistentData::GetInstance();
    void* const settings = persistent != nullptr ? persistent->getSettings() : nullptr;
    char options[kTextSize] = {};
    if (p_devicePtr != nullptr) {
        static_cast<IOrvanDeviceManager*>(p_devicePtr)
            ->GetOption(reinterpret_cast<uint8_t*>(options), sizeof options);
    }
    // The options come last: they may override the settings.
    for (int ch = 1; ch <= m_modules; ++ch) {
        apply_dev_arch(ch, arch);
        apply_eeprom(ch, settings);
        apply_customer_options(ch, settings, options, sizeof options);
    }
}

int Scpi_Orvanx::apply_dev_arch(int ch, void* arch)
{
    if (arch == nullptr) {
        ::syslog(LOG_ERR, "invalid deviceArch input!");
        return -1;
    }
    const auto& device = *static_cast<const sDevArch_t*>(arch);
    uint8_t* const base = get_channelDB(ch);
    char text[kTextSize];
    std::snprintf(text, sizeof text, "%llu", static_cast<unsigned long long>(device.maxFrequency));
    write_limit(*this, base, kMaxFrequency, text);
    std::snprintf(text, sizeof text, "%s", device.protocol == 1 ? "usb" : "spi");
    update_db(base, ODT_INF_TYPE, text, sizeof text);
    std::snprintf(text, sizeof text, "%s", device.model);
    update_db(base, ODT_INF_MODEL, text, sizeof text);
    return 0;
}

int Scpi_Orvanx::apply_eeprom(int ch, void* e2pr)
{
    if (e2pr == nullptr) {
        ::syslog(LOG_ERR, "invalid input!");
        return -1;
    }
    auto& settings = *static_cast<EEPROM_DEVICE_SETTINGS*>(e2pr);
    uint8_t* const base = get_channelDB(ch);
    update_db(base, ODT_MANUFACT, settings.description, kSettingsTextSize);
    update_db(base, ODT_FIRM, settings.fwVersion, kSettingsTextSize);
    update_db(base, ODT_SCPI, settings.scpiRevision, kSettingsTextSize);
    update_db(base, ODT_INF_SERIAL, settings.serialNum, kSettingsTextSize);
    char text[kTextSize];
    std::snprintf(text, sizeof text, "%d", settings.minCwPow);
    write_limit(*this, base, kMinPower, text);
    return 0;
}

int Scpi_Orvanx::apply_customer_options(int ch, void* e2pr, char* options, size_t optSize)
{
    uint8_t* const base = get_channelDB(ch);
    if (options == nullptr || e2pr == nullptr || base == nullptr || optSize == 0) {
        ::syslog(LOG_ERR, "invalid input!");
        return -1;
    }
    update_db(base, ODT_OPT, options, optSize);

    std::string_view rest = options; // ended by update_db, if not before
    while (!rest.empty()) {
        rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
        const std::string_view word = rest.substr(0, rest.find(','));
        rest.remove_prefix(std::min(word.size() + 1, rest.size()));
        for (const OptionEntry& option : options_table) {
            if (word != option.name) {
                continue;
            }
            if (option.tag == ODT_PWR_MIN) {
                char text[kTextSize];
                std::snprintf(text, sizeof text, "%d", kLowPowerLimit);
                write_limit(*this, base, kMinPower, text);
                ::syslog(LOG_INFO, "option %s applied", option.name);
                break;
            }
            ::syslog(LOG_ERR, "option %s invalid tag %d", option.name, option.tag);
        }
    }
    return 0;
}

void Scpi_Orvanx::update_battery_status(int percent, int currentStatus)
{
    char charge[kTextSize];
    char status[kTextSize];
    std::snprintf(charge, sizeof charge, "%d", percent);
    std::snprintf(status, sizeof status, "%d", currentStatus);
    for (int ch = 1; ch <= m_modules; ++ch) {
        update_db(ch, ODT_BATT, charge, sizeof charge);
        update_db(ch, ODT_CURRENT_STATUS, status, sizeof status);
    }
}

#include "orvan_sdk/production.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <mutex>

#include <syslog.h>

#include <wiringPi.h>

#include "board/spi_multiplexer.h"
#include "device/device_platform.h"
#include "orvan_sdk/IDeviceConnectionHandler.h"
#include "orvan_sdk/OrvanDebug.h"
#include "orvan_sdk/eeprom/eeprom_cat25.h"
#include "orvan_sdk/lxi/PersistentData.h"
#include "orvan_sdk/lxi/option_tables.h"
#include "orvan_sdk/nullEeprom/nullEeprom.h"

namespace HaldeElec::Orvan {
namespace {

constexpr int kNoDebugLog = 4;

const DevicePlatform* const kPlatforms[] = {&kPortablePlatform, &kBenchtopPlatform, &kKsr7000Platform};

const sDevArch_t* find_model(const DevicePlatform& platform, const std::string& model)
{
    for (const sDevArch_t* entry = platform.models; entry->model != nullptr; ++entry) {
        if (model == entry->model) {
            return entry;
        }
    }
    return nullptr;
}

std::string known_models()
{
    std::string models;
    for (const DevicePlatform* platform : kPlatforms) {
        for (const sDevArch_t* entry = platform->models; entry->model != nullptr; ++entry) {
            models += std::string(" ") + entry->model;
        }
    }
    return models;
}

void set_text(char (&field)[kSettingsTextSize], const std::string& text)
{
    std::strncpy(field, text.c_str(), sizeof field - 1);
    field[sizeof field - 1] = '\0';
}

// Whether both stores hold the record, as the same image: failures to store are only logged.
bool stored(IDeviceConnectionHandler& bus, const EEPROM_DEVICE_SETTINGS& settings)
{
    uint8_t in_eeprom[TOTAL_BLOB_SIZE] = {};
    uint8_t in_file[TOTAL_BLOB_SIZE] = {};
    uint32_t channel = kEepromChannel;
    bus.SetCommChannel(channel);
    EEPROM_CAT25 eeprom(&bus, CAT25640);
    NullEeprom file;
    return eeprom.readBlock(EEPROM_START_ADDRESS, sizeof in_eeprom, in_eeprom) != 0 && file.init() &&
           file.read(0, in_file, sizeof in_file) && std::memcmp(in_eeprom, &settings, sizeof settings) == 0 &&
           std::memcmp(in_eeprom, in_file, sizeof in_file) == 0;
}

} // namespace

ProductionResult ProduceInstrument(const std::string& model, const std::string& serial)
{
    const auto* const found =
        std::find_if(std::begin(kPlatforms), std::end(kPlatforms), [&model](const DevicePlatform* platform) {
            return find_model(*platform, model) != nullptr;
        });
    if (found == std::end(kPlatforms)) {
        ::syslog(LOG_ERR, "no such model: %s; known are:%s", model.c_str(), known_models().c_str());
        return ProductionResult::kUnknownModel;
    }
    const DevicePlatform& platform = **found;
    OrvanDebug::SetLogMode(kNoDebugLog);
    const std::unique_ptr<IDeviceConnectionHandler> bus(platform.make_handler());
    if (bus == nullptr || bus->ConfigChannelSPI(kSpiBus, kSpiSelect) != 0) {
        ::syslog(LOG_ERR, "the SPI port of the settings EEPROM does not open");
        return ProductionResult::kFailed;
    }
    for (const int pin : platform.select_pins) {
        pinMode(pin, OUTPUT);
    }
    CPersistentData* const data = CPersistentData::Init(bus.get(), platform.models);
    data->setEEPROMch(kEepromChannel);
    const std::lock_guard lock(bus->mtx);
    sDevDefaults_t defaults = platform.defaults;
    defaults.model = model.c_str();
    defaults.serial = serial.c_str();
    data->readData(&defaults, platform.options, kOptionRows);
    EEPROM_DEVICE_SETTINGS& settings = *data->getSettings();
    set_text(settings.modelName, model);
    set_text(settings.serialNum, serial);
    data->setDeviceArch(find_model(platform, model));
    data->writeData(true, true);
    if (!stored(*bus, settings)) {
        ::syslog(LOG_ERR, "the settings are not in both stores; the messages before this one say why");
        return ProductionResult::kFailed;
    }
    ::syslog(LOG_NOTICE, "made an %s with serial number %s", settings.modelName, settings.serialNum);
    return ProductionResult::kMade;
}

} // namespace HaldeElec::Orvan

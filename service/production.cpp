#include "options.h"
#include "platform.h"

#include "orvan_sdk/Benchtop/OrvanConnBenchtop.h"
#include "orvan_sdk/IOrvanDeviceManager.h"
#include "orvan_sdk/OrvanDebug.h"
#include "orvan_sdk/Portable/OrvanConnPortable.h"
#include "orvan_sdk/eeprom/eeprom_cat25.h"
#include "orvan_sdk/lxi/PersistentData.h"
#include "orvan_sdk/lxi/option_tables.h"
#include "orvan_sdk/nullEeprom/nullEeprom.h"

#include <syslog.h>
#include <wiringPi.h>

#include <cstring>
#include <memory>
#include <mutex>
#include <span>
#include <string>

using namespace HaldeElec::Orvan;
using HaldeElec::OrvanDebug;

namespace orvan_service {
namespace {

constexpr uint8_t kEepromChannel = 5;
constexpr int kNoDebugLog = 4;

// The settings' select lines; a device class drives them outputs with the rest of its hardware.
constexpr int kPortableSelect[] = {11, 27, 16};
constexpr int kMultiplexerSelect[] = {11, 7, 21, 6};

template <class Bus>
std::unique_ptr<IDeviceConnectionHandler> make()
{
    return std::make_unique<Bus>();
}

struct Row {
    const sDevArch_t* models;
    optEntry_t* options;
    const char* company;
    std::span<const int> select_pins;
    std::unique_ptr<IDeviceConnectionHandler> (*make_bus)();
};

const Row kPlatforms[] = {
    {g_portableModelsTable, optPortable_Tbl, "Halde Electronics Ltd.", kPortableSelect,
     make<OrvanConnPortable>},
    {g_benchtopModelsTable, optBenchtop_Tbl, "Halde Electronics Ltd.", kMultiplexerSelect,
     make<OrvanConnBenchtop>},
    {g_ksr7000ModelsTable, optKsr7000_Tbl, "Marrick Signal Corp.", kMultiplexerSelect,
     make<OrvanConnBenchtop>},
};

const Row* platform_of(const std::string& model)
{
    for (const Row& row : kPlatforms) {
        for (const sDevArch_t* entry = row.models; entry->model != nullptr; ++entry) {
            if (model == entry->model) {
                return &row;
            }
        }
    }
    return nullptr;
}

std::string known_models()
{
    std::string models;
    for (const Row& row : kPlatforms) {
        for (const sDevArch_t* entry = row.models; entry->model != nullptr; ++entry) {
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

/** Whether both stores hold the record, as one and the same image: what could not be stored is only logged.
 */
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

int produce(const std::string& model, const std::string& serial)
{
    const Row* const platform = platform_of(model);
    if (platform == nullptr) {
        ::syslog(LOG_ERR, "no such model: %s; known are:%s", model.c_str(), known_models().c_str());
        return kExitBadOptions;
    }
    OrvanDebug::SetLogMode(kNoDebugLog);
    const auto bus = platform->make_bus();
    if (bus->ConfigChannelSPI(0, 1) != 0) {
        ::syslog(LOG_ERR, "the SPI port of the settings EEPROM does not open");
        return kExitFailed;
    }
    for (const int pin : platform->select_pins) {
        pinMode(pin, OUTPUT);
    }
    CPersistentData* const data = CPersistentData::Init(bus.get(), platform->models);
    data->setEEPROMch(kEepromChannel);
    const std::lock_guard lock(bus->mtx);
    const sDevDefaults_t defaults{model.c_str(), platform->company, serial.c_str(), "D"};
    data->readData(&defaults, platform->options, kOptionRows);
    EEPROM_DEVICE_SETTINGS& settings = *data->getSettings();
    set_text(settings.modelName, model);
    set_text(settings.serialNum, serial);
    for (const sDevArch_t* entry = platform->models; entry->model != nullptr; ++entry) {
        if (model == entry->model) {
            data->setDeviceArch(entry);
        }
    }
    data->writeData(true, true);
    if (!stored(*bus, settings)) {
        ::syslog(LOG_ERR, "the settings are not in both stores; the messages before this one say why");
        return kExitFailed;
    }
    ::syslog(LOG_NOTICE, "made an %s with serial number %s", settings.modelName, settings.serialNum);
    return kExitDone;
}

} // namespace orvan_service

#include "settings.h"

#include "orvan_sdk/IOrvanDeviceManager.h"
#include "orvan_sdk/OrvanDebug.h"
#include "orvan_sdk/Portable/OrvanConnPortable.h"
#include "orvan_sdk/lxi/PersistentData.h"

#include <syslog.h>
#include <wiringPi.h>

#include <cstring>
#include <mutex>
#include <vector>

using namespace HaldeElec::Orvan;
using HaldeElec::OrvanDebug;

namespace orvan_service {
namespace {

constexpr uint8_t kEepromChannel = 5;
constexpr int kNoDebugLog = 4;

// The select pins of the EEPROM; a device class sets them up with the rest of its hardware.
constexpr int kSelectPins[] = {11, 27, 16};

// While no platform is chosen, an instrument of any of them is known by its model.
const sDevArch_t* every_model()
{
    static const std::vector<sDevArch_t> table = [] {
        std::vector<sDevArch_t> rows;
        for (const sDevArch_t* row : {g_portableModelsTable, g_benchtopModelsTable, g_ksr7000ModelsTable}) {
            for (; row->model != nullptr; ++row) {
                rows.push_back(*row);
            }
        }
        rows.push_back({});
        return rows;
    }();
    return table.data();
}

void set_text(char (&field)[31], const char* text)
{
    std::strncpy(field, text, sizeof field - 1);
}

void set_factory_identity(EEPROM_DEVICE_SETTINGS& settings)
{
    set_text(settings.description, "Halde Electronics Ltd.");
    set_text(settings.modelName, "OVX3651P");
    set_text(settings.serialNum, "230000");
    set_text(settings.fwVersion, "01.0.001");
    set_text(settings.scpiPort, "5025");
}

} // namespace

Settings::Settings()
{
    // Its file would stand in whatever folder the service was started from.
    OrvanDebug::SetLogMode(kNoDebugLog);
    m_bus = std::make_unique<OrvanConnPortable>();
    if (m_bus->ConfigChannelSPI(0, 1) != 0) {
        ::syslog(LOG_ERR, "the SPI port of the settings EEPROM does not open");
    }
    for (const int pin : kSelectPins) {
        pinMode(pin, OUTPUT);
    }
    CPersistentData* const data = CPersistentData::Init(m_bus.get(), every_model());
    data->setEEPROMch(kEepromChannel);
    const std::lock_guard lock(m_bus->mtx);
    if (!data->loadSettings()) {
        ::syslog(LOG_WARNING,
                 "neither EEPROM nor backup file holds usable settings; the factory identity stands");
        set_factory_identity(*data->getSettings());
    }
}

Settings::~Settings() = default;

} // namespace orvan_service

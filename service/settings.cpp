#include "settings.h"

#include "orvan_sdk/IOrvanDeviceManager.h"
#include "orvan_sdk/OrvanDebug.h"
#include "orvan_sdk/Portable/OrvanConnPortable.h"
#include "orvan_sdk/bit/bit_manager.h"
#include "orvan_sdk/bit/bit_tests.h"
#include "orvan_sdk/lxi/option_tables.h"

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

// What an instrument is whose stores hold nothing usable.
constexpr sDevDefaults_t kDefaults = {"OVX3651P", "Halde Electronics Ltd.", "230000", "D"};

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

optEntry_t* options_of(const sDevArch_t* model)
{
    switch (model != nullptr ? model->devProdType : PortableDevice) {
    case BenchtopDevice:
        return optBenchtop_Tbl;
    case Ksr7000Device:
        return optKsr7000_Tbl;
    default:
        return optPortable_Tbl;
    }
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
    register_bit_tests(BITManager::getInstance(kCbitPeriod), nullptr);
    m_data = CPersistentData::Init(m_bus.get(), every_model());
    m_data->setEEPROMch(kEepromChannel);
    const sDevArch_t* model;
    {
        const std::lock_guard lock(m_bus->mtx);
        model = m_data->readData(&kDefaults, optPortable_Tbl, kOptionRows);
    }
    std::memcpy(&m_as_read, m_data->getSettings(), sizeof m_as_read);
    m_options = options_of(model);
    m_data->setDeviceArch(model);
}

Settings::~Settings() = default;

void Settings::apply()
{
    m_data->setFlashParams(m_options, kOptionRows);
    if (std::memcmp(&m_as_read, m_data->getSettings(), sizeof m_as_read) != 0) {
        const std::lock_guard lock(m_bus->mtx);
        m_data->writeData(true, true);
    }
}

} // namespace orvan_service

#include <cstdio>
#include <new>

#include <syslog.h>

#include "board/spi_multiplexer.h"
#include "crc32_utils.h"
#include "device/device_platform.h"
#include "device/device_threads.h"
#include "device/start_hooks.h"
#include "hw/hw.h"
#include "orvan_sdk/IDeviceConnectionHandler.h"
#include "orvan_sdk/IOrvanDeviceManager.h"
#include "orvan_sdk/OrvanDebug.h"
#include "orvan_sdk/bit/bit_manager.h"
#include "orvan_sdk/lxi/PersistentData.h"
#include "orvan_sdk/lxi/UdpServer.h"
#include "orvan_sdk/lxi/option_tables.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"

namespace HaldeElec::Orvan {
namespace {

constexpr uint64_t kSettlingUs = 1'000'000;
constexpr int kModulesPatienceSec = 60;
constexpr int kUnknownCharge = -1;

} // namespace

void IOrvanDeviceManager::lock_mutex()
{
    devConnHandler->mtx.lock();
}

void IOrvanDeviceManager::unlock_mutex()
{
    devConnHandler->mtx.unlock();
}

void IOrvanDeviceManager::start(const DevicePlatform& platform, const char* log_path, int log_mode,
                                const StartHooks& hooks)
{
    OrvanDebug::SetLogMode(log_mode);
    OrvanDebug::SetLogFile(log_path != nullptr ? log_path : "");
    device_type_product = platform.type;
    if (!start_bus(platform)) {
        return;
    }
    start_hardware();
    if (!read_settings(platform)) {
        return;
    }

    const uint32_t eeprom_crc32 = settings_crc();
    pPersistentData->setDeviceArch(m_devArch);
    pPersistentData->setSwVersion(platform.sw_version);
    if (hooks.battery_option != nullptr) {
        batteryOn = hooks.battery_option(pPersistentData->getSettings()->options) && m_batteryIsAlive;
    }
    start_modules();
    if (hooks.charge_monitor) {
        Scpi_Orvanx::getInstance()->update_battery_status(kUnknownCharge, 0);
    }
    if (hooks.modules_up) {
        hooks.modules_up();
    }
    finish_settings(platform, eeprom_crc32);

    fixedPwmFan = false;
    start_thread(platform.class_name, "fan", hooks.fan);
    if (batteryOn) {
        start_thread(platform.class_name, "charger", *hooks.charge_monitor);
    }
    start_maintenance();
}

bool IOrvanDeviceManager::start_bus(const DevicePlatform& platform)
{
    IDeviceConnectionHandler* const handler = platform.make_handler();
    if (handler == nullptr) {
        static constexpr char kNoHandler[] = "Device connector allocation failure!!!";
        std::puts(kNoHandler);
        ::syslog(LOG_ERR, "%s", kNoHandler);
        return false;
    }
    SetSPIhandler(handler);
    if (handler->ConfigChannelSPI(kSpiBus, kSpiSelect) != 0) {
        ::syslog(LOG_ERR, "[%s] ConfigChannelSPI failed - SPI not initialized", platform.class_name);
        return false;
    }
    return true;
}

void IOrvanDeviceManager::start_hardware()
{
    if (!InitHW()) {
        static constexpr char kNoHardware[] = "HW initialization failure";
        ::syslog(LOG_ERR, "%s", kNoHardware);
        std::puts(kNoHardware);
    }
    hw_delay_us(kSettlingUs);
    m_bitManager = BITManager::getInstance(kCbitPeriod);
    bit_register();
}

bool IOrvanDeviceManager::read_settings(const DevicePlatform& platform)
{
    m_modelsTable = platform.models;
    pPersistentData = CPersistentData::Init(devConnHandler, m_modelsTable);
    if (pPersistentData == nullptr) {
        return false;
    }
    pPersistentData->setEEPROMch(kEepromChannel);
    SetSelectChannel(1);
    lock_mutex();
    m_devArch = pPersistentData->readData(&platform.defaults, platform.options, kOptionRows);
    unlock_mutex();
    std::printf("%s::read eeprom data done\n", platform.class_name);
    return true;
}

uint32_t IOrvanDeviceManager::settings_crc() const
{
    const Crc32Utils* const crc32_utils = Crc32Utils::getInstance();
    if (crc32_utils == nullptr) {
        return 0;
    }
    const auto* const settings = reinterpret_cast<const uint8_t*>(pPersistentData->getSettings());
    const uint32_t crc =
        crc32_utils->calculate_crc32(crc32_utils->crc32_init(), settings, sizeof(EEPROM_DEVICE_SETTINGS));
    return crc32_utils->crc32_signoff(crc);
}

void IOrvanDeviceManager::start_modules()
{
    const EEPROM_DEVICE_SETTINGS& settings = *pPersistentData->getSettings();
    const int installedChannels = settings.numDevices;
    devConnHandler->SetNumDevices(installedChannels);

    Scpi_Orvanx& modules = *Scpi_Orvanx::getInstance();
    modules.setDevicePtr(this);
    modules.setNumberofChannels(installedChannels);
    modules.setSelectedChannel(1);
    modules.wait_for_channels_ready(installedChannels, kModulesPatienceSec);
    modules.modules_bit(installedChannels, PBIT);
    modules.load_database(settings.bootDBConfig);
    for (int ch = 1; ch <= installedChannels; ++ch) {
        modules.getModuleData(ch);
    }
    modules.sync_db_to_orvanx(const_cast<sDevArch_t*>(m_devArch)); // only read
    modules.startTempratureThread();
}

void IOrvanDeviceManager::finish_settings(const DevicePlatform& platform, uint32_t crc_as_read)
{
    pPersistentData->setFlashParams(platform.options, kOptionRows);
    if (settings_crc() == crc_as_read) {
        return;
    }
    lock_mutex();
    pPersistentData->writeData(true, true);
    unlock_mutex();
}

void IOrvanDeviceManager::start_maintenance()
{
    pUdpCtrlServer =
        new (std::nothrow) CUdpServer(INTERFACE_NAME, PORTUDP, devConnHandler, this, LOCAL_ADDR_DEF, true);
    initialized = pUdpCtrlServer != nullptr;
}

void IOrvanDeviceManager::end_bus_and_maintenance()
{
    delete devConnHandler;
    devConnHandler = nullptr;
    delete pUdpCtrlServer;
    pUdpCtrlServer = nullptr;
}

} // namespace HaldeElec::Orvan

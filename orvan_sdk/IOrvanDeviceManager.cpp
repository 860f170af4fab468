#include "orvan_sdk/IOrvanDeviceManager.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <syslog.h>

#include "orvan_sdk/IDeviceConnectionHandler.h"
#include "orvan_sdk/lxi/PersistentData.h"
#include "orvan_sdk/lxi/option_tables.h"
#include "sys_cmd.h"

namespace HaldeElec::Orvan {
namespace {

constexpr size_t kSerialLimit = 15;
constexpr size_t kIdentificationSize = 128;
constexpr int kBadTablePointer = -3;

using Field = char[kSettingsTextSize];

EEPROM_DEVICE_SETTINGS* _getSettings(CPersistentData* data)
{
    return data != nullptr ? data->getSettings() : nullptr;
}

#define GET_EEPROM(var)                                                                                      \
    EEPROM_DEVICE_SETTINGS* const var = _getSettings(pPersistentData);                                       \
    if (var == nullptr)                                                                                      \
    return ERR_FAILED

// strncpy from a source that has `size` bytes.
int copy_text(void* to, size_t limit, const void* from, size_t size)
{
    const size_t length = ::strnlen(static_cast<const char*>(from), std::min(limit, size));
    std::memcpy(to, from, length);
    std::memset(static_cast<char*>(to) + length, 0, limit - length);
    return 0;
}

int copy_out(uint8_t* value, const Field& field, size_t limit = kSettingsTextSize)
{
    return copy_text(value, limit, field, sizeof field);
}

int copy_in(Field& field, const uint8_t* value)
{
    return copy_text(field, sizeof field, value, sizeof field);
}

} // namespace

int IOrvanDeviceManager::SetSelectChannel(uint32_t value)
{
    devConnHandler->SetCommChannel(value);
    return 0;
}

int IOrvanDeviceManager::GetSelectChannel(uint32_t& value)
{
    devConnHandler->GetCommChannel(value);
    return 0;
}

// clang-format off
int IOrvanDeviceManager::SetTriggerCouple(int, uint8_t) { return 0; }
int IOrvanDeviceManager::SetTriggerSource(TriggerSource) { return 0; }
int IOrvanDeviceManager::GetTriggerSource(TriggerSource&) { return 0; }
int IOrvanDeviceManager::SetTriggerInpImp(OnOff) { return 0; }
int IOrvanDeviceManager::GetTriggerInpImp(OnOff&) { return 0; }
int IOrvanDeviceManager::SetRFOutput(OnOff) { return 0; }
int IOrvanDeviceManager::GetRFOutput(OnOff&) { return 0; }
int IOrvanDeviceManager::SetAMModulationSource(OnOff) { return 0; }
int IOrvanDeviceManager::SetFMModulationSource(OnOff) { return 0; }
int IOrvanDeviceManager::SetPulseModulationSource(OnOff) { return 0; }
int IOrvanDeviceManager::GetAMModulationSource(OnOff&) { return 0; }
int IOrvanDeviceManager::GetFMModulationSource(OnOff&) { return 0; }
int IOrvanDeviceManager::GetPulseModulationSource(OnOff&) { return 0; }
// clang-format on

int IOrvanDeviceManager::GetIdentification(uint8_t* value)
{
    GET_EEPROM(settings);
    constexpr int kWidth = kSettingsTextSize;
    char text[kIdentificationSize];
    std::snprintf(text, sizeof text, "Halde Electronics,%.*s,%.*s,%.*s", kWidth, settings->modelName, kWidth,
                  settings->serialNum, kWidth, settings->fwVersion);
    return copy_text(value, kIdentificationSize, text, sizeof text);
}

int IOrvanDeviceManager::GetModel(uint8_t* value, size_t size)
{
    GET_EEPROM(settings);
    return copy_out(value, settings->modelName, size);
}

int IOrvanDeviceManager::GetSerial(uint8_t* value)
{
    GET_EEPROM(settings);
    return copy_out(value, settings->serialNum, kSerialLimit);
}

int IOrvanDeviceManager::GetFirmware(uint8_t* value)
{
    GET_EEPROM(settings);
    return copy_out(value, settings->fwVersion);
}

int IOrvanDeviceManager::GetFpga(uint8_t* value)
{
    GET_EEPROM(settings);
    return copy_out(value, settings->fpgaVersion);
}

int IOrvanDeviceManager::GetDeviceType()
{
    GET_EEPROM(settings);
    return settings->device_type;
}

int IOrvanDeviceManager::GetBatteryCharge(uint16_t& value)
{
    value = 0;
    return 0;
}

int IOrvanDeviceManager::SetDHCP(uint8_t value)
{
    GET_EEPROM(settings);
    settings->dhcpEnabled = value;
    if (value == 0) {
        set_fix_ip();
    } else {
        set_dyn_ip();
    }
    return 0;
}

int IOrvanDeviceManager::GetDHCP(uint8_t& value)
{
    GET_EEPROM(settings);
    value = settings->dhcpEnabled != 0 ? 1 : 0;
    return 0;
}

int IOrvanDeviceManager::SetIPAddress(uint8_t* value)
{
    GET_EEPROM(settings);
    return copy_in(settings->fixIp, value);
}

int IOrvanDeviceManager::GetIPAddress(uint8_t* value)
{
    GET_EEPROM(settings);
    return copy_out(value, settings->fixIp);
}

int IOrvanDeviceManager::SetGateway(uint8_t* value)
{
    GET_EEPROM(settings);
    return copy_in(settings->fixGw, value);
}

int IOrvanDeviceManager::GetGateway(uint8_t* value)
{
    GET_EEPROM(settings);
    return copy_out(value, settings->fixGw);
}

int IOrvanDeviceManager::SetHostname(uint8_t* value)
{
    GET_EEPROM(settings);
    return copy_in(settings->hostName, value);
}

int IOrvanDeviceManager::GetHostname(uint8_t* value)
{
    GET_EEPROM(settings);
    return copy_out(value, settings->hostName);
}

int IOrvanDeviceManager::SetDNS1(uint8_t* value)
{
    GET_EEPROM(settings);
    return copy_in(settings->dns1, value);
}

int IOrvanDeviceManager::GetDNS1(uint8_t* value)
{
    GET_EEPROM(settings);
    return copy_out(value, settings->dns1);
}

int IOrvanDeviceManager::SetDNS2(uint8_t* value)
{
    GET_EEPROM(settings);
    return copy_in(settings->dns2, value);
}

int IOrvanDeviceManager::GetDNS2(uint8_t* value)
{
    GET_EEPROM(settings);
    return copy_out(value, settings->dns2);
}

int IOrvanDeviceManager::SetNetMask(uint8_t* value)
{
    GET_EEPROM(settings);
    return copy_in(settings->fixMask, value);
}

int IOrvanDeviceManager::GetNetMask(uint8_t* value)
{
    GET_EEPROM(settings);
    return copy_out(value, settings->fixMask);
}

int IOrvanDeviceManager::GetScpiPort(uint16_t* value)
{
    GET_EEPROM(settings);
    char port[kSettingsTextSize + 1] = {};
    std::memcpy(port, settings->scpiPort, sizeof settings->scpiPort);
    *value = static_cast<uint16_t>(std::atoi(port));
    return 0;
}

int IOrvanDeviceManager::SetScpiPort(uint16_t scpi_port)
{
    GET_EEPROM(settings);
    if (std::snprintf(settings->scpiPort, sizeof settings->scpiPort, "%u", static_cast<unsigned>(scpi_port)) <
        0) {
        return ERR_FAILED;
    }
    pPersistentData->writeData(true, true);
    [[maybe_unused]] const int ignored = std::system("sudo reboot");
    return 0;
}

int IOrvanDeviceManager::GetHIDParams(uint16_t* vid, uint16_t* pid)
{
    GET_EEPROM(settings);
    if (vid != nullptr) {
        *vid = settings->vendor_id;
    }
    if (pid != nullptr) {
        *pid = settings->product_id;
    }
    return 0;
}

double IOrvanDeviceManager::tempSensorReadConvert(uint32_t value)
{
    return sensor_degrees(value, 128.0);
}

double IOrvanDeviceManager::sensor_degrees(uint32_t value, double steps)
{
    const auto raw = static_cast<uint16_t>(value);
    return ((raw & 0xff80) >> 7) + ((raw & 0x7c) >> 2) / steps;
}

int IOrvanDeviceManager::copy_options(optEntry_t* table, uint8_t* value, size_t size)
{
    GET_EEPROM(settings);
    const std::string text = pPersistentData->optToString(table, kOptionRows, settings->options);
    return copy_text(value, size, text.data(), text.size());
}

int IOrvanDeviceManager::hand_out_options(optEntry_t* options, void** table, size_t* size)
{
    const int result = table != nullptr && *table == nullptr && size != nullptr ? 0 : kBadTablePointer;
    if (table != nullptr) {
        *table = options;
    }
    if (size != nullptr) {
        *size = kOptionRows * sizeof(optEntry_t);
    }
    return result;
}

void IOrvanDeviceManager::set_dyn_ip()
{
    if (run_system_cmd("sudo /usr/local/bin/he_orvan_network_config.sh dynamic") != 0) {
        ::syslog(LOG_ERR, "Failed to apply Dynamic IP configuration.");
    }
}

void IOrvanDeviceManager::set_fix_ip()
{
    const EEPROM_DEVICE_SETTINGS* const settings = _getSettings(pPersistentData);
    if (settings == nullptr) {
        return;
    }
    constexpr int kWidth = kSettingsTextSize;
    char command[256];
    std::snprintf(command, sizeof command,
                  "sudo /usr/local/bin/he_orvan_network_config.sh static -a %.*s -n %.*s -g %.*s", kWidth,
                  settings->fixIp, kWidth, settings->fixMask, kWidth, settings->fixGw);
    std::fprintf(stderr, "[INFO]: Running net config: %s\n", command);
    if (run_system_cmd(command) != 0) {
        ::syslog(LOG_ERR, "Failed to apply static IP configuration.");
    }
}

} // namespace HaldeElec::Orvan

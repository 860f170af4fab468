#include "orvan_sdk/Benchtop/OrvanBenchtopDevice.h"

#include <cstdio>
#include <new>

#include "board/front_panel.h"
#include "board/spi_fan.h"
#include "board/trigger_impedance.h"
#include "device/device_platform.h"
#include "device/device_threads.h"
#include "orvan_sdk/Benchtop/OrvanConnBenchtop.h"
#include "orvan_sdk/OrvanDebug.h"
#include "orvan_sdk/bit/bit_tests.h"
#include "orvan_sdk/lxi/PersistentData.h"
#include "orvan_sdk/lxi/option_tables.h"

namespace HaldeElec::Orvan {
namespace {

constexpr sDevDefaults_t g_devDefaults{"OVX3651B", "Halde Electronics Ltd.", "230000", "D"};

constexpr DevicePlatform kPlatform{
    "OrvanBenchtopDevice", g_benchtopModelsTable, g_devDefaults, optBenchtop_Tbl, "1.19.145",
};

// The modulations of IDeviceConnectionHandler::setModSrc.
constexpr uint32_t kAm = 0;
constexpr uint32_t kFm = 1;
constexpr uint32_t kPulse = 2;

} // namespace

OrvanBenchtopDevice::OrvanBenchtopDevice(const char* log_path, int log_mode)
{
    OrvanDebug::SetLogMode(log_mode);
    OrvanDebug::SetLogFile(log_path != nullptr ? log_path : "");
    device_type_product = BenchtopDevice;
    if (!start_bus(new (std::nothrow) OrvanConnBenchtop, kPlatform))
        return;
    start_hardware();
    if (!read_settings(kPlatform))
        return;

    const uint32_t eeprom_crc32 = settings_crc();
    apply_model(kPlatform);
    start_modules();
    SetTriggerCouple(pPersistentData->getSettings()->numDevices, eCoupling_none);
    finish_settings(kPlatform, eeprom_crc32);

    fixedPwmFan = false;
    m_runFanThread = true;
    start_thread(m_fanThread, kPlatform.class_name, "fan", [this] { fanController(); });
    start_maintenance();
}

OrvanBenchtopDevice::~OrvanBenchtopDevice()
{
    end_thread(m_fanThread, m_runFanThread);
    end_bus_and_maintenance();
}

void OrvanBenchtopDevice::fanController()
{
    control_spi_fan(m_runFanThread, devConnHandler->mtx, m_bitManager,
                    [this](double temp) { return fanSpeed(temp); });
}

int OrvanBenchtopDevice::fanSpeed(double temp)
{
    return send_fan_speed(*this, temp);
}

int OrvanBenchtopDevice::SetTriggerCouple(int modulesNo, uint8_t coupling)
{
    int result = 0;
    uint32_t curChannel = 0;
    GetSelectChannel(curChannel);
    for (int i = 1; i <= modulesNo; ++i) {
        SetSelectChannel(static_cast<uint32_t>(i));
        if (const int failure = devConnHandler->setTrgSrc(coupling); failure != 0)
            result = failure;
    }
    SetSelectChannel(curChannel);
    return result;
}

int OrvanBenchtopDevice::SetTriggerSource(TriggerSource value)
{
    return devConnHandler->setTrgSrc(static_cast<uint8_t>(value));
}

int OrvanBenchtopDevice::SetTriggerInpImp(OnOff value)
{
    return set_trigger_impedance(*devConnHandler, value);
}

int OrvanBenchtopDevice::GetTriggerInpImp(OnOff& value)
{
    return get_trigger_impedance(*devConnHandler, value);
}

int OrvanBenchtopDevice::SetRFOutput(OnOff value)
{
    return devConnHandler->SetRFOutput(value == On ? 1 : 0);
}

int OrvanBenchtopDevice::SetAMModulationSource(OnOff value)
{
    if (pPersistentData == nullptr)
        return ERR_FAILED;
    std::printf("OrvanBenchtopDevice::SetAMModulation started");
    return devConnHandler->setModSrc(kAm, value == On);
}

int OrvanBenchtopDevice::SetFMModulationSource(OnOff value)
{
    return devConnHandler->setModSrc(kFm, value == On);
}

int OrvanBenchtopDevice::SetPulseModulationSource(OnOff value)
{
    return devConnHandler->setModSrc(kPulse, value == On);
}

int OrvanBenchtopDevice::GetHardware(uint8_t* value)
{
    value[0] = static_cast<uint8_t>(g_devDefaults.hw_ver[0]);
    return 0;
}

int OrvanBenchtopDevice::GetOption(uint8_t* value, size_t size)
{
    return copy_options(optBenchtop_Tbl, value, size);
}

int OrvanBenchtopDevice::GetOptionsTable(void** table, size_t* size)
{
    return hand_out_options(optBenchtop_Tbl, table, size);
}

bool OrvanBenchtopDevice::SetupPowerButtonIrq(void (*handler)())
{
    return set_up_power_button(handler);
}

void OrvanBenchtopDevice::WaitPowerButtonRelease()
{
    await_power_button_release();
}

void OrvanBenchtopDevice::RunKbdServer()
{
    start_keyboard();
}

int OrvanBenchtopDevice::bit_register()
{
    return register_bit_tests(m_bitManager, this);
}

} // namespace HaldeElec::Orvan

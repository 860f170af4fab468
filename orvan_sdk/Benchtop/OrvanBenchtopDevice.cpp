#include "orvan_sdk/Benchtop/OrvanBenchtopDevice.h"

#include <cstdio>

#include "board/front_panel.h"
#include "board/spi_fan.h"
#include "board/spi_multiplexer.h"
#include "board/trigger_impedance.h"
#include "device/device_platform.h"
#include "device/device_threads.h"
#include "device/start_hooks.h"
#include "orvan_sdk/Benchtop/OrvanConnBenchtop.h"
#include "orvan_sdk/bit/bit_tests.h"
#include "orvan_sdk/lxi/PersistentData.h"
#include "orvan_sdk/lxi/option_tables.h"

namespace HaldeElec::Orvan {
namespace {

constexpr sDevDefaults_t g_devDefaults{"OVX3651B", "Halde Electronics Ltd.", "230000", "D"};

// The modulations of IDeviceConnectionHandler::setModSrc.
constexpr uint32_t kAm = 0;
constexpr uint32_t kFm = 1;
constexpr uint32_t kPulse = 2;

} // namespace

constinit const DevicePlatform kBenchtopPlatform{
    .class_name = "OrvanBenchtopDevice",
    .type = BenchtopDevice,
    .models = g_benchtopModelsTable,
    .defaults = g_devDefaults,
    .options = optBenchtop_Tbl,
    .sw_version = "1.19.145",
    .select_pins = kMultiplexerPins,
    .make_handler = make_handler<OrvanConnBenchtop>,
};

OrvanBenchtopDevice::OrvanBenchtopDevice(const char* log_path, int log_mode)
{
    const auto uncouple = [this] {
        SetTriggerCouple(pPersistentData->getSettings()->numDevices, eCoupling_none);
    };
    start(kBenchtopPlatform, log_path, log_mode,
          {.fan = {[this] { fanController(); }, m_runFanThread, m_fanThread}, .modules_up = uncouple});
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
        if (const int failure = devConnHandler->setTrgSrc(coupling); failure != 0) {
            result = failure;
        }
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
    if (pPersistentData == nullptr) {
        return ERR_FAILED;
    }
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

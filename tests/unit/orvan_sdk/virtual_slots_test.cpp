#include <cstddef>
#include <cstring>
#include <ostream>
#include <vector>

#include <gtest/gtest.h>

#include "orvan_sdk/IDeviceConnectionHandler.h"
#include "orvan_sdk/IOrvanDeviceManager.h"

using namespace HaldeElec::Orvan;

namespace {

// As the C++ ABI of the platform lays a member pointer out: its first word is the offset into the table of
// virtual functions, plus 1 on most processors.
template <typename Member>
size_t slot_of(Member member)
{
    size_t words[sizeof member / sizeof(size_t)];
    std::memcpy(words, &member, sizeof member);
    return words[0] / sizeof(void*);
}

template <typename... Members>
std::vector<size_t> slots_of(Members... members)
{
    return {slot_of(members)...};
}

/** Consecutive slots, the first one after the two of the destructor. */
std::vector<size_t> consecutive(size_t count)
{
    std::vector<size_t> slots;
    for (size_t i = 0; i < count; ++i) {
        slots.push_back(2 + i);
    }
    return slots;
}

// Programs that were built against an older header find the operations by their slots.
TEST(VirtualSlots, DeviceManager)
{
    using D = IOrvanDeviceManager;
    const auto slots =
        slots_of(&D::Initialized, &D::Connected, &D::InitHW, &D::SetSelectChannel, &D::GetSelectChannel,
                 &D::SetTriggerCouple, &D::SetTriggerSource, &D::GetTriggerSource, &D::SetTriggerInpImp,
                 &D::GetTriggerInpImp, &D::SetRFOutput, &D::GetRFOutput, &D::SetAMModulationSource,
                 &D::SetFMModulationSource, &D::SetPulseModulationSource, &D::GetAMModulationSource,
                 &D::GetFMModulationSource, &D::GetPulseModulationSource, &D::GetIdentification, &D::GetModel,
                 &D::GetSerial, &D::GetFirmware, &D::GetFpga, &D::GetDeviceType, &D::GetHardware,
                 &D::GetOption, &D::GetBatteryCharge, &D::SetDHCP, &D::GetDHCP, &D::SetIPAddress,
                 &D::GetIPAddress, &D::SetGateway, &D::GetGateway, &D::SetHostname, &D::GetHostname,
                 &D::SetDNS1, &D::GetDNS1, &D::SetDNS2, &D::GetDNS2, &D::SetNetMask, &D::GetNetMask,
                 &D::GetScpiPort, &D::SetScpiPort, &D::GetHIDParams, &D::GetOptionsTable, &D::getDeviceArch,
                 &D::SetupPowerButtonIrq, &D::WaitPowerButtonRelease, &D::detectDevicePin, &D::RunKbdServer,
                 &D::bit_register, &D::tempSensorReadConvert, &D::GetFanMode, &D::SetFanMode);
    EXPECT_EQ(slots, consecutive(54));
}

TEST(VirtualSlots, ConnectionHandler)
{
    using H = IDeviceConnectionHandler;
    const auto slots =
        slots_of(&H::Initialized, &H::Connected, &H::DataTransfer, &H::SetCommChannel, &H::GetCommChannel,
                 &H::ConfigChannelSPI, &H::setTrgSrc, &H::SetRFOutput, &H::setModSrc, &H::setTrgImp,
                 &H::getTrgImp, &H::SetNumDevices, &H::enableMUX, &H::disableMUX, &H::configureMuxPins);
    EXPECT_EQ(slots, consecutive(15));
}

} // namespace

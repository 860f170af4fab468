#include "trigger_impedance.h"

#include <cstdint>

#include "orvan_sdk/IDeviceConnectionHandler.h"

namespace HaldeElec::Orvan {

int set_trigger_impedance(IDeviceConnectionHandler& handler, IOrvanDeviceManager::OnOff value)
{
    uint32_t imp = value != IOrvanDeviceManager::Off ? 1 : 0;
    return handler.setTrgImp(imp);
}

int get_trigger_impedance(IDeviceConnectionHandler& handler, IOrvanDeviceManager::OnOff& value)
{
    uint32_t imp = 0;
    const int result = handler.getTrgImp(imp);
    value = imp != 0 ? IOrvanDeviceManager::On : IOrvanDeviceManager::Off;
    return result;
}

} // namespace HaldeElec::Orvan

/**
 * The trigger input impedance of the selected channel, as a device hands it to its connection handler.
 */
#ifndef ORVAN_SDK_TRIGGER_IMPEDANCE_H
#define ORVAN_SDK_TRIGGER_IMPEDANCE_H

#include "orvan_sdk/IOrvanDeviceManager.h"

namespace HaldeElec::Orvan {

/** @return what IDeviceConnectionHandler's setTrgImp and getTrgImp give */
int set_trigger_impedance(IDeviceConnectionHandler& handler, IOrvanDeviceManager::OnOff value);
int get_trigger_impedance(IDeviceConnectionHandler& handler, IOrvanDeviceManager::OnOff& value);

} // namespace HaldeElec::Orvan

#endif

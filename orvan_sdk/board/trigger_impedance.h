/**
 * The trigger input impedance of the selected channel, as a device passes it to its connection handler.
 */
#ifndef ORVAN_SDK_TRIGGER_IMPEDANCE_H
#define ORVAN_SDK_TRIGGER_IMPEDANCE_H

#include "orvan_sdk/IOrvanDeviceManager.h"

namespace HaldeElec::Orvan {

/** @return as IDeviceConnectionHandler::setTrgImp and getTrgImp */
int set_trigger_impedance(IDeviceConnectionHandler& handler, IOrvanDeviceManager::OnOff value);
int get_trigger_impedance(IDeviceConnectionHandler& handler, IOrvanDeviceManager::OnOff& value);

} // namespace HaldeElec::Orvan

#endif

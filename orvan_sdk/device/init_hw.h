/**
 * Helpers shared by the platforms' InitHW.
 */
#ifndef ORVAN_SDK_DEVICE_INIT_HW_H
#define ORVAN_SDK_DEVICE_INIT_HW_H

namespace HaldeElec::Orvan {

/** Logs that a part of InitHW failed. @return false, which is then InitHW's result */
bool init_hw_failed(const char* part);

} // namespace HaldeElec::Orvan

#endif

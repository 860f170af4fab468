/**
 * The SPI fan drive of the benchtop and the third platform.
 */
#ifndef ORVAN_SDK_SPI_FAN_H
#define ORVAN_SDK_SPI_FAN_H

#include <atomic>
#include <functional>
#include <mutex>

class BITManager;

namespace HaldeElec::Orvan {

class IOrvanDeviceManager;

/**
 * Sends the drive value for a temperature, or the fixed one in FIXED mode, to the fan drive. The selected
 * channel is restored afterwards. The caller holds the bus lock.
 *
 * @param temp degrees Celsius
 * @return result of the transfer: 0 or -1
 */
int send_fan_speed(IOrvanDeviceManager& device, double temp);

/**
 * Body of the fan thread: every two minutes passes the modules' highest temperature to `update` and reports
 * the "FAN test" (FanTest) of the previous cycles.
 *
 * A request to end takes effect after the two minutes.
 *
 * @param run     cleared to end it
 * @param bus     held during `update`
 * @param manager of the test; in a cycle where it is null nothing is reported or counted
 * @param update  sets the fan; a non-zero result is a failure
 */
void control_spi_fan(const std::atomic<bool>& run, std::mutex& bus, BITManager* const& manager,
                     const std::function<int(double temp)>& update);

} // namespace HaldeElec::Orvan

#endif

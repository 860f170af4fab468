/**
 * The charge monitor: a thread that reads the battery for as long as the instrument runs.
 */
#ifndef ORVAN_SDK_CHARGE_MONITOR_H
#define ORVAN_SDK_CHARGE_MONITOR_H

#include <cstdint>
#include <functional>
#include <mutex>

#include "orvan_sdk/i2cdev.h"

namespace HaldeElec::Orvan {

/** The readings of a cycle. */
struct ChargeReading {
    uint16_t percentage = 0;
    int status = 0; /**< charge_status of the current */
};

/** Platform-specific parts of a cycle. */
struct ChargeHooks {
    /** Reads more of the battery, with the bus held; a failure fails the cycle. May be empty. */
    std::function<void(I2CFd& battery)> read_more;
    /** Called with a successful reading, without the bus. */
    std::function<void(const ChargeReading&)> use;
};

/**
 * One cycle: writes to the charge controller, reads charge and current, and waits for the next cycle. The
 * wait is five seconds. After a failed reading it is a tenth of a second for the first five failures in a
 * row; then, with a line in the log, a whole period, after which the count starts again.
 *
 * @param bus   held while battery and charge controller are accessed
 * @param retry consecutive failed readings; initially 0
 */
void run_charge_cycle(std::mutex& bus, int& retry, const ChargeHooks& hooks);

} // namespace HaldeElec::Orvan

#endif

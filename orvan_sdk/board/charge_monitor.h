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

/** What a cycle has read. */
struct ChargeReading {
    uint16_t percentage = 0;
    int status = 0; /**< charge_status of the current */
};

/** What a platform adds to a cycle. */
struct ChargeHooks {
    /** Reads more of the battery, with the bus held; a failure is one of the cycle. May be empty. */
    std::function<void(I2CFd& battery)> read_more;
    /** Is called with a reading that went well, without the bus. */
    std::function<void(const ChargeReading&)> use;
};

/**
 * One cycle: a reading of charge and current, before which the charge controller is written to, and the wait
 * until the next one. That is a period of five seconds; after a reading that failed a tenth of a second for
 * the first five in a row, and then, with a line in the log, a whole period, from where the count begins
 * anew.
 *
 * @param bus   held while battery and charge controller are accessed
 * @param retry readings that have failed in a row; 0 at first
 */
void run_charge_cycle(std::mutex& bus, int& retry, const ChargeHooks& hooks);

} // namespace HaldeElec::Orvan

#endif

/**
 * Sequences of port accesses that put latching relays into a position.
 */
#ifndef ORVAN_SDK_BENCHTOP_RELAY_SEQUENCE_H
#define ORVAN_SDK_BENCHTOP_RELAY_SEQUENCE_H

#include <cstdint>

#include "orvan_sdk/i2cdev.h"

namespace HaldeElec::Orvan {

/** One step: the address lines, then the strobe that drives the relay which they name. Masks of port bits; 0
 *  leaves the access out. */
struct Phase {
    uint8_t ga_fd1_clr; /**< bits to clear in port A of `i2cfd1` */
    uint8_t ga_fd1_set;
    uint8_t gb_fd0_clr; /**< bits to clear in port B of `i2cfd0`, the strobe among them */
    uint8_t gb_fd0_set;
    bool do_pulse;                /**< strobe once the lines have settled */
    uint8_t gb_pulse_mask;        /**< strobe bits in port B of `i2cfd0` */
    bool extra_sleep_after_pulse; /**< wait once more behind the strobe */
};

struct Seq {
    const Phase* phases;
    uint8_t count;
};

/**
 * Runs a sequence. An access that fails does not stop it: the failure stands in the handle's `status`.
 *
 * @param relay_delay_us time for a relay, ahead of each strobe and for the extra wait behind one
 */
void apply_seq(const Seq& seq, I2CFd& i2cfd0, I2CFd& i2cfd1, uint32_t relay_delay_us);

} // namespace HaldeElec::Orvan

#endif

/**
 * Sequences of port accesses that switch latching relays.
 */
#ifndef ORVAN_SDK_BENCHTOP_RELAY_SEQUENCE_H
#define ORVAN_SDK_BENCHTOP_RELAY_SEQUENCE_H

#include <cstdint>

#include "orvan_sdk/i2cdev.h"

namespace HaldeElec::Orvan {

/** One step: the address lines, then the strobe that drives the addressed relay. Masks of port bits; 0 skips
 *  the access. */
struct Phase {
    uint8_t ga_fd1_clr; /**< bits to clear in port A of `i2cfd1` */
    uint8_t ga_fd1_set;
    uint8_t gb_fd0_clr; /**< bits to clear in port B of `i2cfd0`, including the strobe */
    uint8_t gb_fd0_set;
    bool do_pulse;                /**< strobe once the lines have settled */
    uint8_t gb_pulse_mask;        /**< strobe bits in port B of `i2cfd0` */
    bool extra_sleep_after_pulse; /**< wait once more after the strobe */
};

struct Seq {
    const Phase* phases;
    uint8_t count;
};

/**
 * Runs a sequence. A failed access does not stop it: the failure is recorded in the handle's `status`.
 *
 * @param relay_delay_us relay settling time, before each strobe and for the extra wait after one
 */
void apply_seq(const Seq& seq, I2CFd& i2cfd0, I2CFd& i2cfd1, uint32_t relay_delay_us);

} // namespace HaldeElec::Orvan

#endif

#include "relay_sequence.h"

#include "board/mcp23017.h"
#include "hw/hw.h"

namespace HaldeElec::Orvan {

void apply_seq(const Seq& seq, I2CFd& i2cfd0, I2CFd& i2cfd1, uint32_t relay_delay_us)
{
    for (const Phase* phase = seq.phases; phase != seq.phases + seq.count; ++phase) {
        if (phase->ga_fd1_clr != 0) {
            i2c_clr_mask(i2cfd1, GPIOA, phase->ga_fd1_clr);
        }
        if (phase->ga_fd1_set != 0) {
            i2c_set_mask(i2cfd1, GPIOA, phase->ga_fd1_set);
        }
        if (phase->gb_fd0_clr != 0) {
            i2c_clr_mask(i2cfd0, GPIOB, phase->gb_fd0_clr);
        }
        if (phase->gb_fd0_set != 0) {
            i2c_set_mask(i2cfd0, GPIOB, phase->gb_fd0_set);
        }
        if (phase->do_pulse) {
            hw_delay_us(relay_delay_us);
            i2c_set_mask(i2cfd0, GPIOB, phase->gb_pulse_mask);
            if (phase->extra_sleep_after_pulse) {
                hw_delay_us(relay_delay_us);
            }
        }
    }
}

} // namespace HaldeElec::Orvan

#ifndef ORVAN_SIM_BOARD_SPI_DEVICE_H
#define ORVAN_SIM_BOARD_SPI_DEVICE_H

#include <cstdint>

namespace sim_board {

/**
 * A chip on the SPI bus. The bus makes one call at a time; a chip that tests also control guards its own
 * state.
 */
class SpiDevice {
public:
    virtual ~SpiDevice() = default;

    /**
     * Whether the chip can follow a transfer in this SPI mode (0 to 3) at this clock. If not, it ignores it
     * and its output line stays at 1.
     */
    virtual bool follows(uint8_t mode, uint32_t hertz) const = 0;

    /** An errno value if the controller refuses the next message, 0 if it is sent. */
    virtual int refuse_message() { return 0; }

    /** Chip select falls. */
    virtual void select() {}
    /** Eight clocks: receives a byte and returns the one sent at the same time. */
    virtual uint8_t exchange(uint8_t sent) = 0;
    /** Chip select rises. */
    virtual void deselect() {}

    /** Power returns after a loss. */
    virtual void power_on() {}
};

/** What is received where no chip drives the line, which has a pull-up. */
inline constexpr uint8_t kFloatingByte = 0xff;

} // namespace sim_board

#endif

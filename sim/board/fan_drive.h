#ifndef ORVAN_SIM_BOARD_FAN_DRIVE_H
#define ORVAN_SIM_BOARD_FAN_DRIVE_H

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>

#include "board/spi_device.h"

namespace sim_board {

/**
 * The fan drive: takes messages of three bytes, two zeros and the drive value, and latches the value when
 * chip select rises. Its data output is not connected. Any other message is ignored. Thread-safe.
 */
class FanDrive : public SpiDevice {
public:
    /**
     * @name For tests
     * @{
     * The drive value; empty until the first message, when the fan runs at full speed.
     */
    std::optional<uint8_t> value() const;
    /** Fan speed in percent; a drive value of 255 is standstill, 0 full speed. */
    int speed() const;
    /** Messages accepted, and messages ignored. */
    size_t messages() const;
    size_t refused() const;
    /** @} */

    bool follows(uint8_t, uint32_t) const override { return true; }
    void select() override;
    uint8_t exchange(uint8_t sent) override;
    void deselect() override;
    void power_on() override;

private:
    mutable std::mutex m_mutex;
    size_t m_count = 0; // bytes since chip select fell
    uint8_t m_last = 0;
    bool m_header_is_zero = true;
    std::optional<uint8_t> m_value{};
    size_t m_messages = 0;
    size_t m_refused = 0;
};

} // namespace sim_board

#endif

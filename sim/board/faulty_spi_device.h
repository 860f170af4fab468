#ifndef ORVAN_SIM_BOARD_FAULTY_SPI_DEVICE_H
#define ORVAN_SIM_BOARD_FAULTY_SPI_DEVICE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "board/chip_faults.h"
#include "board/spi_bus.h"
#include "board/spi_device.h"

namespace sim_board {

/**
 * Injects faults in front of a chip; everything else is passed through. Thread-safe.
 *
 * Nothing answers for an absent chip: all bytes received are 0xFF. A message beyond the limit fails with EIO.
 */
class FaultySpiDevice : public SpiDevice, public ChipFaults {
public:
    /** `chip` may be null: not fitted, whatever the faults. */
    explicit FaultySpiDevice(std::shared_ptr<SpiDevice> chip) : m_chip(std::move(chip)) {}

    /** The busy bit of an EEPROM sticks at 1: bit 0 of every reply to RDSR (0x05). */
    void stuck_busy(bool on);
    /**
     * Flips the bits of `mask` in the byte received at `index` (0 is received with the opcode) in messages
     * that begin with `opcode`; mask 0 ends that.
     */
    void flip_reply_bits(uint8_t opcode, size_t index, uint8_t mask);
    /**
     * In the next message that begins with `opcode` and is long enough, power is lost after `bytes` bytes,
     * the opcode included. What was received until then is stored as if chip select had risen there, and the
     * chip is dead until power_on(). To cut a page write after its first k bytes: opcode 0x02, 1 + address
     * bytes + k.
     */
    void cut_power_in(uint8_t opcode, size_t bytes);
    bool dead() const;

    bool follows(uint8_t mode, uint32_t hertz) const override;
    int refuse_message() override;
    void select() override;
    uint8_t exchange(uint8_t sent) override;
    void deselect() override;
    void power_on() override;

private:
    struct ReplyFlip {
        uint8_t opcode;
        size_t index;
        uint8_t mask;
    };
    struct PowerCut {
        uint8_t opcode;
        size_t bytes;
    };

    bool answers() const { return m_chip != nullptr && !m_absent && !m_dead; }

    const std::shared_ptr<SpiDevice> m_chip;
    bool m_stuck_busy = false;
    bool m_dead = false;
    std::optional<ReplyFlip> m_flip{};
    std::optional<PowerCut> m_cut{};
    uint8_t m_opcode = 0;
    size_t m_position = 0;
};

/** Puts a faulty device in front of what is at that target of the bus now; see SpiBus::attach. */
std::shared_ptr<FaultySpiDevice> insert_fault(SpiBus& bus, std::string_view target);

} // namespace sim_board

#endif

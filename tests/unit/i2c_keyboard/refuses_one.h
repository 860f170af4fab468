/**
 * A chip that does not acknowledge one transfer, by its number.
 */
#ifndef ORVAN_TESTS_REFUSES_ONE_H
#define ORVAN_TESTS_REFUSES_ONE_H

#include <atomic>
#include <cstddef>
#include <memory>

#include "board/i2c_bus.h"

namespace orvan_test {

class RefusesOne : public sim_board::I2cDevice {
public:
    explicit RefusesOne(std::shared_ptr<sim_board::I2cDevice> chip) : m_chip(std::move(chip)) {}

    /** Refuses one transfer after `number` more; later ones succeed. A register read is two, a write one. */
    void refuse_after(size_t number) { m_left = number; }

    bool write(std::span<const uint8_t> bytes) override { return m_left-- != 0 && m_chip->write(bytes); }
    bool read(std::span<uint8_t> bytes) override { return m_left-- != 0 && m_chip->read(bytes); }

private:
    const std::shared_ptr<sim_board::I2cDevice> m_chip;
    std::atomic<size_t> m_left{SIZE_MAX};
};

/** Puts one before what is at the address of the bus now. */
inline std::shared_ptr<RefusesOne> refuse_one(sim_board::I2cBus& bus, uint8_t address, size_t after)
{
    auto device = std::make_shared<RefusesOne>(bus.device(address));
    device->refuse_after(after);
    bus.attach(address, device);
    return device;
}

} // namespace orvan_test

#endif

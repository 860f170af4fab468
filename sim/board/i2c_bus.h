#ifndef ORVAN_SIM_BOARD_I2C_BUS_H
#define ORVAN_SIM_BOARD_I2C_BUS_H

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include "board/i2c_device.h"
#include "board/trace.h"

namespace sim_board {

/**
 * The I2C bus and its chips by 7-bit address, as wiringPi's calls use it. Thread-safe: one access at a time.
 */
class I2cBus {
public:
    explicit I2cBus(Trace& trace) : m_trace(trace) {}

    /**
     * @name As wiringPi
     * All return -1 with errno set on failure: ENXIO where no chip is fitted, EREMOTEIO for a missing
     * acknowledge, EBADF for an invalid handle. Register numbers and data are truncated to their width.
     * @{
     */
    int open(int address);
    int read(int fd);
    int write(int fd, int value);
    int read_register8(int fd, int reg);
    int read_register16(int fd, int reg);
    int write_register8(int fd, int reg, int value);
    int write_register16(int fd, int reg, int value);
    /** @} */

    /** Puts a chip at an address, replacing what is there; null removes it. */
    void attach(uint8_t address, std::shared_ptr<I2cDevice> device);
    std::shared_ptr<I2cDevice> device(uint8_t address) const;
    /** The addresses in use, in ascending order. */
    std::vector<uint8_t> addresses() const;

    /**
     * Whether the address of a chip that is not fitted can be opened, so that only accesses fail. Default
     * false.
     */
    void open_without_device(bool allowed);
    /**
     * The next successful open() returns this descriptor number, replacing what it was: a process started
     * without standard input gets 0.
     */
    void open_next_as(int fd);

private:
    int transfer(int fd, std::span<const uint8_t> sent, std::span<uint8_t> received);
    int failed(const char* what, int error) const;

    Trace& m_trace;
    mutable std::mutex m_mutex;
    std::map<uint8_t, std::shared_ptr<I2cDevice>> m_devices;
    bool m_open_without_device = false;
    std::optional<int> m_open_next_as;
};

} // namespace sim_board

#endif
